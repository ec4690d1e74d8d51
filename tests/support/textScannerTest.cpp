#include "support/textScanner.h"

#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <limits>
#include <locale.h>
#include <string>

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

TEST(TextScanner, RealNumbersAreSpelledAsTheCLibrarySpellsThem) {
    struct Row {
        const char* text;
        const char* value;
        const char* rest;
    };
    for (const auto& [text, value, rest] : {Row{" -1.", "-1", ""},
                                            {"+.5h", "0.5", "h"},
                                            {"2e", "2", "e"},
                                            {"2e+", "2", "e+"},
                                            {"2e+1", "20", ""},
                                            {"1e999", "inf", ""},
                                            {"-INFi", "-inf", "i"},
                                            {"Infinity", "inf", ""},
                                            {"-nan(0x_1)y", "-nan", "y"},
                                            {"NaN(x", "nan", "(x"},
                                            {"-0x8", "-8", ""},
                                            {"0x1p3", "8", ""},
                                            {"0X1f", "31", ""},
                                            {"0x.8", "0.5", ""},
                                            {"0x", "0", "x"},
                                            {"1,5", "1", ",5"},
                                            {"1d", "1", "d"}}) {
        TextScanner scanner(text);
        char found[32];
        std::snprintf(found, sizeof found, "%g", scanner.real().value_or(-99.0));
        EXPECT_STREQ(found, value) << text;
        EXPECT_EQ(scanner.rest(), rest) << text;
    }
    for (const char* none : {".", "-", "+-1", "e5", "x", "/*", ""}) {
        TextScanner scanner(none);
        EXPECT_EQ(scanner.real(), std::nullopt) << none;
        EXPECT_EQ(scanner.rest(), none);
    }
}

TEST(TextScanner, ANumberEndsWhereItIsNoLongerCopied) {
    const std::string text = std::string(512, '0') + "1";
    TextScanner scanner(text);
    EXPECT_EQ(scanner.real(), 0.0);
    EXPECT_EQ(scanner.rest(), "1");
}

TEST(TextScanner, TheWordAtTheBeginningAndTheTextWithoutItsOuterBlanks) {
    EXPECT_EQ(leadingWord("ab\tc"), "ab");
    EXPECT_EQ(leadingWord("ab"), "ab");
    EXPECT_EQ(leadingWord(" ab"), "");
    EXPECT_EQ(stripped(" \n a b\x1c\t"), "a b\x1c");
    EXPECT_EQ(stripped(" \r\n"), "");
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
