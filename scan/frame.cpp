#include "scan/frame.h"

#include <cmath>
#include <fmt/format.h>

#include "workflow/error.h"

namespace vrncal::scan {

SheetFrame sheet_frame(const std::string& name, int n, const std::vector<std::optional<Point>>& marks) {
    const int mid = (n - 1) / 2;
    auto at = [&](int r, int c) -> const std::optional<Point>& { return marks[static_cast<std::size_t>(r * n + c)]; };
    SheetFrame f;
    if (at(mid, mid)) {
        f.origin = *at(mid, mid);
    } else {
        double x = 0.0, y = 0.0;
        int pairs = 0;
        for (const auto& [a, b] : {std::pair{at(mid, mid - 1), at(mid, mid + 1)}, {at(mid - 1, mid), at(mid + 1, mid)}})
            if (a && b) x += 0.5 * (a->x + b->x), y += 0.5 * (a->y + b->y), ++pairs;
        if (pairs == 0)
            throw workflow::Error(name +
                                  ": the centre mark and a pair of its neighbours are missing: the frame has "
                                  "no origin");
        f.origin = Point{x / pairs, y / pairs};
        f.origin_interpolated = true;
    }
    // The centre row's direction: the principal axis of its marks.
    double mx = 0.0, my = 0.0;
    int count = 0, first = -1, last = -1;
    for (int c = 0; c < n; ++c)
        if (const auto& p = at(mid, c)) {
            mx += p->x, my += p->y, ++count;
            if (first < 0) first = c;
            last = c;
        }
    if (count < 2)
        throw workflow::Error(fmt::format("{}: the centre row has {} mark{}: the frame has no x axis", name, count,
                                          count == 1 ? "" : "s"));
    mx /= count, my /= count;
    double sxx = 0.0, sxy = 0.0, syy = 0.0;
    for (int c = 0; c < n; ++c)
        if (const auto& p = at(mid, c)) {
            sxx += (p->x - mx) * (p->x - mx), sxy += (p->x - mx) * (p->y - my), syy += (p->y - my) * (p->y - my);
        }
    const double angle = 0.5 * std::atan2(2.0 * sxy, sxx - syy);
    f.ex = Point{std::cos(angle), std::sin(angle)};
    const Point run{at(mid, last)->x - at(mid, first)->x, at(mid, last)->y - at(mid, first)->y};
    if (run.x * f.ex.x + run.y * f.ex.y < 0) f.ex = Point{-f.ex.x, -f.ex.y};
    // y towards row 0: the side the rows above the centre lie on.
    f.ey = Point{-f.ex.y, f.ex.x};
    double side = 0.0;
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c)
            if (const auto& p = at(r, c))
                side += (mid - r) * ((p->x - f.origin.x) * f.ey.x + (p->y - f.origin.y) * f.ey.y);
    if (side < 0) f.ey = Point{-f.ey.x, -f.ey.y};
    return f;
}

Point in_frame(const SheetFrame& f, Point p) {
    const double dx = p.x - f.origin.x, dy = p.y - f.origin.y;
    return Point{dx * f.ex.x + dy * f.ex.y, dx * f.ey.x + dy * f.ey.y};
}

}  // namespace vrncal::scan
