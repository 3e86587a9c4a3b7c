#include "profile/file_snapshots.h"

#include <algorithm>

#include "common/files.h"

namespace pavo {

void FileSnapshots::note(const std::string &fixedPath) {
    const bool known =
        std::any_of(files_.begin(), files_.end(), [&](const auto &file) { return file.first == fixedPath; });
    if (!known)
        files_.emplace_back(fixedPath, readFile(fixedPath));
}

Result<> FileSnapshots::restore(Where where) const {
    Result<> first;
    for (const auto &[path, content] : files_)
        if (!content)
            removeFile(path);
        else if (auto replaced = replaceFile(path, *content, where); first && !replaced)
            first = std::move(replaced);
    return first;
}

}  // namespace pavo
