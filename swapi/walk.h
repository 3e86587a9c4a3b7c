// A walk over one of the switch's tables: a range that makes one call for each entry, as the loop reaches it.
// Leaving the loop early costs nothing more.
//
//     for (const IfNum port : sw.ports()) ...
//
// A walk ends with its table, when a call fails, or when the switch does not advance or goes in circles: no
// caller hangs on an answer. Whoever has to know which of these it was keeps the walk and asks brokenBy()
// afterwards. A walk is for one loop.
#ifndef PAVO_SWAPI_WALK_H
#define PAVO_SWAPI_WALK_H

#include <cstddef>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

#include "swapi/open_result.h"

namespace pavo {

// Finds out that a walk goes in circles, for tables whose keys come in an order of the switch's own. Each key
// is compared with one of those before it, at first the one that the walk starts with, Key{}. That one is
// replaced after 1, 2, 4, 8 and so on steps: sooner or later it is part of the circle, and is not replaced
// before the walk comes round to it again.
template <class Key>
class CircleWatch {
  public:
    bool comesRound(const Key &key) {
        if (key == mark_)
            return true;
        if (++steps_ == limit_) {
            mark_ = key;
            steps_ = 0;
            limit_ *= 2;
        }
        return false;
    }

  private:
    Key mark_{};
    std::size_t steps_ = 0;
    std::size_t limit_ = 1;
};

// `Step` is called for the next entry and remembers where it is; it answers NotFound at the end of the table.
template <class Step>
class Walk {
  public:
    using Item = typename std::invoke_result_t<Step &>::value_type;

    explicit Walk(Step step) : step_(std::move(step)) {}

    class Iterator {
      public:
        using value_type = Item;
        using difference_type = std::ptrdiff_t;

        explicit Iterator(Walk *walk) : walk_(walk) {}
        const Item &operator*() const { return walk_->current_; }
        const Item *operator->() const { return &walk_->current_; }
        Iterator &operator++() {
            walk_->advance();
            return *this;
        }
        void operator++(int) { walk_->advance(); }
        bool operator==(std::default_sentinel_t) const { return walk_->ended_; }

      private:
        Walk *walk_;
    };

    Iterator begin() {
        advance();
        return Iterator(this);
    }
    std::default_sentinel_t end() const { return {}; }

    // What ended the walk before the end of the table; nothing when it got there or has not ended.
    std::optional<OpenError> brokenBy() const { return broken_; }

  private:
    void advance() {
        auto next = step_();
        ended_ = !next;
        if (next)
            current_ = std::move(*next);
        else if (next.error() != OpenError::NotFound)
            broken_ = next.error();
    }

    Step step_;
    Item current_{};
    bool ended_ = false;
    std::optional<OpenError> broken_;
};

}  // namespace pavo

#endif
