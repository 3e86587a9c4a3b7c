// Small owners for what the C libraries hand out.
#ifndef PAVO_COMMON_OWNERS_H
#define PAVO_COMMON_OWNERS_H

#include <cjson/cJSON.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

struct JsonDeleter {
    void operator()(cJSON *obj) const { cJSON_Delete(obj); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;

struct FreeDeleter {
    void operator()(void *text) const { std::free(text); }
};
// Text printed by cJSON or handed out by an operation of the program.
using TextPtr = std::unique_ptr<char, FreeDeleter>;

struct FileCloser {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

// fopen on a fixed path, under the root of platform/paths.h; null when it cannot be opened.
FilePtr fileOpen(const char *fixedPath, const char *mode);

// Holds an exclusive lock on a fixed path, among threads and processes, for as long as it lives; waits for
// it. The file is made when missing and stays.
class FileLock {
  public:
    explicit FileLock(const char *fixedPath);
    ~FileLock();
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

    // False when the file cannot be made or locked.
    bool held() const { return fd_ >= 0; }

  private:
    int fd_;
};

// Deletes a fixed path; a file that is not there is no error.
void fileRemove(const char *fixedPath);

#endif
