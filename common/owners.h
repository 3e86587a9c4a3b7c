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

// Deletes a fixed path; a file that is not there is no error.
void fileRemove(const char *fixedPath);

#endif
