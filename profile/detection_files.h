// The files that tell detection what it is to look for: written for a request, put back when it fails, and
// deleted with the last VLAN of their type. Callers hold the profile lock.
#ifndef PAVO_PROFILE_DETECTION_FILES_H
#define PAVO_PROFILE_DETECTION_FILES_H

#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "common/log_format.h"
#include "common/result.h"
#include "common/where.h"
#include "profile/file_snapshots.h"
#include "profile/request.h"

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

// The file that keeps the whole request of a type with several VLANs.
std::string profileExFilePath(std::string_view profileType);

// Writes one file for a request, whatever its type.
Result<> writeDetectionFile(const DetectionFile &file, const ProfileRequest &request,
                            const std::string &document = {});

// Writes the files that a request asks for and notes before what they held. A file that cannot be written is
// reported in the log only.
void writeDetectionFiles(const ProfileConfig &config, FileSnapshots &snapshots,
                         Where where = std::source_location::current());

// The files that go when no VLAN of the type is left; nothing for a type that is not in the table of types.
std::vector<std::string> detectionFilesOfType(std::string_view profileType);

}  // namespace pavo

#endif
