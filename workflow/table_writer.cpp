#include "workflow/table_writer.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <tuple>
#include <utility>

#include "workflow/summary.h"
#include "workflow/numbers.h"
#include "workflow/table_edit.h"

namespace vrncal::workflow {

std::string table_text(const TableContent& t) {
    std::string s;
    for (const auto& c : t.comments) s += "; " + c + "\n";
    if (t.field_size) s += fmt::format("[{}]\n{}={}\n", kToolSection, kFieldSizeKey, fmt_num(*t.field_size));
    int order = t.order;
    if (order == 0) {
        order = 3;
        for (const auto& g : t.grids) order = std::max(order, g.Size);
    }
    s += "[CalCoefs]\n";
    // ValSize loads as a float: a value that is one is written as one.
    const float val = static_cast<float>(t.val_size);
    s += "ValSize=" + (val == t.val_size ? fmt_num(val) : fmt_num(t.val_size)) + "\n";
    s += fmt::format("Resolution={}\n", t.resolution);
    s += fmt::format("LEN_XYFLIP={}\nLEN_XINVERT={}\nLEN_YINVERT={}\n", t.xy_flip, t.x_invert, t.y_invert);
    // InOrder of every grid is 1 when order reaches its size.
    s += fmt::format("order={}\n", order);
    if (!t.has_nine) return s;
    s += "[Cal3]\n";
    for (int i = 0; i < 9; ++i) s += point_line(i, t.nine[i]) + "\n";
    for (const auto& k : t.cal3_keys) s += k + "\n";
    for (const auto& g : t.grids) {
        s += fmt::format("[Cal{}]\n", g.Size);
        for (int i = 0; i < g.Size * g.Size; ++i) s += point_line(i, g.Points[static_cast<std::size_t>(i)]) + "\n";
    }
    return s;
}

TableContent table_content(const tagLenPar& par) {
    TableContent t;
    t.field_size = par.FieldSize;
    t.val_size = par.ValSize;
    t.resolution = par.Resolution;
    t.xy_flip = par.LEN_XYFLIP;
    t.x_invert = par.LEN_XINVERT;
    t.y_invert = par.LEN_YINVERT;
    std::copy(std::begin(par.CalCoefs.Cal3Pnts), std::end(par.CalCoefs.Cal3Pnts), t.nine);
    // The loader flags a grid InOrder when order reaches its size: the
    // largest size flagged, or 3 when none is.
    t.order = 3;
    for (const auto& g : par.Stacks)
        if (g.InOrder == 1) t.order = std::max(t.order, g.Size);
    // The loader reads the grids in this order, one per size.
    for (int n : {5, 9, 17, 33, 65, 25})
        for (const auto& g : par.Stacks)
            if (g.Size == n) {
                t.grids.push_back(g);
                break;
            }
    auto& k = t.cal3_keys;
    if (par.grid != 0) k.push_back(fmt::format("grid={}", par.grid));
    if (par.LineCount != 0) k.push_back(fmt::format("LineCount={}", par.LineCount));
    for (int i = 0; i < std::min(par.LineCount, 100) && par.LineCount > 1; ++i)
        for (const auto& [name, col] : {std::pair{"XT", par.XT}, {"YT", par.YT}, {"XA", par.XA}, {"YA", par.YA},
                                        {"XR", par.XR}, {"YR", par.YR}})
            k.push_back(fmt::format("{}{}={}", name, i, fmt_num(static_cast<float>(col[i]))));
    for (int i = 4; i < 20; ++i)
        if (par.CalCoefs.k[i] != 1.0) k.push_back(fmt::format("k{}={}", i, fmt_num(static_cast<float>(par.CalCoefs.k[i]))));
    for (int i = 0; i < 8; ++i)
        if (par.CalCoefs.s[i] != 0.0) k.push_back(fmt::format("s{}={}", i, fmt_num(static_cast<float>(par.CalCoefs.s[i]))));
    return t;
}

namespace {

template <typename T>
bool same(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

}  // namespace

std::vector<std::string> carried_differences(const tagLenPar& a, const tagLenPar& b) {
    std::vector<std::string> d;
    auto check = [&](const char* name, const auto& x, const auto& y) {
        if (!same(x, y)) d.push_back(fmt::format("{} ({} here, {} in the text form)", name, x, y));
    };
    check("FieldSize", a.FieldSize, b.FieldSize);
    check("ValSize", a.ValSize, b.ValSize);
    check("Resolution", a.Resolution, b.Resolution);
    check("HalfResolution", a.HalfResolution, b.HalfResolution);
    check("HalfResolutionSq", a.HalfResolutionSq, b.HalfResolutionSq);
    check("LEN_XYFLIP", a.LEN_XYFLIP, b.LEN_XYFLIP);
    check("LEN_XINVERT", a.LEN_XINVERT, b.LEN_XINVERT);
    check("LEN_YINVERT", a.LEN_YINVERT, b.LEN_YINVERT);
    check("XYFlip", a.XYFlip, b.XYFlip);
    check("XInvert", a.XInvert, b.XInvert);
    check("YInvert", a.YInvert, b.YInvert);
    for (int i = 0; i < 9; ++i)
        if (!same(a.CalCoefs.Cal3Pnts[i], b.CalCoefs.Cal3Pnts[i])) d.push_back(fmt::format("nine-point PNT{}", i));
    const auto ca = coefficients(a.CalCoefs), cb = coefficients(b.CalCoefs);
    for (std::size_t i = 0; i < ca.size(); ++i) check(ca[i].name, ca[i].value, cb[i].value);
    for (int i = 4; i < 20; ++i) check(fmt::format("k{}", i).c_str(), a.CalCoefs.k[i], b.CalCoefs.k[i]);
    for (int i = 0; i < 8; ++i) check(fmt::format("s{}", i).c_str(), a.CalCoefs.s[i], b.CalCoefs.s[i]);
    if (!same(a.CalCoefs.XWarpSpare, b.CalCoefs.XWarpSpare) || !same(a.CalCoefs.YWarpSpare, b.CalCoefs.YWarpSpare))
        d.push_back("the unused pre-warp terms");
    auto sizes = [](const tagLenPar& p) {
        std::string s;
        for (const auto& g : p.Stacks) s += fmt::format("{}{}", s.empty() ? "" : ", ", g.Size);
        return s.empty() ? std::string("none") : s;
    };
    if (a.Stacks.size() != b.Stacks.size() ||
        !std::equal(a.Stacks.begin(), a.Stacks.end(), b.Stacks.begin(),
                    [](const tagStack& x, const tagStack& y) { return x.Size == y.Size; }))
        d.push_back(fmt::format("the grids ({} here, {} in the text form, which holds one per size and loads them "
                                "in the order 5, 9, 17, 33, 65, 25)",
                                sizes(a), sizes(b)));
    else
        for (std::size_t i = 0; i < a.Stacks.size(); ++i) {
            const auto& x = a.Stacks[i];
            const auto& y = b.Stacks[i];
            if (x.InOrder != y.InOrder) d.push_back(fmt::format("InOrder of grid {} ({}x{})", i, x.Size, x.Size));
            if (x.Points.size() != y.Points.size() ||
                std::memcmp(x.Points.data(), y.Points.data(), x.Points.size() * sizeof(tagCalData)) != 0)
                d.push_back(fmt::format("the points of grid {} ({}x{})", i, x.Size, x.Size));
        }
    check("grid", a.grid, b.grid);
    check("LineCount", a.LineCount, b.LineCount);
    for (int i = 0; i < std::min(a.LineCount, 100); ++i)
        for (const auto& [name, x, y] : {std::tuple{"XT", a.XT, b.XT}, {"YT", a.YT, b.YT}, {"XA", a.XA, b.XA},
                                         {"YA", a.YA, b.YA}, {"XR", a.XR, b.XR}, {"YR", a.YR, b.YR}})
            check(fmt::format("{}{}", name, i).c_str(), x[i], y[i]);
    return d;
}

std::vector<tagCalData> nominal_grid(int n, double val_size) {
    std::vector<tagCalData> pts;
    pts.reserve(static_cast<std::size_t>(n * n));
    const double pitch = val_size / (n - 1);
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) {
            const float x = static_cast<float>(-0.5 * val_size + c * pitch);
            const float y = static_cast<float>(0.5 * val_size - r * pitch);
            pts.push_back(tagCalData{x, y, x, y});
        }
    return pts;
}

}  // namespace vrncal::workflow
