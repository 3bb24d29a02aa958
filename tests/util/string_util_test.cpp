#include <clocale>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vrncal/string_util.h"

namespace {

using Pieces = std::vector<std::string>;

Pieces splitOf(const std::string& s, const std::string& delim) {
    Pieces out{"stale"};  // split must empty the vector first
    StringUtil::split(s, delim, out);
    return out;
}

TEST(StringUtilText, TrimErasesSetCharactersAtTheEnds) {
    std::string s = " \t\r\nab c\r\n ";
    EXPECT_EQ(StringUtil::rtrim(s), " \t\r\nab c");
    EXPECT_EQ(StringUtil::ltrim(s), "ab c");
    std::string both = "xxaxbxx", all = "\r\n\r", keep = " a ";
    EXPECT_EQ(StringUtil::trim(both, "x"), "axb");
    EXPECT_EQ(StringUtil::trim(all), "");
    EXPECT_EQ(StringUtil::trim(keep, nullptr), " a ");
}

TEST(StringUtilText, ComparisonsKeepTheirQuirks) {
    EXPECT_EQ(StringUtil::compareNoCase("abc", "ABC"), 0);
    EXPECT_EQ(StringUtil::compareNoCase("ab", "abc"), -1);
    EXPECT_EQ(StringUtil::compareNoCase("abcde", "AB"), 3);
    EXPECT_GT(StringUtil::compareNoCase("b", "Aaaa"), 0);
    // startWith tests the end; endWith holds only for an empty pattern.
    EXPECT_TRUE(StringUtil::startWith("abcdef", "DEF"));
    EXPECT_FALSE(StringUtil::startWith("abcdef", "abc"));
    EXPECT_FALSE(StringUtil::startWith("ab", "xab"));
    EXPECT_TRUE(StringUtil::endWith("abc", ""));
    EXPECT_FALSE(StringUtil::endWith("abc", "c"));
    EXPECT_FALSE(StringUtil::endWith("", "a"));
}

TEST(StringUtilText, SplitRestartsOneCharacterPastTheMatchStart) {
    EXPECT_EQ(splitOf("1 2 3 4 ", DELIMITER), (Pieces{"1", "2", "3", "4"}));
    EXPECT_EQ(splitOf("a  b", " "), (Pieces{"a", "", "b"}));
    EXPECT_EQ(splitOf(" a", " "), (Pieces{"", "a"}));
    EXPECT_EQ(splitOf("a--b--c", "--"), (Pieces{"a", "-b", "-c"}));
    EXPECT_EQ(splitOf("a---b", "--"), (Pieces{"a", "", "-b"}));
    EXPECT_EQ(splitOf("", " "), Pieces{});
    EXPECT_EQ(splitOf("ab", ""), Pieces{"ab"});
    std::vector<std::wstring> wide{L"stale"};
    StringUtil::wsplit(L"a--b  c", L"--", wide);
    EXPECT_EQ(wide, (std::vector<std::wstring>{L"a", L"-b  c"}));
    StringUtil::wsplit(L"a  b ", L" ", wide);
    EXPECT_EQ(wide, (std::vector<std::wstring>{L"a", L"", L"b"}));
}

TEST(StringUtilText, ReplaceResumesAfterTheReplacement) {
    std::string s = "aXa";
    EXPECT_EQ(StringUtil::ReplaceInPlace(s, "a", "aa"), "aaXaa");
    EXPECT_EQ(s, "aaXaa");
    EXPECT_EQ(StringUtil::ReplaceInPlace(s, "", "y"), "aaXaa");
    std::wstring w = L"x--y";
    EXPECT_EQ(StringUtil::ReplaceInPlace(w, L"-", L"+-"), L"x+-+-y");
    EXPECT_EQ(StringUtil::ReplaceInPlace(w, L"", L"z"), L"x+-+-y");
}

TEST(StringUtilNumbers, FormattingAndParsing) {
    const std::string big(3000, 'q');
    EXPECT_EQ(StringUtil::format("%s", big.c_str()), big.substr(0, 2047));
    EXPECT_EQ(StringUtil::to_string(-1234567L), "-1234567");
    EXPECT_EQ(StringUtil::to_string(1234567.0), "1.23457e+06");
    EXPECT_EQ(StringUtil::to_string(L'A'), "65");  // the code, not the character
    EXPECT_EQ(StringUtil::to_wstring(-3), L"-3");
    EXPECT_EQ(StringUtil::to_wstring(0.1), L"0.1");
    EXPECT_EQ(StringUtil::hexStrToi(L" 0x1A"), 26);
    EXPECT_EQ(StringUtil::hexStrToi(L"ffffffff"), -1);
    for (const wchar_t* yes : {L"-12.5", L"", L"+", L".", L"1.2.3"}) EXPECT_TRUE(StringUtil::IsNum(yes));
    for (const wchar_t* no : {L"1-2", L"1e5", L" 1", L"+-1"}) EXPECT_FALSE(StringUtil::IsNum(no));
}

// Restores the LC_CTYPE locale the conversions change.
class StringUtilWide : public ::testing::Test {
protected:
    void SetUp() override { saved_ = std::setlocale(LC_CTYPE, nullptr); }
    void TearDown() override { std::setlocale(LC_CTYPE, saved_.c_str()); }
    std::string saved_;
};

TEST_F(StringUtilWide, AsciiRoundTripsInAnyLocale) {
    EXPECT_EQ(StringUtil::to_string(std::wstring()), "");
    EXPECT_EQ(StringUtil::to_string(L"PNT0=1 2"), "PNT0=1 2");
    EXPECT_EQ(StringUtil::to_wstring("Cal33"), L"Cal33");
}

TEST_F(StringUtilWide, UnconvertibleTextGivesEmpty) {
    if (std::setlocale(LC_CTYPE, "chs.UTF-8") != nullptr) GTEST_SKIP() << "chs.UTF-8 exists here";
    std::setlocale(LC_CTYPE, "C");
    EXPECT_EQ(StringUtil::to_string(L"a\u00e9"), "");
    EXPECT_EQ(StringUtil::to_wstring("a\xc3\xa9"), L"");
    if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) GTEST_SKIP() << "no C.UTF-8 locale";
    // The current locale stays in force when chs.UTF-8 is missing.
    EXPECT_EQ(StringUtil::to_string(L"a\u00e9"), "a\xc3\xa9");
    EXPECT_EQ(StringUtil::to_wstring("a\xc3\xa9"), L"a\u00e9");
    EXPECT_EQ(StringUtil::to_wstring("a\xff"), L"");
}

}  // namespace
