// The linter reads a table as the library's loader does: each case is a
// small table and the findings it must give, line and severity included.
#include <algorithm>
#include <gtest/gtest.h>

#include "workflow/lint.h"

namespace vrncal::workflow {
namespace {

const char* kNine =
    "PNT0=-40 40 -40.1 40.1\nPNT1=0 40 0 40.05\nPNT2=40 40 40.1 40.1\nPNT3=-40 0 -40.05 0\nPNT4=0 0 0 0\n"
    "PNT5=40 0 40.05 0\nPNT6=-40 -40 -40.1 -40.1\nPNT7=0 -40 0 -40.05\nPNT8=40 -40 40.1 -40.1\n";

std::string table(const std::string& coefs, const std::string& cal3_extra, const std::string& rest = "") {
    return "[CalCoefs]\nValSize=80\n" + coefs + "[Cal3]\n" + kNine + cal3_extra + rest;
}

// "line:E:text" or "line:W:text" per finding, for compact expectations.
std::vector<std::string> brief(const std::string& text) {
    std::vector<std::string> out;
    for (const auto& f : lint_table(text))
        out.push_back(std::to_string(f.line) + (f.severity == Finding::Error ? ":E:" : ":W:") + f.message);
    return out;
}

TEST(Lint, CleanTableHasNoFindings) { EXPECT_TRUE(brief(table("", "")).empty()); }

TEST(Lint, NinePointProblemsAreErrorsAtTheirLines) {
    std::string t = table("", "");
    t.replace(t.find("PNT4=0 0 0 0"), 12, "PNT4=0 0  0 0");
    t.replace(t.find("PNT7=0 -40 0 -40.05\n"), 20, "");
    const auto f = brief(t);
    ASSERT_EQ(f.size(), 2u);
    EXPECT_EQ(f[0], "3:E:PNT7 of the nine calibration points is missing or empty in [Cal3]: the file will not load");
    EXPECT_EQ(f[1], "8:E:PNT4 in [Cal3] has 5 field(s), not 4 (X Y RealX RealY, separated by single spaces): two "
                    "blanks in a row make an empty field; the file will not load");
}

TEST(Lint, NumbersThatDoNotConvert) {
    const auto f = brief(table("Resolution=abc\n", "PNT9=1 2 3 4\n", ""));
    EXPECT_EQ(f[0], "3:E:Resolution = 'abc' in [CalCoefs] is not a number: the load stops with 'stoi'");
    EXPECT_EQ(f[1], "14:W:PNT9 in [Cal3] is not read: the nine points are PNT0 to PNT8");
    const auto g = brief(table("ValSize=1e39\n", "LineCount=2\nXT1=x\nk7=2.5mm\n"));
    // The first ValSize (line 2) wins; the repeat is reported, not converted.
    EXPECT_EQ(g[0], "3:E:ValSize repeated in [CalCoefs]: the loader keeps the first value (line 2) and ignores this "
                    "one");
    EXPECT_EQ(g[1], "15:E:XT1 = 'x' in [Cal3] is not a number: the load stops with 'stof'");
    EXPECT_EQ(g[2], "16:W:k7 = '2.5mm': the loader reads the leading number and ignores 'mm'");
    const auto h = brief("[Cal3]\nPNT0=1 2 3 x\n");
    EXPECT_NE(std::find(h.begin(), h.end(), "2:E:PNT0 in [Cal3]: RealY 'x' is not a number: the loader reads 0"),
              h.end());
}

TEST(Lint, KeysWhereTheLoaderDoesNotLook) {
    const auto f = brief(table("AxisXL=40\nk2=0.1\n", "order=9\nValSize =80\n", "grid=1\n"));
    EXPECT_EQ(f[0], "3:E:AxisXL is placed under [CalCoefs]: the loader reads it only under [Cal3], so it is not seen");
    EXPECT_EQ(f[1], "4:E:k2 is placed under [CalCoefs]: the loader reads it only under [Cal3], so it is not seen");
    EXPECT_EQ(f[2], "15:E:order is placed under [Cal3]: the loader reads it only under [CalCoefs], so it is not seen");
    EXPECT_EQ(f[3], "16:E:key 'ValSize ' has blanks around it: the loader does not trim keys, so ValSize is not set");
    EXPECT_EQ(f[4], "17:W:grid=1 switches the gain tables on, but LineCount 0 leaves every gain at 1");
    EXPECT_EQ(f.size(), 5u);
}

TEST(Lint, FittedKeysHaveNoEffect) {
    const auto f = brief(table("", "AxisXL=40\nk4=1\n"));
    ASSERT_EQ(f.size(), 1u);
    EXPECT_EQ(f[0], "13:W:AxisXL is computed by the fit on every load: this value has no effect");
}

TEST(Lint, RepeatedSectionsDiscardTheEarlierOne) {
    const auto f = brief("[Cal3]\nPNT0=1 2 3 4\n" + table("", ""));
    EXPECT_EQ(f[0], "1:E:[Cal3] is repeated at line 5: the later header replaces this one, and the 1 key(s) under "
                    "this one are discarded");
}

TEST(Lint, GridsTheLoaderDrops) {
    std::string grid = "[Cal5]\n";
    for (int i = 0; i < 25; ++i)
        if (i != 7)
            grid += "PNT" + std::to_string(i) + "=" + std::to_string(-40 + 20 * (i % 5)) + " " +
                    std::to_string(40 - 20 * (i / 5)) + " 0 0\n";
    const auto f = brief(table("", "", grid + "[Cal7]\nPNT0=0 0 0 0\n[Cal9\n"));
    EXPECT_EQ(f[0], "13:E:grid [Cal5] is dropped: PNT7 is missing, and the loader keeps a grid only with all 25 points");
    EXPECT_EQ(f[1], "38:W:section [Cal7] is not read: the grids are [Cal5], [Cal9], [Cal17], [Cal25], [Cal33] and "
                    "[Cal65]");
    EXPECT_EQ(f[2], "40:E:section header does not end in ']': the loader names it 'Cal'");
}

TEST(Lint, ValuesOutOfSensibleRanges) {
    std::string t = table("Resolution=40000\nLEN_XINVERT=300\n", "LineCount=150\n");
    t.replace(t.find("PNT2=40 40 40.1 40.1"), 20, "PNT2=40 40 49.1 40.1");
    const auto f = brief(t);
    EXPECT_EQ(f[0], "3:W:Resolution 40000: a loaded table keeps HalfResolution 32768, and a data file raises any "
                    "value below 65535 to 65535");
    EXPECT_EQ(f[1], "4:E:LEN_XINVERT 300 does not fit the data file's 8-bit flag field");
    EXPECT_EQ(f[2], "8:W:PNT2 in [Cal3]: measured 9.100547790527344 from nominal, more than 10 % of ValSize");
    EXPECT_EQ(f[3], "15:W:LineCount 150: only the first 100 rows are read and stored");
}

TEST(Lint, FormatsFindingsWithFileAndLine) {
    EXPECT_EQ(format_finding("a.cor", {7, Finding::Error, "bad"}), "a.cor:7: error: bad");
    EXPECT_EQ(format_finding("a.cor", {0, Finding::Warning, "odd"}), "a.cor: warning: odd");
}

}  // namespace
}  // namespace vrncal::workflow
