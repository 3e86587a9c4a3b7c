// What targets are made of.
#ifndef PAVO_FUZZ_SUPPORT_H
#define PAVO_FUZZ_SUPPORT_H

#include <filesystem>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "platform/open_client.h"
#include "vswitch/inprocess.h"

namespace fuzz {

// Ends the process, so that the fuzzer keeps the input, unless the property holds. `details` is printed.
void require(bool holds, const char *property, std::string_view details = {},
             std::source_location at = std::source_location::current());

// The parts of an input between `separator`s, at most `most`; what is beyond is left out.
std::vector<std::string_view> partsOf(std::string_view input, char separator, std::size_t most);

// One text that a JSON parser other than the program's takes.
bool isStrictJson(std::string_view text);

// A private root for as long as it lives, with the folders that the program expects and the shipped profile
// templates: PAVO_ROOT when that is set, else a new folder below the one for temporary files, which goes with it.
class PrivateRoot {
  public:
    PrivateRoot();
    ~PrivateRoot();
    PrivateRoot(const PrivateRoot &) = delete;
    PrivateRoot &operator=(const PrivateRoot &) = delete;

  private:
    std::filesystem::path own_;
};

// The shipped profile templates, as they were.
void restoreTemplates();

void writeFile(const char *fixedPath, std::string_view text);
std::string readFile(const char *fixedPath);
void removeFiles(const char *fixedFolder);

// A small virtual switch in this process and a client of it.
class SwitchRig {
  public:
    static constexpr std::uint32_t kPorts = 4, kLags = 2;

    SwitchRig();
    ~SwitchRig() { openapiClientTearDown(&client); }
    SwitchRig(const SwitchRig &) = delete;
    SwitchRig &operator=(const SwitchRig &) = delete;

    static vswitch::ModelConfig config();
    // Without its heading, which tells the time.
    std::string runningConfig();
    // Commands that the switch does not know.
    std::uint64_t unknownCommands();

    // Before the device, which takes the time of its start from it.
    struct Clock {
        Clock();
    } clock;
    vswitch::InProcessSwitch device;
    openapiClientHandle_t client{};
};

// The commands of the configuration with all accepted changes in effect; without comments.
std::string commandsOf(const vswitch::Model &model);

}  // namespace fuzz

#endif
