#include "alg/cell_index.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace vrncal_detail {

namespace {

// The nominal box of one cell, as the lookup tests it.
struct CellBox {
    float x0, x1, y0, y1;
    std::uint32_t i00;
};

// A cell listed in more buckets than this, on average, means the grid is far
// from regular; the index then uses fewer, larger buckets.
constexpr std::size_t kMaxListedPerCell = 16;

}  // namespace

CellIndex::CellIndex(const tagStack& stack) : stack_(&stack) {
    int buckets = std::max(1, std::min(stack.Size - 1, 256));
    while (!build(buckets)) buckets /= 2;
}

bool CellIndex::build(int buckets) {
    const tagStack& s = *stack_;
    const int n = s.Size;
    std::vector<CellBox> boxes;
    boxes.reserve(static_cast<std::size_t>(n - 1) * static_cast<std::size_t>(n - 1));
    double xlo = INFINITY, xhi = -INFINITY, ylo = INFINITY, yhi = -INFINITY;
    for (int r = 0; r + 1 < n; ++r) {
        for (int c = 0; c + 1 < n; ++c) {
            const std::size_t i00 = static_cast<std::size_t>(r) * n + c;
            const tagCalData& p00 = s.Points[i00];
            const tagCalData& p11 = s.Points[i00 + n + 1];
            const CellBox b{p00.X, p11.X, p11.Y, p00.Y, static_cast<std::uint32_t>(i00)};
            // Never encloses anything: NaN compares false, and x0 > x1 leaves no x.
            if (!(b.x0 <= b.x1) || !(b.y0 <= b.y1)) continue;
            boxes.push_back(b);
            for (double v : {double(b.x0), double(b.x1)})
                if (std::isfinite(v)) xlo = std::min(xlo, v), xhi = std::max(xhi, v);
            for (double v : {double(b.y0), double(b.y1)})
                if (std::isfinite(v)) ylo = std::min(ylo, v), yhi = std::max(yhi, v);
        }
    }
    const auto axis = [buckets](double lo, double hi) {
        Axis a;
        if (!(lo < hi) || buckets < 2) return a;  // one bucket holds everything
        a.lo = lo;
        a.count = buckets;
        a.scale = buckets / (hi - lo);
        if (!std::isfinite(a.scale) || a.scale <= 0.0) a = Axis{};
        return a;
    };
    ax_ = axis(xlo, xhi);
    ay_ = axis(ylo, yhi);

    const std::size_t nb = static_cast<std::size_t>(ax_.count) * static_cast<std::size_t>(ay_.count);
    // Count first, so the lists are laid out in one array.
    std::vector<std::uint32_t> counts(nb + 1, 0);
    std::size_t total = 0;
    for (const CellBox& b : boxes) {
        const std::size_t w = ax_.bucket(b.x1) - ax_.bucket(b.x0) + 1;
        const std::size_t h = ay_.bucket(b.y1) - ay_.bucket(b.y0) + 1;
        total += w * h;
    }
    if (nb > 1 && total > kMaxListedPerCell * boxes.size() + nb) return false;

    for (const CellBox& b : boxes)
        for (int by = ay_.bucket(b.y0); by <= ay_.bucket(b.y1); ++by)
            for (int bx = ax_.bucket(b.x0); bx <= ax_.bucket(b.x1); ++bx)
                ++counts[static_cast<std::size_t>(by) * ax_.count + bx + 1];
    for (std::size_t i = 1; i <= nb; ++i) counts[i] += counts[i - 1];
    start_ = counts;
    cells_.assign(total, 0);
    // Boxes are in row-major order, so each list comes out in that order too.
    for (const CellBox& b : boxes)
        for (int by = ay_.bucket(b.y0); by <= ay_.bucket(b.y1); ++by)
            for (int bx = ax_.bucket(b.x0); bx <= ax_.bucket(b.x1); ++bx)
                cells_[counts[static_cast<std::size_t>(by) * ax_.count + bx]++] = b.i00;
    return true;
}

long CellIndex::find(double x, double y) const {
    if (std::isnan(x) || std::isnan(y)) return -1;  // the scan never matches NaN
    const std::size_t b = static_cast<std::size_t>(ay_.bucket(y)) * ax_.count + ax_.bucket(x);
    const tagStack& s = *stack_;
    const std::size_t n = static_cast<std::size_t>(s.Size);
    for (std::uint32_t k = start_[b]; k < start_[b + 1]; ++k) {
        const tagCalData& p00 = s.Points[cells_[k]];
        const tagCalData& p11 = s.Points[cells_[k] + n + 1];
        if (p00.X <= x && x <= p11.X && p11.Y <= y && y <= p00.Y) return cells_[k];
    }
    return -1;
}

}  // namespace vrncal_detail
