#include "profile/file_snapshots.h"

#include <algorithm>

#include "common/files.h"
#include "platform/paths.h"

namespace pavo {

Result<> replaceProfileFile(const std::string &fixedPath, const std::string &text, const Where &where) {
    for (const std::string watched : {platform::paths::kPavoExDir, platform::paths::kVlanProfileConfigDir})
        if (fixedPath.starts_with(watched + "/"))
            return replaceFileBy(watched + "." + fixedPath.substr(watched.size() + 1) + ".new", fixedPath,
                                 text, where);
    return replaceFile(fixedPath, text, where);
}

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
        else if (auto replaced = replaceProfileFile(path, *content, where); first && !replaced)
            first = std::move(replaced);
    return first;
}

}  // namespace pavo
