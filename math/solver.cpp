// Solvers for the small square systems of the calibration fits.
#include "vrncal/solver.h"

#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <utility>

namespace {

// The smallest normal double: a scaled pivot not above it counts as zero.
constexpr double kTinyPivot = 2.2250738585072014e-308;
// The refinement stops once the correction is this small relative to x.
constexpr double kRefineTolerance = 5.69e-14;
// A refinement that has not settled after this many passes is reported as not
// improving, so that a correction cycling at a constant size cannot hang the
// caller.  A converging refinement needs a handful of passes; a diverging one
// overflows and stops long before this.
constexpr unsigned long kMaxRefinePasses = 1000000;

}  // namespace

std::vector<double> MVLPkg::Gauss(std::vector<std::vector<double>> m) {
    const std::size_t n = m.size();
    for (const auto& row : m)
        if (row.size() < n + 1) return {};  // no right-hand side column: nothing to solve

    for (std::size_t i = 0; i < n; ++i) {
        // Ties keep the earlier row.
        std::size_t pivot = i;
        double best = std::fabs(m[i][i]);
        for (std::size_t r = i + 1; r < n; ++r)
            if (std::fabs(m[r][i]) > best) {
                best = std::fabs(m[r][i]);
                pivot = r;
            }
        // Only columns i..n move; the eliminated columns to the left of the
        // pivot are left where they are.
        for (std::size_t c = i; c <= n; ++c) std::swap(m[i][c], m[pivot][c]);
        if (i == n - 1) break;

        for (std::size_t r = i + 1; r < n; ++r) {
            const double f = -m[r][i] / m[i][i];
            for (std::size_t c = i; c <= n; ++c) {
                if (c == i)
                    m[r][c] = 0.0;  // set, not computed: no rounding residue below the pivot
                else
                    m[r][c] = m[r][c] + m[i][c] * f;
            }
        }
    }

    // Back substitution reduces the right-hand side column in place.
    std::vector<double> x(n, 0.0);
    for (std::size_t i = n; i-- > 0;) {
        x[i] = m[i][n] / m[i][i];
        for (std::size_t r = i; r-- > 0;) m[r][n] = m[r][n] - x[i] * m[r][i];
    }
    return x;
}

int MVLPkg::SolveLinearEquations(unsigned int n, unsigned int columns,
                                 const std::vector<std::vector<double>>& a,
                                 const std::vector<double>& b, std::vector<double>& x) {
    try {
        return UnsafeSolveLinearEquations(n, columns, a, b, x);
    } catch (...) {
        return 3;
    }
}

int MVLPkg::UnsafeSolveLinearEquations(unsigned int n, unsigned int /*columns*/,
                                       const std::vector<std::vector<double>>& a,
                                       const std::vector<double>& b, std::vector<double>& x) {
    if (n == 0) return 0;
    const std::size_t N = n;
    if (a.size() < N || b.size() < N || x.size() < N)
        throw std::invalid_argument("linear system smaller than its order");
    for (std::size_t i = 0; i < N; ++i)
        if (a[i].size() < N) throw std::invalid_argument("matrix row shorter than the order");

    std::vector<double> w(N * N);
    auto W = [&w, N](std::size_t i, std::size_t j) -> double& { return w[i * N + j]; };
    for (std::size_t i = 0; i < N; ++i)
        for (std::size_t j = 0; j < N; ++j) W(i, j) = a[i][j];

    std::vector<double> scale(N);
    for (std::size_t i = 0; i < N; ++i) {
        double big = 0.0;
        for (std::size_t j = 0; j < N; ++j)
            if (std::fabs(W(i, j)) > big) big = std::fabs(W(i, j));
        if (big == 0.0) return 2;
        scale[i] = big;
    }

    // Crout: the lower factor carries the pivots, the upper one a unit diagonal.
    std::vector<std::size_t> swapOf(N);
    for (std::size_t j = 0; j < N; ++j) {
        double best = 0.0;
        std::size_t pivot = j;
        for (std::size_t i = j; i < N; ++i) {
            double sum = W(i, j);
            for (std::size_t k = 0; k < j; ++k) sum -= W(i, k) * W(k, j);
            W(i, j) = sum;
            const double candidate = std::fabs(sum) / scale[i];
            if (candidate > best) {  // ties keep the first row
                best = candidate;
                pivot = i;
            }
        }
        if (!(best > kTinyPivot)) return 1;
        if (pivot != j)
            for (std::size_t k = 0; k < N; ++k) std::swap(W(pivot, k), W(j, k));
        scale[pivot] = scale[j];
        swapOf[j] = pivot;
        for (std::size_t c = j + 1; c < N; ++c) {
            double sum = W(j, c);
            for (std::size_t k = 0; k < j; ++k) sum -= W(j, k) * W(k, c);
            W(j, c) = sum / W(j, j);
        }
    }

    for (std::size_t i = 0; i < N; ++i) x[i] = 0.0;
    std::vector<double> r(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(N));

    for (unsigned long pass = 0;; ++pass) {
        for (std::size_t i = 0; i < N; ++i) {
            const std::size_t q = swapOf[i];
            // A zero right-hand side entry skips the step, interchange included;
            // kept so results agree with the existing solver.
            if (r[q] == 0.0) continue;
            double v = r[q];
            r[q] = r[i];
            for (std::size_t k = 0; k < i; ++k) v -= W(i, k) * r[k];
            r[i] = v / W(i, i);
        }
        for (std::size_t i = N; i-- > 0;) {
            double v = r[i];
            for (std::size_t k = i + 1; k < N; ++k) v -= W(i, k) * r[k];
            r[i] = v;
        }

        double xm = 0.0;
        double dm = 0.0;
        for (std::size_t i = 0; i < N; ++i) {
            if (std::fabs(x[i]) > xm) xm = std::fabs(x[i]);
            if (std::fabs(r[i]) > dm) dm = std::fabs(r[i]);
        }
        bool more = true;
        if (pass >= 1) {
            if (pass == 1 && dm / xm > 0.5) return 1;  // x keeps the first solution
            more = dm / xm > kRefineTolerance;
        }

        for (std::size_t i = 0; i < N; ++i) x[i] += r[i];

        // The residual is taken against the packed factors as they stand, not
        // against the matrix as given; existing results depend on it.
        for (std::size_t i = 0; i < N; ++i) {
            double sum = 0.0;
            for (std::size_t j = 0; j < N; ++j) sum += W(i, j) * x[j];
            r[i] = b[i] - sum;
        }

        if (!more) return 0;
        if (pass + 1 >= kMaxRefinePasses) return 1;
    }
}
