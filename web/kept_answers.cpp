#include "web/kept_answers.h"

#include <sys/stat.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "common/files.h"
#include "common/json.h"
#include "common/log.h"
#include "common/response_ops.h"
#include "common/text.h"
#include "platform/paths.h"
#include "store/response_cache.h"

namespace pavo {
namespace {

using platform::paths::kResponseCache;

// The file system's times are those of the system's tick.
constexpr std::int64_t kTick = 20'000'000;  // nanoseconds

std::int64_t nanoseconds(const std::timespec &time) {
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

std::timespec timeOfDay() {
    std::timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

// Requests and events wait no longer for a cache that somebody holds; real time.
constexpr auto kReadWait = std::chrono::milliseconds(50);
// Then it is left alone for so long, and a cache that could not be made for this.
constexpr auto kReadPause = std::chrono::milliseconds(500);
constexpr auto kMakePause = std::chrono::seconds(10);

// When the cache was written to last; it has not been since a look that was later.
std::optional<std::timespec> cacheChangedAt() {
    struct stat info{};
    return stat(platform::fsPath(kResponseCache).c_str(), &info) == 0 ? std::optional(info.st_mtim)
                                                                      : std::nullopt;
}

Failure failureOf(std::int32_t result) {
    return {result > 0 ? static_cast<ResultCode>(result) : ResultCode::Failed, ""};
}

}  // namespace

KeptAnswers::KeptAnswers(Hooks hooks) : hooks_(std::move(hooks)) {
    const auto rows = writeBackRows();
    for (const Route &route : routes())
        if (route.cached != nullptr)
            if (const auto row = std::ranges::find(rows, std::string_view(route.cached), &WriteBackRow::api);
                row != rows.end())
                entries_.push_back(std::make_unique<Entry>(&route, &*row));
}

std::optional<std::size_t> KeptAnswers::find(std::string_view path) const {
    for (std::size_t i = 0; i < entries_.size(); ++i)
        if (entries_[i]->route->path == path)
            return i;
    return std::nullopt;
}

KeptAnswers::Entry *KeptAnswers::named(std::string_view name) {
    const auto found = std::ranges::find_if(entries_, [&](const auto &one) { return one->row->api == name; });
    return found != entries_.end() ? found->get() : nullptr;
}

void KeptAnswers::load() {
    if (!fileExists(kResponseCache))
        return;
    const auto cached = listCachedAnswers();
    if (!cached)
        return;
    for (const auto &one : *cached)
        if (Entry *const entry = named(one.name))
            if (const auto stored = readCachedAnswer(one.name).value_or(std::nullopt)) {
                const std::lock_guard lock(mutex_);
                entry->text = std::make_shared<const std::string>(*stored + '\n');
                entry->cached = entry->text;
                entry->at = platform::monotonicNow();
            }
}

// --- giving

bool KeptAnswers::isPaused(const Entry &entry, platform::Duration now) const {
    return isClosed_ || (!entry.producedSince && entry.failure && now - entry.failedAt < kPause);
}

bool KeptAnswers::isFresh(const Entry &entry, platform::Duration now) const {
    return entry.text != nullptr && entry.isKnown && now - entry.at <= entry.route->maxAge &&
           (!entry.expired || entry.at >= *entry.expired);
}

KeptAnswers::Given KeptAnswers::givenOf(const Entry &entry, platform::Duration now) const {
    const auto age = std::chrono::duration_cast<std::chrono::seconds>(now - entry.at);
    if (isFresh(entry, now))
        return {entry.text, age, false};
    // That it could not be produced by a switch that answers is what there is to say.
    const bool isAway = !entry.failure || entry.isAway;
    if (isAway && entry.text != nullptr && now - entry.at <= entry.route->maxAge + kOldMax)
        return {entry.text, age, true};
    const Failure failure =
        entry.failure.value_or(Failure{ResultCode::Unreachable, "the switch does not answer"});
    return {std::make_shared<const std::string>(failureEnvelope(explained(*entry.route, failure)) + '\n'),
            {},
            false};
}

std::optional<KeptAnswers::Given> KeptAnswers::ask(std::size_t answer, Wake wake) {
    bringUpToDate();
    Entry &entry = *entries_[answer];
    bool produces = false;
    {
        const std::lock_guard lock(mutex_);
        const auto now = platform::monotonicNow();
        entry.lookedAt = now;
        // Less when there is an old one that can be given out.
        const bool hasOld = entry.text != nullptr && (!entry.failure || entry.isAway) &&
                            now - entry.at <= entry.route->maxAge + kOldMax;
        const auto until = entry.producedSince.value_or(now) + ofRealTime(hasOld ? kOldWaitMax : kWaitMax);
        if (isFresh(entry, now) || isPaused(entry, now) || until <= now)
            return givenOf(entry, now);
        produces = !entry.producedSince;
        entry.producedSince = entry.producedSince.value_or(now);
        entry.waiters.add(std::move(wake), until);
    }
    if (produces)
        hooks_.produce(answer);
    return std::nullopt;
}

KeptAnswers::Given KeptAnswers::give(std::size_t answer) {
    const std::lock_guard lock(mutex_);
    return givenOf(*entries_[answer], platform::monotonicNow());
}

void KeptAnswers::look(std::string_view name) {
    if (Entry *const entry = named(name)) {
        const std::lock_guard lock(mutex_);
        entry->lookedAt = platform::monotonicNow();
    }
}

void KeptAnswers::expireOne(std::string_view name) {
    if (Entry *const entry = named(name)) {
        const std::lock_guard lock(mutex_);
        entry->expired = platform::monotonicNow();
    }
}

// --- what others store

void KeptAnswers::bringUpToDate() {
    const std::lock_guard lock(newsMutex_);
    if (delta_.hasNews() || !told_.empty())
        lookAgain();
}

void KeptAnswers::takeNews() {
    const std::lock_guard lock(newsMutex_);
    lookAgain();
}

// Under newsMutex_.
void KeptAnswers::lookAgain() {
    const auto now = platform::monotonicNow();
    DeltaNews news = delta_.take();
    // Until all of it has been looked at.
    news.everything = std::exchange(missedNews_, true) || news.everything;
    std::vector<std::string> others;
    std::vector<Entry *> first;
    for (const auto &name : news.names) {
        if (Entry *const entry = named(name)) {
            first.push_back(entry);
            continue;
        }
        others.push_back(name);
        if (news.everything)
            continue;
        // A name that nothing is stored under may be two that ran together; or it was deleted.
        const auto stored = fileExists(kResponseCache)
                                ? readCachedAnswer(name, std::source_location::current(), kReadWait)
                                : DbResult<std::optional<std::string>>(std::nullopt);
        news.everything = !stored || !*stored;
    }
    if (news.everything)
        for (const auto &entry : entries_)
            if (std::ranges::find(first, entry.get()) == first.end())
                first.push_back(entry.get());
    for (Entry *const entry : first)
        told_[entry] = {now, {}};
    missedNews_ = false;
    for (const auto &name : others)
        hooks_.changed(name);

    const auto changed = cacheChangedAt();
    if (pausedAt_ && now - *pausedAt_ < ofRealTime(kReadPause))
        return;
    pausedAt_.reset();
    for (auto told = told_.begin(); told != told_.end() && !pausedAt_;) {
        auto &[entry, when] = *told;
        if (!changed || nanoseconds(*changed) >= nanoseconds(when.read) - kTick) {
            const auto before = timeOfDay();
            if (reread(*entry, std::nullopt) == Read::Unread)
                pausedAt_ = now;
            else
                when.read = before;
        }
        told = !pausedAt_ && now - when.since > ofRealTime(kLookAgain) ? told_.erase(told) : std::next(told);
    }
    if (pausedAt_) {
        // Who asks meanwhile has them produced anew.
        const std::lock_guard lock(mutex_);
        for (const auto &[entry, when] : told_)
            entry->isKnown = false;
    }
}

KeptAnswers::Read KeptAnswers::reread(Entry &entry, std::optional<platform::Duration> producedAt) {
    const std::lock_guard reading(entry.reading);
    if (!fileExists(kResponseCache))
        return Read::None;
    const auto read = readCachedAnswer(entry.row->api, std::source_location::current(),
                                       producedAt ? kCacheBusyTimeout : kReadWait);
    if (!read)
        return Read::Unread;
    const auto now = platform::monotonicNow();
    if (const auto &stored = *read) {
        auto text = std::make_shared<const std::string>(*stored + '\n');
        const bool tells = !producedAt;
        auto at = producedAt.value_or(now);
        {
            const std::lock_guard lock(mutex_);
            // What could not be stored is newer than what is there still.
            const bool isOld = tells && entry.cached != nullptr && *entry.cached == *text;
            entry.cached = text;
            if (isOld && entry.text != nullptr)
                return Read::Kept;
            // It may have been produced before what has been heard of meanwhile.
            if (tells && entry.expired && now - *entry.expired < ofRealTime(kLookAgain))
                at = *entry.expired - platform::Duration(1);
        }
        keep(entry, std::move(text), at, tells);
        return Read::Kept;
    }
    // Deleted: what is asked for next is produced anew.
    bool wasKept = false;
    {
        const std::lock_guard lock(mutex_);
        wasKept = std::exchange(entry.isKnown, false);
        entry.cached.reset();
        if (!producedAt)
            entry.text.reset();
    }
    if (wasKept && !producedAt)
        hooks_.changed(entry.row->api);
    return Read::None;
}

// `tells`: others say that it has changed, which makes a first text a change as well.
void KeptAnswers::keep(Entry &entry, Text text, platform::Duration at, bool tells) {
    bool isChanged = false;
    {
        const std::lock_guard lock(mutex_);
        const bool isSame = entry.text != nullptr && *entry.text == *text;
        // That the cache has what is known already tells nothing of its age.
        if (isSame && tells)
            return;
        isChanged = entry.text != nullptr ? !isSame : tells;
        if (!isSame)
            entry.text = std::move(text);
        entry.at = at;
        entry.isKnown = true;
        entry.failure.reset();
    }
    if (isChanged)
        hooks_.changed(entry.row->api);
}

// --- producing

// One that is gone, or is no sound database.
void KeptAnswers::makeCache() {
    {
        const std::lock_guard lock(makingMutex_);
        const auto now = platform::monotonicNow();
        if (madeAt_ && now - *madeAt_ < kMakePause)
            return;
        madeAt_ = now;
    }
    static_cast<void>(createResponseCache());
}

void KeptAnswers::tick() {
    if (!fileExists(kResponseCache))
        makeCache();
    bringUpToDate();
    std::vector<Wake> woken;
    std::vector<std::size_t> wanted;
    {
        const std::lock_guard lock(mutex_);
        const auto now = platform::monotonicNow();
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            Entry &entry = *entries_[i];
            entry.waiters.takeOverdue(now, woken);
            const platform::Duration age = entry.route->maxAge;
            const bool isLookedAt = entry.lookedAt && now - *entry.lookedAt <= kLookedAges * age;
            const bool isDue = !isFresh(entry, now) || now - entry.at >= age * 3 / 4;
            if (isLookedAt && isDue && !entry.producedSince && !isPaused(entry, now)) {
                entry.producedSince = now;
                wanted.push_back(i);
            }
        }
    }
    for (const auto &wake : woken)
        wake();
    for (const auto answer : wanted)
        hooks_.produce(answer);
}

std::optional<Failure> KeptAnswers::produceText(Entry &entry, SwitchClient &client) {
    if (!client.isConnected())
        return Failure{ResultCode::Unreachable, "the switch does not answer"};
    const auto started = platform::monotonicNow();
    const auto handle = client.get().handle();
    const auto [result, stored] = writeBackAnswer(handle, *entry.row);
    if (result > 0)
        return failureOf(result);
    if (result == 0 && stored && reread(entry, started) == Read::Kept)
        return std::nullopt;
    if (result == 0 && !stored)
        makeCache();
    // Without the cache, which has a full disk or a lock that is not to be had.
    const auto data = produceAnswer(handle, *entry.row);
    if (!data)
        return data.error();
    char *text = nullptr;
    if (responseJsonRreallocStr(0, entry.row->key, data->c_str(), &text) != 0)
        return Failure{ResultCode::InvalidPointer, ""};
    const TextPtr owner(text);
    const std::lock_guard reading(entry.reading);
    keep(entry, std::make_shared<const std::string>(std::string(text) + '\n'), started, false);
    return std::nullopt;
}

void KeptAnswers::produce(std::size_t answer, SwitchClient &client) {
    const auto started = platform::monotonicNow();
    std::optional<Failure> failure;
    try {
        failure = produceText(*entries_[answer], client);
    } catch (const std::exception &e) {
        logError("[%s:%d] %s: %s\n", entries_[answer]->row->api, e.what());
        failure = Failure{ResultCode::Failed, ""};
    }
    const bool isAway = failure && (!client.isConnected() || !client.get().checkConnectivity());
    finish(answer, started, std::move(failure), isAway);
}

void KeptAnswers::finish(std::size_t answer, platform::Duration started, std::optional<Failure> failure,
                         bool isAway) {
    Entry &entry = *entries_[answer];
    std::vector<Wake> woken;
    bool again = false;
    bool saysAway = false;
    bool saysBack = false;
    {
        const std::lock_guard lock(mutex_);
        entry.failure = std::move(failure);
        entry.failedAt = platform::monotonicNow();
        entry.isAway = isAway;
        // What has happened meanwhile is not in it.
        again = !entry.failure && !isClosed_ && entry.expired && *entry.expired > started &&
                !entry.waiters.empty();
        if (!again) {
            entry.producedSince.reset();
            entry.waiters.takeAll(woken);
        }
        saysAway = isAway && !saidAway_;
        saysBack = !entry.failure && saidAway_;
        saidAway_ = isAway || (saidAway_ && entry.failure);
    }
    if (saysAway)
        logWarn("[%s:%d] the switch does not answer: what was known last is given out for %d s\n",
                static_cast<int>(std::chrono::seconds(kOldMax / std::chrono::seconds(1)).count()));
    if (saysBack)
        logNotice("[%s:%d] the switch answers again\n");
    if (again)
        hooks_.produce(answer);
    for (const auto &wake : woken)
        wake();
}

void KeptAnswers::close() {
    std::vector<Wake> woken;
    {
        const std::lock_guard lock(mutex_);
        isClosed_ = true;
        for (const auto &entry : entries_)
            entry->waiters.takeAll(woken);
    }
    for (const auto &wake : woken)
        wake();
}

}  // namespace pavo
