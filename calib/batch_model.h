// Internal: what the batch corrector works out once per record, so that the
// per-point paths read plain numbers and tables instead of the record.
//
// Plain data only, on purpose: the vector files include this header and are
// compiled for other instruction sets, and an inline function shared with
// them could be linked into the scalar code as their copy.
#ifndef VRNCAL_CALIB_BATCH_MODEL_H
#define VRNCAL_CALIB_BATCH_MODEL_H

#include <cstddef>
#include <cstdint>

struct tagKelPointF;
struct tagLenPar;
struct tagStack;

namespace vrncal_detail {

class CellIndex;

// Floats per cell in BatchStack::cells: the measured corners r00x r00y r01x
// r01y, r10x r10y r11x r11y (P00 top-left, P01 its right neighbour, P10 the
// point below, P11 below-right), then the nominal X of the left column, the
// nominal Y of the top row and of the bottom row, and padding to one cache
// line.
constexpr int kCellFloats = 16;

// One stack with cells.  A rectilinear stack (one nominal X per column, one
// nominal Y per row, both strictly monotone and finite) is read through its
// cell table and an O(1) lookup; any other stack through its points and a
// cell index.
struct BatchStack {
    // Rectilinear lookup: the column guess is trunc(clamp((x - x0) * sx, 0,
    // last)) and is never more than one column off (checked when built); the
    // cell is then guess - 1 + [cmpX[g] < x] + [cmpX[g + 1] < x].  cmpX holds
    // -inf, the inner column Xs and +inf; rows likewise with (y0 - y) * sy
    // and cmpY holding +inf, the inner row Ys and -inf, compared with >.
    const float* cells = nullptr;  // kCellFloats per cell, row-major; null: not rectilinear
    const float* cmpX = nullptr;
    const float* cmpY = nullptr;
    // cmpX and cmpY hold Size floats, then copies of the last up to a
    // multiple of 16 and at least 64, so that a vector path may read a small
    // table whole.
    std::int32_t cmpSize = 0;
    std::int32_t cellsPerRow = 0;  // Size - 1
    float last = 0.0f;             // Size - 2, the largest guess
    float x0 = 0.0f, sx = 0.0f, y0 = 0.0f, sy = 0.0f;
    float xLo = 0.0f, xHi = 0.0f, yLo = 0.0f, yHi = 0.0f;  // the nominal extent of the grid

    float h = 0.0f;  // nominal pitch, ValSize / (Size - 1) stored as a float

    // Any stack: the record's stack and, when not rectilinear, the index of
    // its cells (null for more points than the index can number; the lookup
    // then scans).
    const tagStack* stack = nullptr;
    const CellIndex* index = nullptr;
};

// A gain table as the lookup reads it; `ascending` when the breakpoints are
// finite and non-decreasing, so the interval can be found by bisection.
struct BatchGainTable {
    int count = 0;
    const double* pos = nullptr;
    const double* gain = nullptr;
    bool ascending = false;
};

struct BatchModel {
    const tagLenPar* par = nullptr;
    bool gridMode = true;  // CalMode non-zero

    // The sign rule of the grid correction as sign-bit masks.
    std::uint32_t signX = 0, signY = 0;

    // Grid correction coefficients.  The keystone of each half is written
    // as coef * y * x1 / axis + x1: the right and top halves subtract
    // TXR * y * x1 / AxisXR, which is the same number as adding
    // -TXR * y * x1 / AxisXR (negation is exact), so one expression with the
    // coefficients picked by the sign serves both halves.  Index 0 holds the
    // right (top) half: -TXR and AxisXR (-TYT, AxisYT); index 1 the left
    // (bottom) half: TXL and AxisXL (TYB, AxisYB).
    double quadX = 0, quadY = 0, plx = 0;
    double keystoneX[2] = {0, 0}, axisX[2] = {0, 0}, keystoneY[2] = {0, 0}, axisY[2] = {0, 0};
    double scaleX = 0, scaleY = 0, k2 = 0, k3 = 0, kc = 0;
    double gainX = 0, gainY = 0;  // the residual's axis gains after the exchange flag

    // The lookup clamp to +-ValSize / 2, compared in double in the facade.
    // For a float v and a double d, v < d exactly when v < (the least float
    // not below d), and v > d when v > (the greatest float not above d), so
    // the comparisons run in float against these bounds.
    float belowHalf = 0, aboveHalf = 0;  // -half rounded up, half rounded down
    float lowValue = 0, highValue = 0;   // -half and half stored as floats
    float residualLimit = 0;             // 0.001 rounded down

    float centre = 0, limit = 0;  // HalfResolution and Resolution as floats

    const BatchStack* stacks = nullptr;  // the stacks with cells, in record order
    std::size_t stackCount = 0;
    bool allRectilinear = true;

    bool gainTables = false;  // grid == 1, or BoxGrid == 1 in box mode
    BatchGainTable tableX, tableY;
};

// The vector paths.  Each runs every point of the record through the vector
// code; the caller only picks one for a model whose stacks are all
// rectilinear and that has no gain tables, in grid mode.
void correctAvx2(const BatchModel& m, const tagKelPointF* in, tagKelPointF* out, std::size_t n);
void correctAvx512(const BatchModel& m, const tagKelPointF* in, tagKelPointF* out, std::size_t n);

// The scalar path: every record, every point.
void correctScalar(const BatchModel& m, const tagKelPointF* in, tagKelPointF* out, std::size_t n);

}  // namespace vrncal_detail

#endif
