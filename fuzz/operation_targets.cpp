// Targets for what operations of the program do with requests and with strings from the network, on a virtual
// switch.
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "common/device_list.h"
#include "common/json.h"
#include "detection/audac.h"
#include "detection/lightware.h"
#include "detection/scan_ops.h"
#include "fuzz/support.h"
#include "fuzz/targets.h"
#include "platform/paths.h"
#include "profile/apply_ops.h"
#include "profile/list_ops.h"
#include "profile/request.h"
#include "profile/templates_ops.h"
#include "store/profile_db.h"
#include "store/profile_db_ops.h"
#include "vlan/vlan_changes.h"
#include "vlan/vlan_ops.h"

namespace fuzz {
namespace {

using namespace pavo;
namespace paths = platform::paths;

// The profile database with its first row, made once: creating it flushes the disks.
void restoreDatabase() {
    static const std::string database = [] {
        ensureProfileDb();
        return readFile(paths::kProfileDb);
    }();
    writeFile(paths::kProfileDb, database);
}

// Everything that profile operations leave behind.
void forgetProfiles() {
    for (const auto *const path : {paths::kProfileRecord, paths::kVlanProfileConfigDir, paths::kPavoExDir,
                                   paths::kAudacConfig, paths::kShureConfig, paths::kManualTrunkConfig})
        removeFiles(path);
    restoreDatabase();
}

void checkLists(Switch sw) {
    for (const auto get : {profileListGet, profileListExGet, profileStatusGet}) {
        char *text = nullptr;
        const auto code = get(sw, &text);
        const TextPtr owner(text);
        require(code == 0 && text != nullptr && isStrictJson(text), "lists parse in a strict parser",
                text != nullptr ? text : "");
    }
}

}  // namespace

// A request; in front of a line "---", a script that somebody has run before.
void operateProfiles(std::string_view input) {
    constexpr std::string_view kRuler = "\n---\n";
    const auto ruler = input.find(kRuler);
    const auto script = ruler == std::string_view::npos ? std::string_view() : input.substr(0, ruler + 1);
    const std::string request(script.empty() ? input : input.substr(ruler + kRuler.size()));
    const auto config = parseProfileConfig(request);
    if (!config)
        return;
    forgetProfiles();
    SwitchRig rig;
    rig.device.with([&](vswitch::Server &server) { server.cli().runScript(script); });
    const auto unknown = rig.unknownCommands();
    const auto before = rig.runningConfig();
    char *plan = nullptr;
    const auto planned = profilePlanGet(&rig.client, request.c_str(), &plan);
    const TextPtr owner(plan);
    require(planned != 0 || isStrictJson(plan), "a plan parses in a strict parser",
            plan != nullptr ? plan : "");
    require(rig.runningConfig() == before, "a plan changes nothing");
    const auto code = profileConfigSet(&rig.client, request.c_str());
    require(config->plan || (code == 0) == (planned == 0), "what can be planned can be applied",
            std::to_string(planned) + ", " + std::to_string(code));
    require((code == 0 && !config->plan) || rig.runningConfig() == before,
            "a refused request changes nothing", before + "---\n" + rig.runningConfig());
    checkLists(&rig.client);
    if (code != 0 || config->plan)
        return;
    const auto applied = rig.runningConfig();
    require(profileConfigSet(&rig.client, request.c_str()) == 0 && rig.runningConfig() == applied,
            "applying twice changes nothing", applied + "---\n" + rig.runningConfig());
    if (config->request.name == "Default")
        return;
    const JsonPtr deletion(cJSON_CreateObject());
    cJSON_AddStringToObject(deletion.get(), "name", config->request.name.c_str());
    const auto deleted = profileDelete(&rig.client, printJsonLine(deletion.get()).c_str());
    require(deleted == 0, "what was applied can be deleted", std::to_string(deleted));
    require(rig.runningConfig() == before, "what was there before comes back",
            before + "---\n" + rig.runningConfig());
    require(rig.unknownCommands() == unknown, "the switch knows every command");
}

void operateTemplates(std::string_view input) {
    const std::string request(input);
    const auto list = [](Switch sw) {
        std::string text(PROFILE_TEMPLATE_LIST_SIZE, '\0');
        ProfileTemplateGet(sw, nullptr, text.data());
        text.resize(text.find('\0'));
        require(isStrictJson(text), "the list parses in a strict parser", text);
        return text;
    };
    restoreDatabase();
    SwitchRig rig;
    const auto before = list(&rig.client);
    const auto code = ProfileTemplateCreate(&rig.client, request.c_str());
    require(code == 0 || list(&rig.client) == before, "a refused request changes nothing");
    if (code != 0) {
        if (ProfileTemplateDelete(&rig.client, request.c_str()) == 0)
            restoreTemplates();
        return;
    }
    list(&rig.client);
    require(ProfileTemplateEdit(&rig.client, request.c_str()) == 0, "what was created can be edited");
    const JsonPtr root(cJSON_Parse(request.c_str()));
    const auto name = stringMember(member(root.get(), "profile"), "name").value_or("");
    const JsonPtr deletion(cJSON_CreateObject());
    cJSON_AddStringToObject(deletion.get(), "name", name.c_str());
    require(ProfileTemplateDelete(&rig.client, printJsonLine(deletion.get()).c_str()) == 0,
            "what was created can be deleted");
    require(list(&rig.client) == before, "nothing of it is left");
}

// One request for every operation that changes VLANs, on a switch that has VLAN 10.
void operateVlans(std::string_view input) {
    const std::string request(input);
    restoreDatabase();
    SwitchRig rig;
    rig.device.with([](vswitch::Server &server) { server.cli().runScript("vlan database\nvlan 10\n"); });
    for (const auto change :
         {v2VlanListCreate, v2VlanNameSet, v2VlanParticipationAllSet, v2VlanAcceptFrameAllSet,
          v2VlanPvidAllSet, v2VlanTaggingAllSet, switchportModeAutoSet, v2VlanListDelete}) {
        const auto before = rig.runningConfig();
        require(change(&rig.client, request.c_str()) != codeOf(ResultCode::InvalidArgument) ||
                    rig.runningConfig() == before,
                "a refused request changes nothing", before + "---\n" + rig.runningConfig());
    }
    vlanCreateAndSet(&rig.client, 11, request.c_str());
    vlanInfoReplace(11, 3, request.c_str(), request.c_str(), "#102030");
    char *list = nullptr;
    char *details = nullptr;
    const auto listed = v2VlanListGet(&rig.client, &list);
    const TextPtr ownedList(list);
    const auto detailed = v2VlanDetailGet(&rig.client, 11, &details);
    const TextPtr ownedDetails(details);
    require(listed == 0 && isStrictJson(list), "answers parse in a strict parser");
    require(detailed == 0 ? isStrictJson(details) : details == nullptr, "answers parse in a strict parser");
    char *page = nullptr;
    const auto paged = switchConfigVlanGet(&rig.client, 11, &page);
    const TextPtr ownedPage(page);
    require(paged == 0 ? isStrictJson(page) : page == nullptr, "answers parse in a strict parser");
    const auto named = renameVlan(&rig.client, 11, "", OfProfiles::Change);
    require(!named || isStrictJson(printVlanChange(*named).c_str()),
            "what was changed parses in a strict parser");

    // Whatever names VLANs have got: the configuration is still one.
    const auto commands = rig.device.with(
        [](vswitch::Server &server) { return commandsOf(std::as_const(server).model().settled()); });
    vswitch::Server other(SwitchRig::config());
    other.cli().runScript(commands);
    require(commandsOf(std::as_const(other).model()) == commands, "a configuration comes back as it was",
            commands + "---\n" + commandsOf(std::as_const(other).model()));
}

// Neighbours on the ports of the switch, each with its six strings and an address learned behind it.
void detectNeighbours(std::string_view input) {
    static constexpr std::string vswitch::LldpFields::*kFields[] = {
        &vswitch::LldpFields::systemDesc, &vswitch::LldpFields::chassisId,
        &vswitch::LldpFields::portId,     &vswitch::LldpFields::portDesc,
        &vswitch::LldpFields::systemName, &vswitch::LldpFields::mgmtAddress};
    constexpr char kSeparator = '\x1e';
    static constexpr std::uint32_t kProfileVlan = 300, kAudioVlan = 20;

    static const std::string database = [] {
        restoreDatabase();
        for (const auto &[id, type] : {std::pair(kProfileVlan, "AVoIP Lightware AV network"),
                                       {kAudioVlan, "AUDAC Audio and Control Network"}})
            require(replaceProfileRow({.id = static_cast<std::int32_t>(id),
                                       .vlanType = 1,
                                       .profileName = type,
                                       .profileType = type,
                                       .color = "#112233"})
                        .has_value(),
                    "a row can be written");
        return readFile(paths::kProfileDb);
    }();
    writeFile(paths::kProfileDb, database);
    writeFile(paths::kAudacConfig,
              R"({"audioVlanID": 20, "controlVlanID": 10, "audacDevicePort": [1, 2, 3, 4]})");
    writeFile(paths::kShureConfig, R"({"shureDevicePort": [1, 2, 3, 4]})");

    removeFiles(paths::kLogFile);
    SwitchRig rig;
    const auto parts = partsOf(input, kSeparator, SwitchRig::kPorts * std::size(kFields));
    rig.device.with([&](vswitch::Server &server) {
        auto &model = server.model();
        for (const auto id : {kProfileVlan, kAudioVlan, 10u, LIGHTWARE_TAGGED_VLAN.number()})
            model.createVlan(id);
        for (vswitch::IfNum port = 1; port <= SwitchRig::kPorts; ++port) {
            model.setPvid(port, kProfileVlan);
            vswitch::Device device;
            device.name = "device " + std::to_string(port);
            device.port = port;
            device.macs = {vswitch::Mac{{0, 0x1b, 0x92, 0, 0, 0}}.plus(port),
                           vswitch::Mac{{0, 0x1b, 0x92, 1, 0, 0}}.plus(port)};
            device.lldp.emplace();
            for (std::size_t i = 0; i < std::size(kFields); ++i)
                if (const auto at = (port - 1) * std::size(kFields) + i; at < parts.size())
                    (*device.lldp).*kFields[i] = parts[at];
            model.plug(device);
        }
    });
    const Switch sw(&rig.client);
    const auto before = rig.runningConfig();

    const JsonPtr answer(cJSON_CreateArray());
    for (const auto get : {audacListGet, lightwareListGet, shureListGet})
        get(sw, answer.get());
    for (std::uint32_t port = 1; port <= SwitchRig::kPorts; ++port)
        for (const auto get :
             {lldpIntfRemoteAudacInfoGet, lldpIntfRemoteLightwareInfoGet, lldpIntfRemoteShureInfoGet})
            require(get(sw, {IfNum(port), answer.get()}) == 0, "neighbours can be read");
    require(isStrictJson(printJsonLine(answer.get())), "answers parse in a strict parser",
            printJsonLine(answer.get()));

    DeviceList<DetectedDevice> devices;
    DeviceList<LightwareLink> links;
    for (int scan = 0; scan < 2; ++scan) {
        audacLookup(sw, &devices);
        lightwareLookup(sw, &links);
    }
    for (const LightwareLink &link : links)
        require(link.isWhole && link.chassisId.size() <= 18, "an uplink is online, its name cut to its room");
    const auto online = rig.runningConfig();
    audacLookup(sw, &devices);
    lightwareLookup(sw, &links);
    require(rig.runningConfig() == online, "a scan that sees nothing new changes nothing",
            online + "---\n" + rig.runningConfig());

    audacClear(sw, &devices);
    rig.device.with([](vswitch::Server &server) {
        for (vswitch::IfNum port = 1; port <= SwitchRig::kPorts; ++port)
            server.model().unplug("device " + std::to_string(port));
    });
    for (int scan = 0; scan < 25 && !links.empty(); ++scan)
        lightwareLookup(sw, &links);
    require(links.empty() && rig.runningConfig() == before, "what leaves, leaves nothing behind",
            before + "---\n" + rig.runningConfig());
    require(rig.unknownCommands() == 0, "the switch knows every command");
    // Each line is one that the log made.
    const auto log = readFile(paths::kLogFile);
    for (std::size_t at = 0; at < log.size(); at = log.find('\n', at) + 1)
        require(log.compare(at, 11, "2026-01-01 ") == 0,
                "no string from the network starts a line of the log", std::string_view(log).substr(at, 200));
}

}  // namespace fuzz
