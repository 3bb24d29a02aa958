// A million field points through the correction of the bundled sample (nine
// points plus a 9 x 9 and a 17 x 17 grid), in the blocks `vrncal correct`
// uses.  The target is well under a second per million points.
#include <benchmark/benchmark.h>
#include <random>
#include <vector>

#include "correct.h"
#include "workflow/calfile.h"

namespace {

using namespace vrncal::tools;
using vrncal::workflow::Calibration;
using vrncal::workflow::load_calibration;

std::vector<tagKelPointF> field_points(std::size_t n, double half) {
    std::mt19937_64 gen(1);
    std::vector<tagKelPointF> pts(n);
    for (auto& p : pts) {
        p.x = static_cast<float>((static_cast<double>(gen() >> 11) * 0x1p-53 * 2.0 - 1.0) * half);
        p.y = static_cast<float>((static_cast<double>(gen() >> 11) * 0x1p-53 * 2.0 - 1.0) * half);
    }
    return pts;
}

void run(benchmark::State& state, Conversion conv, int mode) {
    Calibration cal = load_calibration(VRNCAL_EXAMPLES "/sample.cor");
    cal.par.CalMode = mode;
    const std::size_t n = 1000000, block = 1 << 16;
    const auto in = field_points(n, 0.5 * cal.par.ValSize);
    std::vector<tagKelPointF> out(block);
    const BlockCorrector corrector(cal.par, conv);
    for (auto _ : state) {
        for (std::size_t at = 0; at < n; at += block) {
            corrector.run(in.data() + at, out.data(), std::min(block, n - at));
            benchmark::DoNotOptimize(out.data());
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * n));
}

void MillionPointsGrid(benchmark::State& s) { run(s, Conversion::Corrected, 1); }
void MillionPointsBox(benchmark::State& s) { run(s, Conversion::Corrected, 0); }
void MillionPointsScaleAndShift(benchmark::State& s) { run(s, Conversion::ScaleAndShift, 1); }

}  // namespace

BENCHMARK(MillionPointsGrid)->Unit(benchmark::kMillisecond);
BENCHMARK(MillionPointsBox)->Unit(benchmark::kMillisecond);
BENCHMARK(MillionPointsScaleAndShift)->Unit(benchmark::kMillisecond);
