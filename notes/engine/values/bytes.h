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

/** FNV-1a of 64 bits: no protection against intent, and the same on every machine. */
class Hash {
public:
    void Add(std::string_view bytes) noexcept {
        for (const char c : bytes) {
            hash_ = (hash_ ^ static_cast<unsigned char>(c)) * 1099511628211u;
        }
    }
    [[nodiscard]] uint64_t Value() const noexcept { return hash_; }

private:
    uint64_t hash_ = 14695981039346656037u;
};

} // namespace embedded
