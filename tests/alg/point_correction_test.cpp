// Grid-mode point correction: worked cases from tests/data, the residual
// threshold, ShapePoint, the gain-table lookup and the edge-gain helper.
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "alg/correction_cases.h"
#include "float_bits.h"
#include "vrncal/calib_alg.h"

using vrncal_test::floatFrom;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(GridCorrectionCases, MatchWorkedBits) {
    const vrncal_test::CaseFile file = vrncal_test::readCaseFile(VRNCAL_TEST_DATA "/grid_correction.cases");
    for (const std::string& e : file.errors) ADD_FAILURE() << e;
    ASSERT_GE(file.cases.size(), 150u);
    for (const vrncal_test::CorrectionCase& c : file.cases) {
        SCOPED_TRACE(c.where);
        ASSERT_EQ(c.op, "grid");
        const tagLenPar& rec = file.records[c.record];
        tagKelPointF out{-1.0f, -1.0f};
        EXPECT_EQ(CCalibAlg::CalibPoint2_new(rec, c.in, out), 1);
        EXPECT_SAME_BITS(floatFrom(c.expectX), out.x);
        EXPECT_SAME_BITS(floatFrom(c.expectY), out.y);
        // CalibLSM is a plain forwarder.
        tagKelPointF viaLsm{-1.0f, -1.0f};
        EXPECT_EQ(CCalibAlg::CalibLSM(rec, c.in, viaLsm), 1);
        EXPECT_SAME_BITS(out.x, viaLsm.x);
        EXPECT_SAME_BITS(out.y, viaLsm.y);
    }
}

TEST(GridCorrection, OutputMayAliasInput) {
    tagLenPar rec;
    rec.CalCoefs.QuadX = 2.5e-5;
    rec.CalCoefs.PLX = 0.0031;
    tagKelPointF p{12.5f, -7.25f};
    tagKelPointF separate;
    CCalibAlg::CalibPoint2_new(rec, p, separate);
    CCalibAlg::CalibLSM(rec, p, p);
    EXPECT_SAME_BITS(separate.x, p.x);
    EXPECT_SAME_BITS(separate.y, p.y);
}

// ---- ShapePoint -------------------------------------------------------------

tagLenPar shapeRecord() {
    tagLenPar rec;
    tagCalCoefs& c = rec.CalCoefs;
    c.PLX = 0.0031;
    c.TXL = 0.012;
    c.TXR = 0.009;
    c.TYT = 0.011;
    c.TYB = 0.0135;
    c.AxisXL = 50.3;
    c.AxisXR = 49.1;
    c.AxisYT = 50.7;
    c.AxisYB = 48.9;
    c.ScaleX = 1.0123;
    c.ScaleY = 0.9871;
    return rec;
}

TEST(ShapePoint, EachQuadrantUsesItsOwnKeystoneTerms) {
    const tagLenPar rec = shapeRecord();
    struct Case {
        tagKelPointF in;
        float x, y;
    };
    const Case cases[] = {
        {{-17.25f, 23.5f}, -0x1.1a25d2p+4f, 0x1.748b66p+4f},   // TXL, TYT
        {{21.75f, 13.125f}, 0x1.5ec684p+4f, 0x1.9ca118p+3f},  // TXR, TYT
        {{-9.5f, -31.0f}, -0x1.2e5f9p+3f, -0x1.e8549ep+4f},   // TXL, TYB
        {{33.0f, -3.75f}, 0x1.0b866cp+5f, -0x1.de2048p+1f},    // TXR, TYB
    };
    for (const Case& c : cases) {
        tagKelPointF out;
        EXPECT_EQ(CCalibAlg::ShapePoint(rec, c.in, out), 1);
        EXPECT_SAME_BITS(c.x, out.x) << c.in.x << ", " << c.in.y;
        EXPECT_SAME_BITS(c.y, out.y) << c.in.x << ", " << c.in.y;
        tagKelPointF inPlace = c.in;  // in and out may be the same object
        CCalibAlg::ShapePoint(rec, inPlace, inPlace);
        EXPECT_SAME_BITS(c.x, inPlace.x);
        EXPECT_SAME_BITS(c.y, inPlace.y);
    }
}

TEST(ShapePoint, ZeroAfterShearLeavesBothAxesUnkeystoned) {
    tagLenPar rec = shapeRecord();
    rec.CalCoefs.PLX = 0.5;
    rec.CalCoefs.ScaleX = 1.0;
    rec.CalCoefs.ScaleY = 1.0;
    tagKelPointF out;
    CCalibAlg::ShapePoint(rec, tagKelPointF{5.0f, 10.0f}, out);  // x1 = 5 - 0.5 * 10 = 0
    EXPECT_SAME_BITS(0.0f, out.x);
    EXPECT_SAME_BITS(10.0f, out.y);
}

TEST(ShapePoint, ZeroAxisGivesNonFiniteCoordinate) {
    tagLenPar rec = shapeRecord();
    rec.CalCoefs.AxisXR = 0.0;
    rec.CalCoefs.AxisYT = 0.0;
    tagKelPointF out;
    CCalibAlg::ShapePoint(rec, tagKelPointF{3.0f, 4.0f}, out);
    EXPECT_TRUE(std::isinf(out.x));
    EXPECT_TRUE(std::isinf(out.y));
    rec.CalCoefs.TXR = 0.0;  // 0 / 0
    CCalibAlg::ShapePoint(rec, tagKelPointF{3.0f, 4.0f}, out);
    EXPECT_TRUE(std::isnan(out.x));
}

// ---- GetScaleValue ------------------------------------------------------------

const double kPos[5] = {-40.0, -20.0, 0.0, 20.0, 40.0};
const double kAux[5] = {9.0, 9.0, 9.0, 9.0, 9.0};
const double kGain[5] = {1.011, 1.0043, 0.998, 0.9967, 0.9921};

TEST(GetScaleValue, CountOutsideOneTo99DisablesTheTable) {
    double pos[100];
    double gain[100];
    for (int i = 0; i < 100; ++i) {
        pos[i] = i - 50.0;
        gain[i] = 2.0;
    }
    EXPECT_EQ(CCalibAlg::GetScaleValue(0, 3.5, pos, nullptr, gain), 1.0);
    EXPECT_EQ(CCalibAlg::GetScaleValue(-1, 3.5, pos, nullptr, gain), 1.0);
    EXPECT_EQ(CCalibAlg::GetScaleValue(99, 3.5, pos, nullptr, gain), 2.0);
    EXPECT_EQ(CCalibAlg::GetScaleValue(100, 3.5, pos, nullptr, gain), 1.0);
}

TEST(GetScaleValue, NearZeroAndNaNGiveOne) {
    EXPECT_EQ(CCalibAlg::GetScaleValue(5, 0.0, kPos, kAux, kGain), 1.0);  // gain[2] is not 1
    EXPECT_EQ(CCalibAlg::GetScaleValue(5, 9.99e-7, kPos, kAux, kGain), 1.0);
    EXPECT_EQ(CCalibAlg::GetScaleValue(5, -9.99e-7, kPos, kAux, kGain), 1.0);
    EXPECT_EQ(CCalibAlg::GetScaleValue(5, kNaN, kPos, kAux, kGain), 1.0);
    EXPECT_NE(CCalibAlg::GetScaleValue(5, 1e-6, kPos, kAux, kGain), 1.0);
}

TEST(GetScaleValue, ClampsBeyondTheEndBreakpoints) {
    EXPECT_EQ(CCalibAlg::GetScaleValue(5, -40.0, kPos, kAux, kGain), 1.011);
    EXPECT_EQ(CCalibAlg::GetScaleValue(5, -1e9, kPos, kAux, kGain), 1.011);
    EXPECT_EQ(CCalibAlg::GetScaleValue(5, 40.0, kPos, kAux, kGain), 0.9921);
    EXPECT_EQ(CCalibAlg::GetScaleValue(5, 1e300, kPos, kAux, kGain), 0.9921);
}

TEST(GetScaleValue, InterpolatesInTheIntervalThatStartsAtV) {
    // An interior breakpoint belongs to the interval it starts.
    EXPECT_EQ(CCalibAlg::GetScaleValue(5, -20.0, kPos, kAux, kGain), 1.0043);
    EXPECT_EQ(CCalibAlg::GetScaleValue(5, 20.0, kPos, kAux, kGain), 0.9967);
    // gain[i] + (v - pos[i]) * (gain[i+1] - gain[i]) / (pos[i+1] - pos[i])
    EXPECT_SAME_BITS(0x1.01a8826aa8eb4p+0, CCalibAlg::GetScaleValue(5, -26.5, kPos, kAux, kGain));
    EXPECT_SAME_BITS(0x1.febd273d5bab2p-1, CCalibAlg::GetScaleValue(5, 7.125, kPos, kAux, kGain));
}

TEST(GetScaleValue, NoMatchingIntervalGivesOne) {
    // Between the end breakpoints some interval always matches unless a
    // breakpoint is NaN.
    const double pos[3] = {-10.0, kNaN, 10.0};
    const double gain[3] = {2.0, 3.0, 4.0};
    EXPECT_EQ(CCalibAlg::GetScaleValue(3, 5.0, pos, nullptr, gain), 1.0);
    EXPECT_EQ(CCalibAlg::GetScaleValue(3, -5.0, pos, nullptr, gain), 1.0);
}

TEST(GetScaleValue, SingleRowAndNaNBreakpoint) {
    const double pos[1] = {5.0};
    const double gain[1] = {3.0};
    EXPECT_EQ(CCalibAlg::GetScaleValue(1, 4.0, pos, nullptr, gain), 3.0);
    EXPECT_EQ(CCalibAlg::GetScaleValue(1, 6.0, pos, nullptr, gain), 3.0);
    const double nanPos[1] = {kNaN};
    EXPECT_EQ(CCalibAlg::GetScaleValue(1, 6.0, nanPos, nullptr, gain), 1.0);
}

// ---- getPointScale -----------------------------------------------------------

TEST(GetPointScale, UnitBandAroundTheAxesIsExactlyOne) {
    tagLenPar rec;
    rec.CalCoefs.SXL = 1.3;
    rec.CalCoefs.SXR = 1.25;
    rec.CalCoefs.SYT = 0.8;
    rec.CalCoefs.SYB = 1.5;
    const tagKelPointF band = CCalibAlg::getPointScale(rec, tagKelPointF{1.0f, -1.0f});
    EXPECT_SAME_BITS(1.0f, band.x);
    EXPECT_SAME_BITS(1.0f, band.y);
    const tagKelPointF edge = CCalibAlg::getPointScale(rec, tagKelPointF{80.0f, 0.0f});
    EXPECT_SAME_BITS(1.25f, edge.x);
    EXPECT_SAME_BITS(1.0f, edge.y);
    // (S - 1) * |p| / ValSize + 1, stored
    const tagKelPointF s = CCalibAlg::getPointScale(rec, tagKelPointF{-13.75f, 1.0000001f});
    EXPECT_SAME_BITS(0x1.0d3334p+0f, s.x);
    EXPECT_SAME_BITS(0x1.feb852p-1f, s.y);
    const tagKelPointF b = CCalibAlg::getPointScale(rec, tagKelPointF{-1.0000001f, -30.0f});
    EXPECT_SAME_BITS(0x1.00f5c2p+0f, b.x);
    EXPECT_SAME_BITS(0x1.3p+0f, b.y);
}

}  // namespace
