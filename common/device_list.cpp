#include "common/device_list.h"

#include <cstring>
#include <new>

#include "common/log.h"

namespace {

void cursorReset(const DeviceList *list) {
    list->cursorPosition = 0;
    list->cursor = list->cursorBefore = nullptr;
}

// Puts the cursor on position i, 1 to count; only a step backwards starts again at the head.
void cursorSeek(const DeviceList *list, std::size_t i) {
    if (list->cursorPosition == 0 || i < list->cursorPosition) {
        list->cursorPosition = 1;
        list->cursor = list->head;
        list->cursorBefore = nullptr;
    }
    for (; list->cursorPosition < i; ++list->cursorPosition) {
        list->cursorBefore = list->cursor;
        list->cursor = list->cursor->next;
    }
}

// Unlinks the node under the cursor. The cursor stays at its position, on the node that moves up, so that a
// walk which removes on its way goes on from there.
void *cursorUnlink(DeviceList *list) {
    DeviceListNode *const node = list->cursor;
    DeviceListNode *const before = list->cursorBefore;
    (before != nullptr ? before->next : list->head) = node->next;
    if (list->tail == node)
        list->tail = before;
    list->cursor = node->next;
    if (list->cursor == nullptr)
        cursorReset(list);
    --list->count;

    void *const record = node->data;
    delete node;
    return record;
}

// Position of the first record equal to `key`; 0 when there is none.
std::size_t positionOf(const DeviceList *list, const void *key) {
    std::size_t position = 1;
    for (const DeviceListNode *node = list->head; node != nullptr; node = node->next, ++position)
        if (list->compare(node->data, key) == 0)
            return position;
    return 0;
}

}  // namespace

void deviceListInit(DeviceList *list, DeviceList::FreeFn freeRecord, DeviceList::PrintFn printRecord,
                    DeviceList::CompareFn compare) {
    *list = DeviceList{};
    list->freeRecord = freeRecord;
    list->printRecord = printRecord;
    list->compare = compare;
}

int deviceListPush(DeviceList *list, void *record) {
    auto *const node = new (std::nothrow) DeviceListNode{record, list->head};
    if (node == nullptr)
        return -1;
    if (list->cursorPosition != 0) {
        if (list->cursorPosition == 1)
            list->cursorBefore = node;
        ++list->cursorPosition;
    }
    list->head = node;
    if (list->tail == nullptr)
        list->tail = node;
    ++list->count;
    return 0;
}

void *deviceListGet(const DeviceList *list, std::size_t i) {
    if (i == 0 || i > list->count)
        return nullptr;
    cursorSeek(list, i);
    return list->cursor->data;
}

void *deviceListFind(const DeviceList *list, const void *key) {
    return deviceListGet(list, positionOf(list, key));
}

void *deviceListRemove(DeviceList *list, const void *key) {
    return deviceListRemoveAt(list, positionOf(list, key));
}

void *deviceListRemoveAt(DeviceList *list, std::size_t i) {
    if (i == 0 || i > list->count)
        return nullptr;
    cursorSeek(list, i);
    return cursorUnlink(list);
}

void deviceListTearDown(DeviceList *list) {
    for (DeviceListNode *node = list->head; node != nullptr;) {
        DeviceListNode *const next = node->next;
        list->freeRecord(node->data);
        delete node;
        node = next;
    }
    deviceListInit(list, list->freeRecord, list->printRecord, list->compare);
}

int detectedDeviceCompare(const void *a, const void *b) {
    const auto *const left = static_cast<const DetectedDevice *>(a);
    const auto *const right = static_cast<const DetectedDevice *>(b);
    const int byMac = std::strncmp(left->mac, right->mac, sizeof left->mac);
    return byMac != 0 ? byMac : (left->port > right->port) - (left->port < right->port);
}

void detectedDeviceFree(void *record) {
    delete static_cast<DetectedDevice *>(record);
}

void detectedDevicePrint(const void *record) {
    const auto *const device = static_cast<const DetectedDevice *>(record);
    LOG_TRACE("[%s:%d] port=%u type=%u missCount=%u mac=%.20s controlMode=%u\n", device->port, device->type,
              device->missCount, device->mac, device->controlMode);
}
