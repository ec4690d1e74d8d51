#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace obrin {

/// A text field of fixed size: at most `Size - 1` bytes and a terminating NUL. Never overflows: what does not
/// fit is cut.
template <std::size_t Size>
class FixedText {
public:
    FixedText() = default;
    FixedText(std::string_view text) { assign(text); } // NOLINT: a text field reads like a text
    FixedText(const char* text) { assign(text); }      // NOLINT

    /// Takes the text up to its first NUL. False when it had to be cut.
    bool assign(std::string_view text) {
        text = text.substr(0, text.find('\0'));
        length_ = std::min(text.size(), Size - 1);
        std::memcpy(bytes_, text.data(), length_);
        bytes_[length_] = '\0';
        return length_ == text.size();
    }

    const char* c_str() const { return bytes_; }
    std::string_view view() const { return {bytes_, length_}; }
    bool empty() const { return length_ == 0; }
    static constexpr std::size_t capacity() { return Size - 1; }

    template <std::size_t Other>
    bool operator==(const FixedText<Other>& other) const {
        return view() == other.view();
    }
    bool operator==(std::string_view text) const { return view() == text; }
    bool operator==(const char* text) const { return view() == text; }

private:
    std::size_t length_ = 0;
    char bytes_[Size] = {};
};

} // namespace obrin
