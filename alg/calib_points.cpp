// Calibration points: reading and replacing the measured data of a record,
// the calibration grids and the breakpoints of the gain tables.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "vrncal/calib_alg.h"

namespace {

constexpr std::size_t kCal3Count = 9;  // the fixed 3 x 3 set in CalCoefs
constexpr int kTableRows = 100;        // capacity of every gain table

// One gain table: breakpoints T, companion values A, gains R, and its row
// count.  Grid mode (CalMode non-zero) uses the line table, box mode the box
// tables; axis 0 is x, any other value y.
struct GainTable {
    double* T;
    double* A;
    double* R;
    int rows;
    bool comparesPrevious;  // only the grid-mode y table does
};

GainTable tableOf(tagLenPar& par, int axis) {
    if (par.CalMode != 0) {
        if (axis == 0) return {par.XT, par.XA, par.XR, par.LineCount, false};
        return {par.YT, par.YA, par.YR, par.LineCount, true};
    }
    if (axis == 0) return {par.BoxXT, par.BoxXA, par.BoxXR, par.BoxLineCount, false};
    return {par.BoxYT, par.BoxYA, par.BoxYR, par.BoxLineCount, false};
}

// n * n as a copy count, never more than `available`.  The count follows the
// caller's n (squared, so a negative n counts like its magnitude); the cap
// only keeps a wrong n from reading or writing past the data.
std::size_t squareCount(int n, std::size_t available) {
    const long long nn = static_cast<long long>(n) * n;
    return std::min(static_cast<std::size_t>(nn), available);
}

}  // namespace

int CCalibAlg::GetCalIndex(int size) {
    switch (size) {
        case 5: return 1;
        case 9: return 2;
        case 17: return 3;
        case 33: return 4;
        case 65: return 5;
        case 25: return 6;  // after 65, out of size order
        default: return 0;
    }
}

int CCalibAlg::getCalibPnts(const tagLenPar& par, int index, int& size, tagCalData* out) {
    const int n = size;
    if (index < 0) {
        size = 3;
        const tagCalData* src = par.CalCoefs.Cal3Pnts;
        std::copy(src, src + squareCount(n, kCal3Count), out);
        return 1;
    }
    if (static_cast<std::size_t>(index) >= par.Stacks.size()) return 0;
    const tagStack& stack = par.Stacks[static_cast<std::size_t>(index)];
    size = stack.Size;
    // The copy count follows the size the caller passed in, not the stack's.
    std::copy_n(stack.Points.begin(), squareCount(n, stack.Points.size()), out);
    return 1;
}

int CCalibAlg::setCalibPnts(tagLenPar& par, int index, int size, tagCalData* in) {
    if (index < 0) {
        if (size != 3) return 0;
        std::copy(in, in + kCal3Count, par.CalCoefs.Cal3Pnts);
        return 1;
    }
    if (size < 0) return 0;
    const std::size_t count = static_cast<std::size_t>(size) * static_cast<std::size_t>(size);
    if (static_cast<std::size_t>(index) < par.Stacks.size()) {
        tagStack& stack = par.Stacks[static_cast<std::size_t>(index)];
        if (stack.Size != size) return 0;
        std::copy_n(in, std::min(count, stack.Points.size()), stack.Points.begin());
        return 1;
    }
    // Any index past the end appends: the new stack takes the next free index,
    // not the one asked for.
    tagStack stack;
    stack.Size = size;
    stack.InOrder = 1;
    stack.Points.assign(in, in + count);
    par.Stacks.push_back(std::move(stack));
    return 1;
}

int CCalibAlg::getEqualPnts(const tagLenPar& par, int axis, int& count, tagKelPointF* out) {
    // tableOf hands out writable pointers; nothing is written through them here.
    const GainTable t = tableOf(const_cast<tagLenPar&>(par), axis);
    count = t.rows;
    const int n = std::min(t.rows, kTableRows);
    for (int i = 0; i < n; ++i) {
        out[i].x = static_cast<float>(t.T[i]);
        out[i].y = static_cast<float>(t.A[i]);
    }
    return 1;
}

int CCalibAlg::setEqualPnts(tagLenPar& par, int axis, int count, tagKelPointF* in) {
    const GainTable t = tableOf(par, axis);
    // Every table holds 100 rows; a larger count stops there.
    const int n = std::min(count, kTableRows);
    for (int i = 0; i < n; ++i) {
        const double prevT = t.T[i];
        const double prevA = t.A[i];
        t.T[i] = in[i].x;
        t.A[i] = in[i].y;
        if (t.R[i] == 0.0 || std::isnan(t.R[i])) {  // a zero or NaN gain starts at 1
            t.R[i] = 1.0;
            continue;
        }
        // Only the grid-mode y table compares with the row's previous values;
        // the others compare with what was just written, which never passes,
        // so their gains keep their values.  Kept as the machines expect it.
        const double refT = t.comparesPrevious ? prevT : t.T[i];
        const double refA = t.comparesPrevious ? prevA : t.A[i];
        if (std::fabs(refT - in[i].x) < 0.000001 && std::fabs(refA - in[i].y) > 0.000001) {
            if (std::fabs(in[i].x) < 0.001)
                t.R[i] = 1.0;
            else if (std::fabs(in[i].y) > 0.000001)
                t.R[i] = t.R[i] * static_cast<float>(in[i].x / in[i].y);
        }
    }
    return 1;
}
