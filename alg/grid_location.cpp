// Grid location: finding the calibration cell that holds a field point and
// interpolating, inside it, where the spot really lands.
#include <cmath>
#include <cstddef>

#include "alg/grid_cell.h"
#include "math/fp.h"
#include "vrncal/calib_alg.h"
#include "vrncal/geometry.h"

using vrncal_detail::stored;

namespace {

// True when the stack really holds the Size x Size points its cells are cut
// from.  A shorter array is treated as a grid without cells instead of being
// read past its end.
bool holdsFullGrid(const tagStack& stack) {
    if (stack.Size < 1) return false;
    const std::size_t n = static_cast<std::size_t>(stack.Size);
    return stack.Points.size() >= n * n;
}

}  // namespace

namespace vrncal_detail {

// Clamps the lookup point to the nominal field, compared in double, y first.
// Points beyond the field take the deviation of its nearest edge.
tagKelPointF clampToField(const tagLenPar& par, const tagKelPointF& pt) {
    const double half = 0.5 * par.ValSize;
    tagKelPointF p = pt;
    // The two axes test their limits in opposite order; with a negative
    // ValSize this decides which limit wins, so it is kept.
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

// Index of the first cell (row-major) whose nominal corners enclose (x, y),
// bounds inclusive on all four sides; -1 when there is none.
long findCellInclusive(const tagStack& stack, double x, double y) {
    const int n = stack.Size;
    for (int r = 0; r + 1 < n; ++r) {
        for (int c = 0; c + 1 < n; ++c) {
            const long i00 = static_cast<long>(r) * n + c;
            const tagCalData& p00 = stack.Points[i00];
            const tagCalData& p11 = stack.Points[i00 + n + 1];
            if (p00.X <= x && x <= p11.X && p11.Y <= y && y <= p00.Y) return i00;
        }
    }
    return -1;
}

bool stackHasCells(const tagStack& stack) { return stack.Size > 1 && holdsFullGrid(stack); }

}  // namespace vrncal_detail

namespace {

using vrncal_detail::clampToField;
using vrncal_detail::findCellInclusive;

// The measured positions interpolated along the four edges of a cell.
template <typename T>
struct CellEdges {
    T topX, topY, bottomX, bottomY, leftX, leftY, rightX, rightY;
};

// Edge interpolation shared by the float lookup and the double ratio-only
// variants.  T is float for GetGridDR and double for GetGridSR; the corner
// values are widened to T first.  Four of the eight values keep the corner
// value when the corner difference is exactly zero; the other four are always
// computed.  The difference only shows for a non-finite pitch or distance, and
// existing results depend on it, so the asymmetry stays.
template <typename T>
CellEdges<T> interpolateEdges(const tagCalData& p00, const tagCalData& p01,
                              const tagCalData& p10, const tagCalData& p11, T x, T y, T h) {
    const T r00x = p00.RealX, r00y = p00.RealY, r01x = p01.RealX, r01y = p01.RealY;
    const T r10x = p10.RealX, r10y = p10.RealY, r11x = p11.RealX, r11y = p11.RealY;

    const T ux = std::fabs(x - static_cast<T>(p00.X));
    const T lx = std::fabs(x - static_cast<T>(p10.X));
    const T uy = std::fabs(y - static_cast<T>(p00.Y));
    const T ry = std::fabs(y - static_cast<T>(p01.Y));

    CellEdges<T> e;
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

// Cross point of the line through (x1, y1)-(x2, y2) and the line through
// (x3, y3)-(x4, y4), in double throughout (the ratio-only variants keep
// nothing in float).  Parallel lines give infinities or NaNs.
void crossPointDouble(double ax1, double ay1, double ax2, double ay2, double bx1, double by1,
                      double bx2, double by2, double& cx, double& cy) {
    // Line B (top-bottom) is the first line and line A (left-right) the second,
    // as in GetGridDR.
    const double a1 = by1 - by2, b1 = bx2 - bx1, c1 = by2 * bx1 - by1 * bx2;
    const double a2 = ay1 - ay2, b2 = ax2 - ax1, c2 = ay2 * ax1 - ay1 * ax2;
    const double d = a1 * b2 - a2 * b1;
    cx = (b1 * c2 - b2 * c1) / d;
    cy = (a2 * c1 - a1 * c2) / d;
}

// The ratio pair of one cell, in double: the lookup point over the cross point
// of the interpolated lines, 1 where either is zero.
tagKelPointF ratioInCell(const tagCalData& p00, const tagCalData& p01, const tagCalData& p10,
                         const tagCalData& p11, double x, double y, double h) {
    const CellEdges<double> e = interpolateEdges<double>(p00, p01, p10, p11, x, y, h);
    double cx = 0.0;
    double cy = 0.0;
    crossPointDouble(e.leftX, e.leftY, e.rightX, e.rightY, e.topX, e.topY, e.bottomX, e.bottomY,
                     cx, cy);
    tagKelPointF ratio{1.0f, 1.0f};
    if (std::fabs(cx) > 0.0 && std::fabs(x) > 0.0) ratio.x = stored(x / cx);
    if (std::fabs(cy) > 0.0 && std::fabs(y) > 0.0) ratio.y = stored(y / cy);
    return ratio;
}

// The nominal pitch ValSize / (Size - 1), computed in double and stored as a
// float: the interpolation assumes a regular nominal grid of this pitch.
float nominalPitch(const tagLenPar& par, int size) {
    return stored(par.ValSize / static_cast<double>(size - 1));
}

}  // namespace

namespace vrncal_detail {

void deviationInCell(const tagLenPar& par, const tagKelPointF& p, const tagStack& stack, long i00,
                     tagKelPointF& ratio, tagKelPointF& dev) {
    const float x = p.x;
    const float y = p.y;
    const int n = stack.Size;
    const tagCalData& p00 = stack.Points[i00];
    const tagCalData& p01 = stack.Points[i00 + 1];
    const tagCalData& p10 = stack.Points[i00 + n];
    const tagCalData& p11 = stack.Points[i00 + n + 1];
    const float h = nominalPitch(par, n);

    const CellEdges<float> e = interpolateEdges<float>(p00, p01, p10, p11, x, y, h);
    const tagKelPointF top{e.topX, e.topY};
    const tagKelPointF bottom{e.bottomX, e.bottomY};
    const tagKelPointF left{e.leftX, e.leftY};
    const tagKelPointF right{e.rightX, e.rightY};

    const Line lineA = Line::GetLine(left, right);
    const Line lineB = Line::GetLine(top, bottom);
    const tagKelPointF cross = Line::GetCrossPoint(lineB, lineA);  // B first, then A
    const float cx = cross.x;
    const float cy = cross.y;

    if (std::fabs(cx) > 0.0f && std::fabs(x) > 0.0f) ratio.x = x / cx;
    if (std::fabs(cy) > 0.0f && std::fabs(y) > 0.0f) ratio.y = y / cy;

    // The two axes are deliberately not symmetric: x measures against the
    // lookup x at both ends and falls back to the top edge, y measures against
    // the nominal Y of the top and bottom corners and falls back to the left
    // edge.  Calibrations were measured with exactly these expressions.
    if (std::fabs(bottom.x - top.x) > 0.0f)
        dev.x = ((bottom.x - x) - (top.x - x)) * (cx - top.x) / (bottom.x - top.x) + (top.x - x);
    else
        dev.x = top.x - x;
    if (std::fabs(bottom.y - top.y) > 0.0f)
        dev.y = ((bottom.y - p10.Y) - (top.y - p00.Y)) * (cy - top.y) / (bottom.y - top.y) +
                (top.y - p00.Y);
    else
        dev.y = left.y - y;
}

}  // namespace vrncal_detail

int CCalibAlg::GetGridDR(const tagLenPar& par, const tagKelPointF& pt, tagKelPointF& ratio,
                         tagKelPointF& dev, const tagStack& stack) {
    vrncal_detail::gridDeviation(par, pt, ratio, dev, stack, [&stack](double x, double y) {
        return findCellInclusive(stack, x, y);
    });
    return 1;
}

tagKelPointF CCalibAlg::GetGridSR(const tagLenPar& par, const tagKelPointF& pt,
                                  tagKelPointF& ratio, const tagStack& stack) {
    ratio = tagKelPointF{1.0f, 1.0f};
    const tagKelPointF p = clampToField(par, pt);
    if (stack.Size < 2 || !holdsFullGrid(stack)) return ratio;
    const long i00 = findCellInclusive(stack, p.x, p.y);
    if (i00 < 0) return ratio;

    const int n = stack.Size;
    ratio = ratioInCell(stack.Points[i00], stack.Points[i00 + 1], stack.Points[i00 + n],
                        stack.Points[i00 + n + 1], p.x, p.y, nominalPitch(par, n));
    return ratio;
}

tagKelPointF CCalibAlg::GetGridSR(const tagLenPar& par, const tagKelPointF& pt,
                                  tagStkGrid& grid) {
    const tagKelPointF none{1.0f, 1.0f};
    // Without two points per side there is no pitch to interpolate with.
    if (grid.Size < 2) return none;
    const tagKelPointF p = clampToField(par, pt);
    const double x = p.x;
    const double y = p.y;
    for (const tagGridCell& cell : grid.Cells) {
        const tagCalData* k = cell.Corner;
        // Inclusive at the top-left, strict at the bottom-right, unlike the
        // point-grid scan; both conventions are relied on.
        if (k[0].X <= x && x < k[3].X && k[3].Y < y && y <= k[0].Y)
            return ratioInCell(k[0], k[1], k[2], k[3], x, y, nominalPitch(par, grid.Size));
    }
    return none;
}

int CCalibAlg::GetPntColRow(const tagKelPointF& pt, double half, const tagStack& stack, int& row,
                            int& col) {
    row = -1;
    col = -1;
    const int n = stack.Size;
    const double x = pt.x;
    const double y = pt.y;
    const std::vector<tagCalData>& pts = stack.Points;
    // A scan test whose far point lies beyond the array never matches; on an
    // ordered grid it could not match anyway.
    const std::size_t count = holdsFullGrid(stack) ? pts.size() : 0;
    const auto at = [&](long i) -> const tagCalData* {
        return i >= 0 && static_cast<std::size_t>(i) < count ? &pts[i] : nullptr;
    };

    if (x < -half) {
        // col stays -1: left of the grid.
    } else if (x > half) {
        col = n;
    } else if (!(y < -half) && !(y > half)) {
        // Inside the field: inclusive at the top-left, strict at the
        // bottom-right, the opposite of GetGridDR, so a point on a shared edge
        // lands in the lower or right cell here.
        for (int r = 0; r < n; ++r) {
            for (int c = 0; c < n; ++c) {
                const long i00 = static_cast<long>(r) * n + c;
                const tagCalData* p00 = at(i00);
                const tagCalData* p11 = at(i00 + n + 1);
                if (p00 && p11 && p00->X <= x && x < p11->X && p11->Y < y && y <= p00->Y) {
                    row = r;
                    col = c;
                    return 1;
                }
            }
        }
        return 0;
    } else {
        for (int c = 0; c < n; ++c) {
            const tagCalData* a = at(c);
            const tagCalData* b = at(static_cast<long>(c) + 1);
            if (a && b && a->X <= x && x < b->X) {
                col = c;
                break;
            }
        }
    }

    if (y < -half) {
        row = n;
        return 1;
    }
    if (y > half) return 1;
    if (n < 1) return 1;
    for (int r = 0; r < n; ++r) {
        const tagCalData* a = at(static_cast<long>(r) * n);
        const tagCalData* b = at(static_cast<long>(r + 1) * n);
        if (a && b && a->Y >= y && y > b->Y) {
            row = r;
            break;
        }
    }
    return 1;
}

int CCalibAlg::GetQuadrant(tagKelPointF pt) {
    // Zero and NaN count as non-negative.
    if (pt.x < 0.0f) return pt.y < 0.0f ? 2 : 1;
    return pt.y < 0.0f ? 3 : 0;
}

bool CCalibAlg::PointInRect(tagCalData* corners, tagKelPointF pt) {
    if (corners == nullptr) return false;
    return corners[0].X <= pt.x && pt.x <= corners[1].X && corners[3].Y <= pt.y &&
           pt.y <= corners[0].Y;
}

int CCalibAlg::PntInRect(tagCalData* corners, tagKelPointF pt) {
    if (corners == nullptr) return 0;
    // The four records are taken as consecutive vertices, in storage order.
    // Non-strict straddle and abscissa tests, unlike the point overload.
    int inside = 0;
    for (int i = 0, j = 3; i < 4; j = i++) {
        const tagCalData& vi = corners[i];
        const tagCalData& vj = corners[j];
        if ((vi.Y >= pt.y) != (vj.Y >= pt.y) &&
            (vj.X - vi.X) * (pt.y - vi.Y) / (vj.Y - vi.Y) + vi.X >= pt.x)
            inside = !inside;
    }
    return inside;
}

int CCalibAlg::PntInRect(const std::vector<tagKelPointF>& quad, tagKelPointF pt) {
    // Fewer than four vertices make no quadrilateral; extra ones are ignored.
    if (quad.size() < 4) return 0;
    int inside = 0;
    for (int i = 0, j = 3; i < 4; j = i++) {
        const tagKelPointF& vi = quad[i];
        const tagKelPointF& vj = quad[j];
        if ((vi.y > pt.y) != (vj.y > pt.y) &&
            (vj.x - vi.x) * (pt.y - vi.y) / (vj.y - vi.y) + vi.x > pt.x)
            inside = !inside;
    }
    return inside;
}

int CCalibAlg::PntInPolygon(const std::vector<tagKelPointF>& polygon, tagKelPointF pt) {
    const std::size_t n = polygon.size();
    if (n == 0) return 0;
    // The test ray ends just left of the y axis rather than at infinity; the
    // results for points left of the axis depend on it.
    const LineSegment ray{pt, tagKelPointF{stored(-0.0000001), pt.y}};
    int crossings = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const tagKelPointF& a = polygon[i];
        const tagKelPointF& b = polygon[(i + 1) % n];
        const LineSegment edge{a, b};
        // On an edge: only edges 0 and 3 count as inside.
        if (IsOnline(pt, edge)) return i == 0 || i == 3 ? 1 : 0;
        const float dy = a.y - b.y;
        if (std::fabs(dy) < 0.000001) continue;  // horizontal edge
        if (IsOnline(a, ray)) {
            if (a.y > b.y) ++crossings;
        } else if (IsOnline(b, ray)) {
            if (b.y > a.y) ++crossings;
        } else if (Intersect(edge, ray)) {
            ++crossings;
        }
    }
    return crossings % 2 == 1 ? 2 : 0;
}

int CCalibAlg::GetGridAdd(const tagLenPar& /*par*/, const tagKelPointF& pt, tagKelPointF offset,
                          const std::vector<tagCalData>& cell, int quadrant) {
    if (cell.size() < 4) return 0;
    const tagKelPointF moved{pt.x + offset.x, pt.y + offset.y};
    if (quadrant >= 0 && GetQuadrant(moved) != quadrant) return 0;
    tagCalData corners[4] = {cell[0], cell[1], cell[2], cell[3]};
    return PntInRect(corners, moved);
}
