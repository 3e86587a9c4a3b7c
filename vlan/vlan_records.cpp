#include "vlan/vlan_records.h"

namespace pavo {
namespace {

template <class Record>
void freeWithArrays(Record *record) {
    if (record == nullptr)
        return;
    for (cJSON **const array : vlanPortArrays(*record))
        cJSON_Delete(*array);
    delete record;
}

template <class Record>
void freeList(VlanRecordList<Record> *list) {
    if (list == nullptr)
        return;
    for (std::uint32_t i = 0; i < list->count; ++i)
        VlanRecordDeleter{}(list->ids[i]);
    delete list;
}

}  // namespace

void VlanRecordDeleter::operator()(VLAN_PORT_ASS_T *ports) const {
    freeWithArrays(ports);
}

void vlanAllInfoFree(VLAN_INFO_T *info) {
    freeWithArrays(info);
}

void vlanListPortAssFree(VLAN_PORT_LIST_T *list) {
    freeList(list);
}

void vlanListInfoFreeEX(VLAN_INFOX_LIST_T *list) {
    freeList(list);
}

void vlanListProfileFreeEX(VLAN_PROFILE_LIST_T *list) {
    freeList(list);
}

}  // namespace pavo
