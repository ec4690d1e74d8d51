#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
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

/// Reads bytes in the order in which they were put together. What is not there reads as 0 or nothing, and
/// isWhole() is false from then on.
class BytesReader {
public:
    explicit BytesReader(std::string_view bytes) : rest_(bytes) {}

    std::int32_t number() { return raw<std::int32_t>(); }
    std::int64_t longNumber() { return raw<std::int64_t>(); }
    bool flag() { return raw<char>() != 0; }
    std::string_view text() {
        const std::int32_t length = number();
        return length < 0 ? take(std::string_view::npos) : take(static_cast<std::size_t>(length));
    }

    bool isWhole() const { return isWhole_; }
    bool atEnd() const { return rest_.empty(); }

private:
    template <class Value>
    Value raw() {
        Value value{};
        const std::string_view bytes = take(sizeof value);
        std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }

    std::string_view take(std::size_t size) {
        isWhole_ = isWhole_ && size <= rest_.size();
        const std::string_view taken = rest_.substr(0, isWhole_ ? size : 0);
        rest_.remove_prefix(taken.size());
        return taken;
    }

    std::string_view rest_;
    bool isWhole_ = true;
};

} // namespace obrin
