// What OpEN calls answer, as a type of its own that does not mix with the program's result codes.
#ifndef PAVO_SWAPI_OPEN_RESULT_H
#define PAVO_SWAPI_OPEN_RESULT_H

#include <expected>
#include <utility>

#include "platform/open_client.h"

namespace pavo {

enum class OpenError : open_error_t {
    Unreachable = OPEN_E_RPC,
    Failed = OPEN_E_FAIL,
    Full = OPEN_E_FULL,
    NotFound = OPEN_E_NOT_FOUND,
    Parameter = OPEN_E_PARAM,
    Unavailable = OPEN_E_UNAVAIL,
    NoAccessList = OPEN_E_ACL_NOT_EXIST,
};

// A value, or the code of the call that did not give one. Nothing has been logged: callers report in their
// own words.
template <class T = void>
class [[nodiscard]] OpenResult : public std::expected<T, OpenError> {
  public:
    using std::expected<T, OpenError>::expected;
};

inline OpenResult<> openResult(open_error_t code) {
    if (code == OPEN_E_NONE)
        return {};
    return std::unexpected(static_cast<OpenError>(code));
}

template <class T>
OpenResult<T> openResult(open_error_t code, T value) {
    if (code == OPEN_E_NONE)
        return OpenResult<T>(std::move(value));
    return std::unexpected(static_cast<OpenError>(code));
}

// What an operation returns for it: the number of the OpEN code, 0 for a success.
template <class T>
open_error_t codeOf(const OpenResult<T> &result) {
    return result ? OPEN_E_NONE : static_cast<open_error_t>(result.error());
}

// Whether something is there: a failed query is Unknown, not Absent.
enum class Presence { Present, Absent, Unknown };

inline Presence presenceOf(const OpenResult<> &check) {
    if (check)
        return Presence::Present;
    return check.error() == OpenError::NotFound ? Presence::Absent : Presence::Unknown;
}

}  // namespace pavo

#endif
