// The files that tell detection what it is to look for: a function of the profiles that are there. Callers
// hold the profile lock.
#ifndef PAVO_PROFILE_DETECTION_FILES_H
#define PAVO_PROFILE_DETECTION_FILES_H

#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "common/log_format.h"
#include "common/result.h"
#include "common/where.h"
#include "profile/file_snapshots.h"
#include "profile/request.h"
#include "profile/standing.h"

namespace pavo {

// One file; the table has a row for each.
struct DetectionFile {
    const char *profileType;  // null: there is one for every type
    const char *path;         // null: named by the type, in the folder for requests
    const char *operation;    // that writes it, for the log
    bool severalVlansOnly;    // written only for a request that declares several VLANs
    // The content, formatted; `document` is the whole request. Empty when memory runs out.
    std::string (*make)(const ProfileRequest &request, const std::string &document, const Where &where);
    // Log lines. `checking` is about the type of any request and that of the row; `content` is in one line,
    // `written` names the path.
    LogFormat<std::string, std::string> checking = {};
    LogFormat<> writing = {}, failed = {};
    LogFormat<std::string> content = {}, written = {};
};

// The row of a type of its own.
const DetectionFile &detectionFileOf(std::string_view profileType);

// Where detection finds the file for a type (a fixed path): its own one, or the request as it is kept.
std::string detectionFilePath(std::string_view profileType);

// Writes one file for a request, whatever its type.
Result<> writeDetectionFile(const DetectionFile &file, const ProfileRequest &request,
                            const std::string &document = {});

// Writes the files that a request asks for and notes before what they held. A file that cannot be written is
// reported in the log only.
void writeDetectionFiles(const ProfileConfig &config, FileSnapshots &snapshots,
                         Where where = std::source_location::current());

// What a file is to hold; nothing: it is not to be there.
struct DetectionFileState {
    std::string path;
    std::optional<std::string> text;
};

// All files of all types, as the profiles that are there make them: each by the profile of its type that was
// applied last, as far as its VLANs are its own.
std::vector<DetectionFileState> detectionFilesOf(const Standing &standing, const Where &where);

}  // namespace pavo

#endif
