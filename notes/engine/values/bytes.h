// Values as the bytes that they are stored in, at any address, and hashes of bytes.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace embedded {

/** The value that begins at `bytes`. */
template<typename T>
T ValueAt(const char* bytes) noexcept {
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

template<typename T>
void AppendValue(std::string& out, const T& value) {
    char bytes[sizeof(T)];
    std::memcpy(bytes, &value, sizeof(T));
    out.append(bytes, sizeof(T));
}

/** FNV-1a: no protection against intent, and the same on every machine. */
template<typename Word, Word start, Word prime>
class FnvHash {
public:
    void Add(std::string_view bytes) noexcept {
        for (const char c : bytes) {
            hash_ = (hash_ ^ static_cast<unsigned char>(c)) * prime;
        }
    }
    [[nodiscard]] Word Value() const noexcept { return hash_; }

private:
    Word hash_ = start;
};

using Hash = FnvHash<uint64_t, 14695981039346656037u, 1099511628211u>;
using ShortHash = FnvHash<uint32_t, 2166136261u, 16777619u>;

inline uint64_t HashOf(std::string_view bytes) noexcept {
    Hash hash;
    hash.Add(bytes);
    return hash.Value();
}

} // namespace embedded
