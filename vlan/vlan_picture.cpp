#include "vlan/vlan_picture.h"

#include <cstddef>
#include <map>
#include <new>
#include <utility>

#include "common/files.h"
#include "common/log.h"
#include "platform/paths.h"
#include "store/profile_db.h"
#include "store/profile_template.h"
#include "store/vlan_settings.h"
#include "swapi/switch_settings.h"

namespace pavo {
namespace {

VlanPicture makePicture(Switch sw, VlanId id) {
    VlanPicture picture;
    picture.id = id;
    picture.isStatic = sw.isStaticVlan(id);
    return picture;
}

void applyRow(VlanPicture &picture, const ProfileRow &row) {
    picture.vlanType = static_cast<std::uint32_t>(row.vlanType);
    picture.name = row.profileName;
    picture.color = row.color;
    picture.profileType = row.profileType;
}

// VLAN 1 always has an entry; whoever finds it missing puts it there. An entry that could not be read is not
// missing.
void seedDefaultVlan(VlanPicture &picture, bool isMissing, const Where &where) {
    picture.name = defaultProfileRow().profileName;
    if (isMissing)
        static_cast<void>(replaceProfileRow(defaultProfileRow(), where));
}

Result<std::uint32_t> readNameSize(Switch sw, const Where &where) {
    const auto size = sw.vlanNameSize();
    if (size)
        return *size;
    logError(where, "[%s:%d] Bad return code trying to get VLAN Name Length. (result = %d)\r\n",
             size.error());
    return failed(ResultCode::Failed, "the switch has no VLAN names");
}

// Empty when the VLAN has none.
Result<std::string> readName(Switch sw, VlanId id, std::uint32_t size, const Where &where) {
    try {
        return sw.vlanName(id, size).value_or("");
    } catch (const std::bad_alloc &) {
        logError(where, "[%s:%d] Could not allocate memory.\r\n");
        return failed(ResultCode::InvalidPointer);
    }
}

// Names of VLANs that no profile knows, as the switch has them. The room for names is asked for once.
class SwitchNames {
  public:
    SwitchNames(Switch sw, const Where &where) : sw_(sw), where_(where) {}

    std::string of(VlanId id) {
        if (!size_)
            size_ = readNameSize(sw_, where_).value_or(0);
        const std::string name = *size_ > 0 ? readName(sw_, id, *size_, where_).value_or("") : "";
        return name.empty() ? formatText("VLAN%u", id) : name;
    }

  private:
    Switch sw_;
    Where where_;
    std::optional<std::uint32_t> size_;
};

// Names, colours and profiles from the profile database. What its copy does not have is looked up once more,
// as it may have come since or the copy may not have been had.
void applyProfiles(Switch sw, std::vector<VlanPicture> &pictures, const Where &where) {
    const auto rows = readProfileRows(where).value_or(std::vector<ProfileRow>{});
    std::vector<VlanPicture *> unlisted;
    std::vector<VlanId> ids;
    for (VlanPicture &picture : pictures) {
        if (const auto *const row = findProfileRow(rows, static_cast<std::int32_t>(picture.id.number()))) {
            applyRow(picture, *row);
        } else {
            unlisted.push_back(&picture);
            ids.push_back(picture.id);
        }
    }
    if (unlisted.empty())
        return;
    const auto read = readProfileRowsOf(ids, where);
    auto late = read.value_or(std::vector<std::optional<ProfileRow>>{});
    late.resize(ids.size());
    SwitchNames names(sw, where);
    for (std::size_t i = 0; i < unlisted.size(); ++i)
        if (const auto &row = late[i])
            applyRow(*unlisted[i], *row);
        else if (ids[i] == kDefaultVlan)
            seedDefaultVlan(*unlisted[i], read.has_value(), where);
        else
            unlisted[i]->name = names.of(ids[i]);
}

std::optional<bool> findPtpTc(const VlanPicture &picture, ProfileTemplateCache &templates) {
    if (const auto settings = readVlanSettings(picture.id); settings && settings->ptpTc)
        return settings->ptpTc;
    const ProfileTemplate *const profile = templates.find(picture.profileType);
    if (profile == nullptr || !profile->has(TemplateKey::Ptp))
        return std::nullopt;
    return profile->isTrue(TemplateKey::Ptp);
}

std::unexpected<Failure> reportUnread(const char *what, OpenError code, const Where &where) {
    logError(where, "[%s:%d] VLAN list: %s cannot be read (result = %d)\n", what, code);
    return failed(ResultCode::Failed, std::string(what) + " cannot be read");
}

// The rows of a database that is there; none without one.
Result<std::vector<ProfileRow>> readRowsIfAny(const Where &where) {
    if (!fileExists(platform::paths::kProfileDb))
        return std::vector<ProfileRow>{};
    auto rows = readProfileRows(where);
    if (!rows)
        return failed(ResultCode::Failed, "the profile database cannot be read");
    return std::move(*rows);
}

// The VLANs of the switch with what the rows say of them.
Result<std::vector<VlanPicture>> readPictures(Switch sw, const std::vector<ProfileRow> &rows,
                                              const Where &where) {
    std::optional<std::uint32_t> nameSize;
    std::vector<VlanPicture> pictures;
    auto walk = sw.vlans();
    for (const VlanId id : walk) {
        VlanPicture &picture = pictures.emplace_back();
        picture.id = id;
        const auto isStatic = sw.staticVlan(id);
        if (!isStatic)
            return reportUnread("the type of a VLAN", isStatic.error(), where);
        picture.isStatic = *isStatic;
        if (const auto *const row = findProfileRow(rows, static_cast<std::int32_t>(id.number()))) {
            applyRow(picture, *row);
            continue;
        }
        if (id == kDefaultVlan) {
            applyRow(picture, defaultProfileRow());
            continue;
        }
        if (!nameSize) {
            const auto size = readNameSize(sw, where);
            if (!size)
                return std::unexpected(size.error());
            nameSize = *size;
        }
        const auto name = sw.vlanName(id, *nameSize);
        if (!name)
            return reportUnread("the name of a VLAN", name.error(), where);
        picture.name = name->empty() ? formatText("VLAN%u", id) : *name;
    }
    if (const auto broken = walk.brokenBy())
        return reportUnread("the list of VLANs", *broken, where);
    return pictures;
}

Result<ManagementAddress> readManagement(Switch sw, const Where &where) {
    return underLock(
        platform::paths::kIpManagementGetLock, [&] { return readManagementAddress(sw, where); }, where);
}

// VLAN 1 unless the switch names another.
std::int32_t readManagementVlan(Switch sw, const Where &where) {
    const auto address = readManagement(sw, where);
    return address ? address->vlan.value_or(1) : 1;
}

}  // namespace

Result<std::vector<VlanPicture>> readVlanPictures(Switch sw, Where where) {
    std::vector<VlanPicture> pictures = readVlanBases(sw, where);
    const auto numbering = sw.lagNumbering();
    if (!numbering && numbering.error() != OpenError::NotFound) {
        logError(where, "[%s:%d] Failed to get the first LAG interface, result= %d\r\n", numbering.error());
        return failed(ResultCode::Failed, "the LAG interfaces cannot be read");
    }
    MemberCollector collector(MemberCollector::Strays::InFirstSlot);
    for (const VlanPicture &picture : pictures)
        collector.addSlot(picture.id);
    collector.collectPorts(sw, where);
    if (numbering)
        collector.collectLags(sw, *numbering, where);
    std::vector<VlanMembers> members = collector.takeSlots();
    for (std::size_t i = 0; i < pictures.size(); ++i)
        pictures[i].members = std::move(members[i]);
    return pictures;
}

Result<std::vector<VlanPicture>> readWholeVlanPictures(Switch sw, Where where) {
    const auto rows = readRowsIfAny(where);
    if (!rows)
        return std::unexpected(rows.error());
    auto pictures = readPictures(sw, *rows, where);
    if (!pictures)
        return pictures;
    const auto management = readManagement(sw, where);
    if (!management)
        return std::unexpected(management.error());
    std::map<VlanId, VlanMembers> members;
    for (const VlanPicture &picture : *pictures)
        members.emplace(picture.id, VlanMembers{});
    if (const auto read = readAllMembers(sw, EmptyLags::Nowhere, members, where); !read)
        return std::unexpected(read.error());
    ProfileTemplateCache templates;
    for (VlanPicture &picture : *pictures) {
        picture.isManagement = management->vlan == static_cast<std::int32_t>(picture.id.number());
        picture.ptpTc = findPtpTc(picture, templates);
        picture.members = std::move(members.at(picture.id));
    }
    return pictures;
}

std::vector<VlanPicture> readVlanBases(Switch sw, Where where) {
    std::vector<VlanId> ids;
    for (const VlanId id : sw.vlans())
        ids.push_back(id);
    const std::int32_t management = readManagementVlan(sw, where);
    std::vector<VlanPicture> pictures;
    for (const VlanId id : ids) {
        pictures.push_back(makePicture(sw, id));
        pictures.back().isManagement = static_cast<std::int32_t>(id.number()) == management;
    }
    applyProfiles(sw, pictures, where);
    ProfileTemplateCache templates;
    for (VlanPicture &picture : pictures)
        picture.ptpTc = findPtpTc(picture, templates);
    return pictures;
}

Result<std::optional<VlanPicture>> readVlanBase(Switch sw, VlanId id, Where where) {
    if (!sw.checkVlan(id))
        return std::nullopt;
    const auto size = readNameSize(sw, where);
    if (!size)
        return std::unexpected(size.error());
    VlanPicture picture = makePicture(sw, id);
    // The switch's name is only read: the display name is that of the profile.
    if (const auto name = readName(sw, id, *size, where); !name)
        return std::unexpected(name.error());
    const auto read = readProfileRow(static_cast<std::int32_t>(id.number()), where);
    if (const auto row = read.value_or(std::nullopt))
        applyRow(picture, *row);
    else if (id == kDefaultVlan)
        seedDefaultVlan(picture, read.has_value(), where);
    else
        picture.name = formatText("VLAN%04d", id);
    return picture;
}

}  // namespace pavo
