// Coefficient fitting from the nine calibration points: the whole written
// block bit for bit on hand-built point sets, what it leaves alone, and the
// degenerate cases.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>

#include "vrncal/calib_alg.h"

namespace {

std::uint64_t bits(double v) {
    std::uint64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

// Nominal 3 x 3 grid at +-40 (ValSize 80), row-major from the top left.
const float kNominal[9][2] = {{-40, 40}, {0, 40},  {40, 40},  {-40, 0}, {0, 0},
                              {40, 0},   {-40, -40}, {0, -40}, {40, -40}};

tagLenPar recordWith(const float real[9][2]) {
    tagLenPar par;
    par.FieldSize = 100.0;
    par.ValSize = 80.0;
    par.Resolution = 65535;
    for (int i = 0; i < 9; ++i)
        par.CalCoefs.Cal3Pnts[i] = {kNominal[i][0], kNominal[i][1], real[i][0], real[i][1]};
    return par;
}

// Every field the fit writes, in record order.
struct Fitted {
    double LinX, QuadX, LinY, QuadY, AxisXL, AxisXR, AxisYT, AxisYB, OX, OY;
    double SXL, SXR, ScaleX, SYT, SYB, ScaleY, TXL, TXR, TYT, TYB, PLX, PLY, Y2XAngle;
    double k0, k1, k2, k3;
};

Fitted fittedOf(const tagCalCoefs& c) {
    return {c.LinX,   c.QuadX, c.LinY,   c.QuadY,  c.AxisXL, c.AxisXR, c.AxisYT,
            c.AxisYB, c.OX,    c.OY,     c.SXL,    c.SXR,    c.ScaleX, c.SYT,
            c.SYB,    c.ScaleY, c.TXL,   c.TXR,    c.TYT,    c.TYB,    c.PLX,
            c.PLY,    c.Y2XAngle, c.k[0], c.k[1],  c.k[2],   c.k[3]};
}

void expectBits(const Fitted& got, const Fitted& want) {
    static const char* const names[] = {
        "LinX", "QuadX", "LinY", "QuadY", "AxisXL", "AxisXR", "AxisYT", "AxisYB", "OX",
        "OY",   "SXL",   "SXR",  "ScaleX", "SYT",   "SYB",    "ScaleY", "TXL",    "TXR",
        "TYT",  "TYB",   "PLX",  "PLY",   "Y2XAngle", "k0",   "k1",     "k2",     "k3"};
    constexpr int count = sizeof(Fitted) / sizeof(double);
    static_assert(count == sizeof names / sizeof names[0], "one name per field");
    double g[count], w[count];
    std::memcpy(g, &got, sizeof g);
    std::memcpy(w, &want, sizeof w);
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(bits(g[i]), bits(w[i])) << names[i] << ": got " << std::hexfloat << g[i]
                                          << ", want " << w[i];
}

}  // namespace

TEST(CoefFit, PerfectLens) {
    // No distortion: no pre-warp, unit gains, no shear.  The middle column is
    // vertical, so the angle is that of the middle row alone (0), and the
    // keystone quotients are 0 / -80 = -0.
    tagLenPar par = recordWith(kNominal);
    CCalibAlg::MVLSMCoef(par);
    expectBits(fittedOf(par.CalCoefs),
               {1.0, 0.0, 1.0, 0.0, 40.0, 40.0, 40.0, 40.0, 0.0, 0.0,
                1.0, 1.0, 1.0, 1.0, 1.0, 1.0, -0.0, -0.0, -0.0, -0.0, 0.0, 0.0, 0.0,
                1.0, 1.0, 0.0, 0.0});
}

TEST(CoefFit, HandMeasuredDistortion) {
    const float real[9][2] = {{-41.3f, 39.1f}, {0.6f, 40.7f},   {40.2f, 41.5f},
                              {-40.9f, 0.3f},  {0.1f, -0.2f},   {39.6f, -0.4f},
                              {-39.8f, -40.6f}, {-0.5f, -39.4f}, {41.1f, -39.9f}};
    tagLenPar par = recordWith(real);
    CCalibAlg::MVLSMCoef2_new(par);
    expectBits(fittedOf(par.CalCoefs),
               {1.0, 0x1.a961382783604p-12, 1.0, -0x1.a96b70144b1d8p-12,
                0x1.41c5660000000p+5, 0x1.41e3a80000000p+5, 0x1.40393a0000000p+5,
                0x1.403d0e0000000p+5, 0x1.e420000000000p-8, -0x1.ea00000000000p-11,
                0x1.fd2e8e3177d90p-1, 0x1.fcfeb126e5e23p-1, 0x1.fd169e8c2e7f4p-1,
                0x1.ffa4805ceb620p-1, 0x1.ff9e629fdecf5p-1, 0x1.ffa17179b7315p-1,
                -0x1.7c98b20000000p-6, -0x1.0dcfde0000000p-6, 0x1.d2f8c20000000p-6,
                0x1.24a5d40000000p-7, 0x1.4a43ce9b09b5ap-8, 0x1.4a43ce9b09b5ap-8,
                -0x1.90d5722ce0cc8p+0, 1.0, 1.0, -0x1.f4d34259dc91ap-9,
                -0x1.42626effdb1a9p-9});
}

TEST(CoefFit, PerpendicularAxesGiveNoShear) {
    // Column from (-1, 40) to (1, -40), row from (-40, -1) to (40, 1): the
    // slopes multiply to -1, the angle is +pi/2 through the infinity, and the
    // shear is tan(0) = 0.
    const float real[9][2] = {{-40, 40}, {-1, 40}, {40, 40}, {-40, -1}, {0, 0},
                              {40, 1},   {-40, -40}, {1, -40}, {40, -40}};
    tagLenPar par = recordWith(real);
    CCalibAlg::MVLSMCoef2_new(par);
    const tagCalCoefs& c = par.CalCoefs;
    EXPECT_EQ(c.Y2XAngle, 1.5707963267948966);
    EXPECT_EQ(bits(c.PLX), bits(0.0));
    EXPECT_EQ(bits(c.PLY), bits(0.0));
    EXPECT_EQ(c.k[2], -0x1.0c58f26b19706p-13);
    EXPECT_EQ(c.k[3], -0x1.0c58f26b19706p-13);
}

TEST(CoefFit, KeystoneGuardsAgainstFlatEdges) {
    // The left corners measured at the same height: TXL would divide by zero.
    float real[9][2];
    std::memcpy(real, kNominal, sizeof real);
    real[0][1] = -40.0f;
    tagLenPar par = recordWith(real);
    CCalibAlg::MVLSMCoef2_new(par);
    EXPECT_EQ(bits(par.CalCoefs.TXL), bits(0.0));
    EXPECT_EQ(par.CalCoefs.TYT, 1.0);  // the top edge now falls by 80 over 80
}

TEST(CoefFit, WritesOnlyItsFields) {
    const float real[9][2] = {{-41.3f, 39.1f}, {0.6f, 40.7f},   {40.2f, 41.5f},
                              {-40.9f, 0.3f},  {0.1f, -0.2f},   {39.6f, -0.4f},
                              {-39.8f, -40.6f}, {-0.5f, -39.4f}, {41.1f, -39.9f}};
    tagLenPar par = recordWith(real);
    for (double& v : par.CalCoefs.XWarpSpare) v = 11.0;
    for (double& v : par.CalCoefs.YWarpSpare) v = 12.0;
    for (double& v : par.CalCoefs.k) v = 13.0;
    for (double& v : par.CalCoefs.s) v = 14.0;
    par.BoxScaleX = 55.0;
    par.grid = 1;
    par.Stacks.resize(1);
    const tagLenPar before = par;

    CCalibAlg::MVLSMCoef2_new(par);

    // Put the fitted fields into the copy: then the blocks must match exactly.
    tagCalCoefs expected = before.CalCoefs;
    const tagCalCoefs& c = par.CalCoefs;
    expected.LinX = c.LinX, expected.QuadX = c.QuadX, expected.LinY = c.LinY, expected.QuadY = c.QuadY;
    expected.AxisXL = c.AxisXL, expected.AxisXR = c.AxisXR, expected.AxisYT = c.AxisYT;
    expected.AxisYB = c.AxisYB, expected.OX = c.OX, expected.OY = c.OY;
    expected.SXL = c.SXL, expected.SXR = c.SXR, expected.ScaleX = c.ScaleX;
    expected.SYT = c.SYT, expected.SYB = c.SYB, expected.ScaleY = c.ScaleY;
    expected.TXL = c.TXL, expected.TXR = c.TXR, expected.TYT = c.TYT, expected.TYB = c.TYB;
    expected.PLX = c.PLX, expected.PLY = c.PLY, expected.Y2XAngle = c.Y2XAngle;
    for (int i = 0; i < 4; ++i) expected.k[i] = c.k[i];
    EXPECT_EQ(std::memcmp(&expected, &c, sizeof expected), 0);
    EXPECT_EQ(c.k[4], 13.0);
    EXPECT_EQ(c.s[7], 14.0);
    EXPECT_EQ(c.XWarpSpare[0], 11.0);
    EXPECT_EQ(c.Cal3Pnts[0].RealX, -41.3f);  // the pre-warp worked on a copy
    EXPECT_EQ(par.BoxScaleX, 55.0);
    EXPECT_EQ(par.grid, 1);
    EXPECT_EQ(par.Stacks.size(), 1u);
}

TEST(CoefFit, DegeneratePointsGiveNonFiniteCoefficients) {
    // All RealX zero: fit 1 is singular, and everything derived from x is NaN.
    float real[9][2];
    std::memcpy(real, kNominal, sizeof real);
    for (auto& p : real) p[0] = 0.0f;
    tagLenPar par = recordWith(real);
    CCalibAlg::MVLSMCoef2_new(par);
    const tagCalCoefs& c = par.CalCoefs;
    EXPECT_TRUE(std::isnan(c.QuadX));
    EXPECT_TRUE(std::isnan(c.AxisXL));
    EXPECT_TRUE(std::isnan(c.ScaleX));
    EXPECT_TRUE(std::isnan(c.k[2]));
    EXPECT_TRUE(std::isnan(c.Y2XAngle));
    // The y side stays as measured, and the NaN angle fails the shear guard.
    EXPECT_EQ(c.QuadY, 0.0);
    EXPECT_EQ(c.AxisYT, 40.0);
    EXPECT_EQ(c.ScaleY, 1.0);
    EXPECT_EQ(bits(c.PLX), bits(0.0));
    EXPECT_EQ(c.LinX, 1.0);

    // A zero field size makes the counts per unit infinite.
    par = recordWith(kNominal);
    par.FieldSize = 0.0;
    CCalibAlg::MVLSMCoef(par);
    EXPECT_FALSE(std::isfinite(par.CalCoefs.k[2]));
    EXPECT_EQ(par.CalCoefs.ScaleX, 1.0);
}

TEST(CoefFit, EndToEndLensWithQuadraticDistortionAndKeystone) {
    // The lens puts a spot commanded to (x, y) field units at
    //   x + 5e-4 x^2 + 3e-4 x y,   y - 4e-4 y^2 + 2e-4 x y
    // (quadratic distortion plus keystone, up to 1.35 units at the corners).
    // These are the nine spots measured for the nominal grid at +-40.
    const float measured[9][2] = {{-39.68f, 39.04f}, {0.0f, 39.36f},    {41.28f, 39.68f},
                                  {-39.2f, 0.0f},    {0.0f, 0.0f},      {40.8f, 0.0f},
                                  {-38.72f, -40.32f}, {0.0f, -40.64f}, {40.32f, -40.96f}};
    tagLenPar par = recordWith(measured);
    CCalibAlg::MVLSMCoef(par);

    // Where the head must be driven, in counts, for the spot to land on each
    // nominal position: the lens inverted exactly (Newton, double precision),
    // times 655.35 counts per unit, plus the centre 32768.
    struct Node {
        float x, y;
        double cx, cy;
    };
    const Node nodes[] = {
        {-40, 40, 6346.3934, 59639.3982}, {0, 40, 32768.0000, 59415.4077},
        {40, 40, 58181.7018, 59203.5148}, {-40, 0, 6007.6378, 32768.0000},
        {0, 0, 32768.0000, 32768.0000},   {40, 0, 58477.6980, 32768.0000},
        {-40, -40, 5671.1023, 6751.9747}, {0, -40, 32768.0000, 6960.5163},
        {40, -40, 58770.9781, 7157.5664},
    };
    // Tolerance 4 counts (0.006 field units).  The nine-point model matches the
    // inverse lens to first order in the distortion; the second-order remainder
    // it cannot represent (terms like 2a^2 x^3 and 3ae x^2 y) peaks at 3.03
    // counts, at (-40, -40), when the same steps are evaluated independently;
    // the float output adds at most 0.004.  Without correction the same nodes
    // are off by up to 883 counts, so any first-order mistake fails here.
    constexpr double kTolerance = 4.0;
    for (const Node& n : nodes) {
        tagKelPointF out;
        EXPECT_EQ(CCalibAlg::CalibPoint2_new(par, {n.x, n.y}, out), 1);
        EXPECT_NEAR(out.x, n.cx, kTolerance) << "at (" << n.x << ", " << n.y << ")";
        EXPECT_NEAR(out.y, n.cy, kTolerance) << "at (" << n.x << ", " << n.y << ")";
    }

    // The spots themselves: a request for a measured position is driven to
    // where the head was commanded when it was measured.  The cross fits are
    // least squares over nine points, so these too leave up to 0.98 counts.
    for (int i = 0; i < 9; ++i) {
        tagKelPointF out;
        CCalibAlg::CalibPoint2_new(par, {measured[i][0], measured[i][1]}, out);
        EXPECT_NEAR(out.x, 32768.0 + 655.35 * kNominal[i][0], 1.0) << "point " << i;
        EXPECT_NEAR(out.y, 32768.0 + 655.35 * kNominal[i][1], 1.0) << "point " << i;
    }
}
