// A walk over one of the switch's tables: a range that makes one call for each entry, as the loop reaches it.
// Leaving the loop early costs nothing more.
//
//     for (const IfNum port : sw.ports()) ...
//
// A walk ends with its table, when a call fails, or when the switch does not advance: no caller hangs on an
// answer. Whoever has to know which of these it was keeps the walk and asks brokenBy() afterwards. A walk is
// for one loop.
#ifndef PAVO_SWAPI_WALK_H
#define PAVO_SWAPI_WALK_H

#include <cstddef>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

#include "swapi/open_result.h"

namespace pavo {

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
