// The operations of the web interface on profile templates; requests are JSON. They run on the caller's
// thread and take no locks.
#ifndef PAVO_PROFILE_TEMPLATES_OPS_H
#define PAVO_PROFILE_TEMPLATES_OPS_H

#include <cstdint>

#include "profile/templates.h"

namespace pavo {

// The templates offered on this switch as a JSON array, see listTemplates. The second argument is not used;
// `out` has PROFILE_TEMPLATE_LIST_SIZE bytes. Always 0.
std::int32_t ProfileTemplateGet(Switch sw, const char *request, char *out);

// An overload, ProfileTemplateGet(client, json, size), produces the cached answer: see listSoundTemplates and
// store/producers.h.

// {"profile": {"name": type, ...}}: stores the "profile" object as a new template. 0; 10002 when the request
// does not parse; 10003 without a client, a request, its "profile" or a usable name; 14102 when the type has
// a template; 10000 when it cannot be written.
std::int32_t ProfileTemplateCreate(Switch sw, const char *request);

// The same over the template that the type has; 10000 also when it has none.
std::int32_t ProfileTemplateEdit(Switch sw, const char *request);

// {"name": type}: deletes the template of the type, see deleteTemplate. 0; 10000 when there is no template or
// it cannot be deleted; 10002 when the request does not parse; 10003 without a name; 14101, with nothing
// changed, when a VLAN of the type exists.
std::int32_t ProfileTemplateDelete(Switch sw, const char *request);

// The number of VLANs of a profile type that exist on the switch; 0 when the database cannot be opened.
std::int32_t ProfileAssignedCount(Switch sw, const char *typeName);

}  // namespace pavo

#endif
