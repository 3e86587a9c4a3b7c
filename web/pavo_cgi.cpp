// pavo_cgi: serves one request of the web interface, run by the web server.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

#include "common/files.h"
#include "common/log.h"
#include "platform/paths.h"
#include "web/routes.h"

namespace pavo {
namespace {

bool serve() {
    const auto tree = httpdTreeCreate();
    if (tree == nullptr || !registerRoutes(*tree))
        return false;
    tree->admits = [](const std::string &token, const Session &session) {
        const char *const method = std::getenv("REQUEST_METHOD");
        if (method != nullptr && std::string_view(method) == "GET" && wasUserChecked(token))
            return true;
        const bool isAdmitted = isStillTheUser(token, session, findSwitchUser);
        if (isAdmitted)
            noteUserCheck(token);
        return isAdmitted;
    };
    if (const char *const uri = std::getenv("REQUEST_URI"))
        setenv("REQUEST_URI", plainUri(uri).c_str(), 1);
    httpdProcessRequest(*tree);
    endRequest();
    return std::fflush(stdout) == 0;
}

// A file that is opened must not take the place of a standard stream that the caller has closed.
void openStandardStreams() {
    while (true)
        if (const int fd = open("/dev/null", O_RDWR); fd < 0 || fd > STDERR_FILENO) {
            if (fd >= 0)
                close(fd);
            return;
        }
}

// Without a file, lines would go to standard output, into the answer.
std::int32_t logSink() {
    return openFile(platform::paths::kLogFile, "a") != nullptr ? LOG_SINK_FILE : LOG_SINK_SYSLOG;
}

}  // namespace
}  // namespace pavo

int main() try {
    pavo::openStandardStreams();
    // A client that has gone does not end an operation.
    std::signal(SIGPIPE, SIG_IGN);
    pavo::devmgrLogOpen(pavo::logSink(), pavo::LOG_FACILITY_USER, "pavo_cgi");
    const bool isServed = pavo::serve();
    pavo::devmgrLogClose();
    return isServed ? 0 : 1;
} catch (const std::exception &e) {
    std::fprintf(stderr, "pavo_cgi: %s\n", e.what());
    return 1;
}
