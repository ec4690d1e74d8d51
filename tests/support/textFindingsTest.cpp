#include "support/textFindings.h"

#include "tests/support/toldFindings.h"

#include <gmock/gmock.h>

namespace obrin::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> foreignBytes(std::string_view text) {
    TextFindings findings;
    findForeignBytes(text, TextPlaces(text), findings);
    return told(findings);
}

TEST(TextPlaces, LinesAndColumnsAreCountedFromOneOn) {
    const std::string_view text = "ab\n\nc";
    const TextPlaces places(text);
    const Place expected[] = {{1, 1}, {1, 2}, {1, 3}, {2, 1}, {3, 1}, {3, 2}};
    for (std::size_t byte = 0; byte <= text.size(); ++byte)
        EXPECT_EQ(places.of(byte), expected[byte]) << byte;
    EXPECT_EQ(TextPlaces("").of(0), (Place{1, 1}));
}

TEST(TextPlaces, ColumnsCountCharactersAndNotBytes) {
    EXPECT_EQ(TextPlaces("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80x").of(9), (Place{1, 4}));
}

TEST(TextPlaces, EveryByteOfALongTextHasThePlaceThatCountingGives) {
    std::string text;
    for (std::size_t line = 0; text.size() < 10000; ++line)
        text += std::string(line % 300, 'x') + "\xC3\xA4\n";
    text.resize(10 * 1024);
    const TextPlaces places(text);
    Place place{1, 1};
    for (std::size_t byte = 0; byte <= text.size(); ++byte) {
        ASSERT_EQ(places.of(byte), place) << byte;
        if (byte == text.size())
            break;
        if (text[byte] == '\n')
            place = {place.line + 1, 1};
        else if (text[byte] != '\xA4')
            ++place.column;
    }
}

TEST(ForeignBytes, AnOrdinaryTextHasNone) {
    EXPECT_THAT(foreignBytes(""), IsEmpty());
    EXPECT_THAT(foreignBytes("Schr\xC3\xA4g \xEF\xBF\xBD \xF0\x9F\x98\x80"), IsEmpty());
}

TEST(ForeignBytes, AByteOrderMarkIsOneAtTheBeginningOnly) {
    EXPECT_THAT(foreignBytes("\xEF\xBB\xBFx"), ElementsAre("1:1 byte-order-mark text=\xEF\xBB\xBF"));
    EXPECT_THAT(foreignBytes("x\xEF\xBB\xBF"), IsEmpty());
}

TEST(ForeignBytes, ZeroBytesAreCountedAtTheFirst) {
    EXPECT_THAT(foreignBytes(std::string_view("a\nb\0c\0", 6)), ElementsAre("2:2 nul-byte number=2"));
}

TEST(ForeignBytes, TheFirstByteThatIsNoUtf8IsTold) {
    for (const char* bytes :
         {"\xFF", "\xC0\x80", "\xC3", "\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\x80"})
        EXPECT_THAT(foreignBytes("\xC3\xA4\n-" + std::string(bytes) + "\xFF"),
                    ElementsAre(std::string("2:2 not-utf8 text=") + bytes[0]));
}

} // namespace
} // namespace obrin::test
