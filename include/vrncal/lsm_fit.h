// CMvLsmFit: multivariate ordinary least squares without intercept.
//
// Given m samples of n explanatory values and one observation each, OLS()
// finds c[1..n] minimising sum_k (B[k] - sum_j c[j] Array[k][j])^2 through the
// explicit inverse of the normal matrix N = A^T A:
//
//     Coef = adj(N) / det(N) * A^T * B
//
// where the determinant and every cofactor are expanded over all n!
// permutations (Leibniz).  The method and its order of summation are kept on
// purpose: calibration files hold coefficients produced by it, to the last bit.
//
// All arrays are fixed-size and indexed from 1.  At most 40 samples and 20
// explanatory values: init keeps the first 40 samples and the first 20 values
// of each (the stride through x stays the full sample length), and OLS and the
// expansions clamp nSample and nVar to the same limits, so no count written
// into the members reaches past the arrays.  An empty y loads an empty problem.
// Proj keeps 21 columns per row in contiguous storage, so with more than 20
// samples a row runs on into the next one; that overlap is part of the
// behaviour.  With 20 values and more than 20 samples the last row runs past
// Proj itself; that tail lives in a scratch of OLS and is not kept (Normal is
// not touched).  creatorder and creataorder do nothing for k above 21, the
// last position of order.
//
// The constructor sets det to 0.0 and zeroes every other member, so OLS on a
// fresh object solves an empty problem (det = 1.0, Coef unchanged).
#ifndef VRNCAL_LSM_FIT_H
#define VRNCAL_LSM_FIT_H

#include <vector>

#include "vrncal/export.h"

class VRNCAL_API CMvLsmFit {
public:
    double Array[41][21];   // Array[k][j]: value j of sample k
    double B[41];           // observation of sample k
    double Coef[21];        // result, Coef[1..n]
    double Inv[21][21];     // inverse of the normal matrix
    double Proj[21][21];    // Inv times the transposed sample matrix
    double Normal[21][21];  // the normal matrix
    int nSample;            // m
    int nVar;               // n
    int order[22];          // permutation being built
    double det;             // determinant / minor accumulator

    CMvLsmFit();
    ~CMvLsmFit();

    // m = y.size(), n = x.size() / m; x holds the samples row after row.
    void init(std::vector<double> x, std::vector<double> y);
    // Loads and prints a fixed demonstration data set.
    void init();
    // Solves the problem loaded by init into Coef[1..n].
    void OLS();

    // Sign of the permutation perm[1..n]: +1 for an even count of inversions.
    int getorder(int* perm, int n);
    // The same with position skip left out.
    int getaorder(int* perm, int n, int skip);
    // Recursive steps of the determinant and minor expansions of Normal.
    void creatorder(int k);
    void creataorder(int k, int row, int col);
};

#endif
