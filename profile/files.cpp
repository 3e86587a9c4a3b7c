#include "profile/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"
#include "platform/paths.h"
#include "swapi/cli_apply.h"

std::int32_t fileReplace(const std::string &fixedPath, const std::string &text) {
    const auto beside = fixedPath + ".new";
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(platform::fsPath(fixedPath)).parent_path(),
                                        ignored);
    if (const auto result = writeToFile(beside.c_str(), text.c_str()); result != RESULT_SUCCESS)
        return result;
    if (std::rename(platform::fsPath(beside).c_str(), platform::fsPath(fixedPath).c_str()) == 0)
        return RESULT_SUCCESS;
    LOG_ERROR("[%s:%d] cannot replace %s: %s\r\n", fixedPath.c_str(), std::strerror(errno));
    fileRemove(beside.c_str());
    return RESULT_FAILED;
}

void FileSnapshots::note(const std::string &fixedPath) {
    const bool known =
        std::any_of(files_.begin(), files_.end(), [&](const auto &file) { return file.first == fixedPath; });
    if (known)
        return;
    std::ifstream in(platform::fsPath(fixedPath), std::ios::binary);
    std::optional<std::string> content;
    if (in) {
        std::ostringstream text;
        text << in.rdbuf();
        content = text.str();
    }
    files_.emplace_back(fixedPath, std::move(content));
}

std::int32_t FileSnapshots::restore() const {
    std::int32_t first = RESULT_SUCCESS;
    for (const auto &[path, content] : files_)
        if (!content)
            fileRemove(path.c_str());
        else if (const auto result = fileReplace(path, *content); first == RESULT_SUCCESS)
            first = result;
    return first;
}
