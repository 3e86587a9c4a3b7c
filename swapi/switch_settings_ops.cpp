#include "swapi/switch_settings_ops.h"

#include <cstring>
#include <string>

#include "common/log.h"
#include "common/text.h"
#include "platform/paths.h"
#include "swapi/switch_settings.h"

namespace pavo {
namespace {

namespace paths = platform::paths;

Result<> refuse(const char *what, const Where &where) {
    logError(where, "[%s:%d] Invalid %s\r\n", what);
    return failed(ResultCode::InvalidArgument);
}

Result<> applyScript(Switch sw, const std::string &script, const ScriptFiles &files, const Where &where) {
    if (const auto applied = sw.apply(script, files, where); !applied)
        return failed(applied.error().code);
    return {};
}

Result<> fill(BootImageList *list, const Result<std::vector<BootImage>> &images) {
    list->count = 0;
    if (!images)
        return std::unexpected(images.error());
    for (const BootImage &image : *images) {
        BootImageRecord &record = list->records[list->count++];
        record.unit = image.unit;
        copyText(record.active, image.active);
        copyText(record.backup, image.backup);
        copyText(record.currentActive, image.currentActive);
        copyText(record.nextActive, image.nextActive);
    }
    return {};
}

// Where the parts of a management address go; null where they are not wanted.
struct AddressFields {
    std::int32_t *vlan = nullptr;
    char *method = nullptr;
    char *ip = nullptr;
    char *mask = nullptr;
    char *gateway = nullptr;
};

void fillText(char *field, const std::optional<std::string> &text) {
    if (field != nullptr && text)
        copyText(*reinterpret_cast<char(*)[MGMT_TEXT_SIZE]>(field), *text);
}

Result<> readAddress(Switch sw, const AddressFields &fields, Where where) {
    const auto address = readManagementAddress(sw, where);
    if (!address)
        return std::unexpected(address.error());
    if (fields.vlan != nullptr)
        *fields.vlan = address->vlan.value_or(*fields.vlan);
    fillText(fields.method, address->method);
    fillText(fields.ip, address->ip);
    fillText(fields.mask, address->mask);
    fillText(fields.gateway, address->gateway);
    return {};
}

Result<> readAddressSafe(Switch sw, const AddressFields &fields, Where where) {
    return underLock(paths::kIpManagementGetLock, [&] { return readAddress(sw, fields, where); }, where);
}

Result<> setAddress(Switch sw, std::int32_t vlan, std::int32_t mode, const char *ip, const char *mask,
                    const char *gateway, Where where) {
    const auto id = VlanId::from(vlan);
    if (!id)
        return refuse("management VLAN", where);
    const ScriptFiles files{paths::kIpManagementIn, paths::kIpManagementOut};
    if (mode != MGMT_MODE_STATIC)
        return applyScript(sw, dhcpScript(*id), files, where);
    if (ip == nullptr || mask == nullptr || gateway == nullptr)
        return refuse("management address", where);
    const auto script = staticAddressScript(*id, ip, mask, gateway);
    return script ? applyScript(sw, *script, files, where) : refuse(script.error(), where);
}

Result<> setSpeed(Switch sw, std::span<const std::uint32_t> ports, const char *speed, Where where) {
    const std::vector<IfNum> ifNums(ports.begin(), ports.end());
    const auto scripts = speed != nullptr ? speedScripts(ifNums, speed) : std::nullopt;
    if (!scripts)
        return refuse("speed", where);
    for (const std::string &script : *scripts)
        if (auto applied = applyScript(sw, script, {paths::kSpeedIn, paths::kSpeedOut}, where); !applied)
            return applied;
    return {};
}

}  // namespace

std::int32_t bootvarGet(Switch sw, BootImageList *list) {
    return codeOf(fill(list, readBootImages(sw, list->capacity)));
}

std::int32_t bootvarGetSafe(Switch sw, BootImageList *list) {
    const Where where = std::source_location::current();
    return codeOf(underLock(
        paths::kBootvarLock, [&] { return fill(list, readBootImages(sw, list->capacity, where)); }, where));
}

std::int32_t managementPortIPv4ParametersGet(Switch sw, std::int32_t *vlan, char method[MGMT_TEXT_SIZE],
                                             char ip[MGMT_TEXT_SIZE], char mask[MGMT_TEXT_SIZE],
                                             char gateway[MGMT_TEXT_SIZE]) {
    return codeOf(readAddress(sw, {vlan, method, ip, mask, gateway}, std::source_location::current()));
}

std::int32_t managementPortIPv4ParametersGetSafe(Switch sw, std::int32_t *vlan, char method[MGMT_TEXT_SIZE],
                                                 char ip[MGMT_TEXT_SIZE], char mask[MGMT_TEXT_SIZE],
                                                 char gateway[MGMT_TEXT_SIZE]) {
    return codeOf(readAddressSafe(sw, {vlan, method, ip, mask, gateway}, std::source_location::current()));
}

std::int32_t managementPortIPv4ParametersSet(Switch sw, std::int32_t vlan, std::int32_t mode, const char *ip,
                                             const char *mask, const char *gateway) {
    return codeOf(setAddress(sw, vlan, mode, ip, mask, gateway, std::source_location::current()));
}

std::int32_t managementPortIPv4ParametersSetSafe(Switch sw, std::int32_t vlan, std::int32_t mode,
                                                 const char *ip, const char *mask, const char *gateway) {
    const Where where = std::source_location::current();
    return codeOf(underLock(
        paths::kIpManagementSetLock, [&] { return setAddress(sw, vlan, mode, ip, mask, gateway, where); },
        where));
}

std::int32_t multipleIfSpeedSet(Switch sw, std::span<const std::uint32_t> ports, const char *speed) {
    return codeOf(setSpeed(sw, ports, speed, std::source_location::current()));
}

std::int32_t multipleIfSpeedSetSafe(Switch sw, std::span<const std::uint32_t> ports, const char *speed) {
    const Where where = std::source_location::current();
    return codeOf(underLock(paths::kSpeedLock, [&] { return setSpeed(sw, ports, speed, where); }, where));
}

std::int32_t managementVlanGet(Switch sw, std::int32_t *vlan) {
    const Where where = std::source_location::current();
    if (sw.handle() == nullptr || vlan == nullptr)
        return codeOf(refuse("management VLAN", where));
    *vlan = 1;
    return codeOf(readAddressSafe(sw, {.vlan = vlan}, where));
}

std::int32_t managementGatewayGet(Switch sw, char *dst, std::size_t cap) {
    const Where where = std::source_location::current();
    if (sw.handle() == nullptr || dst == nullptr || cap == 0)
        return codeOf(refuse("management gateway", where));
    dst[0] = '\0';
    char gateway[MGMT_TEXT_SIZE] = "";
    const auto read = readAddressSafe(sw, {.gateway = gateway}, where);
    if (read && gateway[0] != '\0' && std::strcmp(gateway, "0.0.0.0") != 0) {
        const std::size_t length = std::string_view(gateway).substr(0, cap - 1).copy(dst, cap - 1);
        dst[length] = '\0';
    }
    return codeOf(read);
}

}  // namespace pavo
