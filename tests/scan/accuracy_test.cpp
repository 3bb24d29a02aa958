// Rendered scans of the 9 x 9 and 17 x 17 stages of both simulated heads, at
// 600 and 1200 dpi: every node is matched, and the measured positions agree
// with the simulator's true landings (in the sheet's frame) within bounds.
#include <gtest/gtest.h>

#include "scan_stage.h"
#include "workflow/lens.h"
#include "workflow/measured_head.h"

namespace vrncal::scan::testing {
namespace {

struct HeadCase {
    const char* name;
    double field, val;
};

class Accuracy : public ::testing::TestWithParam<std::tuple<int, int, int>> {};

TEST_P(Accuracy, EveryNodeMatchedWithinBounds) {
    const auto [which, n, dpi] = GetParam();
    const workflow::LensModel lens = workflow::read_lens_file(VRNCAL_EXAMPLES "/lens.ini");
    const workflow::MeasuredHead measured = workflow::read_measured_head(VRNCAL_EXAMPLES "/head.csv");
    const workflow::Head& head = which == 0 ? static_cast<const workflow::Head&>(lens) : measured;
    workflow::TableContent t;
    t.field_size = which == 0 ? 100.0 : 126.0;
    t.val_size = which == 0 ? 80.0 : 120.0;
    measure_nine(head, t);
    const Stage s = plan_stage(head, t, n);
    RenderOptions ro;
    ro.dpi = dpi;
    ro.seed = static_cast<std::uint64_t>(n * 10 + dpi);
    const ScanReport r = scan_stage(head, s, ro);
    const Agreement a = agreement(r, s.truth);
    std::printf("%s %dx%d at %d dpi: %zu of %zu matched, rms %.2f um, max %.2f um, uncertainty of a mark %.2f um\n",
                which == 0 ? "lens" : "measured head", n, n, dpi, a.matched, s.truth.size(), a.rms_um, a.max_um,
                r.nodes[0].uncertainty_um);
    EXPECT_EQ(a.matched, s.truth.size());
    EXPECT_LT(a.rms_um, dpi == 1200 ? 3.0 : 5.0);
    EXPECT_LT(a.max_um, dpi == 1200 ? 8.0 : 12.0);
}

INSTANTIATE_TEST_SUITE_P(Heads, Accuracy,
                         ::testing::Combine(::testing::Values(0, 1), ::testing::Values(9, 17), ::testing::Values(600, 1200)));

}  // namespace
}  // namespace vrncal::scan::testing
