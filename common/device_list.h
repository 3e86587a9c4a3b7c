// The singly linked list in which a detection thread keeps what it has detected, and the record that several
// families share. A list belongs to one thread.
#ifndef PAVO_COMMON_DEVICE_LIST_H
#define PAVO_COMMON_DEVICE_LIST_H

#include <cstddef>
#include <cstdint>
#include <forward_list>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "common/if_num.h"
#include "common/mac.h"
#include "common/vlan_id.h"

namespace pavo {

// Records are equal when they compare so (==). Positions count from 1 at the head.
template <class Record>
class DeviceList {
  public:
    std::size_t count() const { return count_; }
    bool empty() const { return count_ == 0; }

    // Puts the record at the head. False when there is no memory for it.
    [[nodiscard]] bool push(Record record) {
        try {
            records_.push_front(std::move(record));
        } catch (const std::bad_alloc &) {
            return false;
        }
        ++count_;
        return true;
    }

    // The record at position i; null past the end and for 0.
    Record *at(std::size_t i) {
        if (i == 0 || i > count_)
            return nullptr;
        auto record = records_.begin();
        for (; i > 1; --i)
            ++record;
        return &*record;
    }

    // The first record equal to `key`, or null.
    Record *find(const Record &key) {
        for (Record &record : records_)
            if (record == key)
                return &record;
        return nullptr;
    }

    // Takes the first record equal to `key` out of the list.
    std::optional<Record> remove(const Record &key) {
        std::optional<Record> removed;
        removeWhere([&](Record &record) {
            if (removed || !(record == key))
                return false;
            removed = std::move(record);
            return true;
        });
        return removed;
    }

    // Asks isGone(record) once for every record from position 1 on and drops those it says yes to. A record
    // that is pushed on the way is not asked about.
    template <class IsGone>
    void removeWhere(IsGone isGone) {
        auto before = records_.before_begin();
        for (auto record = records_.begin(); record != records_.end(); record = std::next(before)) {
            if (isGone(*record)) {
                records_.erase_after(before);
                --count_;
            } else {
                before = record;
            }
        }
    }

    void clear() {
        records_.clear();
        count_ = 0;
    }

    auto begin() { return records_.begin(); }
    auto end() { return records_.end(); }
    auto begin() const { return records_.begin(); }
    auto end() const { return records_.end(); }

  private:
    std::forward_list<Record> records_;
    std::size_t count_ = 0;
};

class MacClaim;

// 802.1X control mode of a record whose port's mode is not to be restored.
inline constexpr std::uint32_t DEVICE_CONTROL_MODE_NONE = 5;

// One detected device.
struct DetectedDevice {
    IfNum port;                                            // on which it was last seen; IfNum(): not yet
    std::uint32_t type = 0;                                // device class or VLAN type, by family
    std::uint32_t missCount = 0;                           // consecutive scans in which it was not seen
    Mac mac;                                               // spelled as the switch or the device does
    std::uint32_t controlMode = DEVICE_CONTROL_MODE_NONE;  // 802.1X port control mode to restore on leave
    std::optional<VlanId> vlan{};                          // that its address was put into, where known
    std::shared_ptr<MacClaim> claim{};                     // on that, see detection/mac_claims.h

    // MAC address, capitals and all, and port.
    bool operator==(const DetectedDevice &other) const { return mac == other.mac && port == other.port; }
};

}  // namespace pavo

#endif
