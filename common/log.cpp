#include "common/log.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <deque>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "common/files.h"
#include "common/owners.h"
#include "platform/clock.h"
#include "platform/paths.h"

namespace pavo {
namespace {

constexpr int kLevelDefault = LOG_LEVEL_INFO;
constexpr std::string_view kLevelNames[] = {"", "", "", "ERROR", "WARN", "NOTICE", "INFO", "DEBUG"};
constexpr std::size_t kLevels = std::size(kLevelNames);
constexpr off_t kLevelFileSize = 4;
constexpr off_t kRotateAbove = 0x100000;

// Never changed once messages can see it, and never freed: a message works on the settings it started with,
// and syslog keeps a pointer to the identity.
struct Settings {
    std::int32_t sinks = -1;
    std::int32_t facility = -1;
    std::string identity;  // empty: not given
    // What stands between the time and the message at each level, " (ERROR): daemon: [": see keep().
    std::array<std::string, kLevels> openings{};

    bool operator==(const Settings &) const = default;
};

// Looking at a file takes as long as writing a line to it. The first messages of a tick of the system's clock,
// a few milliseconds, look each time, and in a burst every sixty-fourth does.
class Glances {
  public:
    bool isDue() {
        std::timespec now{};
        clock_gettime(CLOCK_MONOTONIC_COARSE, &now);  // real time, whatever the program's clock shows
        const std::int64_t tick = now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
        if (tick_.load(std::memory_order_relaxed) != tick) {
            tick_.store(tick, std::memory_order_relaxed);
            count_.store(0, std::memory_order_relaxed);
        }
        const unsigned before = count_.load(std::memory_order_relaxed);
        count_.store(before + 1, std::memory_order_relaxed);
        return before < 32 || before % 64 == 0;
    }

  private:
    // A count that threads spoil for each other does no harm: somebody looks once more, or a message later.
    std::atomic<std::int64_t> tick_{-1};
    std::atomic<unsigned> count_{0};
};

struct State {
    std::mutex mutex;      // all of the state but the level file
    std::mutex zoneMutex;  // the time zone of the process
    std::deque<Settings> everySettings{Settings{}};
    const Settings *settings = &everySettings.front();
    std::atomic<const Settings *> inForce{nullptr};  // the same once the facility has started
    int stream = -1;
    std::string path;     // of the log file
    off_t byteCount = 0;  // its size when it was last looked at, and what has been written since
    off_t rotateAbove = kRotateAbove;
    Glances streamGlances;

    std::atomic<int> levelFd{-1};
    std::atomic<char> levelDigit{'\0'};  // seen there last; 0: none
    Glances levelGlances;
    std::atomic<int> levelReaders{0};  // threads that read the level at this moment
};

// Never destroyed: detached threads may log while the process exits.
State &state() {
    static State &instance = *new State;
    return instance;
}

// --- threshold

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// The digit in force, 0 when there is none: any process may truncate the file, as a shell does before it
// writes the new one.
char readDigit(int fd) {
    char digit = 0;
    return pread(fd, &digit, 1, 0) == 1 && isDigit(digit) ? digit : '\0';
}

// Makes the file what every process expects. One with a second name is somebody else's, and is not cut.
bool prepareLevelFile(int fd) {
    struct stat info{};
    constexpr char kDigitDefault = '0' + kLevelDefault;
    return fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_nlink == 1 &&
           ftruncate(fd, kLevelFileSize) == 0 &&
           (readDigit(fd) != '\0' || pwrite(fd, &kDigitDefault, 1, 0) == 1);
}

void closeLevelFile(State &s) {
    const int fd = s.levelFd.exchange(-1);
    if (fd < 0)
        return;
    while (s.levelReaders.load() != 0)
        std::this_thread::yield();
    close(fd);
    s.levelDigit.store('\0');
}

void openLevelFile(State &s) {
    const int fd = openShared(platform::paths::kLogLevelFile,
                              O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666);
    if (fd >= 0 && prepareLevelFile(fd)) {
        s.levelDigit.store(readDigit(fd));
        s.levelFd.store(fd);
    } else if (fd >= 0) {
        close(fd);
    }
}

int threshold() {
    State &s = state();
    if (s.levelGlances.isDue()) {
        s.levelReaders.fetch_add(1);  // keeps the file open until it has been read
        if (const int fd = s.levelFd.load(); fd >= 0)
            s.levelDigit.store(readDigit(fd));
        s.levelReaders.fetch_sub(1);
    }
    const char digit = s.levelDigit.load(std::memory_order_relaxed);
    return digit != '\0' ? digit - '0' : kLevelDefault;
}

// --- lines

// Local time to the millisecond; empty when it cannot be told. Converted once a second, by the time zone that
// is set then; in between only the milliseconds are replaced.
std::string_view timeText() {
    thread_local std::time_t second = 0;
    thread_local char text[96];
    thread_local std::size_t length = 0;
    const std::timespec now = platform::wallNow();
    const long millis = now.tv_nsec / 1'000'000;
    if (length == 0 || now.tv_sec != second) {
        std::tm local{};
        length = 0;
        const std::lock_guard lock(state().zoneMutex);
        tzset();
        if (localtime_r(&now.tv_sec, &local) == nullptr)
            return {};
        length = static_cast<std::size_t>(std::snprintf(
            text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03ld", local.tm_year + 1900, local.tm_mon + 1,
            local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, millis));
        second = now.tv_sec;
    } else {
        text[length - 3] = static_cast<char>('0' + millis / 100);
        text[length - 2] = static_cast<char>('0' + millis / 10 % 10);
        text[length - 1] = static_cast<char>('0' + millis % 10);
    }
    return {text, length};
}

// One formatted line: on the stack when it fits there.
class Line {
  public:
    // `place` is null for a format that states it itself.
    Line(std::string_view opening, const Where *place, const char *format, std::va_list args)
        __attribute__((format(printf, 4, 0))) {
        const std::string_view time = timeText();
        std::va_list again;
        va_copy(again, args);
        const std::size_t needed = put(stack_, sizeof stack_, time, opening, place, format, args);
        length_ = needed;
        if (needed >= sizeof stack_) {
            heap_.reset(new (std::nothrow) char[needed + 1]);
            if (heap_ != nullptr)
                put(heap_.get(), needed + 1, time, opening, place, format, again);
            else
                length_ = sizeof stack_ - 1;
        }
        va_end(again);
    }

    std::string_view text() const { return {heap_ != nullptr ? heap_.get() : stack_, length_}; }

  private:
    // Length of the whole line, of which as much as fits is in `out`. What stands in front of the message is
    // put together by hand: for a short line snprintf would cost as much as the message itself.
    static std::size_t put(char *out, std::size_t room, std::string_view time, std::string_view opening,
                           const Where *place, const char *format, std::va_list args)
        __attribute__((format(printf, 6, 0))) {
        char number[16] = ":";
        std::string_view function, line;
        if (place != nullptr) {
            char *end = std::to_chars(number + 1, std::end(number) - 2, place->line()).ptr;
            *end++ = ']';
            *end++ = ' ';
            function = place->function();
            line = {number, static_cast<std::size_t>(end - number)};
        } else {
            opening.remove_suffix(1);  // the format begins with the bracket itself
        }
        if (time.empty())
            opening.remove_prefix(1);
        std::size_t used = 0;
        for (const std::string_view part : {time, opening, function, line}) {
            const std::size_t at = std::min(used, room);
            std::ranges::copy(part.substr(0, room - at), out + at);
            used += part.size();
        }
        const std::size_t at = std::min(used, room - 1);
        const int message = std::vsnprintf(out + at, room - at, format, args);
        return used + static_cast<std::size_t>(std::max(message, 0));
    }

    char stack_[1024];
    std::unique_ptr<char[]> heap_;
    std::size_t length_ = 0;
};

// --- sinks

void writeStandardOutput(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
}

// A pipe in its place would block every thread once it is full, and a link leads to somebody else's file:
// -1 for both.
int openLogFile() {
    const int fd = openShared(platform::paths::kLogFile,
                              O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666);
    struct stat info{};
    if (fd < 0 || (fstat(fd, &info) == 0 && S_ISREG(info.st_mode)))
        return fd;
    close(fd);
    return -1;
}

void closeStream(State &s) {
    if (s.stream >= 0)
        close(std::exchange(s.stream, -1));
}

void takeStream(State &s, int fd) {
    closeStream(s);
    s.stream = fd;
    struct stat info{};
    s.byteCount = fd >= 0 && fstat(fd, &info) == 0 ? info.st_size : 0;
    s.rotateAbove = kRotateAbove;
}

void openStream(State &s) {
    s.path = platform::fsPath(platform::paths::kLogFile);
    takeStream(s, openLogFile());
}

// Moves on to the file that stands under the name now; stays with the present one when that cannot be opened.
bool reopenStream(State &s) {
    const int fd = openLogFile();
    if (fd >= 0)
        takeStream(s, fd);
    return fd >= 0;
}

// Whether the open file is the one that stands under the name of the log; its size is noted.
bool isCurrent(State &s) {
    struct stat mine{};
    struct stat seen{};
    if (fstat(s.stream, &mine) == 0)
        s.byteCount = mine.st_size;
    return lstat(s.path.c_str(), &seen) == 0 && mine.st_dev == seen.st_dev && mine.st_ino == seen.st_ino;
}

bool isDeleted(int fd) {
    struct stat info{};
    return fstat(fd, &info) == 0 && info.st_nlink == 0;
}

// Whoever rotates has the lock for some microseconds; somebody who keeps it must not stop the program.
bool lockForRotation(int fd) {
    for (int attempt = 0; attempt < 50; ++attempt) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));  // real time: it is a real process
    }
    return false;
}

// One rotation, however many processes find the file too large: the lock is that of the file itself, and
// whoever gets it later finds another file under the name.
void rotateStream(State &s) {
    bool rotated = lockForRotation(s.stream);
    if (rotated && isCurrent(s)) {
        removeFile(platform::paths::kLogFileOld);
        rotated = std::rename(s.path.c_str(), platform::fsPath(platform::paths::kLogFileOld).c_str()) == 0;
    }
    if (rotated) {
        openStream(s);
        return;
    }
    flock(s.stream, LOCK_UN);
    s.rotateAbove = s.byteCount + kRotateAbove;  // the file goes on growing, and lines are not lost
}

// A line that does not fit on the disk is lost, as it would be anywhere else.
void appendLine(State &s, std::string_view line) {
    s.byteCount += static_cast<off_t>(line.size());
    while (!line.empty()) {
        const ssize_t written = write(s.stream, line.data(), line.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            break;
        line.remove_prefix(static_cast<std::size_t>(written));
    }
}

void writeStream(State &s, std::string_view line) {
    const std::lock_guard lock(s.mutex);
    if (s.stream < 0) {
        writeStandardOutput(line);
        return;
    }
    // Another process may have rotated, or somebody has taken the file away.
    const bool looks = s.streamGlances.isDue();
    if (looks && !isCurrent(s))
        reopenStream(s);
    appendLine(s, line);
    // It may even have gone for good in between, and the line with it.
    if (looks && isDeleted(s.stream) && reopenStream(s))
        appendLine(s, line);
    if (s.byteCount > s.rotateAbove)
        rotateStream(s);
}

// --- life cycle

// The one copy of these settings.
const Settings *keep(State &s, Settings settings) {
    for (std::size_t level = 0; level < kLevels; ++level)
        settings.openings[level] = " (" + std::string(kLevelNames[level]) + "): " + settings.identity + ": [";
    const auto known = std::find(s.everySettings.begin(), s.everySettings.end(), settings);
    return known != s.everySettings.end() ? &*known : &s.everySettings.emplace_back(std::move(settings));
}

std::string processName() {
    const FilePtr file(std::fopen(platform::paths::kProcSelfStatus, "re"));
    char line[64];
    while (file != nullptr && std::fgets(line, sizeof line, file.get()) != nullptr) {
        if (std::strncmp(line, "Name:", 5) != 0)
            continue;
        char *rest = nullptr;
        strtok_r(line, "\t\n", &rest);
        const char *const name = strtok_r(nullptr, "\t\n", &rest);
        return name != nullptr ? name : "";
    }
    return "";
}

void start(State &s) {
    Settings settings = *s.settings;
    if (settings.sinks < 0) {
        settings.sinks = LOG_SINK_STDOUT;
        settings.facility = LOG_FACILITY_USER;
    } else {
        if (settings.facility < 0)
            settings.facility = LOG_FACILITY_USER;
        if (settings.identity.empty() && settings.sinks != LOG_SINK_STDOUT)
            settings.identity = processName();
    }
    s.settings = keep(s, std::move(settings));
    if ((s.settings->sinks & LOG_SINK_SYSLOG) != 0)
        openlog(s.settings->identity.c_str(), 0, s.settings->facility);  // syslog keeps the pointer
    s.inForce.store(s.settings);
}

void stop(State &s) {
    if ((s.settings->sinks & LOG_SINK_SYSLOG) != 0)
        closelog();
    closeStream(s);
    closeLevelFile(s);
    s.inForce.store(nullptr);
}

const Settings &startedSettings(State &s) {
    if (const Settings *const settings = s.inForce.load())
        return *settings;
    const std::lock_guard lock(s.mutex);
    if (s.inForce.load() == nullptr)
        start(s);
    return *s.settings;
}

// `place` is null for a format that states it itself.
__attribute__((format(printf, 3, 0))) void writeMessage(int level, const Where *place, const char *format,
                                                        std::va_list args) {
    State &s = state();
    const Settings &settings = startedSettings(s);
    if ((settings.sinks & (LOG_SINK_FILE | LOG_SINK_STDOUT)) != 0) {
        std::va_list own;
        va_copy(own, args);
        const auto known = level >= 0 && static_cast<std::size_t>(level) < kLevels;
        const Line line(settings.openings[known ? static_cast<std::size_t>(level) : 0], place, format, own);
        va_end(own);
        if ((settings.sinks & LOG_SINK_STDOUT) != 0)
            writeStandardOutput(line.text());
        if ((settings.sinks & LOG_SINK_FILE) != 0)
            writeStream(s, line.text());
    }
    if ((settings.sinks & LOG_SINK_SYSLOG) != 0) {
        const std::string front = place != nullptr ? "[" + std::string(place->function()) + ":" +
                                                         std::to_string(place->line()) + "] "
                                                   : "";
        vsyslog(std::clamp(level, LOG_EMERG, LOG_DEBUG), (front + format).c_str(), args);
    }
}

}  // namespace

void devmgrLogOpen(std::int32_t sinks, std::int32_t facility, const char *identity) {
    State &s = state();
    const std::lock_guard lock(s.mutex);
    if (s.inForce.load() != nullptr)
        stop(s);
    closeStream(s);
    s.settings = keep(s, Settings{sinks, facility, identity != nullptr ? identity : ""});
    if (s.levelFd.load() < 0)
        openLevelFile(s);
    if ((sinks & LOG_SINK_FILE) != 0)
        openStream(s);
}

void devmgrLog(int level, const char *format, ...) {
    if (level > threshold())
        return;
    std::va_list args;
    va_start(args, format);
    writeMessage(level, nullptr, format, args);
    va_end(args);
}

void writeLogLine(int level, const Where &where, const char *format, ...) {
    if (level > threshold())
        return;
    std::va_list args;
    va_start(args, format);
    writeMessage(level, &where, format, args);
    va_end(args);
}

void devmgrLogClose() {
    State &s = state();
    const std::lock_guard lock(s.mutex);
    if (s.inForce.load() != nullptr)
        stop(s);
}

int devmgrLogLevelGet() {
    return threshold();
}

bool devmgrLogLevelSet(int level) {
    State &s = state();
    const std::lock_guard lock(s.mutex);
    if (s.levelFd.load() < 0)
        openLevelFile(s);
    const int fd = s.levelFd.load();
    const auto digit = static_cast<char>('0' + level);
    if (level < 0 || level > 9 || fd < 0 || pwrite(fd, &digit, 1, 0) != 1)
        return false;
    s.levelDigit.store(digit);
    return true;
}

}  // namespace pavo
