// Multivariate least squares without intercept, through the adjugate of the
// normal matrix.  The determinant and every cofactor come from the permutation
// expansion; its enumeration order and order of summation fix the last bits
// of the coefficients stored in existing calibration files, so neither may be
// replaced by elimination or reordered.
#include "vrncal/lsm_fit.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

// Capacities of the fixed arrays (indices run from 1).
constexpr int kMaxSamples = 40;
constexpr int kMaxVars = 20;
constexpr int kProjStride = 21;
// The deepest position the order array can hold.
constexpr int kMaxOrderPos = 21;

// The members are public, so a host may leave any count in them: clamp every
// count to what the arrays hold before it drives an index.
int clampCount(int v, int cap) { return v < 0 ? 0 : (v > cap ? cap : v); }

// Whether column v already stands at one of the positions k+1 .. n of the
// permutation being built (positions are filled from n down to 1).
bool placedAbove(const int (&order)[22], int k, int n, int v) {
    for (int p = n; p > k; --p)
        if (order[p] == v) return true;
    return false;
}

}  // namespace

CMvLsmFit::CMvLsmFit() {
    det = 0.0;
    // Zero the rest too, so that OLS on a fresh object reads defined values
    // (an empty problem) instead of whatever the storage held.
    std::memset(Array, 0, sizeof Array);
    std::memset(B, 0, sizeof B);
    std::memset(Coef, 0, sizeof Coef);
    std::memset(Inv, 0, sizeof Inv);
    std::memset(Proj, 0, sizeof Proj);
    std::memset(Normal, 0, sizeof Normal);
    std::memset(order, 0, sizeof order);
    nSample = 0;
    nVar = 0;
}

CMvLsmFit::~CMvLsmFit() = default;

void CMvLsmFit::init(std::vector<double> x, std::vector<double> y) {
    // Unsigned division on purpose: an empty y leaves nothing to fit.  Integer
    // division by zero would trap, so that case loads an empty problem.
    const std::size_t m = y.size();
    const std::size_t n = m == 0 ? 0 : x.size() / m;
    nSample = clampCount(static_cast<int>(m > 0x7fffffffu ? 0x7fffffffu : m), kMaxSamples);
    nVar = clampCount(static_cast<int>(n > 0x7fffffffu ? 0x7fffffffu : n), kMaxVars);
    // Samples keep their stride n even when only the first 20 values fit.
    for (int k = 1; k <= nSample; ++k) {
        for (int j = 1; j <= nVar; ++j)
            Array[k][j] = x[static_cast<std::size_t>(k - 1) * n + static_cast<std::size_t>(j - 1)];
        B[k] = y[static_cast<std::size_t>(k - 1)];
    }
}

void CMvLsmFit::init() {
    nSample = 18;
    nVar = 3;
    static const double table[9][4] = {
        {61.0, 67.6, 50.0, 50.0}, {0.0, 65.9, 0.0, 50.0},  {62.6, 67.8, 50.0, 50.0},
        {64.5, 0.0, 50.0, 0.0},   {0.0, 0.0, 0.0, 0.0},    {65.5, 0.0, 50.0, 0.0},
        {61.3, 67.8, 50.0, 50.0}, {0.0, 66.5, 0.0, 50.0},  {60.3, 67.8, 50.0, 50.0},
    };
    // The admission tests look one record behind the values they admit; the
    // record before the table counts as zeros, so the first is never admitted.
    double prevC = 0.0;
    double prevD = 0.0;
    int s = 1;
    for (const auto& r : table) {
        const double a = r[0], b = r[1], c = r[2], d = r[3];
        if (std::fabs(prevC) > 1e-6) {
            Array[s][1] = c;
            Array[s][2] = c * c * c;
            Array[s][3] = c * d * d;
            B[s] = a;
            ++s;
        }
        if (std::fabs(prevD) > 1e-6) {
            Array[s][1] = d;
            Array[s][2] = c * c * c;
            Array[s][3] = d * d * d;
            B[s] = b;
            ++s;
        }
        prevC = c;
        prevD = d;
    }
    nSample = s - 1;

    std::puts("Array[][], B[]:");
    for (int k = 1; k <= nSample; ++k) {
        for (int j = 1; j <= nVar; ++j) std::printf("%5.8f ", Array[k][j]);
        std::printf(",%5.8f \n", B[k]);
    }
    std::putchar('\n');
}

int CMvLsmFit::getorder(int* perm, int n) {
    int count = 0;
    for (int j = 1; j <= n; ++j)
        for (int i = 1; i <= j; ++i)
            if (perm[j] < perm[i]) ++count;
    return count % 2 == 0 ? 1 : -1;
}

int CMvLsmFit::getaorder(int* perm, int n, int skip) {
    int count = 0;
    for (int j = 1; j <= n; ++j) {
        if (j == skip) continue;
        for (int i = 1; i <= j; ++i) {
            if (i == skip) continue;
            if (perm[j] < perm[i]) ++count;
        }
    }
    return count % 2 == 0 ? 1 : -1;
}

void CMvLsmFit::creatorder(int k) {
    const int n = clampCount(nVar, kMaxVars);
    if (k > kMaxOrderPos) return;  // beyond the order array: nothing to expand
    if (k >= 1) {
        for (int v = n; v >= 1; --v) {
            if (placedAbove(order, k, n, v)) continue;
            order[k] = v;
            creatorder(k - 1);
        }
        return;
    }
    double term = static_cast<double>(getorder(order, n));
    for (int i = 1; i <= n; ++i) term *= Normal[i][order[i]];
    det += term;
}

void CMvLsmFit::creataorder(int k, int row, int col) {
    const int n = clampCount(nVar, kMaxVars);
    if (k > kMaxOrderPos) return;
    if (k >= 1) {
        for (int v = n; v >= 1; --v) {
            if (placedAbove(order, k, n, v)) continue;
            order[k] = v;
            creataorder(k - 1, row, col);
        }
        return;
    }
    // Every permutation is visited; those that do not put col at position row
    // are zeroed rather than skipped, and the zero still takes the remaining
    // factors (so an infinite entry turns it into NaN).
    double term = static_cast<double>(getaorder(order, n, row));
    for (int i = 1; i <= n; ++i) {
        if (i == row) continue;
        if (order[i] == col)
            term = 0.0;
        else
            term *= Normal[i][order[i]];
    }
    det += term;
}

void CMvLsmFit::OLS() {
    const int m = clampCount(nSample, kMaxSamples);
    const int n = clampCount(nVar, kMaxVars);

    for (int i = 1; i <= n; ++i)
        for (int j = 1; j <= n; ++j) {
            double sum = 0.0;
            for (int k = 1; k <= m; ++k) sum += Array[k][i] * Array[k][j];
            Normal[i][j] = sum;
        }

    det = 0.0;
    creatorder(n);
    // No test for a singular matrix: r becomes infinite and the coefficients
    // non-finite, which the callers look for.
    const double r = 1.0 / det;

    // Inv is the transposed cofactor matrix over the determinant.  det is left
    // holding the last minor, not the determinant.
    for (int i = 1; i <= n; ++i)
        for (int j = 1; j <= n; ++j) {
            det = 0.0;
            creataorder(n, j, i);
            const double cofactor = (i + j) % 2 != 0 ? -det : det;
            Inv[i][j] = cofactor * r;
        }

    // Proj rows are 21 doubles long and contiguous, so with more than 20
    // samples row j runs on into row j + 1, and writing row j + 1 overwrites
    // the tail of row j before the coefficients read it.  Existing coefficients
    // were fitted that way, so the layout is reproduced: the projection is laid
    // out flat in a scratch that also covers the run past the last row (up to
    // 20 doubles for 20 values and 40 samples), then the part that is Proj is
    // copied back.  The run past Proj stays in the scratch.
    double flat[kProjStride * kProjStride + kMaxSamples];
    std::memcpy(flat, Proj, sizeof Proj);
    for (int j = 1; j <= n; ++j)
        for (int k = 1; k <= m; ++k) {
            double sum = 0.0;
            for (int l = 1; l <= n; ++l) sum += Inv[j][l] * Array[k][l];
            flat[j * kProjStride + k] = sum;
        }

    for (int j = 1; j <= n; ++j) {
        double sum = 0.0;
        for (int k = 1; k <= m; ++k) sum += flat[j * kProjStride + k] * B[k];
        Coef[j] = sum;
    }
    std::memcpy(Proj, flat, sizeof Proj);
}
