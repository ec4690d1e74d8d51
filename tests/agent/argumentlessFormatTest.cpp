#include "agent/argumentlessFormat.h"

#include <cstdio>
#include <gtest/gtest.h>

namespace obrin {
namespace {

std::string rendered(std::string_view format, std::size_t longest) {
    std::string text(longest + 1, '#');
    text.resize(renderWithoutArguments(format, {text.data(), longest}));
    return text;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
std::string withZero(const std::string& format, char letter) {
    char text[256];
    if (std::string("diouxX").find(letter) != std::string::npos)
        std::snprintf(text, sizeof text, format.c_str(), 0);
    else if (letter == 's')
        std::snprintf(text, sizeof text, format.c_str(), "");
    else
        std::snprintf(text, sizeof text, format.c_str(), 0.0);
    return text;
}
#pragma GCC diagnostic pop

TEST(ArgumentlessFormat, GivesWhatPrintfGivesForAZeroOrEmptyArgument) {
    int compared = 0;
    for (const char* flags : {"", "-", "+", " ", "0", "-0", "+0", "+ ", "-+", " 0"})
        for (const char* width : {"", "1", "9", "20"})
            for (const char* precision : {"", ".", ".0", ".3", ".12"})
                for (char letter : std::string("diouxXeEfFgGaAs")) {
                    const bool undefined =
                        (letter == 's' && std::string(flags).find('0') != std::string::npos);
                    if (undefined)
                        continue;
                    const std::string format = "<%" + std::string(flags) + width + precision + letter + ">";
                    EXPECT_EQ(rendered(format, 1000), withZero(format, letter)) << format;
                    ++compared;
                }
    EXPECT_GT(compared, 2000);
}

TEST(ArgumentlessFormat, AlternateFormsOfZero) {
    for (const char* format : {"%#o", "%#.0o", "%#x", "%#.0f", "%#g", "%#.3g", "%#e"}) {
        const char letter = std::string(format).back();
        EXPECT_EQ(rendered(format, 1000), withZero(format, letter)) << format;
    }
}

TEST(ArgumentlessFormat, DoubledPercentBecomesOne) {
    EXPECT_EQ(rendered("100%% of it", 100), "100% of it");
}

TEST(ArgumentlessFormat, StoringConversionStoresNothingAndPrintsNothing) {
    EXPECT_EQ(rendered("a%nb%hhnc%5nd", 100), "abcd");
}

TEST(ArgumentlessFormat, TextAndPointerConversionsAreEmpty) {
    EXPECT_EQ(rendered("[%s][%5s][%-3c][%p][%m]", 100), "[][     ][   ][(nil)][]");
}

TEST(ArgumentlessFormat, PositionalConversionIsTheSameConversionWithoutItsPosition) {
    EXPECT_EQ(rendered("[%1$s][%2$d][%1$5d][%3$-3c][%1$n][%12$.2f][%1$p]", 100),
              "[][0][    0][   ][][0.00][(nil)]");
    EXPECT_EQ(rendered("[%2$*1$d][%3$.*1$f]", 100), "[0][0]");
    EXPECT_EQ(rendered("[%1$%][%1$k][%$s][%1$", 100), "[%][%1$k][%$s][%1$");
}

TEST(ArgumentlessFormat, PercentThatBeginsNoConversionStays) {
    EXPECT_EQ(rendered("50%", 100), "50%");
    EXPECT_EQ(rendered("50%\n", 100), "50%\n");
    EXPECT_EQ(rendered("%k %", 100), "%k %");
}

TEST(ArgumentlessFormat, HugeWidthsAreCutAtTheLimit) {
    EXPECT_EQ(rendered("%999999999999999999999d", 2047).size(), 2047U);
    EXPECT_EQ(rendered("%.999999999f", 2047).size(), 2047U);
    EXPECT_EQ(rendered("%*d|%.*f", 100), "0|0");
}

TEST(ArgumentlessFormat, NeverLongerThanAllowed) {
    EXPECT_EQ(rendered("abcdef", 3), "abc");
    EXPECT_EQ(rendered("ab%5d", 4), "ab  ");
    EXPECT_EQ(rendered("abc%%", 3), "abc");
    EXPECT_EQ(rendered("%d", 0), "");
}

TEST(ArgumentlessFormat, WritesNothingBehindItsRoom) {
    const std::string format = "a%%%9d%-9d%.9f%09a%#.9g%p%5s%e%k end";
    const std::string whole = rendered(format, 1000);
    ASSERT_GT(whole.size(), 60U);
    for (std::size_t longest = 0; longest <= whole.size() + 1; ++longest) {
        std::string room(whole.size() + 2, '#');
        const std::size_t length = renderWithoutArguments(format, {room.data(), longest});
        EXPECT_EQ(length, std::min(longest, whole.size()));
        EXPECT_EQ(room.substr(0, length), whole.substr(0, length));
        EXPECT_EQ(room.find_first_not_of('#', length), std::string::npos) << longest;
    }
}

} // namespace
} // namespace obrin
