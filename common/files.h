// Files under their fixed paths (platform/paths.h): owners, whole reads, replacing, locks. A link that stands
// in the place of a file is not followed where the file is written, nor in a folder that is open to
// everybody: the file cannot be opened then.
#ifndef PAVO_COMMON_FILES_H
#define PAVO_COMMON_FILES_H

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>

#include "common/result.h"
#include "common/where.h"
#include "platform/clock.h"

namespace pavo {

struct FileCloser {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

// fopen on a fixed path; null when it cannot be opened or is no regular file: nobody waits for a pipe that
// stands in its place. No child of the program inherits the descriptor.
FilePtr openFile(const std::string &fixedPath, const char *mode);

// Writes, flushes and closes: each of the three can be the one that finds the disk full, which gives false.
bool writeWhole(FilePtr file, std::string_view text);

// A regular file as a whole, nothing when it cannot be opened or is no regular file. It does not block on a
// pipe that stands in the file's place, and a file of more than `most` bytes is not read (logged).
inline constexpr std::size_t kFileMax = 64u << 20;
std::optional<std::string> readFile(const std::string &fixedPath, std::size_t most = kFileMax,
                                    Where where = std::source_location::current());

// Writes `text` beside the file and renames it into place, so that readers see the old or the new content.
// Folders that are missing are made. Failed (logged) with the old content in place.
Result<> replaceFile(const std::string &fixedPath, std::string_view text,
                     Where where = std::source_location::current());

// The same with the new file at a path of its own, on the same file system: for a folder in which others take
// every file for a whole one.
Result<> replaceFileBy(const std::string &beside, const std::string &fixedPath, std::string_view text,
                       Where where = std::source_location::current());

// As the first; when it returns, the new content is on the disk and stays there when the power goes.
Result<> replaceFileDurably(const std::string &fixedPath, std::string_view text,
                            Where where = std::source_location::current());

// Writes a file unless there is something at that path: true when it made one. Failed (logged) when it cannot
// be made, or not as a whole.
Result<bool> createFile(const std::string &fixedPath, std::string_view text,
                        Where where = std::source_location::current());

// Deletes a file; one that is not there is no error.
void removeFile(const std::string &fixedPath);

bool fileExists(const std::string &fixedPath);

// Holds an exclusive lock on a file, among threads and processes, for as long as it lives. The file is made
// when it is missing, no link is followed. A lock that somebody else has is waited for, for a limited time; a
// wait of more than a second is logged, once, with the name of the file.
class FileLock {
  public:
    // Whether the file is deleted before the lock is released.
    enum class Afterwards { Keep, Remove };

    // How long a lock is waited for unless the caller says otherwise, on the program's clock: longer than
    // whoever is at work may take.
    static constexpr platform::Duration kWaitMax = std::chrono::minutes(2);

    explicit FileLock(std::string fixedPath, Afterwards afterwards = Afterwards::Keep,
                      platform::Duration most = kWaitMax, Where where = std::source_location::current());
    ~FileLock();
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

    // Outcome of acquiring the lock.
    enum class State { Held, NotOpened, NotLocked };
    State state() const { return state_; }
    bool held() const { return state_ == State::Held; }
    // NotLocked because somebody else had it all the time; the file is left alone then.
    bool timedOut() const { return timedOut_; }

    // Releases the lock early; false when unlocking failed.
    bool release();

  private:
    void take(platform::Duration most, const Where &where);
    bool isCurrent() const;

    std::string path_;
    Afterwards afterwards_;
    State state_ = State::NotOpened;
    bool timedOut_ = false;
    int fd_ = -1;
};

}  // namespace pavo

#endif
