// Profile templates: one JSON file per profile type in platform::paths::kProfileTemplateDir, with the
// settings that the web interface shows and edits. A file is named by its type with every blank replaced by
// "_".
//
// Paths are fixed paths (platform/paths.h). A name that is no plain file name ("/", control characters, ".",
// "..", nothing at all) has no path: the helpers return an empty text, and the name counts as that of a
// missing file. Any thread may call these operations.
#ifndef PAVO_STORE_PROFILE_TEMPLATE_H
#define PAVO_STORE_PROFILE_TEMPLATE_H

#include <cjson/cJSON.h>

#include <cstdint>
#include <string>
#include <string_view>

// The one shipped template whose file is not named by its type, PROFILE_TYPE_NAME_POLY.
inline constexpr std::string_view PROFILE_TEMPLATE_FILE_POLY = "Poly_StudioNet_Modular_Room_Switch";

// The file name of a type: blanks replaced by "_". Nothing is cut or checked.
std::string profileTemplateFileName(std::string_view typeName);

// Where the template of a type is read from; names are cut to 255 characters.
std::string profileTemplatePath(std::string_view typeName);

// Where the template operations create, edit and delete; names are cut to 31 characters, as users' templates
// always were, and paths to 126.
std::string profileTemplateUserPath(std::string_view typeName);

// The parsed template of a type, the caller's to delete (cJSON_Delete). Null when the name is null or empty
// or the file is missing or does not parse.
cJSON *profileTemplateLoad(const char *typeName);

// The settings file that a profile keeps for one of its VLANs.
std::string profileVlanConfigPath(std::int32_t vlanId);

#endif
