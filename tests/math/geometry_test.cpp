// Plane geometry: rounding, orientation, segments, rotation, angles, slopes
// and the line intersection the grid lookup relies on.
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "float_bits.h"
#include "vrncal/calib_alg.h"
#include "vrncal/geometry.h"

namespace {

const double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kHalfPi = 1.5707963267948966;

TEST(KelRound, HalfAwayFromZeroWithSignedZero) {
    EXPECT_SAME_BITS(3.0, kel_round(2.5));
    EXPECT_SAME_BITS(-3.0, kel_round(-2.5));
    EXPECT_SAME_BITS(2.0, kel_round(2.4999999));
    EXPECT_SAME_BITS(-0.0, kel_round(0.0));  // ceil(-0.5) keeps the sign
    EXPECT_SAME_BITS(-0.0, kel_round(-0.0));
    EXPECT_SAME_BITS(-0.0, kel_round(-0.3));
    EXPECT_SAME_BITS(1.0, kel_round(0.49999999999999994));  // 0.5 + x rounds up first
    // Above 2^52 the sum x + 0.5 rounds to even before the floor.
    EXPECT_SAME_BITS(4503599627370498.0, kel_round(4503599627370497.0));
    EXPECT_SAME_BITS(kInf, kel_round(kInf));
    EXPECT_TRUE(std::isnan(kel_round(kNaN)));
}

TEST(Multiply, CrossProductInFloat) {
    const tagKelPointF a{0.1f, 0.2f}, b{0.3f, 0.7f}, c{0.05f, -0.01f};
    EXPECT_SAME_BITS(-0x1.16872cp-6, Multiply(a, b, c));  // in double: -0x1.16872e5a1caccp-6
    EXPECT_GT(Multiply({1, 0}, {0, 1}, {0, 0}), 0.0);  // counter-clockwise
    EXPECT_LT(Multiply({0, 1}, {1, 0}, {0, 0}), 0.0);
}

TEST(IsOnline, AbsoluteToleranceAndSegmentBox) {
    const LineSegment diag{{0.0f, 0.0f}, {1.0f, 1.0f}};
    EXPECT_TRUE(IsOnline({0.50000025f, 0.49999975f}, diag));   // cross product -4.8e-7
    EXPECT_FALSE(IsOnline({0.5000006f, 0.4999994f}, diag));    // cross product -1.2e-6
    EXPECT_TRUE(IsOnline({1.0f, 1.0f}, diag));                 // an end point
    EXPECT_FALSE(IsOnline({1.5f, 1.5f}, diag));                // collinear, beyond the end
    // The tolerance is not scaled: next to a short segment a point a tenth of
    // its length away still counts as on it.
    const LineSegment tiny{{0.0f, 0.0f}, {1e-3f, 1e-3f}};
    EXPECT_TRUE(IsOnline({6e-4f, 4e-4f}, tiny));
    EXPECT_FALSE(IsOnline({std::numeric_limits<float>::quiet_NaN(), 0.5f}, diag));
}

TEST(Intersect, TouchingAndParallelSegments) {
    EXPECT_TRUE(Intersect({{0, 0}, {2, 2}}, {{0, 2}, {2, 0}}));    // crossing
    EXPECT_TRUE(Intersect({{0, 0}, {1, 1}}, {{1, 1}, {3, 0}}));    // shared end point only
    EXPECT_TRUE(Intersect({{0, 0}, {2, 0}}, {{1, 0}, {3, 0}}));    // collinear overlap
    EXPECT_TRUE(Intersect({{0, 0}, {2, 0}}, {{1, 0}, {1, 5}}));    // T junction
    EXPECT_FALSE(Intersect({{0, 0}, {4, 4}}, {{1, 0}, {5, 4}}));   // parallel, boxes overlap
    EXPECT_FALSE(Intersect({{0, 0}, {1, 1}}, {{2, 2}, {3, 3}}));   // collinear, apart
    EXPECT_FALSE(Intersect({{0, 0}, {2, 2}}, {{3, 0}, {2, 1.5f}})); // boxes overlap, no touch
}

TEST(RotatePoint, RotatesMeasuredPositionOnly) {
    tagCalData p{7.0f, 8.0f, 12.3f, -4.56f};
    const tagCalData centre{0.0f, 0.0f, 1.5f, 2.25f};
    const tagCalData r = RotatePoint(p, centre, 0.3);
    EXPECT_SAME_BITS(0x1.ba9066p+3f, p.RealX);
    EXPECT_SAME_BITS(-0x1.1070eep+0f, p.RealY);
    EXPECT_SAME_BITS(7.0f, p.X);
    EXPECT_SAME_BITS(8.0f, p.Y);
    EXPECT_SAME_BITS(p.RealX, r.RealX);
    EXPECT_SAME_BITS(p.RealY, r.RealY);
    // The new y uses the x offset from before the update.
    tagCalData q{0.0f, 0.0f, 2.0f, 0.0f};
    RotatePoint(q, tagCalData{}, kHalfPi);
    EXPECT_SAME_BITS(0x1.1a6264p-53f, q.RealX);  // 2 cos(pi/2), stored
    EXPECT_SAME_BITS(2.0f, q.RealY);
}

TEST(GetAngle, LawOfCosines) {
    EXPECT_SAME_BITS(0x1.ccf0c917cc16ep-1, getAngle({3.1f, 0.7f}, {-1.3f, 2.9f}, {0.4f, -5.2f}));
    EXPECT_SAME_BITS(kHalfPi, getAngle({1, 0}, {0, 0}, {0, 1}));
    EXPECT_TRUE(std::isnan(getAngle({0, 0}, {0, 0}, {0, 1})));  // zero-length side
}

TEST(SlopeAndDip, FloatSlopeDegreesFromAtan) {
    EXPECT_SAME_BITS(-0x1.aaaaacp-1, getSlop({0.1f, 0.2f}, {0.7f, -0.3f}));
    EXPECT_SAME_BITS(-0x1.3e71cff6164dbp+5, getDip({0.1f, 0.2f}, {0.7f, -0.3f}));
    EXPECT_EQ(getDip({0, 0}, {1, 1}), 45.0);
    EXPECT_EQ(getDip({0, 0}, {0, 1}), 90.0);  // atan(+inf)
    EXPECT_EQ(getSlop({0, 0}, {0, -1}), -kInf);
    EXPECT_TRUE(std::isnan(getSlop({1, 1}, {1, 1})));
}

TEST(Finiteness, InfinitiesCountAsNaN) {
    EXPECT_TRUE(IsFiniteNumber(1.7976931348623157e308));
    EXPECT_TRUE(IsFiniteNumber(-1.7976931348623157e308));
    EXPECT_TRUE(IsFiniteNumber(4.9e-324));
    EXPECT_FALSE(IsFiniteNumber(kInf));
    EXPECT_FALSE(IsFiniteNumber(-kInf));
    EXPECT_FALSE(IsFiniteNumber(kNaN));
    EXPECT_FALSE(hasNaN({}));
    EXPECT_FALSE(hasNaN({0.0, -1e308, 3.0}));
    EXPECT_TRUE(hasNaN({0.0, kInf}));
    EXPECT_TRUE(hasNaN({kNaN, 1.0}));
}

TEST(GetCollinear, TriangleAreaOfMeasuredPositions) {
    const tagCalData a{9, 9, 1.1f, 2.3f}, b{9, 9, -4.7f, 0.9f}, c{9, 9, 3.3f, -2.2f};
    EXPECT_SAME_BITS(0x1.d2e14ap+3, CCalibAlg::GetCollinear(a, b, c));
    const tagCalData d{0, 0, 2.0f, 4.0f}, e{0, 0, 3.0f, 6.0f}, f{0, 0, -1.0f, -2.0f};
    EXPECT_SAME_BITS(0.0, CCalibAlg::GetCollinear(d, e, f));
}

TEST(GetTwoLineAngle, SignedAngleAndVerticalCases) {
    auto line = [](float x0, float y0, float x1, float y1) {
        return std::vector<tagCalData>{{0, 0, x0, y0}, {0, 0, x1, y1}};
    };
    auto angle = [](std::vector<tagCalData> l1, std::vector<tagCalData> l2) {
        return CCalibAlg::GetTwoLineAngle(l1.data(), l2.data());
    };
    EXPECT_SAME_BITS(0x1.cc77cf0d8d387p-1, angle(line(0.1f, 0.2f, 5.3f, 1.7f), line(-1, 0.5f, 0.4f, 3.9f)));
    EXPECT_SAME_BITS(-kHalfPi, angle(line(0, 0, 1, 1), line(0, 0, -1, 1)));  // atan(-2 / 0)
    // Line 1 vertical: the inclination of line 2 alone.
    EXPECT_SAME_BITS(0x1.dac670561bb4fp-2, angle(line(1, 0, 1, 3), line(0, 0, 2, 1)));
    // Line 2 vertical: pi/2 minus the inclination of line 1 (not the mirror image).
    EXPECT_SAME_BITS(0x1.1b6e192ebbe44p+0, angle(line(0, 0, 2, 1), line(1, 0, 1, 3)));
    // Both vertical: 0 or pi; NaN when line 1 has no length.
    EXPECT_SAME_BITS(0.0, angle(line(0, 0, 0, 1), line(2, 0, 2, 5)));
    EXPECT_SAME_BITS(3.141592653589793, angle(line(0, 1, 0, 0), line(2, 0, 2, 5)));
    EXPECT_TRUE(std::isnan(angle(line(1, 1, 1, 1), line(2, 0, 2, 5))));
}

TEST(Line, CoefficientsInFloatCrossPointStored) {
    const Line l1 = Line::GetLine({0.1f, 0.2f}, {5.3f, 1.7f});
    EXPECT_SAME_BITS(-0x1.8p+0, l1.A);
    EXPECT_SAME_BITS(0x1.4ccccep+2, l1.B);
    EXPECT_SAME_BITS(-0x1.c7ae16p-1, l1.C);  // in double: -0x1.c7ae160b851f0p-1
    const Line l2 = Line::GetLine({-1.0f, 0.5f}, {0.4f, 3.9f});
    const tagKelPointF p = Line::GetCrossPoint(l1, l2);
    EXPECT_SAME_BITS(-0x1.49d7a4p+0f, p.x);
    EXPECT_SAME_BITS(-0x1.9aa6cap-3f, p.y);
    // Parallel and degenerate lines: D = 0 is not tested.
    const tagKelPointF par = Line::GetCrossPoint(Line::GetLine({0, 0}, {1, 1}), Line::GetLine({0, 1}, {1, 2}));
    EXPECT_TRUE(std::isinf(par.x));
    EXPECT_TRUE(std::isinf(par.y));
    const Line point = Line::GetLine({3, 4}, {3, 4});
    EXPECT_SAME_BITS(0.0, point.A);
    EXPECT_SAME_BITS(0.0, point.B);
    EXPECT_SAME_BITS(0.0, point.C);
    const tagKelPointF none = Line::GetCrossPoint(point, l1);
    EXPECT_TRUE(std::isnan(none.x));
    EXPECT_TRUE(std::isnan(none.y));
}

}  // namespace
