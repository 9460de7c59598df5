// Formatting into buffers of a fixed size.
#pragma once

#include <cstdarg>
#include <cstddef>

/** Has the compiler check the arguments of a printf-like function; positions count from 1. */
#define UPDKRX_PRINTF_FORMAT(text, firstArgument) __attribute__((format(printf, text, firstArgument)))

namespace updkrx {

/**
 * Formats into `buffer`, which holds `capacity` bytes, at most capacity - 1 characters, and always terminates it.
 * Returns the number of characters written, or -1 when the text was cut (its beginning stands in the buffer) or could
 * not be formatted (the buffer holds the empty text). Without a buffer or with a capacity of 0 nothing is written and
 * the result is -1.
 */
int bq_snprintf(char* buffer, size_t capacity, const char* format, ...) noexcept UPDKRX_PRINTF_FORMAT(3, 4);
int bq_vsnprintf(char* buffer, size_t capacity, const char* format, std::va_list arguments) noexcept
    UPDKRX_PRINTF_FORMAT(3, 0);

} // namespace updkrx
