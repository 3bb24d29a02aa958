#include "workflow/lens.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <set>
#include <vrncal/cfg_file.h>

#include "workflow/atomic_file.h"
#include "workflow/error.h"
#include "workflow/numbers.h"

namespace vrncal::workflow {

namespace {

constexpr double kPi = 3.14159265358979323846;

struct LensKey {
    const char* name;
    double LensModel::*member;
};

constexpr LensKey kLensKeys[] = {
    {"focal", &LensModel::focal},           {"separation", &LensModel::separation},
    {"distance", &LensModel::distance},     {"distortion", &LensModel::distortion},
    {"rotation", &LensModel::rotation},     {"offset_x", &LensModel::offset_x},
    {"offset_y", &LensModel::offset_y},     {"gain_x", &LensModel::gain_x},
    {"gain_y", &LensModel::gain_y},
};

}  // namespace

LensModel::Landing LensModel::land(const tagLenPar& par, tagKelPointF counts) const {
    const double per_count = par.FieldSize / static_cast<double>(par.Resolution) / focal;
    const double h = par.HalfResolution;
    const double ax = (1.0 + gain_x) * (counts.x - h) * per_count;
    const double ay = (1.0 + gain_y) * (counts.y - h) * per_count;
    const double ty = std::tan(ay);
    const double tx = std::tan(ax) * (distance * std::sqrt(1.0 + ty * ty) + separation) /
                      (distance + separation);
    const double theta = std::atan(std::sqrt(tx * tx + ty * ty));
    const double phi = std::atan2(ty, tx);
    const double r = focal * theta * (1.0 + distortion * theta * theta);
    const double x0 = r * std::cos(phi);
    const double y0 = r * std::sin(phi);
    const double rho = rotation * kPi / 180.0;
    const double c = std::cos(rho);
    const double s = std::sin(rho);
    return {x0 * c - y0 * s + offset_x, x0 * s + y0 * c + offset_y};
}

void check_lens(const LensModel& lens) {
    if (!(lens.focal > 0.0)) throw Error("lens: the focal length must be positive");
    if (!(lens.distance + lens.separation > 0.0)) throw Error("lens: distance + separation must be positive");
}

void check_lens_range(const LensModel& lens, const tagLenPar& par) {
    const double gain = 1.0 + std::max(std::fabs(lens.gain_x), std::fabs(lens.gain_y));
    const double degrees = 0.5 * par.FieldSize / lens.focal * gain * 180.0 / kPi;
    if (!(degrees <= 60.0))
        throw Error(fmt::format("lens: a focal length of {} swings the beam {:.0f} degrees off axis over a field "
                                    "of {}; the model holds up to 60",
                                    lens.focal, degrees, par.FieldSize));
}

LensModel read_lens_file(const std::string& path) {
    require_readable(path);
    CCfgFile cfg;
    cfg.loadItems(path);
    const auto sect = cfg.sections.find("lens");
    if (sect == cfg.sections.end() || sect->second == nullptr)
        throw Error(path + ": no [lens] section");
    LensModel lens;
    for (const auto& [key, item] : sect->second->items) {
        if (item == nullptr) continue;
        // The INI store keeps blanks around keys; a lens file may have them.
        const std::string_view name = trimmed(key);
        const LensKey* found = nullptr;
        for (const auto& k : kLensKeys)
            if (name == k.name) found = &k;
        if (found == nullptr) throw Error(fmt::format("{}: [lens] {}: unknown key", path, name));
        const auto v = parse_double(item->value);
        if (!v || !std::isfinite(*v))
            throw Error(fmt::format("{}: [lens] {}: '{}' is not a number", path, name,
                                        std::string(trimmed(item->value))));
        lens.*(found->member) = *v;
    }
    if (!(lens.focal > 0.0)) throw Error(path + ": [lens] focal: must be positive");
    if (!(lens.distance + lens.separation > 0.0))
        throw Error(path + ": [lens] distance + separation must be positive");
    return lens;
}

std::string lens_to_ini(const LensModel& lens) {
    std::string s = "[lens]\n";
    for (const auto& k : kLensKeys) s += fmt::format("{}={}\n", k.name, lens.*(k.member));
    return s;
}

void Noise::pair(double& a, double& b) {
    if (sigma_ == 0.0) {
        a = b = 0.0;
        return;
    }
    // u1 in (0, 1] keeps the logarithm finite; u2 in [0, 1).
    const double u1 = static_cast<double>((gen_() >> 11) + 1) * 0x1p-53;
    const double u2 = static_cast<double>(gen_() >> 11) * 0x1p-53;
    const double radius = std::sqrt(-2.0 * std::log(u1)) * sigma_;
    a = radius * std::cos(2.0 * kPi * u2);
    b = radius * std::sin(2.0 * kPi * u2);
}

}  // namespace vrncal::workflow
