// The neighbour list: against a reading of the tables in order, on a virtual switch, and with hostile
// strings.
#include "web/neighbours.h"

#include <strings.h>

#include <new>
#include <random>
#include <sstream>

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
    commands("configure; interface 0/6; addport lag 1");
    plugged({host("aggregated", 6, "00:11:22:00:00:06")});
    const std::vector<std::string> all = {"00:11:22:00:00:01 lldp 0/1", "00:11:22:00:00:04 lldp 0/3",
                                          "00:11:22:00:00:02 arp 0/1", "00:11:22:00:00:03 arp 0/2",
                                          "00:11:22:00:00:05 arp 0/3"};
    EXPECT_EQ(all, rows()) << "a device heard by LLDP is listed once, a host behind a LAG not at all";

    commands("configure; interface 0/3; switchport mode trunk");
    EXPECT_EQ((std::vector<std::string>(all.begin(), all.end() - 1)), rows());
    commands("configure; interface 0/1; shutdown");
    EXPECT_EQ((std::vector<std::string>{all[1], all[3]}), rows());

    startSwitch({.physicalPorts = 896, .lags = 0});
    plugged({host("last", 895, "00:11:22:00:00:01", "Last"), host("host", 895, "00:11:22:00:00:03"),
             host("beyond", 896, "00:11:22:00:00:02", "Beyond"), host("too", 896, "00:11:22:00:00:04")});
    EXPECT_EQ((std::vector<std::string>{"00:11:22:00:00:01 lldp 0/895", "00:11:22:00:00:03 arp 0/895"}),
              rows());
}

TEST_F(NeighbourTest, RowsThatAreTooLongAreDropped) {
    const NeighbourPort port{true, SwitchportMode::General, {1, 2, 5}, "2/5", 1};
    std::string row;
    NeighbourLine line{IfNum(5), &port};
    ASSERT_TRUE(printNeighbourRow(line, row));
    const std::string name(2560 - row.size(), 'x');
    line.hostName = std::string_view(name).substr(1);
    EXPECT_TRUE(printNeighbourRow(line, row));
    EXPECT_EQ(2559u, row.size());
    EXPECT_EQ("2/5", json::parse(row)["port"]);
    line.hostName = name;
    EXPECT_FALSE(printNeighbourRow(line, row));

    // Six bytes each when escaped: four such strings do not fit, and the device is in no other list.
    vswitch::Device loud = host("loud", 1, "00:11:22:00:00:01", "Loud");
    loud.lldp->systemName = loud.lldp->mgmtAddress = loud.lldp->portId = std::string(255, '\x01');
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
    static std::string line(std::string_view name, std::string_view ip, std::string_view mac,
                            std::string_view remotePort, std::uint32_t vlan) {
        std::ostringstream out;
        out << name << "|" << ip << "|" << mac << "|" << remotePort << "|" << vlan;
        return out.str();
    }

    std::string device(std::uint32_t ifNum, const LldpDevice &device) {
        const std::string mac = device.chassis.subtype == 4  ? device.chassis.text
                                : device.portId.subtype == 3 ? device.portId.text
                                                             : "";
        lldpMacs.push_back(mac.substr(0, 17));
        return line(device.systemName.empty() ? vendorOf(mac) : device.systemName,
                    device.managementAddress.empty() ? find(arp, mac) : device.managementAddress, mac,
                    device.portId.text, ports.at(ifNum).pvid);
    }
    std::string host(const ForwardingEntry &entry) const {
        const auto port = ports.find(entry.interface.number());
        const std::string mac = entry.mac.text();
        if (!entry.learned || port == ports.end() || port->second.mode == SwitchportMode::Trunk ||
            std::ranges::any_of(lldpMacs, [&](const auto &known) { return same(known, mac); }))
            return "";
        return line(vendorOf(mac), find(arp, mac), mac, "", entry.vlan);
    }
};

// Tables full of coincidences: few addresses, spelled in any way, and strings that are none.
TEST_F(NeighbourTest, SameLinesAsScansOfTheTables) {
    std::mt19937 random(1);
    const auto number = [&](std::uint32_t below) { return static_cast<std::uint32_t>(random() % below); };
    const auto address = [&] {
        static const char *const prefixes[] = {"00:11:22", "00:1B:92", "AA:BB:CC", "AA:BB:CD", "FE:DC:BA"};
        std::string text = prefixes[number(5)] + std::string(":00:00:0") + "ABCD"[number(4)];
        for (char &c : text)
            c = static_cast<char>(number(2) == 0 ? std::tolower(c) : c);
        return text;
    };
    const auto text = [&] { return number(2) == 0 ? "" : "desk"; };
    const auto id = [&] {
        const std::uint32_t kind = number(8), subtype = number(6) + 1;
        return NeighbourId{subtype, kind < 2 ? text() : kind == 2 ? address() + "!" : address()};
    };
    std::size_t hosts = 0;
    for (int round = 0; round < 200; ++round) {
        Scans scans;
        NeighbourJoin join(vendorTable());
        for (std::uint32_t i = number(30); i > 0; --i) {
            const std::string mac = address() + (number(5) == 0 ? "longer" : "");
            const Ipv4 ip = Ipv4::fromNumber(number(UINT32_MAX));
            scans.arp.emplace_back(mac.substr(0, 17), ip.text());
            join.addArp(mac, ip);
        }
        for (std::uint32_t ifNum = 1; ifNum <= 6; ++ifNum) {
            const auto mode = static_cast<SwitchportMode>(number(3) + 1);
            scans.ports[ifNum] = {true, mode, {1, 0, ifNum}, "", number(4095)};
            join.addPort(IfNum(ifNum), scans.ports[ifNum]);
        }
        const auto joined = [](const std::optional<NeighbourLine> &line) {
            return line ? Scans::line(line->hostName, line->ip, line->mac, line->remotePortId, line->vlan)
                        : "";
        };
        for (std::uint32_t i = number(8); i > 0; --i) {
            const std::uint32_t ifNum = number(6) + 1;
            const LldpDevice heard{id(), id(), text(), text()};
            ASSERT_EQ(scans.device(ifNum, heard), joined(join.lineOf(IfNum(ifNum), heard)));
        }
        for (std::uint32_t i = number(20); i > 0; --i) {
            const ForwardingEntry entry{IfNum(number(9)), number(5) != 0, number(4095),
                                        Mac::parse(address()).value()};
            const auto expected = scans.host(entry);
            ASSERT_EQ(expected, joined(join.lineOf(entry)));
            hosts += expected.empty() ? 0 : 1;
        }
    }
    EXPECT_LT(200u, hosts) << "the cases were there";
}

TEST_F(NeighbourTest, HostileStringsInEveryField) {
    std::string all;
    for (int c = 0; c < 256; ++c)
        all += static_cast<char>(c);
    std::string out = "=";
    appendEscaped(out, all);
    EXPECT_EQ(validUtf8(all), json::parse('"' + out.substr(1) + '"').get<std::string>());

    const std::vector<std::string> hostile = {"\"},{\"port\":\"", "\\",           "\\u",
                                              "\xed\xa0\x80",     "\xf0\x9f\x8e", "\xc0\xaf",
                                              "\x1b]0;title\x07", "\xe2\x80\xa8", all.substr(1, 130),
                                              all.substr(101),    "cut\xc3"};
    for (std::uint32_t i = 0; i < hostile.size(); ++i) {
        const std::string number = std::to_string(10 + i);
        vswitch::Device box = host(number, i + 1, "00:11:22:00:00:" + number, "Device");
        auto &lldp = *box.lldp;
        lldp.systemName = lldp.mgmtAddress = lldp.portId = lldp.chassisId = hostile[i];
        lldp.chassisIdSubtype = i % 2 == 0 ? 4 : 7;  // of the others, the port ID is the MAC address
        plugged({box});
    }
    const json rows = answer(neighborPageGet)["rows"];
    for (std::size_t i = 0; i < hostile.size(); ++i)
        for (const char *const member : {"hostName", "hostIpAddress", "remotePortId", "hostMacAddress"})
            EXPECT_EQ(validUtf8(hostile[i]), rows[i][member]) << i << member;
    EXPECT_EQ(hostile.size(), answer(portVendorDetectBuild)["ports"].size());
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
    for (const auto &[costs, names] : calls)
        for (const std::string call : names)
            for (std::uint64_t nth = 1;; ++nth) {
                SCOPED_TRACE(call + std::to_string(nth));
                const auto failing = [&](open_error_t error, const Producer &producer) {
                    clearFaults();
                    failCall(call, nth, true, error);
                    return answer(producer);
                };
                const std::size_t errors = logged("cannot be read to its end");
                const auto found = failing(OPEN_E_FAIL, neighborPageGet)["rows"].size();
                if (callsSeen() < nth) {
                    EXPECT_LT(1u, nth) << "is not made";
                    break;
                }
                const bool refused = costs == Costs::Answer;
                EXPECT_EQ(refused ? 10000 : 0, result);
                EXPECT_EQ(errors + (refused ? 1 : 0), logged("cannot be read to its end"));
                const auto behind = std::ranges::count_if(
                    all, [&](const auto &row) { return row.ends_with(" 0/" + std::to_string(nth)); });
                EXPECT_EQ(refused ? 0 : 5 - (costs == Costs::Port ? behind : 0), found);
                // A switch that is gone costs the answer, whatever it was asked.
                for (const auto error : {refused ? OPEN_E_FAIL : OPEN_E_RPC, OPEN_E_RPC})
                    for (const Producer &producer :
                         {Producer(neighborPageGet), Producer(portVendorDetectBuild), Producer(chunks)}) {
                        failing(error, producer);
                        EXPECT_EQ(10000, result);
                        EXPECT_EQ(stored, cached("neighbor_ex/0")) << "the old one is kept";
                    }
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
