// The rules of vswitch/model/system.h, and how the switch behaves by them.
#include "vswitch/model/system.h"

#include <algorithm>
#include <cctype>

#include "vswitch/model/model.h"

namespace vswitch {
namespace {

constexpr std::string_view kMask = "vswitchd keeps secrets off screens";

const char *stateText(UnitState state) {
    static constexpr const char *kTexts[] = {"operational", "failed", "absent"};
    return kTexts[static_cast<std::uint32_t>(state) - OPEN_UNIT_OPERATIONAL];
}

int severityOf(UnitState state) {
    return state == UnitState::Operational ? 5 : 3;
}

}  // namespace

bool isHost(std::string_view text) {
    return !text.empty() && text.size() <= kHostMax && std::ranges::all_of(text, [](unsigned char c) {
        return c < 0x80 && (std::isalnum(c) != 0 || c == '.' || c == '-' || c == '_' || c == ':');
    });
}

std::string hideSecret(std::string_view secret) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string out;
    for (std::size_t i = 0; i < secret.size(); ++i) {
        const auto byte = static_cast<unsigned char>(secret[i] ^ kMask[i % kMask.size()]);
        out += kDigits[byte >> 4];
        out += kDigits[byte & 0xf];
    }
    return out;
}

std::optional<std::string> revealSecret(std::string_view hidden) {
    const auto digit = [](char c) {
        return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    };
    std::string out;
    for (std::size_t i = 0; i + 1 < hidden.size(); i += 2) {
        const int high = digit(hidden[i]), low = digit(hidden[i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        out += static_cast<char>((high << 4 | low) ^ kMask[i / 2 % kMask.size()]);
    }
    return hidden.size() % 2 == 0 ? std::optional(out) : std::nullopt;
}

std::uint32_t TemperatureSensor::state() const {
    if (!working)
        return OPEN_TEMP_FAILED;
    if (celsius > criticalAbove)
        return OPEN_TEMP_CRITICAL;
    return celsius > warningAbove ? OPEN_TEMP_WARNING : OPEN_TEMP_NORMAL;
}

// --- hardware

open_error_t Model::setTemperature(std::uint32_t sensor, std::int32_t celsius, bool working) {
    if (sensor == 0 || sensor > health_.sensors.size())
        return OPEN_E_NOT_FOUND;
    auto &found = health_.sensors[sensor - 1];
    const auto before = found.state();
    found.celsius = celsius;
    found.working = working;
    if (found.state() != before) {
        static constexpr const char *kStates[] = {"normal", "warning", "critical", "failed"};
        const std::string text = "Temperature sensor " + found.name + ": " +
                                 kStates[found.state() - OPEN_TEMP_NORMAL] +
                                 (working ? ", " + std::to_string(celsius) + " degrees Celsius" : "");
        log(found.state() == OPEN_TEMP_NORMAL    ? 5
            : found.state() == OPEN_TEMP_WARNING ? 4
                                                 : 2,
            "BOXSERV", "healthTask", text);
        event("health", text);
    }
    return OPEN_E_NONE;
}

open_error_t Model::setFan(std::uint32_t fan, UnitState state, std::uint32_t rpm) {
    if (fan == 0 || fan > health_.fans.size())
        return OPEN_E_NOT_FOUND;
    if (rpm > kFanRpmMax)
        return OPEN_E_PARAM;
    auto &found = health_.fans[fan - 1];
    const bool changed = found.state != state;
    found.state = state;
    found.rpm = state == UnitState::Operational ? rpm : 0;
    if (changed)
        reportUnit(found.name, state);
    return OPEN_E_NONE;
}

open_error_t Model::setPowerSupply(std::uint32_t supply, UnitState state) {
    if (supply == 0 || supply > health_.supplies.size())
        return OPEN_E_NOT_FOUND;
    auto &found = health_.supplies[supply - 1];
    if (std::exchange(found.state, state) != state)
        reportUnit(found.name, state);
    return OPEN_E_NONE;
}

void Model::reportUnit(const std::string &name, UnitState state) {
    const auto text = name + ": " + stateText(state);
    log(severityOf(state), "BOXSERV", "healthTask", text);
    event("health", text);
}

open_error_t Model::setLoad(std::uint32_t cpuPercent, std::uint32_t memoryTotalKb,
                            std::uint32_t memoryFreeKb) {
    if (cpuPercent > 100 || memoryFreeKb > memoryTotalKb)
        return OPEN_E_PARAM;
    health_.cpuPercent = cpuPercent;
    health_.memoryTotalKb = memoryTotalKb;
    health_.memoryFreeKb = memoryFreeKb;
    return OPEN_E_NONE;
}

// --- clock

// Answers for an address come from a talking device that has it. A name is never reached: nobody resolves it.
bool Model::answersSntp(const SntpServer &server) const {
    return std::ranges::any_of(devices_, [&](const auto &item) {
        const Device &device = item.second;
        return device.talking && device.ip == server.host && forwarding(device.port);
    });
}

void Model::pollSntp() {
    lastSntpPoll_ = now_;
    const auto before = std::exchange(sntp_.synchronisedTo, {});
    if (settings_.clock.sntp == SntpMode::Unicast) {
        auto servers = settings_.clock.servers;
        std::ranges::stable_sort(servers, {}, &SntpServer::priority);
        const auto found =
            std::ranges::find_if(servers, [&](const SntpServer &server) { return answersSntp(server); });
        if (found != servers.end()) {
            sntp_.synchronisedTo = found->host;
            sntp_.lastUpdate = static_cast<std::int64_t>(wall_.tv_sec);
        }
    }
    if (sntp_.synchronisedTo == before)
        return;
    if (sntp_.synchronisedTo.empty())
        log(4, "SNTP", "sntpTask", "No SNTP server answers");
    else
        log(5, "SNTP", "sntpTask", "Clock synchronised to " + sntp_.synchronisedTo);
}

}  // namespace vswitch
