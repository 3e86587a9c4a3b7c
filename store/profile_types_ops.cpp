#include "store/profile_types_ops.h"

#include "common/result.h"

namespace pavo {
namespace {

const ProfileType *findByName(const char *typeName) {
    return typeName != nullptr ? findProfileType(typeName) : nullptr;
}

}  // namespace

std::int32_t profileTypeMtuGet(const char *typeName, std::int32_t *mtu) {
    const ProfileType *const type = findByName(typeName);
    *mtu = type != nullptr ? type->attributes.mtu : 0;
    return codeOf(type != nullptr ? ResultCode::Success : ResultCode::Failed);
}

std::int32_t profileTypeAttrGet(const char *typeName, ProfileTypeAttributes *attributes) {
    const ProfileType *const type = findByName(typeName);
    if (type == nullptr)
        return codeOf(ResultCode::Failed);
    *attributes = type->attributes;
    return codeOf(ResultCode::Success);
}

}  // namespace pavo
