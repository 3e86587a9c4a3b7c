#include "web/answer_builder.h"

#include <cstring>

namespace pavo {

std::int32_t fillBuffer(std::string_view text, char *buffer, std::size_t size, const Where &where) {
    if (text.size() >= size) {
        logError(where, "[%s:%d] the answer has %zu bytes, and there is room for %zu\n", text.size(), size);
        return codeOf(ResultCode::Failed);
    }
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
    return 0;
}

}  // namespace pavo
