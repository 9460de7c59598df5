#include "common/bounded_text.h"

#include <cstdio>

namespace updkrx {

int bq_vsnprintf(char* buffer, size_t capacity, const char* format, std::va_list arguments) noexcept {
    if (buffer == nullptr || capacity == 0) {
        return -1;
    }
    const int length = std::vsnprintf(buffer, capacity, format, arguments);
    if (length < 0) {
        buffer[0] = '\0'; // what a failed format leaves in the buffer is not defined
        return -1;
    }
    return static_cast<size_t>(length) < capacity ? length : -1;
}

int bq_snprintf(char* buffer, size_t capacity, const char* format, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, format);
    const int length = bq_vsnprintf(buffer, capacity, format, arguments);
    va_end(arguments);
    return length;
}

} // namespace updkrx
