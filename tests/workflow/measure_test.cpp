// Grids measured with the head driven linearly: told apart from residual
// grids, and their conversion to the residual form, on the measured head of
// examples/head.csv (field size 126, calibrated over +-60).
#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "workflow/error.h"
#include "workflow/evaluate.h"
#include "workflow/measure.h"
#include "workflow/measured_head.h"
#include "workflow/simulate.h"

namespace vrncal::workflow {
namespace {

class SinglePass : public ::testing::Test {
protected:
    void SetUp() override {
        t_.field_size = 126.0;
        t_.val_size = 120.0;
        const tagLenPar settings = settings_record(t_);
        const auto nine = plan_marks(settings, 3, Drive::Linear);
        const auto pts = stored_points(settings, 3, nine, measure_marks(head_, settings, nine, noise_, 20.0));
        std::copy(pts.begin(), pts.end(), t_.nine);
        cal_ = load_table_text(table_text(t_), 126.0);
    }
    // RMS landing error (um) of the table with the nine points and this grid.
    double rms_with(const std::vector<Mark>& marks, const std::vector<tagKelPointF>& measured) const {
        TableContent g = t_;
        g.grids = {tagStack{9, 1, stored_points(cal_, 9, marks, measured)}};
        const tagLenPar par = load_table_text(table_text(g), 126.0);
        return summarize(landing_errors_um(head_, par, target_pattern(41, 120.0), true)).rms;
    }
    // The 3-column form of a measurement (index, measured x, y): no drives.
    std::string import_error(const std::vector<tagKelPointF>& measured, ImportOptions opt = {}) const {
        std::string text = "index,measured_x,measured_y\n";
        for (std::size_t i = 0; i < measured.size(); ++i) text += fmt::format("{},{},{}\n", i, measured[i].x, measured[i].y);
        std::ofstream(path_) << text;
        TableFile table{"head.cor", table_text(t_), 126.0, cal_, cal_};
        try {
            prepare_import(table, path_, opt);
        } catch (const Error& e) {
            return e.what();
        }
        return "no error";
    }
    void TearDown() override { std::remove(path_.c_str()); }

    const MeasuredHead head_ = read_measured_head(VRNCAL_EXAMPLES "/head.csv");
    const std::string path_ = ::testing::TempDir() + "measure_" + std::to_string(::getpid()) + ".csv";
    Noise noise_{5, 1.0};
    TableContent t_;
    tagLenPar cal_;
};

TEST_F(SinglePass, IsRefusedAndItsConversionLandsNearARemeasuredGrid) {
    const auto linear = plan_marks(cal_, 9, Drive::Linear);
    const auto on_file = measure_marks(head_, cal_, linear, noise_, 20.0);
    const auto through = plan_marks(cal_, 9, Drive::Corrected);
    const auto remeasured = measure_marks(head_, cal_, through, noise_, 20.0);

    EXPECT_NE(import_error(on_file).find("looks marked with the head driven linearly"), std::string::npos);
    EXPECT_EQ(import_error(remeasured), "no error");
    ImportOptions as_is;
    as_is.as_residual = true;
    EXPECT_EQ(import_error(on_file, as_is), "no error");

    const double raw = rms_with(linear, on_file);
    const double converted = rms_with(linear, residual_form(cal_, linear, on_file));
    const double again = rms_with(through, remeasured);
    // Measured: raw 2479 um, converted 42.6 um, re-measured 31.6 um.
    EXPECT_LT(converted, raw / 20.0) << raw;
    EXPECT_LT(converted, 1.5 * again) << again;
}

}  // namespace
}  // namespace vrncal::workflow
