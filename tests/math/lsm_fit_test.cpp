// Least squares fitter: the permutation expansion, its order of summation,
// the overlapping projection rows and the demonstration listing.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "vrncal/lsm_fit.h"

namespace {

std::unique_ptr<CMvLsmFit> fitted(const std::vector<double>& x, const std::vector<double>& y) {
    auto f = std::make_unique<CMvLsmFit>();
    f->init(x, y);
    f->OLS();
    return f;
}

// Samples (a, b) = (k/2, k mod 7 - 3), observation 1.5a - 0.75b plus 0.25 on
// every third sample, so that the fit leaves residuals.
void twoColumnSamples(int m, bool withOnes, std::vector<double>& x, std::vector<double>& y) {
    for (int k = 1; k <= m; ++k) {
        const double a = k * 0.5;
        const double b = static_cast<double>(k % 7) - 3.0;
        x.push_back(a);
        x.push_back(b);
        if (withOnes) x.push_back(1.0);
        y.push_back(1.5 * a - 0.75 * b + (k % 3 == 0 ? 0.25 : 0.0));
    }
}

}  // namespace

TEST(LsmFitPermutation, SignCountsInversions) {
    CMvLsmFit f;
    int id[] = {0, 1, 2, 3};
    int swap12[] = {0, 2, 1, 3};
    int rev[] = {0, 3, 2, 1};
    EXPECT_EQ(f.getorder(id, 3), 1);
    EXPECT_EQ(f.getorder(swap12, 3), -1);
    EXPECT_EQ(f.getorder(rev, 3), -1);
    EXPECT_EQ(f.getorder(rev, 0), 1);
    EXPECT_EQ(f.getorder(rev, -2), 1);

    int p[] = {0, 3, 1, 2};  // even
    EXPECT_EQ(f.getorder(p, 3), 1);
    EXPECT_EQ(f.getaorder(p, 3, 1), 1);   // (1, 2)
    EXPECT_EQ(f.getaorder(p, 3, 3), -1);  // (3, 1)
    EXPECT_EQ(f.getaorder(p, 3, 2), -1);  // (3, 2)
}

TEST(LsmFitPermutation, DeterminantSumsLeavesInEnumerationOrder) {
    // The leaves come as (1,2,3), (2,1,3), (1,3,2), (3,1,2), (2,3,1), (3,2,1);
    // summed lexicographically the result ends in ...e20, reversed in ...e30.
    auto f = std::make_unique<CMvLsmFit>();
    const double n[3][3] = {{-1.32, 2.5, 1.59}, {-2.04, 1.78, -2.17}, {0.7, -2.24, -2.99}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) f->Normal[i + 1][j + 1] = n[i][j];
    f->nVar = 3;
    f->det = 0.0;
    f->creatorder(3);
    EXPECT_EQ(f->det, -0x1.481b21c475e40p-2);

    // Minor without row 2 and column 1, through all six leaves.
    f->det = 0.0;
    f->creataorder(3, 2, 1);
    EXPECT_EQ(f->det, -0x1.f4ea4a8c154cap+1);

    // n = 0: the single empty product.
    f->nVar = 0;
    f->det = 0.0;
    f->creatorder(0);
    EXPECT_EQ(f->det, 1.0);
}

TEST(LsmFitPermutation, MinorZeroesTermsInsteadOfSkippingThem) {
    // Normal = diag(1, 2, inf).  The minor without row 1 and column 1 is 2 * inf,
    // but the leaf (2, 1, 3) is zeroed at position 2 and then meets the infinite
    // factor at position 3: 0 * inf turns the whole sum into NaN.
    auto f = std::make_unique<CMvLsmFit>();
    f->nVar = 3;
    f->Normal[1][1] = 1.0;
    f->Normal[2][2] = 2.0;
    f->Normal[3][3] = INFINITY;
    f->det = 0.0;
    f->creataorder(3, 1, 1);
    EXPECT_TRUE(std::isnan(f->det));
    // Without the infinity the zeroed leaves vanish and the minor is exact.
    f->Normal[3][3] = 4.0;
    f->det = 0.0;
    f->creataorder(3, 1, 1);
    EXPECT_EQ(f->det, 8.0);
}

TEST(LsmFitOls, RecoversExactLinearModel) {
    const double s[5][3] = {
        {1.0, 0.5, 2.0}, {0.3, 1.7, -1.2}, {2.5, -0.4, 0.9}, {-1.1, 2.2, 3.3}, {0.7, 0.1, -2.6}};
    std::vector<double> x, y;
    for (const auto& r : s) {
        x.insert(x.end(), {r[0], r[1], r[2]});
        y.push_back(2 * r[0] - 3 * r[1] + 0.5 * r[2]);
    }
    auto f = fitted(x, y);
    EXPECT_EQ(f->nSample, 5);
    EXPECT_EQ(f->nVar, 3);
    EXPECT_EQ(f->Coef[1], 0x1.0000000000000p+1);
    EXPECT_EQ(f->Coef[2], -0x1.7ffffffffffffp+1);
    EXPECT_EQ(f->Coef[3], 0x1.ffffffffffffbp-2);
    // det is left holding the minor without row 3 and column 3.
    EXPECT_EQ(f->det, 0x1.10cd35a858795p+6);
    EXPECT_EQ(f->det, f->Normal[1][1] * f->Normal[2][2] - f->Normal[1][2] * f->Normal[2][1]);
}

TEST(LsmFitOls, SingleValueGoesThroughInverseTimesProjection) {
    // ((1/sum x^2) * x_k) * y_k summed; the plain ratio of sums ends in ...f17.
    auto f = fitted({1.0, 2.0, 3.0}, {0.1, 0.25, 0.2});
    EXPECT_EQ(f->Coef[1], 0x1.5f15f15f15f16p-4);
    EXPECT_EQ(f->Normal[1][1], 14.0);
    EXPECT_EQ(f->Inv[1][1], 1.0 / 14.0);
    EXPECT_EQ(f->det, 1.0);  // the minor of a 1 x 1 matrix is the empty product
}

TEST(LsmFitOls, DegenerateProblemsGiveNonFiniteCoefficients) {
    auto f = fitted({1.0, 1.0, 2.0, 2.0, 3.0, 3.0}, {1.0, 2.0, 3.0});  // identical columns
    EXPECT_FALSE(std::isfinite(f->Coef[1]));
    EXPECT_FALSE(std::isfinite(f->Coef[2]));

    f = fitted({0.0, 0.0, 0.0}, {1.0, 2.0, 3.0});
    EXPECT_TRUE(std::isnan(f->Coef[1]));
}

TEST(LsmFitOls, EmptyProblemLeavesCoefficientsAlone) {
    auto f = std::make_unique<CMvLsmFit>();
    f->Coef[1] = 7.0;
    f->init({1.0, 2.0}, {});  // no samples: an empty problem, no division by zero
    EXPECT_EQ(f->nSample, 0);
    EXPECT_EQ(f->nVar, 0);
    f->OLS();
    EXPECT_EQ(f->det, 1.0);
    EXPECT_EQ(f->Coef[1], 7.0);

    auto g = std::make_unique<CMvLsmFit>();  // OLS without init
    g->OLS();
    EXPECT_EQ(g->det, 1.0);
}

TEST(LsmFitOls, CountsAreClampedToTheArrays) {
    std::vector<double> x, y;
    for (int k = 0; k < 50; ++k) {
        x.push_back(k);
        y.push_back(2.0 * k);
    }
    auto f = std::make_unique<CMvLsmFit>();
    f->init(x, y);
    EXPECT_EQ(f->nSample, 40);  // samples past 40 are ignored
    EXPECT_EQ(f->B[40], 78.0);

    std::vector<double> wide(25, 1.0);
    f->init(wide, {5.0});
    EXPECT_EQ(f->nVar, 20);  // only the first 20 values of a sample are kept
    EXPECT_EQ(f->nSample, 1);
}

TEST(LsmFitOls, ProjectionRowsOverlapPastTwentySamples) {
    struct Case {
        int m;
        double c1, c2;
    };
    // Up to 21 samples the rows do not overlap and both coefficients are the
    // least squares solution; from 22 on, row 2 overwrites the tail of row 1.
    const Case cases[] = {
        {20, 0x1.82c0034e2338cp+0, -0x1.7df5c64308ba8p-1},
        {21, 0x1.8340a4cb483bbp+0, -0x1.80d02932d20f0p-1},
        {25, 0x1.0282e1dc39bf6p-1, -0x1.7f6a68dfe7376p-1},   // unspoiled c1 would be 1.5098
        {40, -0x1.6d1dc53582fc0p-5, -0x1.7de98770a2c60p-1},  // unspoiled c1 would be 1.5061
    };
    for (const Case& c : cases) {
        std::vector<double> x, y;
        twoColumnSamples(c.m, false, x, y);
        auto f = fitted(x, y);
        EXPECT_EQ(f->Coef[1], c.c1) << "m=" << c.m;
        EXPECT_EQ(f->Coef[2], c.c2) << "m=" << c.m;
    }

    // With 21 samples the last entry of row 1 lands in column 0 of row 2.
    std::vector<double> x, y;
    twoColumnSamples(21, false, x, y);
    auto f = fitted(x, y);
    EXPECT_EQ(f->Proj[2][0], 0x1.af30c4b31ee12p-7);

    // Three values and the full 40 samples: only the last row is unspoiled.
    x.clear();
    y.clear();
    twoColumnSamples(40, true, x, y);
    f = fitted(x, y);
    EXPECT_EQ(f->Coef[1], -0x1.7f1fa679d09c1p-2);
    EXPECT_EQ(f->Coef[2], 0x1.b27eb81ab2099p+4);
    EXPECT_EQ(f->Coef[3], 0x1.36b048ce48890p-4);
}

TEST(LsmFitDemo, ListsTheAdmittedSamples) {
    auto f = std::make_unique<CMvLsmFit>();
    testing::internal::CaptureStdout();
    f->init();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out,
              "Array[][], B[]:\n"
              "0.00000000 0.00000000 0.00000000 ,0.00000000 \n"
              "50.00000000 0.00000000 125000.00000000 ,65.90000000 \n"
              "50.00000000 125000.00000000 125000.00000000 ,67.80000000 \n"
              "50.00000000 125000.00000000 0.00000000 ,64.50000000 \n"
              "0.00000000 125000.00000000 0.00000000 ,0.00000000 \n"
              "0.00000000 0.00000000 0.00000000 ,0.00000000 \n"
              "50.00000000 125000.00000000 125000.00000000 ,61.30000000 \n"
              "0.00000000 0.00000000 0.00000000 ,0.00000000 \n"
              "50.00000000 0.00000000 125000.00000000 ,66.50000000 \n"
              "50.00000000 125000.00000000 125000.00000000 ,67.80000000 \n"
              "\n");
    EXPECT_EQ(f->nSample, 10);
    EXPECT_EQ(f->nVar, 3);
}
