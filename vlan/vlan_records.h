// Inside vlan/: making and owning the records of vlan/vlan_info_ops.h.
#ifndef PAVO_VLAN_VLAN_RECORDS_H
#define PAVO_VLAN_VLAN_RECORDS_H

#include <array>
#include <cstdint>
#include <memory>
#include <new>

#include "vlan/vlan_info_ops.h"

namespace pavo {

struct VlanRecordDeleter {
    void operator()(VLAN_INFO_T *info) const { vlanAllInfoFree(info); }
    void operator()(VLAN_PORT_ASS_T *ports) const;
    void operator()(VLAN_PROFILE_INFO_T *profile) const { delete profile; }
    void operator()(VLAN_INFOX_LIST_T *list) const { vlanListInfoFreeEX(list); }
    void operator()(VLAN_PORT_LIST_T *list) const { vlanListPortAssFree(list); }
    void operator()(VLAN_PROFILE_LIST_T *list) const { vlanListProfileFreeEX(list); }
};
template <class Record>
using VlanRecordPtr = std::unique_ptr<Record, VlanRecordDeleter>;

// A zeroed record or list; null when memory runs out.
template <class Record>
VlanRecordPtr<Record> makeRecord() {
    return VlanRecordPtr<Record>(new (std::nothrow) Record());
}

// The six arrays of a VLAN_PORT_ASS_T or VLAN_INFO_T, in their order.
template <class Record>
std::array<cJSON **, 6> vlanPortArrays(Record &record) {
    return {&record.tagPorts,  &record.untagPorts,       &record.tagLags,
            &record.untagLags, &record.shureDevicePorts, &record.shureLearnPorts};
}

// The same as makeRecord, with the six arrays empty.
template <class Record>
VlanRecordPtr<Record> makeRecordWithArrays() {
    auto record = makeRecord<Record>();
    if (record == nullptr)
        return nullptr;
    for (cJSON **const array : vlanPortArrays(*record)) {
        *array = cJSON_CreateArray();
        if (*array == nullptr)
            return nullptr;
    }
    return record;
}

// Appends a record and answers where it now is; null for no record and when the list is full.
template <class Record>
Record *appendRecord(VlanRecordList<Record> &list, std::uint32_t vlanId, VlanRecordPtr<Record> record) {
    if (record == nullptr || list.count == VLAN_TABLE_SIZE)
        return nullptr;
    record->vlanId = vlanId;
    if (vlanId < VLAN_TABLE_SIZE)
        list.position[vlanId] = list.count;
    return list.ids[list.count++] = record.release();
}

}  // namespace pavo

#endif
