#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace obrin {

static_assert(std::endian::native == std::endian::little, "numbers are handed over as they lie in memory");

/// Puts bytes together in the order in which they are read: numbers little-endian, a text as its length (i32)
/// and its bytes, a list as its length (i32) and its elements, a flag as one byte.
class Bytes {
public:
    explicit Bytes(std::size_t expected) { bytes_.reserve(expected); }

    Bytes& number(std::int32_t value) { return raw(value); }
    Bytes& longNumber(std::int64_t value) { return raw(value); }
    Bytes& real(double value) { return raw(value); }
    Bytes& flag(bool value) { return raw(static_cast<char>(value ? 1 : 0)); }
    Bytes& text(std::string_view value) {
        number(static_cast<std::int32_t>(value.size()));
        bytes_.append(value);
        return *this;
    }

    /// Bytes that were put together elsewhere.
    Bytes& append(std::string_view bytes) {
        bytes_.append(bytes);
        return *this;
    }

    /// The length of a list, which is known once its elements are there.
    std::size_t beginList() {
        number(0);
        return bytes_.size();
    }
    void endList(std::size_t begin, std::int32_t length) {
        bytes_.replace(begin - sizeof length, sizeof length, reinterpret_cast<const char*>(&length),
                       sizeof length);
    }

    std::string take() { return std::move(bytes_); }

private:
    template <class Value>
    Bytes& raw(Value value) {
        bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
        return *this;
    }

    std::string bytes_;
};

} // namespace obrin
