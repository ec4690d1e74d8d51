#include "support/textScanner.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <locale.h>

namespace obrin {
namespace {

TEST(TextScanner, WordsStandBetweenAnyWhiteSpace) {
    TextScanner scanner(" a\tbc\v\f\r\n d ");
    EXPECT_EQ(scanner.word(), "a");
    EXPECT_EQ(scanner.word(), "bc");
    EXPECT_EQ(scanner.word(), "d");
    EXPECT_EQ(scanner.word(), std::nullopt);
}

TEST(TextScanner, IntegersStopAtTheFirstForeignByte) {
    TextScanner scanner("12abc -7 +8");
    EXPECT_EQ(scanner.integer(), 12);
    EXPECT_EQ(scanner.word(), "abc");
    EXPECT_EQ(scanner.integer(), -7);
    EXPECT_EQ(scanner.integer(), 8);
    EXPECT_EQ(scanner.integer(), std::nullopt);
}

TEST(TextScanner, WordInAnIntegersPlaceStays) {
    TextScanner scanner("  word");
    EXPECT_EQ(scanner.integer(), std::nullopt);
    EXPECT_EQ(scanner.word(), "word");
    for (const char* text : {"", "+", "-", "+-5", "--5", "."})
        EXPECT_EQ(TextScanner(text).integer(), std::nullopt) << text;
}

TEST(TextScanner, IntegersSaturate) {
    EXPECT_EQ(TextScanner("9223372036854775807").integer(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(TextScanner("99999999999999999999").integer(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(TextScanner("-99999999999999999999").integer(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(TextScanner("4294967296").integer32(), 2147483647);
    EXPECT_EQ(TextScanner("-4294967296").integer32(), std::numeric_limits<std::int32_t>::min());
}

TEST(TextScanner, RealNumbersHaveADecimalPointInAnyLocale) {
    const locale_t comma = ::newlocale(LC_ALL_MASK, "de_DE.UTF-8", locale_t{});
    const locale_t before = comma == locale_t{} ? locale_t{} : ::uselocale(comma);
    EXPECT_EQ(TextScanner("-1.5e2x").real(), -150.0);
    if (comma != locale_t{}) {
        ::uselocale(before);
        ::freelocale(comma);
    }
}

TEST(TextScanner, RealReadsTheLongestPrefix) {
    TextScanner scanner("-1. .5x nan inf word");
    EXPECT_EQ(scanner.real(), -1.0);
    EXPECT_EQ(scanner.real(), 0.5);
    EXPECT_EQ(scanner.word(), "x");
    EXPECT_TRUE(std::isnan(*scanner.real()));
    EXPECT_TRUE(std::isinf(*scanner.real()));
    EXPECT_EQ(scanner.real(), std::nullopt);
    EXPECT_EQ(scanner.word(), "word");
}

TEST(TextScanner, SkippingEndsAtTheEndOfTheText) {
    TextScanner scanner("one two:three");
    EXPECT_TRUE(scanner.skipPastWord("one"));
    EXPECT_TRUE(scanner.skipPast(':'));
    EXPECT_EQ(scanner.rest(), "three");
    EXPECT_FALSE(scanner.skipPast(':'));
    EXPECT_TRUE(scanner.atEnd());
    EXPECT_FALSE(scanner.skipPastWord("one"));
    EXPECT_EQ(scanner.character(), std::nullopt);
}

TEST(TextScanner, NulBytesAndHighBytesArePartsOfWords) {
    TextScanner scanner(std::string_view("a\0b \xff", 5));
    EXPECT_EQ(scanner.word(), std::string_view("a\0b", 3));
    scanner.skipWhiteSpace();
    EXPECT_EQ(scanner.character(), 255);
}

TEST(TextScanner, TruncationOfDoublesNeverLeavesTheRange) {
    EXPECT_EQ(truncateToInt32(50.9), 50);
    EXPECT_EQ(truncateToInt32(-50.9), -50);
    EXPECT_EQ(truncateToInt32(1e300), 2147483647);
    EXPECT_EQ(truncateToInt32(-INFINITY), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(truncateToInt32(NAN), 0);
}

} // namespace
} // namespace obrin
