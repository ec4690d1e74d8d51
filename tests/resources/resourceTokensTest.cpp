#include "resources/resourceTokens.h"

#include <gtest/gtest.h>
#include <string>

namespace obrin::test {
namespace {

TEST(ResourceTokens, EveryKeywordHasItsCode) {
    const char* words[] = {"BeginResourceDeclaration",
                           "BeginResourceInput",
                           "FindObject",
                           "FindInstance",
                           "FindCounter",
                           "WindowSize",
                           "NameIs",
                           "/*",
                           "*/",
                           "EndResourceDeclaration",
                           "EndResourceInput",
                           "AnalyticalMethod",
                           "UpperLimitAbs",
                           "UpperLimitCalc",
                           "LowerLimitAbs",
                           "LowerLimitCalc",
                           "CulpritMarker"};
    int code = 0;
    for (const char* word : words)
        EXPECT_EQ(ResourceDeclarationPiston(word), ++code) << word;
    EXPECT_EQ(code, culpritMarkerKey);
    for (; code > 0; --code)
        EXPECT_EQ(keywordOf(code), words[code - 1]);
    EXPECT_EQ(keywordOf(noKey), "");
    for (const char* word : {"", "findobject", "FindObject(", "/**", "**/", "FindObjectX"})
        EXPECT_EQ(ResourceDeclarationPiston(word), 0) << word;
}

TEST(ResourceTokens, TheSearchSkipsEveryOtherWordAndWholeComments) {
    TextScanner text("NameIs free words /* FindObject (x) */ FindObject (y)");
    EXPECT_EQ(ScanForKeyCode(findObjectKey, text), 1);
    EXPECT_EQ(text.rest(), " (y)");
}

TEST(ResourceTokens, ACommentMarkAgainstAWordIsNoCommentMark) {
    TextScanner text("/*note FindObject (x) */ more");
    EXPECT_EQ(ScanForKeyCode(findObjectKey, text), 1);
    EXPECT_EQ(text.rest(), " (x) */ more");
}

TEST(ResourceTokens, AnUnclosedCommentAndTheEndOfTheTextFailTheSearch) {
    TextScanner open("/* FindObject (x)");
    EXPECT_EQ(ScanForKeyCode(findObjectKey, open), -1);
    TextScanner empty("  \n ");
    EXPECT_EQ(ScanForKeyCode(findObjectKey, empty), -1);
}

TEST(ResourceTokens, AnInputsBeginningThatIsSkippedIsNoted) {
    ParseLosses losses;
    TextScanner normal("BeginResourceInput FindObject");
    ScanForKeyCode(findObjectKey, normal, &losses);
    EXPECT_FALSE(losses.input);
    TextScanner text("BeginResourceInput NameIs");
    ScanForKeyCode(nameIsKey, text, &losses);
    EXPECT_TRUE(losses.input);
}

TEST(ResourceTokens, OnlyAnOpeningMarkBeginsAComment) {
    TextScanner text("a b */ c");
    EXPECT_EQ(CommentFunction("word", text), 1);
    EXPECT_EQ(text.position(), 0U);
    EXPECT_EQ(CommentFunction("/*", text), 1);
    EXPECT_EQ(text.rest(), " c");
    EXPECT_EQ(CommentFunction("/*", text), -1);
}

TEST(ResourceTokens, AnArgumentIsEverythingBetweenTheParenthesesUntrimmed) {
    TextScanner text("skipped ( a (b\n /* c ) rest");
    std::string argument;
    EXPECT_EQ(RetrieveArgument(&argument, text), 1);
    EXPECT_EQ(argument, " a (b\n /* c ");
    EXPECT_EQ(text.rest(), " rest");
    TextScanner empty("()");
    EXPECT_EQ(RetrieveArgument(&argument, empty), 1);
    EXPECT_EQ(argument, "");
}

TEST(ResourceTokens, AnArgumentThatIsNotClosedOrNotOpenedFails) {
    std::string argument;
    for (const char* cut : {"", "no argument", "(", "(abc", ")"}) {
        TextScanner text(cut);
        EXPECT_EQ(RetrieveArgument(&argument, text), -1) << cut;
    }
}

TEST(ResourceTokens, AByteOf255EndsTheTextOfAnArgument) {
    std::string argument;
    for (const char* cut : {"\xff(abc)", "(a\xff"
                                         "bc)"}) {
        TextScanner text(cut);
        EXPECT_EQ(RetrieveArgument(&argument, text), -1);
    }
    TextScanner behind("(abc)\xff");
    EXPECT_EQ(RetrieveArgument(&argument, behind), 1);
}

TEST(ResourceTokens, AnArgumentHolds127BytesAndTheRestIsReadAndDropped) {
    std::string argument;
    ParseLosses losses;
    const std::string longest(127, 'x');
    const std::string tooLong = "(" + longest + "yz) rest";
    const std::string fitting = "(" + longest + ")";
    TextScanner first(fitting);
    EXPECT_EQ(RetrieveArgument(&argument, first, &losses), 1);
    EXPECT_EQ(argument, longest);
    EXPECT_FALSE(losses.argument);
    TextScanner second(tooLong);
    EXPECT_EQ(RetrieveArgument(&argument, second, &losses), 1);
    EXPECT_EQ(argument, longest);
    EXPECT_TRUE(losses.argument);
    EXPECT_EQ(second.rest(), " rest");
}

TEST(ResourceTokens, TenMegabytesAreSearched) {
    const std::string words[] = {std::string(10U << 20, 'x'), std::string(10U << 20, ' ')};
    std::string many;
    while (many.size() < (10U << 20))
        many += "ab ";
    for (const std::string& text : {words[0], words[1], many}) {
        TextScanner scanner(text);
        EXPECT_EQ(ScanForKeyCode(findObjectKey, scanner), -1);
    }
}

} // namespace
} // namespace obrin::test
