// The fits paired with their corrections: each pair is fitted on a simulated
// lens from its nine calibration points, and the corrected points must land
// where the lens puts them.  (tests/data/coef_fit.cases holds the bits.)
#include <algorithm>
#include <cmath>
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
using Map = std::function<Pt(Pt)>;  // a lens: where the spot lands for a drive

// The default record: 65535 counts over 100 field units, nominal grid +-40.
constexpr double kKc = 655.35;
constexpr double kHalf = 32768.0;

// The lens whose correction is G (the drive that puts the spot on t): the
// spot for a drive d solves G(t) = d, by Newton.
Map lensOf(Map G) {
    return [G](Pt d) {
        Pt t = d;
        for (int i = 0; i < 60; ++i) {
            const double h = 1e-6;
            const Pt g = G(t), gx = G({t.x + h, t.y}), gy = G({t.x, t.y + h});
            const double a = (gx.x - g.x) / h, b = (gy.x - g.x) / h;
            const double c = (gx.y - g.y) / h, e = (gy.y - g.y) / h;
            const double sx = (e * (g.x - d.x) - b * (g.y - d.y)) / (a * e - b * c);
            const double sy = (a * (g.y - d.y) - c * (g.x - d.x)) / (a * e - b * c);
            t = {t.x - sx, t.y - sy};
            if (std::fabs(sx) + std::fabs(sy) < 1e-14) break;
        }
        return t;
    };
}

// Driven to the nominal 3 x 3 grid (row 0 at the top), the spot lands at
// lens(X, Y), measured as floats.
tagLenPar recordFor(const Map& lens) {
    tagLenPar par;
    for (int i = 0; i < 9; ++i) {
        const float X = -40.0f + 40.0f * (i % 3), Y = 40.0f - 40.0f * (i / 3);
        const Pt m = lens({X, Y});
        par.CalCoefs.Cal3Pnts[i] = {X, Y, static_cast<float>(m.x), static_cast<float>(m.y)};
    }
    return par;
}

// Largest miss per axis, in field units, of the spot for the corrected drive
// (member) or for the plain drive (no member), over a 9 x 9 grid of targets
// across the field and a few points off it.
double worstMiss(const Map& lens, const tagLenPar* par = nullptr, Member member = nullptr,
                 int side = 9) {
    // Off the grid lines too, on the full grid.
    std::vector<Pt> targets;
    if (side == 9)
        for (Pt t : {Pt{17.3, -28.9}, Pt{-33.7, 6.1}, Pt{2.9, 37.1}, Pt{-0.4, -0.3}}) targets.push_back(t);
    for (int i = 0; i < side * side; ++i)
        targets.push_back({-40.0 + 80.0 / (side - 1) * (i % side), 40.0 - 80.0 / (side - 1) * (i / side)});
    double worst = 0.0;
    for (Pt t : targets) {
        tagKelPointF in{static_cast<float>(t.x), static_cast<float>(t.y)};
        Pt drive = {in.x, in.y};
        if (member) {
            tagKelPointF out;
            member(*par, in, out);
            drive = {(out.x - kHalf) / kKc, (out.y - kHalf) / kKc};
        }
        const Pt spot = lens(drive);
        worst = std::max({worst, std::fabs(spot.x - in.x), std::fabs(spot.y - in.y)});
    }
    return worst;
}

// Corrections that lie in the model of one pair (field units in and out).
// Each lens moves the field corners by 0.3 to 2 field units.
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
// CalibPoint12's model without the linear cross terms, which would move the
// ends of the middle row off the axis.
Pt sideGainsCubic(Pt t) {
    const double X = t.x * (t.x > 0.0 ? 0.99 : 1.01) * kKc;
    const double Y = t.y * (t.y > 0.0 ? 1.005 : 0.985) * kKc;
    return {(1.002 * X + 4e-12 * X * X * Y - 3e-12 * X * Y * Y) / kKc,
            (0.997 * Y - 2e-12 * X * Y * Y + 3.5e-12 * X * X * Y) / kKc};
}
// CalibPoint2's model with a symmetric shape: the fit reads exactly these
// gains off the points, and no shear or keystone.
Pt gainsPincushion(Pt t) {
    const double x = t.x * 1.013, y = t.y * 0.988;
    return {x + 1.5e-5 * x * y * y, y - 2e-5 * x * x * y};
}

// Quadratic distortion and keystone, up to 1.35 field units at the corners:
// the main fit's model holds it to first order (it applies no offset and has
// no rotation term).
Pt quadraticKeystone(Pt d) {
    return {d.x + 5e-4 * d.x * d.x + 3e-4 * d.x * d.y, d.y - 4e-4 * d.y * d.y + 2e-4 * d.x * d.y};
}

// A lens as it comes (spot for a drive): gains, offset, keystone, a rotation
// of 0.1 mrad and pincushion; the corners move by up to 0.27 field units.
Pt physicalLens(Pt d) {
    return {0.995 * d.x + 1e-4 * d.y + 4e-5 * d.x * d.y + 2e-6 * d.x * d.y * d.y + 0.02,
            1.004 * d.y - 1e-4 * d.x - 3e-5 * d.x * d.y + 1.5e-6 * d.x * d.x * d.y - 0.015};
}

}  // namespace

// When the lens's correction lies in a pair's model, the pair recovers it.
// The measured positions are rounded to float (2^-19 field units at most
// below 64) and so is the result (2^-9 counts); a fit through nine points
// spreads the point rounding with a gain of a few.  3e-5 field units (0.02
// counts) is ten times the worst single rounding, and a hundredth of the
// smallest effect a wrong term or sign would leave.  A perfect lens lies in
// every model (and is the one such lens here for CalibPoint6, whose fitted
// shape terms follow the lens).
TEST(FitPairs, CorrectionsInTheModelAreRecoveredAcrossTheField) {
    const double inModel = 3e-5;
    const Map perfect = [](Pt t) { return t; };
    const struct {
        const char* name;
        Fit fit;
        Member member;
        Map G;
    } cases[] = {
        {"4 / 14", &CCalibAlg::MVLSMCoef4, &CCalibAlg::CalibPoint14, gainOffset},
        {"8 / 18", &CCalibAlg::MVLSMCoef8, &CCalibAlg::CalibPoint18, bilinear},
        {"10 / 18", &CCalibAlg::MVLSMCoef10, &CCalibAlg::CalibPoint18, bilinearPincushion},
        {"18 / 18", &CCalibAlg::MVLSMCoef18, &CCalibAlg::CalibPoint18, biquadratic},
        {"14 / 14", &CCalibAlg::MVLSMCoef14, &CCalibAlg::CalibPoint14, crossCubic},
        {"12 / 12", &CCalibAlg::MVLSMCoef12, &CCalibAlg::CalibPoint12, sideGainsCubic},
        {"2 / 2", &CCalibAlg::MVLSMCoef2, &CCalibAlg::CalibPoint2, gainsPincushion},
        {"6 / 6", &CCalibAlg::MVLSMCoef6, &CCalibAlg::CalibPoint6, perfect},
    };
    for (const auto& pc : cases) {
        SCOPED_TRACE(pc.name);
        for (const Map& lens : {lensOf(pc.G), perfect}) {
            tagLenPar par = recordFor(lens);
            pc.fit(par);
            EXPECT_LT(worstMiss(lens, &par, pc.member), inModel);
        }
        if (pc.member != &CCalibAlg::CalibPoint6) {
            EXPECT_GT(worstMiss(lensOf(pc.G)), 0.3);
        }
    }
}

// The physical lens moves the field by up to d = 0.27 field units, and the
// gradient of that displacement reaches g = 0.012 (a row of its Jacobian minus
// the identity: 0.005 gain, 4e-5 * 40 keystone, 2e-6 * 40^2 * 2 pincushion).
// A model that holds the lens's terms to first order leaves g * d = 0.0033
// units, and as the fit reads its terms off the displaced points, another
// g * d: 0.007 field units (4.6 counts) bounds the miss, a fortieth of the
// uncorrected 0.27.  Each pair gets the lens whose terms its model has:
// CalibPoint2 has no offset, the 12 and 14 term models no keystone, the
// bilinear model no pincushion.
TEST(FitPairs, PairsCorrectARealLensToFirstOrder) {
    const Map centred = [](Pt d) {
        const Pt p = physicalLens(d);
        return Pt{p.x - 0.02, p.y + 0.015};
    };
    const Map noKeystone = [centred](Pt d) {
        const Pt p = centred(d);
        return Pt{p.x - 4e-5 * d.x * d.y, p.y + 3e-5 * d.x * d.y};
    };
    const Map noPincushion = [](Pt d) {
        const Pt p = physicalLens(d);
        return Pt{p.x - 2e-6 * d.x * d.y * d.y, p.y - 1.5e-6 * d.x * d.x * d.y};
    };
    const struct {
        const char* name;
        Fit fit;
        Member member;
        Map lens;
    } cases[] = {
        {"6 / 6", &CCalibAlg::MVLSMCoef6, &CCalibAlg::CalibPoint6, physicalLens},
        {"10 / 18", &CCalibAlg::MVLSMCoef10, &CCalibAlg::CalibPoint18, physicalLens},
        {"18 / 18", &CCalibAlg::MVLSMCoef18, &CCalibAlg::CalibPoint18, physicalLens},
        {"2 / 2", &CCalibAlg::MVLSMCoef2, &CCalibAlg::CalibPoint2, centred},
        {"12 / 12", &CCalibAlg::MVLSMCoef12, &CCalibAlg::CalibPoint12, noKeystone},
        {"14 / 14", &CCalibAlg::MVLSMCoef14, &CCalibAlg::CalibPoint14, noKeystone},
        {"8 / 18", &CCalibAlg::MVLSMCoef8, &CCalibAlg::CalibPoint18, noPincushion},
    };
    for (const auto& pc : cases) {
        SCOPED_TRACE(pc.name);
        tagLenPar par = recordFor(pc.lens);
        pc.fit(par);
        EXPECT_GT(worstMiss(pc.lens), 0.15);
        EXPECT_LT(worstMiss(pc.lens, &par, pc.member), 0.007);
    }
}

// The main fit holds quadratic distortion and keystone to first order.  At
// the nine nodes the second-order remainder it cannot represent (terms like
// 2a^2 x^3 and 3ae x^2 y) peaks at 3.03 counts, at (-40, -40); 4 counts
// (0.0061 field units) bounds it.  Uncorrected, the nodes miss by up to 1.28 per axis.
TEST(FitPairs, MainFitCorrectsQuadraticDistortionAndKeystone) {
    tagLenPar par = recordFor(quadraticKeystone);
    CCalibAlg::MVLSMCoef(par);
    EXPECT_GT(worstMiss(quadraticKeystone, nullptr, nullptr, 3), 1.2);
    EXPECT_LT(worstMiss(quadraticKeystone, &par, &CCalibAlg::CalibPoint2_new, 3), 0.0061);
}
