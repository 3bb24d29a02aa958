// Verification on the simulated heads: measured landing errors of a
// verification run agree with the simulated evaluation of the same targets;
// the inverse undoes the correction of a table calibrated on measured head
// data; the held-out check finds what a thinned grid misses.
#include <cmath>
#include <gtest/gtest.h>

#include <vrncal/facade.h>
#include <vrncal/inverse.h>

#include "workflow/calfile.h"
#include "workflow/error.h"
#include "workflow/evaluate.h"
#include "workflow/fit_report.h"
#include "workflow/job.h"
#include "workflow/lens.h"
#include "workflow/measured_head.h"
#include "workflow/simulate.h"
#include "workflow/table_file.h"
#include "workflow/verification.h"

namespace vrncal::workflow {
namespace {

// A table calibrated on the bundled measured head data (a field of 126 mm,
// calibrated over +-60), nine points then 9 x 9 and 17 x 17 grids.
tagLenPar head_table(const MeasuredHead& head) {
    SimulateOptions opt;
    opt.head = &head;
    opt.grids = {9, 17};
    opt.field_size = 126.0;
    opt.val_size = 120.0;
    opt.noise_um = 10.0;
    return load_table_text(table_text(simulate_calibration(opt)), opt.field_size);
}

void expect_agreement(const Head& head, const tagLenPar& par, int n) {
    const ErrorStats simulated = evaluate_stages(head, par, n).back().stats;
    const auto marks = simulated_verification(head, par, verification_marks(par, n));
    const LandingReport measured = landing_report(par, marks, LengthUnit{});
    ASSERT_EQ(measured.overall.count, simulated.count);
    // The measured landings are held as floats: a few thousandths of a um.
    EXPECT_NEAR(measured.overall.max, simulated.max, 0.01);
    EXPECT_NEAR(measured.overall.rms, simulated.rms, 0.01);
    EXPECT_NEAR(measured.overall.p95, simulated.p95, 0.01);
    EXPECT_GT(simulated.max, 1.0);  // not two zeros agreeing
    std::size_t in_rings = 0;
    for (const auto& r : measured.rings) in_rings += r.stats.count;
    EXPECT_EQ(in_rings, measured.overall.count);
}

TEST(Verification, MeasuredAgreesWithSimulatedOnTheLens) {
    const Calibration cal = load_calibration(VRNCAL_EXAMPLES "/sample.cor");
    expect_agreement(read_lens_file(VRNCAL_EXAMPLES "/lens.ini"), cal.par, 41);
}

TEST(Verification, MeasuredAgreesWithSimulatedOnMeasuredHeadData) {
    const MeasuredHead head = read_measured_head(VRNCAL_EXAMPLES "/head.csv");
    expect_agreement(head, head_table(head), 41);
}

TEST(Verification, InverseUndoesTheCorrectionOnMeasuredHeadData) {
    const MeasuredHead head = read_measured_head(VRNCAL_EXAMPLES "/head.csv");
    const tagLenPar par = head_table(head);
    const Inverter inv(par);
    EXPECT_FALSE(inv.folds());
    const double kc = par.Resolution / par.FieldSize, tol = InverseOptions{}.tolerance;
    const auto targets = target_pattern(121, par.ValSize);
    int far = 0;
    for (const auto& p : targets) {
        tagKelPointF c{}, back{};
        VrnCal().CalibPoint(par, p, c);
        const InverseResult r = inv.invert(c);
        ASSERT_EQ(r.status, InverseStatus::Converged) << p.x << ", " << p.y;
        VrnCal().CalibPoint(par, r.field, back);
        ASSERT_LE(std::fabs(back.x - c.x), tol);
        ASSERT_LE(std::fabs(back.y - c.y), tol);
        const double d = std::fmax(std::fabs(r.field.x - p.x), std::fabs(r.field.y - p.y));
        ASSERT_LE(d, 0.00075 * 1.1 + 2 * tol / kc) << p.x << ", " << p.y;  // two points across a jump
        far += d > 2 * tol / kc;
    }
    EXPECT_LE(far, static_cast<int>(targets.size()) / 100);
    // Beyond the calibrated field, clearly said.
    tagKelPointF c{};
    VrnCal().CalibPoint(par, {61.0f, 0.0f}, c);
    EXPECT_EQ(inv.invert(c).status, InverseStatus::OutsideField);
}

TEST(Verification, MarksOfAnotherCalibrationAreRefused) {
    const Calibration cal = load_calibration(VRNCAL_EXAMPLES "/sample.cor");
    auto marks = simulated_verification(read_lens_file(VRNCAL_EXAMPLES "/lens.ini"), cal.par,
                                        verification_marks(cal.par, 5));
    EXPECT_NO_THROW(check_drives(cal.par, "v.csv", marks));
    marks[7].drive.x += 0.05f;
    try {
        check_drives(cal.par, "v.csv", marks);
        FAIL();
    } catch (const Error& e) {
        EXPECT_EQ(std::string(e.what()).rfind("v.csv:8: the mark at (0, 20) was driven to", 0), 0u) << e.what();
    }
}

// A 17 x 17 grid whose deviation is linear in x and y: the thinned grid
// interpolates it exactly (it stays clear of the 0.001 where the correction
// jumps), until one node left out is measured 10 um off.
TEST(Verification, HoldoutFindsWhatTheThinnedGridMisses) {
    tagLenPar par;
    par.CalMode = 1;
    tagStack s;
    s.Size = 17;
    for (int r = 0; r < 17; ++r)
        for (int c = 0; c < 17; ++c) {
            const float x = -40.0f + 5.0f * c, y = 40.0f - 5.0f * r;
            s.Points.push_back({x, y, x + 0.02f + 0.0001f * x, y - 0.03f + 0.00005f * y});
        }
    par.Stacks.push_back(s);
    Holdout h = holdout_check(par, LengthUnit{});
    EXPECT_EQ(h.size, 17);
    EXPECT_EQ(h.kept, 9);
    EXPECT_EQ(h.left_out, 17u * 17u - 9u * 9u);
    EXPECT_LT(h.error.max, 0.05);       // um: the float rounding of the interpolation
    EXPECT_GT(h.deviation.max, 4.0);    // what the grid corrects is not small
    par.Stacks[0].Points[5 * 17 + 7].RealX += 0.01f;  // row 5, column 7: left out
    h = holdout_check(par, LengthUnit{});
    EXPECT_NEAR(h.error.max, 10.0, 0.05);
    EXPECT_EQ(h.worst.x, -5.0f);
    EXPECT_EQ(h.worst.y, 15.0f);
    par.Stacks.clear();
    EXPECT_THROW(holdout_check(par, LengthUnit{}), Error);
}

// The fit report: on the lens, what the model leaves at a nine point is
// what lands there without grids; a 9 x 9 grid marked with the head driven
// linearly is recognised, one marked through the table is not.
TEST(Verification, FitReportInRealUnits) {
    const LensModel lens = read_lens_file(VRNCAL_EXAMPLES "/lens.ini");
    const Calibration cal = load_calibration(VRNCAL_EXAMPLES "/sample.cor");
    const FitReport r = fit_report(cal.par, LengthUnit{}, &lens, nullptr, "");
    EXPECT_NEAR(r.targets[7].residual, 223.22, 0.01);  // um, at (0, -40)
    EXPECT_NEAR(*r.targets[7].model_error, 226.25, 0.01);
    EXPECT_LT(*r.targets[7].full_error, 5.0);
    ASSERT_EQ(r.grids.size(), 2u);
    EXPECT_NEAR(r.grids[0].max, 225.61, 0.01);
    EXPECT_FALSE(r.grids[0].looks_linear || r.grids[1].looks_linear);

    tagLenPar single = cal.par;
    tagLenPar plain = cal.par;  // the settings: the linear drive
    Noise none(1, 0.0);
    const auto marks = plan_marks(plain, 9, Drive::Linear);
    single.Stacks.assign(1, tagStack{});
    single.Stacks[0].Size = 9;
    single.Stacks[0].Points = stored_points(plain, 9, marks, measure_marks(lens, plain, marks, none, 0.0));
    const FitReport s = fit_report(single, LengthUnit{}, nullptr, nullptr, "");
    EXPECT_TRUE(s.grids[0].looks_linear);
    EXPECT_GT(s.grids[0].max, 1000.0);  // the raw head's pincushion, um
}

}  // namespace
}  // namespace vrncal::workflow
