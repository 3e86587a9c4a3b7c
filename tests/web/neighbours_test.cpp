// The neighbour list: against a reading of the tables in order, on a virtual switch, and with hostile
// strings.
#include "web/neighbours.h"

#include <strings.h>

#include <new>
#include <random>

#include "common/text.h"
#include "store/producers.h"
#include "store/response_cache.h"
#include "tests/support/sqlite.h"
#include "tests/web/web_fixture.h"
#include "web/neighbours_ops.h"

namespace {

using namespace test_support;

// In the order of the database, two of them for one prefix.
const std::vector<std::pair<std::string, std::string>> kVendors = {{"00:11:22", "Acme"},
                                                                   {"00:1B:92", "Audio Works"},
                                                                   {"AA:BB:CC", "First"},
                                                                   {"AA:BB:CC", "Second \"Best\""},
                                                                   {"AA:BB:CD", std::string(40, 'v')}};

class NeighbourTest : public WebTest {
  protected:
    void SetUp() override {
        WebTest::SetUp();
        // The first look-up of the process reads them.
        std::string vendors = "CREATE TABLE oui (mac, vendor);";
        for (const auto &[prefix, vendor] : kVendors)
            vendors += "INSERT INTO oui VALUES ('" + prefix + "', '" + vendor + "');";
        runSql(platform::paths::kVendorDb, vendors);
        ASSERT_TRUE(createResponseCache());
    }

    std::vector<std::string> rows() {
        std::vector<std::string> all;
        const json page = answer(neighborPageGet);
        for (const auto &row : page["rows"])
            all.push_back(row["hostMacAddress"].get<std::string>() + " " + row["source"].get<std::string>() +
                          " " + row["portName"].get<std::string>());
        return all;
    }
    void interface(const std::string &port, const std::string &line) {
        EXPECT_EQ("", cli({"configure", "interface " + port, line}));
    }
    static std::string cached(const std::string &key) {
        return readCachedAnswer(key).value().value_or("none");
    }
    void plugged(const std::vector<vswitch::Device> &devices) {
        for (const auto &one : devices)
            ASSERT_EQ(OPEN_E_NONE, plug(one)) << one.name;
    }
    // `count` hosts behind a port, none of whom announces itself.
    static vswitch::Device crowd(const std::string &name, vswitch::IfNum port, const std::string &first,
                                 std::uint32_t count) {
        vswitch::Device all = host(name, port, first);
        for (std::uint32_t n = 1; n < count; ++n)
            all.macs.push_back(all.macs.front().plus(n));
        return all;
    }
};

TEST_F(NeighbourTest, DevicesFirstThenHostsInTheirWords) {
    EXPECT_EQ(
        R"({"rows":[],"indexPage":1,"pageSize":0,"total":0,"_timing":{"arp_ms":0.00,"portTable_ms":0.00,)"
        R"("lldp_ms":0.00,"fdb_ms":0.00,"arpCount":0,"fdbCount":0,"lldpCount":0}})",
        text(neighborPageGet));
    vswitch::Device stage = host("stage-box", 5, "00:11:22:00:00:01", "Stage box");
    stage.ip = stage.lldp->mgmtAddress = "10.0.0.5";
    stage.lldp->portIdSubtype = 5;
    stage.lldp->portId = "eth0";
    vswitch::Device mixer = host("mixer", 2, "AA:BB:CC:00:00:01");
    mixer.ip = "10.0.0.2";
    plugged({stage, mixer});
    EXPECT_EQ("", cli({"configure", "vlan database", "vlan 20", "exit", "interface 0/2", "vlan pvid 20"}));
    EXPECT_EQ(
        R"({"rows":[{"port":"5","portNum":5,"portName":"0/5","unit":1,"vlanId":1,"hostName":"stage-box",)"
        R"("hostIpAddress":"10.0.0.5","hostMacAddress":"00:11:22:00:00:01","remotePortId":"eth0","source":"lldp"},)"
        R"({"port":"2","portNum":2,"portName":"0/2","unit":1,"hostName":"Second \"Best\"","vlanId":20,)"
        R"("hostIpAddress":"10.0.0.2","hostMacAddress":"AA:BB:CC:00:00:01","remotePortId":"","source":"arp"}],)"
        R"("indexPage":1,"pageSize":2,"total":2,"_timing":{"arp_ms":0.00,"portTable_ms":0.00,"lldp_ms":0.00,)"
        R"("fdb_ms":0.00,"arpCount":2,"fdbCount":2,"lldpCount":1}})",
        text(neighborPageGet));

    failCall("rpcclt_openapiArpEntryNextGet", 1, false, OPEN_E_UNAVAIL);
    EXPECT_EQ("", answer(neighborPageGet)["rows"][1]["hostIpAddress"]) << "a switch without an ARP table";
}

TEST_F(NeighbourTest, WhoIsListed) {
    plugged({host("camera", 1, "00:11:22:00:00:01", "Camera"),
             host("behind", 1, "00:11:22:00:00:02", "", "camera"), host("host", 2, "00:11:22:00:00:03"),
             host("uplink", 3, "00:11:22:00:00:04", "Switch"),
             host("far", 3, "00:11:22:00:00:05", "", "uplink")});
    interface("0/6", "addport lag 1");
    plugged({host("aggregated", 6, "00:11:22:00:00:06")});
    const std::vector<std::string> all = {"00:11:22:00:00:01 lldp 0/1", "00:11:22:00:00:04 lldp 0/3",
                                          "00:11:22:00:00:02 arp 0/1", "00:11:22:00:00:03 arp 0/2",
                                          "00:11:22:00:00:05 arp 0/3"};
    EXPECT_EQ(all, rows()) << "a device heard by LLDP is listed once, a host behind a LAG not at all";

    interface("0/3", "switchport mode trunk");
    EXPECT_EQ((std::vector<std::string>(all.begin(), all.end() - 1)), rows());
    interface("0/3", "switchport mode access");
    EXPECT_EQ(all, rows());
    interface("0/1", "shutdown");
    EXPECT_EQ((std::vector<std::string>{all[1], all[3], all[4]}), rows());

    startSwitch({.physicalPorts = 896, .lags = 0});
    plugged({host("last", 895, "00:11:22:00:00:01", "Last"), host("host", 895, "00:11:22:00:00:03"),
             host("beyond", 896, "00:11:22:00:00:02", "Beyond"), host("too", 896, "00:11:22:00:00:04")});
    EXPECT_EQ((std::vector<std::string>{"00:11:22:00:00:01 lldp 0/895", "00:11:22:00:00:03 arp 0/895"}),
              rows());
}

TEST_F(NeighbourTest, RowsThatAreTooLongAreDropped) {
    const NeighbourPort port{true, SwitchportMode::General, {1, 0, 5}, "0/5", 1};
    std::string row;
    NeighbourLine line{IfNum(5), &port};
    ASSERT_TRUE(printNeighbourRow(line, row));
    const std::string name(2560 - row.size(), 'x');
    line.hostName = std::string_view(name).substr(1);
    EXPECT_TRUE(printNeighbourRow(line, row));
    EXPECT_EQ(2559u, row.size());
    line.hostName = name;
    EXPECT_FALSE(printNeighbourRow(line, row));

    // Six bytes each when escaped: four such strings do not fit, and the device is in no other list.
    vswitch::Device loud = host("loud", 1, "00:11:22:00:00:01", "Loud");
    for (auto *const field : {&loud.lldp->systemName, &loud.lldp->mgmtAddress, &loud.lldp->portId})
        *field = std::string(255, '\x01');
    loud.lldp->portIdSubtype = 7;
    plugged({loud, host("other", 2, "00:11:22:00:00:02", "Other")});
    EXPECT_EQ((std::vector<std::string>{"00:11:22:00:00:02 lldp 0/2"}), rows());
}

// --- the same as going through the tables in order

// Tables as lists, and every look-up a scan of one.
struct Scans {
    std::vector<std::pair<std::string, std::string>> arp;
    std::map<std::uint32_t, NeighbourPort> ports;
    std::vector<std::string> lldpMacs;

    static bool same(const std::string &a, const std::string &b) {
        return strcasecmp(a.c_str(), b.c_str()) == 0;
    }
    // The last one in the list counts.
    static std::string find(const std::vector<std::pair<std::string, std::string>> &list,
                            const std::string &key) {
        std::string found;
        for (const auto &[known, value] : list)
            if (!key.empty() && same(known, key))
                found = value;
        return found;
    }
    static std::string vendorOf(const std::string &mac) {
        return find(kVendors, mac.substr(0, 8)).substr(0, 31);
    }
    // "" when it is too long.
    static std::string print(const NeighbourPort &port, std::uint32_t vlan, const std::string &name,
                             const std::string &ip, const std::string &mac, const std::string &remotePort,
                             const char *source) {
        json row{
            {"portNum", port.place.port}, {"unit", port.place.unit}, {"vlanId", vlan}, {"source", source}};
        row["port"] = (port.place.slot != 0 ? std::to_string(port.place.slot) + "/" : "") +
                      std::to_string(port.place.port);
        for (const auto &[key, text] : {std::pair("portName", port.name),
                                        {"hostName", name},
                                        {"hostIpAddress", ip},
                                        {"hostMacAddress", mac},
                                        {"remotePortId", remotePort}})
            row[key] = validUtf8(text);
        return row.dump().size() < 2560 ? row.dump() : "";
    }

    std::string device(std::uint32_t ifNum, const LldpDevice &device) {
        const std::string mac = device.chassis.subtype == 4  ? device.chassis.text
                                : device.portId.subtype == 3 ? device.portId.text
                                                             : "";
        lldpMacs.push_back(mac.substr(0, 17));
        const std::string name = device.systemName.empty() ? vendorOf(mac) : device.systemName;
        const std::string ip = device.managementAddress.empty() ? find(arp, mac) : device.managementAddress;
        const NeighbourPort &port = ports.at(ifNum);
        return print(port, port.pvid, name, ip, mac, device.portId.text, "lldp");
    }
    std::string host(const ForwardingEntry &entry) const {
        const auto port = ports.find(entry.interface.number());
        const std::string mac = entry.mac.text();
        if (!entry.learned || port == ports.end() || port->second.mode == SwitchportMode::Trunk ||
            std::ranges::any_of(lldpMacs, [&](const auto &known) { return same(known, mac); }))
            return "";
        return print(port->second, entry.vlan, vendorOf(mac), find(arp, mac), mac, "", "arp");
    }
};

// Tables full of coincidences: few addresses, spelled in any way, and strings that are none.
class Tables {
  public:
    explicit Tables(std::uint32_t seed) : random_(seed) {}

    std::uint32_t number(std::uint32_t below) { return static_cast<std::uint32_t>(random_() % below); }
    std::string mac() {
        static const char *const prefixes[] = {"00:11:22", "00:1B:92", "AA:BB:CC", "AA:BB:CD", "FE:DC:BA"};
        std::string text = prefixes[number(5)] + std::string(":00:00:0") + "ABCD"[number(4)];
        for (char &c : text)
            c = static_cast<char>(number(2) == 0 ? std::tolower(c) : c);
        return text;
    }
    std::string string() {
        static const char *const strings[] = {
            "",           "", "", "desk", "a \"quoted\" name", "\xff\xc3(", "tab\tline\n", "caf\xc3\xa9",
            "\x7f\x1b[2J"};
        const std::uint32_t which = number(10);
        return which < 9 ? strings[which] : std::string(number(600), "\x02m"[number(2)]);
    }
    NeighbourId id() {
        const std::uint32_t kind = number(8);
        return {number(6) + 1, kind == 0 ? "" : kind == 1 ? string() : kind == 2 ? mac() + "!" : mac()};
    }

  private:
    std::mt19937 random_;
};

TEST_F(NeighbourTest, SameRowsAsScansOfTheTables) {
    std::size_t devices = 0, hosts = 0, dropped = 0;
    for (std::uint32_t seed = 1; seed <= 200; ++seed) {
        Tables tables(seed);
        Scans scans;
        NeighbourJoin join(vendorTable());
        for (std::uint32_t i = tables.number(30); i > 0; --i) {
            const std::string mac = tables.mac() + (tables.number(5) == 0 ? "longer" : "");
            const Ipv4 ip = Ipv4::fromNumber(tables.number(UINT32_MAX));
            scans.arp.emplace_back(mac.substr(0, 17), ip.text());
            join.addArp(mac, ip);
        }
        for (std::uint32_t ifNum = 1; ifNum <= 6; ++ifNum) {
            const auto mode = static_cast<SwitchportMode>(tables.number(3) + 1);
            const NeighbourPort port{
                true, mode, {1, tables.number(2), ifNum}, tables.string(), tables.number(4095)};
            scans.ports.emplace(ifNum, port);
            join.addPort(IfNum(ifNum), port);
        }
        // The row is the expected one; whether there is one.
        const auto isRow = [&](const std::string &expected, const std::optional<NeighbourLine> &line) {
            std::string row;
            const bool printed = line && printNeighbourRow(*line, row);
            EXPECT_EQ(expected, printed ? json::parse(row).dump() : "") << seed;
            return printed;
        };
        for (std::uint32_t i = tables.number(8); i > 0; --i) {
            const std::uint32_t ifNum = tables.number(6) + 1;
            const LldpDevice heard{tables.id(), tables.id(), tables.string(), tables.string()};
            ++(isRow(scans.device(ifNum, heard), join.lineOf(IfNum(ifNum), heard)) ? devices : dropped);
        }
        for (std::uint32_t i = tables.number(20); i > 0; --i) {
            const ForwardingEntry entry{IfNum(tables.number(9)), tables.number(5) != 0, tables.number(4095),
                                        Mac::parse(tables.mac()).value()};
            hosts += isRow(scans.host(entry), join.lineOf(entry)) ? 1 : 0;
        }
    }
    EXPECT_TRUE(devices > 200 && hosts > 200 && dropped > 5) << "the cases were there";
}

TEST_F(NeighbourTest, HostileStringsInEveryField) {
    std::string all;
    for (int c = 0; c < 256; ++c)
        all += static_cast<char>(c);
    std::string out = "=";
    appendEscaped(out, all);
    EXPECT_EQ(validUtf8(all), json::parse('"' + out.substr(1) + '"').get<std::string>());

    const std::string hostile[] = {"\"},{\"port\":\"", "\\",           "\\u",
                                   "\xed\xa0\x80",     "\xf0\x9f\x8e", "\xc0\xaf",
                                   "\x1b]0;title\x07", "\xe2\x80\xa8", all.substr(1, 130),
                                   all.substr(101),    "cut\xc3"};
    const std::size_t count = std::size(hostile);
    for (std::size_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(10 + i);
        vswitch::Device box =
            host(number, static_cast<vswitch::IfNum>(i + 1), "00:11:22:00:00:" + number, "Device");
        auto &lldp = *box.lldp;
        lldp.systemName = lldp.mgmtAddress = lldp.portId = lldp.chassisId = hostile[i];
        lldp.chassisIdSubtype = i % 2 == 0 ? 4 : 7;  // of the others, the port ID is the MAC address
        plugged({box});
    }
    const json rows = answer(neighborPageGet)["rows"];
    ASSERT_LE(count, rows.size());
    for (std::size_t i = 0; i < count; ++i)
        for (const char *const member : {"hostName", "hostIpAddress", "remotePortId", "hostMacAddress"})
            EXPECT_EQ(validUtf8(hostile[i]), rows[i][member]) << i << member;
    ASSERT_EQ(0, neighborChunksBuild(&client));
    EXPECT_EQ(rows, json::parse(cached("neighbor_ex/0"))["lldpRemoteDevice"]["rows"]);
    EXPECT_EQ(count, answer(portVendorDetectBuild)["ports"].size());
}

TEST_F(NeighbourTest, ChunksReplaceThoseOfAnotherProcess) {
    for (const char *const key : {"neighbor_ex/1", "neighbor_ex/2", "neighbor_ex"})
        ASSERT_TRUE(writeCachedAnswer(key, "{}"));
    EXPECT_EQ(0, neighborListExChunkedPush(&client));
    EXPECT_EQ(json::array(), json::parse(cached("neighbor_ex/0"))["lldpRemoteDevice"]["rows"]);
    EXPECT_EQ("none none {}",
              cached("neighbor_ex/1") + " " + cached("neighbor_ex/2") + " " + cached("neighbor_ex"));
    std::filesystem::remove(platform::fsPath(platform::paths::kResponseCache));
    EXPECT_EQ(10000, neighborListExChunkedPush(&client));
}

TEST_F(NeighbourTest, VendorsBehindPorts) {
    plugged({host("camera", 3, "00:11:22:00:00:01", "Camera"), crowd("mixers", 3, "AA:BB:CC:00:00:00", 3),
             crowd("unknown", 2, "02:00:00:00:00:00", 2)});
    // What the daemon recognises counts for ports with somebody behind them.
    writeText(platform::paths::kRecognition,
              R"({"2": "telos", "3": "harman", "3": "audac", "9": "telos", "x": "y"})");
    EXPECT_EQ(
        R"({"ports":[{"port":"2","portNum":2,"portName":"0/2","unit":1,"deviceCount":2,"vendors":[],)"
        R"("recognized":["telos"]},)"
        R"({"port":"3","portNum":3,"portName":"0/3","unit":1,"deviceCount":4,"vendors":[)"
        R"({"vendor":"Acme","deviceCount":1},{"vendor":"Second \"Best\"","deviceCount":3}],"recognized":["audac","harman"]}]})",
        text(portVendorDetectBuild));
}

TEST_F(NeighbourTest, EveryCallThatMayFail) {
    startSwitch({.physicalPorts = 4, .lags = 1});
    vswitch::Device camera = host("camera", 1, "00:11:22:00:00:01", "Camera");
    camera.ip = "10.0.0.1";
    plugged({camera, host("box", 2, "00:11:22:00:00:02", "Box"), crowd("crowd", 3, "02:00:00:00:00:00", 3)});
    ASSERT_EQ(0, neighborChunksBuild(&client));
    const std::vector<std::string> all = rows();
    const std::string stored = cached("neighbor_ex/0");
    ASSERT_EQ(5u, all.size());

    // A read costs the answer, the port with everybody behind it, or what the row says of somebody.
    enum class Costs { Answer, Port, Words };
    const std::pair<Costs, std::vector<const char *>> calls[] = {
        {Costs::Answer,
         {"rpcclt_openapiArpEntryNextGet", "rpcclt_openapiIfFirstGet", "rpcclt_openapiIfNextGet",
          "rpcclt_openapiLldpIntfRemoteDeviceNextGet", "rpcclt_openapiFdbEntryNextGet"}},
        {Costs::Port,
         {"rpcclt_openapiDot1qSwPortModeGet", "rpcclt_openapiHashIntfUnitSlotPortGet", "openapiIfNameGet",
          "openapiVlanIfPvidGet"}},
        {Costs::Words,
         {"rpcclt_openapiLldpIntfRemoteDeviceChassisIdGet", "rpcclt_openapiLldpIntfRemoteDevicePortIdGet",
          "openapiIfLinkStateGet", "rpcclt_openapiLldpMgmtStrLenGet",
          "rpcclt_openapiLldpIntfRemoteDeviceSystemNameGet",
          "rpcclt_openapiLldpIntfRemoteDeviceMgmtAddressNextGet"}}};
    const auto chunks = [](openapiClientHandle_t *handle, char **) { return neighborChunksBuild(handle); };
    // Whether the call is made so often. A switch that is gone costs the answer, whatever it was asked.
    const auto isMade = [&](Costs costs, const std::string &call, std::uint64_t nth) {
        SCOPED_TRACE(call + std::to_string(nth));
        const auto failing = [&](open_error_t error, const Producer &producer) {
            clearFaults();
            failCall(call, nth, true, error);
            return answer(producer);
        };
        const std::size_t errors = logged("cannot be read to its end");
        json page = failing(OPEN_E_FAIL, neighborPageGet);
        if (callsSeen() < nth)
            return false;
        const bool refused = costs == Costs::Answer;
        EXPECT_EQ(refused ? 10000 : 0, result);
        EXPECT_EQ(errors + (refused ? 1 : 0), logged("cannot be read to its end"));
        const auto isLost = [&](const std::string &row) {
            return costs == Costs::Port && row.ends_with(" 0/" + std::to_string(nth));
        };
        EXPECT_EQ(refused ? 0 : 5 - std::ranges::count_if(all, isLost), std::ssize(page["rows"]));
        for (const auto error : {refused ? OPEN_E_FAIL : OPEN_E_RPC, OPEN_E_RPC})
            for (const Producer &producer :
                 {Producer(neighborPageGet), Producer(portVendorDetectBuild), Producer(chunks)}) {
                failing(error, producer);
                EXPECT_EQ(10000, result);
                EXPECT_EQ(stored, cached("neighbor_ex/0")) << "the old one is kept";
            }
        return true;
    };
    for (const auto &[costs, names] : calls)
        for (const char *const name : names) {
            std::uint64_t nth = 1;
            while (isMade(costs, name, nth))
                ++nth;
            EXPECT_LT(1u, nth) << name << " is not made";
        }
    clearFaults();
    EXPECT_EQ(all, rows());
}

TEST_F(NeighbourTest, NoMemoryForARowAndNoPlaceForAnAnswer) {
    // Has room for two rows.
    class SmallSink : public RowSink {
        bool take(std::string_view) override {
            if (rowCount() == 2)
                throw std::bad_alloc();
            return true;
        }
    };
    plugged({crowd("crowd", 1, "02:00:00:00:00:00", 5)});
    SmallSink sink;
    NeighbourTiming timing;
    EXPECT_EQ(10000, neighborRowsBuild(&client, sink, timing));
    EXPECT_EQ(2u, sink.rowCount());
    EXPECT_EQ(ResultCode::Failed, sink.error());
    for (const auto produce : {neighborPageGet, portVendorDetectBuild})
        EXPECT_EQ(10003, produce(&client, nullptr));
}

}  // namespace
