// Writing the files that scripts are built in.
#ifndef PAVO_SWAPI_SCRIPT_FILE_H
#define PAVO_SWAPI_SCRIPT_FILE_H

#include <source_location>
#include <string>
#include <string_view>

#include "common/result.h"
#include "common/where.h"

namespace pavo {

// Writes `text` to a file (a fixed path) opened in an fopen mode. Failed (logged) when the file cannot be
// opened or the text cannot be written whole; a file opened for writing anew is deleted then, as half a
// script would be another configuration.
Result<> writeScriptFile(const std::string &path, const char *mode, std::string_view text,
                         Where where = std::source_location::current());

}  // namespace pavo

#endif
