#include "swapi/switch.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <set>
#include <utility>

#include "common/files.h"
#include "common/log.h"
#include "common/text.h"
#include "platform/paths.h"
#include "swapi/lag_members.h"
#include "swapi/read_call.h"
#include "swapi/script_file.h"

namespace pavo {
namespace {

constexpr std::size_t kVersionSize = 100;
constexpr std::size_t kModelSize = 256;
// What the switch OS has room for in a show capture, with the terminating zero.
constexpr std::size_t kShowCommandSize = 255;
constexpr std::size_t kShowFileSize = 96;
// Larger answers are none: they would only cost memory.
constexpr std::uint32_t kLldpTextMax = 64u << 10;
constexpr std::uint32_t kVlanNameMax = 64u << 10;
constexpr std::size_t kVlanListMax = 4096;

// The calls take strings that they only read as writable.
open_buffdesc descriptorOf(const std::string &text) {
    return {static_cast<std::uint32_t>(text.size() + 1), const_cast<char *>(text.c_str())};
}

// One capture at a time into a file: an entry of the set for each that is under way.
class CaptureLock {
  public:
    explicit CaptureLock(const std::string &file) : file_(file) {
        std::unique_lock lock(captures().mutex);
        captures().ended.wait(lock, [&] { return captures().files.insert(file_).second; });
    }
    ~CaptureLock() {
        {
            const std::lock_guard lock(captures().mutex);
            captures().files.erase(file_);
        }
        captures().ended.notify_all();
    }
    CaptureLock(const CaptureLock &) = delete;
    CaptureLock &operator=(const CaptureLock &) = delete;

  private:
    struct Captures {
        std::mutex mutex;
        std::condition_variable ended;
        std::set<std::string> files;
    };
    // Never destroyed: detached threads may capture while the process exits.
    static Captures &captures() {
        static auto &instance = *new Captures;
        return instance;
    }

    std::string file_;
};

Result<> applied(open_error_t code, const Where &where) {
    if (code == OPEN_E_NONE)
        return {};
    logError(where, "[%s:%d] Bad return code trying to apply the configuration. (result = %d)\n", code);
    return failed(ResultCode::Failed, "the switch refused the configuration");
}

}  // namespace

ScriptFiles ScriptFiles::forTag(const std::string &tag) {
    const std::string folder = platform::paths::kScriptDir;
    return {folder + "pavo_in_" + tag, folder + "pavo_out_" + tag};
}

std::string portCliName(IfNum port) {
    return "0/" + std::to_string(port.number());
}

std::string lagCliName(std::uint32_t lagNumber) {
    return "lag " + std::to_string(lagNumber);
}

// --- system

OpenResult<> Switch::checkConnectivity() const {
    return openResult(rpcclt_openapiConnectivityCheck(client_));
}

OpenResult<std::string> Switch::osVersion() const {
    return readText(kVersionSize,
                    [&](open_buffdesc *text) { return rpcclt_openapiNetworkOSVersionGet(client_, text); });
}

OpenResult<ApiVersion> Switch::apiVersion() const {
    ApiVersion api;
    const open_error_t code =
        rpcclt_openapiApiVersionGet(client_, &api.release, &api.version, &api.maintenance, &api.build);
    return openResult(code, api);
}

OpenResult<std::string> Switch::machineModel() const {
    return readText(kModelSize, [&](open_buffdesc *text) {
        return rpcclt_openapiSystemRegMachineModelGet(client_, text);
    });
}

// --- configuration by CLI

ScriptResult Switch::apply(std::string_view script, const ScriptFiles &files, Where where) const {
    removeFile(files.in);
    removeFile(files.out);
    ScriptResult result;
    if (const auto written = writeScriptFile(files.in, "w", script, where); !written)
        result = std::unexpected(ScriptFailure{ScriptFailure::Step::Write, ResultCode::Failed});
    else if (const auto done = applyFile(files.in, files.out, where); !done)
        result = std::unexpected(ScriptFailure{ScriptFailure::Step::Apply, done.error().code});
    removeFile(files.in);
    removeFile(files.out);
    return result;
}

Result<> Switch::applyFile(const std::string &in, const std::string &out, Where where) const {
    logDebug(where, "[%s:%d] inputName=%s, outputName=%s\n", in, out);
    open_buffdesc input = descriptorOf(in);
    open_buffdesc output = descriptorOf(out);
    return applied(rpcclt_openapiTxtCfgApply(client_, &input, &output), where);
}

Result<> Switch::applyFileNdc(const std::string &in, const std::string &out, Where where) const {
    open_buffdesc input = descriptorOf(in);
    open_buffdesc output = descriptorOf(out);
    return applied(rpcclt_openapiTxtCfgNDCApply(client_, &input, &output), where);
}

Result<> Switch::captureShow(std::string_view command, const std::string &file, Where where) const {
    const auto captured = tryCaptureShow(std::string(command.substr(0, kShowCommandSize - 1)),
                                         file.substr(0, kShowFileSize - 1));
    if (captured)
        return {};
    logError(where, "[%s:%d] Execute show cmd faile, result:%d\r\n", captured.error());
    return failed(ResultCode::Failed, "the switch refused a show command");
}

OpenResult<> Switch::tryCaptureShow(const std::string &command, const std::string &file) const {
    removeFile(file);  // no reader may take an earlier output for this one
    open_buffdesc commandText = descriptorOf(command);
    open_buffdesc fileText = descriptorOf(file);
    return openResult(rpcclt_openapiCliShowExecuteToFile(client_, &commandText, &fileText));
}

Result<std::string> Switch::show(std::string_view command, const std::string &file, Where where,
                                 LogFormat<std::string> cannotOpen) const {
    const CaptureLock lock(file);
    if (const auto captured = captureShow(command, file, where); !captured) {
        removeFile(file);  // what a failed capture leaves behind is no answer
        return std::unexpected(captured.error());
    }
    std::optional<std::string> text = readFile(file, SIZE_MAX, where);
    removeFile(file);
    if (text)
        return std::move(*text);
    logError(where, cannotOpen, file);
    return failed(ResultCode::OpenFailed, "the output of a show command cannot be read");
}

// --- interfaces

OpenResult<IfNum> Switch::IfStep::operator()() {
    std::uint32_t next = 0;
    const auto number = static_cast<std::uint32_t>(type);
    const open_error_t code = askFirst ? rpcclt_openapiIfFirstGet(client, number, &next)
                                       : rpcclt_openapiIfNextGet(client, number, last.number(), &next);
    askFirst = false;
    if (code == OPEN_E_NONE && IfNum(next) <= last)
        return std::unexpected(OpenError::Failed);
    last = IfNum(next);
    return openResult(code, last);
}

OpenResult<IfNum> Switch::firstInterface(IfType type) const {
    return readNumber<IfNum>([&](std::uint32_t *ifNum) {
        return rpcclt_openapiIfFirstGet(client_, static_cast<std::uint32_t>(type), ifNum);
    });
}

OpenResult<std::uint32_t> Switch::interfaceType(IfNum ifNum) const {
    return readNumber([&](std::uint32_t *type) { return openapiIfTypeGet(client_, ifNum.number(), type); });
}

OpenResult<AdminState> Switch::adminState(IfNum ifNum) const {
    return readNumber<AdminState>(
        [&](std::uint32_t *state) { return openapiIfAdminStateGet(client_, ifNum.number(), state); });
}

OpenResult<LagNumbering> Switch::lagNumbering() const {
    const auto first = firstInterface(IfType::Lag);
    return first ? OpenResult<LagNumbering>(LagNumbering{*first}) : std::unexpected(first.error());
}

OpenResult<std::uint32_t> Switch::lagMaxMembers() const {
    return readNumber([&](std::uint32_t *max) { return rpcclt_openapiLagMaxMemberCountGet(client_, max); });
}

OpenResult<std::vector<IfNum>> Switch::lagMembers(IfNum lag, std::uint32_t max) const {
    return readMembers(max, [&](std::uint32_t *count, open_buffdesc *members) {
        return rpcclt_openapiLagMembersGet(client_, lag.number(), count, members);
    });
}

OpenResult<> Switch::addLagPort(IfNum lag, IfNum port) const {
    return openResult(rpcclt_openapiLagPortAdd(client_, lag.number(), port.number()));
}

OpenResult<> Switch::deleteLagPort(IfNum lag, IfNum port) const {
    return openResult(rpcclt_openapiLagPortDelete(client_, lag.number(), port.number()));
}

OpenResult<> Switch::setLagStatic(IfNum lag, bool isStatic) const {
    return openResult(
        rpcclt_openapiLagStaticModeSet(client_, lag.number(), isStatic ? OPEN_ENABLE : OPEN_DISABLE));
}

// --- what the switch has learned

OpenResult<FdbEntry> Switch::FdbStep::operator()() {
    auto &[room, vlan] = last_;
    for (;;) {
        open_buffdesc buffer{static_cast<std::uint32_t>(room.size()), room.data()};
        std::uint32_t ifNum = 0;
        std::uint32_t entryType = 0;
        if (const open_error_t code =
                rpcclt_openapiFdbEntryNextGet(client_, &buffer, &vlan, &ifNum, &entryType);
            code != OPEN_E_NONE)
            return std::unexpected(static_cast<OpenError>(code));
        room.back() = '\0';
        const std::string_view text = room.data();
        std::fill(room.data() + text.size(), room.data() + room.size(), '\0');
        if (circle_.comesRound(last_))
            return std::unexpected(OpenError::Failed);
        if (const auto mac = Mac::parse(text))
            return FdbEntry{*mac, VlanId::from(vlan), IfNum(ifNum), entryType == OPEN_FDB_ADDR_LEARNED};
        logDebug(where_, "[%s:%d] '%s' in the forwarding table is no MAC address\n", printable(text));
    }
}

OpenResult<IfNum> Switch::LldpIfStep::operator()() {
    std::uint32_t next = 0;
    const open_error_t code = rpcclt_openapiLldpIntfNextGet(client, last.number(), &next);
    if (code == OPEN_E_NONE && IfNum(next) <= last)
        return std::unexpected(OpenError::Failed);
    last = IfNum(next);
    return openResult(code, last);
}

OpenResult<NeighbourKey> Switch::NeighbourStep::operator()() {
    NeighbourKey next = last;
    const open_error_t code = rpcclt_openapiLldpIntfRemoteDeviceNextGet(client, next.port.number(),
                                                                        &next.remIndex, &next.timeStamp);
    if (code == OPEN_E_NONE && circle.comesRound({next.remIndex, next.timeStamp}))
        return std::unexpected(OpenError::Failed);
    last = next;
    return openResult(code, next);
}

OpenResult<std::uint32_t> Switch::lldpTextSize() const {
    const auto size =
        readNumber([&](std::uint32_t *length) { return rpcclt_openapiLldpMgmtStrLenGet(client_, length); });
    if (size && (*size == 0 || *size > kLldpTextMax))
        return std::unexpected(OpenError::Failed);
    return size;
}

OpenResult<std::string> Switch::neighbourText(const NeighbourKey &key, NeighbourField field,
                                              std::uint32_t size) const {
    return readText(size, [&](open_buffdesc *text) {
        const std::uint32_t port = key.port.number();
        std::uint32_t subtype = 0;
        switch (field) {
            case NeighbourField::ChassisId:
                return rpcclt_openapiLldpIntfRemoteDeviceChassisIdGet(client_, port, key.remIndex,
                                                                      key.timeStamp, &subtype, text);
            case NeighbourField::PortId:
                return rpcclt_openapiLldpIntfRemoteDevicePortIdGet(client_, port, key.remIndex, key.timeStamp,
                                                                   &subtype, text);
            case NeighbourField::SystemDesc:
                return rpcclt_openapiLldpIntfRemoteDeviceSystemDescGet(client_, port, key.remIndex,
                                                                       key.timeStamp, text);
            case NeighbourField::PortDesc:
                return rpcclt_openapiLldpIntfRemoteDevicePortDescGet(client_, port, key.remIndex,
                                                                     key.timeStamp, text);
            case NeighbourField::SystemName:
                return rpcclt_openapiLldpIntfRemoteDeviceSystemNameGet(client_, port, key.remIndex,
                                                                       key.timeStamp, text);
        }
        return open_error_t{OPEN_E_PARAM};
    });
}

OpenResult<std::string> Switch::neighbourCapabilities(const NeighbourKey &key, std::uint32_t size) const {
    return readText(size, [&](open_buffdesc *text) {
        return rpcclt_openapiLldpIntfRemoteDeviceSysCapEnabledGet(client_, key.port.number(), key.remIndex,
                                                                  key.timeStamp, text);
    });
}

// --- VLANs

OpenResult<VlanId> Switch::VlanStep::operator()() {
    std::uint32_t next = 0;
    const open_error_t code = rpcclt_openapiVlanNextGet(client, last, &next);
    if (code != OPEN_E_NONE)
        return std::unexpected(static_cast<OpenError>(code));
    const auto id = VlanId::from(next);
    if (next <= last || !id)
        return std::unexpected(OpenError::Failed);
    last = next;
    return *id;
}

OpenResult<> Switch::checkVlan(VlanId id) const {
    return openResult(openapiVlanCreatedCheck(client_, id.number()));
}

bool Switch::isStaticVlan(VlanId id) const {
    return openapiVlanIsStatic(client_, id.number()) > 0;
}

OpenResult<std::uint32_t> Switch::vlanNameSize() const {
    return readNumber([&](std::uint32_t *length) { return rpcclt_openapiVlanNameLenGet(client_, length); });
}

OpenResult<std::string> Switch::vlanName(VlanId id, std::uint32_t size) const {
    return readText(std::min(size, kVlanNameMax), [&](open_buffdesc *name) {
        return rpcclt_openapiVlanNameGet(client_, id.number(), name);
    });
}

OpenResult<> Switch::createVlan(VlanId id) const {
    return openResult(rpcclt_openapiVlanCreate(client_, id.number()));
}

OpenResult<> Switch::setVlanName(VlanId id, std::string_view name, std::uint32_t size) const {
    std::string buffer(name.substr(0, size));
    buffer.resize(size);
    open_buffdesc text{size, buffer.data()};
    return openResult(rpcclt_openapiVlanNameSet(client_, id.number(), &text));
}

OpenResult<> Switch::deleteVlan(VlanId id) const {
    return openResult(rpcclt_openapiVlanDelete(client_, id.number()));
}

OpenResult<std::uint32_t> Switch::pvidNumber(IfNum ifNum) const {
    return readNumber([&](std::uint32_t *id) { return openapiVlanIfPvidGet(client_, ifNum.number(), id); });
}

OpenResult<VlanId> Switch::pvid(IfNum ifNum) const {
    const auto number = pvidNumber(ifNum);
    if (!number)
        return std::unexpected(number.error());
    const auto id = VlanId::from(*number);
    return id ? OpenResult<VlanId>(*id) : std::unexpected(OpenError::Failed);
}

OpenResult<Tagging> Switch::tagging(IfNum ifNum, VlanId id) const {
    return readNumber<Tagging>([&](std::uint32_t *mode) {
        return openapiVlanIfTaggingGet(client_, ifNum.number(), id.number(), mode);
    });
}

OpenResult<Participation> Switch::participation(IfNum ifNum, VlanId id) const {
    return readNumber<Participation>([&](std::uint32_t *mode) {
        return rpcclt_openapiVlanIfCurrentParticipationGet(client_, id.number(), ifNum.number(), mode);
    });
}

OpenResult<Participation> Switch::configuredParticipation(IfNum ifNum, VlanId id) const {
    return readNumber<Participation>([&](std::uint32_t *mode) {
        return rpcclt_openapiVlanIfParticipationGet(client_, id.number(), ifNum.number(), mode);
    });
}

OpenResult<bool> Switch::takesPart(IfNum ifNum, VlanId id) const {
    return readNumber<bool>([&](std::uint32_t *status) {
        return openapiVlanIfParticipationStatusGet(client_, id.number(), ifNum.number(), status);
    });
}

OpenResult<> Switch::taggedVlans(IfNum ifNum, open_buffdesc *list) const {
    return openResult(rpcclt_openapiDot1qSwPortTaggedVlanListGet(client_, ifNum.number(), list));
}

OpenResult<std::vector<VlanId>> Switch::taggedVlans(IfNum ifNum) const {
    std::array<std::uint16_t, kVlanListMax> numbers{};
    open_buffdesc list{sizeof numbers, reinterpret_cast<char *>(numbers.data())};
    if (const auto read = taggedVlans(ifNum, &list); !read)
        return std::unexpected(read.error());
    std::vector<VlanId> ids;
    for (std::size_t i = 0; i < std::min(list.size / sizeof numbers[0], numbers.size()); ++i)
        if (const auto id = VlanId::from(numbers[i]))
            ids.push_back(*id);
    return ids;
}

OpenResult<> Switch::setPvid(IfNum ifNum, VlanId id) const {
    return openResult(rpcclt_openapiVlanIfPvidSet(client_, ifNum.number(), id.number()));
}

OpenResult<> Switch::setTagging(IfNum ifNum, VlanId id, Tagging tagging) const {
    return openResult(rpcclt_openapiVlanIfTaggingSet(client_, ifNum.number(), id.number(),
                                                     static_cast<std::uint32_t>(tagging)));
}

OpenResult<> Switch::setParticipation(IfNum ifNum, VlanId id, Participation participation) const {
    return openResult(rpcclt_openapiVlanIfParticipationSet(client_, id.number(), ifNum.number(),
                                                           static_cast<std::uint32_t>(participation)));
}

OpenResult<> Switch::setAcceptFrames(IfNum ifNum, AcceptFrames frames) const {
    return openResult(
        rpcclt_openapiVlanIfAcceptFrameTypeSet(client_, ifNum.number(), static_cast<std::uint32_t>(frames)));
}

// --- PTP, spanning tree

OpenResult<> Switch::setPtpTc(bool on) const {
    return openResult(rpcclt_openapiPtpTcAdminModeSet(client_, on ? OPEN_ENABLE : OPEN_DISABLE));
}

OpenResult<bool> Switch::ptpTc() const {
    return readNumber<bool>(
        [&](std::uint32_t *mode) { return rpcclt_openapiPtpTcAdminModeGet(client_, mode); });
}

OpenResult<> Switch::setPortPtpTc(IfNum port, bool on) const {
    return openResult(
        rpcclt_openapiPtpTcIntfAdminModeSet(client_, port.number(), on ? OPEN_ENABLE : OPEN_DISABLE));
}

OpenResult<bool> Switch::dot1as() const {
    return readNumber<bool>([&](std::uint32_t *mode) { return rpcclt_openapiDot1asModeGet(client_, mode); });
}

OpenResult<std::uint32_t> Switch::mstPriority(std::uint32_t instance) const {
    return readNumber([&](std::uint32_t *priority) {
        return rpcclt_openapiStpMstBridgePriorityGet(client_, instance, priority);
    });
}

}  // namespace pavo
