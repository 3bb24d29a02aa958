#include "workflow/table_writer.h"

#include <fmt/format.h>

#include "workflow/numbers.h"

namespace vrncal::workflow {

namespace {

void append_point(std::string& s, int i, const tagCalData& p) {
    s += fmt::format("PNT{}={} {} {} {}\n", i, p.X, p.Y, p.RealX, p.RealY);
}

}  // namespace

std::string table_text(const TableContent& t) {
    std::string s;
    for (const auto& c : t.comments) s += "; " + c + "\n";
    int order = 3;
    for (const auto& g : t.grids) order = std::max(order, g.Size);
    s += "[CalCoefs]\n";
    s += "ValSize=" + fmt_num(t.val_size) + "\n";
    s += fmt::format("Resolution={}\n", t.resolution);
    s += fmt::format("LEN_XYFLIP={}\nLEN_XINVERT={}\nLEN_YINVERT={}\n", t.xy_flip, t.x_invert, t.y_invert);
    // InOrder of every grid is 1 when order reaches its size.
    s += fmt::format("order={}\n", order);
    s += "[Cal3]\n";
    for (int i = 0; i < 9; ++i) append_point(s, i, t.nine[i]);
    for (const auto& g : t.grids) {
        s += fmt::format("[Cal{}]\n", g.Size);
        for (int i = 0; i < g.Size * g.Size; ++i) append_point(s, i, g.Points[static_cast<std::size_t>(i)]);
    }
    return s;
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
