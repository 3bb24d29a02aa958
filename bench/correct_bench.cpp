// `vrncal correct` on a million field points: the correction loop alone (in
// the blocks the tool uses) and the whole run from a text file to a text
// file, reading, correcting and printing, on the bundled sample and on six
// grids (5, 9, 17, 33, 65, 25).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>

#include "correct.h"
#include "workflow/calfile.h"

namespace {

using namespace vrncal::tools;
using vrncal::workflow::load_calibration;

constexpr std::size_t kPoints = 1000000;

std::vector<tagKelPointF> field_points(std::size_t n, double half) {
    std::mt19937_64 gen(1);
    std::uniform_real_distribution<double> u(-half, half);
    std::vector<tagKelPointF> pts(n);
    for (auto& p : pts) p = tagKelPointF{static_cast<float>(u(gen)), static_cast<float>(u(gen))};
    return pts;
}

tagLenPar sample(int mode) {
    tagLenPar par = load_calibration(VRNCAL_EXAMPLES "/sample.cor").par;
    par.CalMode = mode;
    return par;
}

// The sample's coefficients with six measured grids: a mild pincushion and
// 2 um of noise.
tagLenPar six_grids() {
    tagLenPar par = sample(1);
    par.Stacks.clear();
    std::mt19937 gen(3);
    std::normal_distribution<double> noise(0.0, 0.002);
    for (int n : {5, 9, 17, 33, 65, 25}) {
        tagStack s;
        s.Size = n;
        for (int r = 0; r < n; ++r)
            for (int c = 0; c < n; ++c) {
                const double x = -40.0 + 80.0 * c / (n - 1), y = 40.0 - 80.0 * r / (n - 1);
                const double k = 1.0 + 2e-6 * (x * x + y * y);
                s.Points.push_back(tagCalData{float(x), float(y), float(x * k + noise(gen)), float(y * k + noise(gen))});
            }
        par.Stacks.push_back(s);
    }
    return par;
}

void loop(benchmark::State& state, const tagLenPar& par, Conversion conv) {
    const std::size_t block = 1 << 16;
    const auto in = field_points(kPoints, 0.5 * par.ValSize);
    std::vector<tagKelPointF> out(block);
    const BlockCorrector corrector(par, conv);
    for (auto _ : state) {
        for (std::size_t at = 0; at < kPoints; at += block) {
            corrector.run(in.data() + at, out.data(), std::min(block, kPoints - at));
            benchmark::DoNotOptimize(out.data());
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kPoints));
}

// A million points as a user's file holds them: four decimals, one per line.
std::string points_file(double half) {
    const std::string path = "/tmp/vrncal_bench_points_" + std::to_string(::getpid()) + ".txt";
    fmt::memory_buffer text;
    for (const tagKelPointF& p : field_points(kPoints, half)) fmt::format_to(std::back_inserter(text), "{:.4f} {:.4f}\n", p.x, p.y);
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return path;
    std::fwrite(text.data(), 1, text.size(), f);
    std::fclose(f);
    return path;
}

void file_to_file(benchmark::State& state, const tagLenPar& par) {
    const std::string in = points_file(0.5 * par.ValSize);
    const std::string out = in + ".out";
    for (auto _ : state) correct_points(par, Conversion::Corrected, in, out);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kPoints));
    std::remove(in.c_str());
    std::remove(out.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    static const tagLenPar grid = sample(1), box = sample(0), six = six_grids();
    benchmark::RegisterBenchmark("Loop/sample", loop, grid, Conversion::Corrected)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("Loop/six", loop, six, Conversion::Corrected)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("Loop/box", loop, box, Conversion::Corrected)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("Loop/scale_and_shift", loop, grid, Conversion::ScaleAndShift)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("FileToFile/sample", file_to_file, grid)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("FileToFile/six", file_to_file, six)->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
