#include "profile/templates.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

#include "common/files.h"
#include "common/json.h"
#include "common/log.h"
#include "common/text.h"
#include "platform/paths.h"
#include "profile/offer.h"
#include "store/profile_db.h"
#include "store/profile_template.h"
#include "store/vlan_settings.h"
#include "swapi/script_file.h"

namespace pavo {
namespace {

// --- listing

// Without the terminating zero.
constexpr std::size_t kListMax = PROFILE_TEMPLATE_LIST_SIZE - 1;
// Behind the content: its separator, the closing bracket and the zero.
constexpr std::size_t kListReserve = 3;
constexpr std::size_t kPathMax = 511;

// The names in a folder in alphabetical order; nothing when it cannot be read.
std::optional<std::vector<std::string>> readFolder(const char *fixedPath) {
    dirent **entries = nullptr;
    const int count = scandir(platform::fsPath(fixedPath).c_str(), &entries, nullptr, alphasort);
    if (count < 0)
        return std::nullopt;
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) {
        names.emplace_back(entries[i]->d_name);
        std::free(entries[i]);
    }
    std::free(static_cast<void *>(entries));
    return names;
}

// The beginning of a file as text, as far as there is room for it. Empty when it cannot be opened or has
// nothing to read; a pipe among the templates does not hold up the caller.
std::string readBeginning(const std::string &fixedPath) {
    const int fd = open(platform::fsPath(fixedPath).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return {};
    std::string text(kListMax, '\0');
    std::size_t length = 0;
    ssize_t got = 0;
    while (length < text.size() && (got = read(fd, text.data() + length, text.size() - length)) > 0)
        length += static_cast<std::size_t>(got);
    close(fd);
    text.resize(strnlen(text.data(), length));
    return text;
}

// --- create, edit, delete

std::unexpected<Failure> reportParameter(const std::string &requestText, const Where &where) {
    logWarn(where, "[%s:%d] profile param error :%s\r\n", requestText);
    return failed(ResultCode::InvalidArgument);
}

std::unexpected<Failure> reportMissing(const std::string &what, const Where &where) {
    logWarn(where, "[%s:%d] %s non-existent\n\r", what);
    return failed(ResultCode::Failed);
}

// The ids of a type's rows. Names are compared here and not by SQLite: one that comes with a request never
// becomes part of a statement.
std::vector<ProfileRow> rowsOfType(std::string_view typeName, const Where &where) {
    auto rows = readProfileRowsUnsorted(where).value_or(std::vector<ProfileRow>{});
    std::erase_if(rows, [&](const ProfileRow &row) { return row.profileType != typeName; });
    return rows;
}

OpenResult<> checkVlanOf(Switch sw, const ProfileRow &row) {
    const auto id = row.vlan();
    return id ? sw.checkVlan(*id) : OpenResult<>(std::unexpected(OpenError::NotFound));
}

std::int32_t countOnSwitch(Switch sw, const std::vector<ProfileRow> &rows) {
    return static_cast<std::int32_t>(std::count_if(
        rows.begin(), rows.end(), [&](const ProfileRow &row) { return checkVlanOf(sw, row).has_value(); }));
}

void removeOrphan(const ProfileRow &row, const Where &where) {
    logInfo(where, "[%s:%d] Cleaning up orphaned VLAN %d entry (profile: %s)\r\n", row.id, row.profileType);
    static_cast<void>(deleteProfileRow(row.id, where));
    const auto id = row.vlan();
    if (!id || !fileExists(vlanSettingsPath(*id)))
        return;
    removeFile(vlanSettingsPath(*id));
    logInfo(where, "[%s:%d] Removed orphaned config file: %s\r\n", vlanSettingsPath(*id));
}

// One of these makes of the content of a template what is listed; nothing for one that is not (logged).
std::optional<std::string> asItStands(std::string content, const std::string &, const Where &) {
    return content;
}

std::optional<std::string> ifSound(std::string content, const std::string &path, const Where &where) {
    if (const JsonPtr parsed(cJSON_ParseWithOpts(content.c_str(), nullptr, true)); parsed != nullptr)
        return wellFormed(content);
    logError(where, "[%s:%d] %s is no JSON\n", path);
    return std::nullopt;
}

using Accept = std::optional<std::string> (*)(std::string content, const std::string &path, const Where &);

// The templates, each with a separator in front; nothing (logged) when the folder cannot be read.
std::optional<std::string> joinTemplates(const Offer &offer, Accept accept, const Where &where) {
    const auto files = readFolder(platform::paths::kProfileTemplateDir);
    if (!files) {
        logError(where, "[%s:%d] Open dir error...\r\n");
        return std::nullopt;
    }
    std::string out;
    for (const auto &file : *files) {
        if (!offer.hasTemplate(file))
            continue;
        const auto path = (platform::paths::kProfileTemplateDir + file).substr(0, kPathMax);
        // Names of templates may be any bytes; the listing is one that every parser takes.
        const auto content = wellFormed(readBeginning(path));
        if (content.empty()) {
            logError(where, "[%s:%d] ProfileTemplateGet: Failed to open file %s\n", path);
            continue;
        }
        if (out.size() + content.size() + kListReserve > kListMax) {
            logError(where,
                     "[%s:%d] ProfileTemplateGet: Response buffer full, skipping remaining profiles\n");
            break;
        }
        if (const auto listed = accept(content, path, where))
            out += ',' + *listed;
    }
    return out;
}

}  // namespace

std::string listTemplates(Switch sw, Where where) {
    auto out = joinTemplates(Offer::of(sw, where), asItStands, where);
    if (!out)
        return "[]";
    // The first separator makes room for the bracket, and an empty listing is that bracket alone.
    *out += ']';
    (*out)[0] = '[';
    return *out;
}

Result<std::string> listSoundTemplates(Switch sw, Where where) {
    const auto offer = Offer::read(sw, where);
    if (!offer)
        return std::unexpected(offer.error());
    const auto list = joinTemplates(*offer, ifSound, where);
    if (!list)
        return failed(ResultCode::Failed, "the templates cannot be read");
    return "[" + list->substr(list->empty() ? 0 : 1) + "]";
}

Result<> storeTemplate(TemplateStore how, const std::string &requestText, Where where) {
    const JsonPtr root(cJSON_Parse(requestText.c_str()));
    if (root == nullptr) {
        if (how == TemplateStore::Create)
            logError(where, "[%s:%d] profile  load json error\r\n");
        else
            logError(where, "[%s:%d] profile load json error\r\n");
        return failed(ResultCode::InvalidPointer);
    }
    const cJSON *const profile = member(root.get(), "profile");
    const auto name = stringMember(profile, "name");
    if (!cJSON_IsObject(profile) || !name)
        return reportParameter(requestText, where);

    const std::string path = profileTemplateUserPath(*name);
    if (how == TemplateStore::Create) {
        if (path.empty())
            return reportParameter(requestText, where);
        if (fileExists(path)) {
            logError(where, "[%s:%d] %s Already exists\n\r", path);
            return failed(ResultCode::TypeDuplicated);
        }
    } else if (path.empty() || !fileExists(path)) {
        return reportMissing(path.empty() ? *name : path, where);
    }
    const std::string text = printJsonLine(profile);
    if (text.empty()) {
        logError(where, "[%s:%d] Content error...\r\n");
        return failed(ResultCode::InvalidArgument);
    }
    auto written = writeScriptFile(path, "w", text, where);
    if (written)
        logDebug(where, "[%s:%d] %s %s\n\r", path, text);
    return written;
}

Result<> deleteTemplate(Switch sw, const std::string &requestText, Where where) {
    const JsonPtr root(cJSON_Parse(requestText.c_str()));
    if (root == nullptr) {
        logError(where, "[%s:%d] profile load json error\r\n");
        return failed(ResultCode::InvalidPointer);
    }
    const auto name = stringMember(root.get(), "name");
    if (!name)
        return reportParameter(requestText, where);
    const std::string path = profileTemplateUserPath(*name);
    if (path.empty() || !fileExists(path))
        return reportMissing(path.empty() ? *name : path, where);

    const auto rows = rowsOfType(*name, where);
    if (countOnSwitch(sw, rows) >= 1)
        return failed(ResultCode::TemplateInUse);
    for (const auto &row : rows) {
        // A switch that does not answer may well have the VLAN.
        const auto check = checkVlanOf(sw, row);
        if (!check && check.error() != OpenError::Unreachable)
            removeOrphan(row, where);
    }
    if (unlink(platform::fsPath(path).c_str()) != 0) {
        logError(where, "[%s:%d] Remove file error...%s: %s\r\n", path, std::strerror(errno));
        return failed(ResultCode::Failed);
    }
    return {};
}

std::int32_t countAssigned(Switch sw, std::string_view typeName, Where where) {
    return countOnSwitch(sw, rowsOfType(typeName, where));
}

}  // namespace pavo
