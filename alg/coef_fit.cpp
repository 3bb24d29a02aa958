// Coefficient fitting: every correction coefficient of a lens record derived
// from its nine calibration points.
//
// Two one-term quadratic fits along the middle row and column give the
// pre-warp; the pre-warped points give the half axes, offsets, gains, shear
// and keystone terms; two one-term cubic cross fits take up what the point
// shaping still leaves.  Nothing is checked: degenerate points give
// non-finite coefficients, stored as they come, and only the shear and the
// keystone terms are protected by their 1e-6 thresholds.
#include <cmath>
#include <memory>
#include <vector>

#include "alg/shape_fit.h"
#include "math/fp.h"
#include "vrncal/calib_alg.h"
#include "vrncal/lsm_fit.h"

using vrncal_detail::stored;

namespace {

// One-term fit without intercept: the coefficient of x in y ~ c * x.
double fitOne(CMvLsmFit& fit, std::vector<double> x, std::vector<double> y) {
    fit.init(std::move(x), std::move(y));
    fit.OLS();
    return fit.Coef[1];
}

// Single-precision slope num / den, or 0 when the denominator is below 1e-6.
double guardedSlope(float num, float den) {
    if (std::fabs(den) < 1e-6) return 0.0;
    return num / den;  // float quotient, widened when stored
}

}  // namespace

namespace vrncal_detail {

void fitShapeTerms(tagLenPar& par, const tagCalData (&p)[9]) {
    tagCalCoefs& cc = par.CalCoefs;
    cc.AxisXL = std::fabs(p[3].RealX);
    cc.AxisXR = std::fabs(p[5].RealX);
    cc.AxisYT = std::fabs(p[1].RealY);
    cc.AxisYB = std::fabs(p[7].RealY);
    cc.OX = (cc.AxisXR - cc.AxisXL) * 0.5;
    cc.OY = (cc.AxisYT - cc.AxisYB) * 0.5;

    // Angle of the middle column against the middle row.
    tagCalData column[2] = {p[1], p[7]};
    tagCalData row[2] = {p[3], p[5]};
    cc.Y2XAngle = CCalibAlg::GetTwoLineAngle(column, row);
    // A (near) zero angle would give tan(-pi/2); it means "no shear".  A NaN
    // angle fails the test as well.
    const double t = std::fabs(cc.Y2XAngle) >= 1e-6 ? std::tan(cc.Y2XAngle - 1.5707963267948966) : 0.0;
    cc.PLX = t;
    cc.PLY = t;

    cc.SXL = par.ValSize / (2.0 * cc.AxisXL);
    cc.SXR = par.ValSize / (2.0 * cc.AxisXR);
    cc.ScaleX = par.ValSize / (cc.AxisXL + cc.AxisXR);
    cc.SYT = par.ValSize / (2.0 * cc.AxisYT);
    cc.SYB = par.ValSize / (2.0 * cc.AxisYB);
    cc.ScaleY = par.ValSize / (cc.AxisYT + cc.AxisYB);

    // Keystone from the corners with the shear taken out.  The x terms are
    // slopes of the left and right edges over y, the y terms slopes of the top
    // and bottom edges over x: the asymmetry is intended.
    const float u0 = stored(p[0].RealX - p[0].RealY * t);
    const float u2 = stored(p[2].RealX - p[2].RealY * t);
    const float u6 = stored(p[6].RealX - p[6].RealY * t);
    const float u8 = stored(p[8].RealX - p[8].RealY * t);
    cc.TXL = guardedSlope(u6 - u0, p[6].RealY - p[0].RealY);
    cc.TXR = guardedSlope(u8 - u2, p[8].RealY - p[2].RealY);
    cc.TYT = guardedSlope(p[0].RealY - p[2].RealY, u0 - u2);
    cc.TYB = guardedSlope(p[6].RealY - p[8].RealY, u6 - u8);
}

}  // namespace vrncal_detail

void CCalibAlg::MVLSMCoef(tagLenPar& par) { MVLSMCoef2_new(par); }

void CCalibAlg::MVLSMCoef2_new(tagLenPar& par) {
    tagCalCoefs& cc = par.CalCoefs;
    // About 30 KB of fixed arrays: kept off the stack, released on return.
    auto fit = std::make_unique<CMvLsmFit>();

    const double kc = static_cast<double>(par.Resolution) / par.FieldSize;

    // The pre-warp works on a copy; the record's points stay as measured.
    tagCalData p[9];
    for (int i = 0; i < 9; ++i) p[i] = cc.Cal3Pnts[i];

    // Quadratic fits along the middle row and the middle column, sample values
    // formed in single precision.
    {
        std::vector<double> x, y;
        for (int i : {3, 4, 5}) {
            x.push_back(static_cast<float>(p[i].RealX * p[i].RealX));
            y.push_back(static_cast<float>(p[i].X - p[i].RealX));
        }
        const double c1 = fitOne(*fit, std::move(x), std::move(y));
        cc.LinX = 1.0;
        cc.QuadX = c1;
    }
    {
        std::vector<double> x, y;
        for (int i : {1, 4, 7}) {
            x.push_back(static_cast<float>(p[i].RealY * p[i].RealY));
            y.push_back(static_cast<float>(p[i].Y - p[i].RealY));
        }
        const double c2 = fitOne(*fit, std::move(x), std::move(y));
        cc.LinY = 1.0;
        cc.QuadY = c2;
    }

    for (tagCalData& q : p) {
        q.RealX = stored(cc.QuadX * q.RealX * q.RealX + q.RealX);
        q.RealY = stored(cc.QuadY * q.RealY * q.RealY + q.RealY);
    }

    vrncal_detail::fitShapeTerms(par, p);

    // Cubic cross fits of what the shaping leaves, in device counts.  The
    // shaping reads the terms stored above.
    std::vector<double> xy2, x2y, obsX, obsY;
    for (const tagCalData& q : p) {
        const tagKelPointF warped{q.RealX, q.RealY};
        tagKelPointF s;
        ShapePoint(par, warped, s);
        const double x = s.x;
        const double y = s.y;
        xy2.push_back(x * y * y);
        obsX.push_back(q.X * kc - kc * x);
        x2y.push_back(x * y * x);
        obsY.push_back(q.Y * kc - y * kc);
    }
    const double c3 = fitOne(*fit, std::move(xy2), std::move(obsX));
    cc.k[0] = 1.0;
    cc.k[2] = c3;
    const double c4 = fitOne(*fit, std::move(x2y), std::move(obsY));
    cc.k[1] = 1.0;
    cc.k[3] = c4;
}
