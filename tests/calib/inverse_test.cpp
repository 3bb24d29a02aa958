// The inverse must give back a field point that the correction really drives
// to the device position asked for, over the whole calibrated field, under
// every lens flag and in both correction modes; and it must say so clearly
// where no single field point exists: beyond the field, at the device
// limits, inside a jump of the correction, where the correction folds.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "vrncal/batch.h"
#include "vrncal/facade.h"
#include "vrncal/inverse.h"

namespace {

using vrncal::InverseStatus;
using vrncal::Inverter;

tagLenPar sample() {
    tagLenPar par;
    EXPECT_TRUE(VrnCal().loadUcf(VRNCAL_TEST_DATA "/../../examples/sample.cor", par));
    par.CalMode = 1;
    return par;
}

tagKelPointF forward(const tagLenPar& par, tagKelPointF p) {
    tagKelPointF out;
    VrnCal().CalibPoint(par, p, out);
    return out;
}

// Every point of an n x n raster over the calibrated field, edges included,
// through the correction and back.
void expectRoundTrip(const tagLenPar& par, int n) {
    const Inverter inv(par);
    EXPECT_FALSE(inv.folds());
    const double half = 0.5 * par.ValSize;
    const double kc = par.Resolution / par.FieldSize;
    const double tol = vrncal::InverseOptions{}.tolerance;
    int far = 0;
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) {
            const tagKelPointF p{float(-half + c * par.ValSize / (n - 1)), float(half - r * par.ValSize / (n - 1))};
            const tagKelPointF counts = forward(par, p);
            const auto res = inv.invert(counts);
            ASSERT_EQ(res.status, InverseStatus::Converged) << p.x << ", " << p.y;
            const tagKelPointF back = forward(par, res.field);
            ASSERT_LE(std::fabs(back.x - counts.x), tol) << p.x << ", " << p.y;
            ASSERT_LE(std::fabs(back.y - counts.y), tol) << p.x << ", " << p.y;
            ASSERT_LE(res.residual, tol);
            ASSERT_LE(res.iterations, 10);
            // Two points up to the jump of the quarter rule apart may both
            // drive there; anywhere else the inverse is within the tolerance.
            const double d = std::fmax(std::fabs(res.field.x - p.x), std::fabs(res.field.y - p.y));
            ASSERT_LE(d, 0.00075 * 1.01 + 2 * tol / kc) << p.x << ", " << p.y;
            if (d > 2 * tol / kc) ++far;
        }
    EXPECT_LE(far, n * n / 100);
}

TEST(Inverse, RoundTripOverTheSampleField) { expectRoundTrip(sample(), 201); }

TEST(Inverse, RoundTripUnderEveryLensFlag) {
    for (int flags = 1; flags < 8; ++flags) {
        tagLenPar par = sample();
        par.XYFlip = flags & 1;
        par.XInvert = (flags >> 1) & 1;
        par.YInvert = (flags >> 2) & 1;
        SCOPED_TRACE(flags);
        expectRoundTrip(par, 41);
    }
}

TEST(Inverse, RoundTripThroughTheBoxCorrection) {
    tagLenPar par;
    par.CalMode = 0;
    par.LEN_XINVERT = 1;
    par.BoxScaleX = 100.4;
    par.BoxScaleY = 99.7;
    par.BoxSkewX = 1.0003;
    par.BoxTrapY = 0.9999;
    par.BoxBarrelX = 0.9985;
    par.BoxBarrelY = 0.9982;
    par.BoxOffsetX = -0.12;
    expectRoundTrip(par, 41);
}

TEST(Inverse, BatchGivesTheSingleResults) {
    const tagLenPar par = sample();
    const Inverter inv(par);
    std::vector<tagKelPointF> counts;
    for (float v : {1000.0f, 20000.0f, 32768.0f, 41000.5f, 65000.0f}) counts.push_back({v, 65535.0f - v});
    std::vector<vrncal::InverseResult> out(counts.size());
    inv.invert(counts.data(), out.data(), counts.size());
    for (std::size_t i = 0; i < counts.size(); ++i) {
        const auto one = inv.invert(counts[i]);
        EXPECT_EQ(out[i].status, one.status);
        EXPECT_EQ(out[i].field.x, one.field.x);
        EXPECT_EQ(out[i].field.y, one.field.y);
    }
}

TEST(Inverse, ClearFailuresOutsideTheField) {
    const tagLenPar par = sample();
    const Inverter inv(par);
    // Beyond +-ValSize/2 but on the device: the point is found and flagged.
    auto res = inv.invert(forward(par, {45.0f, -10.0f}));
    EXPECT_EQ(res.status, InverseStatus::OutsideField);
    EXPECT_NEAR(res.field.x, 45.0, 1e-4);
    EXPECT_NEAR(res.field.y, -10.0, 1e-4);
    // At or beyond the device limits, where the correction clamps.
    for (tagKelPointF c : {tagKelPointF{0.0f, 100.0f}, tagKelPointF{65535.0f, 30000.0f},
                           tagKelPointF{-5.0f, 30000.0f}, tagKelPointF{30000.0f, 70000.0f}}) {
        res = inv.invert(c);
        EXPECT_EQ(res.status, InverseStatus::DeviceLimit);
        EXPECT_TRUE(std::isnan(res.field.x) && std::isnan(res.residual));
    }
    // Near the device limit, the solution is far outside the field.
    EXPECT_EQ(inv.invert({65534.0f, 32768.0f}).status, InverseStatus::OutsideField);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    EXPECT_EQ(inv.invert({nan, 100.0f}).status, InverseStatus::NotFinite);
    EXPECT_EQ(inv.invert({100.0f, inf}).status, InverseStatus::NotFinite);
    // A grid node that is not a number spoils the correction around it.
    tagLenPar broken = par;
    broken.Stacks[0].Points[40].RealX = nan;  // the centre of the 9 x 9 grid
    res = Inverter(broken).invert(forward(par, {0.5f, 0.5f}));
    EXPECT_EQ(res.status, InverseStatus::NotFinite);
    EXPECT_TRUE(std::isnan(res.field.x) && std::isnan(res.residual));
    EXPECT_STREQ(vrncal::inverseStatusText(InverseStatus::OutsideField), "outside the calibrated field");
}

// A 5 x 5 grid of pitch 20 whose centre node was "measured" 30 units to the
// right: the correction pulls x back by up to 30 over the cells around it,
// more than the spacing, so the field folds left of the centre.
TEST(Inverse, FoldedCorrection) {
    tagLenPar par;
    par.CalMode = 1;
    tagStack s;
    s.Size = 5;
    for (int r = 0; r < 5; ++r)
        for (int c = 0; c < 5; ++c) {
            const float x = -40.0f + 20.0f * c, y = 40.0f - 20.0f * r;
            s.Points.push_back({x, y, x + (r == 2 && c == 2 ? 30.0f : 0.0f), y});
        }
    par.Stacks.push_back(s);
    const Inverter inv(par);
    EXPECT_TRUE(inv.folds());
    EXPECT_EQ(inv.invert(forward(par, {-10.0f, 0.0f})).status, InverseStatus::Folded);
    EXPECT_EQ(inv.invert(forward(par, {-10.0f, 5.0f})).status, InverseStatus::Folded);
    // Far from the fold the answer stands.
    const auto res = inv.invert(forward(par, {30.0f, -30.0f}));
    EXPECT_EQ(res.status, InverseStatus::Converged);
    EXPECT_NEAR(res.field.x, 30.0, 1e-4);
    // A grid that maps everything onto one point has no orientation at all.
    tagLenPar flat;
    flat.CalMode = 1;
    flat.CalCoefs.ScaleX = 0.0;
    EXPECT_EQ(Inverter(flat).invert({30000.0f, 30000.0f}).status, InverseStatus::Folded);
}

// Where the summed residual falls through 0.001 field units, the quarter
// rule makes the output jump forward: the positions in between belong to
// no field point.
TEST(Inverse, JumpOfTheQuarterRuleIsNotReached) {
    tagLenPar par;
    par.CalMode = 1;
    tagStack s;
    s.Size = 2;
    // The x deviation falls from 2 at the left edge to -2 at the right,
    // steeply enough that the float scatter of the interpolation (a few
    // millionths) does not blur the crossing of 0.001 (near x = -0.02).
    s.Points = {{-40.0f, 40.0f, -38.0f, 40.0f}, {40.0f, 40.0f, 38.0f, 40.0f},
                {-40.0f, -40.0f, -38.0f, -40.0f}, {40.0f, -40.0f, 38.0f, -40.0f}};
    par.Stacks.push_back(s);
    // Left of the jump the output lies 0.001 field units short of the plain
    // conversion, right of it a quarter of that.
    const double kc = par.Resolution / par.FieldSize;
    const float y = 5.0f;
    const auto quarter = [&](float x) { return forward(par, {x, y}).x - 32768.0 - kc * x > -0.4; };
    float lo = -2.0f, hi = 0.0f;
    while (std::nextafter(lo, hi) != hi) {
        const float mid = 0.5f * (lo + hi);
        (quarter(mid) ? hi : lo) = mid;
    }
    const float below = forward(par, {lo, y}).x, above = forward(par, {hi, y}).x;
    EXPECT_NEAR(above - below, 0.00075 * kc, 0.05);
    const auto res = Inverter(par).invert({0.5f * (below + above), forward(par, {lo, y}).y});
    EXPECT_EQ(res.status, InverseStatus::NotConverged);
    EXPECT_GT(res.residual, 0.1);
    EXPECT_LE(res.residual, 0.5);
    EXPECT_NEAR(res.field.x, lo, 0.001);
}

}  // namespace
