// The singly linked list in which a detection thread keeps what it has detected, and the record that several
// families share. A list belongs to one thread.
#ifndef PAVO_COMMON_DEVICE_LIST_H
#define PAVO_COMMON_DEVICE_LIST_H

#include <cstddef>
#include <cstdint>

struct DeviceListNode {
    void *data;
    DeviceListNode *next;
};

// Records are plain pointers so that one list serves every family; the three functions know their type.
struct DeviceList {
    using FreeFn = void (*)(void *record);
    using PrintFn = void (*)(const void *record);
    using CompareFn = int (*)(const void *a, const void *b);  // 0 when equal

    std::size_t count = 0;
    DeviceListNode *head = nullptr;
    DeviceListNode *tail = nullptr;
    FreeFn freeRecord = nullptr;
    PrintFn printRecord = nullptr;
    CompareFn compare = nullptr;

    // Where the last deviceListGet stopped: walking positions 1, 2, 3, ... costs one step each.
    mutable std::size_t cursorPosition = 0;
    mutable DeviceListNode *cursor = nullptr;
    mutable DeviceListNode *cursorBefore = nullptr;
};

// Makes `list` empty with these functions. Whatever it held before is not freed.
void deviceListInit(DeviceList *list, DeviceList::FreeFn freeRecord, DeviceList::PrintFn printRecord,
                    DeviceList::CompareFn compare);

// Puts `record` at the head; the list owns it from then on. 0, or -1 when the node cannot be allocated.
int deviceListPush(DeviceList *list, void *record);

// The record at position i, counted from 1 at the head; null past the end (and for 0).
void *deviceListGet(const DeviceList *list, std::size_t i);

// The first record equal to `key`, or null.
void *deviceListFind(const DeviceList *list, const void *key);

// Unlinks the first record equal to `key` and returns it: the caller's to free. Null when there is none.
void *deviceListRemove(DeviceList *list, const void *key);

// Unlinks the record at position i and returns it: the caller's to free. Null past the end.
void *deviceListRemoveAt(DeviceList *list, std::size_t i);

// Frees every record and node; the list is empty afterwards and keeps its functions.
void deviceListTearDown(DeviceList *list);

// 802.1X control mode of a record whose port's mode is not to be restored.
inline constexpr std::uint32_t DEVICE_CONTROL_MODE_NONE = 5;

struct DetectedDevice {
    std::uint32_t port;         // ifNum on which the device was last seen
    std::uint32_t type;         // device class or VLAN type, by family
    std::uint32_t missCount;    // consecutive scans in which it was not seen
    char mac[20];               // colon-separated hexadecimal, at most 18 characters copied
    std::uint32_t controlMode;  // 802.1X port control mode to restore on leave; 5: none
};

// 0 when MAC text (case-sensitive) and port are equal; for DeviceList::compare.
int detectedDeviceCompare(const void *a, const void *b);
// For DeviceList::freeRecord of lists whose records come from `new DetectedDevice`.
void detectedDeviceFree(void *record);
// For DeviceList::printRecord: one DEBUG line.
void detectedDevicePrint(const void *record);

#endif
