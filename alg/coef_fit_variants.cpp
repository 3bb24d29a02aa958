// The fitting variants: each fills the coefficients of one member of the
// alternative correction family from the nine calibration points Cal3Pnts.
// The models and the fields each variant writes are documented in
// calib_alg.h.
//
// Every fit maps where the spot must land (the measured position RealX, RealY,
// the explanatory value) to where the head was driven to put it there (the
// nominal position X, Y, the observation).  Correcting a requested point p
// then drives the head to where, by the measurements, the spot lands on p.
//
// Nothing is checked: degenerate points give infinities or NaNs in the
// coefficients, which are stored as they come.
#include <cmath>
#include <cstddef>
#include <vector>

#include "alg/shape_fit.h"
#include "vrncal/calib_alg.h"
#include "vrncal/lsm_fit.h"
#include "vrncal/solver.h"


namespace {

constexpr int kPoints = 9;

double countsPerUnit(const tagLenPar& par) {
    return static_cast<double>(par.Resolution) / par.FieldSize;
}

// Least squares without intercept of obs on the N explanatory values of each
// of the nine rows; the result goes to c[0..N-1].
template <std::size_t N>
void fitNine(CMvLsmFit& fit, const double (&rows)[kPoints][N], const double (&obs)[kPoints],
             double (&c)[N]) {
    std::vector<double> x;
    x.reserve(kPoints * N);
    for (const auto& row : rows) x.insert(x.end(), row, row + N);
    fit.init(x, std::vector<double>(obs, obs + kPoints));
    fit.OLS();
    for (std::size_t j = 0; j < N; ++j) c[j] = fit.Coef[j + 1];
}

// Copies the explanatory values of one row.
template <std::size_t N>
void setRow(double (&row)[N], const double (&values)[N]) {
    for (std::size_t j = 0; j < N; ++j) row[j] = values[j];
}

// Fits both axes over the nine points: terms(i, rowX, rowY) writes the N
// explanatory values of point i for the x fit and for the y fit; the
// observations are the nominal coordinates times `scale`.
template <std::size_t N, typename Terms>
void fitAxes(const tagLenPar& par, double scale, Terms&& terms, double (&cx)[N], double (&cy)[N]) {
    double rowsX[kPoints][N];
    double obsX[kPoints];
    double rowsY[kPoints][N];
    double obsY[kPoints];
    for (int i = 0; i < kPoints; ++i) {
        const tagCalData& p = par.CalCoefs.Cal3Pnts[i];
        terms(i, rowsX[i], rowsY[i]);
        obsX[i] = p.X * scale;
        obsY[i] = p.Y * scale;
    }
    CMvLsmFit fit;
    fitNine(fit, rowsX, obsX, cx);
    fitNine(fit, rowsY, obsY, cy);
}

// The shape terms of the main fit, read off the raw points: the shape
// correction of CalibPoint2 and CalibPoint6 has no pre-warp in front of it.
void fitShape(tagLenPar& par) {
    tagCalData p[kPoints];
    for (int i = 0; i < kPoints; ++i) p[i] = par.CalCoefs.Cal3Pnts[i];
    vrncal_detail::fitShapeTerms(par, p);
}

// The measured points shaped with the terms fitShape has stored.
void shapedPoints(const tagLenPar& par, double (&x)[kPoints], double (&y)[kPoints]) {
    for (int i = 0; i < kPoints; ++i) {
        const tagCalData& p = par.CalCoefs.Cal3Pnts[i];
        tagKelPointF s;
        s.x = p.RealX;
        s.y = p.RealY;
        CCalibAlg::ShapePoint(par, s, s);
        x[i] = s.x;
        y[i] = s.y;
    }
}

// Writes zero into k[first..last] step 1.
void clearCoefs(tagLenPar& par, int first, int last) {
    for (int i = first; i <= last; ++i) par.CalCoefs.k[i] = 0.0;
}

// The bilinear map of MVLSMCoef8 (N = 4) or with the pincushion term of each
// axis as well (N = 5), in field units as CalibPoint18 evaluates them; every
// other coefficient of k0..k17 is cleared.
template <std::size_t N>
void fitBilinear(tagLenPar& par) {
    static_assert(N == 4 || N == 5, "the bilinear map, with or without the pincushion term");
    double cx[N];
    double cy[N];
    fitAxes(par, 1.0, [&par](int i, double (&rx)[N], double (&ry)[N]) {
        const double x = par.CalCoefs.Cal3Pnts[i].RealX;
        const double y = par.CalCoefs.Cal3Pnts[i].RealY;
        const double xs[5] = {1.0, x, y, x * y, x * y * y};
        const double ys[5] = {1.0, y, x, x * y, x * x * y};
        for (std::size_t j = 0; j < N; ++j) {
            rx[j] = xs[j];
            ry[j] = ys[j];
        }
    }, cx, cy);

    // Where each term sits among CalibPoint18's coefficients.
    constexpr int slotX[5] = {16, 14, 10, 8, 2};
    constexpr int slotY[5] = {17, 15, 11, 9, 3};
    clearCoefs(par, 0, 17);
    for (std::size_t j = 0; j < N; ++j) {
        par.CalCoefs.k[slotX[j]] = cx[j];
        par.CalCoefs.k[slotY[j]] = cy[j];
    }
}

}  // namespace

void CCalibAlg::MVLSMCoef2(tagLenPar& par) {
    const double k = countsPerUnit(par);
    fitShape(par);

    double x[kPoints];
    double y[kPoints];
    shapedPoints(par, x, y);

    // The pincushion cross terms in counts, as the main fit's last two fits.
    double rows3[kPoints][1];
    double obs3[kPoints];
    double rows4[kPoints][1];
    double obs4[kPoints];
    for (int i = 0; i < kPoints; ++i) {
        const tagCalData& p = par.CalCoefs.Cal3Pnts[i];
        rows3[i][0] = x[i] * y[i] * y[i];
        obs3[i] = p.X * k - k * x[i];
        rows4[i][0] = x[i] * y[i] * x[i];
        obs4[i] = p.Y * k - y[i] * k;
    }
    CMvLsmFit fit;
    double c3[1];
    double c4[1];
    fitNine(fit, rows3, obs3, c3);
    fitNine(fit, rows4, obs4, c4);

    double* kk = par.CalCoefs.k;
    kk[0] = 1.0;
    kk[2] = c3[0];
    kk[1] = 1.0;
    kk[3] = c4[0];
}

void CCalibAlg::MVLSMCoef4(tagLenPar& par) {
    double cx[2];
    double cy[2];
    fitAxes(par, countsPerUnit(par), [&par](int i, double (&rx)[2], double (&ry)[2]) {
        const tagCalData& p = par.CalCoefs.Cal3Pnts[i];
        setRow(rx, {1.0, static_cast<double>(p.RealX)});
        setRow(ry, {1.0, static_cast<double>(p.RealY)});
    }, cx, cy);

    double* kk = par.CalCoefs.k;
    kk[0] = cx[0];
    kk[2] = cx[1];
    kk[1] = cy[0];
    kk[3] = cy[1];
    clearCoefs(par, 4, 13);
}

void CCalibAlg::MVLSMCoef6(tagLenPar& par) {
    const double k = countsPerUnit(par);
    fitShape(par);

    double x[kPoints];
    double y[kPoints];
    shapedPoints(par, x, y);

    double cx[6];
    double cy[6];
    fitAxes(par, k, [&x, &y](int i, double (&rx)[6], double (&ry)[6]) {
        const double xi = x[i];
        const double yi = y[i];
        setRow(rx, {1.0, xi, yi, xi * yi * yi, xi * xi, yi * yi});
        setRow(ry, {1.0, yi, xi, xi * xi * yi, yi * yi, xi * xi});
    }, cx, cy);

    // Column j of the x fit is k[2j], of the y fit k[2j + 1].
    for (int j = 0; j < 6; ++j) {
        par.CalCoefs.k[2 * j] = cx[j];
        par.CalCoefs.k[2 * j + 1] = cy[j];
    }
}

void CCalibAlg::MVLSMCoef8(tagLenPar& par) { fitBilinear<4>(par); }

void CCalibAlg::MVLSMCoef10(tagLenPar& par) { fitBilinear<5>(par); }

void CCalibAlg::MVLSMCoef12(tagLenPar& par) {
    tagCalCoefs& c = par.CalCoefs;
    const tagCalData* p = c.Cal3Pnts;
    const double k = countsPerUnit(par);

    // Side gains: nominal over measured at the four ends of the middle row and
    // column, so that those points reach the polynomial at their nominal
    // counts.
    c.SXL = std::fabs(static_cast<double>(p[3].X)) / std::fabs(static_cast<double>(p[3].RealX));
    c.SXR = std::fabs(static_cast<double>(p[5].X)) / std::fabs(static_cast<double>(p[5].RealX));
    c.SYT = std::fabs(static_cast<double>(p[1].Y)) / std::fabs(static_cast<double>(p[1].RealY));
    c.SYB = std::fabs(static_cast<double>(p[7].Y)) / std::fabs(static_cast<double>(p[7].RealY));

    double cu[4];
    double cv[4];
    fitAxes(par, k, [p, &c, k](int i, double (&ru)[4], double (&rv)[4]) {
        const double x = p[i].RealX;
        const double y = p[i].RealY;
        const double X = x * (x > 0.0 ? c.SXR : c.SXL) * k;
        const double Y = y * (y > 0.0 ? c.SYT : c.SYB) * k;
        setRow(ru, {X, Y, X * X * Y, X * Y * Y});
        setRow(rv, {Y, X, X * Y * Y, X * X * Y});
    }, cu, cv);

    // On a 3 x 3 grid a pure cube cannot be told from the linear term (on the
    // abscissae -a, 0, a, x^3 = a^2 x), so those four stay 0.
    double* kk = c.k;
    kk[0] = cu[0];
    kk[2] = cu[1];
    kk[6] = cu[2];
    kk[8] = cu[3];
    kk[4] = 0.0;
    kk[10] = 0.0;
    kk[1] = cv[0];
    kk[3] = cv[1];
    kk[7] = cv[2];
    kk[9] = cv[3];
    kk[5] = 0.0;
    kk[11] = 0.0;
}

void CCalibAlg::MVLSMCoef14(tagLenPar& par) {
    const double k = countsPerUnit(par);
    double cx[5];
    double cy[5];
    fitAxes(par, k, [&par](int i, double (&rx)[5], double (&ry)[5]) {
        const double x = par.CalCoefs.Cal3Pnts[i].RealX;
        const double y = par.CalCoefs.Cal3Pnts[i].RealY;
        setRow(rx, {1.0, x, y, x * x * y, x * y * y});
        setRow(ry, {1.0, y, x, x * y * y, x * x * y});
    }, cx, cy);

    // The pure cubes stay 0 for the reason given in MVLSMCoef12.
    double* kk = par.CalCoefs.k;
    kk[0] = cx[0];
    kk[2] = cx[1];
    kk[4] = cx[2];
    kk[8] = cx[3];
    kk[10] = cx[4];
    kk[6] = 0.0;
    kk[12] = 0.0;
    kk[1] = cy[0];
    kk[3] = cy[1];
    kk[5] = cy[2];
    kk[9] = cy[3];
    kk[11] = cy[4];
    kk[7] = 0.0;
    kk[13] = 0.0;
}

void CCalibAlg::MVLSMCoef18(tagLenPar& par) {
    // Nine points, nine unknowns per axis: the biquadratic through the points,
    // solved exactly.  Each row holds the terms in the order CalibPoint18 sums
    // them, followed by the nominal coordinate.
    std::vector<std::vector<double>> mx(kPoints);
    std::vector<std::vector<double>> my(kPoints);
    for (int i = 0; i < kPoints; ++i) {
        const tagCalData& p = par.CalCoefs.Cal3Pnts[i];
        const double x = p.RealX;
        const double y = p.RealY;
        mx[i] = {x * x * y * y, x * y * y, y * y, x * x * y, x * y, y, x * x, x, 1.0, p.X};
        my[i] = {x * x * y * y, x * x * y, x * x, x * y * y, x * y, x, y * y, y, 1.0, p.Y};
    }
    MVLPkg solver;
    const std::vector<double> cx = solver.Gauss(mx);
    const std::vector<double> cy = solver.Gauss(my);
    for (int j = 0; j < kPoints; ++j) {
        par.CalCoefs.k[2 * j] = cx[j];
        par.CalCoefs.k[2 * j + 1] = cy[j];
    }
}
