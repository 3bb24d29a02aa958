// diff: a calibration against itself is exactly zero, and a grid node moved
// by 10 um shows at that node, by 10 um less the gain the correction applies.
#include <cmath>
#include <gtest/gtest.h>

#include "workflow/calfile.h"
#include "workflow/diff.h"
#include "workflow/error.h"

namespace vrncal::workflow {
namespace {

TEST(Diff, ItselfIsExactlyZero) {
    const Calibration cal = load_calibration(VRNCAL_EXAMPLES "/sample.cor");
    const Difference d = diff_calibrations(cal.par, cal.par, 101);
    EXPECT_EQ(d.points, 101u * 101u + 289u);  // the 9 x 9 nodes are among the 17 x 17 ones
    EXPECT_EQ(d.differing, 0u);
    EXPECT_EQ(d.max_counts, 0.0);
    EXPECT_EQ(d.rms_counts, 0.0);
}

TEST(Diff, OneNodeMovedShowsAtThatNode) {
    const Calibration a = load_calibration(VRNCAL_EXAMPLES "/sample.cor");
    for (const auto& [stack, node] : {std::pair<int, int>{1, 17 * 5 + 11}, std::pair<int, int>{0, 9 * 8 + 2}}) {
        tagLenPar b = a.par;
        tagCalData& n = b.Stacks[static_cast<std::size_t>(stack)].Points[static_cast<std::size_t>(node)];
        n.RealX += 0.006f;  // 6 um and 8 um: 10 um in all
        n.RealY -= 0.008f;
        const Difference d = diff_calibrations(a.par, b, 101);
        EXPECT_EQ(d.where.x, n.X);
        EXPECT_EQ(d.where.y, n.Y);
        // The correction pulls back by the deviation times each axis gain.
        const double kc = a.par.Resolution / a.par.FieldSize;
        const double want = kc * std::hypot(0.006 * a.par.CalCoefs.ScaleX, 0.008 * a.par.CalCoefs.ScaleY);
        EXPECT_NEAR(d.max_counts, want, 0.01);
        EXPECT_NEAR(d.max_counts / kc * 1000.0, 10.0, 0.1);
        EXPECT_LT(d.differing, d.points / 2);  // only the cells around the node move
    }
}

TEST(Diff, DifferentDeviceRangesDoNotCompare) {
    const Calibration a = load_calibration(VRNCAL_EXAMPLES "/sample.cor");
    tagLenPar b = a.par;
    b.FieldSize = 120.0;
    EXPECT_THROW(check_comparable(a.par, b, "a", "b"), Error);
    // A correction that gives NaN anywhere never reads as small.
    b = a.par;
    b.Stacks[0].Points[40].RealX = std::nanf("");
    const Difference d = diff_calibrations(a.par, b, 41);
    EXPECT_GT(d.not_finite, 0u);
    EXPECT_TRUE(std::isnan(d.max_counts));
}

}  // namespace
}  // namespace vrncal::workflow
