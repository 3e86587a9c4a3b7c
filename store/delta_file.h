// The reader of the delta file (store/response_cache.h): which answers have changed since the last look.
//
// Writers append without a lock, some of them other programs', and no line of theirs is lost:
//   - What has been read is remembered by its place. The file is emptied only under a lease of the kernel,
//     which is to be had while nobody else has the file open, and only when nothing was added; who opens it in
//     that moment waits until it is empty, or is told to try again.
//   - Where a lease is not to be had (somebody keeps the file open, or it is another user's), the blocks that
//     have been read are given back, so that it takes no memory, and emptying is tried again next time.
//   - A reader that is killed reads again what it had read. After a restart, or when the file is replaced or
//     cut by others, it is read from its beginning.
// A name that cannot be made out (cut short, run together with another, too long, not a name) may be any: then
// everything may have changed.
//
// The class belongs to one thread at a time.
#ifndef PAVO_STORE_DELTA_FILE_H
#define PAVO_STORE_DELTA_FILE_H

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <set>
#include <source_location>
#include <string>
#include <string_view>

#include "common/where.h"
#include "platform/clock.h"

namespace pavo {

struct DeltaNews {
    std::set<std::string> names;
    bool everything = false;

    bool empty() const { return names.empty() && !everything; }
};

// Takes lines in pieces of any size; memory is bounded, whatever comes.
class DeltaLines {
  public:
    static constexpr std::size_t kNameMax = 127;   // bytes; the path of its lock is not longer either
    static constexpr std::size_t kNamesMax = 256;  // more different ones count as everything

    void take(std::string_view bytes);
    // Bytes of the line that has no end yet.
    std::size_t unfinished() const { return unfinished_; }
    // It has no more to come: it was cut short, and may have been any name.
    void cutShort();
    // What the lines so far have named, and forgets it; the unfinished line goes on.
    DeltaNews news();

  private:
    void endLine();

    DeltaNews news_;
    std::string line_;
    std::size_t unfinished_ = 0;
};

class DeltaFile {
  public:
    // At the clock's time; a line without its end is waited for so long.
    static constexpr platform::Duration kLineWait = std::chrono::seconds(2);

    // Whether there may be something to take: one look at the file's size.
    bool hasNews() const;

    // Reads to the end, at most 64 MiB, and empties the file if possible. A file that cannot be read, or something else in its
    // place, is logged once and counts as none.
    DeltaNews take(Where where = std::source_location::current());

  private:
    int readTo(int fd, off_t end);
    void restart(dev_t device, ino_t inode);
    void report(int error, const Where &where);

    dev_t device_{};
    ino_t inode_{};
    off_t read_ = 0;  // up to here, the unfinished line included
    DeltaLines lines_;
    std::optional<platform::Duration> unfinishedSince_;
    off_t unfinishedAt_ = 0;
    int reported_ = 0;     // errno of the last look
    bool isKept_ = false;  // neither emptied nor given back; logged
};

}  // namespace pavo

#endif
