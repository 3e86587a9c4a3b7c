// The cached answers (web/routes.h) in the memory of pavo_webd, each with a line end behind it.
//
// An answer is given out while it is fresh: not older than its route says, and nothing has been heard since that
// it shows. Whoever asks for one that is not waits while it is produced anew, by one job at a time; one that was
// asked for in the last kLookedAges of its ages is produced anew in time, before anybody waits.
//
// What other processes store is taken over from the cache (store/response_cache.h) as soon as the delta file names
// it, at the latest when the answer is asked for: what is stored before a request comes is what the request
// gets. Names are told before the text is stored, so a name is looked at again for a while.
//
// While the switch does not answer, the last answer is given out for kOldMax more, said to be old; then, and when
// there is none, a refusal, as pavo_cgi gives it.
//
// Any thread may call, except where a job is meant.
#ifndef PAVO_WEB_KEPT_ANSWERS_H
#define PAVO_WEB_KEPT_ANSWERS_H

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/result.h"
#include "platform/clock.h"
#include "store/delta_file.h"
#include "store/writeback.h"
#include "swapi/switch_client.h"
#include "web/routes.h"
#include "web/waiters.h"

namespace pavo {

class KeptAnswers {
  public:
    static constexpr int kLookedAges = 3;
    static constexpr platform::Duration kOldMax = std::chrono::seconds(60);
    // Nobody waits longer, in real time, for an answer that is being produced, and not even that long when there
    // is an old one to give out.
    static constexpr platform::Duration kWaitMax = std::chrono::seconds(10);
    static constexpr platform::Duration kOldWaitMax = std::chrono::seconds(3);
    // After a failure nothing is tried again for so long.
    static constexpr platform::Duration kPause = std::chrono::seconds(1);
    // A writer stores within its busy timeout of 3 s (real time) after it has told the name.
    static constexpr platform::Duration kLookAgain = std::chrono::seconds(5);

    struct Hooks {
        // Has produce() called, on a thread that may wait for the switch.
        std::function<void(std::size_t answer)> produce;
        // An answer has changed; also one that is not kept here.
        std::function<void(const std::string &name)> changed;
    };
    explicit KeptAnswers(Hooks hooks);

    // Takes over what is in the cache; nothing of it is fresh.
    void load();

    // The answer of a route; nothing for a path that is none of a cached answer.
    std::optional<std::size_t> find(std::string_view path) const;
    const Route &route(std::size_t answer) const { return *entries_[answer]->route; }

    struct Given {
        std::shared_ptr<const std::string> text;  // as it goes out
        std::chrono::seconds age;
        bool isOld;  // older than its route says, because the switch does not answer
    };
    // The answer when it is fresh, or cannot be had at present. Nothing otherwise: it is being produced, and
    // `wake` is called once when it is time for give().
    std::optional<Given> ask(std::size_t answer, Wake wake);
    Given give(std::size_t answer);

    // Somebody wants to hear of changes of this answer.
    void look(std::string_view name);
    // Something has happened that these may show.
    template <class Names>
    void expire(const Names &names) {
        for (const std::string_view name : names)
            expireOne(name);
    }

    // Takes what the delta file tells.
    void takeNews();
    // Every now and then: has produced what is looked at, wakes who has waited too long, looks again at what has
    // been told of, makes a cache that has gone.
    void tick();
    // Wakes everybody; nobody waits afterwards.
    void close();

    // A job: produces an answer, and wakes who waits for it.
    void produce(std::size_t answer, SwitchClient &client);

  private:
    using Text = std::shared_ptr<const std::string>;
    struct Entry {
        const Route *route;
        const WriteBackRow *row;

        std::mutex reading{};  // from reading the cache to keeping what was read

        // Guarded by mutex_.
        Text text{};
        Text cached{};                                      // what the cache had when it was read last
        platform::Duration at{};                            // when it was produced, or read
        bool isKnown = false;                               // produced while the program runs, or told of
        std::optional<platform::Duration> expired{};        // fresh is only what was produced since
        std::optional<platform::Duration> lookedAt{};       // last
        std::optional<platform::Duration> producedSince{};  // by the job at present
        std::optional<Failure> failure{};                   // of the last attempt
        platform::Duration failedAt{};
        bool isAway = false;  // the switch did not answer
        Waiters waiters{};
    };
    // A name that has been told of; `read` is the time of day.
    struct Told {
        platform::Duration since;
        std::timespec read;
    };

    Entry *named(std::string_view name);
    // Whether nobody is to have it produced, or wait for that, at present. Under mutex_.
    bool isPaused(const Entry &entry, platform::Duration now) const;
    bool isFresh(const Entry &entry, platform::Duration now) const;
    Given givenOf(const Entry &entry, platform::Duration now) const;
    void expireOne(std::string_view name);
    void bringUpToDate();
    void makeCache();
    void lookAgain();
    enum class Read { Kept, None, Unread };
    // Reads an answer from the cache and keeps it. `producedAt`: when it was produced if it is the one of produce().
    Read reread(Entry &entry, std::optional<platform::Duration> producedAt);
    void keep(Entry &entry, Text text, platform::Duration at, bool tells);
    std::optional<Failure> produceText(Entry &entry, SwitchClient &client);
    void finish(std::size_t answer, platform::Duration started, std::optional<Failure> failure, bool isAway);

    Hooks hooks_;
    std::vector<std::unique_ptr<Entry>> entries_;
    mutable std::mutex mutex_;
    bool isClosed_ = false;
    bool saidAway_ = false;

    std::mutex newsMutex_;  // held before `reading`, which is held before mutex_
    DeltaFile delta_;
    std::map<Entry *, Told> told_;
    std::optional<platform::Duration> pausedAt_{};  // since the cache could not be read
    bool missedNews_ = false;                       // what was taken has not been looked at

    std::mutex makingMutex_;
    std::optional<platform::Duration> madeAt_{};  // the last attempt
};

}  // namespace pavo

#endif
