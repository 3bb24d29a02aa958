// The fitting variants paired with the alternative corrections: each pair is
// fitted on a simulated lens from its nine calibration points, and the
// corrected points must land where the lens puts them.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "vrncal/calib_alg.h"

namespace {

using Member = int (*)(const tagLenPar&, tagKelPointF, tagKelPointF&);
using Fit = void (*)(tagLenPar&);

struct Pt {
    double x, y;
};
using Map = std::function<Pt(Pt)>;

// A default record: 65535 counts over a field of 100 units, nominal grid
// +-40 (ValSize 80).
constexpr double kKc = 655.35;
constexpr double kHalf = 32768.0;

// The spot position t that a lens given by its correction G (where to drive so
// that the spot lands on t) reaches when driven to d: G(t) = d, by Newton.
Pt spotOf(const Map& G, Pt d) {
    Pt t = d;
    for (int i = 0; i < 60; ++i) {
        const Pt g = G(t);
        const double h = 1e-6;
        const Pt gx = G({t.x + h, t.y});
        const Pt gy = G({t.x, t.y + h});
        const double a = (gx.x - g.x) / h, b = (gy.x - g.x) / h;
        const double c = (gx.y - g.y) / h, e = (gy.y - g.y) / h;
        const double rx = g.x - d.x, ry = g.y - d.y;
        const double det = a * e - b * c;
        const double sx = (e * rx - b * ry) / det;
        const double sy = (a * ry - c * rx) / det;
        t.x -= sx;
        t.y -= sy;
        if (std::fabs(sx) + std::fabs(sy) < 1e-14) break;
    }
    return t;
}

// The nine calibration points of a lens: driven to the nominal 3 x 3 grid
// (row 0 at the top), the spot lands at lens(X, Y), stored as floats.
tagLenPar recordFor(const Map& lens) {
    tagLenPar par;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            const float X = -40.0f + 40.0f * c;
            const float Y = 40.0f - 40.0f * r;
            const Pt m = lens({X, Y});
            par.CalCoefs.Cal3Pnts[3 * r + c] =
                tagCalData{X, Y, static_cast<float>(m.x), static_cast<float>(m.y)};
        }
    }
    return par;
}

// Targets: a 9 x 9 grid over the nominal field and a few off-grid points.
std::vector<Pt> targets() {
    std::vector<Pt> t;
    for (int r = 0; r <= 8; ++r)
        for (int c = 0; c <= 8; ++c) t.push_back({-40.0 + 10.0 * c, 40.0 - 10.0 * r});
    for (Pt p : {Pt{17.3, -28.9}, Pt{-33.7, 6.1}, Pt{2.9, 37.1}, Pt{-0.4, -0.3}}) t.push_back(p);
    return t;
}

tagKelPointF correct(Member member, const tagLenPar& par, Pt t) {
    tagKelPointF out;
    member(par, tagKelPointF{static_cast<float>(t.x), static_cast<float>(t.y)}, out);
    return out;
}

// Largest difference, in counts, between the corrected point and the drive
// the lens needs (G of the float target, in counts about the centre).
double worstDriveError(Member member, const tagLenPar& par, const Map& G) {
    double worst = 0.0;
    for (Pt t : targets()) {
        const tagKelPointF out = correct(member, par, t);
        const Pt want = G({static_cast<float>(t.x), static_cast<float>(t.y)});
        worst = std::max(worst, std::fabs(out.x - (want.x * kKc + kHalf)));
        worst = std::max(worst, std::fabs(out.y - (want.y * kKc + kHalf)));
    }
    return worst;
}

// Largest distance, in field units per axis, between where the spot lands for
// the corrected drive and the target.
double worstLanding(Member member, const tagLenPar& par, const Map& lens) {
    double worst = 0.0;
    for (Pt t : targets()) {
        const tagKelPointF out = correct(member, par, t);
        const Pt spot = lens({(out.x - kHalf) / kKc, (out.y - kHalf) / kKc});
        worst = std::max({worst, std::fabs(spot.x - t.x), std::fabs(spot.y - t.y)});
    }
    return worst;
}

double worstUncorrected(const Map& lens) {
    double worst = 0.0;
    for (Pt t : targets()) {
        const Pt spot = lens(t);
        worst = std::max({worst, std::fabs(spot.x - t.x), std::fabs(spot.y - t.y)});
    }
    return worst;
}

// Lenses whose correction lies in the model of a pair, given by that
// correction (field units in and out).  Each moves the field corners by
// between 0.3 and 2 field units.
Pt gainOffset(Pt t) { return {1.012 * t.x + 0.35, 0.991 * t.y - 0.27}; }

Pt bilinear(Pt t) {
    return {0.3 + 1.01 * t.x + 0.02 * t.y + 2e-4 * t.x * t.y,
            -0.2 + 0.99 * t.y - 0.015 * t.x + 1.5e-4 * t.x * t.y};
}

Pt bilinearPincushion(Pt t) {
    const Pt b = bilinear(t);
    return {b.x + 3e-5 * t.x * t.y * t.y, b.y - 2.5e-5 * t.x * t.x * t.y};
}

Pt biquadratic(Pt t) {
    const Pt b = bilinearPincushion(t);
    const double x2 = t.x * t.x, y2 = t.y * t.y;
    return {b.x + 1e-8 * x2 * y2 + 1e-4 * y2 + 4e-6 * x2 * t.y + 1.5e-4 * x2,
            b.y - 1.2e-8 * x2 * y2 - 1.2e-4 * x2 + 5e-6 * t.x * y2 - 2e-4 * y2};
}

Pt crossCubic(Pt t) {
    return {0.3 + 1.01 * t.x + 0.02 * t.y + 3e-5 * t.x * t.x * t.y + 2e-5 * t.x * t.y * t.y,
            -0.2 + 0.99 * t.y - 0.015 * t.x - 2.5e-5 * t.x * t.y * t.y + 1.5e-5 * t.x * t.x * t.y};
}

// The CalibPoint12 model without the linear cross terms (which would move the
// ends of the middle row off the axis): side gains, then cubic cross terms in
// counts.
Pt sideGainsCubic(Pt t) {
    const double X = t.x * (t.x > 0.0 ? 0.99 : 1.01) * kKc;
    const double Y = t.y * (t.y > 0.0 ? 1.005 : 0.985) * kKc;
    const double U = 1.002 * X + 4e-12 * X * X * Y - 3e-12 * X * Y * Y;
    const double V = 0.997 * Y - 2e-12 * X * Y * Y + 3.5e-12 * X * X * Y;
    return {U / kKc, V / kKc};
}

// The CalibPoint2 model with a symmetric shape (gains only): the fit reads
// exactly these gains off the points, and no shear or keystone.
Pt gainsPincushion(Pt t) {
    const double x = t.x * 1.013;
    const double y = t.y * 0.988;
    return {x + 1.5e-5 * x * y * y, y - 2e-5 * x * x * y};
}

// A lens as it comes (spot position for a drive): gains, a small offset, a
// keystone, a rotation of 0.1 mrad and a pincushion.  The corners move by up
// to 0.27 field units.
Pt physicalLens(Pt d) {
    const double x = 0.995 * d.x + 1e-4 * d.y + 4e-5 * d.x * d.y + 2e-6 * d.x * d.y * d.y + 0.02;
    const double y = 1.004 * d.y - 1e-4 * d.x - 3e-5 * d.x * d.y + 1.5e-6 * d.x * d.x * d.y - 0.015;
    return {x, y};
}

Map lensOf(const Map& G) {
    return [G](Pt d) { return spotOf(G, d); };
}

// Tolerance of the pairs whose model holds the lens's correction exactly.
// The measured positions are rounded to float (2^-19 field units at most
// below 64, 0.0013 counts) and so is the result (2^-8 counts at most in
// 32768 .. 65535, half of it lost); a least squares fit spreads the point
// rounding over the field with a gain of a few.  0.02 counts is ten times the
// worst rounding of a single step, and a hundredth of the smallest lens
// effect a wrong term or sign would leave (2 counts and more).
constexpr double kInModelCounts = 0.02;

}  // namespace

// ---- Pairs whose model holds the lens's correction ------------------------

TEST(FitPairs, CorrectionsInTheModelAreRecoveredAcrossTheField) {
    struct PairCase {
        const char* name;
        Fit fit;
        Member member;
        Map G;
    };
    const PairCase cases[] = {
        {"4 / CalibPoint14", &CCalibAlg::MVLSMCoef4, &CCalibAlg::CalibPoint14, gainOffset},
        {"8 / CalibPoint18", &CCalibAlg::MVLSMCoef8, &CCalibAlg::CalibPoint18, bilinear},
        {"10 / CalibPoint18", &CCalibAlg::MVLSMCoef10, &CCalibAlg::CalibPoint18,
         bilinearPincushion},
        {"18 / CalibPoint18", &CCalibAlg::MVLSMCoef18, &CCalibAlg::CalibPoint18, biquadratic},
        {"14 / CalibPoint14", &CCalibAlg::MVLSMCoef14, &CCalibAlg::CalibPoint14, crossCubic},
        {"12 / CalibPoint12", &CCalibAlg::MVLSMCoef12, &CCalibAlg::CalibPoint12, sideGainsCubic},
        {"2 / CalibPoint2", &CCalibAlg::MVLSMCoef2, &CCalibAlg::CalibPoint2, gainsPincushion},
    };
    for (const PairCase& pc : cases) {
        SCOPED_TRACE(pc.name);
        const Map lens = lensOf(pc.G);
        tagLenPar par = recordFor(lens);
        pc.fit(par);
        // Without the correction the spot misses by a field unit and more.
        EXPECT_GT(worstUncorrected(lens), 0.3);
        EXPECT_LT(worstDriveError(pc.member, par, pc.G), kInModelCounts);
    }
}

// ---- The biquadratic interpolates any lens at its nine points --------------

TEST(FitPairs, BiquadraticGivesTheNominalPositionAtEveryMeasuredPoint) {
    const Map lenses[] = {physicalLens, lensOf(sideGainsCubic), lensOf(crossCubic)};
    for (const Map& lens : lenses) {
        tagLenPar par = recordFor(lens);
        CCalibAlg::MVLSMCoef18(par);
        for (const tagCalData& p : par.CalCoefs.Cal3Pnts) {
            tagKelPointF out;
            CCalibAlg::CalibPoint18(par, tagKelPointF{p.RealX, p.RealY}, out);
            // Only the rounding of the polynomial and of the counts remain.
            EXPECT_NEAR(out.x, p.X * kKc + kHalf, 0.01) << p.X << ", " << p.Y;
            EXPECT_NEAR(out.y, p.Y * kKc + kHalf, 0.01) << p.X << ", " << p.Y;
        }
    }
}

// ---- Pairs that correct a real lens to first order -------------------------

// The physical lens moves the field by up to d = 0.27 field units, and the
// gradient of that displacement reaches g = 0.012 (a row of its Jacobian minus
// the identity: 0.005 gain, 4e-5 * 40 keystone, 2e-6 * 40^2 * 2 pincushion).
// A model that holds the lens's terms to first order leaves g * d = 0.0033
// units where it corrects, and as the fit reads its terms off the displaced
// points, another g * d: 0.007 field units (4.6 counts) bounds the miss, a
// fortieth of the uncorrected 0.27.  Each pair gets the lens whose terms its
// model has: CalibPoint2 has no offset, the 12 and 14 term models have no
// keystone, the bilinear model no pincushion.
TEST(FitPairs, PairsCorrectARealLensToFirstOrder) {
    const double firstOrder = 0.007;
    const Map centred = [](Pt d) {
        const Pt p = physicalLens(d);
        return Pt{p.x - 0.02, p.y + 0.015};
    };
    const Map noKeystone = [](Pt d) {
        const Pt p = physicalLens(d);
        return Pt{p.x - 0.02 - 4e-5 * d.x * d.y, p.y + 0.015 + 3e-5 * d.x * d.y};
    };
    const Map noPincushion = [](Pt d) {
        const Pt p = physicalLens(d);
        return Pt{p.x - 2e-6 * d.x * d.y * d.y, p.y - 1.5e-6 * d.x * d.x * d.y};
    };
    struct PairCase {
        const char* name;
        Fit fit;
        Member member;
        Map lens;
    };
    const PairCase cases[] = {
        {"6 / CalibPoint6", &CCalibAlg::MVLSMCoef6, &CCalibAlg::CalibPoint6, physicalLens},
        {"10 / CalibPoint18", &CCalibAlg::MVLSMCoef10, &CCalibAlg::CalibPoint18, physicalLens},
        {"18 / CalibPoint18", &CCalibAlg::MVLSMCoef18, &CCalibAlg::CalibPoint18, physicalLens},
        {"2 / CalibPoint2", &CCalibAlg::MVLSMCoef2, &CCalibAlg::CalibPoint2, centred},
        {"12 / CalibPoint12", &CCalibAlg::MVLSMCoef12, &CCalibAlg::CalibPoint12, noKeystone},
        {"14 / CalibPoint14", &CCalibAlg::MVLSMCoef14, &CCalibAlg::CalibPoint14, noKeystone},
        {"8 / CalibPoint18", &CCalibAlg::MVLSMCoef8, &CCalibAlg::CalibPoint18, noPincushion},
    };
    for (const PairCase& pc : cases) {
        SCOPED_TRACE(pc.name);
        tagLenPar par = recordFor(pc.lens);
        pc.fit(par);
        EXPECT_GT(worstUncorrected(pc.lens), 0.15);
        EXPECT_LT(worstLanding(pc.member, par, pc.lens), firstOrder);
    }
}

// ---- What the fits write ----------------------------------------------------

namespace {

// A record of distorted points with every coefficient at a marker value, so
// that a write outside the documented fields shows.
tagLenPar markedRecord() {
    tagLenPar par = recordFor(physicalLens);
    tagCalCoefs& c = par.CalCoefs;
    double* first = &c.LinX;
    double* last = &c.s[7];
    for (double* v = first; v <= last; ++v) *v = 7.25;
    return par;
}

bool sameBytes(const tagCalCoefs& a, const tagCalCoefs& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// Copies the named coefficients of from into to.
void takeK(tagCalCoefs& to, const tagCalCoefs& from, int first, int last) {
    for (int i = first; i <= last; ++i) to.k[i] = from.k[i];
}

void takeShape(tagCalCoefs& to, const tagCalCoefs& from) {
    to.AxisXL = from.AxisXL;
    to.AxisXR = from.AxisXR;
    to.AxisYT = from.AxisYT;
    to.AxisYB = from.AxisYB;
    to.OX = from.OX;
    to.OY = from.OY;
    to.SXL = from.SXL;
    to.SXR = from.SXR;
    to.ScaleX = from.ScaleX;
    to.SYT = from.SYT;
    to.SYB = from.SYB;
    to.ScaleY = from.ScaleY;
    to.TXL = from.TXL;
    to.TXR = from.TXR;
    to.TYT = from.TYT;
    to.TYB = from.TYB;
    to.PLX = from.PLX;
    to.PLY = from.PLY;
    to.Y2XAngle = from.Y2XAngle;
}

}  // namespace

TEST(FitVariants, WriteOnlyTheirDocumentedFields) {
    const tagLenPar before = markedRecord();
    struct Written {
        Fit fit;
        bool shape;       // the shape terms of MVLSMCoef2/6
        bool sideGains;   // SXL, SXR, SYT, SYB
        int lastK;        // k0..lastK
    };
    const Written cases[] = {
        {&CCalibAlg::MVLSMCoef2, true, false, 3},   {&CCalibAlg::MVLSMCoef4, false, false, 13},
        {&CCalibAlg::MVLSMCoef6, true, false, 11},  {&CCalibAlg::MVLSMCoef8, false, false, 17},
        {&CCalibAlg::MVLSMCoef10, false, false, 17}, {&CCalibAlg::MVLSMCoef12, false, true, 11},
        {&CCalibAlg::MVLSMCoef14, false, false, 13}, {&CCalibAlg::MVLSMCoef18, false, false, 17},
    };
    for (const Written& w : cases) {
        tagLenPar after = before;
        w.fit(after);
        tagCalCoefs expected = before.CalCoefs;
        if (w.shape) takeShape(expected, after.CalCoefs);
        if (w.sideGains) {
            expected.SXL = after.CalCoefs.SXL;
            expected.SXR = after.CalCoefs.SXR;
            expected.SYT = after.CalCoefs.SYT;
            expected.SYB = after.CalCoefs.SYB;
        }
        takeK(expected, after.CalCoefs, 0, w.lastK);
        EXPECT_TRUE(sameBytes(expected, after.CalCoefs)) << "lastK " << w.lastK;
        // Every documented coefficient was written (none keeps the marker).
        for (int i = 0; i <= w.lastK; ++i) EXPECT_NE(after.CalCoefs.k[i], 7.25) << "k" << i;
        EXPECT_EQ(after.FieldSize, before.FieldSize);
        EXPECT_EQ(after.Resolution, before.Resolution);
        EXPECT_TRUE(after.Stacks.empty());
    }
}

// The pure cubes of the 12- and 14-term models cannot be told from the linear
// terms on a 3 x 3 grid; the fits leave them at 0 and the polynomial layout
// of the bilinear fits zeroes the terms they do not use.
TEST(FitVariants, UnfittableAndUnusedTermsAreZero) {
    tagLenPar par = markedRecord();
    CCalibAlg::MVLSMCoef12(par);
    for (int i : {4, 5, 10, 11}) EXPECT_EQ(par.CalCoefs.k[i], 0.0) << "k" << i;

    par = markedRecord();
    CCalibAlg::MVLSMCoef14(par);
    for (int i : {6, 7, 12, 13}) EXPECT_EQ(par.CalCoefs.k[i], 0.0) << "k" << i;

    par = markedRecord();
    CCalibAlg::MVLSMCoef4(par);
    for (int i = 4; i <= 13; ++i) EXPECT_EQ(par.CalCoefs.k[i], 0.0) << "k" << i;

    par = markedRecord();
    CCalibAlg::MVLSMCoef8(par);
    for (int i : {0, 1, 2, 3, 4, 5, 6, 7, 12, 13}) EXPECT_EQ(par.CalCoefs.k[i], 0.0) << "k" << i;

    par = markedRecord();
    CCalibAlg::MVLSMCoef10(par);
    for (int i : {0, 1, 4, 5, 6, 7, 12, 13}) EXPECT_EQ(par.CalCoefs.k[i], 0.0) << "k" << i;
}

// A perfect lens gives the identity in every pair: the corrected point is
// the linear conversion of the input.
TEST(FitVariants, PerfectLensGivesTheLinearConversion) {
    const Map perfect = [](Pt d) { return d; };
    const struct {
        Fit fit;
        Member member;
    } pairs[] = {
        {&CCalibAlg::MVLSMCoef2, &CCalibAlg::CalibPoint2},
        {&CCalibAlg::MVLSMCoef4, &CCalibAlg::CalibPoint14},
        {&CCalibAlg::MVLSMCoef6, &CCalibAlg::CalibPoint6},
        {&CCalibAlg::MVLSMCoef8, &CCalibAlg::CalibPoint18},
        {&CCalibAlg::MVLSMCoef10, &CCalibAlg::CalibPoint18},
        {&CCalibAlg::MVLSMCoef12, &CCalibAlg::CalibPoint12},
        {&CCalibAlg::MVLSMCoef14, &CCalibAlg::CalibPoint14},
        {&CCalibAlg::MVLSMCoef18, &CCalibAlg::CalibPoint18},
    };
    for (const auto& pair : pairs) {
        tagLenPar par = recordFor(perfect);
        pair.fit(par);
        EXPECT_LT(worstDriveError(pair.member, par, perfect), kInModelCounts);
    }
}

// Coincident points make every system singular: the coefficients come out
// non-finite, and nothing crashes or throws.
TEST(FitVariants, DegeneratePointsGiveNonFiniteCoefficients) {
    const Fit fits[] = {&CCalibAlg::MVLSMCoef2,  &CCalibAlg::MVLSMCoef4,  &CCalibAlg::MVLSMCoef6,
                        &CCalibAlg::MVLSMCoef8,  &CCalibAlg::MVLSMCoef10, &CCalibAlg::MVLSMCoef12,
                        &CCalibAlg::MVLSMCoef14, &CCalibAlg::MVLSMCoef18};
    const int probe[] = {3, 3, 3, 14, 14, 1, 3, 14};  // a fitted coefficient of each
    for (int i = 0; i < 8; ++i) {
        tagLenPar par;
        for (tagCalData& p : par.CalCoefs.Cal3Pnts) p = tagCalData{0.0f, 0.0f, 0.0f, 0.0f};
        EXPECT_NO_THROW(fits[i](par));
        EXPECT_FALSE(std::isfinite(par.CalCoefs.k[probe[i]])) << "fit " << i;
    }
}
