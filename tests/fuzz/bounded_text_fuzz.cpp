#include "common/bounded_text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_target.h"

namespace fuzz {
namespace {

/** Formats into a buffer of that size and, for what should stand there, into one that is large enough. */
UPDKRX_PRINTF_FORMAT(2, 3)
void ExpectBounded(size_t capacity, const char* format, ...) {
    std::vector<char> buffer(capacity); // of the size it says, so that writing behind it is seen
    static char whole[16384];
    std::va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int length = std::vsnprintf(whole, sizeof whole, format, again);
    const int result = updkrx::bq_vsnprintf(buffer.data(), capacity, format, arguments);
    va_end(again);
    va_end(arguments);
    Expect(length < static_cast<int>(sizeof whole), "inputs are not longer than this");
    const size_t size = length < 0 ? 0 : static_cast<size_t>(length);
    Expect(result == (size < capacity && length >= 0 ? length : -1), "the result tells whether the text is whole");
    if (capacity != 0) {
        whole[std::min(size, capacity - 1)] = '\0';
        Expect(std::strcmp(buffer.data(), whole) == 0, "the start of the text is there, terminated");
    }
}

/** Up to the next zero byte. */
std::string TakeText(std::string_view& input) {
    const std::string text(input.substr(0, input.find('\0')));
    input.remove_prefix(std::min(input.size(), text.size() + 1));
    return text;
}

} // namespace

void bounded_text(std::string_view input) {
    uint32_t words[4] = {}; // the first one is also the capacity
    const size_t taken = input.copy(reinterpret_cast<char*>(words), sizeof words);
    input.remove_prefix(taken);
    const std::string a = TakeText(input), b = TakeText(input), c = TakeText(input);
    const size_t capacity = words[0] % 300;
    const auto number = static_cast<int32_t>(words[1]);

    ExpectBounded(capacity, "%s", a.c_str());
    ExpectBounded(capacity, "%s%s%s", a.c_str(), b.c_str(), c.c_str());
    ExpectBounded(capacity, "load convert krx/%s * krx/%s", a.c_str(), b.c_str());
    ExpectBounded(capacity, "5.8.0.%d", number);
    ExpectBounded(capacity, "%08X%08X%08X%08X", words[0], words[1], words[2], words[3]);
    ExpectBounded(capacity, "[%s][pid=%d][tid=%d][module=%08x]:100%%", a.c_str(), number, number / 2, words[2]);
    const std::wstring wide(b.begin(), b.end());
    ExpectBounded(capacity, "%s%ls", a.c_str(), wide.c_str()); // fails for what the locale has no bytes for
}

} // namespace fuzz
