// The whole calibration of the measured head (nine points, 9 x 9, 17 x 17)
// with every stage measured from a rendered scan, against the same loop
// measured exactly.  A scan fixes its own frame (centre mark, centre row),
// so both are judged by the landing error left once the field is placed as
// well as it can be (a rotation and a shift): the sheet's place on the
// machine is not the scan's to know.
#include <gtest/gtest.h>

#include "scan_stage.h"
#include "workflow/evaluate.h"
#include "workflow/measured_head.h"
#include "workflow/stats.h"

namespace vrncal::scan::testing {
namespace {

tagLenPar calibrate(const workflow::Head& head, bool scanned) {
    workflow::TableContent t;
    t.field_size = 126.0;
    t.val_size = 120.0;
    for (int n : {3, 9, 17}) {
        const Stage s = plan_stage(head, t, n);
        std::vector<tagKelPointF> measured;
        if (scanned) {
            RenderOptions ro;
            ro.seed = static_cast<std::uint64_t>(n);
            const ScanReport r = scan_stage(head, s, ro);
            EXPECT_EQ(r.matched(), s.job.marks.size());
            for (const auto& node : r.nodes) measured.push_back(node.measured);
        } else {
            for (const auto& m : s.job.marks) {
                const auto h = workflow::land_in_caller_frame(head, s.par, tagKelPointF{m.u, m.v});
                measured.push_back(tagKelPointF{static_cast<float>(h.x), static_cast<float>(h.y)});
            }
        }
        const auto pts = workflow::stored_points(s.par, n, s.job.marks, measured);
        if (n == 3)
            std::copy(pts.begin(), pts.end(), t.nine);
        else
            t.grids.push_back(tagStack{n, 1, pts});
    }
    return workflow::load_table_text(workflow::table_text(t), *t.field_size);
}

TEST(ScanLoop, ReachesTheLandingErrorOfExactMeasurements) {
    const workflow::MeasuredHead head = workflow::read_measured_head(VRNCAL_EXAMPLES "/head.csv");
    auto placed = [&](const tagLenPar& par) {
        return workflow::summarize(
            workflow::landing_errors_um(head, par, workflow::target_pattern(61, 120.0), true, true));
    };
    const auto exact = placed(calibrate(head, false));
    const auto scanned = placed(calibrate(head, true));
    std::printf(
        "landing error after nine points, 9x9 and 17x17: exact measurements rms %.2f um, max %.2f um; "
        "scans at 600 dpi rms %.2f um, max %.2f um\n",
        exact.rms, exact.max, scanned.rms, scanned.max);
    EXPECT_LE(scanned.rms, 1.2 * exact.rms);
    EXPECT_LE(scanned.max, 1.2 * exact.max);
}

}  // namespace
}  // namespace vrncal::scan::testing
