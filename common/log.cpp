#include "common/log.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdarg>
#include <cstring>
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
#include "platform/clock.h"
#include "platform/paths.h"

namespace pavo {
namespace {

constexpr int kLevelDefault = LOG_LEVEL_INFO;
constexpr std::size_t kLevelFileSize = 4;
constexpr std::int64_t kRotateAbove = 0x100000;

// Never changed once messages can see it, and never freed: a message works on the settings it started with,
// and syslog keeps a pointer to the identity.
struct Settings {
    std::int32_t sinks = -1;
    std::int32_t facility = -1;
    std::string identity;  // empty: not given

    bool operator==(const Settings &) const = default;
};

struct State {
    std::mutex mutex;  // all of the state but the level byte
    std::deque<Settings> everySettings{Settings{}};
    const Settings *settings = &everySettings.front();
    std::atomic<const Settings *> inForce{nullptr};  // the same once the facility has started
    int stream = -1;
    std::int64_t byteCount = 0;

    int levelFd = -1;
    std::atomic<unsigned char *> levelByte{nullptr};
    std::atomic<int> levelReaders{0};  // threads that look at the level byte at this moment
    // The mapping itself, for onBusError: outlasts levelByte until its last reader is gone.
    std::atomic<unsigned char *> levelMapping{nullptr};
    std::atomic<bool> levelLost{false};  // the file was cut under the mapping, see onBusError
    struct sigaction busHandlerBefore{};
    std::atomic<bool> busPassedOn{false};
};

// Never destroyed: detached threads may log while the process exits.
State &state() {
    static State &instance = *new State;
    return instance;
}

// --- threshold

// Any process may truncate the level file, as a shell does before it writes the new digit; until that is
// written, reading the mapping raises SIGBUS. Zeroes are put in its place, which read as "no digit".
void onBusError(int signal, siginfo_t *info, void *) {
    State &s = state();
    const bool sent = info->si_code <= 0;  // and not raised by an instruction that is about to run again
    unsigned char *const byte = s.levelMapping.load();
    if (!sent && byte != nullptr && info->si_addr == byte &&
        mmap(byte, kLevelFileSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) ==
            byte) {
        s.levelLost.store(true);
        return;
    }
    // The next handler may hand back to this one what it does not want: then the process ends.
    const struct sigaction byDefault{};
    sigaction(signal, s.busPassedOn.exchange(true) ? &byDefault : &s.busHandlerBefore, nullptr);
    if (sent)
        raise(signal);
}

// Goes in front of the present handler, which may have been set after ours: a crash logger is registered when
// the log is open already.
void setBusHandler(State &s) {
    struct sigaction present{};
    if (sigaction(SIGBUS, nullptr, &present) != 0 || present.sa_sigaction == onBusError)
        return;
    s.busHandlerBefore = present;
    s.busPassedOn.store(false);
    struct sigaction action{};
    action.sa_sigaction = onBusError;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGBUS, &action, nullptr);
}

bool isDigit(unsigned char c) {
    return c >= '0' && c <= '9';
}

// Makes sure of the digit, through the descriptor, which cannot fault.
bool ensureDigit(int fd) {
    unsigned char digit = 0;
    constexpr char kDigitDefault = '0' + kLevelDefault;
    return (pread(fd, &digit, 1, 0) == 1 && isDigit(digit)) || pwrite(fd, &kDigitDefault, 1, 0) == 1;
}

// Maps the open level file, in the place of an earlier mapping when `at` is given.
unsigned char *attachLevel(int fd, void *at) {
    if (ftruncate(fd, kLevelFileSize) != 0)
        return nullptr;
    const int flags = MAP_SHARED | (at != nullptr ? MAP_FIXED : 0);
    void *const map = mmap(at, kLevelFileSize, PROT_READ | PROT_WRITE, flags, fd, 0);
    return map != MAP_FAILED ? static_cast<unsigned char *>(map) : nullptr;
}

void unmapLevel(State &s) {
    s.levelByte.store(nullptr);
    while (s.levelReaders.load() != 0)
        std::this_thread::yield();
    if (unsigned char *const mapping = s.levelMapping.exchange(nullptr))
        munmap(mapping, kLevelFileSize);
    if (s.levelFd >= 0)
        close(s.levelFd);
    s.levelFd = -1;
    s.levelLost.store(false);
}

void mapLevel(State &s) {
    setBusHandler(s);
    s.levelFd =
        open(platform::fsPath(platform::paths::kLogLevelFile).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (s.levelFd >= 0)
        s.levelMapping.store(attachLevel(s.levelFd, nullptr));
    if (s.levelMapping.load() != nullptr && ensureDigit(s.levelFd))
        s.levelByte.store(s.levelMapping.load());
    else
        unmapLevel(s);
}

// Goes back to the level file after onBusError. No digit is written: it would overwrite the one that whoever
// truncated the file is about to write.
void restoreLevel(State &s) {
    const std::lock_guard lock(s.mutex);
    unsigned char *const byte = s.levelByte.load();
    if (s.levelLost.exchange(false) && byte != nullptr && attachLevel(s.levelFd, byte) == nullptr)
        unmapLevel(s);
}

// Written by other processes only. The mapping may be replaced while it is read, which is no data race
// either, though the thread sanitizer takes it for one.
__attribute__((no_sanitize("thread"))) unsigned char readDigit(const volatile unsigned char *byte) {
    return *byte;
}

int threshold() {
    State &s = state();
    unsigned char digit = 0;
    s.levelReaders.fetch_add(1);  // keeps the mapping until it has been read
    if (unsigned char *const byte = s.levelByte.load())
        digit = readDigit(byte);
    s.levelReaders.fetch_sub(1);
    if (isDigit(digit))
        return digit - '0';
    if (s.levelLost.load())
        restoreLevel(s);
    return kLevelDefault;
}

// --- lines

std::string_view levelName(int level) {
    static constexpr std::string_view kNames[] = {"", "", "", "ERROR", "WARN", "NOTICE", "INFO", "DEBUG"};
    return level >= 0 && level < static_cast<int>(std::size(kNames)) ? kNames[level] : "";
}

// Local time to the millisecond; empty when it cannot be told. Converted once a second, in between only the
// milliseconds are replaced.
std::string_view timeText() {
    thread_local std::time_t second = 0;
    thread_local char text[96];
    thread_local std::size_t length = 0;
    const std::timespec now = platform::wallNow();
    const long millis = now.tv_nsec / 1'000'000;
    if (length == 0 || now.tv_sec != second) {
        std::tm local{};
        length = 0;
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
    Line(int level, const std::string &identity, const Where *place, const char *format, std::va_list args)
        __attribute__((format(printf, 5, 0))) {
        const std::string_view time = timeText();
        std::va_list again;
        va_copy(again, args);
        const std::size_t needed = put(stack_, sizeof stack_, time, level, identity, place, format, args);
        length_ = needed;
        if (needed >= sizeof stack_) {
            heap_.reset(new (std::nothrow) char[needed + 1]);
            if (heap_ != nullptr)
                put(heap_.get(), needed + 1, time, level, identity, place, format, again);
            else
                length_ = sizeof stack_ - 1;
        }
        va_end(again);
    }

    std::string_view text() const { return {heap_ != nullptr ? heap_.get() : stack_, length_}; }

  private:
    // Length of the whole line, of which as much as fits is in `out`. The prefix, "%s (%s): %s: ", is put
    // together by hand: for a short line snprintf would cost as much as the message itself.
    static std::size_t put(char *out, std::size_t room, std::string_view time, int level,
                           const std::string &identity, const Where *place, const char *format,
                           std::va_list args) __attribute__((format(printf, 7, 0))) {
        using namespace std::string_view_literals;
        std::size_t used = 0;
        char number[16];
        std::string_view opening, function, colon, line, closing;
        if (place != nullptr) {
            const char *const end = std::to_chars(std::begin(number), std::end(number), place->line()).ptr;
            opening = "["sv, function = place->function(), colon = ":"sv, closing = "] "sv;
            line = {number, static_cast<std::size_t>(end - number)};
        }
        for (const std::string_view part :
             {time, time.empty() ? "("sv : " ("sv, levelName(level), "): "sv, std::string_view(identity),
              ": "sv, opening, function, colon, line, closing}) {
            const std::size_t at = std::min(used, room);
            part.copy(out + at, room - at);
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
}

void closeStream(State &s) {
    if (s.stream >= 0)
        close(std::exchange(s.stream, -1));
}

void openStream(State &s) {
    s.byteCount = 0;
    s.stream = open(platform::fsPath(platform::paths::kLogFile).c_str(),
                    O_RDWR | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC, 0666);
    struct stat info{};
    if (s.stream < 0)
        return;
    if (fstat(s.stream, &info) != 0 || !S_ISREG(info.st_mode))
        closeStream(s);  // a pipe would block every thread once it is full
    else
        s.byteCount = info.st_size;
}

void rotateStream(State &s) {
    closeStream(s);
    removeFile(platform::paths::kLogFileOld);
    std::rename(platform::fsPath(platform::paths::kLogFile).c_str(),
                platform::fsPath(platform::paths::kLogFileOld).c_str());
    openStream(s);
    s.byteCount = 0;  // where the file could not be renamed it goes on growing, and lines are not lost
}

void writeStream(State &s, std::string_view line) {
    const std::lock_guard lock(s.mutex);
    if (s.stream < 0) {
        writeStandardOutput(line);
        return;
    }
    s.byteCount += static_cast<std::int64_t>(line.size());
    while (!line.empty()) {
        const ssize_t written = write(s.stream, line.data(), line.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            break;  // a full disk: the line is lost, as it would be anywhere else
        line.remove_prefix(static_cast<std::size_t>(written));
    }
    if (s.byteCount > kRotateAbove)
        rotateStream(s);
}

// --- life cycle

// The one copy of these settings.
const Settings *keep(State &s, Settings settings) {
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
    setBusHandler(s);
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
    unmapLevel(s);
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
        const Line line(level, settings.identity, place, format, own);
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
    if (s.levelByte.load() == nullptr)
        mapLevel(s);
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

}  // namespace pavo
