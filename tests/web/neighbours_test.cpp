// The neighbour list: against a reading of the tables in order, on a virtual switch, and with hostile
// strings.
#include "web/neighbours.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <strings.h>

#include <cstdio>
#include <filesystem>
#include <new>
#include <nlohmann/json.hpp>
#include <random>

#include "common/json.h"
#include "common/text.h"
#include "store/producers.h"
#include "store/response_cache_ops.h"
#include "tests/support/switch_fixture.h"
#include "web/neighbours_ops.h"

namespace {

using namespace pavo;
using test_support::exists;
using Json = nlohmann::json;

// In the order of the database, two of them for one prefix.
const std::vector<std::pair<std::string, std::string>> kVendors = {{"00:11:22", "Acme"},
                                                                   {"00:1B:92", "Audio Works"},
                                                                   {"AA:BB:CC", "First"},
                                                                   {"AA:BB:CC", "Second \"Best\""},
                                                                   {"AA:BB:CD", std::string(40, 'v')}};

void writeVendors() {
    const std::string path = platform::fsPath(platform::paths::kVendorDb);
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    sqlite3 *db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(path.c_str(), &db));
    std::string sql = "CREATE TABLE oui (mac, vendor);";
    for (const auto &[prefix, vendor] : kVendors)
        sql += "INSERT INTO oui VALUES ('" + prefix + "', '" + vendor + "');";
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr));
    sqlite3_close(db);
}

class NeighbourTest : public test_support::SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        writeVendors();  // the first look-up of the process reads them
        ASSERT_EQ(0, restapi_db_operation(REST_DB_CREATE, "", nullptr));
    }

    void startSmallSwitch() {
        vswitch::ModelConfig config;
        config.physicalPorts = 4;
        config.lags = 1;
        startSwitch(config);
    }
    // Strict: nlohmann's parser refuses whatever is not JSON in UTF-8.
    Json page() {
        char *text = nullptr;
        EXPECT_EQ(0, neighborPageGet(&client, &text));
        const TextPtr owned(text);
        return Json::parse(owned.get());
    }
    std::vector<std::string> rows() {
        PageSink sink;
        NeighbourTiming timing;
        EXPECT_EQ(0, neighborRowsBuild(&client, sink, timing));
        std::vector<std::string> all;
        for (const auto &row : Json::parse("[" + sink.rows() + "]"))
            all.push_back(row["hostMacAddress"].get<std::string>() + " " + row["source"].get<std::string>() +
                          " " + row["portName"].get<std::string>());
        return all;
    }
    void interface(const std::string &port, const std::string &line) {
        EXPECT_EQ("", cli({"configure", "interface " + port, line}));
    }
    static std::string cached(const std::string &key) {
        char *text = nullptr;
        const std::int32_t code = restapi_db_read(key.c_str(), &text);
        const TextPtr owned(text);
        return code == 0 ? owned.get() : "none: " + std::to_string(code);
    }
    // `count` hosts behind a port, none of whom announces itself.
    void plugCrowd(const std::string &name, vswitch::IfNum port, const std::string &first,
                   std::uint32_t count) {
        vswitch::Device crowd = host(name, port, first);
        for (std::uint32_t n = 1; n < count; ++n)
            crowd.macs.push_back(crowd.macs.front().plus(n));
        ASSERT_EQ(OPEN_E_NONE, plug(std::move(crowd)));
    }
};

// --- rows

TEST_F(NeighbourTest, DevicesFirstThenHostsInTheirWords) {
    vswitch::Device stage = host("stage-box", 5, "00:11:22:00:00:01", "Stage box");
    stage.ip = stage.lldp->mgmtAddress = "10.0.0.5";
    stage.lldp->portIdSubtype = 5;
    stage.lldp->portId = "eth0";
    ASSERT_EQ(OPEN_E_NONE, plug(stage));
    vswitch::Device mixer = host("mixer", 2, "AA:BB:CC:00:00:01");
    mixer.ip = "10.0.0.2";
    ASSERT_EQ(OPEN_E_NONE, plug(mixer));
    EXPECT_EQ("", cli({"configure", "vlan database", "vlan 20", "exit", "interface 0/2", "vlan pvid 20"}));

    char *text = nullptr;
    ASSERT_EQ(0, neighborPageGet(&client, &text));
    EXPECT_STREQ(
        R"({"rows":[{"port":"5","portNum":5,"portName":"0/5","unit":1,"vlanId":1,"hostName":"stage-box",)"
        R"("hostIpAddress":"10.0.0.5","hostMacAddress":"00:11:22:00:00:01","remotePortId":"eth0","source":"lldp"},)"
        R"({"port":"2","portNum":2,"portName":"0/2","unit":1,"hostName":"Second \"Best\"","vlanId":20,)"
        R"("hostIpAddress":"10.0.0.2","hostMacAddress":"AA:BB:CC:00:00:01","remotePortId":"","source":"arp"}],)"
        R"("indexPage":1,"pageSize":2,"total":2,"_timing":{"arp_ms":0.00,"portTable_ms":0.00,"lldp_ms":0.00,)"
        R"("fdb_ms":0.00,"arpCount":2,"fdbCount":2,"lldpCount":1}})",
        TextPtr(text).get());
}

TEST_F(NeighbourTest, NobodyThere) {
    char *text = nullptr;
    ASSERT_EQ(0, neighborPageGet(&client, &text));
    EXPECT_STREQ(
        R"({"rows":[],"indexPage":1,"pageSize":0,"total":0,"_timing":{"arp_ms":0.00,"portTable_ms":0.00,)"
        R"("lldp_ms":0.00,"fdb_ms":0.00,"arpCount":0,"fdbCount":0,"lldpCount":0}})",
        TextPtr(text).get());
    ASSERT_EQ(0, neighborListExChunkedPush(&client));
    EXPECT_EQ(R"({"lldpRemoteDevice":{"rows":[],"chunkIndex":0,"isLastChunk":true},)"
              R"("resp":{"respCode":0,"respMsg":"Success","status":"success"}})",
              cached("neighbor_ex/0"));
}

TEST_F(NeighbourTest, WhoIsListed) {
    ASSERT_EQ(OPEN_E_NONE, plug(host("camera", 1, "00:11:22:00:00:01", "Camera")));
    ASSERT_EQ(OPEN_E_NONE, plug(host("behind", 1, "00:11:22:00:00:02", "", "camera")));
    ASSERT_EQ(OPEN_E_NONE, plug(host("host", 2, "00:11:22:00:00:03")));
    ASSERT_EQ(OPEN_E_NONE, plug(host("uplink", 3, "00:11:22:00:00:04", "Switch")));
    ASSERT_EQ(OPEN_E_NONE, plug(host("far", 3, "00:11:22:00:00:05", "", "uplink")));
    interface("0/6", "addport lag 1");
    ASSERT_EQ(OPEN_E_NONE, plug(host("aggregated", 6, "00:11:22:00:00:06")));
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
}

TEST_F(NeighbourTest, NamesAndAddressesOfADevice) {
    // What it announces, what the ARP table has, and what is unknown.
    NeighbourJoin join(vendorTable());
    const IfNum port(5);
    join.addPort(port, {true, SwitchportMode::General, {1, 2, 5}, "2/5", 20});
    const std::string mac = "aa:Bb:cC:00:00:01";
    join.addArp("AA:BB:CC:00:00:01", Ipv4::parse("10.0.0.1").value());
    join.addArp("aa:bb:cc:00:00:01", Ipv4::parse("10.0.0.2").value());
    const NeighbourId byMac{4, mac};
    const NeighbourId named{7, "rack 3"};
    const NeighbourId portMac{3, mac};
    const NeighbourId portName{5, "eth0"};
    const struct {
        LldpDevice device;
        std::string mac, name, ip, remotePort;
    } cases[] = {{{byMac, portName, "", ""}, mac, "Second \"Best\"", "10.0.0.2", "eth0"},
                 {{byMac, portName, "desk", "fe80::1"}, mac, "desk", "fe80::1", "eth0"},
                 {{named, portMac, "", ""}, mac, "Second \"Best\"", "10.0.0.2", mac},
                 {{{4, "00:99:99:00:00:01"}, portMac, "", ""}, "00:99:99:00:00:01", "", "", mac},
                 {{{4, mac + "0"}, portName, "", ""}, mac + "0", "Second \"Best\"", "", "eth0"},
                 {{named, portName, "", "10.9.9.9"}, "", "", "10.9.9.9", "eth0"},
                 {{named, {3, "AA:B"}, "", ""}, "AA:B", "", "", "AA:B"}};
    for (const auto &[announced, deviceMac, name, ip, remotePort] : cases) {
        const Neighbour line = join.lineOf(port, announced);
        EXPECT_EQ(deviceMac, line.mac);
        EXPECT_EQ(name, line.hostName) << deviceMac;
        EXPECT_EQ(ip, line.ip) << deviceMac;
        EXPECT_EQ(remotePort, line.remotePortId);
        EXPECT_EQ(20u, line.vlan);
    }
    EXPECT_EQ(std::size(cases), join.deviceCount());
    EXPECT_EQ("2/5", portText({1, 2, 5}));
    const ForwardingEntry host{port, true, 30, Mac::parse("AA:BB:CD:00:00:02").value()};
    ASSERT_TRUE(join.lineOf(host));
    EXPECT_EQ(std::string(31, 'v'), join.lineOf(host)->hostName);
    const ForwardingEntry heard{port, true, 30, Mac::parse("AA:BB:CC:00:00:01").value()};
    EXPECT_FALSE(join.lineOf(heard));
    const ForwardingEntry unlearned{port, false, 30, Mac::parse("AA:BB:CD:00:00:02").value()};
    EXPECT_FALSE(join.lineOf(unlearned));
}

TEST_F(NeighbourTest, RowsThatAreTooLongAreDropped) {
    const NeighbourPort port{true, SwitchportMode::General, {1, 0, 5}, "0/5", 1};
    std::string row;
    Neighbour line{IfNum(5), &port};
    ASSERT_TRUE(printNeighbourRow(line, row));
    const std::string name(2560 - row.size(), 'x');
    line.hostName = std::string_view(name).substr(1);
    EXPECT_TRUE(printNeighbourRow(line, row));
    EXPECT_EQ(2559u, row.size());
    line.hostName = name;
    EXPECT_FALSE(printNeighbourRow(line, row));

    // Six bytes each when escaped: four such strings do not fit, and the device is in no other list.
    vswitch::Device loud = host("loud", 1, "00:11:22:00:00:01", "Loud");
    for (auto *const text : {&loud.lldp->systemName, &loud.lldp->mgmtAddress, &loud.lldp->portId})
        *text = std::string(255, '\x01');
    loud.lldp->portIdSubtype = 7;
    ASSERT_EQ(OPEN_E_NONE, plug(loud));
    ASSERT_EQ(OPEN_E_NONE, plug(host("other", 2, "00:11:22:00:00:02", "Other")));
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
    static std::string escaped(const std::string &text) {
        const JsonPtr item(cJSON_CreateString(validUtf8(text).c_str()));
        const std::string quoted = printJsonLine(item.get());
        return quoted.substr(1, quoted.size() - 2);
    }
    static std::string vendorOf(const std::string &mac) {
        std::string prefix = mac.substr(0, 8);
        for (char &c : prefix)
            c = static_cast<char>(std::toupper(c));
        std::string found;
        for (const auto &[known, vendor] : kVendors)
            if (known == prefix)
                found = vendor.substr(0, 31);
        return found;
    }
    std::string ipOf(const std::string &mac) const {
        std::string ip;
        for (const auto &[known, address] : arp)
            if (!mac.empty() && same(known, mac))
                ip = address;
        return ip;
    }
    static std::string portOf(const NeighbourPort &port) {
        const std::string number = std::to_string(port.place.port);
        return port.place.slot != 0 ? std::to_string(port.place.slot) + "/" + number : number;
    }
    template <class... Args>
    static std::string print(const char *format, Args... args) {
        char row[2560];
        const int length = std::snprintf(row, sizeof row, format, args...);
        return length < static_cast<int>(sizeof row) ? row : "";
    }

    std::string device(std::uint32_t ifNum, const LldpDevice &device) {
        const NeighbourPort &port = ports.at(ifNum);
        std::string mac;
        if (device.chassis.subtype == 4)
            mac = device.chassis.text;
        else if (device.portId.subtype == 3)
            mac = device.portId.text;
        lldpMacs.push_back(mac.substr(0, 17));
        const std::string name = device.systemName.empty() ? vendorOf(mac) : device.systemName;
        const std::string ip = device.managementAddress.empty() ? ipOf(mac) : device.managementAddress;
        return print(R"({"port":"%s","portNum":%u,"portName":"%s","unit":%u,"vlanId":%u,"hostName":"%s",)"
                     R"("hostIpAddress":"%s","hostMacAddress":"%s","remotePortId":"%s","source":"lldp"})",
                     portOf(port).c_str(), port.place.port, escaped(port.name).c_str(), port.place.unit,
                     port.pvid, escaped(name).c_str(), escaped(ip).c_str(), escaped(mac).c_str(),
                     escaped(device.portId.text).c_str());
    }
    std::string host(const ForwardingEntry &entry) const {
        const auto port = ports.find(entry.interface.number());
        if (!entry.learned || port == ports.end() || port->second.mode == SwitchportMode::Trunk)
            return "";
        for (const auto &known : lldpMacs)
            if (same(known, entry.mac.text()))
                return "";
        const auto &[ifNum, p] = *port;
        return print(R"({"port":"%s","portNum":%u,"portName":"%s","unit":%u,"hostName":"%s","vlanId":%u,)"
                     R"("hostIpAddress":"%s","hostMacAddress":"%s","remotePortId":"","source":"arp"})",
                     portOf(p).c_str(), p.place.port, escaped(p.name).c_str(), p.place.unit,
                     escaped(vendorOf(entry.mac.text())).c_str(), entry.vlan,
                     escaped(ipOf(entry.mac.text())).c_str(), escaped(entry.mac.text()).c_str());
    }
};

// Tables full of coincidences: few addresses, spelled in any way, and strings that are none.
class Tables {
  public:
    explicit Tables(std::uint32_t seed) : random_(seed) {}

    std::uint32_t number(std::uint32_t below) { return static_cast<std::uint32_t>(random_() % below); }
    std::string mac() {
        static const char *const prefixes[] = {"00:11:22", "00:1B:92", "AA:BB:CC", "AA:BB:CD", "FE:DC:BA"};
        std::string text = prefixes[number(5)];
        text += ":00:00:0";
        text += "ABCD"[number(4)];
        for (char &c : text)
            if (number(2) == 0)
                c = static_cast<char>(std::tolower(c));
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
    std::size_t devices = 0;
    std::size_t hosts = 0;
    std::size_t dropped = 0;
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
            const NeighbourPort port{true,
                                     static_cast<SwitchportMode>(tables.number(3) + 1),
                                     {1, tables.number(2), ifNum},
                                     tables.string(),
                                     tables.number(4095)};
            scans.ports.emplace(ifNum, port);
            join.addPort(IfNum(ifNum), port);
        }
        std::string row;
        for (std::uint32_t i = tables.number(8); i > 0; --i) {
            const std::uint32_t ifNum = tables.number(6) + 1;
            const LldpDevice heard{tables.id(), tables.id(), tables.string(), tables.string()};
            const std::string expected = scans.device(ifNum, heard);
            if (!printNeighbourRow(join.lineOf(IfNum(ifNum), heard), row))
                row.clear();
            ASSERT_EQ(expected, row) << seed;
            devices += row.empty() ? 0 : 1;
            dropped += row.empty() ? 1 : 0;
        }
        for (std::uint32_t i = tables.number(20); i > 0; --i) {
            const ForwardingEntry entry{IfNum(tables.number(9)), tables.number(5) != 0, tables.number(4095),
                                        Mac::parse(tables.mac()).value()};
            const std::string expected = scans.host(entry);
            const auto line = join.lineOf(entry);
            if (!line || !printNeighbourRow(*line, row))
                row.clear();
            ASSERT_EQ(expected, row) << seed;
            hosts += row.empty() ? 0 : 1;
        }
    }
    // The cases were there.
    EXPECT_LT(200u, devices);
    EXPECT_LT(200u, hosts);
    EXPECT_LT(5u, dropped);
}

// --- strings from the network

TEST_F(NeighbourTest, HostileStringsInEveryField) {
    std::string all;
    for (int c = 1; c < 256; ++c)
        all += static_cast<char>(c);
    const std::string hostile[] = {"\"},{\"port\":\"", "\\",           "\\u",
                                   "\xed\xa0\x80",     "\xf0\x9f\x8e", "\xc0\xaf",
                                   "\x1b]0;title\x07", "\xe2\x80\xa8", all.substr(0, 130),
                                   all.substr(100),    "cut\xc3"};
    for (const std::string &text : hostile) {
        startSwitch({});
        for (vswitch::IfNum port = 1; port <= 5; ++port) {
            vswitch::Device box = host("device " + std::to_string(port), port,
                                       "00:11:22:00:00:0" + std::to_string(port), "Device");
            auto &lldp = *box.lldp;
            std::string *const fields[] = {&lldp.systemName, &lldp.mgmtAddress, &lldp.portId, &lldp.chassisId,
                                           &lldp.portId};
            *fields[port - 1] = text;
            lldp.chassisIdSubtype = port == 5 ? 7 : 4;  // the last one has its MAC address in the port ID
            ASSERT_EQ(OPEN_E_NONE, plug(std::move(box)));
        }
        const std::string expected = validUtf8(text);
        const Json rows = page()["rows"];
        ASSERT_LE(5u, rows.size());
        EXPECT_EQ(expected, rows[0]["hostName"]);
        EXPECT_EQ(expected, rows[1]["hostIpAddress"]);
        EXPECT_EQ(expected, rows[2]["remotePortId"]);
        EXPECT_EQ(expected, rows[3]["hostMacAddress"]);
        EXPECT_EQ(expected, rows[4]["remotePortId"]);
        EXPECT_EQ(expected, rows[4]["hostMacAddress"]);
        ASSERT_EQ(0, neighborChunksBuild(&client));
        EXPECT_EQ(rows, Json::parse(cached("neighbor_ex/0"))["lldpRemoteDevice"]["rows"]);
        char *vendors = nullptr;
        ASSERT_EQ(0, portVendorDetectBuild(&client, &vendors));
        EXPECT_EQ(5u, Json::parse(TextPtr(vendors).get())["ports"].size());
    }
}

TEST_F(NeighbourTest, AnyBytesBecomeAJsonString) {
    const std::pair<std::string, std::string> cases[] = {{"", ""},
                                                         {"plain", "plain"},
                                                         {std::string("a\0b\0", 4), "a\\u0000b\\u0000"},
                                                         {std::string("\0", 1), "\\u0000"},
                                                         {"\x01\n\"\\/", "\\u0001\\n\\\"\\\\/"},
                                                         {"\xff\xfe", "\xef\xbf\xbd\xef\xbf\xbd"},
                                                         {"caf\xc3\xa9", "caf\xc3\xa9"}};
    for (const auto &[text, expected] : cases) {
        std::string out = "=";
        appendEscaped(out, text);
        EXPECT_EQ("=" + expected, out);
        EXPECT_EQ(validUtf8(text), Json::parse('"' + out.substr(1) + '"').get<std::string>());
    }
}

// --- chunks

TEST_F(NeighbourTest, ChunksFollowTheNumberOfHosts) {
    plugCrowd("crowd", 2, "02:00:00:00:00:00", 1201);
    plugCrowd("more", 3, "02:00:00:01:00:00", 1000);
    const auto sizes = [&] {
        std::vector<std::size_t> counts;
        for (int i = 0; i < 6; ++i)
            if (const std::string text = cached("neighbor_ex/" + std::to_string(i));
                !text.starts_with("none")) {
                const Json list = Json::parse(text)["lldpRemoteDevice"];
                EXPECT_EQ(i, list["chunkIndex"]);
                counts.push_back(list["rows"].size() + (list["isLastChunk"].get<bool>() ? 10000 : 0));
            }
        return counts;
    };
    const auto push = [&] { ASSERT_EQ(0, neighborListExChunkedPush(&client)); };
    push();
    EXPECT_EQ((std::vector<std::size_t>{500, 500, 500, 500, 10201}), sizes());
    ASSERT_EQ(OPEN_E_NONE, unplug("more"));
    push();
    EXPECT_EQ((std::vector<std::size_t>{500, 500, 10201}), sizes());
    const std::string before = cached("neighbor_ex/1");
    push();
    EXPECT_EQ((std::vector<std::size_t>{500, 500, 10201}), sizes());
    EXPECT_EQ(before, cached("neighbor_ex/1"));
    ASSERT_EQ(OPEN_E_NONE, unplug("crowd"));
    push();
    EXPECT_EQ((std::vector<std::size_t>{10000}), sizes());

    // What another process has left, and a cache that cannot be written.
    for (const char *const key : {"neighbor_ex/1", "neighbor_ex/2", "neighbor_ex"})
        ASSERT_EQ(REST_DB_WRITTEN, restapi_db_operation(REST_DB_WRITE, key, "{}"));
    push();
    EXPECT_EQ("none: 10023", cached("neighbor_ex/1"));
    EXPECT_EQ("none: 10023", cached("neighbor_ex/2"));
    EXPECT_EQ("{}", cached("neighbor_ex"));
    std::filesystem::remove(platform::fsPath(platform::paths::kResponseCache));
    EXPECT_EQ(10000, neighborListExChunkedPush(&client));
}

TEST_F(NeighbourTest, PortsUpTo895) {
    vswitch::ModelConfig config;
    config.physicalPorts = 896;
    config.lags = 0;
    startSwitch(config);
    ASSERT_EQ(OPEN_E_NONE, plug(host("last", 895, "00:11:22:00:00:01", "Last")));
    ASSERT_EQ(OPEN_E_NONE, plug(host("beyond", 896, "00:11:22:00:00:02", "Beyond")));
    ASSERT_EQ(OPEN_E_NONE, plug(host("host", 895, "00:11:22:00:00:03")));
    ASSERT_EQ(OPEN_E_NONE, plug(host("host beyond", 896, "00:11:22:00:00:04")));
    EXPECT_EQ((std::vector<std::string>{"00:11:22:00:00:01 lldp 0/895", "00:11:22:00:00:03 arp 0/895"}),
              rows());
}

TEST_F(NeighbourTest, VendorsBehindPorts) {
    ASSERT_EQ(OPEN_E_NONE, plug(host("camera", 3, "00:11:22:00:00:01", "Camera")));
    plugCrowd("mixers", 3, "AA:BB:CC:00:00:00", 3);
    plugCrowd("unknown", 2, "02:00:00:00:00:00", 2);
    char *json = nullptr;
    ASSERT_EQ(0, portVendorDetectBuild(&client, &json));
    EXPECT_STREQ(
        R"({"ports":[{"port":"2","portNum":2,"portName":"0/2","unit":1,"deviceCount":2,"vendors":[]},)"
        R"({"port":"3","portNum":3,"portName":"0/3","unit":1,"deviceCount":4,"vendors":[)"
        R"({"vendor":"Acme","deviceCount":1},{"vendor":"Second \"Best\"","deviceCount":3}]}]})",
        TextPtr(json).get());
}

// --- failures

TEST_F(NeighbourTest, EveryCallThatMayFail) {
    startSmallSwitch();
    vswitch::Device camera = host("camera", 1, "00:11:22:00:00:01", "Camera");
    camera.ip = "10.0.0.1";
    ASSERT_EQ(OPEN_E_NONE, plug(camera));
    ASSERT_EQ(OPEN_E_NONE, plug(host("box", 2, "00:11:22:00:00:02", "Box")));
    plugCrowd("crowd", 3, "02:00:00:00:00:00", 3);
    ASSERT_EQ(0, neighborChunksBuild(&client));
    const std::vector<std::string> all = rows();
    const std::string stored = cached("neighbor_ex/0");
    ASSERT_EQ(5u, all.size());

    // A read costs the port (with everybody behind it), turns a device into a host, or costs a name.
    enum class Costs { Answer, Port, Device, Nobody };
    const std::pair<const char *, Costs> calls[] = {
        {"rpcclt_openapiArpEntryNextGet", Costs::Answer},
        {"rpcclt_openapiIfFirstGet", Costs::Answer},
        {"rpcclt_openapiIfNextGet", Costs::Answer},
        {"rpcclt_openapiLldpIntfRemoteDeviceNextGet", Costs::Answer},
        {"rpcclt_openapiFdbEntryNextGet", Costs::Answer},
        {"rpcclt_openapiDot1qSwPortModeGet", Costs::Port},
        {"rpcclt_openapiHashIntfUnitSlotPortGet", Costs::Port},
        {"openapiIfNameGet", Costs::Port},
        {"openapiVlanIfPvidGet", Costs::Port},
        {"rpcclt_openapiLldpIntfRemoteDeviceChassisIdGet", Costs::Device},
        {"rpcclt_openapiLldpIntfRemoteDevicePortIdGet", Costs::Device},
        {"openapiIfLinkStateGet", Costs::Device},
        {"rpcclt_openapiLldpMgmtStrLenGet", Costs::Nobody},
        {"rpcclt_openapiLldpIntfRemoteDeviceSystemNameGet", Costs::Nobody},
        {"rpcclt_openapiLldpIntfRemoteDeviceMgmtAddressNextGet", Costs::Nobody}};
    const auto fewer = [&](const char *part) {
        std::vector<std::string> left;
        for (const std::string &row : all)
            if (row.find(part) == std::string::npos)
                left.push_back(row);
        return left.size();
    };
    for (const auto &[call, costs] : calls)
        for (std::uint64_t nth = 1;; ++nth) {
            clearFaults();
            failCall(call, nth);
            const std::size_t errors = logged("cannot be read to its end");
            PageSink sink;
            NeighbourTiming timing;
            const std::int32_t code = neighborRowsBuild(&client, sink, timing);
            if (callsSeen() < nth) {
                EXPECT_EQ(0, code);
                ASSERT_LT(1u, nth) << call << " is not made";
                break;
            }
            EXPECT_EQ(costs == Costs::Answer ? 10000 : 0, code) << call << " " << nth;
            EXPECT_EQ(errors + (costs == Costs::Answer ? 1 : 0), logged("cannot be read to its end")) << call;
            if (costs == Costs::Port)
                EXPECT_EQ(fewer((" 0/" + std::to_string(nth)).c_str()), sink.rowCount())
                    << call << " " << nth;
            else if (costs != Costs::Answer)
                EXPECT_EQ(5u, sink.rowCount()) << call << " " << nth;

            // Through the operations, with a switch that is gone: no answer, and the old one is kept.
            for (const open_error_t error : {OPEN_E_FAIL, OPEN_E_RPC}) {
                if (error == OPEN_E_FAIL && costs != Costs::Answer)
                    continue;
                clearFaults();
                failCall(call, nth, true, error);
                EXPECT_EQ(10000, neighborChunksBuild(&client)) << call << " " << nth;
                EXPECT_EQ(stored, cached("neighbor_ex/0"));
                clearFaults();
                failCall(call, nth, true, error);
                char *text = nullptr;
                EXPECT_EQ(10000, neighborPageGet(&client, &text));
                EXPECT_EQ(nullptr, text);
                clearFaults();
                failCall(call, nth, true, error);
                EXPECT_EQ(10000, portVendorDetectBuild(&client, &text));
                EXPECT_EQ(nullptr, text);
            }
        }
    clearFaults();
    EXPECT_EQ(all, rows());
    ASSERT_EQ(0, neighborChunksBuild(&client));
    EXPECT_EQ(stored, cached("neighbor_ex/0"));
}

TEST_F(NeighbourTest, NoMemoryForARow) {
    // Has room for two rows.
    class SmallSink : public RowSink {
        bool take(std::string_view) override {
            if (rowCount() == 2)
                throw std::bad_alloc();
            return true;
        }
    };
    plugCrowd("crowd", 1, "02:00:00:00:00:00", 5);
    SmallSink sink;
    NeighbourTiming timing;
    EXPECT_EQ(10000, neighborRowsBuild(&client, sink, timing));
    EXPECT_EQ(2u, sink.rowCount());
    EXPECT_EQ(ResultCode::Failed, sink.error());
}

TEST_F(NeighbourTest, SwitchWithoutAnArpTableOrGone) {
    vswitch::Device camera = host("camera", 1, "00:11:22:00:00:01");
    camera.ip = "10.0.0.1";
    ASSERT_EQ(OPEN_E_NONE, plug(camera));
    failCall("rpcclt_openapiArpEntryNextGet", 1, false, OPEN_E_UNAVAIL);
    EXPECT_EQ("", page()["rows"][0]["hostIpAddress"]);
    clearFaults();
    EXPECT_EQ("10.0.0.1", page()["rows"][0]["hostIpAddress"]);
    ASSERT_EQ(0, neighborChunksBuild(&client));
    const std::string stored = cached("neighbor_ex/0");
    device->setDown(true);
    EXPECT_EQ(10000, neighborChunksBuild(&client));
    EXPECT_EQ(stored, cached("neighbor_ex/0"));
    device->setDown(false);
    EXPECT_EQ(0, neighborChunksBuild(&client));
}

}  // namespace
