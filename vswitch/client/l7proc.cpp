// The platform process library on the virtual switch: lines go to the switch's system log.
#include "platform/l7proc.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <msgpack.hpp>
#include <mutex>
#include <string>

#include "vswitch/client/transport.h"
#include "vswitch/rpc/wire.h"

namespace {

constexpr std::size_t kLineMax = 1024;

std::mutex nameMutex;
std::string processName = "unnamed";

}  // namespace

void l7proc_crashlog_register(const char *name, openapiClientHandle_t *) {
    const std::lock_guard lock(nameMutex);
    processName = (name != nullptr ? name : "unnamed") + ("-" + std::to_string(::getpid()));
}

void l7proc_logf(int severity, const char *file, int line, const char *format, ...) {
    char text[kLineMax];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);

    const char *slash = std::strrchr(file, '/');
    const std::string place = std::string(slash != nullptr ? slash + 1 : file) + ":" + std::to_string(line);
    msgpack::sbuffer request;
    msgpack::packer packer(request);
    packer.pack_array(5);
    packer.pack(vswitch::rpc::kLogCall);
    packer.pack(severity);
    {
        const std::lock_guard lock(nameMutex);
        packer.pack(processName);
    }
    packer.pack(place);
    packer.pack(text);
    std::string reply;
    // The line is worth seeing even when the switch is gone.
    if (!vswitch::client::exchange(request.data(), request.size(), reply))
        std::fprintf(stderr, "%s %s\n", place.c_str(), text);
}
