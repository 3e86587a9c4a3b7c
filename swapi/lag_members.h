// The answer of a call that fills a list of the members of a LAG.
#ifndef PAVO_SWAPI_LAG_MEMBERS_H
#define PAVO_SWAPI_LAG_MEMBERS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/if_num.h"
#include "platform/open_client.h"
#include "swapi/open_result.h"

namespace pavo {

// `max` is the number of members that a LAG can have, as the switch tells; a larger one than any switch has
// would only cost memory. read(count, descriptor).
template <class Read>
OpenResult<std::vector<IfNum>> readMembers(std::uint32_t max, Read read) {
    constexpr std::uint32_t kMembersMax = 4096;
    constexpr std::size_t kMemberRoom = 16;  // bytes for each
    const std::size_t size = std::min(max, kMembersMax) * kMemberRoom + 1;
    std::vector<std::uint32_t> room(size / sizeof(std::uint32_t) + 1);
    open_buffdesc list{static_cast<std::uint32_t>(size), reinterpret_cast<char *>(room.data())};
    std::uint32_t count = max;
    if (const open_error_t code = read(&count, &list); code != OPEN_E_NONE)
        return std::unexpected(static_cast<OpenError>(code));
    room.resize(std::min<std::size_t>(std::min(count, max), room.size()));
    return std::vector<IfNum>(room.begin(), room.end());
}

}  // namespace pavo

#endif
