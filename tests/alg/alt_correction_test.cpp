// The alternative correction family: worked cases with bits derived from the
// model formulas, the mirrored gain lookup, the residual stages shared with
// the grid-mode correction, and the degenerate inputs.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "vrncal/calib_alg.h"

namespace {

using Member = int (*)(const tagLenPar&, tagKelPointF, tagKelPointF&);

struct Case {
    float x, y;    // field point in
    float ex, ey;  // device counts out, exact
};

std::uint32_t bits(float v) {
    std::uint32_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

void expectCases(Member member, const tagLenPar& par, const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        tagKelPointF out{-1.0f, -1.0f};
        EXPECT_EQ(member(par, tagKelPointF{c.x, c.y}, out), 1);
        EXPECT_EQ(bits(out.x), bits(c.ex)) << std::hexfloat << "x of (" << c.x << ", " << c.y
                                           << "): " << out.x << " expected " << c.ex;
        EXPECT_EQ(bits(out.y), bits(c.ey)) << std::hexfloat << "y of (" << c.x << ", " << c.y
                                           << "): " << out.y << " expected " << c.ey;
    }
}

void setCoefs(tagLenPar& par, const std::vector<double>& k) {
    for (std::size_t i = 0; i < k.size(); ++i) par.CalCoefs.k[i] = k[i];
}

// Three-row gain tables in field units: x gains 1.05 | 1.0 | 0.9 and y gains
// 0.95 | 1.0 | 1.1 at -40 | 0 | 40, so a lookup at -v differs from one at v.
void setFieldGainTables(tagLenPar& par) {
    par.grid = 1;
    par.LineCount = 3;
    const double pos[3] = {-40.0, 0.0, 40.0};
    const double gx[3] = {1.05, 1.0, 0.9};
    const double gy[3] = {0.95, 1.0, 1.1};
    for (int i = 0; i < 3; ++i) {
        par.XT[i] = pos[i];
        par.YT[i] = pos[i];
        par.XR[i] = gx[i];
        par.YR[i] = gy[i];
        par.XA[i] = 1.0e9;  // never read
        par.YA[i] = -1.0e9;
    }
}

// The biquadratic coefficients k0..k17 of the worked CalibPoint18 cases.
const std::vector<double> kBiquadratic = {1e-8,    -1e-8,   3e-6,  -2e-6,  1e-4,  -1.2e-4,
                                          4e-6,    5e-6,    2e-4,  -3e-4,  0.013, -0.011,
                                          1.5e-4,  -2e-4,   1.01,  0.99,   0.12,  -0.08};

}  // namespace

// ---- CalibPoint18 -----------------------------------------------------------

TEST(CalibPoint18, UnitLinearTermsGiveCountsAboutTheCentreClamped) {
    tagLenPar par;  // 65535 counts over 100 field units
    par.CalCoefs.k[14] = 1.0;
    par.CalCoefs.k[15] = 1.0;
    par.grid = 0;
    expectCases(&CCalibAlg::CalibPoint18, par, {
        {12.5f, -7.25f, 0x1.3fffcp+15f, 0x1.b5c2dap+14f},
        {0.0f, 0.0f, 0x1p+15f, 0x1p+15f},
        {50.0f, -50.0f, 0x1.fffep+15f, 0x1p-1f},
        {80.0f, -80.0f, 0x1.fffep+15f, 0x0p+0f},
        {-33.3f, 21.7f, 0x1.5606c4p+13f, 0x1.6f1a3p+15f},
    });
}

TEST(CalibPoint18, BiquadraticInFieldUnitsThenCounts) {
    tagLenPar par;
    setCoefs(par, kBiquadratic);
    expectCases(&CCalibAlg::CalibPoint18, par, {
        {26.57f, 39.82f, 0x1.906104p+15f, 0x1.c4fb3cp+15f},
        {-19.85f, 37.47f, 0x1.393f84p+14f, 0x1.bd34p+15f},
        {-44.84f, 33.43f, 0x1.c4508p+11f, 0x1.a96658p+15f},
        {-31.89f, -39.14f, 0x1.69d6f4p+13f, 0x1.afb48p+12f},
        {0.0f, 0.0f, 0x1.009d48p+15f, 0x1.ff2e4ap+14f},
    });
}

TEST(CalibPoint18, GainTablesLookedUpAtTheMirroredPoint) {
    tagLenPar par;
    setCoefs(par, kBiquadratic);
    setFieldGainTables(par);
    expectCases(&CCalibAlg::CalibPoint18, par, {
        {26.57f, 39.82f, 0x1.86c9e2p+15f, 0x1.d89744p+15f},
        {-19.85f, 37.47f, 0x1.34510ap+14f, 0x1.ceed3cp+15f},
        {-44.84f, 33.43f, 0x1.0e216p+11f, 0x1.b78eaep+15f},
        {-31.89f, -39.14f, 0x1.4f71bcp+13f, 0x1.fec848p+12f},
        {0.0f, 0.0f, 0x1.009d48p+15f, 0x1.ff2e4ap+14f},
    });

    // Exchanged axes with XInvert: the y gain is looked up at -y, x as passed.
    par.XYFlip = 1;
    par.XInvert = 1;
    expectCases(&CCalibAlg::CalibPoint18, par, {
        {26.57f, 39.82f, 0x1.86c9e2p+15f, 0x1.bb2d38p+15f},
        {-19.85f, 37.47f, 0x1.34510ap+14f, 0x1.b4576p+15f},
        {-44.84f, 33.43f, 0x1.0e216p+11f, 0x1.a2522cp+15f},
        {-31.89f, -39.14f, 0x1.4f71bcp+13f, 0x1.118cf8p+12f},
        {0.0f, 0.0f, 0x1.009d48p+15f, 0x1.ff2e4ap+14f},
    });

    // Exchanged axes with YInvert: the x gain is looked up at -x.
    par.XInvert = 0;
    par.YInvert = 1;
    expectCases(&CCalibAlg::CalibPoint18, par, {
        {26.57f, 39.82f, 0x1.952c98p+15f, 0x1.d89744p+15f},
        {-19.85f, 37.47f, 0x1.431c74p+14f, 0x1.ceed3cp+15f},
        {-44.84f, 33.43f, 0x1.985768p+12f, 0x1.b78eaep+15f},
        {-31.89f, -39.14f, 0x1.9ea16p+13f, 0x1.fec848p+12f},
        {0.0f, 0.0f, 0x1.009d48p+15f, 0x1.ff2e4ap+14f},
    });

    // Plain axes, both inverted.
    par.XYFlip = 0;
    par.XInvert = 1;
    expectCases(&CCalibAlg::CalibPoint18, par, {
        {26.57f, 39.82f, 0x1.952c98p+15f, 0x1.bb2d38p+15f},
        {-19.85f, 37.47f, 0x1.431c74p+14f, 0x1.b4576p+15f},
        {-44.84f, 33.43f, 0x1.985768p+12f, 0x1.a2522cp+15f},
        {-31.89f, -39.14f, 0x1.9ea16p+13f, 0x1.118cf8p+12f},
        {0.0f, 0.0f, 0x1.009d48p+15f, 0x1.ff2e4ap+14f},
    });
}

// ---- CalibPoint14 -----------------------------------------------------------

TEST(CalibPoint14, ConstantTermIsOneCountNotOneFieldUnit) {
    tagLenPar par;
    par.CalCoefs.k[0] = 1.0;
    expectCases(&CCalibAlg::CalibPoint14, par, {
        {12.5f, -7.25f, 0x1.0002p+15f, 0x1p+15f},
        {0.0f, 0.0f, 0x1.0002p+15f, 0x1p+15f},
        {100.0f, -100.0f, 0x1.0002p+15f, 0x1p+15f},
    });
}

TEST(CalibPoint14, CubicWithoutQuadraticTermsInCounts) {
    tagLenPar par;
    setCoefs(par, {12.3, -7.7, 661.9, 648.2, 6.1, -5.3, 0.011, -0.009, 0.021, -0.017, 0.013, 0.015,
                   -0.007, 0.008});
    expectCases(&CCalibAlg::CalibPoint14, par, {
        {26.57f, 39.82f, 0x1.92708cp+15f, 0x1.c2ec2p+15f},
        {-19.85f, 37.47f, 0x1.2e8e6ap+14f, 0x1.bfc184p+15f},
        {-44.84f, 33.43f, 0x1.5f6e8p+11f, 0x1.b15bd2p+15f},
        {-31.89f, -39.14f, 0x1.394c6p+13f, 0x1.f8868p+12f},
        {0.0f, 0.0f, 0x1.00189ap+15f, 0x1.ffe134p+14f},
        {60.0f, -60.0f, 0x1.fffep+15f, 0x0p+0f},
    });

    // YInvert alone: the y gain is looked up at -y.
    setFieldGainTables(par);
    par.YInvert = 1;
    expectCases(&CCalibAlg::CalibPoint14, par, {
        {26.57f, 39.82f, 0x1.88b66p+15f, 0x1.b93858p+15f},
        {-19.85f, 37.47f, 0x1.295c08p+14f, 0x1.b6c648p+15f},
        {-44.84f, 33.43f, 0x1.48682p+10f, 0x1.a9f282p+15f},
        {-31.89f, -39.14f, 0x1.1cf7ccp+13f, 0x1.617f18p+12f},
        {0.0f, 0.0f, 0x1.00189ap+15f, 0x1.ffe134p+14f},
        {60.0f, -60.0f, 0x1.fffep+15f, 0x0p+0f},
    });
}

// ---- CalibPoint12 -----------------------------------------------------------

TEST(CalibPoint12, SideGainsThenCubicInCountsShiftedInDouble) {
    tagLenPar par;
    par.CalCoefs.SXL = 1.02;
    par.CalCoefs.SXR = 0.98;
    par.CalCoefs.SYT = 1.01;
    par.CalCoefs.SYB = 0.97;
    setCoefs(par, {1.001, 0.999, 0.012, -0.011, 2e-11, -1e-11, 3e-11, 1.5e-11, -2.5e-11, 1e-11,
                   4e-12, -3e-12});
    // (-39.78, 0.67) and (-41.63, -5.97) come out differently when the
    // polynomial is stored before the shift instead of after the clamp.
    expectCases(&CCalibAlg::CalibPoint12, par, {
        {26.57f, 39.82f, 0x1.88c082p+15f, 0x1.ccaefcp+15f},
        {-19.85f, 37.47f, 0x1.3a934cp+14f, 0x1.c0f4bep+15f},
        {-44.84f, 33.43f, 0x1.b53fa2p+11f, 0x1.aee43ep+15f},
        {-31.89f, -39.14f, 0x1.539326p+13f, 0x1.f528f2p+12f},
        {-39.78f, 0.67f, 0x1.69d004p+12f, 0x1.0636p+15f},
        {-41.63f, -5.97f, 0x1.10568ap+12f, 0x1.ca0286p+14f},
        {0.0f, 0.0f, 0x1p+15f, 0x1p+15f},
        {60.0f, -60.0f, 0x1.fffep+15f, 0x0p+0f},
    });

    // Tables in counts, looked up at U and V; exchanged axes with XInvert
    // look V up at -V.
    par.grid = 1;
    par.LineCount = 3;
    const double pos[3] = {-30000.0, 0.0, 30000.0};
    const double gx[3] = {1.02, 1.0, 0.97};
    const double gy[3] = {0.96, 1.0, 1.03};
    for (int i = 0; i < 3; ++i) {
        par.XT[i] = pos[i];
        par.YT[i] = pos[i];
        par.XR[i] = gx[i];
        par.YR[i] = gy[i];
    }
    par.XYFlip = 1;
    par.XInvert = 1;
    expectCases(&CCalibAlg::CalibPoint12, par, {
        {26.57f, 39.82f, 0x1.865bb6p+15f, 0x1.c5888cp+15f},
        {-19.85f, 37.47f, 0x1.38e992p+14f, 0x1.ba9a0cp+15f},
        {-44.84f, 33.43f, 0x1.6ddaa6p+11f, 0x1.a9abep+15f},
        {-31.89f, -39.14f, 0x1.4994dap+13f, 0x1.cee062p+12f},
        {-39.78f, 0.67f, 0x1.4b7c1cp+12f, 0x1.06345p+15f},
        {-41.63f, -5.97f, 0x1.dd69ap+11f, 0x1.c9d2c4p+14f},
        {0.0f, 0.0f, 0x1p+15f, 0x1p+15f},
        {60.0f, -60.0f, 0x1.fffep+15f, 0x0p+0f},
    });
}

// ---- CalibPoint6 and CalibPoint2 ------------------------------------------

namespace {

// Shape terms with every keystone, the shear and both gains away from neutral.
void setShape(tagLenPar& par) {
    tagCalCoefs& c = par.CalCoefs;
    c.PLX = 0.0123;
    c.TXL = 0.021;
    c.TXR = -0.017;
    c.TYT = 0.013;
    c.TYB = -0.019;
    c.AxisXL = 39.7;
    c.AxisXR = 40.3;
    c.AxisYT = 40.1;
    c.AxisYB = 39.6;
    c.ScaleX = 1.0071;
    c.ScaleY = 0.9934;
}

}  // namespace

TEST(CalibPoint6, ShapeThenSixTermPolynomialInCounts) {
    tagLenPar par;
    setShape(par);
    setCoefs(par,
             {3.7, -2.9, 655.1, 656.2, 1.9, -2.3, -2.1e-4, 1.7e-4, 0.011, -0.013, 0.007, 0.009});
    expectCases(&CCalibAlg::CalibPoint6, par, {
        {26.57f, 39.82f, 0x1.895f6p+15f, 0x1.c881ap+15f},
        {-19.85f, 37.47f, 0x1.2bf7b4p+14f, 0x1.c057c4p+15f},
        {-44.84f, 33.43f, 0x1.37fdep+11f, 0x1.adb0b8p+15f},
        {-31.89f, -39.14f, 0x1.849bdp+13f, 0x1.b07a58p+12f},
        {0.0f, 0.0f, 0x1.000766p+15f, 0x1.fff466p+14f},
        {60.0f, -60.0f, 0x1.fffep+15f, 0x0p+0f},
    });

    // Like the grid-mode correction, the tables are looked up at the point as
    // passed: the lens flags change nothing here.
    setFieldGainTables(par);
    par.XYFlip = 1;
    par.XInvert = 1;
    expectCases(&CCalibAlg::CalibPoint6, par, {
        {26.57f, 39.82f, 0x1.803f64p+15f, 0x1.dc777cp+15f},
        {-19.85f, 37.47f, 0x1.26b4ep+14f, 0x1.d25c4cp+15f},
        {-44.84f, 33.43f, 0x1.eb2a8p+9f, 0x1.bc34dcp+15f},
        {-31.89f, -39.14f, 0x1.6b47c4p+13f, 0x1.ff847p+12f},
        {0.0f, 0.0f, 0x1.000766p+15f, 0x1.fff466p+14f},
        {60.0f, -60.0f, 0x1.fffep+15f, 0x0p+0f},
    });
}

TEST(CalibPoint2, ShapeThenCrossTermWithoutPreWarp) {
    tagLenPar par;
    setShape(par);
    par.CalCoefs.QuadX = 0.5;  // not read: this member has no pre-warp
    par.CalCoefs.QuadY = -0.5;
    par.CalCoefs.k[2] = -0.0021;
    par.CalCoefs.k[3] = 0.0017;
    expectCases(&CCalibAlg::CalibPoint2, par, {
        {26.57f, 39.82f, 0x1.880fcp+15f, 0x1.c9305cp+15f},
        {-19.85f, 37.47f, 0x1.2b5a3cp+14f, 0x1.c00c78p+15f},
        {-44.84f, 33.43f, 0x1.36912p+11f, 0x1.ad7c7ep+15f},
        {-31.89f, -39.14f, 0x1.88c614p+13f, 0x1.ab6848p+12f},
        {0.0f, 0.0f, 0x1p+15f, 0x1p+15f},
        {60.0f, -60.0f, 0x1.fffep+15f, 0x0p+0f},
    });

    setFieldGainTables(par);
    par.XYFlip = 1;
    par.XInvert = 1;
    expectCases(&CCalibAlg::CalibPoint2, par, {
        {26.57f, 39.82f, 0x1.7f060cp+15f, 0x1.dd379cp+15f},
        {-19.85f, 37.47f, 0x1.26138p+14f, 0x1.d209f4p+15f},
        {-44.84f, 33.43f, 0x1.e52e8p+9f, 0x1.bbfc44p+15f},
        {-31.89f, -39.14f, 0x1.6f9c88p+13f, 0x1.fab1ep+12f},
        {0.0f, 0.0f, 0x1p+15f, 0x1p+15f},
        {60.0f, -60.0f, 0x1.fffep+15f, 0x0p+0f},
    });
}

// ---- Degenerate input -------------------------------------------------------

TEST(AlternativeFamily, NaNFlowsThroughEveryMember) {
    tagLenPar par;
    setShape(par);
    setCoefs(par, kBiquadratic);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const Member members[] = {&CCalibAlg::CalibPoint18, &CCalibAlg::CalibPoint14,
                              &CCalibAlg::CalibPoint12, &CCalibAlg::CalibPoint6,
                              &CCalibAlg::CalibPoint2};
    for (Member member : members) {
        tagKelPointF out;
        EXPECT_EQ(member(par, tagKelPointF{nan, nan}, out), 1);
        EXPECT_TRUE(std::isnan(out.x));
        EXPECT_TRUE(std::isnan(out.y));
    }
}

TEST(AlternativeFamily, InfiniteCountsLandOnTheDeviceLimits) {
    // A tiny FieldSize makes the conversion to counts overflow the float.
    tagLenPar par;
    par.FieldSize = 1e-300;
    par.CalCoefs.k[14] = 1.0;
    par.CalCoefs.k[15] = 1.0;
    tagKelPointF out;
    CCalibAlg::CalibPoint18(par, tagKelPointF{1.0f, -1.0f}, out);
    EXPECT_EQ(out.x, 65535.0f);
    EXPECT_EQ(out.y, 0.0f);

    // CalibPoint12 clamps the infinite double before storing it.
    par.CalCoefs.k[0] = 1.0;
    par.CalCoefs.k[1] = 1.0;
    CCalibAlg::CalibPoint12(par, tagKelPointF{1.0f, -1.0f}, out);
    EXPECT_EQ(out.x, 65535.0f);
    EXPECT_EQ(out.y, 0.0f);

    // CalibPoint14 has no conversion: a huge coefficient overflows instead.
    par.CalCoefs.k[0] = 0.0;
    par.CalCoefs.k[1] = 0.0;
    par.CalCoefs.k[2] = -1e300;
    par.CalCoefs.k[3] = 1e300;
    CCalibAlg::CalibPoint14(par, tagKelPointF{1.0f, 1.0f}, out);
    EXPECT_EQ(out.x, 0.0f);
    EXPECT_EQ(out.y, 65535.0f);
}

// ---- Grid residual stages of CalibPoint6 and CalibPoint2 ------------------

namespace {

// A 5 x 5 stack over the nominal field +-40 whose every point was measured
// off by (sx, sy): the lookup then gives that deviation everywhere, up to
// float rounding of the interpolation.
tagStack shiftedStack(float sx, float sy) {
    tagStack stack;
    stack.Size = 5;
    stack.InOrder = 1;
    for (int r = 0; r < 5; ++r) {
        for (int c = 0; c < 5; ++c) {
            const float x = -40.0f + 20.0f * c;
            const float y = 40.0f - 20.0f * r;
            stack.Points.push_back(tagCalData{x, y, x + sx, y + sy});
        }
    }
    return stack;
}

tagKelPointF correct(Member member, const tagLenPar& par, tagKelPointF in) {
    tagKelPointF out;
    member(par, in, out);
    return out;
}

}  // namespace

// The stack deviation is looked up at the mirrored point, mirrored back,
// scaled by kc and the axis gain (traded with exchanged axes), and applied at
// a quarter when it is 0.001 field units or less.  The lookup and the float
// sums are good to 1e-5 field units, so 0.01 counts (0.0066 at kc = 655.35)
// bounds the difference from the arithmetic below.
TEST(AlternativeFamily, GridResidualFollowsTheGridModeRules) {
    const double kc = 655.35;
    const double tol = 0.01;
    struct Setup {
        Member member;
        std::vector<double> k;
    };
    const Setup setups[] = {
        {&CCalibAlg::CalibPoint6,
         {3.7, -2.9, 655.1, 656.2, 1.9, -2.3, -2.1e-4, 1.7e-4, 0.011, -0.013, 0.007, 0.009}},
        {&CCalibAlg::CalibPoint2, {0.0, 0.0, -0.0021, 0.0017}},
    };
    for (const Setup& setup : setups) {
        const Member member = setup.member;
        tagLenPar par;
        setShape(par);
        setCoefs(par, setup.k);
        const double gx = par.CalCoefs.ScaleX;
        const double gy = par.CalCoefs.ScaleY;
        const tagKelPointF in{13.1f, -21.7f};
        const tagKelPointF base = correct(member, par, in);

        // Two overlapping stacks add up: 0.3 + 0.2 in x, -0.25 + 0.1 in y.
        par.Stacks = {shiftedStack(0.3f, -0.25f), shiftedStack(0.2f, 0.1f)};
        tagKelPointF out = correct(member, par, in);
        EXPECT_NEAR(out.x, base.x - 0.5 * kc * gx, tol);
        EXPECT_NEAR(out.y, base.y + 0.15 * kc * gy, tol);

        // Exchanged axes with XInvert: y is looked up mirrored and its
        // deviation negated back; the gains trade places.
        par.XYFlip = 1;
        par.XInvert = 1;
        out = correct(member, par, in);
        EXPECT_NEAR(out.x, base.x - 0.5 * kc * gy, tol);
        EXPECT_NEAR(out.y, base.y - 0.15 * kc * gx, tol);
        par.XYFlip = 0;
        par.XInvert = 0;

        // 0.0008 is applied at a quarter, 0.0011 in full.
        par.Stacks = {shiftedStack(0.0008f, 0.0011f)};
        out = correct(member, par, in);
        EXPECT_NEAR(out.x, base.x - 0.25 * 0.0008 * kc * gx, tol);
        EXPECT_NEAR(out.y, base.y - 0.0011 * kc * gy, tol);
    }
}

// Without the pre-warp the grid-mode correction is CalibPoint2: with QuadX =
// QuadY = 0 the two agree to the bit whatever the stacks, flags and tables.
TEST(CalibPoint2, MatchesTheGridModeCorrectionWithoutPreWarp) {
    tagLenPar par;
    setShape(par);
    par.CalCoefs.k[2] = -0.0021;
    par.CalCoefs.k[3] = 0.0017;
    par.Stacks = {shiftedStack(0.3f, -0.25f), shiftedStack(0.0008f, 0.0004f)};
    par.Stacks[0].Points[7].RealX += 0.4f;  // make the residual vary over the field
    par.Stacks[0].Points[12].RealY -= 0.3f;
    setFieldGainTables(par);
    for (int flags = 0; flags < 8; ++flags) {
        par.XYFlip = flags & 1;
        par.XInvert = (flags >> 1) & 1;
        par.YInvert = (flags >> 2) & 1;
        for (float y = -45.0f; y <= 45.0f; y += 6.37f) {
            for (float x = -45.0f; x <= 45.0f; x += 5.93f) {
                const tagKelPointF in{x, y};
                const tagKelPointF a = correct(&CCalibAlg::CalibPoint2, par, in);
                const tagKelPointF b = correct(&CCalibAlg::CalibPoint2_new, par, in);
                ASSERT_EQ(bits(a.x), bits(b.x)) << "flags " << flags << " at " << x << ", " << y;
                ASSERT_EQ(bits(a.y), bits(b.y)) << "flags " << flags << " at " << x << ", " << y;
            }
        }
    }
}
