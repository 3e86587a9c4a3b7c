#include "vlan/vlan_members.h"

#include <new>
#include <utility>

#include "common/log.h"
#include "swapi/vlan_membership.h"

namespace pavo {
namespace {

Result<std::uint32_t> readMaxMembers(Switch sw, const Where &where) {
    const auto max = sw.lagMaxMembers();
    if (max)
        return *max;
    logError(where, "[%s:%d] Failed to get the member limit of the LAG interfaces, result= %d\r\n",
             max.error());
    return failed(ResultCode::Failed, "the switch does not tell the size of LAGs");
}

Result<std::vector<IfNum>> readMembers(Switch sw, IfNum lag, std::uint32_t max, const Where &where) {
    try {
        auto members = sw.lagMembers(lag, max);
        if (members)
            return std::move(*members);
        logError(where, "[%s:%d] Failed to get the member ports for the LAG interface= %d, result= %d\r\n",
                 static_cast<int>(lag.number()), members.error());
        return failed(ResultCode::Failed, "the switch does not tell the members of a LAG");
    } catch (const std::bad_alloc &) {
        logError(where, "[%s:%d] Failed to allocate memory\r\n");
        return failed(ResultCode::InvalidPointer);
    }
}

std::unexpected<Failure> reportUnread(const std::string &what, OpenError code, const Where &where) {
    const auto reason = what + " cannot be read";
    logError(where, "[%s:%d] VLAN members: %s (result = %d)\n", reason, code);
    return failed(ResultCode::Failed, reason);
}

// Reads the membership of all interfaces of a kind into `vlans`, or fails.
class WholeReader {
  public:
    WholeReader(Switch sw, EmptyLags emptyLags, std::map<VlanId, VlanMembers> &vlans, const Where &where)
        : sw_(sw), emptyLags_(emptyLags), vlans_(vlans), where_(where) {}

    Result<> readPorts() {
        auto ports = sw_.ports();
        for (const IfNum port : ports)
            if (auto read = place(port, port, &VlanMembers::untaggedPorts, &VlanMembers::taggedPorts, true);
                !read)
                return read;
        if (const auto broken = ports.brokenBy())
            return reportUnread("the list of ports", *broken, where_);
        return {};
    }

    Result<> readLags() {
        auto lags = sw_.lags();
        std::optional<LagNumbering> numbering;
        OpenResult<std::uint32_t> max = 0;
        for (const IfNum lag : lags) {
            if (!numbering) {
                numbering = LagNumbering{lag};
                max = sw_.lagMaxMembers();
            }
            const auto members = max ? sw_.lagMembers(lag, *max) : std::unexpected(max.error());
            if (!members)
                return reportUnread("the list of LAG members", members.error(), where_);
            if (members->empty() && emptyLags_ == EmptyLags::Nowhere)
                continue;
            if (auto read = place(lag, numbering->numberOf(lag), &VlanMembers::untaggedLags,
                                  &VlanMembers::taggedLags, !members->empty());
                !read)
                return read;
        }
        if (const auto broken = lags.brokenBy())
            return reportUnread("the list of LAGs", *broken, where_);
        return {};
    }

  private:
    template <class Number>
    Result<> place(IfNum ifNum, Number number, std::vector<Number> VlanMembers::*untagged,
                   std::vector<Number> VlanMembers::*tagged, bool isUsed) {
        const auto what = "the VLANs of interface " + std::to_string(ifNum.number());
        const auto pvid = sw_.pvidNumber(ifNum);
        if (!pvid)
            return reportUnread(what, pvid.error(), where_);
        const auto ids = sw_.taggedVlans(ifNum);
        if (!ids)
            return reportUnread(what, ids.error(), where_);
        if (const auto id = VlanId::from(*pvid); id && (isUsed || id != kDefaultVlan))
            if (const auto vlan = vlans_.find(*id); vlan != vlans_.end())
                (vlan->second.*untagged).push_back(number);
        for (const VlanId id : *ids)
            if (const auto vlan = vlans_.find(id); vlan != vlans_.end())
                (vlan->second.*tagged).push_back(number);
        return {};
    }

    Switch sw_;
    EmptyLags emptyLags_;
    std::map<VlanId, VlanMembers> &vlans_;
    Where where_;
};

}  // namespace

void MemberCollector::addSlot(std::optional<VlanId> id) {
    if (id)
        slotByVlan_[id->number()] = slots_.size();
    slots_.emplace_back();
}

VlanMembers *MemberCollector::slotOf(VlanId id) {
    const auto at = slotByVlan_[id.number()];
    if (at)
        return &slots_[*at];
    return strays_ == Strays::InFirstSlot && !slots_.empty() ? &slots_.front() : nullptr;
}

template <class Number>
void MemberCollector::place(Switch sw, IfNum ifNum, Number number, std::vector<Number> VlanMembers::*tagged,
                            std::vector<Number> VlanMembers::*untagged, const Where &where) {
    if (const auto ids = readTaggedVlans(sw, ifNum, where))
        for (const VlanId id : *ids)
            if (VlanMembers *const slot = slotOf(id))
                (slot->*tagged).push_back(number);
    if (const auto pvid = readPvid(sw, ifNum, where))
        if (VlanMembers *const slot = slotOf(*pvid))
            (slot->*untagged).push_back(number);
}

void MemberCollector::collectPorts(Switch sw, Where where) {
    for (const IfNum port : sw.ports())
        place(sw, port, port, &VlanMembers::taggedPorts, &VlanMembers::untaggedPorts, where);
}

void MemberCollector::collectLags(Switch sw, LagNumbering numbering, Where where) {
    const auto max = readMaxMembers(sw, where);
    if (!max)
        return;
    for (const IfNum lag : sw.lags())
        if (const auto members = readMembers(sw, lag, *max, where); members && !members->empty())
            place(sw, lag, numbering.numberOf(lag), &VlanMembers::taggedLags, &VlanMembers::untaggedLags,
                  where);
}

Result<> readAllMembers(Switch sw, EmptyLags emptyLags, std::map<VlanId, VlanMembers> &vlans, Where where) {
    WholeReader reader(sw, emptyLags, vlans, where);
    if (auto read = reader.readPorts(); !read)
        return read;
    return reader.readLags();
}

Result<LagNumbering> readLagNumbering(Switch sw, Where where) {
    const auto numbering = sw.lagNumbering();
    if (numbering)
        return *numbering;
    logError(where, "[%s:%d] Failed to get the first LAG interface, result= %d\r\n", numbering.error());
    return failed(ResultCode::Failed, "there is no LAG interface");
}

Result<std::vector<IfNum>> readLagMembers(Switch sw, IfNum lag, Where where) {
    const auto max = readMaxMembers(sw, where);
    return max ? readMembers(sw, lag, *max, where) : std::unexpected(max.error());
}

}  // namespace pavo
