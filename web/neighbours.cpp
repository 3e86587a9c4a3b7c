#include "web/neighbours.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <type_traits>
#include <utility>

#include "common/json.h"
#include "common/log.h"
#include "store/recognition.h"

namespace pavo {
namespace {

// For the strings of neighbours when the switch does not say what they need.
constexpr std::uint32_t kTextSizeDefault = 256;
constexpr std::size_t kNumberSize = 10;

// A row as it is printed, in place: it consists of many short strings.
class RowWriter {
  public:
    void add(std::string_view text) {
        if (text.size() > static_cast<std::size_t>(std::end(text_) - end_))
            isTooLong_ = true;
        else
            end_ = std::ranges::copy(text, end_).out;
    }
    void add(std::string_view key, std::uint32_t number) {
        char digits[kNumberSize];
        add(key);
        add({digits, std::to_chars(digits, digits + sizeof digits, number).ptr});
    }
    void add(std::string_view key, std::string_view value) {
        add(key);
        if (isPlainInJson(value))
            return add(value);
        std::string escaped;
        appendEscaped(escaped, value);
        add(escaped);
    }

    bool isTooLong() const { return isTooLong_; }
    std::string_view text() const { return {text_, end_}; }

  private:
    char text_[kNeighbourRowMax];
    char *end_ = text_;
    bool isTooLong_ = false;
};

std::string inSmallLetters(std::string_view text) {
    std::string out(text);
    std::ranges::transform(
        out, out.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return out;
}

// Reads of one run: whether a table was read to its end, and whether the switch was there all the time.
class Reader {
  public:
    Reader(Switch sw, const Where &where) : switch_(sw), where_(where) {}

    // A read that may fail.
    template <class T>
    std::optional<T> take(OpenResult<T> read) {
        if (read)
            return std::move(*read);
        if (read.error() == OpenError::Unreachable)
            lost_ = true;
        return std::nullopt;
    }

    // visit(entry) for a table, until it fails if it can; Failed also when the table breaks off.
    template <class Table, class Visit>
    Result<> walk(Table table, const char *name, Visit visit) {
        for (const auto &entry : table) {
            if constexpr (std::is_void_v<decltype(visit(entry))>)
                visit(entry);
            else if (Result<> visited = visit(entry); !visited)
                return visited;
            if (lost_)
                return stop(name, OPEN_E_RPC);
        }
        if (const auto broken = table.brokenBy(); broken && *broken != OpenError::Unavailable)
            return stop(name, static_cast<open_error_t>(*broken));
        return {};
    }

    Switch device() const { return switch_; }

  private:
    Result<> stop(const char *name, open_error_t code) {
        logError(where_, "[%s:%d] The %s cannot be read to its end. (result = %d)\n", name, code);
        return failed(ResultCode::Failed, std::string("the switch's ") + name + " cannot be read");
    }

    Switch switch_;
    Where where_;
    bool lost_ = false;
};

std::optional<NeighbourPort> readPort(Reader &reader, IfNum ifNum) {
    const Switch sw = reader.device();
    const auto mode = reader.take(sw.switchportMode(ifNum));
    const auto place = reader.take(sw.unitSlotPort(ifNum));
    auto name = reader.take(sw.interfaceName(ifNum));
    const auto pvid = reader.take(sw.pvidNumber(ifNum));
    const auto link = reader.take(sw.hasLink(ifNum));
    if (!mode || !place || !name || !pvid)
        return std::nullopt;
    return NeighbourPort{link.value_or(false), *mode, *place, std::move(*name), *pvid};
}

std::optional<LldpDevice> readDevice(Reader &reader, const NeighbourKey &key, std::uint32_t size) {
    const Switch sw = reader.device();
    auto chassis = reader.take(sw.neighbourId(key, NeighbourField::ChassisId, size));
    auto portId = reader.take(sw.neighbourId(key, NeighbourField::PortId, size));
    auto name = reader.take(sw.neighbourText(key, NeighbourField::SystemName, size));
    auto address = reader.take(sw.managementAddress(key, size));
    // Every device announces these two.
    if (!chassis || !portId)
        return std::nullopt;
    return LldpDevice{std::move(*chassis), std::move(*portId), std::move(name).value_or(""),
                      std::move(address).value_or("")};
}

using Visit = std::function<void(const NeighbourLine &)>;

Result<> readArp(Reader &reader, NeighbourJoin &join) {
    return reader.walk(reader.device().arpTable(), "ARP table",
                       [&](const ArpEntry &entry) { join.addArp(entry.mac, entry.ip); });
}

Result<> readPorts(Reader &reader, NeighbourJoin &join) {
    return reader.walk(reader.device().ports(), "list of ports", [&](IfNum ifNum) {
        if (ifNum.number() >= kNeighbourPorts || join.knowsPort(ifNum))
            return;
        if (auto port = readPort(reader, ifNum))
            join.addPort(ifNum, std::move(*port));
    });
}

Result<> readDevices(Reader &reader, NeighbourJoin &join, const Visit &visit) {
    const std::uint32_t size = reader.take(reader.device().lldpTextSize()).value_or(kTextSizeDefault);
    return reader.walk(reader.device().ports(), "list of ports", [&](IfNum ifNum) {
        const NeighbourPort *const port = join.port(ifNum);
        if (port == nullptr || !port->hasLink)
            return Result<>{};
        return reader.walk(reader.device().neighbours(ifNum), "list of LLDP neighbours",
                           [&](const NeighbourKey &key) {
                               if (const auto device = readDevice(reader, key, size))
                                   visit(join.lineOf(ifNum, *device));
                           });
    });
}

Result<> readHosts(Reader &reader, NeighbourJoin &join, const Visit &visit, const Where &where,
                   std::size_t &count) {
    return reader.walk(reader.device().forwardingTable(where), "forwarding table",
                       [&](const FdbEntry &entry) {
                           ++count;
                           const ForwardingEntry host{entry.port, entry.learned,
                                                      entry.vlan ? entry.vlan->number() : 0, entry.mac};
                           if (const auto line = join.lineOf(host))
                               visit(*line);
                       });
}

}  // namespace

std::string_view LldpDevice::macText() const {
    if (chassis.subtype == NeighbourId::kChassisMac)
        return chassis.text;
    return portId.subtype == NeighbourId::kPortMac ? std::string_view(portId.text) : "";
}

NeighbourJoin::Known &NeighbourJoin::known(std::string_view mac) {
    mac = mac.substr(0, Mac::kTextSize);
    const auto address = Mac::parse(mac);
    return address ? addresses_[address->bits()] : others_[inSmallLetters(mac)];
}

void NeighbourJoin::addArp(std::string_view mac, Ipv4 ip) {
    known(mac).ip = ip;
    ++arpCount_;
}

void NeighbourJoin::addPort(IfNum ifNum, NeighbourPort port) {
    if (ifNum.number() < ports_.size() && !ports_[ifNum.number()])
        ports_[ifNum.number()] = std::move(port);
}

const NeighbourPort *NeighbourJoin::port(IfNum ifNum) const {
    if (ifNum.number() >= ports_.size())
        return nullptr;
    const auto &known = ports_[ifNum.number()];
    return known ? &*known : nullptr;
}

std::string_view NeighbourJoin::ipOf(const Known &known) {
    ipText_ = known.ip ? known.ip->text() : "";
    return ipText_;
}

std::string_view NeighbourJoin::vendorOf(std::string_view mac) {
    if (const auto prefix = mac.substr(0, OUI_PREFIX_LENGTH); prefix != lastPrefix_) {
        lastPrefix_ = prefix;
        lastVendor_ = vendors_.vendorOf(mac);
    }
    return lastVendor_;
}

NeighbourLine NeighbourJoin::lineOf(IfNum ifNum, const LldpDevice &device) {
    const std::string_view mac = device.macText();
    ++deviceCount_;
    NeighbourLine line{ifNum, port(ifNum)};
    line.vlan = line.port->pvid;
    line.hostName = device.systemName.empty() ? vendorOf(mac) : device.systemName;
    line.ip = device.managementAddress;
    if (!mac.empty()) {
        Known &own = known(mac);
        own.isDevice = true;
        if (line.ip.empty() && mac.size() <= Mac::kTextSize)
            line.ip = ipOf(own);
    }
    line.mac = mac;
    line.remotePortId = device.portId.text;
    return line;
}

std::optional<NeighbourLine> NeighbourJoin::lineOf(const ForwardingEntry &entry) {
    const NeighbourPort *const found = port(entry.interface);
    if (!entry.learned || found == nullptr || found->mode == SwitchportMode::Trunk)
        return std::nullopt;
    const auto own = addresses_.find(entry.mac.bits());
    if (own != addresses_.end() && own->second.isDevice)
        return std::nullopt;
    entry.mac.writeText(macText_);
    NeighbourLine line{entry.interface, found, NeighbourSource::ForwardingTable, entry.vlan};
    line.mac = {macText_, sizeof macText_};
    line.hostName = vendorOf(line.mac);
    if (own != addresses_.end())
        line.ip = ipOf(own->second);
    return line;
}

std::string portText(const UnitSlotPort &place) {
    return (place.slot != 0 ? std::to_string(place.slot) + "/" : "") + std::to_string(place.port);
}

bool printNeighbourRow(const NeighbourLine &neighbour, std::string &row) {
    const UnitSlotPort &place = neighbour.port->place;
    const bool isDevice = neighbour.source == NeighbourSource::Lldp;
    RowWriter out;
    out.add("{\"port\":\"");
    out.add(portText(place));
    out.add("\",\"portNum\":", place.port);
    out.add(",\"portName\":\"", neighbour.port->name);
    out.add("\",\"unit\":", place.unit);
    if (isDevice) {
        out.add(",\"vlanId\":", neighbour.vlan);
        out.add(",\"hostName\":\"", neighbour.hostName);
        out.add("\"");
    } else {
        out.add(",\"hostName\":\"", neighbour.hostName);
        out.add("\",\"vlanId\":", neighbour.vlan);
    }
    out.add(",\"hostIpAddress\":\"", neighbour.ip);
    out.add("\",\"hostMacAddress\":\"", neighbour.mac);
    out.add("\",\"remotePortId\":\"", neighbour.remotePortId);
    out.add(isDevice ? "\",\"source\":\"lldp\"}" : "\",\"source\":\"arp\"}");
    row = out.text();
    return !out.isTooLong();
}

Result<> readNeighbours(Switch sw, const VendorTable &vendors, const Visit &visit, NeighbourTiming &timing,
                        Where where) {
    Reader reader(sw, where);
    NeighbourJoin join(vendors);
    const auto phase = [](platform::Duration &took, auto read) {
        const platform::Duration begin = platform::monotonicNow();
        Result<> result = read();
        took = platform::monotonicNow() - begin;
        return result;
    };
    timing = {};
    Result<> result = phase(timing.arp, [&] { return readArp(reader, join); });
    if (result)
        result = phase(timing.portTable, [&] { return readPorts(reader, join); });
    if (result)
        result = phase(timing.lldp, [&] { return readDevices(reader, join, visit); });
    if (result)
        result = phase(timing.forwardingTable,
                       [&] { return readHosts(reader, join, visit, where, timing.forwardingTableCount); });
    timing.arpCount = join.arpCount();
    timing.lldpCount = join.deviceCount();
    return result;
}

Result<std::vector<PortVendors>> readPortVendors(Switch sw, const VendorTable &vendors, Where where) {
    std::map<IfNum, PortVendors> ports;
    NeighbourTiming timing;
    const auto add = [&](const NeighbourLine &line) {
        auto &port = ports.try_emplace(line.interface, PortVendors{line.interface, *line.port}).first->second;
        ++port.devices;
        if (const std::string_view vendor = vendors.vendorOf(line.mac); !vendor.empty())
            ++port.vendors.try_emplace(std::string(vendor)).first->second;
    };
    if (auto read = readNeighbours(sw, vendors, add, timing, where); !read)
        return std::unexpected(std::move(read).error());
    for (const auto &[ifNum, vendor] : readRecognition(where))
        if (const auto port = ports.find(ifNum); port != ports.end())
            port->second.recognised.insert(vendor);
    std::vector<PortVendors> all;
    all.reserve(ports.size());
    for (auto &[ifNum, port] : ports)
        all.push_back(std::move(port));
    return all;
}

}  // namespace pavo
