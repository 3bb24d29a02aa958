// Least squares fitter: the empty problem, the capacities and the
// demonstration listing.  The worked fits are in tests/data/math.cases.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "vrncal/lsm_fit.h"

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
