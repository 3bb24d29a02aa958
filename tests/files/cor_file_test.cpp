// The correction table: what the case file cannot say (exceptions) and the
// large grids.  The worked loads are in tests/data/cor_file.cases.
#include <fstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "file_bytes.h"
#include "vrncal/bcd_file.h"

namespace {

// Grid section "[Cal<n>]" with the first `count` points of an n x n grid:
// point i is (c - h, h - r, c - h + 0.125, 2 (h - r)) for row r, column c,
// h = (n - 1) / 2.
std::string gridSection(int n, int count) {
    std::string text = "[Cal" + std::to_string(n) + "]\n";
    const int h = (n - 1) / 2;
    for (int i = 0; i < count; ++i) {
        const int x = i % n - h;
        const int y = h - i / n;
        text += "PNT" + std::to_string(i) + "=" + std::to_string(x) + " " + std::to_string(y) +
                " " + std::to_string(x) + ".125 " + std::to_string(2 * y) + "\n";
    }
    return text;
}

// A valid nine-point section.
const char* const kNine =
    "[Cal3]\nPNT0=-1 1 -1 1\nPNT1=0 1 0 1\nPNT2=1 1 1 1\nPNT3=-1 0 -1 0\nPNT4=0 0 0 0\n"
    "PNT5=1 0 1 0\nPNT6=-1 -1 -1 -1\nPNT7=0 -1 0 -1\nPNT8=1 -1 1 -1\n";

class CorFileTest : public vrncal_test::TempDirTest {
protected:
    void SetUp() override {
        TempDirTest::SetUp();
        // Sentinels: values a load must leave alone unless the file sets them.
        par_.Resolution = 1;
        par_.CalCoefs.k[4] = 9.0;
        par_.Stacks.push_back(tagStack{2, 1, {}});
    }

    int load(const std::string& text) {
        const std::string path = dir_ + "/t.cor";
        std::ofstream(path, std::ios::binary) << text;
        return CBcdFile::LoadCorFile(path.c_str(), par_);
    }

    tagLenPar par_;
};

TEST_F(CorFileTest, NullPathRaisesBeforeReading) {
    try {
        CBcdFile::LoadCorFile(nullptr, par_);
        ADD_FAILURE() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "basic_string::_M_construct null not valid");
    }
    EXPECT_EQ(par_.Resolution, 1);
}

TEST_F(CorFileTest, ConversionErrorsEscapeWithTheRecordPartlyWritten) {
    auto what = [&](const std::string& text) -> std::string {
        try {
            load(text);
        } catch (const std::invalid_argument& e) {
            return e.what();
        }
        return "none";
    };
    EXPECT_EQ(what("[CalCoefs]\nValSize=200\nResolution=abc\n"), "stoi");
    EXPECT_EQ(par_.ValSize, 200.0);
    EXPECT_EQ(par_.Resolution, 1);

    EXPECT_EQ(what(std::string(kNine) + "k3=abc\n"), "stof");
    EXPECT_EQ(par_.CalCoefs.k[2], 1.0);
    EXPECT_EQ(par_.CalCoefs.k[4], 9.0);

    EXPECT_THROW(load("[CalCoefs]\norder=1e39\n"), std::out_of_range);
}

TEST_F(CorFileTest, CompleteGridsAppendInLevelOrder) {
    const std::string text = "[CalCoefs]\norder=17.9\n" + std::string(kNine) + gridSection(33, 33 * 33) +
                             gridSection(5, 25) + gridSection(17, 17 * 17) + gridSection(9, 81) +
                             gridSection(65, 1);
    ASSERT_EQ(load(text), 1);
    ASSERT_EQ(par_.Stacks.size(), 5u);  // after the one already there
    const int sizes[] = {5, 9, 17, 33};
    const int inOrder[] = {1, 1, 1, 0};
    for (int g = 0; g < 4; ++g) {
        const tagStack& st = par_.Stacks[g + 1];
        EXPECT_EQ(st.Size, sizes[g]);
        EXPECT_EQ(st.InOrder, inOrder[g]);
        EXPECT_EQ(st.Points.size(), static_cast<size_t>(sizes[g] * sizes[g]));
    }
    const tagCalData& last = par_.Stacks[4].Points[33 * 33 - 1];
    EXPECT_EQ(last.X, 16.0f);
    EXPECT_EQ(last.Y, -16.0f);
    EXPECT_EQ(last.RealX, 16.125f);
    EXPECT_EQ(last.RealY, -32.0f);

    // A second load appends again.
    ASSERT_EQ(load(text), 1);
    EXPECT_EQ(par_.Stacks.size(), 9u);
}

TEST_F(CorFileTest, IncompleteGridIsDroppedAndLaterGridsStillRead) {
    par_.Stacks.clear();
    ASSERT_EQ(load(std::string(kNine) + gridSection(9, 80) + gridSection(25, 625) +
                   gridSection(17, 289)),
              1);
    ASSERT_EQ(par_.Stacks.size(), 2u);
    EXPECT_EQ(par_.Stacks[0].Size, 17);
    EXPECT_EQ(par_.Stacks[1].Size, 25);
    EXPECT_EQ(par_.Stacks[0].InOrder + par_.Stacks[1].InOrder, 0);  // order defaults to 3
    EXPECT_EQ(par_.Stacks[1].Points[0].X, -12.0f);

    // An order beyond the int range counts as INT_MIN: nothing is in order.
    par_.Stacks.clear();
    ASSERT_EQ(load("[CalCoefs]\norder=1e10\n" + std::string(kNine) + gridSection(5, 25)), 1);
    ASSERT_EQ(par_.Stacks.size(), 1u);
    EXPECT_EQ(par_.Stacks[0].InOrder, 0);
}

}  // namespace
