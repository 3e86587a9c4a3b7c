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
