// The profile templates that the web interface shows and edits. These run on the caller's thread and take no
// locks; failures are logged on behalf of `where`.
#ifndef PAVO_PROFILE_TEMPLATES_H
#define PAVO_PROFILE_TEMPLATES_H

#include <cstddef>
#include <cstdint>
#include <source_location>
#include <string>
#include <string_view>

#include "common/result.h"
#include "swapi/switch.h"

namespace pavo {

// Room for a listing and for one template, with the terminating zero.
inline constexpr std::size_t PROFILE_TEMPLATE_LIST_SIZE = 30720;

// The templates offered on this switch, in the order of their file names, as one JSON array; "[" alone when
// there is none, "[]" when the folder cannot be read. Templates from the first on that does not fit are left
// out. Well-formed UTF-8: a byte that is part of no character becomes '?'.
std::string listTemplates(Switch sw, Where where = std::source_location::current());

// The same as JSON that any reader accepts: "[]" when there is none; templates that are not JSON are left out
// (logged). Failed when the machine model or the folder cannot be read.
Result<std::string> listSoundTemplates(Switch sw, Where where = std::source_location::current());

// {"profile": {"name": type, ...}}: stores the "profile" object as the template of the type. Create:
// TypeDuplicated when it has one; Edit: Failed when it has none. InvalidPointer when the request does not
// parse; InvalidArgument without a "profile" or a usable name; Failed when it cannot be written.
enum class TemplateStore { Create, Edit };
Result<> storeTemplate(TemplateStore how, const std::string &requestText,
                       Where where = std::source_location::current());

// {"name": type}: deletes the template of the type, and what the profile database and the settings files
// still hold of its VLANs that the switch no longer has. Failed when there is no template or it cannot be
// deleted; InvalidPointer when the request does not parse; InvalidArgument without a name; TemplateInUse,
// with nothing changed, when a VLAN of the type exists.
Result<> deleteTemplate(Switch sw, const std::string &requestText,
                        Where where = std::source_location::current());

// The number of VLANs of a profile type that exist on the switch; 0 when the database cannot be read.
std::int32_t countAssigned(Switch sw, std::string_view typeName,
                           Where where = std::source_location::current());

}  // namespace pavo

#endif
