// Linear solvers: Gaussian elimination and the refined Crout solver.
#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <vector>

#include "vrncal/solver.h"

using Matrix = std::vector<std::vector<double>>;

TEST(Gauss, SolvesSmallSystems) {
    MVLPkg s;
    EXPECT_EQ(s.Gauss({{2, 1, 5}, {1, 3, 10}}), (std::vector<double>{1.0, 3.0}));
    // A zero leading entry: the rows are swapped first.
    EXPECT_EQ(s.Gauss({{0, 1, 2}, {1, 0, 3}}), (std::vector<double>{3.0, 2.0}));
    EXPECT_EQ(s.Gauss({{4, 8}}), (std::vector<double>{2.0}));
}

TEST(Gauss, PivotTiesKeepTheEarlierRow) {
    // Rows 0 and 1 tie at |3| in column 0; taking row 1 would end x0 in ...225.
    const Matrix m = {{3.0, 0.7, 0.1, 0.7}, {-3.0, 3.0, 3.0, 0.1}, {0.7, 0.1, -1.0, -1.0}};
    MVLPkg s;
    const std::vector<double> x = s.Gauss(m);
    ASSERT_EQ(x.size(), 3u);
    EXPECT_EQ(x[0], 0x1.800615c5e8228p-2);
    EXPECT_EQ(x[1], -0x1.8d92906cc5319p-1);
    EXPECT_EQ(x[2], 0x1.2f5356306529fp+0);
}

TEST(Gauss, DegenerateAndMalformedInput) {
    MVLPkg s;
    const std::vector<double> x = s.Gauss({{1, 2, 3}, {2, 4, 6}});
    ASSERT_EQ(x.size(), 2u);
    EXPECT_FALSE(std::isfinite(x[0]));
    EXPECT_FALSE(std::isfinite(x[1]));

    EXPECT_TRUE(s.Gauss({}).empty());
    EXPECT_TRUE(s.Gauss({{1, 2, 3}, {1, 2}}).empty());  // a row without its right-hand side
    EXPECT_TRUE(s.Gauss({{1}}).empty());
}

TEST(Gauss, LeavesTheCallersMatrixAlone) {
    const Matrix m = {{0, 1, 2}, {1, 0, 3}};
    const Matrix copy = m;
    MVLPkg().Gauss(m);
    EXPECT_EQ(m, copy);
}

namespace {

int solve(const Matrix& a, const std::vector<double>& b, std::vector<double>& x) {
    return MVLPkg().SolveLinearEquations(static_cast<unsigned>(b.size()), 0, a, b, x);
}

}  // namespace

TEST(SolveLinearEquations, ResultCodes) {
    std::vector<double> x(2, 9.0);
    EXPECT_EQ(solve({{1, 2}, {0, 0}}, {1, 1}, x), 2);  // zero row, before any elimination
    EXPECT_EQ(solve({{1, 2}, {1, 2}}, {1, 1}, x), 1);  // equal rows: singular
    // Nearly equal rows leave a pivot of 2^-52: small, but not singular.
    EXPECT_EQ(solve({{1, 1}, {1, 1 + 0x1p-52}}, {1, 1}, x), 0);
    EXPECT_EQ(x, (std::vector<double>{1.0, 0.0}));

    x = {9.0};
    EXPECT_EQ(MVLPkg().SolveLinearEquations(0, 0, {}, {}, x), 0);
    EXPECT_EQ(x[0], 9.0);  // n = 0 leaves x untouched
}

TEST(SolveLinearEquations, IdentityReturnsTheRightHandSide) {
    std::vector<double> x(3);
    EXPECT_EQ(solve({{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {1.5, -2, 3}, x), 0);
    EXPECT_EQ(x, (std::vector<double>{1.5, -2.0, 3.0}));
}

TEST(SolveLinearEquations, RefinementFollowsThePackedFactors) {
    // [[2,1],[1,3]] packs into [[2,0.5],[1,2.5]]; the refinement converges to
    // the solution of that packed matrix, (5/3, 10/3), not to (1, 3).
    std::vector<double> x(2);
    EXPECT_EQ(solve({{2, 1}, {1, 3}}, {5, 10}, x), 0);
    EXPECT_EQ(x[0], 0x1.aaaaaaaaaaa8dp+0);
    EXPECT_EQ(x[1], 0x1.aaaaaaaaaaaa3p+1);

    // Here the second pass moves by more than half of x: code 1, and x keeps
    // the first solution, which solves the system as given.
    x.assign(3, 0.0);
    EXPECT_EQ(solve({{4, 1, 2}, {1, 5, -1}, {2, -1, 6}}, {1, 2, 3}, x), 1);
    EXPECT_EQ(x[0], -0x1.dc47711dc4770p-3);
    EXPECT_EQ(x[1], 0x1.29aca6b29aca6p-1);
    EXPECT_EQ(x[2], 0x1.594d653594d65p-1);
}

TEST(SolveLinearEquations, ZeroRightHandSideEntrySkipsTheForwardStep) {
    // The zero in b skips the second forward step, so the first pass gives
    // (0.5, 0) instead of (0.25, 0.25); the refinement then settles on the
    // packed matrix's solution (0.4, 0.2).  Without the skip the result is 1.
    std::vector<double> x(2);
    EXPECT_EQ(solve({{2, 2}, {-3, 3}}, {1, 0}, x), 0);
    EXPECT_EQ(x[0], 0x1.99999999999c0p-2);
    EXPECT_EQ(x[1], 0x1.9999999999980p-3);
}

TEST(SolveLinearEquations, NonSettlingRefinementIsCut) {
    // The correction here grows by a factor barely above one per pass; it would
    // take over a million passes to overflow.  The pass limit reports it as 1.
    std::vector<double> x(3);
    EXPECT_EQ(solve({{1.3, 3.7, -3.1}, {-0.2, 1.8, 2.8}, {-0.6, -1.7, -2.4}}, {-2.0, 1.0, 0.5}, x),
              1);
}

TEST(SolveLinearEquations, MalformedCallsAreRejected) {
    MVLPkg s;
    std::vector<double> x(2);
    const Matrix a = {{1, 0}, {0, 1}};
    EXPECT_EQ(s.SolveLinearEquations(3, 0, a, {1, 2, 3}, x), 3);  // a too short
    EXPECT_EQ(s.SolveLinearEquations(2, 0, a, {1}, x), 3);        // b too short
    EXPECT_EQ(s.SolveLinearEquations(2, 0, {{1, 0}, {0}}, {1, 2}, x), 3);
    std::vector<double> shortX(1);
    EXPECT_EQ(s.SolveLinearEquations(2, 0, a, {1, 2}, shortX), 3);
    EXPECT_THROW(s.UnsafeSolveLinearEquations(2, 0, a, {1}, x), std::invalid_argument);
    EXPECT_EQ(x, (std::vector<double>{0.0, 0.0}));  // nothing written on rejection
}
