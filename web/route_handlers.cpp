#include "web/route_handlers.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <utility>
#include <vector>

#include "common/files.h"
#include "common/ipv4.h"
#include "common/json.h"
#include "common/log.h"
#include "common/mac.h"
#include "common/text.h"
#include "platform/paths.h"
#include "profile/apply.h"
#include "profile/configure.h"
#include "profile/feature_mask_ops.h"
#include "profile/list.h"
#include "profile/templates.h"
#include "store/detection_answers.h"
#include "store/response_cache.h"
#include "store/vendors.h"
#include "store/writeback.h"
#include "swapi/switch_settings_ops.h"
#include "vlan/multicast.h"
#include "vlan/multicast_ops.h"
#include "vlan/vlan_details.h"
#include "vlan/vlan_ops.h"
#include "vlan/vlan_requests.h"
#include "web/answer_node.h"
#include "web/neighbours_ops.h"
#include "web/routes.h"

namespace pavo::handlers {
namespace {

constexpr std::uint32_t kAny = 0xffffffff;

// The text of an operation: run(&text) is its result.
template <class Run>
std::string textOf(Run run) {
    char *text = nullptr;
    const std::int32_t result = run(&text);
    const TextPtr owner(text);
    if (result != 0 || text == nullptr)
        throw Failure{result != 0 ? static_cast<ResultCode>(result) : ResultCode::Failed, ""};
    return text;
}

// The result of an operation without an answer.
std::string done(std::int32_t result) {
    if (result != 0)
        throw Failure{static_cast<ResultCode>(result), ""};
    return "";
}

std::string done(Result<> result) {
    orThrow(std::move(result));
    return "";
}

// For what only this file finds wrong.
[[noreturn]] void refuse(const WebCall &call, ResultCode code, const std::string &reason) {
    logError("[%s:%d] %s: %s\n", call.route().path, reason);
    throw Failure{code, reason};
}

// {"name": "Stage"} of a parameter.
std::string nameRequest(const WebCall &call) {
    return AnswerNode::object().add("name", call.text("name")).print();
}

JsonPtr bodyOf(const WebCall &call) {
    JsonPtr body(cJSON_Parse(call.body().c_str()));
    if (!cJSON_IsObject(body.get()))
        refuse(call, ResultCode::InvalidArgument, "the body is no JSON object");
    return body;
}

std::string stringOf(const WebCall &call, const cJSON *body, const char *key) {
    auto text = stringMember(body, key);
    if (!text)
        refuse(call, ResultCode::InvalidArgument, quoteText(key) + " is missing, or no string");
    return *std::move(text);
}

// Of a log file.
constexpr long kLogTailMax = 1 << 20;

// The end of a file, at most kLogTailMax bytes, from the beginning of a line on; nothing when it cannot be
// read.
std::optional<std::string> endOfFile(const char *path) {
    const FilePtr file = openFile(path, "r");
    const long size =
        file != nullptr && std::fseek(file.get(), 0, SEEK_END) == 0 ? std::ftell(file.get()) : -1;
    const long from = std::max(0L, size - kLogTailMax);
    if (size < 0 || std::fseek(file.get(), from, SEEK_SET) != 0)
        return std::nullopt;
    std::string text(static_cast<std::size_t>(size - from), '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    if (from > 0)
        text.erase(0, text.find('\n') + 1);
    return text;
}

std::string tokenOfRequest() {
    const char *const token = std::getenv("HTTP_SESSION");
    return token != nullptr ? token : "";
}

AnswerNode sessionNode(const Session &session) {
    AnswerNode node = AnswerNode::object();
    node.add("user", session.user).add("level", wordOf(session.level));
    return node;
}

}  // namespace

std::string cachedAnswer(const WebCall &call) {
    const auto rows = writeBackRows();
    const auto row = std::ranges::find(rows, std::string_view(call.route().cached), &WriteBackRow::api);
    if (row == rows.end())
        refuse(call, ResultCode::ApiNotFound, call.route().cached);
    return orThrow(produceAnswer(call.device().handle(), *row));
}

// --- sessions

std::string openSession(const WebCall &call) {
    const JsonPtr body = bodyOf(call);
    const char *const address = std::getenv("REMOTE_ADDR");
    const auto login =
        orThrow(logIn({stringOf(call, body.get(), "user"), stringOf(call, body.get(), "password"),
                       address != nullptr ? address : ""},
                      findSwitchUser));
    return sessionNode(login.session).add("token", login.token).add("idleSeconds", kSessionSeconds).print();
}

std::string showSession(const WebCall &call) {
    // It has been checked, and used, to come here.
    const auto session = checkSession(tokenOfRequest(), {Access::User, HttpMethod::Get, SessionUse::Poll});
    if (!session)
        refuse(call, ResultCode::NotExist, "the session has ended");
    return sessionNode(*session).print();
}

// For anyone: a user who may only read may send no DELETE. Who has the token may end its session.
std::string closeSession(const WebCall &call) {
    if (!endSession(tokenOfRequest()))
        refuse(call, ResultCode::NotExist, "there is no such session");
    return "";
}

std::string openApi(const WebCall &) {
    return openApiDocument();
}

// --- profiles

std::string profileTypes(const WebCall &) {
    AnswerNode types = AnswerNode::array();
    for (const auto &type : pavo::profileTypes()) {
        const auto profileTemplate = loadProfileTemplate(type.name);
        const auto demand = profileDemand(type.name, 0, profileTemplate ? &*profileTemplate : nullptr);
        AnswerNode node = AnswerNode::object();
        node.add("name", type.name)
            .add("mtu", demand.mtu)
            .add("features", profileTemplate ? featureMaskOf(demand).features : 0);
        types.append(std::move(node));
    }
    return types.print();
}

std::string createTemplate(const WebCall &call) {
    return done(storeTemplate(TemplateStore::Create, call.body()));
}

std::string editTemplate(const WebCall &call) {
    return done(storeTemplate(TemplateStore::Edit, call.body()));
}

std::string deleteTemplate(const WebCall &call) {
    return done(pavo::deleteTemplate(call.device(), nameRequest(call)));
}

std::string showProfile(const WebCall &call) {
    const auto &name = call.text("name");
    const auto profiles = orThrow(readProfiles(call.device(), ListDetails::Full));
    const auto profile = std::ranges::find(profiles, cutProfileName(name), &ListedProfile::name);
    if (profile == profiles.end())
        refuse(call, ResultCode::NotExist, "there is no profile " + quoteText(name));
    return printProfile(*profile);
}

std::string profileStatus(const WebCall &call) {
    auto profiles = orThrow(readProfileStatus(call.device()));
    if (const auto name = call.optionalText("name")) {
        std::erase_if(profiles,
                      [&](const ProfileStatus &status) { return status.name != cutProfileName(*name); });
        if (profiles.empty())
            refuse(call, ResultCode::NotExist, "no profile " + quoteText(*name) + " has been applied");
    }
    return printStatus(profiles);
}

std::string planProfile(const WebCall &call) {
    const JsonPtr request(cJSON_Parse(call.body().c_str()));
    cJSON *const body = cJSON_GetObjectItemCaseSensitive(request.get(), "profileConfig");
    // A key can be there twice, and the first one counts. What is no request is refused by the operation.
    while (member(body, "plan") != nullptr)
        cJSON_DeleteItemFromObjectCaseSensitive(body, "plan");
    if (cJSON_IsObject(body) && cJSON_AddTrueToObject(body, "plan") == nullptr)
        throw Failure{ResultCode::InvalidPointer, ""};
    const auto plan = orThrow(
        configureProfile(call.device(), cJSON_IsObject(body) ? printJson(request.get()) : call.body()));
    return plan ? printPlan(*plan) : "";
}

std::string applyProfile(const WebCall &call) {
    const auto plan = orThrow(configureProfile(call.device(), call.body()));
    return plan ? printPlan(*plan) : "";
}

std::string deleteProfile(const WebCall &call) {
    return done(pavo::deleteProfile(call.device(), nameRequest(call)));
}

// --- VLANs

namespace {

std::string changed(Result<VlanChange> result) {
    return printVlanChange(orThrow(std::move(result)));
}

// The operations pass over what is no number.
void checkVlanList(const WebCall &call, std::string_view list) {
    if (list.empty() || list.find_first_not_of("0123456789,- ") != std::string_view::npos)
        refuse(call, ResultCode::InvalidArgument, quoteText(list) + " is no list of VLANs");
}

}  // namespace

std::string listVlans(const WebCall &call) {
    return printVlanSummaries(orThrow(readVlanSummaries(call.device())));
}

std::string createVlans(const WebCall &call) {
    checkVlanList(call, stringOf(call, bodyOf(call).get(), "vlan-list"));
    return changed(requestVlans(call.device(), call.body().c_str()));
}

std::string deleteVlans(const WebCall &call) {
    const std::string &list = call.text("list");
    checkVlanList(call, list);
    return changed(requestNoVlans(call.device(), list.c_str()));
}

std::string showVlan(const WebCall &call) {
    return printVlanDetails(orThrow(readVlanDetails(call.device(), call.number("id", 0, kAny))));
}

std::string showVlanName(const WebCall &call) {
    return printVlanName(orThrow(readVlanName(call.device(), call.number("id", 0, kAny))));
}

std::string nameVlan(const WebCall &call) {
    return changed(requestVlanName(call.device(), call.body().c_str()));
}

std::string showProfileVlan(const WebCall &call) {
    const auto id = call.number("id", 0, kAny);
    return textOf([&](char **text) { return switchConfigVlanGet(call.device(), id, text); });
}

std::string createNamedVlan(const WebCall &call) {
    const JsonPtr body = bodyOf(call);
    const auto id = integerMember(body.get(), "vlan-id");
    if (!id || !VlanId::from(*id))
        refuse(call, ResultCode::InvalidArgument, "\"vlan-id\" is not a VLAN id (1 to 4094)");
    return changed(pavo::createNamedVlan(call.device(), *id, stringOf(call, body.get(), "name")));
}

std::string setParticipation(const WebCall &call) {
    return changed(requestParticipation(call.device(), call.body().c_str()));
}

std::string setAcceptFrames(const WebCall &call) {
    return changed(requestAcceptFrames(call.device(), call.body().c_str()));
}

std::string setPvid(const WebCall &call) {
    return changed(requestPvid(call.device(), call.body().c_str()));
}

std::string setTagging(const WebCall &call) {
    return changed(requestTagging(call.device(), call.body().c_str()));
}

std::string showSwitchportMode(const WebCall &call) {
    return textOf([&](char **text) { return switchportModeAutoGet(call.device(), text); });
}

std::string setSwitchportMode(const WebCall &call) {
    return done(switchportModeAutoSet(call.device(), call.body().c_str()));
}

// --- ports and system

std::string setPortSpeed(const WebCall &call) {
    const JsonPtr body = bodyOf(call);
    const cJSON *const list = member(body.get(), "ports");
    std::set<std::uint32_t> ports;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, list) {
        const auto port = integerOf(item);
        if (!port || *port < 1)
            refuse(call, ResultCode::InvalidArgument, "\"ports\" holds what is no interface number");
        ports.insert(static_cast<std::uint32_t>(*port));
    }
    if (!cJSON_IsArray(list) || ports.empty())
        refuse(call, ResultCode::InvalidArgument, "\"ports\" is missing, or no list of interface numbers");
    // The operation takes every other text for "Auto".
    const std::string speed = stringOf(call, body.get(), "speed");
    if (speed != "Auto" && !speed.contains("Full") && !speed.contains("Half"))
        refuse(call, ResultCode::InvalidArgument, quoteText(speed) + " is no speed");
    const Switch sw = call.device();
    for (const std::uint32_t port : ports)
        if (const auto type = sw.interfaceType(IfNum(port));
            type ? *type != static_cast<std::uint32_t>(IfType::Port) : type.error() == OpenError::NotFound)
            refuse(call, ResultCode::NotExist, "there is no port " + std::to_string(port));
    const std::vector<std::uint32_t> numbers(ports.begin(), ports.end());
    return done(multipleIfSpeedSetSafe(sw, numbers, speed.c_str()));
}

std::string setManagementAddress(const WebCall &call) {
    const JsonPtr body = bodyOf(call);
    const auto vlan = integerMember(body.get(), "vlanId");
    const std::string mode = stringOf(call, body.get(), "mode");
    if (!vlan || !VlanId::from(*vlan))
        refuse(call, ResultCode::InvalidArgument, "\"vlanId\" is not a VLAN id (1 to 4094)");
    if (mode != "dhcp" && mode != "static")
        refuse(call, ResultCode::InvalidArgument, "\"mode\" is neither \"dhcp\" nor \"static\"");
    const bool isStatic = mode == "static";
    const auto addressOf = [&](const char *key) {
        auto text = isStatic ? stringOf(call, body.get(), key) : "";
        if (isStatic && !Ipv4::parse(text))
            refuse(call, ResultCode::InvalidArgument, quoteText(key) + " is no IPv4 address");
        return text;
    };
    const std::string address = addressOf("address"), mask = addressOf("mask");
    const bool hasGateway = !stringMember(body.get(), "gateway").value_or("").empty();
    const std::string gateway = hasGateway ? addressOf("gateway") : "";
    return done(managementPortIPv4ParametersSetSafe(call.device(), *vlan,
                                                    isStatic ? MGMT_MODE_STATIC : MGMT_MODE_STATIC + 1,
                                                    address.c_str(), mask.c_str(), gateway.c_str()));
}

// --- neighbours, devices, multicast

std::string neighbours(const WebCall &call) {
    return textOf([&](char **text) { return neighborPageGet(call.device().handle(), text); });
}

std::string devices(const WebCall &call) {
    return orThrow(devicesAnswer(call.device().handle()));
}

std::string vendor(const WebCall &call) {
    std::string text = call.text("mac");
    std::ranges::replace(text, '-', ':');
    std::ranges::transform(text, text.begin(), [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    });
    if (!Mac::parse(text.size() == OUI_PREFIX_LENGTH ? text + ":00:00:00" : text))
        refuse(call, ResultCode::InvalidArgument,
               quoteText(text) + " is not a MAC address or its first three octets");
    const std::string prefix = text.substr(0, OUI_PREFIX_LENGTH);
    const auto match = findVendor(prefix);
    if (!match)
        throw Failure{ResultCode::Failed, "the vendor database cannot be read"};
    if (match->rows == 0)
        refuse(call, ResultCode::NotExist, "no vendor has registered " + prefix);
    return AnswerNode::object().add("prefix", prefix).add("vendor", match->vendor).print();
}

std::string multicastGroups(const WebCall &call) {
    constexpr std::uint32_t kRowsMax = 10'000;
    const auto unit = static_cast<std::int32_t>(call.number("unit", 0, 64, 0));
    const auto page = static_cast<std::int32_t>(call.number("page", 1, 100'000, 1));
    const auto size = static_cast<std::int32_t>(call.number("size", 1, kRowsMax, 500));
    return textOf(
        [&](char **text) { return getMulticastGroups(call.device().handle(), unit, page, size, text); });
}

std::string setMulticastModes(const WebCall &call) {
    return done(setMulticastMode(call.device().handle(), call.body().c_str()));
}

std::string cacheMulticastGroups(const WebCall &call) {
    if (!createResponseCache())
        throw Failure{ResultCode::Failed, "the cache cannot be made"};
    return done(multicastGroupsChunksBuild(call.device().handle()));
}

std::string setDenyList(const WebCall &call) {
    const JsonPtr body = bodyOf(call);
    std::vector<std::string> addresses;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, member(body.get(), "blockAddressList")) {
        if (!cJSON_IsString(item))
            refuse(call, ResultCode::InvalidArgument, "\"blockAddressList\" holds what is no string");
        addresses.emplace_back(item->valuestring);
    }
    return done(changeDenyList(call.device(), addresses));
}

std::string removeMulticastRouter(const WebCall &call) {
    return done(removeIgmpMrouterInf(call.device().handle(), call.number("ifNum", 1, kAny)));
}

std::string nice(const WebCall &) {
    return orThrow(niceAnswer());
}

std::string setNice(const WebCall &call) {
    const JsonPtr body = bodyOf(call);
    const auto enabled = boolMember(body.get(), "enabled");
    if (!enabled)
        refuse(call, ResultCode::InvalidArgument, "\"enabled\" is neither true nor false");
    return done(setNiceEnabled(*enabled));
}

// --- events, log and cache

std::string events(const WebCall &call) {
    refuse(call, ResultCode::NotImplemented, "events come from the resident program, which does not run");
}

std::string logTail(const WebCall &call) {
    const std::size_t wanted = call.number("lines", 1, 1000, 100);
    auto text = endOfFile(platform::paths::kLogFile);
    // The file has been begun anew not long ago.
    if (static_cast<std::size_t>(std::ranges::count(text.value_or(""), '\n')) < wanted)
        if (const auto older = endOfFile(platform::paths::kLogFileOld))
            text = *older + (older->ends_with('\n') ? "" : "\n") + text.value_or("");
    if (!text)
        refuse(call, ResultCode::OpenFailed, platform::paths::kLogFile);
    std::vector<std::string> lines;
    forEachLine(*text, kLogTailMax, [&](std::string_view line) {
        lines.push_back(printable(line.substr(0, line.find_last_not_of('\r') + 1)));
        return true;
    });
    AnswerNode answer = AnswerNode::array();
    for (std::size_t i = lines.size() - std::min(wanted, lines.size()); i < lines.size(); ++i)
        answer.appendText(lines[i]);
    return answer.print();
}

std::string logLevel(const WebCall &) {
    return AnswerNode::object().add("level", devmgrLogLevelGet()).print();
}

std::string setLogLevel(const WebCall &call) {
    const JsonPtr body = bodyOf(call);
    const auto level = integerMember(body.get(), "level");
    if (!devmgrLogLevelSet(level.value_or(-1)))
        refuse(call, ResultCode::OpenFailed, platform::paths::kLogLevelFile);
    return "";
}

std::string listCache(const WebCall &call) {
    const auto cached = listCachedAnswers();
    if (!cached)
        refuse(call, ResultCode::Failed, "the cache cannot be read");
    AnswerNode answers = AnswerNode::array();
    const auto add = [&](const std::string &name, const WriteBackRow *row, const CachedAnswer *entry) {
        AnswerNode node = AnswerNode::object();
        node.add("name", name);
        if (row != nullptr)
            node.add("producer", row->producer).add("isLinked", row->isLinked());
        if (entry != nullptr)
            node.add("size", entry->size);
        answers.append(std::move(node));
    };
    const auto rows = writeBackRows();
    for (const auto &row : rows) {
        const auto entry = std::ranges::find(*cached, row.api, &CachedAnswer::name);
        add(row.api, &row, entry != cached->end() ? &*entry : nullptr);
    }
    for (const auto &entry : *cached)
        if (std::ranges::find(rows, entry.name, &WriteBackRow::api) == rows.end())
            add(entry.name, nullptr, &entry);
    return answers.print();
}

std::string readCache(const WebCall &call) {
    const auto &name = call.text("name");
    if (!fileExists(platform::paths::kResponseCache))
        refuse(call, ResultCode::ApiNotFound, quoteText(name));
    auto read = readCachedAnswer(name);
    if (!read)
        throw Failure{ResultCode::Failed, "the cache cannot be read"};
    std::optional<std::string> answer = *std::move(read);
    if (!answer)
        refuse(call, ResultCode::ApiNotFound, quoteText(name));
    return *std::move(answer);
}

std::string refreshCache(const WebCall &call) {
    const JsonPtr body = bodyOf(call);
    const cJSON *const names = member(body.get(), "names");
    std::vector<const WriteBackRow *> wanted;
    const auto rows = writeBackRows();
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, names) {
        const char *const name = cJSON_GetStringValue(item);
        const auto row = name != nullptr ? std::ranges::find(rows, std::string_view(name), &WriteBackRow::api)
                                         : rows.end();
        if (row == rows.end())
            refuse(call, ResultCode::ApiNotFound, name != nullptr ? quoteText(name) : "a name is no string");
        wanted.push_back(&*row);
    }
    if (names != nullptr && !cJSON_IsArray(names))
        refuse(call, ResultCode::InvalidArgument, "\"names\" is no list");
    if (names == nullptr)
        for (const auto &row : rows)
            wanted.push_back(&row);
    if (!createResponseCache())
        throw Failure{ResultCode::Failed, "the cache cannot be made"};
    std::string failures;
    for (const WriteBackRow *const row : wanted)
        if (const auto [result, stored] = writeBackAnswer(call.device().handle(), *row);
            result != 0 || !stored)
            failures += (failures.empty() ? "" : ", ") + std::string(row->api);
    if (!failures.empty())
        throw Failure{ResultCode::Failed, "not refreshed: " + failures};
    return "";
}

std::string deleteFromCache(const WebCall &call) {
    static_cast<void>(readCache(call));
    if (!deleteCachedAnswer(call.text("name")))
        throw Failure{ResultCode::Failed, "the answer cannot be deleted"};
    signalWebServer();
    return "";
}

}  // namespace pavo::handlers
