// What the methods of Switch make of calls that fill a buffer or a number.
#ifndef PAVO_SWAPI_READ_CALL_H
#define PAVO_SWAPI_READ_CALL_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "platform/open_client.h"
#include "swapi/open_result.h"

namespace pavo {

// The answer of a call that fills a buffer of `size` bytes: read(descriptor).
template <class Read>
OpenResult<std::string> readText(std::size_t size, Read read) {
    std::string text(size, '\0');
    open_buffdesc descriptor{static_cast<std::uint32_t>(size), text.data()};
    if (const open_error_t code = read(&descriptor); code != OPEN_E_NONE)
        return std::unexpected(static_cast<OpenError>(code));
    text.resize(strnlen(text.data(), size));
    return text;
}

// The answer of a call that fills a number.
template <class T = std::uint32_t, class Read>
OpenResult<T> readNumber(Read read) {
    std::uint32_t value = 0;
    const open_error_t code = read(&value);
    return openResult(code, static_cast<T>(value));
}

}  // namespace pavo

#endif
