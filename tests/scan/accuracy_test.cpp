// Rendered scans of the 9 x 9 and 17 x 17 stages of both simulated heads, at
// 600 and 1200 dpi: every node is matched, and the measured positions agree
// with the simulator's true landings (in the sheet's frame) within bounds.
#include <gtest/gtest.h>

#include "scan_stage.h"
#include "workflow/lens.h"
#include "workflow/measured_head.h"

namespace vrncal::scan::testing {
namespace {

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
    EXPECT_LT(a.rms_um, dpi == 1200 ? 2.0 : 4.0);
    EXPECT_LT(a.max_um, dpi == 1200 ? 4.0 : 8.0);
}

INSTANTIATE_TEST_SUITE_P(Heads, Accuracy,
                         ::testing::Combine(::testing::Values(0, 1), ::testing::Values(9, 17),
                                            ::testing::Values(600, 1200)));

}  // namespace
}  // namespace vrncal::scan::testing

namespace vrncal::scan::testing {
namespace {

class LensStage : public ::testing::Test {
protected:
    void SetUp() override {
        t_.field_size = 100.0;
        t_.val_size = 80.0;
        measure_nine(lens_, t_);
        stage_ = plan_stage(lens_, t_, 9);
    }
    ScanReport scan(RenderOptions ro, const MeasureOptions& mo = {}) const { return scan_stage(lens_, stage_, ro, mo); }

    const workflow::LensModel lens_ = workflow::read_lens_file(VRNCAL_EXAMPLES "/lens.ini");
    workflow::TableContent t_;
    Stage stage_;
};

// Node by node, one measurement against another.
Agreement between(const ScanReport& a, const ScanReport& b) {
    std::vector<Point> other;
    for (const auto& n : b.nodes) other.push_back(Point{n.measured.x, n.measured.y});
    return agreement(a, other);
}

TEST_F(LensStage, TurnedMirroredOrTiltedSheetsMeasureTheSame) {
    RenderOptions upright;
    upright.dpi = 1200;
    upright.angle_deg = 0.0;
    const ScanReport base = scan(upright);
    for (const auto& [angle, mirror] : {std::pair{90.0, false}, {180.0, false}, {0.0, true}, {7.0, false}}) {
        RenderOptions ro = upright;
        ro.angle_deg = angle, ro.mirrored = mirror, ro.seed = static_cast<std::uint64_t>(angle) + mirror;
        const ScanReport r = scan(ro);
        const Agreement truth = agreement(r, stage_.truth), same = between(r, base);
        std::printf(
            "sheet at %g degrees%s: against the truth rms %.2f um, max %.2f um; against upright rms %.2f um, "
            "max %.2f um\n",
            angle, mirror ? ", mirrored" : "", truth.rms_um, truth.max_um, same.rms_um, same.max_um);
        EXPECT_EQ(same.matched, 81u);
        EXPECT_EQ(r.mirrored, mirror);
        // The centre row lies at the head's mounting rotation on the sheet.
        const double want = mirror ? 180.0 - base.turned_deg : base.turned_deg + angle;
        EXPECT_NEAR(std::remainder(r.turned_deg - want, 360.0), 0.0, 0.01);
        for (const Agreement& a : {truth, same}) {  // the bounds of 1200 dpi
            EXPECT_LT(a.rms_um, 2.0);
            EXPECT_LT(a.max_um, 4.0);
        }
    }
}

TEST_F(LensStage, ScannerScaleIsCorrectedPerAxis) {
    RenderOptions ro;
    ro.stretch_x = 1.003, ro.stretch_y = 0.998;
    EXPECT_GT(agreement(scan(ro), stage_.truth).max_um, 100.0);
    MeasureOptions mo;
    mo.scale_x = 1 / 1.003, mo.scale_y = 1 / 0.998;
    const Agreement a = agreement(scan(ro, mo), stage_.truth);
    EXPECT_LT(a.rms_um, 5.0);
    EXPECT_LT(a.max_um, 12.0);
}

TEST_F(LensStage, CrossesAndLightMarksOnADarkSheet) {
    Stage crosses = stage_;
    crosses.job.style = workflow::mark_style(crosses.par, 9, workflow::Shape::Cross, std::nullopt);
    RenderOptions ro;
    const RenderedScan r = render_scan(lens_, crosses.par, crosses.job, ro);
    ScanImage img;
    r.image.convertTo(img.grey, CV_32F, -1.0 / 255.0, 1.0);  // light marks on a dark sheet
    MeasureOptions mo;
    mo.dpi = ro.dpi, mo.light_marks = true;
    const Agreement a = agreement(measure_scan("scan", img, crosses.job, mo), crosses.truth);
    std::printf("crosses, light on dark, at 600 dpi: rms %.2f um, max %.2f um\n", a.rms_um, a.max_um);
    EXPECT_EQ(a.matched, 81u);
    EXPECT_LT(a.rms_um, 8.0);
    EXPECT_LT(a.max_um, 16.0);
}

TEST_F(LensStage, FilesOfEveryKindReadBackWithTheirResolution) {
    RenderOptions ro;
    ro.angle_deg = 2.0;
    const RenderedScan grey = render_scan(lens_, stage_.par, stage_.job, ro);
    ro.bits = 16, ro.colour = true;
    const RenderedScan colour = render_scan(lens_, stage_.par, stage_.job, ro);
    const std::string dir = ::testing::TempDir();
    for (const auto& [path, image] : {std::pair{dir + "scan8.png", grey.image},
                                      {dir + "scan16.tif", colour.image},
                                      {dir + "scan16.png", colour.image}}) {
        write_image(path, image, 600.0);
        const ScanImage read = read_scan(path);
        std::remove(path.c_str());
        EXPECT_EQ(read.bits, image.depth() == CV_16U ? 16 : 8) << path;
        EXPECT_EQ(read.channels, image.channels()) << path;
        ASSERT_TRUE(read.dpi_x) << path;
        EXPECT_EQ(*read.dpi_x, 600.0) << path;
        const Agreement a = agreement(measure_scan(path, read, stage_.job, {}), stage_.truth);
        EXPECT_EQ(a.matched, 81u) << path;
        EXPECT_LT(a.rms_um, 5.0) << path;
    }
}

}  // namespace
}  // namespace vrncal::scan::testing
