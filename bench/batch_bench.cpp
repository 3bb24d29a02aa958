// The batch corrector's paths against the facade and against the Corrector
// as it was ("today", bench/baseline_corrector.cpp), in one process, on six
// records: the nine-point model alone, one 9 x 9 grid, one 65 x 65 grid, six
// grids (5, 9, 17, 33, 65, 25), box mode with gain tables, and the bundled
// sample; each on 200 000 random points and on a raster of scan lines.  All
// give the same bits (the calib tests prove it); this measures the time.
//
// Each row shows ns per point and M points/s (items_per_second, both from
// the CPU time, as Google Benchmark reports rates), and the
// ratios x_facade (facade time / this time) and x_today (today's Corrector
// time / this time), worked out against the facade and today rows of the
// same record and input, repetition by repetition and for the aggregates.
// Run with --benchmark_repetitions=3 on a quiet machine and read the medians.
// The Construct rows time building a Corrector.
#include <benchmark/benchmark.h>

#include <cmath>
#include <map>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include "baseline_corrector.h"
#include "vrncal/batch.h"
#include "vrncal/bcd_file.h"
#include "vrncal/facade.h"

namespace {

using vrncal::Corrector;

constexpr std::size_t kPoints = 200000;

tagLenPar sample() {
    tagLenPar par;
    CBcdFile::LoadCorFile(VRNCAL_EXAMPLES "/sample.cor", par);
    par.CalMode = 1;
    return par;
}

// A measured grid over the field as a calibration run gives it: a mild
// pincushion left by the nine-point model, plus 2 um of noise.
tagStack grid(double val, int n, std::uint32_t seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> noise(0.0, 0.002);
    tagStack s;
    s.Size = n;
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) {
            const double x = -val / 2 + c * val / (n - 1), y = val / 2 - r * val / (n - 1);
            const double k = 1.0 + 2e-6 * (x * x + y * y);
            s.Points.push_back(tagCalData{float(x), float(y), float(x * k + noise(gen)), float(y * k + noise(gen))});
        }
    return s;
}

tagLenPar withGrids(std::initializer_list<int> sizes) {
    tagLenPar par = sample();
    par.Stacks.clear();
    std::uint32_t seed = 1;
    for (int n : sizes) par.Stacks.push_back(grid(par.ValSize, n, seed++));
    return par;
}

tagLenPar boxWithTables() {
    tagLenPar par = sample();
    par.CalMode = 0;
    par.BoxScaleX = 100.4, par.BoxScaleY = 99.7, par.BoxSkewX = 1.0003, par.BoxSkewY = 0.9998;
    par.BoxTrapX = 1.0001, par.BoxTrapY = 0.9999, par.BoxBarrelX = 0.9985, par.BoxBarrelY = 0.9982;
    par.BoxGrid = 1;
    par.BoxLineCount = 21;
    for (int i = 0; i < 21; ++i) {
        par.BoxXT[i] = par.BoxYT[i] = -40.0 + 4.0 * i;
        par.BoxXR[i] = 1.0 + 0.0005 * std::sin(i);
        par.BoxYR[i] = 1.0 - 0.0005 * std::cos(i);
    }
    return par;
}

std::vector<tagKelPointF> randomPoints(double half) {
    std::mt19937_64 gen(1);
    std::uniform_real_distribution<double> u(-half, half);
    std::vector<tagKelPointF> pts(kPoints);
    for (auto& p : pts) p = tagKelPointF{float(u(gen)), float(u(gen))};
    return pts;
}

// 400 scan lines of 500 points, left to right, top to bottom.
std::vector<tagKelPointF> rasterPoints(double half) {
    std::vector<tagKelPointF> pts;
    pts.reserve(kPoints);
    for (int line = 0; line < 400; ++line)
        for (int k = 0; k < 500; ++k)
            pts.push_back(tagKelPointF{float(-half + 2 * half * k / 499), float(half - 2 * half * line / 399)});
    return pts;
}

template <typename Correct>
void measure(benchmark::State& state, const std::vector<tagKelPointF>& in, Correct&& correct) {
    std::vector<tagKelPointF> out(in.size());
    for (auto _ : state) {
        correct(in.data(), out.data(), in.size());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * in.size()));
}

void registerRecord(const std::string& name, const tagLenPar& par) {
    const double half = 0.5 * par.ValSize;
    for (const auto& [input, pts] : {std::pair{"random", randomPoints(half)}, std::pair{"raster", rasterPoints(half)}}) {
        const std::string prefix = name + "/" + input + "/";
        benchmark::RegisterBenchmark((prefix + "facade").c_str(), [&par, pts = pts](benchmark::State& st) {
            VrnCal vc;
            measure(st, pts, [&](const tagKelPointF* in, tagKelPointF* out, std::size_t n) {
                for (std::size_t i = 0; i < n; ++i) vc.CalibPoint(par, in[i], out[i]);
            });
        });
        benchmark::RegisterBenchmark((prefix + "today").c_str(), [&par, pts = pts](benchmark::State& st) {
            const baseline::Corrector c(par);
            measure(st, pts, [&](const tagKelPointF* in, tagKelPointF* out, std::size_t n) { c.correct(in, out, n); });
        });
        for (const auto& [label, path] : {std::pair{"scalar", Corrector::Path::Scalar},
                                          std::pair{"avx2", Corrector::Path::Avx2},
                                          std::pair{"vector", Corrector::Path::Automatic}}) {
            benchmark::RegisterBenchmark((prefix + label).c_str(), [&par, pts = pts, path = path](benchmark::State& st) {
                const Corrector c(par, path);
                static const char* const names[] = {"automatic", "scalar", "avx2", "avx512"};
                st.SetLabel(names[static_cast<int>(c.path())]);
                measure(st, pts, [&](const tagKelPointF* in, tagKelPointF* out, std::size_t n) { c.correct(in, out, n); });
            });
        }
    }
    benchmark::RegisterBenchmark(("Construct/" + name).c_str(), [&par](benchmark::State& st) {
        for (auto _ : st) {
            Corrector c(par);
            benchmark::DoNotOptimize(&c);
        }
    })->Unit(benchmark::kMicrosecond);
}

// Adds ns per point and the ratios to the facade and today rows of the same
// record and input before printing.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    // Colours only on a terminal.
    RatioReporter() : ConsoleReporter(::isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        std::vector<Run> shown = runs;
        for (Run& r : shown) {
            const std::string name = r.run_name.function_name;
            const auto slash = name.rfind('/');
            if (name.rfind("Construct/", 0) == 0 || slash == std::string::npos || r.iterations == 0) continue;
            const std::string group = name.substr(0, slash) + "|" + r.aggregate_name + "|" +
                                      std::to_string(r.repetition_index);
            const std::string variant = name.substr(slash + 1);
            if (r.aggregate_name == "stddev" || r.aggregate_name == "cv") continue;
            const double seconds = r.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(r.time_unit);
            r.counters["ns_per_pt"] = benchmark::Counter(seconds / kPoints * 1e9);
            if (variant == "facade" || variant == "today") times_[variant + "|" + group] = seconds;
            for (const char* ref : {"facade", "today"}) {
                const auto it = times_.find(std::string(ref) + "|" + group);
                if (it != times_.end() && seconds > 0.0)
                    r.counters[std::string("x_") + ref] = benchmark::Counter(it->second / seconds);
            }
        }
        ConsoleReporter::ReportRuns(shown);
    }

private:
    std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
    // The records live until the end: the benchmarks keep references.
    static const std::vector<std::pair<std::string, tagLenPar>> records = {
        {"nine", withGrids({})},
        {"grid9", withGrids({9})},
        {"grid65", withGrids({65})},
        {"six", withGrids({5, 9, 17, 33, 65, 25})},
        {"box", boxWithTables()},
        {"sample", sample()},
    };
    for (const auto& [name, par] : records) registerRecord(name, par);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
