// Result codes and their messages, and what the engine returns instead of a bare code.
#ifndef PAVO_COMMON_RESULT_H
#define PAVO_COMMON_RESULT_H

#include <cstdint>
#include <expected>
#include <string>
#include <utility>

namespace pavo {

// The codes that the program refers to by name; getErrMsg knows them all. Codes of OpEN and of SQLite are
// types of their own, see swapi/open_result.h and store/db_result.h.
enum class ResultCode : std::int32_t {
    Success = 0,
    Failed = 10000,
    InvalidPointer = 10002,  // also: a list or buffer could not be allocated
    InvalidArgument = 10003,
    NotImplemented = 10004,
    OutOfMemory = 10005,
    ObjectExists = 10011,
    NotExist = 10012,
    OpenFailed = 10016,
    Unreachable = 10020,     // the switch does not answer
    IllegalRequest = 10021,  // what came is not a whole request
    ApiNotFound = 10023,     // also: the response cache has no such answer
    WrongPassword = 12001,   // or user name
    LockedOut = 12003,       // too many wrong passwords
    VlanNotCreated = 13101,
    TemplateInUse = 14101,
    TypeDuplicated = 14102,
    AvbOneVlan = 14103,
    PtpTcEnabled = 14104,   // so 802.1AS cannot be
    Dot1asEnabled = 14105,  // so the PTP transparent clock cannot be
    ShureOneVlan = 14106,
    NameInUse = 14107,
    ProfileUnsupported = 14108,
    SmpteOneVlan = 14109,
    ConfigInvalid = 17001,  // also: the profile is not configured
};

// The message of a code; static, never null. "Error code unknown" for a code in no row.
const char *getErrMsg(std::int32_t code);

// A failure that has been logged where it was detected. `reason` is human-readable, in addition to the code's
// message; it may be empty.
struct Failure {
    ResultCode code = ResultCode::Failed;
    std::string reason{};
};

// The message of the failure's code, followed by its reason: "Invalid argument: ...".
std::string messageOf(const Failure &failure);

// A value, or why there is none.
template <class T = void>
class [[nodiscard]] Result : public std::expected<T, Failure> {
  public:
    using std::expected<T, Failure>::expected;
};

// `return failed(ResultCode::NotExist)` from any function with a Result.
inline std::unexpected<Failure> failed(ResultCode code, std::string reason = {}) {
    return std::unexpected(Failure{code, std::move(reason)});
}

// What an operation returns for it: the number of a code, 0 for a success.
constexpr std::int32_t codeOf(ResultCode code) {
    return static_cast<std::int32_t>(code);
}
template <class T>
std::int32_t codeOf(const Result<T> &result) {
    return codeOf(result ? ResultCode::Success : result.error().code);
}

}  // namespace pavo

#endif
