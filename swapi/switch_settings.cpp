#include "swapi/switch_settings.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"
#include "platform/paths.h"
#include "swapi/cli_apply.h"

namespace {

constexpr std::size_t kLineSize = 1024;
constexpr int kBootvarHeaderLines = 14;
constexpr std::size_t kAddressScriptSize = 128;
constexpr std::size_t kSpeedScriptSize = 1024;  // with the terminating zero
constexpr std::size_t kSpeedTextMax = 32;
constexpr std::int32_t kVlanIdMax = 4094;

// The lock of a serialised operation: an exclusive flock on a file that is deleted after each use.
class OperationLock {
  public:
    explicit OperationLock(const char *path) : path_(path) {}
    OperationLock(const OperationLock &) = delete;
    OperationLock &operator=(const OperationLock &) = delete;
    ~OperationLock() { drop(); }

    // Waits for the lock. A holder deletes the file, so the lock may turn out to be on a file that is no
    // longer the one the others see: then it is worth nothing and is taken anew.
    bool take() {
        for (;;) {
            // No truncation and no link: /tmp is open to everybody.
            fd_ = open(platform::fsPath(path_).c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666);
            if (fd_ < 0)
                return false;
            if (flockRetried(LOCK_EX) != 0) {
                LOG_ERROR("[%s:%d] File lock failed\n");
                fileRemove(path_);
                return false;
            }
            if (isCurrent())
                return true;
            drop();
        }
    }

    // The file goes before the lock does: deleted later, it could be the next holder's.
    bool release() {
        fileRemove(path_);
        const bool unlocked = flockRetried(LOCK_UN) == 0;
        if (!unlocked)
            LOG_ERROR("[%s:%d] File unlock failed\n");
        drop();
        return unlocked;
    }

  private:
    int flockRetried(int operation) const {
        int result = 0;
        do {
            result = flock(fd_, operation);
        } while (result != 0 && errno == EINTR);
        return result;
    }

    bool isCurrent() const {
        struct stat mine{};
        struct stat seen{};
        return fstat(fd_, &mine) == 0 && stat(platform::fsPath(path_).c_str(), &seen) == 0 &&
               mine.st_dev == seen.st_dev && mine.st_ino == seen.st_ino;
    }

    void drop() {
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
    }

    const char *path_;
    int fd_ = -1;
};

template <class Operation>
std::int32_t serialised(const char *lockPath, Operation operation) {
    OperationLock lock(lockPath);
    if (!lock.take())
        return RESULT_FAILED;
    const std::int32_t result = operation();
    return lock.release() ? result : RESULT_FAILED;
}

// Captures a show command and hands its output to `parse` as an open file. The file is deleted afterwards. 0,
// or 10016.
template <class Parse>
std::int32_t showParse(openapiClientHandle_t *client, const char *command, const char *path, Parse parse) {
    cliShowExecuteToFile(client, command, path);  // when it fails there is no file
    {
        const FilePtr file = fileOpen(path, "r");
        if (file == nullptr) {
            LOG_ERROR("[%s:%d] can not open file:%s\r\n", path);
            return RESULT_OPEN_FAILED;
        }
        parse(file.get());
    }
    fileRemove(path);
    return RESULT_SUCCESS;
}

template <std::size_t N>
void textCopy(char (&dst)[N], const std::string &src) {
    std::snprintf(dst, N, "%s", src.c_str());
}

// The first word of `line` from `column` on, cut to a management text.
void wordCopy(std::string_view line, std::size_t column, char *dst) {
    std::istringstream rest{std::string(line.substr(column))};
    if (std::string word; dst != nullptr && rest >> word)
        std::snprintf(dst, MGMT_TEXT_SIZE, "%s", word.c_str());
}

bool isDottedQuad(const char *text) {
    in_addr address{};
    return text != nullptr && inet_pton(AF_INET, text, &address) == 1;
}

bool isNoGateway(const char *gateway) {
    return gateway[0] == '\0' || std::strcmp(gateway, "0.0.0.0") == 0;
}

std::int32_t invalidArgument(const char *what) {
    LOG_ERROR("[%s:%d] Invalid %s\r\n", what);
    return RESULT_INVALID_ARGUMENT;
}

// What speeds are written with; anything else, a line end above all, does not belong into a script.
bool isSpeedText(std::string_view speed) {
    return std::all_of(speed.begin(), speed.end(), [](unsigned char c) {
        return c < 0x80 && (std::isalnum(c) != 0 || std::strchr(" ./-_", c) != nullptr);
    });
}

// The CLI's word for a speed text: "100 Full" is "100 full-duplex"; a speed without a duplex mode is "auto".
std::string speedKeyword(const std::string &speed) {
    if (const auto full = speed.find("Full"); full != std::string::npos)
        return speed.substr(0, full) + "full-duplex";
    if (const auto half = speed.find("Half"); half != std::string::npos)
        return speed.substr(0, half) + "half-duplex";
    return "auto";
}

}  // namespace

std::int32_t bootvarGet(openapiClientHandle_t *client, BootImageList *list) {
    list->count = 0;
    return showParse(client, "show bootvar", platform::paths::kBootvarShow, [list](std::FILE *file) {
        char line[kLineSize];
        for (int skipped = 0; skipped < kBootvarHeaderLines; ++skipped)
            if (std::fgets(line, sizeof line, file) == nullptr)
                return;
        while (list->count < list->capacity && std::fgets(line, sizeof line, file) != nullptr) {
            // Words are read whole before they are cut, so that a long one does not spill into the next
            // column.
            std::istringstream columns(line);
            std::int32_t unit = 0;
            std::string active;
            std::string backup;
            std::string currentActive;
            std::string nextActive;
            if (!(columns >> unit >> active >> backup >> currentActive >> nextActive))
                return;
            BootImageRecord &record = list->records[list->count++];
            record.unit = unit;
            textCopy(record.active, active);
            textCopy(record.backup, backup);
            textCopy(record.currentActive, currentActive);
            textCopy(record.nextActive, nextActive);
        }
    });
}

std::int32_t bootvarGetSafe(openapiClientHandle_t *client, BootImageList *list) {
    return serialised(platform::paths::kBootvarLock, [&] { return bootvarGet(client, list); });
}

std::int32_t managementPortIPv4ParametersGet(openapiClientHandle_t *client, std::int32_t *vlan,
                                             char method[MGMT_TEXT_SIZE], char ip[MGMT_TEXT_SIZE],
                                             char mask[MGMT_TEXT_SIZE], char gateway[MGMT_TEXT_SIZE]) {
    constexpr std::size_t kVlanColumn = 52;
    constexpr std::size_t kTextColumn = 47;
    const struct {
        std::string_view label;
        char *value;
    } texts[] = {{"IP Address", ip}, {"Subnet Mask", mask}, {"Method", method}, {"Default Gateway", gateway}};

    return showParse(client, "show ip management", platform::paths::kIpManagementShow, [&](std::FILE *file) {
        char buffer[kLineSize];
        while (std::fgets(buffer, sizeof buffer, file) != nullptr) {
            const std::string_view line(buffer);
            if (line.starts_with("IPv4 Management Interface") && line.size() > kVlanColumn) {
                if (int number = 0; vlan != nullptr && std::sscanf(buffer + kVlanColumn, "%d", &number) == 1)
                    *vlan = number;
            }
            for (const auto &text : texts)
                if (line.starts_with(text.label) && line.size() > kTextColumn)
                    wordCopy(line, kTextColumn, text.value);
        }
    });
}

std::int32_t managementPortIPv4ParametersGetSafe(openapiClientHandle_t *client, std::int32_t *vlan,
                                                 char method[MGMT_TEXT_SIZE], char ip[MGMT_TEXT_SIZE],
                                                 char mask[MGMT_TEXT_SIZE], char gateway[MGMT_TEXT_SIZE]) {
    return serialised(platform::paths::kIpManagementGetLock, [&] {
        return managementPortIPv4ParametersGet(client, vlan, method, ip, mask, gateway);
    });
}

std::int32_t managementPortIPv4ParametersSet(openapiClientHandle_t *client, std::int32_t vlan,
                                             std::int32_t mode, const char *ip, const char *mask,
                                             const char *gateway) {
    if (vlan < 1 || vlan > kVlanIdMax)
        return invalidArgument("management VLAN");
    char script[kAddressScriptSize];
    if (mode != MGMT_MODE_STATIC) {
        std::snprintf(script, sizeof script, "config\nip management vlan %d dhcp\nexit\n", vlan);
    } else if (!isDottedQuad(ip) || !isDottedQuad(mask) || gateway == nullptr) {
        return invalidArgument("management address");
    } else if (isNoGateway(gateway)) {
        std::snprintf(script, sizeof script,
                      "config\nip management vlan %d %s %s\nno ip default-gateway\nexit\n", vlan, ip, mask);
    } else if (!isDottedQuad(gateway)) {
        return invalidArgument("management gateway");
    } else {
        std::snprintf(script, sizeof script,
                      "config\nip management vlan %d %s %s\nip default-gateway %s\nexit\n", vlan, ip, mask,
                      gateway);
    }
    return cliScriptRun(client, script, platform::paths::kIpManagementIn, platform::paths::kIpManagementOut,
                        nullptr);
}

std::int32_t managementPortIPv4ParametersSetSafe(openapiClientHandle_t *client, std::int32_t vlan,
                                                 std::int32_t mode, const char *ip, const char *mask,
                                                 const char *gateway) {
    return serialised(platform::paths::kIpManagementSetLock,
                      [&] { return managementPortIPv4ParametersSet(client, vlan, mode, ip, mask, gateway); });
}

std::int32_t multipleIfSpeedSet(openapiClientHandle_t *client, std::span<const std::uint32_t> ports,
                                const char *speed) {
    if (speed == nullptr || !isSpeedText(speed))
        return invalidArgument("speed");
    const std::string keyword = speedKeyword(std::string(speed, strnlen(speed, kSpeedTextMax)));

    static constexpr std::string_view kBegin = "config\n";
    static constexpr std::string_view kEnd = "exit\n";
    std::string script(kBegin);
    const auto apply = [&] {
        script += kEnd;
        return cliScriptRun(client, script, platform::paths::kSpeedIn, platform::paths::kSpeedOut, nullptr);
    };
    for (const std::uint32_t port : ports) {
        char block[96];
        const int length = std::snprintf(block, sizeof block, "interface 0/%d\nspeed %s\nexit\n",
                                         static_cast<int>(port), keyword.c_str());
        // The ports that a script has no room for go into the next one.
        if (script.size() + static_cast<std::size_t>(length) + kEnd.size() >= kSpeedScriptSize) {
            if (const std::int32_t result = apply(); result != RESULT_SUCCESS)
                return result;
            script = kBegin;
        }
        script += block;
    }
    return apply();
}

std::int32_t multipleIfSpeedSetSafe(openapiClientHandle_t *client, std::span<const std::uint32_t> ports,
                                    const char *speed) {
    return serialised(platform::paths::kSpeedLock, [&] { return multipleIfSpeedSet(client, ports, speed); });
}

std::int32_t managementVlanGet(openapiClientHandle_t *client, std::int32_t *vlan) {
    if (client == nullptr || vlan == nullptr)
        return invalidArgument("management VLAN");
    *vlan = 1;
    return managementPortIPv4ParametersGetSafe(client, vlan, nullptr, nullptr, nullptr, nullptr);
}

std::int32_t managementGatewayGet(openapiClientHandle_t *client, char *dst, std::size_t cap) {
    if (client == nullptr || dst == nullptr || cap == 0)
        return invalidArgument("management gateway");
    dst[0] = '\0';
    char gateway[MGMT_TEXT_SIZE] = "";
    const std::int32_t result =
        managementPortIPv4ParametersGetSafe(client, nullptr, nullptr, nullptr, nullptr, gateway);
    if (result == RESULT_SUCCESS && !isNoGateway(gateway))
        std::snprintf(dst, cap, "%s", gateway);
    return result;
}
