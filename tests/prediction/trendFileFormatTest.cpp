#include "prediction/trendFileFormat.h"

#include "agent/debugLog.h"
#include "support/wholeFile.h"
#include "tests/support/recordingSink.h"
#include "tests/support/temporaryDirectory.h"

#include <algorithm>
#include <clocale>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <locale.h>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace obrin {
namespace {

using test::readFile;
using test::writeFile;
using Series = std::vector<float>;

/// Gives the calling thread a locale with a decimal comma for as long as it lives.
class CommaLocale {
public:
    CommaLocale() : comma_(::newlocale(LC_ALL_MASK, "de_DE.UTF-8", locale_t{})) {
        if (comma_ != locale_t{})
            before_ = ::uselocale(comma_);
    }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;
    ~CommaLocale() {
        if (comma_ == locale_t{})
            return;
        ::uselocale(before_);
        ::freelocale(comma_);
    }
    bool there() const { return comma_ != locale_t{} && *::localeconv()->decimal_point == ','; }

private:
    locale_t comma_;
    locale_t before_ = locale_t{};
};

TrendHeadline exhausted() {
    return {100.0, 1700000000, 12.345, "hinge regression", 87.5F};
}

TrendHeadline notExhausted() {
    return {100.0, 1700000000, -1.0, "simple linear regression", 87.5F};
}

/// Over another text, which it replaces.
std::string curveOf(const Series& times, const Series& values) {
    std::string text = "before";
    trendCurveText(times, values, &text);
    return text;
}

TEST(TrendScript, WithTimeToExhaustionIsWrittenToTheByte) {
    EXPECT_EQ(
        trendScriptText(exhausted(), "../data/", "Disk space", "_dev_sda1__"),
        "limit(x) = 1.000000e+02\n"
        " set label '@ 1700000000, 12.35 hours to exhaustion, hinge regression, notif level=87.50' at graph "
        ".1,.5\n"
        "show label\n"
        "plot '../data/Disk space_dev_sda1__BMPRD.gnp' with lines, "
        "'../data/Disk space_dev_sda1__BMSMP.gnp' with linespoints, limit(x)");
}

TEST(TrendScript, WithoutExhaustionIsWrittenToTheByte) {
    EXPECT_EQ(trendScriptText(notExhausted(), "../data/", "PercentSwapSpaceUsed", "none"),
              "limit(x) = 1.000000e+02\n"
              " set label '@ 1700000000, no exhaustion within horizon, simple linear regression, notif "
              "level=-1.00' at graph .1,.5\n"
              "show label\n"
              "plot '../data/PercentSwapSpaceUsednoneBMPRD.gnp' with lines, "
              "'../data/PercentSwapSpaceUsednoneBMSMP.gnp' with linespoints, limit(x)");
}

TEST(TrendScript, OnlyATimeAboveZeroIsATimeToExhaustion) {
    for (double hours : {0.0, -0.0, -5.0, std::nan("")}) {
        TrendHeadline headline = exhausted();
        headline.hoursToExhaustion = hours;
        EXPECT_NE(trendScriptText(headline, "", "n", "i").find("no exhaustion within horizon"),
                  std::string::npos);
    }
    TrendHeadline headline = exhausted();
    headline.hoursToExhaustion = 1e-9;
    EXPECT_NE(trendScriptText(headline, "", "n", "i").find(", 0.00 hours to exhaustion, "),
              std::string::npos);
}

TEST(TrendScript, LargestNumbersAreWrittenWhole) {
    TrendHeadline headline = exhausted();
    headline.hoursToExhaustion = std::numeric_limits<double>::max();
    headline.notifyLevel = -std::numeric_limits<float>::max();
    headline.timeStamp = std::numeric_limits<std::int32_t>::min();
    headline.limit = -std::numeric_limits<double>::max();
    const TrendLabel label = parseTrendLabel(trendScriptText(headline, "", "n", "i"));
    EXPECT_EQ(label.timeStamp, headline.timeStamp);
    EXPECT_EQ(label.level, headline.notifyLevel);
    EXPECT_NE(label.text.find("1797693134862315708145274237317"), std::string::npos);
}

TEST(TrendFileNames, AreJoinedWithoutSeparator) {
    const TrendFileNames names = trendFileNames("../data/", "Disk space", "_dev_sda1__");
    EXPECT_EQ(names.script, "../data/Disk space_dev_sda1__BM.ini");
    EXPECT_EQ(names.forecast, "../data/Disk space_dev_sda1__BMPRD.gnp");
    EXPECT_EQ(names.samples, "../data/Disk space_dev_sda1__BMSMP.gnp");
}

TEST(TrendFileNames, NamesWithASeparatorOrNulLeaveTheDirectory) {
    EXPECT_TRUE(trendFilesStayAtHome("Disk space", "_dev_sda1__"));
    EXPECT_TRUE(trendFilesStayAtHome("..", ".."));
    EXPECT_FALSE(trendFilesStayAtHome("a/b", "none"));
    EXPECT_FALSE(trendFilesStayAtHome("a", "/../../etc/x"));
    EXPECT_FALSE(trendFilesStayAtHome(std::string_view("a\0b", 3), "none"));
}

/// The plot line of a resource of this display name.
std::string plotLine(std::string_view home, std::string_view displayName) {
    const std::string script = trendScriptText(notExhausted(), home, displayName, "i");
    return script.substr(script.rfind('\n') + 1);
}

TEST(TrendScript, BackslashPercentCommaAndBackquoteStayAsTheyAre) {
    EXPECT_EQ(plotLine("d/", "50% \\n, `x` \"y\" %s"),
              "plot 'd/50% \\n, `x` \"y\" %siBMPRD.gnp' with lines, "
              "'d/50% \\n, `x` \"y\" %siBMSMP.gnp' with linespoints, limit(x)");
}

TEST(TrendScript, QuoteOrLineBreakInANameIsWrittenInOctalDigits) {
    EXPECT_EQ(plotLine("d/", "it's"), "plot \"d/it\\047siBMPRD.gnp\" with lines, "
                                      "\"d/it\\047siBMSMP.gnp\" with linespoints, limit(x)");
    EXPECT_EQ(plotLine("d/", "a\nb`c`\\\x7f\xc3\xa4"),
              "plot \"d/a\\012b\\140c\\140\\134\\177\xc3\xa4iBMPRD.gnp\" with lines, "
              "\"d/a\\012b\\140c\\140\\134\\177\xc3\xa4iBMSMP.gnp\" with linespoints, limit(x)");
}

TEST(TrendScript, NameNeverStartsACommandOfThePlottingProgram) {
    EXPECT_TRUE(plotLine("", "<touch x;").starts_with("plot './<touch x;iBMPRD.gnp' with lines, './<touch"));
    EXPECT_TRUE(plotLine("", "~root").starts_with("plot './~rootiBMPRD.gnp' with"));
}

TEST(TrendScript, HostileNamesNeitherAddALineNorReachTheLabel) {
    for (const char* name :
         {"a\nlabel '@ 9, x, y, notif level=7'", "', b, c, d'", "label", "limit(x) = 7", "%n%s", "a\\"}) {
        const std::string script = trendScriptText(exhausted(), "d/", name, "\r\n'");
        EXPECT_EQ(std::count(script.begin(), script.end(), '\n'), 3) << name;
        const TrendLabel label = parseTrendLabel(script);
        EXPECT_EQ(label.timeStamp, 1700000000);
        EXPECT_EQ(label.text, "Algorithm: hinge regression.      12.35 hours to exhaustion.");
        EXPECT_EQ(label.level, 87.5F);
        EXPECT_EQ(parseTrendLimit(script), 100);
    }
}

TEST(TrendCurve, HasAsManyLinesAsTheShorterSpan) {
    EXPECT_EQ(curveOf(Series{}, Series{}), "");
    EXPECT_EQ(curveOf(Series{1.0F, 2.0F}, Series{3.0F}), "1.000000 3.000000 \n");
}

TEST(TrendCurve, LargestAndUndefinedNumbersAreWrittenWhole) {
    const float most = std::numeric_limits<float>::max();
    EXPECT_EQ(curveOf(Series{-most}, Series{-most}), "-340282346638528859811704183484516925440.000000 "
                                                     "-340282346638528859811704183484516925440.000000 \n");
    EXPECT_EQ(curveOf(Series{0.0F}, Series{-std::numeric_limits<float>::infinity()}), "0.000000 -inf \n");
}

TEST(TrendLocale, DecimalCommaOfTheProcessReachesNeitherWriterNorReader) {
    const std::string crossing = trendScriptText(exhausted(), "d/", "n", "i");
    const std::string none = trendScriptText(notExhausted(), "d/", "n", "i");
    const std::string curve = curveOf(Series{0.5F}, Series{99.25F});
    const CommaLocale comma;
    if (!comma.there())
        GTEST_SKIP() << "no locale de_DE.UTF-8 on this machine";
    char probe[16];
    std::snprintf(probe, sizeof probe, "%.1f", 0.5);
    ASSERT_STREQ(probe, "0,5");
    EXPECT_EQ(trendScriptText(exhausted(), "d/", "n", "i"), crossing);
    EXPECT_EQ(trendScriptText(notExhausted(), "d/", "n", "i"), none);
    EXPECT_EQ(curveOf(Series{0.5F}, Series{99.25F}), curve);
    EXPECT_EQ(curve, "0.500000 99.250000 \n");
    EXPECT_EQ(parseTrendLabel(crossing).level, 87.5F);
    EXPECT_EQ(parseTrendLabel(crossing).text, "Algorithm: hinge regression.      12.35 hours to exhaustion.");
    EXPECT_EQ(parseTrendLimit("limit(x) = 9.95e+01"), 99);
    std::snprintf(probe, sizeof probe, "%.1f", 0.5);
    EXPECT_STREQ(probe, "0,5") << "the caller's locale is back";
}

TEST(TrendLabelParser, ReadsTimeTextAndLevel) {
    const TrendLabel label = parseTrendLabel(trendScriptText(exhausted(), "d/", "n", "i"));
    EXPECT_EQ(label.timeStamp, 1700000000);
    EXPECT_EQ(label.text, "Algorithm: hinge regression.      12.35 hours to exhaustion.");
    EXPECT_EQ(label.level, 87.5F);
}

TEST(TrendLabelParser, VariantWithoutExhaustionReadsBackWithLevelMinusOneNotMinusThree) {
    const TrendLabel label = parseTrendLabel(trendScriptText(notExhausted(), "d/", "n", "i"));
    EXPECT_EQ(label.timeStamp, 1700000000);
    EXPECT_EQ(label.text, "Algorithm: simple linear regression.      no exhaustion within horizon.");
    EXPECT_EQ(label.level, -1.0F);
}

TEST(TrendLabelParser, CommaInAModelNameSplitsTheLabelWrongly) {
    TrendHeadline headline = exhausted();
    headline.model = "line, or so";
    const TrendLabel label = parseTrendLabel(trendScriptText(headline, "d/", "n", "i"));
    EXPECT_EQ(label.text, "Algorithm: line.      12.35 hours to exhaustion.");
    EXPECT_EQ(label.level, -3.0F);
}

TEST(TrendLabelParser, CommaInAHorizonTextSplitsTheLabelWrongly) {
    const TrendLabel label = parseTrendLabel("label '@ 5, 1,5 hours, model, notif level=2'");
    EXPECT_EQ(label.timeStamp, 5);
    EXPECT_EQ(label.text, "Algorithm: 5 hours.      1.");
    EXPECT_EQ(label.level, -3.0F);
}

void expectDefaults(std::string_view script) {
    const TrendLabel label = parseTrendLabel(script);
    EXPECT_EQ(label.timeStamp, -1) << script;
    EXPECT_EQ(label.text, "Unknown hours to exhaustion.") << script;
    EXPECT_EQ(label.level, -2.0F) << script;
}

TEST(TrendLabelParser, ScriptWithoutALabelLeavesTheDefaults) {
    for (const char* script : {"", "limit(x) = 1.000000e+02\n", "labels '@ 1, a, b, c'",
                               "xlabel '@ 1, a, b, c'", "label'@ 1, a, b, c'"})
        expectDefaults(script);
}

TEST(TrendLabelParser, LabelWithoutTheHeadlineBehindItLeavesTheDefaults) {
    for (const char* script :
         {"label", "label ", "label 1, a, b, c'", "label '1, a, b, c'", "label '@ 1, a, b'",
          "label '@ 1, a, b,", "label '@ 1, a, b, '", "label '@ , a, b, c'", "label ' @ 1, a, b, c'",
          "label \"@ 1, a, b, c\"", "label 'x' label '@ 1, a, b, c'"})
        expectDefaults(script);
}

TEST(TrendLabelParser, TimeIsReadAsFarAsItIsANumber) {
    EXPECT_EQ(parseTrendLabel("label '@ -5x, a, b, c'").timeStamp, -5);
    EXPECT_EQ(parseTrendLabel("label '@ x, a, b, c'").timeStamp, 0);
    EXPECT_EQ(parseTrendLabel("label '@ 99999999999999999999, a, b, c'").timeStamp,
              std::numeric_limits<std::int64_t>::max());
}

TEST(TrendLabelParser, WhiteSpaceOfAnyKindAndAMissingLastQuoteAreTaken) {
    const TrendLabel label = parseTrendLabel("x\tlabel\n\n'@1,a\n,\tb,notif  level= 3.5");
    EXPECT_EQ(label.timeStamp, 1);
    EXPECT_EQ(label.text, "Algorithm: b.      a\n.");
    EXPECT_EQ(label.level, 3.5F);
}

TEST(TrendLabelParser, LevelThatCannotBeReadIsMinusThree) {
    for (const char* level :
         {"c", "notif level=", "notif level=x", "notif level 5", "Notif level=5", "level=5"})
        EXPECT_EQ(parseTrendLabel(std::string("label '@ 1, a, b, ") + level + "'").level, -3.0F) << level;
}

TEST(TrendLabelParser, FieldTooLongToBeOneLeavesTheDefaults) {
    EXPECT_EQ(parseTrendLabel("label '@ 1, " + std::string(511, 'h') + ", m, notif level=4'").level, 4.0F);
    expectDefaults("label '@ 1, " + std::string(512, 'h') + ", m, notif level=4'");
    expectDefaults("label '@ 1, " + std::string(1U << 22U, 'h') + ", m, notif level=4'");
}

TEST(TrendLimitParser, LimitOfAHundredIsWrittenWithAnExponentAndReadsBack) {
    const std::string script = trendScriptText(exhausted(), "d/", "n", "i");
    EXPECT_TRUE(script.starts_with("limit(x) = 1.000000e+02\n"));
    EXPECT_EQ(parseTrendLimit(script), 100);
}

TEST(TrendLimitParser, LowerLimitOfZeroReadsBackAsZero) {
    TrendHeadline headline = exhausted();
    headline.limit = 0.0;
    const std::string script = trendScriptText(headline, "d/", "n", "i");
    EXPECT_TRUE(script.starts_with("limit(x) = 0.000000e+00\n"));
    EXPECT_EQ(parseTrendLimit(script), 0);
}

TEST(TrendLimitParser, LimitThatIsNotSetIsMinusOne) {
    const std::string script = trendScriptText(TrendHeadline{}, "d/", "n", "i");
    EXPECT_TRUE(script.starts_with("limit(x) = -1.000000e+00\n"));
    EXPECT_EQ(parseTrendLimit(script), -1);
}

TEST(TrendLimitParser, NumberIsTruncatedTowardZeroAndKeptWithin32Bits) {
    EXPECT_EQ(parseTrendLimit("limit(x) = 99.999"), 99);
    EXPECT_EQ(parseTrendLimit("limit(x) = -99.999"), -99);
    EXPECT_EQ(parseTrendLimit("limit(x) = 1e300"), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(parseTrendLimit("limit(x) = -inf"), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(parseTrendLimit("limit(x) = nan"), 0);
    EXPECT_EQ(parseTrendLimit("a b\nlimit(x)\t=\n7 8"), 7);
}

TEST(TrendLimitParser, TextWithoutALimitHasNone) {
    for (const char* script : {"", "limit(x)", "limit(x) =", "limit(x) = x", "limit(x) 7", "limit(x)= 7",
                               "limit (x) = 7", "limit(y) = 7", "plot 'a', limit(x)"})
        EXPECT_EQ(parseTrendLimit(script), std::nullopt) << script;
}

TEST(TrendParsers, AnyGarbageIsFine) {
    std::mt19937 random(20261121);
    const std::string good = trendScriptText(exhausted(), "d/", "name", "instance");
    const std::vector<std::string> pieces = {
        "label", " '@ ", ",", "'", "limit(x)",           "=",     "%s%n", "\n",           "1e999",
        "-inf",  "nan",  " ", "9", std::string(1, '\0'), "0x1p9", "\xff", "notif level=", "@"};
    for (int round = 0; round < 20000; ++round) {
        std::string text = good.substr(0, random() % (good.size() + 1));
        for (auto changes = random() % 8; changes > 0; --changes) {
            const std::string& piece = pieces[random() % pieces.size()];
            const std::size_t at = random() % (text.size() + 1);
            if (random() % 2 == 0)
                text.insert(at, piece);
            else
                text.replace(at, piece.size(), piece);
        }
        const TrendLabel label = parseTrendLabel(text);
        ASSERT_LE(label.text.size(), 1100U);
        if (label.level == -2.0F && label.timeStamp == -1)
            ASSERT_TRUE(label.text == TrendLabel().text || label.text.starts_with("Algorithm: "));
        else
            ASSERT_TRUE(label.text.starts_with("Algorithm: ") && label.text.ends_with("."));
        parseTrendLimit(text);
    }
}

/// Writes the three files of a resource into a directory, with a sink and a log that can be looked at.
class TrendFiles : public testing::Test {
protected:
    void write(std::string_view displayName = "Swap", std::string_view instance = "a b") const {
        writeTrendFiles(exhausted(), home, displayName, instance, Series{10.0F, 20.0F}, Series{1.0F, 2.0F},
                        Series{0.0F}, Series{0.5F});
    }

    void expectWritten() const {
        EXPECT_EQ(readFile(stem + "BM.ini"), trendScriptText(exhausted(), home, "Swap", "a_b"));
        EXPECT_EQ(readFile(stem + "BMPRD.gnp"), "10.000000 1.000000 \n20.000000 2.000000 \n");
        EXPECT_EQ(readFile(stem + "BMSMP.gnp"), "0.000000 0.500000 \n");
    }

    void expectOldOnes() const {
        for (const std::string& suffix : all)
            EXPECT_EQ(readFile(stem + suffix), "old");
        EXPECT_EQ(filesThere(), 3U) << "nothing is left beside them";
    }

    void writeOldOnes() const {
        for (const std::string& suffix : all)
            writeFile(stem + suffix, "old");
    }

    /// That the log names exactly these files, in this order.
    void expectLogged(const std::string& files, const std::vector<std::string>& suffixes) const {
        std::string lines;
        for (const std::string& suffix : suffixes)
            lines += "Error opening result file " + files + suffix + ".\n";
        std::string logged;
        const std::string text = log.text();
        const std::string begin = "Error opening result file ";
        for (std::size_t at = text.find(begin); at != std::string::npos; at = text.find(begin, at + 1))
            logged += text.substr(at, text.find('\n', at) + 1 - at);
        EXPECT_EQ(logged, lines);
    }

    /// That, in this process, exactly these files were reported, in this order.
    void expectReported(const std::string& files, const std::vector<std::string>& suffixes) const {
        expectLogged(files, suffixes);
        ASSERT_EQ(sink.events.size(), suffixes.size());
        for (std::size_t i = 0; i < suffixes.size(); ++i) {
            EXPECT_EQ(sink.events[i].timeText, "fatal");
            EXPECT_EQ(sink.events[i].name, "Cannot Open " + suffixes[i] + " File for Writing");
        }
    }

    std::size_t filesThere() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory.path()),
                                                      std::filesystem::directory_iterator()));
    }

    /// The exit code of work done in a process of its own, whose limits and rights die with it.
    static int inChild(const std::function<int()>& work) {
        const pid_t child = ::fork();
        if (child == 0)
            ::_exit(work());
        int status = -1;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const std::vector<std::string> all = {"BM.ini", "BMPRD.gnp", "BMSMP.gnp"};
    test::TemporaryDirectory directory;
    std::string home = directory.path() + "/";
    std::string stem = home + "Swapa_b";
    test::CapturedLog log;
    test::RecordingSink sink;
};

TEST_F(TrendFiles, AreWrittenUnderTheCleanedInstance) {
    write();
    expectWritten();
    expectReported(stem, {});
    EXPECT_EQ(filesThere(), 3U) << "nothing is left beside them";
}

TEST_F(TrendFiles, AreReplacedWhole) {
    for (const std::string& suffix : all)
        writeFile(stem + suffix, std::string(10000, 'o'));
    write();
    expectWritten();
}

TEST_F(TrendFiles, WriteAndReadAgree) {
    write();
    const auto script = readWholeFile(stem + "BM.ini");
    ASSERT_TRUE(script);
    EXPECT_EQ(parseTrendLabel(*script).timeStamp, 1700000000);
    EXPECT_EQ(parseTrendLabel(*script).level, 87.5F);
    EXPECT_EQ(parseTrendLimit(*script), 100);
}

TEST_F(TrendFiles, OneThatIsALinkIsReportedAndTheOthersAreWritten) {
    for (const std::string& suffix : all) {
        sink.events.clear();
        const std::string path = stem + suffix;
        std::filesystem::remove(path);
        std::filesystem::create_symlink("/dev/full", path);
        write();
        ASSERT_EQ(sink.events.size(), 1U);
        EXPECT_EQ(sink.events[0].timeText, "fatal");
        EXPECT_EQ(sink.events[0].name, "Cannot Open " + suffix + " File for Writing");
        EXPECT_NE(log.text().find("Error opening result file " + path + ".\n"), std::string::npos);
        EXPECT_TRUE(std::filesystem::is_symlink(path));
        std::filesystem::remove(path);
    }
    write();
    expectWritten();
}

TEST_F(TrendFiles, MissingDirectoryIsReportedForEachFile) {
    home = directory.path("gone/");
    write();
    expectReported(home + "Swapa_b", all);
}

TEST_F(TrendFiles, ReadOnlyDirectoryIsReportedForEachFileAndTheOldOnesStay) {
    writeOldOnes();
    DEBUGMSG("The log is open before the rights are given away.\n");
    ASSERT_EQ(::chmod(directory.path().c_str(), 0555), 0);
    const int events = inChild([&] {
        if (::geteuid() == 0 && ::setuid(65534) != 0)
            return 99;
        write();
        return static_cast<int>(sink.events.size());
    });
    ASSERT_EQ(::chmod(directory.path().c_str(), 0755), 0);
    EXPECT_EQ(events, 3);
    expectLogged(stem, all);
    expectOldOnes();
}

TEST_F(TrendFiles, OnesThatDoNotFitAreReportedAndTheOldOnesStay) {
    writeOldOnes();
    const int events = inChild([&] {
        const rlimit limit{4, 4};
        ::signal(SIGXFSZ, SIG_IGN);
        ::setrlimit(RLIMIT_FSIZE, &limit);
        write();
        return static_cast<int>(sink.events.size());
    });
    EXPECT_EQ(events, 3);
    expectOldOnes();
}

TEST_F(TrendFiles, WithoutADescriptorAllAreReportedAndTheOldOnesStay) {
    writeOldOnes();
    DEBUGMSG("The log is open before the descriptors are gone.\n");
    const int events = inChild([&] {
        const rlimit limit{3, 3};
        ::setrlimit(RLIMIT_NOFILE, &limit);
        write();
        return static_cast<int>(sink.events.size());
    });
    EXPECT_EQ(events, 3);
    expectLogged(stem, all);
    expectOldOnes();
}

TEST_F(TrendFiles, DisplayNameWithASlashNeverLeavesTheDirectory) {
    std::filesystem::create_directory(directory.path("in"));
    home = directory.path("in/");
    write("../out", "none");
    expectReported(home + "../outnone", all);
    EXPECT_EQ(filesThere(), 1U);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path("in")));
}

TEST_F(TrendFiles, NameTooLongForTheFileSystemIsReportedLikeOneThatCannotBeOpened) {
    const std::string longest(255 - 6, 'n'); // with "BM.ini" exactly what fits; "BMPRD.gnp" does not
    write(longest, "");
    expectReported(home + longest, {"BMPRD.gnp", "BMSMP.gnp"});
    EXPECT_EQ(readFile(home + longest + "BM.ini"), trendScriptText(exhausted(), home, longest, ""));
    EXPECT_EQ(filesThere(), 1U);
}

/// The files of one forecast as they must be.
struct FinishedForecast {
    TrendHeadline headline;
    Series times;
    Series values;
    std::string script; ///< its first two lines
    std::string curve;
};

const std::vector<FinishedForecast>& finishedForecasts() {
    static const std::vector<FinishedForecast> forecasts = {
        {{100.0, 1700000000, 0.5, "simple linear regression", 75.25F},
         {0.5F, 1800.5F},
         {50.5F, 100.0F},
         "limit(x) = 1.000000e+02\n set label '@ 1700000000, 0.50 hours to exhaustion, simple linear "
         "regression, notif level=75.25' at graph .1,.5\n",
         "0.500000 50.500000 \n1800.500000 100.000000 \n"},
        {{100.0, 1700000001, 47.125, "hinge regression", 75.25F},
         {0.0F, 60.0F, 120.0F},
         {50.0F, 50.0F, 62.75F},
         "limit(x) = 1.000000e+02\n set label '@ 1700000001, 47.12 hours to exhaustion, hinge regression, "
         "notif level=75.25' at graph .1,.5\n",
         "0.000000 50.000000 \n60.000000 50.000000 \n120.000000 62.750000 \n"},
        {{100.0, 1700000002, 1234.5, "simple linear regression on log", 99.995F},
         {0.0F, 1.0F, 2.0F},
         {1.0F, 2.7182817F, 7.389056F},
         "limit(x) = 1.000000e+02\n set label '@ 1700000002, 1234.50 hours to exhaustion, simple linear "
         "regression on log, notif level=100.00' at graph .1,.5\n",
         "0.000000 1.000000 \n1.000000 2.718282 \n2.000000 7.389056 \n"},
        {{100.0, 1700000003, -1.0, "simple linear regression", 0.0F},
         {86400.0F, 172800.0F},
         {41.27F, 41.27F},
         "limit(x) = 1.000000e+02\n set label '@ 1700000003, no exhaustion within horizon, simple linear "
         "regression, notif level=-1.00' at graph .1,.5\n",
         "86400.000000 41.270000 \n172800.000000 41.270000 \n"},
        {{0.0, 1700000004, 2.75, "3-segment linear regression", 65.0F}, // falls to its lower limit
         {0.0F, 1.5F},
         {0.25F, 0.0F},
         "limit(x) = 0.000000e+00\n set label '@ 1700000004, 2.75 hours to exhaustion, 3-segment linear "
         "regression, notif level=65.00' at graph .1,.5\n",
         "0.000000 0.250000 \n1.500000 0.000000 \n"},
        {{0.0, 1700000005, -3.5, "simple linear regression", 65.0F}, // falls and stays above it
         {0.0F, 1.5F},
         {30.0F, 29.75F},
         "limit(x) = 0.000000e+00\n set label '@ 1700000005, no exhaustion within horizon, simple linear "
         "regression, notif level=-1.00' at graph .1,.5\n",
         "0.000000 30.000000 \n1.500000 29.750000 \n"},
    };
    return forecasts;
}

/// Writes the files of every finished forecast and compares each to the byte.
void expectExactFiles() {
    for (const FinishedForecast& forecast : finishedForecasts()) {
        const test::TemporaryDirectory directory;
        const std::string home = directory.path() + "/";
        const std::string stem = home + "Disk space_dev_sda1__BM";
        writeTrendFiles(forecast.headline, home, "Disk space", "/dev/sda1 /", forecast.times, forecast.values,
                        forecast.times, forecast.values);
        EXPECT_EQ(readFile(stem + ".ini"), forecast.script + "show label\nplot '" + stem +
                                               "PRD.gnp' with lines, '" + stem +
                                               "SMP.gnp' with linespoints, limit(x)");
        EXPECT_EQ(readFile(stem + "PRD.gnp"), forecast.curve);
        EXPECT_EQ(readFile(stem + "SMP.gnp"), forecast.curve);
    }
}

TEST(TrendFilesOfEverySeries, LineHingeExponentialConstantAndFallingAreWrittenToTheByte) {
    expectExactFiles();
}

TEST(TrendFilesOfEverySeries, AreWrittenToTheByteUnderADecimalComma) {
    const CommaLocale comma;
    if (!comma.there())
        GTEST_SKIP() << "no locale de_DE.UTF-8 on this machine";
    expectExactFiles();
}

/// For a plotting program: the three files of finished forecasts go where LUMETRA_TREND_OUT says.
TEST(TrendFilesForPlotting, AreLeftInTheDirectoryThatTheEnvironmentNames) {
    test::TemporaryDirectory own;
    const char* wanted = std::getenv("LUMETRA_TREND_OUT");
    const std::string home = (wanted != nullptr ? std::string(wanted) : own.path()) + "/";
    Series sampleTimes;
    Series samples;
    Series forecastTimes;
    Series forecast;
    for (int i = 0; i < 120; ++i) {
        sampleTimes.push_back(static_cast<float>(i) * 60.0F);
        samples.push_back(20.0F + static_cast<float>(i) * 0.25F);
    }
    for (int i = 0; i < 200; ++i) {
        forecastTimes.push_back(7200.0F + static_cast<float>(i) * 72.0F);
        forecast.push_back(std::min(100.0F, 50.0F + static_cast<float>(i) * 0.3F));
    }
    for (const char* name : {"Plain", "Disk space", "it's ''quoted''", "two\nlines", "<touch pwned;",
                             "`touch pwned`'", "50%\\, {a_b}"})
        writeTrendFiles(exhausted(), home, name, "none", forecastTimes, forecast, sampleTimes, samples);
    EXPECT_EQ(parseTrendLimit(readFile(home + "two\nlinesnoneBM.ini")), 100);
    EXPECT_EQ(readFile(home + "PlainnoneBMPRD.gnp").substr(0, 24), "7200.000000 50.000000 \n7");
}

} // namespace
} // namespace obrin
