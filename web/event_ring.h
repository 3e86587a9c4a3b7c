// What pavo_webd tells browsers, as server-sent events:
//
//     id: 3f9c01aa-17
//     event: link
//     data: {"ifNum":5,"old":"down","new":"up"}
//
// The last kEventsKept events are kept for those who come back: an id is that of the program's run and a number,
// so one of an earlier run is known to be older than all that is kept. Who has missed events is told so (event
// "missed", without an id of its own) and goes on with what comes next.
#ifndef PAVO_WEB_EVENT_RING_H
#define PAVO_WEB_EVENT_RING_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/if_num.h"
#include "common/result.h"
#include "store/device_states.h"

namespace pavo {

enum class EventKind { Answer, Device, Link };

struct Event {
    EventKind kind;
    std::string name;  // of the answer; empty for the others
    std::string data;  // JSON in one line
};

// Which events a client wants, from the query of its request: "events=device,link&answers=vlan_list".
struct EventFilter {
    std::set<EventKind> kinds{EventKind::Answer, EventKind::Device, EventKind::Link};
    std::set<std::string> answers{};  // empty: all

    bool takes(const Event &event) const;
    // InvalidArgument for a kind or an answer that does not exist.
    static Result<EventFilter> parse(const std::map<std::string, std::string> &query);
};

Event answerEvent(const std::string &name);

// What has happened between two reports of the daemon. A device is known by family and address.
std::vector<Event> deviceEvents(std::span<const DeviceState> before, std::span<const DeviceState> now);

// What has happened between two looks at the links of ports; a port that one of them does not have has not
// changed.
std::vector<Event> linkEvents(const std::map<IfNum, bool> &before, const std::map<IfNum, bool> &now);

// Any thread may call.
class EventRing {
  public:
    static constexpr std::size_t kEventsKept = 1024;
    static constexpr std::size_t kBytesKept = 1 << 20;  // fewer are kept when they are long

    explicit EventRing(std::string run) : run_(std::move(run)) {}

    void add(Event event);

    // Of the event that comes next.
    std::uint64_t next() const;
    // Where a client goes on that has received the event of this id; nothing when it has missed some, or the
    // text is no id.
    std::optional<std::uint64_t> resume(std::string_view id) const;

    struct Text {
        std::string text;  // as it goes out
        bool missed;       // events before it are not kept any more
    };
    // The events from `cursor` on, which moves behind them: at least one if there is one that the filter takes,
    // and not many more than `most` bytes.
    Text read(std::uint64_t &cursor, const EventFilter &filter, std::size_t most) const;

    // The first block of a stream: how soon to come back, and from where.
    std::string greeting(std::uint64_t cursor) const;

    // "event: missed", whole.
    static std::string missed();

  private:
    std::string idOf(std::uint64_t number) const { return run_ + "-" + std::to_string(number); }

    mutable std::mutex mutex_;
    std::string run_;
    std::deque<Event> events_;
    std::uint64_t first_ = 1;  // number of events_[0]
    std::size_t bytes_ = 0;
};

}  // namespace pavo

#endif
