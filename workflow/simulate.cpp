#include "workflow/simulate.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <set>

#include <vrncal/facade.h>

#include "workflow/atomic_file.h"
#include "workflow/error.h"

namespace vrncal::workflow {

namespace {

// Loads a table through a temporary file, as a machine would load it.
tagLenPar load_table(const TableContent& t) {
    const std::string text = table_text(t);
    std::string path = (std::filesystem::temp_directory_path() / "vrncal-simXXXXXX").string();
    const int fd = ::mkstemp(path.data());
    if (fd < 0) throw Error("cannot create a temporary file in " + std::filesystem::temp_directory_path().string());
    std::FILE* f = ::fdopen(fd, "wb");
    const bool written = f != nullptr && std::fwrite(text.data(), 1, text.size(), f) == text.size();
    if (f != nullptr) std::fclose(f);
    tagLenPar par;
    VrnCal vc;
    const bool loaded = written && vc.loadUcf(path.c_str(), par);
    std::remove(path.c_str());
    if (!loaded) throw Error("the simulated calibration does not load (temporary table " + path + ")");
    par.CalMode = 1;
    return par;
}

// Marks the nominal points of a grid with the given drive and measures them.
template <typename Drive>
void mark(const LensModel& lens, const tagLenPar& par, Noise& noise, double sigma_units, tagCalData* pts,
          std::size_t n, Drive drive) {
    for (std::size_t i = 0; i < n; ++i) {
        tagKelPointF counts{};
        drive(tagKelPointF{pts[i].X, pts[i].Y}, counts);
        const auto hit = lens.land(par, counts);
        if (!std::isfinite(hit.x) || !std::isfinite(hit.y))
            throw Error(fmt::format("simulate: the lens sends the spot for ({}, {}) off the work plane; check "
                                        "the focal length",
                                        pts[i].X, pts[i].Y));
        double nx, ny;
        noise.pair(nx, ny);
        pts[i].RealX = static_cast<float>(hit.x + nx * sigma_units);
        pts[i].RealY = static_cast<float>(hit.y + ny * sigma_units);
    }
}

}  // namespace

void check_simulate_options(const SimulateOptions& opt) {
    std::set<int> seen;
    for (int n : opt.grids) {
        if (n != 5 && n != 9 && n != 17 && n != 25 && n != 33 && n != 65)
            throw Error(fmt::format("simulate: grid size {}: a grid has 5, 9, 17, 25, 33 or 65 points per side", n));
        if (!seen.insert(n).second) throw Error(fmt::format("simulate: grid size {} is listed twice", n));
    }
    if (!(opt.val_size > 1.0) || !(opt.val_size <= 100.0))
        throw Error("simulate: the calibrated field (ValSize) must be above 1 and at most the field size 100");
    if (!(opt.noise_um >= 0.0)) throw Error("simulate: the noise must not be negative");
}

TableContent simulate_calibration(const SimulateOptions& opt) {
    check_simulate_options(opt);
    TableContent t;
    t.val_size = opt.val_size;
    Noise noise(opt.seed, opt.noise_um == 0.0 ? 0.0 : 1.0);
    const double sigma = opt.noise_um / 1000.0;  // field units are millimetres
    VrnCal vc;

    // 1. Nine points, driven linearly.
    tagLenPar plain;
    plain.ValSize = opt.val_size;
    check_lens_range(opt.lens, plain);
    const auto nine = nominal_grid(3, opt.val_size);
    std::copy(nine.begin(), nine.end(), t.nine);
    mark(opt.lens, plain, noise, sigma, t.nine, 9,
         [&](tagKelPointF p, tagKelPointF& out) { vc.LP2DPEX_Cal(p, out, plain); });

    // 2 and 3. Each grid through the correction as it stands.
    for (int n : opt.grids) {
        const tagLenPar par = load_table(t);
        tagStack stack;
        stack.Size = n;
        stack.InOrder = 1;
        stack.Points = nominal_grid(n, opt.val_size);
        mark(opt.lens, par, noise, sigma, stack.Points.data(), stack.Points.size(),
             [&](tagKelPointF p, tagKelPointF& out) { vc.CalibPoint(par, p, out); });
        t.grids.push_back(std::move(stack));
    }
    const LensModel& l = opt.lens;
    t.comments.push_back("Simulated calibration, written by vrncal simulate.");
    t.comments.push_back(fmt::format("lens: focal={} separation={} distance={} distortion={} rotation={}", l.focal,
                                     l.separation, l.distance, l.distortion, l.rotation));
    t.comments.push_back(fmt::format("      offset_x={} offset_y={} gain_x={} gain_y={}", l.offset_x, l.offset_y,
                                     l.gain_x, l.gain_y));
    std::string grids;
    for (int n : opt.grids) grids += fmt::format(" {}", n);
    t.comments.push_back(
        fmt::format("noise {} um, seed {}, grids{}", opt.noise_um, opt.seed, grids.empty() ? " none" : grids));
    return t;
}

double landing_error(const LensModel& lens, const tagLenPar& par, tagKelPointF target, tagKelPointF counts) {
    const auto hit = lens.land(par, counts);
    return std::hypot(hit.x - target.x, hit.y - target.y);
}

}  // namespace vrncal::workflow
