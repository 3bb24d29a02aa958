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

    // Interpolates, inside the grid cell that holds pt, the measured position
    // that belongs to pt, and returns through dev the deviation measured minus
    // nominal and through ratio the ratio of pt to the cell's interpolated
    // cross point.  The point is first clamped to +-ValSize/2; the first cell in
    // row-major order whose nominal corners enclose it (inclusive bounds) wins.
    // Without a cell (or with Size <= 1) ratio stays (1, 1) and dev (0, 0).
    // Always returns 1.
    static int GetGridDR(const tagLenPar& par, const tagKelPointF& pt, tagKelPointF& ratio,
                         tagKelPointF& dev, const tagStack& stack);

    // The ratio pair of GetGridDR alone, computed in double.  The result is
    // both returned and written to ratio.  (1, 1) for no cell or Size < 2.
    static tagKelPointF GetGridSR(const tagLenPar& par, const tagKelPointF& pt, tagKelPointF& ratio,
                                  const tagStack& stack);

    // The same ratio pair found by walking precomputed cells: the first cell
    // with Corner[0].X <= x < Corner[3].X and Corner[3].Y < y <= Corner[0].Y.
    // (1, 1) for an empty list or no match.
    static tagKelPointF GetGridSR(const tagLenPar& par, const tagKelPointF& pt, tagStkGrid& grid);

    // Classifies pt against the grid, including points outside +-half: row and
    // col are -1 before the first row/column and Size beyond the last.  Returns
    // 1, or 0 when a point inside the field falls in no cell.
    static int GetPntColRow(const tagKelPointF& pt, double half, const tagStack& stack, int& row,
                            int& col);

    // 0: x >= 0, y >= 0; 1: x < 0, y >= 0; 2: x < 0, y < 0; 3: x >= 0, y < 0.
    static int GetQuadrant(tagKelPointF pt);

    // Inclusive axis-aligned test against corners[0].X .. corners[1].X and
    // corners[3].Y .. corners[0].Y (corner 2 is not read).
    static bool PointInRect(tagCalData* corners, tagKelPointF pt);

    // Even-odd crossing test over the quadrilateral corners[0..3] (X, Y
    // members), with non-strict comparisons.  Returns 1 inside, else 0.
    static int PntInRect(tagCalData* corners, tagKelPointF pt);

    // The same test over four points with strict comparisons.
    static int PntInRect(const std::vector<tagKelPointF>& quad, tagKelPointF pt);

    // Crossing test against the short segment from pt to (-1e-7, pt.y).
    // Returns 2 inside, 1 on edge 0 or 3, 0 outside or on another edge.
    static int PntInPolygon(const std::vector<tagKelPointF>& polygon, tagKelPointF pt);

    // Tests whether pt, moved by offset, falls inside the four-corner cell
    // cell[0..3] (the corner form of PntInRect) and lies in the given quadrant
    // of the field (GetQuadrant of the moved point).  A negative quadrant
    // accepts every quadrant.  Returns 1 when both hold, 0 otherwise (also for
    // a cell of fewer than four records).
    static int GetGridAdd(const tagLenPar& par, const tagKelPointF& pt, tagKelPointF offset,
                          const std::vector<tagCalData>& cell, int quadrant);

    // ---- Point correction (grid mode) -----------------------------------

    // Forwards to CalibPoint2_new; returns its result (1).
    static int CalibLSM(const tagLenPar& par, const tagKelPointF& in, tagKelPointF& out);

    // The grid-mode correction of a field point to device counts: quadratic
    // pre-warp, ShapePoint, cubic cross term and conversion to counts, grid
    // residual summed over all stacks, optional gain tables, centring and
    // clamping to 0 .. Resolution.  Always returns 1.
    static int CalibPoint2_new(const tagLenPar& par, tagKelPointF in, tagKelPointF& out);

    // Analytic shape correction: shear by PLX, keystone by TXL/TXR (x) and
    // TYT/TYB (y) normalised by the half axes, then the gains ScaleX/ScaleY.
    // in and out may be the same object.  Always returns 1.
    static int ShapePoint(const tagLenPar& par, const tagKelPointF& in, tagKelPointF& out);

    // Clamped piecewise-linear lookup of gain at v over the breakpoints pos.
    // 1.0 when count is outside 1 .. 99 or |v| < 1e-6.  aux is never read.
    static double GetScaleValue(int count, double v, const double* pos, const double* aux,
                                const double* gain);

    // Edge gains growing linearly from 1 at the centre to SXL/SXR/SYT/SYB at a
    // distance of ValSize; exactly 1 within +-1 of an axis.
    static tagKelPointF getPointScale(const tagLenPar& par, tagKelPointF pt);

    // ---- Box correction --------------------------------------------------

    // The manual (box) correction of a field point to device counts.  Always
    // returns 1.
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
