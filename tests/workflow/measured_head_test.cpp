// The head defined by measured data: the spline passes through every
// measured point and reproduces a landing that is linear in the drive.
#include <cmath>
#include <gtest/gtest.h>

#include "workflow/error.h"
#include "workflow/measured_head.h"

namespace vrncal::workflow {
namespace {

TEST(MeasuredHead, PassesThroughItsPointsAndKeepsAnAffineHeadAffine) {
    const std::vector<double> u{0, 10000, 30000, 45000, 65535}, v{0, 20000, 40000, 65535};
    auto affine = [](double uu, double vv) { return Head::Landing{0.002 * uu - 65.5 + 1e-5 * vv, 0.0021 * vv - 68.0}; };
    std::vector<double> x, y;
    for (double vv : v)
        for (double uu : u) {
            x.push_back(affine(uu, vv).x);
            y.push_back(affine(uu, vv).y);
        }
    const MeasuredHead head("h", u, v, x, y);
    const tagLenPar par;
    for (float uu : {0.0f, 5000.0f, 52000.5f, 65535.0f}) {
        const auto hit = head.land(par, {uu, 60000.0f});
        EXPECT_NEAR(hit.x, affine(uu, 60000.0).x, 1e-11) << uu;
        EXPECT_NEAR(hit.y, affine(uu, 60000.0).y, 1e-11) << uu;
    }
    // A node measured 90 um off: the spline passes through it and bends the
    // landing around it smoothly, by less than the offset.
    x[7] += 0.09;
    const MeasuredHead off("h", u, v, x, y);
    EXPECT_NEAR(off.land(par, {30000.0f, 20000.0f}).x, x[7], 1e-12);
    const double bent = off.land(par, {35000.0f, 20000.0f}).x - affine(35000.0, 20000.0).x;
    EXPECT_GT(bent, 0.0);
    EXPECT_LT(bent, 0.09);
    EXPECT_THROW(head.land(par, {-1.0f, 0.0f}), Error);
}

}  // namespace
}  // namespace vrncal::workflow
