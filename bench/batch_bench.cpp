// The batch corrector against the facade, point by point, in the same
// process: the facade scans every cell of every grid for each point, the
// Corrector looks the cell up in its index.  Both give the same bits (the
// calib tests prove it); this measures what the index buys.  After the table
// the ratio facade time / Corrector time is printed for each record.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "vrncal/batch.h"
#include "vrncal/bcd_file.h"
#include "vrncal/facade.h"

namespace {

constexpr std::size_t kPoints = 100000;

std::vector<tagKelPointF> fieldPoints(double half) {
    std::mt19937_64 gen(1);
    std::uniform_real_distribution<double> u(-half, half);
    std::vector<tagKelPointF> pts(kPoints);
    for (auto& p : pts) p = tagKelPointF{static_cast<float>(u(gen)), static_cast<float>(u(gen))};
    return pts;
}

tagLenPar sampleRecord() {
    tagLenPar par;
    CBcdFile::LoadCorFile(VRNCAL_EXAMPLES "/sample.cor", par);
    par.CalMode = 1;
    return par;
}

// One fine 65 x 65 grid with a mild pincushion, as a dense calibration has.
tagLenPar fineRecord() {
    tagLenPar par;
    par.FieldSize = par.ValSize = 100.0;
    par.CalMode = 1;
    tagStack s;
    s.Size = 65;
    for (int r = 0; r < 65; ++r)
        for (int c = 0; c < 65; ++c) {
            const double x = -50.0 + c * (100.0 / 64), y = 50.0 - r * (100.0 / 64);
            const double k = 1.0 + 2e-5 * (x * x + y * y);
            s.Points.push_back(tagCalData{float(x), float(y), float(x * k), float(y * k)});
        }
    par.Stacks.push_back(s);
    return par;
}

void facade(benchmark::State& state, const tagLenPar& par) {
    const auto in = fieldPoints(0.5 * par.ValSize);
    std::vector<tagKelPointF> out(in.size());
    VrnCal vc;
    for (auto _ : state) {
        for (std::size_t i = 0; i < in.size(); ++i) vc.CalibPoint(par, in[i], out[i]);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * in.size()));
}

void corrector(benchmark::State& state, const tagLenPar& par) {
    const auto in = fieldPoints(0.5 * par.ValSize);
    std::vector<tagKelPointF> out(in.size());
    const vrncal::Corrector c(par);
    for (auto _ : state) {
        c.correct(in.data(), out.data(), in.size());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * in.size()));
}

// Prints the table as usual and remembers the time per iteration of each
// run, to print the ratios at the end.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) times_[r.benchmark_name()] = r.GetAdjustedRealTime();
    }
    void printRatios() const {
        for (const auto& [name, t] : times_) {
            const auto slash = name.find('/');
            if (name.compare(0, slash, "Facade") != 0) continue;
            const std::string record = name.substr(slash);
            const auto fast = times_.find("Corrector" + record);
            if (fast == times_.end() || fast->second <= 0.0) continue;
            std::printf("speed-up of the Corrector over the facade on %s: %.2fx\n", record.c_str() + 1,
                        t / fast->second);
        }
    }

private:
    std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
    const tagLenPar sample = sampleRecord();
    const tagLenPar fine = fineRecord();
    benchmark::RegisterBenchmark("Facade/sample", facade, sample)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("Corrector/sample", corrector, sample)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("Facade/fine65", facade, fine)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("Corrector/fine65", corrector, fine)->Unit(benchmark::kMillisecond);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    benchmark::Shutdown();
    return 0;
}
