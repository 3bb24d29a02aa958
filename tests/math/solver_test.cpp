// Linear solvers: what the case file cannot say (malformed calls).  The
// worked systems are in tests/data/math.cases.
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "vrncal/solver.h"

TEST(SolveLinearEquations, MalformedCallsAreRejectedWithoutWriting) {
    MVLPkg s;
    std::vector<double> x(2);
    const std::vector<std::vector<double>> a = {{1, 0}, {0, 1}};
    EXPECT_EQ(s.SolveLinearEquations(3, 0, a, {1, 2, 3}, x), 3);  // a too short
    EXPECT_EQ(s.SolveLinearEquations(2, 0, a, {1}, x), 3);        // b too short
    EXPECT_EQ(s.SolveLinearEquations(2, 0, {{1, 0}, {0}}, {1, 2}, x), 3);
    std::vector<double> shortX(1);
    EXPECT_EQ(s.SolveLinearEquations(2, 0, a, {1, 2}, shortX), 3);
    EXPECT_THROW(s.UnsafeSolveLinearEquations(2, 0, a, {1}, x), std::invalid_argument);
    EXPECT_EQ(x, (std::vector<double>{0.0, 0.0}));
    // A row without its right-hand side: Gauss solves nothing.
    EXPECT_TRUE(s.Gauss({{1, 2, 3}, {1, 2}}).empty());
}
