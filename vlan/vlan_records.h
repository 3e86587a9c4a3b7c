// Inside vlan/: making and owning records, and what several builders read alike.
#ifndef PAVO_VLAN_VLAN_RECORDS_H
#define PAVO_VLAN_VLAN_RECORDS_H

#include <array>
#include <cstdio>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"
#include "swapi/cli_apply.h"
#include "vlan/vlan_info.h"

struct VlanRecordDeleter {
    void operator()(VLAN_INFO_T *info) const { vlanAllInfoFree(info); }
    void operator()(VLAN_PORT_ASS_T *record) const;
    void operator()(VLAN_PROFILE_INFO_T *profile) const { delete profile; }
    void operator()(VLAN_INFOX_LIST_T *list) const { vlanListInfoFreeEX(list); }
    void operator()(VLAN_PORT_LIST_T *list) const { vlanListPortAssFree(list); }
    void operator()(VLAN_PROFILE_LIST_T *list) const { vlanListProfileFreeEX(list); }
};
template <class Record>
using VlanRecordPtr = std::unique_ptr<Record, VlanRecordDeleter>;

// A zeroed record or list; null when memory runs out.
template <class Record>
VlanRecordPtr<Record> vlanRecordCreate() {
    return VlanRecordPtr<Record>(new (std::nothrow) Record());
}

// The six arrays of a VLAN_PORT_ASS_T or VLAN_INFO_T, in their order.
template <class Record>
std::array<cJSON **, 6> vlanPortArrays(Record &record) {
    return {&record.tagPorts,  &record.untagPorts,       &record.tagLags,
            &record.untagLags, &record.shureDevicePorts, &record.shureLearnPorts};
}

// The same as vlanRecordCreate, with the six arrays empty.
template <class Record>
VlanRecordPtr<Record> vlanRecordCreateWithArrays() {
    auto record = vlanRecordCreate<Record>();
    if (record != nullptr)
        for (cJSON **const array : vlanPortArrays(*record))
            if ((*array = cJSON_CreateArray()) == nullptr)
                return nullptr;
    return record;
}

// Appends a record; a list that is full keeps it out.
template <class Record>
bool vlanListAppend(VlanRecordList<Record> &list, std::uint32_t vlanId, VlanRecordPtr<Record> record) {
    if (list.count == VLAN_TABLE_SIZE)
        return false;
    record->vlanId = vlanId;
    if (vlanId < VLAN_TABLE_SIZE)
        list.position[vlanId] = list.count;
    list.ids[list.count++] = record.release();
    return true;
}

// The record that stands for a VLAN id, in the list or not; null in an empty list.
template <class Record>
Record *vlanListAt(const VlanRecordList<Record> &list, std::uint32_t vlanId) {
    return vlanId < VLAN_TABLE_SIZE ? list.ids[list.position[vlanId]] : nullptr;
}

// visit(vlanId) for every VLAN on the switch, ascending, until it returns false. Ends also when the switch
// does not advance.
template <class Visit>
void vlanForEach(openapiClientHandle_t *client, Visit visit) {
    std::uint32_t id = 0;
    std::uint32_t next = 0;
    while (rpcclt_openapiVlanNextGet(client, id, &next) == OPEN_E_NONE && next > id &&
           next < VLAN_TABLE_SIZE) {
        id = next;
        if (!visit(id))
            return;
    }
}

// Captures a show command into a file and hands its lines, in pieces of at most 511 characters, to
// visit(line) until that returns false. The file is deleted. 0, or 10016.
inline constexpr std::size_t VLAN_SHOW_LINE_SIZE = 512;
template <class Visit>
std::int32_t showLineForEach(openapiClientHandle_t *client, const char *command, const char *path,
                             Visit visit) {
    if (cliShowExecuteToFile(client, command, path) != RESULT_SUCCESS)
        fileRemove(path);  // what a failed capture leaves behind is no answer
    FilePtr file = fileOpen(path, "r");
    if (file == nullptr) {
        LOG_ERROR("[%s:%d] Can not open file:%s\r\n", path);
        fileRemove(path);
        return RESULT_OPEN_FAILED;
    }
    char line[VLAN_SHOW_LINE_SIZE];
    while (std::fgets(line, sizeof line, file.get()) != nullptr && visit(static_cast<const char *>(line))) {
    }
    file.reset();
    fileRemove(path);
    return RESULT_SUCCESS;
}

template <std::size_t N>
void textCopy(char (&dst)[N], const std::string &src) {
    std::snprintf(dst, N, "%s", src.c_str());
}

// Appends a number; false (logged) when memory runs out.
bool jsonNumberAppend(cJSON *array, double number);

// "ptpTc" of the VLAN's settings file: nothing when the file or the key is missing.
std::optional<bool> vlanSettingsPtpTc(std::uint32_t vlanId);

// The templates of profile names, each loaded once.
class TemplateCache {
  public:
    explicit TemplateCache(std::size_t namesMax = SIZE_MAX) : namesMax_(namesMax) {}

    // Null when there is no template, and for a new name when the cache holds as many as it may.
    const cJSON *find(const char *profileName);

  private:
    std::size_t namesMax_;
    std::map<std::string, JsonPtr, std::less<>> templates_;
};

// Fills the Shure arrays of a record whose profile type is 2 or 3.
std::int32_t vlanShureArraysGet(openapiClientHandle_t *client, VLAN_INFO_T *info);

#endif
