// Profile templates: one JSON file per profile type in platform::paths::kProfileTemplateDir, with the
// settings that the web interface shows and edits. A file is named by its type with every blank replaced by
// "_".
//
// Paths are fixed paths (platform/paths.h). A name that is no plain file name ("/", control characters, ".",
// "..", nothing at all) has no path: the helpers return an empty string, and the name counts as that of a
// missing file. Any thread may call these functions.
#ifndef PAVO_STORE_PROFILE_TEMPLATE_H
#define PAVO_STORE_PROFILE_TEMPLATE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "common/where.h"

namespace pavo {

// The one shipped template whose file is not named by its type, PROFILE_TYPE_NAME_POLY.
inline constexpr std::string_view PROFILE_TEMPLATE_FILE_POLY = "Poly_StudioNet_Modular_Room_Switch";

// The file name of a type: blanks replaced by "_". Nothing is cut or checked.
std::string profileTemplateFileName(std::string_view typeName);

// Where the template of a type is read from; names are cut to 255 characters.
std::string profileTemplatePath(std::string_view typeName);

// The paths under which the template of a type may be found, in the order in which they are tried.
std::vector<std::string> profileTemplateCandidates(std::string_view typeName);

// Where the template operations create, edit and delete; names are cut to 31 characters, as users' templates
// always were, and paths to 126.
std::string profileTemplateUserPath(std::string_view typeName);

// The file that keeps the whole apply request of a profile type with several VLANs.
std::string profileExFilePath(std::string_view typeName);

// The keys that mean something to the switch.
enum class TemplateKey : std::uint8_t {
    Ptp,
    PtpBoundaryClock,
    Avb,
    FlowControl,
    Sonos,
    Storm,
    Stp,
    Lldp,
    Isdp,
    Poe,
    Qos,
    Mtu,
    QueryInterval,  // of the object "multicast"
    Count
};

// What a template says under a key; Other is any value but true and false.
enum class TemplateValue : std::uint8_t { Missing, False, True, Other };

class ProfileTemplate {
  public:
    // Nothing when the text is no JSON. A value that is no object has no keys.
    static std::optional<ProfileTemplate> parse(const std::string &text);

    TemplateValue operator[](TemplateKey key) const { return values_[static_cast<std::size_t>(key)]; }
    bool isTrue(TemplateKey key) const { return (*this)[key] == TemplateValue::True; }
    bool has(TemplateKey key) const { return (*this)[key] != TemplateValue::Missing; }

  private:
    std::array<TemplateValue, static_cast<std::size_t>(TemplateKey::Count)> values_{};
};

// The template of a type; nothing when the name is empty or the file is missing or does not parse.
std::optional<ProfileTemplate> loadProfileTemplate(std::string_view typeName,
                                                   Where where = std::source_location::current());

// The templates of types, each loaded once. For one thread.
class ProfileTemplateCache {
  public:
    explicit ProfileTemplateCache(std::size_t namesMax = SIZE_MAX) : namesMax_(namesMax) {}

    // Null when the type has no template, and for a new name when the cache knows as many as it may.
    const ProfileTemplate *find(const std::string &typeName);

  private:
    std::size_t namesMax_;
    std::map<std::string, std::optional<ProfileTemplate>, std::less<>> templates_;
};

}  // namespace pavo

#endif
