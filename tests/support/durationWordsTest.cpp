#include "support/durationWords.h"

#include "tests/support/sourceText.h"

#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <string>

namespace obrin {
namespace {

/// The host and its page are held to the same list.
TEST(DurationWords, AreThoseOfTheHost) {
    std::istringstream lines(test::sourceText("java/src/test/resources/durations.txt"));
    std::int64_t seconds = 0;
    int count = 0;
    for (std::string words; lines >> seconds && lines.get() == '\t' && std::getline(lines, words); ++count)
        EXPECT_EQ(durationWords(seconds), words);
    EXPECT_TRUE(lines.eof());
    EXPECT_GT(count, 15);
}

TEST(DurationWords, TakeAnyNumber) {
    EXPECT_EQ(durationWords(std::numeric_limits<std::int64_t>::min()), "0 s");
    EXPECT_NE(durationWords(std::numeric_limits<std::int64_t>::max()).find(" days"), std::string::npos);
}

} // namespace
} // namespace obrin
