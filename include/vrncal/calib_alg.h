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

// Per-cell coefficients of the grid-wise solver (see MVLSolve).
struct tagMVLCoef {
    double kx[4] = {};
    double ky[4] = {};
};

// The per-cell coefficients of one stack, row-major over its (Size-1)^2 cells.
struct tagStkMVLCoef {
    int Size = 0;
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

    // Alternative fits, each pairing with a correction of the alternative
    // family (see alg/ and the documentation of each below).
    static void MVLSMCoef2(tagLenPar& par);
    static void MVLSMCoef4(tagLenPar& par);
    static void MVLSMCoef6(tagLenPar& par);
    static void MVLSMCoef8(tagLenPar& par);
    static void MVLSMCoef10(tagLenPar& par);
    static void MVLSMCoef12(tagLenPar& par);
    static void MVLSMCoef14(tagLenPar& par);
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

    static int CalibPoint18(const tagLenPar& par, tagKelPointF in, tagKelPointF& out);
    static int CalibPoint14(const tagLenPar& par, tagKelPointF in, tagKelPointF& out);
    static int CalibPoint12(const tagLenPar& par, tagKelPointF in, tagKelPointF& out);
    static int CalibPoint6(const tagLenPar& par, tagKelPointF in, tagKelPointF& out);
    static int CalibPoint2(const tagLenPar& par, tagKelPointF in, tagKelPointF& out);

    // ---- Grid-wise multivariable solver ----------------------------------

    static int MVLSolve(const tagLenPar& par, const tagStack& stack, tagStkMVLCoef& coefs);
};

#endif
