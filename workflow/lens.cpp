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

void LensModel::check_range(const tagLenPar& par) const {
    const double gain = 1.0 + std::max(std::fabs(gain_x), std::fabs(gain_y));
    const double degrees = 0.5 * par.FieldSize / focal * gain * 180.0 / kPi;
    if (!(degrees <= 60.0))
        throw Error(fmt::format("lens: a focal length of {} swings the beam {:.0f} degrees off axis over a field "
                                "of {}; the model holds up to 60",
                                focal, degrees, par.FieldSize));
}

std::vector<std::string> LensModel::describe() const {
    return {fmt::format("lens: focal={} separation={} distance={} distortion={} rotation={}", focal, separation,
                        distance, distortion, rotation),
            fmt::format("      offset_x={} offset_y={} gain_x={} gain_y={}", offset_x, offset_y, gain_x, gain_y)};
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

}  // namespace vrncal::workflow
