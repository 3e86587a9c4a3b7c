#include "fuzz/support.h"

#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "common/log.h"
#include "platform/manual_clock.h"
#include "platform/paths.h"
#include "vswitch/cli/command.h"

namespace fuzz {
namespace {

namespace fs = std::filesystem;

}  // namespace

void require(bool holds, const char *property, std::string_view details, std::source_location at) {
    if (holds)
        return;
    std::fprintf(stderr, "%s:%u: violated: %s\n%.*s\n", at.file_name(), static_cast<unsigned>(at.line()),
                 property, static_cast<int>(details.size()), details.data());
    std::abort();
}

std::vector<std::string_view> partsOf(std::string_view input, char separator, std::size_t most) {
    std::vector<std::string_view> parts;
    while (parts.size() < most) {
        const auto at = input.find(separator);
        parts.push_back(input.substr(0, at));
        if (at == std::string_view::npos)
            break;
        input.remove_prefix(at + 1);
    }
    return parts;
}

bool isStrictJson(std::string_view text) {
    return nlohmann::json::accept(text);
}

PrivateRoot::PrivateRoot() {
    if (std::getenv("PAVO_ROOT") == nullptr) {
        auto pattern = (fs::temp_directory_path() / "pavo-fuzz-XXXXXX").string();
        require(mkdtemp(pattern.data()) != nullptr, "a folder for temporary files can be made", pattern);
        own_ = pattern;
        setenv("PAVO_ROOT", pattern.c_str(), 1);
    }
    fs::create_directories(platform::fsPath("/tmp"));
    fs::create_directories(platform::fsPath(platform::paths::kScriptDir));
    restoreTemplates();
    // Every line is made, and goes into a file of limited size.
    writeFile(platform::paths::kLogLevelFile, "7");
    pavo::devmgrLogOpen(pavo::LOG_SINK_FILE, pavo::LOG_FACILITY_USER, "fuzz");
}

PrivateRoot::~PrivateRoot() {
    pavo::devmgrLogClose();
    if (!own_.empty())
        fs::remove_all(own_);
}

void restoreTemplates() {
    const fs::path templates = platform::fsPath(platform::paths::kProfileTemplateDir);
    fs::create_directories(templates);
    fs::copy(fs::path(PAVO_DATA_DIR) / "profileTemplate", templates,
             fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}

void writeFile(const char *fixedPath, std::string_view text) {
    std::ofstream(platform::fsPath(fixedPath), std::ios::binary | std::ios::trunc) << text;
}

std::string readFile(const char *fixedPath) {
    std::ifstream in(platform::fsPath(fixedPath), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void removeFiles(const char *fixedFolder) {
    fs::remove_all(platform::fsPath(fixedFolder));
}

SwitchRig::Clock::Clock() {
    platform::manual_clock::reset();
    platform::manual_clock::setAutoAdvance(true);
}

SwitchRig::SwitchRig() : device(config()) {
    require(openapiClientRegister("fuzz", &client) == OPEN_E_NONE, "a client can register");
}

vswitch::ModelConfig SwitchRig::config() {
    vswitch::ModelConfig config;
    config.physicalPorts = kPorts;
    config.lags = kLags;
    config.fdbCapacity = config.macAssociationsMax = 64;
    config.logCapacity = 16;
    return config;
}

std::string SwitchRig::runningConfig() {
    return device.with([](vswitch::Server &server) { return commandsOf(server.model()); });
}

std::uint64_t SwitchRig::unknownCommands() {
    return device.with([](vswitch::Server &server) { return server.cli().unknownCommands(); });
}

std::string commandsOf(const vswitch::Model &model) {
    std::istringstream all(vswitch::cli::runningConfig(model.settled()));
    std::string out;
    for (std::string line; std::getline(all, line);)
        if (!line.starts_with('!'))
            out += line + '\n';
    return out;
}

}  // namespace fuzz
