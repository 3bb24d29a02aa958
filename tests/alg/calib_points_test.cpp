// Calibration points: reading and replacing grids, the nine points, and the
// breakpoints of the gain tables with their gain update rule.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "float_bits.h"
#include "vrncal/calib_alg.h"

namespace {

tagCalData pointNo(int i) {
    return tagCalData{float(i), float(-i), float(i) + 0.25f, float(-i) - 0.25f};
}

tagStack stackOf(int size, int first) {
    tagStack s;
    s.Size = size;
    for (int i = 0; i < size * size; ++i) s.Points.push_back(pointNo(first + i));
    return s;
}

class CalibPoints : public ::testing::Test {
protected:
    void SetUp() override {
        for (int i = 0; i < 9; ++i) rec.CalCoefs.Cal3Pnts[i] = pointNo(100 + i);
        rec.Stacks.push_back(stackOf(5, 0));
        rec.Stacks.push_back(stackOf(9, 1000));
    }
    tagLenPar rec;
};

TEST(CalIndex, MapsGridSizesToFileLevels) {
    const int sizes[] = {5, 9, 17, 33, 65, 25, 3, 0, -5, 129};
    const int levels[] = {1, 2, 3, 4, 5, 6, 0, 0, 0, 0};
    for (int i = 0; i < 10; ++i) EXPECT_EQ(CCalibAlg::GetCalIndex(sizes[i]), levels[i]) << sizes[i];
}

TEST_F(CalibPoints, NegativeIndexReadsTheNinePoints) {
    tagCalData out[9];
    int size = 3;
    EXPECT_EQ(CCalibAlg::getCalibPnts(rec, -1, size, out), 1);
    EXPECT_EQ(size, 3);
    EXPECT_EQ(out[0].X, 100.0f);
    EXPECT_EQ(out[8].RealY, -108.25f);
}

TEST_F(CalibPoints, CopyCountFollowsTheCallerNotTheStack) {
    std::vector<tagCalData> out(81, tagCalData{-7, -7, -7, -7});
    int size = 0;  // size 0 copies nothing but still reports the stack's size
    EXPECT_EQ(CCalibAlg::getCalibPnts(rec, 1, size, out.data()), 1);
    EXPECT_EQ(size, 9);
    EXPECT_EQ(out[0].X, -7.0f);

    size = 2;  // 2 x 2 records from the front of a 9 x 9 stack
    EXPECT_EQ(CCalibAlg::getCalibPnts(rec, 1, size, out.data()), 1);
    EXPECT_EQ(size, 9);
    EXPECT_EQ(out[3].X, 1003.0f);
    EXPECT_EQ(out[4].X, -7.0f);

    size = 5;
    EXPECT_EQ(CCalibAlg::getCalibPnts(rec, 0, size, out.data()), 1);
    EXPECT_EQ(out[24].RealX, 24.25f);
}

TEST_F(CalibPoints, CopyIsCappedByTheDataThatExists) {
    std::vector<tagCalData> out(400, tagCalData{-7, -7, -7, -7});
    int size = 20;  // more than the 5 x 5 stack holds
    EXPECT_EQ(CCalibAlg::getCalibPnts(rec, 0, size, out.data()), 1);
    EXPECT_EQ(out[24].X, 24.0f);
    EXPECT_EQ(out[25].X, -7.0f);
    out.assign(400, tagCalData{-7, -7, -7, -7});
    size = 6;  // more than the nine points
    EXPECT_EQ(CCalibAlg::getCalibPnts(rec, -1, size, out.data()), 1);
    EXPECT_EQ(out[8].X, 108.0f);
    EXPECT_EQ(out[9].X, -7.0f);
}

TEST_F(CalibPoints, IndexPastTheEndReadsNothing) {
    tagCalData out[1] = {{-7, -7, -7, -7}};
    int size = 1;
    EXPECT_EQ(CCalibAlg::getCalibPnts(rec, 2, size, out), 0);
    EXPECT_EQ(size, 1);
    EXPECT_EQ(out[0].X, -7.0f);
}

TEST_F(CalibPoints, SettingTheNinePoints) {
    tagCalData in[9];
    for (int i = 0; i < 9; ++i) in[i] = pointNo(200 + i);
    EXPECT_EQ(CCalibAlg::setCalibPnts(rec, -1, 3, in), 1);
    EXPECT_EQ(rec.CalCoefs.Cal3Pnts[4].X, 204.0f);
    EXPECT_EQ(rec.CalCoefs.LinX, 1.0);  // nothing past the nine points
    // A negative index with another size is refused.
    EXPECT_EQ(CCalibAlg::setCalibPnts(rec, -1, 2, in), 0);
    EXPECT_EQ(rec.CalCoefs.Cal3Pnts[0].X, 200.0f);
}

TEST_F(CalibPoints, SettingAStackNeedsItsSize) {
    std::vector<tagCalData> in(81);
    for (int i = 0; i < 81; ++i) in[i] = pointNo(5000 + i);
    EXPECT_EQ(CCalibAlg::setCalibPnts(rec, 0, 9, in.data()), 0);
    EXPECT_EQ(rec.Stacks[0].Points[0].X, 0.0f);
    EXPECT_EQ(CCalibAlg::setCalibPnts(rec, 0, 5, in.data()), 1);
    EXPECT_EQ(rec.Stacks[0].Points[0].X, 5000.0f);
    EXPECT_EQ(rec.Stacks[0].Points[24].X, 5024.0f);
    EXPECT_EQ(rec.Stacks[1].Points[0].X, 1000.0f);
}

TEST_F(CalibPoints, AnyIndexPastTheEndAppends) {
    std::vector<tagCalData> in(9);
    for (int i = 0; i < 9; ++i) in[i] = pointNo(7000 + i);
    EXPECT_EQ(CCalibAlg::setCalibPnts(rec, 7, 3, in.data()), 1);
    ASSERT_EQ(rec.Stacks.size(), 3u);  // index 7 still does not exist
    EXPECT_EQ(rec.Stacks[2].Size, 3);
    EXPECT_EQ(rec.Stacks[2].InOrder, 1);
    ASSERT_EQ(rec.Stacks[2].Points.size(), 9u);
    EXPECT_EQ(rec.Stacks[2].Points[8].X, 7008.0f);

    EXPECT_EQ(CCalibAlg::setCalibPnts(rec, 3, 0, nullptr), 1);  // an empty grid
    EXPECT_EQ(rec.Stacks.size(), 4u);
    EXPECT_TRUE(rec.Stacks[3].Points.empty());
    EXPECT_EQ(CCalibAlg::setCalibPnts(rec, 4, -3, in.data()), 0);  // no negative size
    EXPECT_EQ(rec.Stacks.size(), 4u);
}

// ---- equal points ---------------------------------------------------------

TEST(EqualPoints, ReadFromTheTablesOfTheMode) {
    tagLenPar rec;
    rec.LineCount = 150;  // more than the 100 stored rows
    for (int i = 0; i < 100; ++i) {
        rec.XT[i] = i + 0.1;
        rec.XA[i] = -i;
        rec.YT[i] = 2 * i;
        rec.BoxYT[i] = 3 * i;
        rec.BoxYA[i] = 4 * i;
    }
    std::vector<tagKelPointF> out(101, tagKelPointF{-7, -7});
    int count = 0;
    rec.CalMode = 1;
    EXPECT_EQ(CCalibAlg::getEqualPnts(rec, 0, count, out.data()), 1);
    EXPECT_EQ(count, 150);
    EXPECT_SAME_BITS(99.1f, out[99].x);  // narrowed to float
    EXPECT_EQ(out[99].y, -99.0f);
    EXPECT_EQ(out[100].x, -7.0f);
    EXPECT_EQ(CCalibAlg::getEqualPnts(rec, 5, count, out.data()), 1);  // any non-zero axis is y
    EXPECT_EQ(out[3].x, 6.0f);

    rec.CalMode = 0;
    rec.BoxLineCount = 4;
    EXPECT_EQ(CCalibAlg::getEqualPnts(rec, 1, count, out.data()), 1);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(out[3].x, 9.0f);
    EXPECT_EQ(out[3].y, 12.0f);
    EXPECT_EQ(out[4].x, 8.0f);  // left from the read before

    rec.BoxLineCount = 0;
    out[0] = tagKelPointF{-7, -7};
    EXPECT_EQ(CCalibAlg::getEqualPnts(rec, 1, count, out.data()), 1);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(out[0].x, -7.0f);
}

class EqualPointGains : public ::testing::Test {
protected:
    void SetUp() override {
        rec.CalMode = 1;
        for (int i = 0; i < 3; ++i) {
            rec.XT[i] = rec.YT[i] = rec.BoxXT[i] = rec.BoxYT[i] = i;
            rec.XA[i] = rec.YA[i] = rec.BoxXA[i] = rec.BoxYA[i] = 1.0;
            rec.XR[i] = rec.YR[i] = rec.BoxXR[i] = rec.BoxYR[i] = 0.8;
        }
    }
    tagLenPar rec;
    // Row 0 keeps breakpoint 0 (gain reset), row 1 keeps breakpoint 1 and
    // moves its value to 2, row 2 moves its breakpoint.
    tagKelPointF edit[3] = {{0.0f, 5.0f}, {1.0f, 2.0f}, {2.5f, 3.0f}};
};

TEST_F(EqualPointGains, GridYTableScalesTheGainOfAKeptBreakpoint) {
    EXPECT_EQ(CCalibAlg::setEqualPnts(rec, 1, 3, edit), 1);
    EXPECT_EQ(rec.YT[1], 1.0);
    EXPECT_EQ(rec.YA[1], 2.0);
    EXPECT_EQ(rec.YR[0], 1.0);  // breakpoint within 0.001 of zero
    EXPECT_EQ(rec.YR[1], 0.4);  // 0.8 x (1 / 2)
    EXPECT_EQ(rec.YR[2], 0.8);  // breakpoint moved: gain kept
    EXPECT_EQ(rec.YT[2], 2.5);
}

TEST_F(EqualPointGains, QuotientIsTakenInFloat) {
    edit[1] = tagKelPointF{1.0f, 3.0f};
    CCalibAlg::setEqualPnts(rec, 1, 3, edit);
    EXPECT_EQ(rec.YR[1], 0.8 * static_cast<double>(1.0f / 3.0f));
    EXPECT_NE(rec.YR[1], 0.8 * (1.0 / 3.0));
}

TEST_F(EqualPointGains, OtherTablesKeepTheirGains) {
    EXPECT_EQ(CCalibAlg::setEqualPnts(rec, 0, 3, edit), 1);
    EXPECT_EQ(rec.XA[1], 2.0);
    EXPECT_EQ(rec.XR[0], 0.8);
    EXPECT_EQ(rec.XR[1], 0.8);
    rec.CalMode = 0;
    for (int axis : {0, 1}) CCalibAlg::setEqualPnts(rec, axis, 3, edit);
    EXPECT_EQ(rec.BoxXA[1], 2.0);
    EXPECT_EQ(rec.BoxYT[2], 2.5);
    EXPECT_EQ(rec.BoxXR[1], 0.8);
    EXPECT_EQ(rec.BoxYR[1], 0.8);
    EXPECT_EQ(rec.YR[1], 0.8);  // grid tables untouched in box mode
}

TEST_F(EqualPointGains, ZeroOrNaNGainStartsAtOne) {
    rec.XR[0] = 0.0;
    rec.XR[1] = std::numeric_limits<double>::quiet_NaN();
    rec.BoxYR[2] = 0.0;
    CCalibAlg::setEqualPnts(rec, 0, 3, edit);
    EXPECT_EQ(rec.XR[0], 1.0);
    EXPECT_EQ(rec.XR[1], 1.0);
    rec.CalMode = 0;
    CCalibAlg::setEqualPnts(rec, 1, 3, edit);
    EXPECT_EQ(rec.BoxYR[2], 1.0);
    EXPECT_EQ(rec.BoxYR[1], 0.8);
}

TEST_F(EqualPointGains, ZeroCompanionValueLeavesTheGain) {
    edit[1] = tagKelPointF{1.0f, 0.0f};
    CCalibAlg::setEqualPnts(rec, 1, 3, edit);
    EXPECT_EQ(rec.YR[1], 0.8);
    EXPECT_EQ(rec.YA[1], 0.0);
}

TEST_F(EqualPointGains, CountLimits) {
    EXPECT_EQ(CCalibAlg::setEqualPnts(rec, 1, 0, edit), 1);
    EXPECT_EQ(rec.YA[1], 1.0);
    std::vector<tagKelPointF> many(150, tagKelPointF{0.5f, 0.5f});
    EXPECT_EQ(CCalibAlg::setEqualPnts(rec, 1, 150, many.data()), 1);
    EXPECT_EQ(rec.YT[99], 0.5);
    rec.CalMode = 0;  // box tables stop at their 100 rows too
    EXPECT_EQ(CCalibAlg::setEqualPnts(rec, 0, 150, many.data()), 1);
    EXPECT_EQ(rec.BoxXT[99], 0.5);
    EXPECT_EQ(rec.BoxYT[0], 0.0);
}

}  // namespace
