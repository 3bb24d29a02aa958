// CCalibAlg: the stateless calibration algorithms.
//
// Grid location, point correction, box correction, coefficient fitting,
// calibration point editing and the alternative correction family.  Every
// member is static and reads only its arguments; nothing allocates on the
// per-point path (CalibLSM, CalibPoint2_new, CalibManual, the CalibPointNN
// family, GetGridDR, ShapePoint, GetScaleValue).
//
// Precision: point coordinates are floats, everything else is double.  A value
// that the comments call "stored" is rounded to a 32-bit float exactly there;
// those roundings are part of the behaviour that existing calibrations rely on.
#ifndef VRNCAL_CALIB_ALG_H
#define VRNCAL_CALIB_ALG_H

#include <vector>

#include "vrncal/export.h"
#include "vrncal/records.h"

// One precomputed grid cell: its four corner records in row-major order,
// Corner[0] top-left (P00), Corner[1] top-right (P01), Corner[2] bottom-left
// (P10), Corner[3] bottom-right (P11).
struct tagGridCell {
    tagCalData Corner[4];
};

// A list of precomputed four-corner cells, the cell-list form of a stack.
// Size is the points per side of the grid the cells were cut from; it fixes
// the nominal pitch ValSize / (Size - 1) used for interpolation.
struct tagStkGrid {
    int Size = 0;
    std::vector<tagGridCell> Cells;
};

// One cell of the grid-wise fit (MVLSolve).  Inside the cell, whose nominal
// top-left corner P00 is (X0, Y0) and bottom-right corner P11 is (X1, Y1), the
// measured position is a bilinear function of the offsets from P00,
//     u = X - X0,  v = Y - Y0  (in double; v is negative inside the cell):
//     RealX = kx[0] + kx[1]*u + kx[2]*v + kx[3]*u*v
//     RealY = ky[0] + ky[1]*u + ky[2]*v + ky[3]*u*v
// summed left to right.  It reproduces the measured positions of the four
// corners: kx[0], ky[0] are those of P00 exactly.
struct tagMVLCoef {
    float X0 = 0.0f;  // nominal X of P00
    float Y0 = 0.0f;  // nominal Y of P00
    float X1 = 0.0f;  // nominal X of P11
    float Y1 = 0.0f;  // nominal Y of P11
    double kx[4] = {};
    double ky[4] = {};
};

// The per-cell coefficients of one stack, row-major over its (Size-1)^2 cells:
// the cell of row r and column c (top-left point Points[r*Size + c]) is
// Cells[r*(Size-1) + c].
struct tagStkMVLCoef {
    int Size = 0;  // points per side of the stack the cells come from
    std::vector<tagMVLCoef> Cells;
};

class VRNCAL_API CCalibAlg {
public:
    CCalibAlg() = default;
    ~CCalibAlg() = default;

    // ---- Grid location -------------------------------------------------
    //
    // A stack is a square grid of Size x Size points, row-major, x growing
    // along a row and y falling from row to row; a cell is named by its
    // top-left point.  A stack whose Points hold fewer than Size x Size
    // entries is treated as a grid without cells: nothing is read past the
    // end of Points.

    // Interpolates, inside the grid cell that holds pt, the measured position
    // that belongs to pt, and returns through dev the deviation measured minus
    // nominal and through ratio the ratio of pt to the cell's interpolated
    // cross point.  The point is first clamped to +-ValSize/2 (y first, then
    // x; clamped values stored as floats), so a point beyond the field takes
    // the deviation of the nearest field edge.  The first cell in row-major
    // order whose nominal corners enclose it wins, bounds inclusive on all
    // sides (a point on a shared edge belongs to the upper or left cell).  The
    // four edges are interpolated in float with the nominal pitch
    // h = float(ValSize / (Size - 1)); the line through the left and right
    // edge points is intersected with the line through the top and bottom
    // ones.  Without a cell (or with Size <= 1) ratio stays (1, 1) and dev
    // (0, 0).  Always returns 1.
    static int GetGridDR(const tagLenPar& par, const tagKelPointF& pt, tagKelPointF& ratio,
                         tagKelPointF& dev, const tagStack& stack);

    // The ratio pair of GetGridDR alone: the same clamp, cell and pitch, with
    // the interpolation and the intersection carried out in double.  The
    // result is both returned and written to ratio.  (1, 1) for no cell or
    // Size < 2.
    static tagKelPointF GetGridSR(const tagLenPar& par, const tagKelPointF& pt, tagKelPointF& ratio,
                                  const tagStack& stack);

    // The same ratio pair found by walking precomputed cells: after the same
    // clamp, the first cell with Corner[0].X <= x < Corner[3].X and
    // Corner[3].Y < y <= Corner[0].Y (inclusive at the top-left, strict at the
    // bottom-right), interpolated with the pitch ValSize / (grid.Size - 1).
    // (1, 1) for an empty list, no match or grid.Size < 2.
    static tagKelPointF GetGridSR(const tagLenPar& par, const tagKelPointF& pt, tagStkGrid& grid);

    // Classifies pt against the grid, including points outside +-half: row and
    // col are -1 before the first row/column and Size beyond the last.  Inside
    // the field the cell bounds are inclusive at the top-left and strict at the
    // bottom-right (the opposite of GetGridDR, so a point on a shared edge
    // lands in the lower or right cell).  Returns 1, or 0 when a point inside
    // the field falls in no cell (row and col then stay -1).
    static int GetPntColRow(const tagKelPointF& pt, double half, const tagStack& stack, int& row,
                            int& col);

    // 0: x >= 0, y >= 0; 1: x < 0, y >= 0; 2: x < 0, y < 0; 3: x >= 0, y < 0.
    // Zero and NaN count as non-negative.
    static int GetQuadrant(tagKelPointF pt);

    // Inclusive axis-aligned test against corners[0].X .. corners[1].X and
    // corners[3].Y .. corners[0].Y (corner 2 is not read).  False for a null
    // pointer.
    static bool PointInRect(tagCalData* corners, tagKelPointF pt);

    // Even-odd crossing test over the quadrilateral whose vertices are the X, Y
    // members of corners[0..3], taken in that order (so a cell in row-major
    // corner order is a crossed quadrilateral).  Non-strict comparisons: the
    // top and right edges count as inside.  Returns 1 inside, else 0 (also
    // for a null pointer).
    static int PntInRect(tagCalData* corners, tagKelPointF pt);

    // The same test over quad[0..3] with strict comparisons: the bottom and
    // left edges count as inside.  0 for fewer than four points; further
    // points are ignored.
    static int PntInRect(const std::vector<tagKelPointF>& quad, tagKelPointF pt);

    // Crossing test against the short segment from pt to (-1e-7, pt.y), not a
    // ray to infinity, so edges beyond the y axis are never reached.  Returns
    // 2 inside, 1 on edge 0 or 3, 0 outside or on another edge.
    static int PntInPolygon(const std::vector<tagKelPointF>& polygon, tagKelPointF pt);

    // Tests whether pt moved by offset (pt + offset, in float) falls inside
    // the quadrilateral cell[0..3] (the corner form of PntInRect, vertices in
    // order around the cell) and lies in the given quadrant of the field
    // (GetQuadrant of the moved point).  A negative quadrant accepts every
    // quadrant.  Returns 1 when both hold, 0 otherwise (also for a cell of
    // fewer than four records).  par is not read.
    static int GetGridAdd(const tagLenPar& par, const tagKelPointF& pt, tagKelPointF offset,
                          const std::vector<tagCalData>& cell, int quadrant);

    // ---- Point correction (grid mode) -----------------------------------
    //
    // Arithmetic is in double; "stored" (float(...)) marks the places where a
    // value is rounded to a 32-bit float, which existing calibrations rely on.

    // Forwards to CalibPoint2_new; returns its result (1).
    static int CalibLSM(const tagLenPar& par, const tagKelPointF& in, tagKelPointF& out);

    // The grid-mode correction of a field point p to device counts:
    //   kc = Resolution / FieldSize
    //   t  = (float(QuadX*px*px + px), float(QuadY*py*py + py)), then ShapePoint(t)
    //   o  = (float(k2*ty*ty*tx + kc*tx), float(k3*tx*tx*ty + kc*ty))
    //   (dx, dy) = float sum over all stacks of the GetGridDR deviation at p,
    //              mirrored by XInvert/YInvert on the way in and back out
    //              (with XYFlip set, XInvert acts on y, YInvert on x, and the
    //              axes trade ScaleX/ScaleY as their gains)
    //   ox = float(ox - dx*kc*gainX), or float(ox - 0.25*dx*kc*gainX) when
    //        |dx| <= 0.001; likewise y
    //   grid == 1: ox *= float(GetScaleValue(LineCount, px, XT, XA, XR)), in
    //              float; likewise y with YT, YR (read at p, not mirrored)
    //   ox += float(HalfResolution), in float; then clamped to 0 .. Resolution
    //        (infinities land on the limits, NaN passes)
    // Allocates nothing.  Always returns 1.
    static int CalibPoint2_new(const tagLenPar& par, tagKelPointF in, tagKelPointF& out);

    // Analytic shape correction of (x, y):
    //   x1 = float(x - PLX*y)
    //   x2 = float(TXL*y*x1/AxisXL + x1) for x1 < 0, float(x1 - TXR*y*x1/AxisXR)
    //        for x1 > 0, else x1
    //   y2 = float(y + x1*TYB*y/AxisYB) for y < 0, float(y - x1*TYT*y/AxisYT)
    //        for y > 0, else y      (driven by x1, not x2)
    //   out = (float(x2*ScaleX), float(y2*ScaleY))
    // No denominator is tested.  in and out may be the same object.  Always
    // returns 1.
    static int ShapePoint(const tagLenPar& par, const tagKelPointF& in, tagKelPointF& out);

    // Clamped piecewise-linear lookup of gain at v over the ascending
    // breakpoints pos[0 .. count-1]: gain[0] at or below pos[0],
    // gain[count-1] at or above the last, otherwise interpolated in the first
    // interval with pos[i] <= v < pos[i+1].  1.0 when count is outside
    // 1 .. 99 (a full table of 100 rows is off), when |v| < 1e-6 or v is NaN,
    // when no interval matches, and for null tables.  aux is never read.
    static double GetScaleValue(int count, double v, const double* pos, const double* aux,
                                const double* gain);

    // Edge gains growing linearly from 1 at the centre to SXL/SXR/SYT/SYB at a
    // distance of ValSize: for x < -1, float((SXL - 1)*|x|/ValSize + 1), for
    // x > 1 the same with SXR, else exactly 1; y likewise with SYB (below) and
    // SYT (above).  Not used by the correction itself.
    static tagKelPointF getPointScale(const tagLenPar& par, tagKelPointF pt);

    // ---- Box correction --------------------------------------------------

    // The manual (box) correction of a field point to device counts, driven by
    // the Box* members and the LEN_* flags:
    //   x0 = float(x*BoxScaleX/100),  y0 = float(y*BoxScaleY/100)
    //   x1 = float(x0 - (1 - BoxSkewX)*y0),  y1 = float(y0 - x0*(1 - BoxSkewY))
    //   x2 = float(x1 - 2*((1 - BoxTrapX)*y1*x1)/FieldSize), y2 likewise with BoxTrapY
    //   X = x2*kc,  Y = y2*kc            (kc = Resolution / FieldSize, double)
    //   ox = float((BoxBarrelX - 1)*X*Y*Y/HalfResolutionSq + X), oy likewise
    //   BoxGrid == 1: ox = float(fx)*ox with fx = GetScaleValue(BoxLineCount,
    //        gx, BoxXT, BoxXA, BoxXR) at the mirrored input point g (LEN_XINVERT
    //        and LEN_YINVERT, exchanged by LEN_XYFLIP); likewise y
    //   then centred and clamped as in CalibPoint2_new.
    // in is only read (in and out may be the same object).  Always returns 1.
    static int CalibManual(const tagLenPar& par, tagKelPointF& in, tagKelPointF& out);

    // ---- Coefficient fitting ---------------------------------------------

    // Fits the coefficient block from the nine points Cal3Pnts; calls
    // MVLSMCoef2_new.
    static void MVLSMCoef(tagLenPar& par);
    static void MVLSMCoef2_new(tagLenPar& par);

    // Alternative fits.  Each fills, from the nine points Cal3Pnts, the
    // coefficients of one member of the alternative correction family (below)
    // and writes only the fields it lists; the record is otherwise unchanged.
    // Nothing is called by the library itself.
    //
    // All of them fit the same direction: the explanatory values are the
    // measured positions (x, y) = (RealX, RealY) of the points, the observed
    // values their nominal positions (X, Y), which is where the head was
    // driven.  Correcting a requested point therefore drives the head to where
    // the spot lands on that point.  Sums and products are in double on the
    // float values widened; kc = Resolution / FieldSize.  Least squares fits
    // use CMvLsmFit over the nine points without intercept (a constant term is
    // a column of ones).  Degenerate points (coincident, collinear, a zero
    // measured half axis, a zero FieldSize) give infinities or NaNs in the
    // coefficients; nothing is checked and nothing is thrown.
    //
    // The pure cubes x^3 and y^3 cannot be fitted from a 3 x 3 grid: on its
    // three abscissae -a, 0, a, x^3 = a^2 * x, so they would make the normal
    // matrix singular.  The variants for CalibPoint12 and CalibPoint14 store
    // those coefficients as 0; a host that knows them may set them by hand.

    // For CalibPoint2.  The shape terms are read off the raw points exactly as
    // MVLSMCoef reads them off its pre-warped ones (CalibPoint2 has no
    // pre-warp): AxisXL = |RealX| of point 3, AxisXR of point 5, AxisYT =
    // |RealY| of point 1, AxisYB of point 7; OX, OY; Y2XAngle and the shear
    // PLX = PLY; SXL, SXR, ScaleX, SYT, SYB, ScaleY; TXL, TXR, TYT, TYB.  Then,
    // with (x, y) the point shaped by ShapePoint with those terms, two one-term
    // fits of the pincushion terms in counts:
    //     X*kc - kc*x = k2 * x*y*y        Y*kc - y*kc = k3 * x*y*x
    // and k0 = k1 = 1.0.  Writes the shape terms above and k0..k3; leaves
    // LinX, QuadX, LinY, QuadY alone.
    static void MVLSMCoef2(tagLenPar& par);

    // Per-axis gain and offset in counts, applied by CalibPoint14:
    //     X*kc = k0 + k2*x          Y*kc = k1 + k3*y
    // Writes k0..k3 and sets k4..k13 to 0, so that CalibPoint14 applies
    // exactly this model.
    static void MVLSMCoef4(tagLenPar& par);

    // For CalibPoint6.  The shape terms as MVLSMCoef2, then, with (x, y) the
    // shaped point, a least squares fit of six terms per axis in counts
    // (offset, linear, pincushion and the two bows):
    //     X*kc = k0 + k2*x + k4*y + k6*x*y*y + k8*x*x + k10*y*y
    //     Y*kc = k1 + k3*y + k5*x + k7*x*x*y + k9*y*y + k11*x*x
    // Writes the shape terms and k0..k11.
    static void MVLSMCoef6(tagLenPar& par);

    // Bilinear map in field units (scale, offset, rotation and shear, and a
    // keystone through the x*y term), applied by CalibPoint18:
    //     X = k16 + k14*x + k10*y + k8*x*y
    //     Y = k17 + k15*y + k11*x + k9*x*y
    // Writes k0..k17, the other ten as 0.
    static void MVLSMCoef8(tagLenPar& par);

    // The bilinear map of MVLSMCoef8 plus the pincushion term of each axis, in
    // field units, applied by CalibPoint18:
    //     X = k16 + k14*x + k10*y + k8*x*y + k2*x*y*y
    //     Y = k17 + k15*y + k11*x + k9*x*y + k3*x*x*y
    // Writes k0..k17, the other eight as 0.
    static void MVLSMCoef10(tagLenPar& par);

    // For CalibPoint12.  Side gains nominal over measured at the ends of the
    // middle row and column:
    //     SXL = |X| / |RealX| of point 3,  SXR the same of point 5,
    //     SYT = |Y| / |RealY| of point 1,  SYB the same of point 7,
    // then, with Xc = x*g*kc and Yc = y*g*kc the gained point in counts (g
    // chosen by side as CalibPoint12 chooses it), a least squares fit
    //     X*kc = k0*Xc + k2*Yc + k6*Xc*Xc*Yc + k8*Xc*Yc*Yc
    //     Y*kc = k1*Yc + k3*Xc + k7*Xc*Yc*Yc + k9*Xc*Xc*Yc
    // with the cubes k4, k10 (x) and k5, k11 (y) set to 0.  The model has no
    // constant term: it suits a lens centred on the device centre.  Writes
    // SXL, SXR, SYT, SYB and k0..k11.
    static void MVLSMCoef12(tagLenPar& par);

    // For CalibPoint14, in counts, by least squares:
    //     X*kc = k0 + k2*x + k4*y + k8*x*x*y + k10*x*y*y
    //     Y*kc = k1 + k3*y + k5*x + k9*x*y*y + k11*x*x*y
    // with the cubes k6, k12 (x) and k7, k13 (y) set to 0.  Writes k0..k13.
    static void MVLSMCoef14(tagLenPar& par);

    // For CalibPoint18: the biquadratic through the nine points, nine
    // equations and nine unknowns per axis solved exactly with MVLPkg::Gauss,
    // in field units (the terms of CalibPoint18 below with (x, y) measured and
    // X, Y nominal).  Correcting a measured position of the grid gives its
    // nominal position to float rounding.  Writes k0..k17.
    static void MVLSMCoef18(tagLenPar& par);

    // Area of the triangle of the three measured positions, in float.
    static double GetCollinear(tagCalData a, tagCalData b, tagCalData c);

    // Signed angle from the line l1[0] -> l1[1] to the line l2[0] -> l2[1]
    // (measured positions), radians.
    static double GetTwoLineAngle(tagCalData* l1, tagCalData* l2);

    // ---- Calibration points ----------------------------------------------

    // 5 -> 1, 9 -> 2, 17 -> 3, 33 -> 4, 65 -> 5, 25 -> 6, otherwise 0.
    static int GetCalIndex(int size);
    static int getCalibPnts(const tagLenPar& par, int index, int& size, tagCalData* out);
    static int setCalibPnts(tagLenPar& par, int index, int size, tagCalData* in);
    static int getEqualPnts(const tagLenPar& par, int axis, int& count, tagKelPointF* out);
    static int setEqualPnts(tagLenPar& par, int axis, int count, tagKelPointF* in);

    // ---- Alternative correction family -----------------------------------
    //
    // Further corrections of a field point to device counts, exported for the
    // host and not used by the facade.  Each returns 1 always and clamps its
    // result to 0 .. Resolution.  (x, y) is the input widened to double, k the
    // coefficient array CalCoefs.k, kc = Resolution / FieldSize; "stored"
    // means rounded to float there.  Infinities and NaNs flow through; the
    // clamp maps infinities to the device limits.
    //
    // Gain tables (grid = 1): the members marked "mirrored" look the gains up
    // at the input point mirrored by the lens flags (XYFlip = 0: x negated if
    // XInvert, y if YInvert; XYFlip set: y negated if XInvert, x if YInvert),
    // fx = GetScaleValue(LineCount, x', XT, XA, XR), fy likewise with YT, YA,
    // YR, and multiply in float: out = float(f) * out.
    //
    // Shift and clamp, in float unless said otherwise: add
    // float(HalfResolution); below 0 becomes 0, otherwise above
    // float(Resolution) becomes float(Resolution).

    // Full biquadratic in field units (fitted by MVLSMCoef18; MVLSMCoef8 and
    // MVLSMCoef10 fill subsets of it):
    //   X = k0*x*x*y*y + k2*x*y*y + k4*y*y + k6*x*x*y + k8*x*y + k10*y
    //       + k12*x*x + k14*x + k16
    //   Y = k1*x*x*y*y + k3*x*x*y + k5*x*x + k7*x*y*y + k9*x*y + k11*x
    //       + k13*y*y + k15*y + k17
    // each summed left to right and stored; mirrored gain tables; then counts
    // last, out = stored(out * kc); shift and clamp.
    static int CalibPoint18(const tagLenPar& par, tagKelPointF in, tagKelPointF& out);

    // Cubic without quadratic terms, directly in counts relative to the centre
    // (fitted by MVLSMCoef14 and, as gain and offset, MVLSMCoef4):
    //   X = (k2*x + k0) + k4*y + k6*x*x*x + k8*x*x*y + k10*x*y*y + k12*y*y*y
    //   Y = (k3*y + k1) + k5*x + k7*y*y*y + k9*x*y*y + k11*x*x*y + k13*x*x*x
    // each summed left to right in this grouping and stored; mirrored gain
    // tables; shift and clamp.  No conversion factor.
    static int CalibPoint14(const tagLenPar& par, tagKelPointF in, tagKelPointF& out);

    // Per-side gains, then a cubic in counts (fitted by MVLSMCoef12):
    //   X = x * (x > 0 ? SXR : SXL) * kc,  Y = y * (y > 0 ? SYT : SYB) * kc
    //   U = k4*X*X*X + k6*X*X*Y + k8*X*Y*Y + k10*Y*Y*Y + (k0*X + k2*Y)
    //   V = k7*X*Y*Y + k5*Y*Y*Y + k9*X*X*Y + k11*X*X*X + (k1*Y + k3*X)
    // each summed left to right in this grouping, in double.  Gain tables
    // (grid = 1) looked up at U and V themselves, mirrored, and multiplied in
    // double.  HalfResolution is added and the clamp made in double; only the
    // clamped value is stored.
    static int CalibPoint12(const tagLenPar& par, tagKelPointF in, tagKelPointF& out);

    // Shape correction, a six-term polynomial per axis in counts, then the
    // grid residual stages of CalibPoint2_new (fitted by MVLSMCoef6):
    //   (x, y) = ShapePoint(in)
    //   X = (k2*x + k0) + k4*y + k6*x*y*y + k8*x*x + k10*y*y
    //   Y = (k3*y + k1) + k5*x + k7*x*x*y + k9*y*y + k11*x*x
    // summed left to right and stored; then, exactly as CalibPoint2_new after
    // its cross term: the grid residual of all stacks looked up at the
    // mirrored input, scaled by kc and ScaleX/ScaleY (traded when XYFlip is
    // set) and applied at a quarter when 0.001 or less; gain tables at the
    // input as passed; shift and clamp.
    static int CalibPoint6(const tagLenPar& par, tagKelPointF in, tagKelPointF& out);

    // CalibPoint2_new without the quadratic pre-warp (fitted by MVLSMCoef2):
    //   (x, y) = ShapePoint(in)
    //   out.x = stored(k2*y*y*x + kc*x),  out.y = stored(k3*x*x*y + kc*y)
    // then the grid residual stages as in CalibPoint6.  With QuadX = QuadY = 0
    // it gives the bits of CalibPoint2_new.
    static int CalibPoint2(const tagLenPar& par, tagKelPointF in, tagKelPointF& out);

    // ---- Grid-wise multivariable solver ----------------------------------

    // Fits every cell of the stack with the bilinear map of tagMVLCoef, from
    // nominal position to measured position, through its four corners: per
    // cell and axis the 4 x 4 system of the corners, solved with MVLPkg::Gauss.
    // The result is a continuous, piecewise bilinear model of the measured
    // grid that a host can evaluate anywhere in the grid (MVLEval), for
    // example to look at the measured deviation between the grid points.
    // Returns 1 with coefs.Size = stack.Size and (Size-1)^2 cells; returns 0
    // with coefs.Size = 0 and no cells when Size < 2 or Points holds fewer
    // than Size*Size records.  A cell with coincident nominal corners gets
    // non-finite coefficients; nothing else is checked.
    static int MVLSolve(const tagStack& stack, tagStkMVLCoef& coefs);

    // The measured position that the fit of MVLSolve gives for a nominal
    // point: the first cell in row-major order with X0 <= x <= X1 and
    // Y1 <= y <= Y0 (inclusive, as the grid lookup, so a point on a shared
    // edge belongs to the upper or left cell) is evaluated, the result stored
    // as floats.  Returns 1, or 0 with measured = nominal when no cell holds
    // the point (outside the grid, or an empty fit).  Allocates nothing.
    static int MVLEval(const tagStkMVLCoef& coefs, tagKelPointF nominal, tagKelPointF& measured);
};

#endif
