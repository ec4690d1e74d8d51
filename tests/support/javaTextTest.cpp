#include "support/javaText.h"

#include <gtest/gtest.h>
#include <random>

namespace obrin {
namespace {

/// Whether a text is valid in Java's own encoding: one- to three-byte forms only, no NUL.
bool validForJava(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const std::size_t length = byte >= 0xE0 && byte < 0xF0 ? 3 : byte >= 0xC0 && byte < 0xE0 ? 2 : 1;
        if (byte == 0 || byte >= 0xF0 || (length == 1 && byte >= 0x80) || i + length > text.size())
            return false;
        for (std::size_t k = 1; k < length; ++k)
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0U) != 0x80U)
                return false;
        i += length;
    }
    return true;
}

TEST(JavaText, PlainAndAccentedTextStaysAsItIs) {
    EXPECT_EQ(toJavaEncoding("/dev/sda1 /srv/données ✓"), "/dev/sda1 /srv/données ✓");
}

TEST(JavaText, CharactersBeyondSixteenBitsBecomeSurrogatePairs) {
    EXPECT_EQ(toJavaEncoding("\xF0\x9F\x98\x80"), "\xED\xA0\xBD\xED\xB8\x80");
    EXPECT_EQ(fromJavaEncoding("\xED\xA0\xBD\xED\xB8\x80"), "\xF0\x9F\x98\x80");
}

TEST(JavaText, BytesThatAreNoUtf8BecomeTheReplacementCharacter) {
    const std::string r = "\xEF\xBF\xBD";
    EXPECT_EQ(toJavaEncoding("a\xFF"
                             "b"),
              "a" + r + "b");
    EXPECT_EQ(toJavaEncoding("\xC0\x80"), r + r);         // overlong
    EXPECT_EQ(toJavaEncoding("\xED\xA0\x80"), r + r + r); // a lone surrogate
    EXPECT_EQ(toJavaEncoding("cut \xE2\x9C"), "cut " + r + r);
    EXPECT_EQ(toJavaEncoding("\xF5\x80\x80\x80"), r + r + r + r);
}

TEST(JavaText, NulBecomesItsTwoByteForm) {
    EXPECT_EQ(toJavaEncoding(std::string_view("a\0b", 3)), "a\xC0\x80"
                                                           "b");
}

TEST(JavaText, AnyBytesBecomeValidJavaText) {
    std::mt19937 random(7);
    for (int round = 0; round < 5000; ++round) {
        std::string bytes(random() % 12, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random() | (random() % 2 == 0 ? 0x80U : 0U));
        EXPECT_TRUE(validForJava(toJavaEncoding(bytes)));
    }
}

TEST(JavaText, WellFormedTextSurvivesTheRoundTrip) {
    for (const char* text : {"", "plain", "ü", "✓", "😀 and 𝔘", "\xED\x9F\xBF"})
        EXPECT_EQ(fromJavaEncoding(toJavaEncoding(text)), text);
}

} // namespace
} // namespace obrin
