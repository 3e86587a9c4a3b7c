#include "store/profile_template_ops.h"

#include "common/json.h"
#include "store/profile_template.h"

namespace pavo {

cJSON *profileTemplateLoad(const char *typeName) {
    if (typeName != nullptr)
        for (const std::string &path : profileTemplateCandidates(typeName))
            if (cJSON *const found = jsonFileLoad(path.c_str()))
                return found;
    return nullptr;
}

}  // namespace pavo
