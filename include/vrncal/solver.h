// MVLPkg: solvers for small square linear systems.
//
// Gauss: Gaussian elimination with partial pivoting on an augmented matrix
// (n rows of n coefficients followed by the right-hand side).
//
// SolveLinearEquations: Crout LU decomposition with implicit row scaling and
// iterative refinement, reporting its outcome as a code:
//   0  solved, x holds the solution
//   1  singular to working precision, or the refinement stopped improving
//   2  a row of the matrix is entirely zero
//   3  an exception was raised inside the solver
//
// Malformed calls are refused rather than read out of bounds: Gauss returns an
// empty vector when a row holds fewer than n + 1 entries, and
// UnsafeSolveLinearEquations throws std::invalid_argument (so
// SolveLinearEquations returns 3) when a has fewer than n rows, a row of a has
// fewer than n entries, or b or x has fewer than n; x is then not written.
//
// The refinement runs until the correction is small against x (relative
// 5.69e-14), checking for divergence only on its second pass.  It stops after
// at most 1000000 passes and reports 1 if it has not settled by then (x holds
// the last values).  A row whose entries are all NaN has no largest magnitude
// and counts as a zero row (2).
#ifndef VRNCAL_SOLVER_H
#define VRNCAL_SOLVER_H

#include <vector>

#include "vrncal/export.h"

class VRNCAL_API MVLPkg {
public:
    MVLPkg() = default;
    ~MVLPkg() = default;

    // Returns the n solutions of the augmented system m (taken by value).  A
    // singular system gives infinities or NaNs; no pivot is tested.
    std::vector<double> Gauss(std::vector<std::vector<double>> m);

    // Solves a x = b for the order n; columns is accepted and not used.
    int SolveLinearEquations(unsigned int n, unsigned int columns,
                             const std::vector<std::vector<double>>& a,
                             const std::vector<double>& b, std::vector<double>& x);
    // The solver itself; lets allocation failures propagate.
    int UnsafeSolveLinearEquations(unsigned int n, unsigned int columns,
                                   const std::vector<std::vector<double>>& a,
                                   const std::vector<double>& b, std::vector<double>& x);
};

#endif
