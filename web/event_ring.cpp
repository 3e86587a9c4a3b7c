#include "web/event_ring.h"

#include <algorithm>
#include <array>
#include <utility>

#include "common/text.h"
#include "store/writeback.h"
#include "web/answer_node.h"

namespace pavo {
namespace {

struct KindWord {
    EventKind kind;
    const char *word;
};
constexpr std::array kKinds = {KindWord{EventKind::Answer, "answer"}, KindWord{EventKind::Device, "device"},
                               KindWord{EventKind::Link, "link"}};

const char *wordOf(EventKind kind) {
    return std::ranges::find(kKinds, kind, &KindWord::kind)->word;
}

// The parts between commas; empty ones are left out.
std::vector<std::string> listOf(std::string_view text) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const auto end = std::min(text.find(','), text.size());
        if (end > 0)
            parts.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

AnswerNode nodeOf(const DeviceState &device) {
    AnswerNode node = AnswerNode::object();
    node.add("family", device.family).add("address", device.address);
    if (device.port)
        node.add("ifNum", device.port.number());
    if (device.vlan)
        node.add("vlanId", device.vlan->number());
    node.add("state", wordOf(device.kind));
    if (!device.reason.empty())
        node.add("reason", device.reason);
    return node;
}

Event deviceEvent(const char *change, const DeviceState *before, const DeviceState *now) {
    AnswerNode node = AnswerNode::object();
    node.add("change", change);
    for (const auto &[key, device] : {std::pair("old", before), std::pair("new", now)})
        if (device != nullptr)
            node.add(key, nodeOf(*device));
        else
            node.addNull(key);
    return {EventKind::Device, "", node.print()};
}

bool isSameDevice(const DeviceState &a, const DeviceState &b) {
    return a.family == b.family && a.address == b.address;
}

// Counting the scans that a device was not seen in is no news.
bool isUnchanged(const DeviceState &before, DeviceState now) {
    now.missed = before.missed;
    now.missedMax = before.missedMax;
    return before == now;
}

const DeviceState *findDevice(std::span<const DeviceState> devices, const DeviceState &wanted) {
    const auto found =
        std::ranges::find_if(devices, [&](const auto &one) { return isSameDevice(one, wanted); });
    return found != devices.end() ? &*found : nullptr;
}

}  // namespace

bool EventFilter::takes(const Event &event) const {
    return kinds.contains(event.kind) &&
           (event.kind != EventKind::Answer || answers.empty() || answers.contains(event.name));
}

Result<EventFilter> EventFilter::parse(const std::map<std::string, std::string> &query) {
    EventFilter filter;
    if (const auto found = query.find("events"); found != query.end()) {
        filter.kinds.clear();
        for (const auto &word : listOf(found->second)) {
            const auto *const kind = std::ranges::find(kKinds, word, &KindWord::word);
            if (kind == kKinds.end())
                return failed(ResultCode::InvalidArgument,
                              quoteText(word) + " is none of answer, device and link");
            filter.kinds.insert(kind->kind);
        }
    }
    if (const auto found = query.find("answers"); found != query.end()) {
        const auto rows = writeBackRows();
        for (const auto &name : listOf(found->second)) {
            if (std::ranges::find(rows, name, &WriteBackRow::api) == rows.end())
                return failed(ResultCode::InvalidArgument, quoteText(name) + " is no name of an answer");
            filter.answers.insert(name);
        }
    }
    return filter;
}

Event answerEvent(const std::string &name) {
    return {EventKind::Answer, name, AnswerNode::object().add("name", name).print()};
}

std::vector<Event> deviceEvents(std::span<const DeviceState> before, std::span<const DeviceState> now) {
    std::vector<Event> events;
    for (const auto &device : before)
        if (findDevice(now, device) == nullptr)
            events.push_back(deviceEvent("left", &device, nullptr));
    for (const auto &device : now) {
        const DeviceState *const old = findDevice(before, device);
        if (old == nullptr)
            events.push_back(deviceEvent("joined", nullptr, &device));
        else if (!isUnchanged(*old, device))
            events.push_back(deviceEvent("changed", old, &device));
    }
    return events;
}

std::vector<Event> linkEvents(const std::map<IfNum, bool> &before, const std::map<IfNum, bool> &now) {
    const auto word = [](bool isUp) { return isUp ? "up" : "down"; };
    std::vector<Event> events;
    for (const auto &[port, isUp] : now)
        if (const auto old = before.find(port); old != before.end() && old->second != isUp)
            events.push_back({EventKind::Link, "",
                              AnswerNode::object()
                                  .add("ifNum", port.number())
                                  .add("old", word(old->second))
                                  .add("new", word(isUp))
                                  .print()});
    return events;
}

void EventRing::add(Event event) {
    const std::lock_guard lock(mutex_);
    bytes_ += event.name.size() + event.data.size();
    events_.push_back(std::move(event));
    while (events_.size() > kEventsKept || (bytes_ > kBytesKept && events_.size() > 1)) {
        bytes_ -= events_.front().name.size() + events_.front().data.size();
        events_.pop_front();
        ++first_;
    }
}

std::uint64_t EventRing::next() const {
    const std::lock_guard lock(mutex_);
    return first_ + events_.size();
}

std::optional<std::uint64_t> EventRing::resume(std::string_view id) const {
    const auto dash = id.rfind('-');
    const auto number = dash != std::string_view::npos ? wholeNumber(id.substr(dash + 1)) : std::nullopt;
    const std::lock_guard lock(mutex_);
    if (!number || *number < 0 || id.substr(0, dash) != run_)
        return std::nullopt;
    const auto after = static_cast<std::uint64_t>(*number) + 1;
    return after >= first_ && after <= first_ + events_.size() ? std::optional(after) : std::nullopt;
}

EventRing::Text EventRing::read(std::uint64_t &cursor, const EventFilter &filter, std::size_t most) const {
    const std::lock_guard lock(mutex_);
    Text out{{}, cursor < first_};
    for (cursor = std::max(cursor, first_); cursor < first_ + events_.size() && out.text.size() < most;
         ++cursor) {
        const Event &event = events_[cursor - first_];
        if (filter.takes(event))
            out.text +=
                "id: " + idOf(cursor) + "\nevent: " + wordOf(event.kind) + "\ndata: " + event.data + "\n\n";
    }
    return out;
}

std::string EventRing::greeting(std::uint64_t cursor) const {
    return "retry: 2000\nid: " + idOf(cursor - 1) + "\n\n";
}

std::string EventRing::missed() {
    return "event: missed\ndata: {}\n\n";
}

}  // namespace pavo
