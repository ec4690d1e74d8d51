// Any bytes as Java's text, and back.

#include "support/javaText.h"

#include "fuzz/target.h"

namespace obrin::fuzz::javaText {
namespace {

/// Whether a text is in Java's encoding: characters of one to three bytes, the shortest form of each but NUL.
bool isJavaEncoding(std::string_view text) {
    const auto byteAt = [text](std::size_t at) {
        return at < text.size() ? static_cast<unsigned>(static_cast<unsigned char>(text[at])) : 0U;
    };
    const auto continues = [&](std::size_t at) { return (byteAt(at) & 0xC0U) == 0x80U; };
    for (std::size_t at = 0; at < text.size();) {
        const unsigned lead = byteAt(at);
        std::size_t length = 0;
        if (lead >= 1 && lead <= 0x7F)
            length = 1;
        else if ((lead >= 0xC2 && lead <= 0xDF && continues(at + 1)) ||
                 (lead == 0xC0 && byteAt(at + 1) == 0x80))
            length = 2;
        else if (lead >= 0xE0 && lead <= 0xEF && continues(at + 1) && continues(at + 2) &&
                 (lead > 0xE0 || byteAt(at + 1) >= 0xA0))
            length = 3;
        if (length == 0)
            return false;
        at += length;
    }
    return true;
}

void check(std::string_view input) {
    const std::string java = toJavaEncoding(input);
    require(isJavaEncoding(java), "the text is in Java's encoding");
    require(java.size() <= 3 * input.size(), "a byte becomes three at most");
    fromJavaEncoding(input);
    const std::size_t foreign = firstForeignByte(input);
    const std::string_view own = input.substr(0, foreign);
    require(java.starts_with(toJavaEncoding(own)), "what is well-formed stays what it is");
    std::string back = fromJavaEncoding(toJavaEncoding(own));
    for (std::size_t at = 0; (at = back.find("\xC0\x80", at)) != std::string::npos; ++at)
        back.replace(at, 2, 1, '\0'); // the only byte that file names cannot have stays in Java's form
    require(back == own, "well-formed text comes back the same");
    if (foreign != std::string_view::npos)
        require(toJavaEncoding(input.substr(foreign)).starts_with("\xEF\xBF\xBD"),
                "a foreign byte is replaced");
}

const Target target("javaText", check);

} // namespace
} // namespace obrin::fuzz::javaText
