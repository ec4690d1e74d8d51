#include "resources/declarationFindings.h"

#include "resources/resourceText.h"
#include "tests/resources/chainFixture.h"
#include "tests/support/often.h"
#include "tests/support/toldFindings.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <gmock/gmock.h>
#include <random>

namespace obrin::test {
namespace {

using namespace std::string_literals;
using ::testing::IsEmpty;

/// Fifteen lines of which there is nothing to say.
const std::string goodText = "BeginResourceDeclaration\n"
                             "BeginResourceInput\n"
                             "\tFindObject (Other)\n"
                             "\tFindInstance (inst)\n"
                             "\tFindCounter (count)\n"
                             "\tWindowSize -1.\n"
                             "\tNameIs (Name)\n"
                             "\tAnalyticalMethod 1\n"
                             "\tUpperLimitAbs 0.5\n"
                             "\tUpperLimitCalc 0\n"
                             "\tLowerLimitAbs 0\n"
                             "\tLowerLimitCalc 0\n"
                             "\tCulpritMarker (none)\n"
                             "EndResourceInput\n"
                             "EndResourceDeclaration\n";

const std::string goodInput = goodText.substr(25, goodText.find("EndResourceDeclaration") - 25);

std::string with(const std::string& old, const std::string& fresh) {
    std::string text = goodText;
    const std::size_t at = text.find(old);
    EXPECT_NE(at, text.npos) << old;
    return text.replace(at, old.size(), fresh);
}

std::string upTo(const std::string& mark, const std::string& text) {
    return text.substr(0, text.find(mark));
}

void expectAll(const std::vector<FindingRow>& rows) {
    expectFindings(rows, checkDeclarations);
}

TEST(DeclarationFindings, OfGoodDeclarationsThereIsNothingToSay) {
    const DeclarationReport report = checkDeclarations(goodText);
    EXPECT_THAT(report.findings, IsEmpty());
    EXPECT_TRUE(report.accepted);
    EXPECT_TRUE(report.rewritten);
    EXPECT_EQ(report.comment, Place{});
}

TEST(DeclarationFindings, AnInputIsReadWithThePlacesOfItsParts) {
    std::string text = goodText;
    text.insert(text.find("EndResourceDeclaration"), goodInput);
    text.replace(text.rfind("(Other)"), 7, "(" + std::string(130, 'o') + ")");
    text.replace(text.rfind("-1."), 3, "x");
    text.replace(text.rfind("Method 1"), 8, "Method -99999999999");
    const DeclarationReport report = checkDeclarations(text);
    ASSERT_EQ(report.inputs.size(), 2U);
    const DeclaredInput& first = report.inputs[0];
    EXPECT_EQ(first.object, "Other");
    EXPECT_EQ(first.instance, "inst");
    EXPECT_EQ(first.counter, "count");
    EXPECT_EQ(first.name, "Name");
    EXPECT_EQ(first.window, -1);
    EXPECT_EQ(first.method, 1);
    EXPECT_EQ(first.upperLimit, 0.5);
    EXPECT_EQ(first.objectPlace, (Place{3, 2}));
    EXPECT_EQ(first.instancePlace, (Place{4, 2}));
    EXPECT_EQ(first.counterPlace, (Place{5, 2}));
    EXPECT_EQ(first.windowPlace, (Place{6, 13}));
    EXPECT_EQ(first.namePlace, (Place{7, 2}));
    EXPECT_EQ(first.methodPlace, (Place{8, 19}));
    EXPECT_EQ(first.upperLimitPlace, (Place{9, 16}));
    const DeclaredInput& second = report.inputs[1];
    EXPECT_EQ(second.object, std::string(127, 'o'));
    EXPECT_EQ(second.window, 0);
    EXPECT_EQ(second.windowPlace, (Place{19, 2})) << "that of the keyword";
    EXPECT_EQ(second.method, -2147483647 - 1);
    EXPECT_EQ(second.methodPlace, (Place{21, 19}));
}

TEST(DeclarationFindings, WhatIsMissingIsToldWhereItIsMissed) {
    expectAll({
        {with("\tNameIs (Name)\n", ""), {"6:2 keyword-missing keyword=NameIs"}, false},
        {with("BeginResourceDeclaration\n", ""),
         {"1:1 keyword-missing keyword=BeginResourceDeclaration"},
         false},
        {"BeginResourceDeclaration x", {"1:1 keyword-missing keyword=FindObject"}, false},
        {upTo("EndResourceInput", with("(Other)", "(Process)")),
         {"13:2 keyword-missing keyword=EndResourceInput"},
         false},
        {with("(none)", ""), {"13:2 argument-missing keyword=CulpritMarker"}, false},
        {upTo("ther)", goodText), {"3:2 argument-missing keyword=FindObject"}, false},
        {with("\tNameIs", "\t/* NameIs"), {"7:2 comment-not-closed text=/*"}, false},
        {upTo("EndResourceInput", goodText), {"3:2 end-of-input-missing"}},
        {upTo("EndResourceDeclaration", goodText), {"14:1 end-of-declarations-missing"}},
        {upTo(" -1.", goodText),
         {"6:2 value-malformed keyword=WindowSize", "6:2 keyword-missing keyword=NameIs"},
         false},
    });
}

TEST(DeclarationFindings, WhatOfAnArgumentIsDroppedOrSurprisesIsTold) {
    const std::string full(127, 'n');
    expectAll({
        {with("NameIs (", "NameIs x\n y ("), {"7:2 words-before-argument text=x\n y keyword=NameIs"}},
        {with("(Name)", "(Na\0me\0)"s),
         {"7:12 nul-byte number=2", "7:10 argument-cut-at-nul text=Na keyword=NameIs"}},
        {with("(Name)", "(" + full + ")"), {}},
        {with("(Name)", "(" + full + "yz)"), {"7:10 argument-too-long text=yz keyword=NameIs number=129"}},
        {with("(Name)", "(Na\nme)"), {"7:10 argument-spans-lines text=Na\nme keyword=NameIs"}},
        {with("(Name)", "( Name)"), {"7:10 argument-with-outer-blank text= Name keyword=NameIs"}},
        {with("(Name)", "(Name\t)"), {"7:10 argument-with-outer-blank text=Name\t keyword=NameIs"}},
        {with("(none)", "(no\xFF)"),
         {"13:19 not-utf8 text=\xFF", "13:19 byte-255 text=\xFF keyword=CulpritMarker"},
         false},
        {with("FindObject", "FindObject \xFF"),
         {"3:13 not-utf8 text=\xFF", "3:13 byte-255 text=\xFF keyword=FindObject"},
         false},
    });
}

TEST(DeclarationFindings, NumbersAreToldThatAreNoneOrTakenForOthers) {
    expectAll({
        {with("-1.", "soon"), {"6:13 value-malformed text=soon keyword=WindowSize"}},
        {with("-1.", "12h"), {"6:15 value-with-rest text=h keyword=WindowSize read=12"}},
        {with("-1.\n\tNameIs", "12NameIs"), {}},
        {with("-1.", "-inf"), {"6:13 value-not-finite text=-inf keyword=WindowSize"}},
        {with("-1.", "nan(1)x"),
         {"6:19 value-with-rest text=x keyword=WindowSize read=nan(1)",
          "6:13 value-not-finite text=nan(1) keyword=WindowSize"}},
        {with("Method 1", "Method one"), {"8:19 value-malformed text=one keyword=AnalyticalMethod"}},
        {with("Method 1", "Method 1.5"), {"8:20 value-with-rest text=.5 keyword=AnalyticalMethod read=1"}},
        {with("Method 1", "Method 2147483648"),
         {"8:19 number-out-of-range text=2147483648 keyword=AnalyticalMethod number=2147483647"}},
        {with("Method 1", "Method -99999999999999999999"),
         {"8:19 number-out-of-range text=-99999999999999999999 keyword=AnalyticalMethod number=-2147483648"}},
        {with("Method 1", "Method -2147483648"), {}},
    });
}

TEST(DeclarationFindings, WhatTheSearchForAKeywordPassesOverIsTold) {
    const auto before = [](const std::string& words) { return with("\tNameIs", "\t" + words + " NameIs"); };
    expectAll({
        {before("word other"), {"7:2 word-ignored text=word keyword=NameIs"}},
        {before("CulpritMarker word"), {"7:2 keyword-out-of-place text=CulpritMarker keyword=NameIs"}},
        {before("word CulpritMarker"), {"7:7 keyword-out-of-place text=CulpritMarker keyword=NameIs"}},
        {before("NameIs(x)"), {"7:2 keyword-glued text=NameIs(x) keyword=NameIs"}},
        {before("nameis word"), {"7:2 keyword-in-other-case text=nameis keyword=NameIs"}},
        {before("UPPERLIMITABS:"), {"7:2 keyword-glued text=UPPERLIMITABS: keyword=UpperLimitAbs"}},
        {before("NameIsland"), {"7:2 word-ignored text=NameIsland keyword=NameIs"}},
        {before("NameIs\xC3\xA4"), {"7:2 word-ignored text=NameIs\xC3\xA4 keyword=NameIs"}},
        {before("BeginResourceInput FindObject (x)"),
         {"7:2 input-skipped text=BeginResourceInput keyword=NameIs"}},
        {before("FindObject (x) FindObject"),
         {"7:2 input-skipped text=FindObject keyword=NameIs",
          "7:17 input-skipped text=FindObject keyword=NameIs"}},
        {before("word FindObject"),
         {"7:2 word-ignored text=word keyword=NameIs", "7:7 input-skipped text=FindObject keyword=NameIs"}},
        {with("\tFindObject", "word FindObject"), {"3:1 word-ignored text=word keyword=FindObject"}},
    });
}

TEST(DeclarationFindings, CommentMarksThatAreNoneAreTold) {
    const auto before = [](const std::string& words) { return with("\tNameIs", "\t" + words + " NameIs"); };
    expectAll({
        {before("/* a comment */"), {}},
        {before("/*note */"), {"7:2 comment-mark-glued text=/*note"}},
        {before("/*note*/"), {"7:2 comment-mark-glued text=/*note*/"}},
        {before("/*note of two words*/"), {"7:2 comment-mark-glued text=/*note"}},
        {before("stray*/"), {"7:2 comment-mark-glued text=stray*/"}},
        {before("/* a b*/ c*/ d */"), {"7:7 comment-mark-glued text=b*/ number=1"}},
        {"/*x\n" + goodText, {"1:1 comment-mark-glued text=/*x"}},
        {"/*x*/\n" + goodText, {}},
    });
}

TEST(DeclarationFindings, BeforeTheBeginningAnythingMayStandButInputs) {
    expectAll({
        {"any words, a findobject\n" + goodText, {}},
        {"FindObject\n" + goodText, {"1:1 input-skipped text=FindObject keyword=BeginResourceDeclaration"}},
        {"\xEF\xBB\xBF\n" + goodText, {"1:1 byte-order-mark text=\xEF\xBB\xBF"}},
        {"nameis beginresourcedeclaration",
         {"1:8 keyword-in-other-case text=beginresourcedeclaration keyword=BeginResourceDeclaration",
          "1:1 keyword-missing keyword=BeginResourceDeclaration"},
         false},
    });
}

TEST(DeclarationFindings, HowTheDeclarationsEndIsToldWithTheFirstInputBehind) {
    const std::string end = "EndResourceDeclaration\n";
    expectAll({
        {with(end, "word\n" + goodInput), {"15:1 declarations-end-early text=word number=16"}},
        {with(end, "word\n"), {"15:1 declarations-end-early text=word"}},
        {with(end, "beginresourceinput\n"),
         {"15:1 keyword-in-other-case text=beginresourceinput keyword=BeginResourceInput",
          "15:1 declarations-end-early text=beginresourceinput"}},
        {with(end, "/* c */\n" + goodInput + end), {"15:1 comment-between-inputs number=16"}},
        {with(end, "/* c */\n" + end), {}},
        {with(end, end + "/* BeginResourceInput */\n" + goodInput), {"17:1 input-after-end"}},
        {with(end, end + "/* open BeginResourceInput"), {"16:9 input-after-end"}},
        {with("(Other)", "(File)"), {"3:2 object-file text=File"}},
        {with("(Other)", "(File)") + goodInput, {"3:2 object-file text=File number=16"}},
    });
}

TEST(DeclarationFindings, TheFirstCommentThatAReplacementWouldDropIsTold) {
    const auto comment = [](const std::string& text) { return checkDeclarations(text).comment; };
    EXPECT_EQ(comment("/* a */ /* b */\n" + goodText), (Place{1, 1}));
    EXPECT_EQ(comment(with("\tNameIs", "\t /* a */ NameIs")), (Place{7, 3}));
    EXPECT_EQ(comment(with("EndResourceDeclaration", " /* a */")), (Place{15, 2}));
    EXPECT_EQ(comment(goodText + "/* a */"), Place{}) << "behind the end nothing is read";
}

/// A run's own judgement, links and all, beside that of the check.
class SameReading : public ChainTest {
protected:
    SameReading() {
        machine.numberOfDisks = [] { return 0; };
        machine.numberOfProcesses = [](const char*, const char*) { return 0; };
    }

    /// Whether both take the text.
    bool compare(const std::string& text) {
        ScanUpChainDeletingAllLinks(&clasp);
        ScratchPad pad(clasp.ScratchPad);
        const ParseResult run = parseResourceText(text, &clasp, pad, machine);
        const DeclarationReport report = checkDeclarations(text);
        EXPECT_EQ(report.accepted, run.result == 1) << text;
        // A window that memory cannot hold is no matter of the text.
        const bool isLost = run.loss != nullptr && run.loss != "a resource of it could not be taken up"s;
        EXPECT_EQ(report.rewritten, run.result == 1 && !isLost) << text;
        std::size_t distinct = 0;
        for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink, ++distinct)
            EXPECT_TRUE(std::any_of(
                report.inputs.begin(), report.inputs.end(),
                [link](const auto& input) {
                    return link->Descriptor0 == input.object && link->Descriptor1 == input.instance &&
                           link->Descriptor2 == input.counter && link->NameIs == input.name &&
                           (link->WindowSize == input.window || std::isnan(input.window)) &&
                           link->AnalyticalMethod == input.method &&
                           (link->UpperLimitAbs == input.upperLimit || std::isnan(input.upperLimit));
                }))
                << link->Descriptor0.c_str() << " of " << text;
        EXPECT_LE(distinct, report.inputs.size()) << text;
        return report.accepted;
    }

    InstanceEnumeration machine;
};

TEST_F(SameReading, TheCheckTakesWhatARunTakesAndSeesWhatItSees) {
    std::mt19937 random(11);
    std::string whole = goodText;
    whole.insert(whole.find("EndResourceDeclaration"), goodInput);
    whole.replace(whole.rfind("Other"), 5, "LogicalDisk");
    const std::string odd[] = {"/*",
                               "*/",
                               "/*x",
                               "(",
                               ")",
                               " ",
                               "\xFF",
                               "\0"s,
                               "File",
                               "FindObject",
                               "word ",
                               "BeginResourceInput",
                               "EndResourceDeclaration ",
                               "1e400",
                               "-"};
    int taken = 0;
    for (int round = 0; round < 1000; ++round) {
        std::string text = whole;
        for (int change = 0; change <= round % 4; ++change) {
            const std::size_t at = random() % text.size();
            if (random() % 2 == 0)
                text.erase(at, 1 + random() % 20);
            else
                text.insert(at, odd[random() % std::size(odd)]);
        }
        taken += compare(text) ? 1 : 0;
    }
    EXPECT_GT(taken, 200);
    EXPECT_LT(taken, 900);
}

TEST_F(SameReading, WhatKeepsARunFromReplacingTheTextIsToldByTheCheck) {
    const std::string end = "EndResourceDeclaration\n";
    for (const std::string& text :
         {with("(Other)", "(File)"), with("(Name)", "(" + std::string(128, 'n') + ")"),
          with(end, "word " + goodInput), with("\tNameIs", "\tFindObject NameIs")}) {
        EXPECT_TRUE(compare(text)) << text;
        EXPECT_FALSE(checkDeclarations(text).rewritten) << text;
    }
    for (const std::string& text : {goodText, goodText + goodInput, "FindObject " + goodText}) {
        EXPECT_TRUE(compare(text)) << text;
        EXPECT_TRUE(checkDeclarations(text).rewritten) << text;
    }
}

TEST_F(SameReading, NothingIsLoggedOrWritten) {
    for (const std::string& text : {goodText, with("(none)", ""), std::string()})
        checkDeclarations(text);
    EXPECT_EQ(log.text(), "");
    EXPECT_FALSE(std::filesystem::exists(clasp.ScratchPad));
    EXPECT_THAT(chain(), IsEmpty());
}

TEST(DeclarationFindings, MegabytesOfAnythingAreChecked) {
    const auto megabytes = static_cast<std::size_t>(often(2, 10));
    for (const char* word : {"FindObject ", "/* ", "( ", "word ", "/*x ", "x*/ ", "\n"}) {
        std::string text = upTo("\tNameIs", goodText);
        while (text.size() < megabytes << 20)
            text += word;
        EXPECT_FALSE(checkDeclarations(text).accepted);
    }
    std::string many = "BeginResourceDeclaration ";
    while (many.size() < megabytes << 19)
        many += goodInput;
    std::replace(many.begin(), many.end(), '\n', ' ');
    const DeclarationReport report = checkDeclarations(many + "EndResourceDeclaration");
    EXPECT_THAT(report.findings, IsEmpty());
    EXPECT_EQ(report.inputs.back().objectPlace.line, 1);
}

} // namespace
} // namespace obrin::test
