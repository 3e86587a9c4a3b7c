#include "swapi/script_file.h"

#include <cstdio>

#include "common/files.h"
#include "common/log.h"

namespace pavo {

Result<> writeScriptFile(const std::string &path, const char *mode, std::string_view text, Where where) {
    FilePtr file = openFile(path, mode);
    if (file == nullptr) {
        logError(where, "[%s:%d] Open dir error...%s\r\n", path);
        return failed(ResultCode::Failed, "cannot write " + path);
    }
    if (writeWhole(std::move(file), text))
        return {};
    logError(where, "[%s:%d] Write file error...%s\r\n", path);
    if (mode[0] == 'w')
        removeFile(path);
    return failed(ResultCode::Failed, "cannot write " + path);
}

}  // namespace pavo
