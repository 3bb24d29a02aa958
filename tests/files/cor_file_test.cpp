#include <filesystem>
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

// A valid nine-point section; PNT0 and PNT8 carry the conversions under test.
const char* const kNine =
    "[Cal3]\n"
    "PNT0=1.00000005960464478 -2.54 3 x\n"
    "PNT1=0 1 0 1\nPNT2=1 1 1 1\nPNT3=-1 0 -1 0\nPNT4=0 0 0 0\n"
    "PNT5=1 0 1 0\nPNT6=-1 -1 -1 -1\nPNT7=0 -1 0 -1\n"
    "PNT8=1 -1 1.5 -0.5 \n";

class CorFileTest : public vrncal_test::TempDirTest {
protected:
    void SetUp() override {
        TempDirTest::SetUp();
        // Sentinels: values a load must leave alone unless the file sets them.
        par_.ValSize = 1.0;
        par_.Resolution = 1;
        par_.LEN_XYFLIP = par_.LEN_XINVERT = par_.LEN_YINVERT = 1;
        par_.XYFlip = par_.XInvert = par_.YInvert = 1;
        par_.CalCoefs.Cal3Pnts[4].RealY = 9.0f;
        par_.CalCoefs.AxisXL = 9.0;
        tagCalCoefs& c = par_.CalCoefs;
        c.OX = c.OY = c.PLX = c.PLY = 9.0;
        for (double& v : c.s) v = 9.0;
        c.k[4] = 9.0;
        par_.LineCount = 9;
        par_.XT[0] = par_.XT[2] = 9.0;
        par_.Stacks.push_back(tagStack{2, 1, {}});
    }

    int load(const std::string& text) {
        const std::string path = dir_ + "/t.cor";
        std::ofstream(path, std::ios::binary) << text;
        return CBcdFile::LoadCorFile(path.c_str(), par_);
    }

    void expectHeaderDefaults() const {
        EXPECT_EQ(par_.ValSize, 100.0);
        EXPECT_EQ(par_.Resolution, 65535);
        EXPECT_EQ(par_.LEN_XYFLIP + par_.LEN_XINVERT + par_.LEN_YINVERT, 0);
        EXPECT_EQ(par_.XYFlip + par_.XInvert + par_.YInvert, 0);
    }

    tagLenPar par_;
};

TEST(CorFileCalOrder, MapsLevelsToPointsPerSide) {
    const int expected[] = {3, 5, 9, 17, 33, 65, 25, 3};
    for (int level = 0; level <= 7; ++level) EXPECT_EQ(CBcdFile::GetCalOrder(level), expected[level]);
    EXPECT_EQ(CBcdFile::GetCalOrder(-1), 3);
}

TEST_F(CorFileTest, EmptyOrMissingFileFailsAfterResettingTheHeaderKeys) {
    EXPECT_EQ(load(""), 0);
    expectHeaderDefaults();
    EXPECT_EQ(par_.CalCoefs.AxisXL, 9.0);
    EXPECT_EQ(par_.Stacks.size(), 1u);

    par_.Resolution = 1;
    EXPECT_EQ(CBcdFile::LoadCorFile((dir_ + "/missing.cor").c_str(), par_), 0);
    expectHeaderDefaults();
}

TEST_F(CorFileTest, NullPathRaisesBeforeReading) {
    try {
        CBcdFile::LoadCorFile(nullptr, par_);
        ADD_FAILURE() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "basic_string::_M_construct null not valid");
    }
    EXPECT_EQ(par_.Resolution, 1);
}

TEST_F(CorFileTest, NinePointsAloneTakeEveryDefault) {
    ASSERT_EQ(load(kNine), 1);
    expectHeaderDefaults();
    const tagCalCoefs& c = par_.CalCoefs;
    // strtod then float: the decimal just above a float midpoint lands on
    // the even neighbour, and a field that is no number reads 0.
    EXPECT_EQ(c.Cal3Pnts[0].X, 0x1p+0f);
    EXPECT_EQ(c.Cal3Pnts[0].Y, -0x1.451eb8p+1f);
    EXPECT_EQ(c.Cal3Pnts[0].RealX, 3.0f);
    EXPECT_EQ(c.Cal3Pnts[0].RealY, 0.0f);
    EXPECT_EQ(c.Cal3Pnts[8].RealX, 1.5f);
    EXPECT_EQ(c.Cal3Pnts[8].RealY, -0.5f);
    EXPECT_EQ(par_.grid, 0);
    for (double v : {c.AxisXL, c.AxisXR, c.AxisYT, c.AxisYB}) EXPECT_EQ(v, 50.0);
    for (double v : {c.TXL, c.TXR, c.TYT, c.TYB, c.SXL, c.SXR, c.SYT, c.SYB}) EXPECT_EQ(v, 1.0);
    for (double v : {c.OX, c.OY, c.PLX, c.PLY}) EXPECT_EQ(v, 0.0);
    EXPECT_EQ(c.Y2XAngle, 0x1.921fb6p+0);
    for (double v : c.k) EXPECT_EQ(v, 1.0);
    for (double v : c.s) EXPECT_EQ(v, 0.0);
    EXPECT_EQ(par_.LineCount, 0);
    EXPECT_EQ(par_.XT[0], 9.0);  // no line table read
    EXPECT_EQ(par_.Stacks.size(), 1u);
}

TEST_F(CorFileTest, CrlfTableReadsEveryKeyFromCal3) {
    std::string text =
        "[CalCoefs]\n"
        "ValSize=120.3\n"
        "Resolution=12.5\n"
        "LEN_XYFLIP=1\n"
        "LEN_YINVERT=-2\n"
        "AxisXL=7\n"  // not seen here: only [Cal3] is read after the header keys
        "k0=5\n" +
        std::string(kNine) +
        "grid=2\n"
        "AxisXR=60.5\n"
        "TYB=0.1\n"
        "SXL=2\n"
        "OY=-3.7\n"
        "PLY=0.1\n"
        "Y2XAngle=1.5\n"
        "k19=0.1\n"
        "s7=-3.7\n"
        "LineCount=2\n"
        "XT1=12.5\n";
    // CRLF everywhere; PNT8 loses its trailing space, which before a CR
    // would make a fifth field.
    text.replace(text.find("-0.5 \n"), 6, "-0.5\n");
    for (std::string::size_type p = 0; (p = text.find('\n', p)) != std::string::npos; p += 2)
        text.insert(p, "\r");
    ASSERT_EQ(load(text), 1);
    const tagCalCoefs& c = par_.CalCoefs;
    EXPECT_EQ(par_.ValSize, 0x1.e13334p+6);
    EXPECT_EQ(par_.Resolution, 12);
    // Each flag goes to both of its copies.
    EXPECT_EQ(par_.LEN_XYFLIP * 100 + par_.LEN_XINVERT * 10 + par_.LEN_YINVERT, 98);
    EXPECT_EQ(par_.XYFlip * 100 + par_.XInvert * 10 + par_.YInvert, 98);
    EXPECT_EQ(c.Cal3Pnts[8].RealY, -0.5f);  // strtod stops at the CR
    EXPECT_EQ(par_.grid, 2);
    EXPECT_EQ(c.AxisXL, 0x1.e13334p+5);  // float(0.5 * ValSize)
    EXPECT_EQ(c.AxisYB, 0x1.e13334p+5);
    EXPECT_EQ(c.AxisXR, 60.5);
    EXPECT_EQ(c.TYB, 0x1.99999ap-4);
    EXPECT_EQ(c.SXL, 2.0);
    EXPECT_EQ(c.OY, -0x1.d9999ap+1);
    EXPECT_EQ(c.PLY, 0x1.99999ap-4);
    EXPECT_EQ(c.Y2XAngle, 1.5);
    EXPECT_EQ(c.k[0], 1.0);
    EXPECT_EQ(c.k[19], 0x1.99999ap-4);
    EXPECT_EQ(c.s[7], -0x1.d9999ap+1);
    // Two rows spanning FieldSize 100.
    EXPECT_EQ(par_.LineCount, 2);
    EXPECT_EQ(par_.XT[0], -50.0);
    EXPECT_EQ(par_.YT[0], -50.0);
    EXPECT_EQ(par_.XT[1], 12.5);
    EXPECT_EQ(par_.YT[1], 50.0);
    EXPECT_EQ(par_.XA[1] + par_.YA[0], -200000.0);
    EXPECT_EQ(par_.XR[0] + par_.YR[1], 2.0);
    EXPECT_EQ(par_.XT[2], 9.0);
}

TEST_F(CorFileTest, LineTableStopsAtHundredRows) {
    ASSERT_EQ(load(std::string(kNine) + "LineCount=150\nXA99=5\n"), 1);
    EXPECT_EQ(par_.LineCount, 150);
    EXPECT_EQ(par_.XT[0], -50.0);
    EXPECT_EQ(par_.XT[1], -0x1.8aa18p+5);  // float(1 * 100 / 149 - 50)
    EXPECT_EQ(par_.YT[98], 0x1.f8b2bp+3);
    EXPECT_EQ(par_.XT[99], 0x1.071656p+4);
    EXPECT_EQ(par_.XA[99], 5.0);
    EXPECT_EQ(par_.YA[99], -100000.0);

    par_.XT[0] = 9.0;
    ASSERT_EQ(load(std::string(kNine) + "LineCount=1\n"), 1);
    EXPECT_EQ(par_.LineCount, 1);
    EXPECT_EQ(par_.XT[0], 9.0);
}

TEST_F(CorFileTest, MalformedNinePointGridFailsPartway) {
    const std::string head = "[Cal3]\nPNT0=0 0 0 0\nPNT1=0 0 0 0\nPNT2=0 0 0 0\nPNT3=5 6 7 8\n";
    const std::string tail = "PNT5=0 0 0 0\nPNT6=0 0 0 0\nPNT7=0 0 0 0\nPNT8=0 0 0 0\nAxisXL=1\n";
    for (const char* bad : {"PNT4=1 2 3\n", "PNT4=1  2 3 4\n", "PNT4=\n", "PNT4=1 2 3 4 \r\n",
                            "PNT4 1 2 3 4\n"}) {
        SCOPED_TRACE(bad);
        EXPECT_EQ(load(head + bad + tail), 0);
        EXPECT_EQ(par_.CalCoefs.Cal3Pnts[3].RealY, 8.0f);
        EXPECT_EQ(par_.CalCoefs.Cal3Pnts[4].RealY, 9.0f);
        EXPECT_EQ(par_.CalCoefs.AxisXL, 9.0);
    }
    // A fourth field that is no number still counts.
    EXPECT_EQ(load(head + "PNT4=1 2 3 x\n" + tail), 1);
    EXPECT_EQ(par_.CalCoefs.Cal3Pnts[4].RealX, 3.0f);
    EXPECT_EQ(par_.CalCoefs.Cal3Pnts[4].RealY, 0.0f);
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
