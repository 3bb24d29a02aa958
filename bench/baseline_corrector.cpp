#include "baseline_corrector.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "alg/grid_correction.h"
#include "calib/lens_flags.h"
#include "math/fp.h"
#include "vrncal/calib_alg.h"
#include "vrncal/geometry.h"

namespace baseline {

using vrncal_detail::stored;

namespace {

struct CellBox {
    float x0, x1, y0, y1;
    std::uint32_t i00;
};

constexpr std::size_t kMaxListedPerCell = 16;

bool stackHasCells(const tagStack& s) {
    return s.Size > 1 && s.Points.size() >= static_cast<std::size_t>(s.Size) * static_cast<std::size_t>(s.Size);
}

tagKelPointF clampToField(const tagLenPar& par, const tagKelPointF& pt) {
    const double half = 0.5 * par.ValSize;
    tagKelPointF p = pt;
    if (p.y < -half)
        p.y = stored(-half);
    else if (p.y > half)
        p.y = stored(half);
    if (p.x > half)
        p.x = stored(half);
    else if (p.x < -half)
        p.x = stored(-half);
    return p;
}

struct CellEdges {
    float topX, topY, bottomX, bottomY, leftX, leftY, rightX, rightY;
};

CellEdges interpolateEdges(const tagCalData& p00, const tagCalData& p01, const tagCalData& p10,
                           const tagCalData& p11, float x, float y, float h) {
    const float r00x = p00.RealX, r00y = p00.RealY, r01x = p01.RealX, r01y = p01.RealY;
    const float r10x = p10.RealX, r10y = p10.RealY, r11x = p11.RealX, r11y = p11.RealY;
    const float ux = std::fabs(x - p00.X), lx = std::fabs(x - p10.X);
    const float uy = std::fabs(y - p00.Y), ry = std::fabs(y - p01.Y);
    CellEdges e;
    e.topX = (r01x - r00x) * ux / h + r00x;
    e.topY = std::fabs(r01y - r00y) == 0 ? r00y : (r01y - r00y) * ux / h + r00y;
    e.bottomX = (r11x - r10x) * lx / h + r10x;
    e.bottomY = std::fabs(r11y - r10y) == 0 ? r10y : (r11y - r10y) * lx / h + r10y;
    e.leftX = std::fabs(r10x - r00x) == 0 ? r00x : r00x + (r10x - r00x) * uy / h;
    e.leftY = (r10y - r00y) * uy / h + r00y;
    e.rightX = std::fabs(r11x - r01x) == 0 ? r01x : r01x + (r11x - r01x) * ry / h;
    e.rightY = (r11y - r01y) * ry / h + r01y;
    return e;
}

void deviationInCell(const tagLenPar& par, const tagKelPointF& p, const tagStack& stack, long i00,
                     tagKelPointF& ratio, tagKelPointF& dev) {
    const float x = p.x, y = p.y;
    const int n = stack.Size;
    const tagCalData& p00 = stack.Points[i00];
    const tagCalData& p01 = stack.Points[i00 + 1];
    const tagCalData& p10 = stack.Points[i00 + n];
    const tagCalData& p11 = stack.Points[i00 + n + 1];
    const float h = stored(par.ValSize / static_cast<double>(n - 1));
    const CellEdges e = interpolateEdges(p00, p01, p10, p11, x, y, h);
    const tagKelPointF top{e.topX, e.topY}, bottom{e.bottomX, e.bottomY};
    const tagKelPointF left{e.leftX, e.leftY}, right{e.rightX, e.rightY};
    const Line lineA = Line::GetLine(left, right);
    const Line lineB = Line::GetLine(top, bottom);
    const tagKelPointF cross = Line::GetCrossPoint(lineB, lineA);
    const float cx = cross.x, cy = cross.y;
    if (std::fabs(cx) > 0.0f && std::fabs(x) > 0.0f) ratio.x = x / cx;
    if (std::fabs(cy) > 0.0f && std::fabs(y) > 0.0f) ratio.y = y / cy;
    if (std::fabs(bottom.x - top.x) > 0.0f)
        dev.x = ((bottom.x - x) - (top.x - x)) * (cx - top.x) / (bottom.x - top.x) + (top.x - x);
    else
        dev.x = top.x - x;
    if (std::fabs(bottom.y - top.y) > 0.0f)
        dev.y = ((bottom.y - p10.Y) - (top.y - p00.Y)) * (cy - top.y) / (bottom.y - top.y) + (top.y - p00.Y);
    else
        dev.y = left.y - y;
}

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


Corrector::Corrector(const tagLenPar& par) : par_(par), index_(par.Stacks.size()) {
    for (std::size_t i = 0; i < par.Stacks.size(); ++i) {
        const tagStack& s = par.Stacks[i];
        if (!stackHasCells(s)) continue;
        if (s.Points.size() > std::numeric_limits<std::uint32_t>::max()) continue;
        index_[i].emplace(s);
    }
}

bool Corrector::correctOne(tagKelPointF in, tagKelPointF& out) const {
    tagKelPointF p = vrncal_detail::correctionInput(par_, in);
    if (par_.CalMode == 0) return CCalibAlg::CalibManual(par_, p, out) != 0;
    return vrncal_detail::correctGridPoint(
               par_, p, out, [this](std::size_t i, const tagKelPointF& g, tagKelPointF& ratio, tagKelPointF& dev) {
                   const tagStack& s = par_.Stacks[i];
                   if (!index_[i]) {
                       CCalibAlg::GetGridDR(par_, g, ratio, dev, s);
                       return;
                   }
                   ratio = tagKelPointF{1.0f, 1.0f};
                   dev = tagKelPointF{0.0f, 0.0f};
                   const tagKelPointF q = clampToField(par_, g);
                   const long i00 = index_[i]->find(q.x, q.y);
                   if (i00 >= 0) deviationInCell(par_, q, s, i00, ratio, dev);
               }) != 0;
}

void Corrector::correct(const tagKelPointF* in, tagKelPointF* out, std::size_t n) const {
    for (std::size_t i = 0; i < n; ++i) {
        const tagKelPointF p = in[i];
        correctOne(p, out[i]);
    }
}

}  // namespace baseline
