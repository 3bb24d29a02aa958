// The inverse of the correction: Newton's method on the forward correction,
// damped, with a forward-difference Jacobian, and a map of where the
// correction folds, built once per Inverter.
#include "vrncal/inverse.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "math/fp.h"
#include "vrncal/batch.h"

namespace vrncal {

namespace {

using vrncal_detail::stored;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int kHalvings = 12;   // step halvings before a step counts as stalled
constexpr int kEscapes = 4;     // full steps taken across a jump when stalled
constexpr int kPolish = 2;      // steps taken past the tolerance while they improve
constexpr int kFoldRaster = 64; // cells per side of the fold map

struct Jacobian {
    double xx, xy, yx, yy;  // d(count x)/d(field x), d(count x)/d(field y), ...
    bool clamped;           // an evaluation hit the device limits
    double det() const { return xx * yy - xy * yx; }
};

// A NaN on either axis makes the residual NaN.
double residual(tagKelPointF c, tagKelPointF f) {
    const double dx = std::fabs(double{c.x} - f.x), dy = std::fabs(double{c.y} - f.y);
    return dx >= dy ? dx : (dy > dx ? dy : kNaN);
}

struct Box {
    double x0, y0, x1, y1;
    bool holds(tagKelPointF c) const { return c.x >= x0 && c.x <= x1 && c.y >= y0 && c.y <= y1; }
};

}  // namespace

const char* inverseStatusText(InverseStatus status) {
    switch (status) {
        case InverseStatus::Converged: return "converged";
        case InverseStatus::OutsideField: return "outside the calibrated field";
        case InverseStatus::DeviceLimit: return "at or beyond the device limits";
        case InverseStatus::Folded: return "the correction folds here";
        case InverseStatus::NotConverged: return "not reached (a jump of the correction, or too many steps)";
        case InverseStatus::NotFinite: return "not a finite number";
    }
    return "unknown status";
}

struct Inverter::Impl {
    const tagLenPar& par;
    InverseOptions opt;
    Corrector corrector;
    float half;    // the calibrated field is +-half on both axes
    float limit;   // Resolution as float, where the output clamps
    double step;   // finite-difference step, field units
    // The seed's linear model: the correction across the whole field, as
    // a value at the centre and a Jacobian, so that a grid node moved near
    // the centre does not spoil it.
    double cx = 0.0, cy = 0.0;
    Jacobian j0{};
    // The orientation of the correction: the sign of the area of the image
    // of the field's border (+1 or -1; 0 when the field collapses).
    double orientation = 0.0;
    // Device-space boxes around the images of the raster cells where the
    // correction folds: a position inside one may have several field points.
    std::vector<Box> folds;

    Impl(const tagLenPar& p, InverseOptions o)
        : par(p), opt(o), corrector(p), half(stored(0.5 * p.ValSize)), limit(static_cast<float>(p.Resolution)),
          step(p.ValSize * 1e-4) {
        if (!(step > 0.0) || !std::isfinite(step)) step = 1e-3;
        if (half > 0.0f && std::isfinite(half)) mapField();
    }

    tagKelPointF eval(tagKelPointF p) const {
        tagKelPointF out{};
        corrector.correct(p, out);
        return out;
    }

    bool clamped(tagKelPointF f) const { return f.x <= 0.0f || f.x >= limit || f.y <= 0.0f || f.y >= limit; }

    bool outside(tagKelPointF p) const { return p.x > half || p.x < -half || p.y > half || p.y < -half; }

    // Forward differences at p (where the correction gives f), each step
    // taken towards the field centre, so that it stays inside the field, and
    // measured as the float point really moved.
    Jacobian jacobian(tagKelPointF p, tagKelPointF f) const {
        const tagKelPointF px{stored(p.x + (p.x > 0.0f ? -step : step)), p.y};
        const tagKelPointF py{p.x, stored(p.y + (p.y > 0.0f ? -step : step))};
        const tagKelPointF fx = eval(px), fy = eval(py);
        const double hx = double{px.x} - p.x, hy = double{py.y} - p.y;
        Jacobian j;
        j.xx = (double{fx.x} - f.x) / hx;
        j.yx = (double{fx.y} - f.y) / hx;
        j.xy = (double{fy.x} - f.x) / hy;
        j.yy = (double{fy.y} - f.y) / hy;
        j.clamped = clamped(f) || clamped(fx) || clamped(fy);
        return j;
    }

    // The correction over a raster of the field.  The linear model and the
    // orientation come from the border; a cell whose image turns against
    // the orientation at any corner is folded.  The raster is coarse
    // (ValSize / 64) so that the float scatter of the correction and its
    // jumps of under a count never count as a fold.
    void mapField() {
        constexpr int n = kFoldRaster + 1;
        std::vector<tagKelPointF> img(static_cast<std::size_t>(n) * n);
        const auto at = [&](int r, int c) -> tagKelPointF& { return img[static_cast<std::size_t>(r) * n + c]; };
        for (int r = 0; r < n; ++r)
            for (int c = 0; c < n; ++c)
                at(r, c) = eval({stored(-0.5 * par.ValSize + c * par.ValSize / kFoldRaster),
                                 stored(-0.5 * par.ValSize + r * par.ValSize / kFoldRaster)});
        // Row r has y growing with r, column c x growing with c.
        const int m = kFoldRaster / 2;
        const tagKelPointF &left = at(m, 0), &right = at(m, n - 1), &bottom = at(0, m), &top = at(n - 1, m);
        const double width = 2.0 * static_cast<double>(half);
        j0 = {(double{right.x} - left.x) / width, (double{top.x} - bottom.x) / width,
              (double{right.y} - left.y) / width, (double{top.y} - bottom.y) / width, false};
        cx = 0.25 * (double{left.x} + right.x + bottom.x + top.x);
        cy = 0.25 * (double{left.y} + right.y + bottom.y + top.y);
        // Shoelace over the border, counter-clockwise in the field.
        std::vector<tagKelPointF> border;
        for (int c = 0; c < n - 1; ++c) border.push_back(at(0, c));
        for (int r = 0; r < n - 1; ++r) border.push_back(at(r, n - 1));
        for (int c = n - 1; c > 0; --c) border.push_back(at(n - 1, c));
        for (int r = n - 1; r > 0; --r) border.push_back(at(r, 0));
        double area = 0.0;
        for (std::size_t i = 0; i < border.size(); ++i) {
            const tagKelPointF& a = border[i];
            const tagKelPointF& b = border[(i + 1) % border.size()];
            area += double{a.x} * b.y - double{b.x} * a.y;
        }
        if (!std::isfinite(area) || area == 0.0 || !std::isfinite(j0.det()) || j0.det() == 0.0) return;
        orientation = area > 0.0 ? 1.0 : -1.0;
        for (int r = 0; r + 1 < n; ++r)
            for (int c = 0; c + 1 < n; ++c) {
                // Counter-clockwise in the field.
                const tagKelPointF q[4] = {at(r, c), at(r, c + 1), at(r + 1, c + 1), at(r + 1, c)};
                bool folded = false;
                for (int k = 0; k < 4 && !folded; ++k) {
                    const tagKelPointF& a = q[(k + 3) % 4];
                    const tagKelPointF& b = q[k];
                    const tagKelPointF& d = q[(k + 1) % 4];
                    const double cross = (double{d.x} - b.x) * (double{a.y} - b.y) -
                                         (double{d.y} - b.y) * (double{a.x} - b.x);
                    folded = !(cross * orientation > 0.0);
                }
                if (!folded) continue;
                Box box{q[0].x, q[0].y, q[0].x, q[0].y};
                for (const auto& v : q) {
                    box.x0 = std::min<double>(box.x0, v.x);
                    box.y0 = std::min<double>(box.y0, v.y);
                    box.x1 = std::max<double>(box.x1, v.x);
                    box.y1 = std::max<double>(box.y1, v.y);
                }
                folds.push_back(box);
            }
    }

    InverseResult solve(tagKelPointF c) const {
        InverseResult res;
        res.field = {static_cast<float>(kNaN), static_cast<float>(kNaN)};
        res.residual = kNaN;
        if (!std::isfinite(c.x) || !std::isfinite(c.y)) {
            res.status = InverseStatus::NotFinite;
            return res;
        }
        if (!(c.x > 0.0f && c.x < limit && c.y > 0.0f && c.y < limit)) {
            res.status = InverseStatus::DeviceLimit;
            return res;
        }
        if (orientation == 0.0) {
            res.status = InverseStatus::Folded;
            return res;
        }
        // Seed from the linear model.
        const double det0 = j0.det();
        const double ex = c.x - cx, ey = c.y - cy;
        tagKelPointF p{stored((j0.yy * ex - j0.xy * ey) / det0), stored((j0.xx * ey - j0.yx * ex) / det0)};
        tagKelPointF f = eval(p);
        tagKelPointF best = p;  // the point of the smallest residual so far
        double bestResidual = kNaN;
        int escapesLeft = kEscapes;
        for (;;) {
            res.field = p;
            res.residual = residual(c, f);
            if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(res.residual)) {
                res.field = {static_cast<float>(kNaN), static_cast<float>(kNaN)};
                res.residual = kNaN;
                res.status = InverseStatus::NotFinite;
                return res;
            }
            if (!(bestResidual <= res.residual)) best = p, bestResidual = res.residual;
            if (res.residual <= opt.tolerance) return finish(res, c, f);
            if (clamped(f)) return stop(res, InverseStatus::OutsideField);
            if (res.iterations >= opt.maxIterations) break;
            const Jacobian j = jacobian(p, f);
            if (j.clamped) return stop(res, InverseStatus::OutsideField);
            const double det = j.det();
            if (!(det * orientation > 0.0)) return stop(res, InverseStatus::Folded);
            const double rx = c.x - f.x, ry = c.y - f.y;
            const double sx = (j.yy * rx - j.xy * ry) / det;
            const double sy = (j.xx * ry - j.yx * rx) / det;
            // Damped: halve the step until the residual falls.
            const double before = rx * rx + ry * ry;
            bool moved = false;
            double lambda = 1.0;
            for (int k = 0; k <= kHalvings && !moved; ++k, lambda *= 0.5) {
                const tagKelPointF q{stored(p.x + lambda * sx), stored(p.y + lambda * sy)};
                if (q.x == p.x && q.y == p.y) break;  // the step is below the float resolution
                const tagKelPointF fq = eval(q);
                const double qx = c.x - fq.x, qy = c.y - fq.y;
                if (qx * qx + qy * qy < before) {
                    p = q;
                    f = fq;
                    moved = true;
                }
            }
            if (!moved) {
                // Stalled: no shorter step lowers the residual.  The correction
                // jumps where a summed grid residual crosses 0.001 field units,
                // and near such a crossing it flickers from one float point to
                // the next; a full step may land on the side that reaches.
                const tagKelPointF q{stored(p.x + sx), stored(p.y + sy)};
                if (escapesLeft == 0 || (q.x == p.x && q.y == p.y)) break;
                --escapesLeft;
                p = q;
                f = eval(q);
            }
            ++res.iterations;
        }
        res.field = best;
        res.residual = bestResidual;
        return stop(res, InverseStatus::NotConverged);
    }

    InverseResult stop(InverseResult res, InverseStatus why) const {
        // Wherever the search stopped beyond the field, that is the reason.
        res.status = outside(res.field) ? InverseStatus::OutsideField : why;
        return res;
    }

    // Within the tolerance at res.field, where the correction gives f.
    InverseResult finish(InverseResult res, tagKelPointF c, tagKelPointF f) const {
        // A step or two more usually lands on the float point whose
        // correction lies closest, which makes a round trip exact wherever
        // the floats allow.
        Jacobian j = jacobian(res.field, f);
        for (int k = 0; k < kPolish && res.residual > 0.0; ++k) {
            const double det = j.det();
            if (!(det * orientation > 0.0)) break;
            const double rx = c.x - f.x, ry = c.y - f.y;
            const tagKelPointF q{stored(res.field.x + (j.yy * rx - j.xy * ry) / det),
                                 stored(res.field.y + (j.xx * ry - j.yx * rx) / det)};
            const tagKelPointF fq = eval(q);
            const double r = residual(c, fq);
            if (!(r < res.residual)) break;
            res.field = q;
            res.residual = r;
            f = fq;
            j = jacobian(q, fq);
        }
        if (outside(res.field)) {
            // Float steps near the edge: prefer the edge when it drives there too.
            const tagKelPointF edge{std::fmin(std::fmax(res.field.x, -half), half),
                                    std::fmin(std::fmax(res.field.y, -half), half)};
            const tagKelPointF fe = eval(edge);
            const double r = residual(c, fe);
            if (!(r <= opt.tolerance)) {
                res.status = InverseStatus::OutsideField;
                return res;
            }
            res.field = edge;
            res.residual = r;
            j = jacobian(edge, fe);
        }
        // Reached; but where the correction folds, other field points drive
        // there as well.
        res.status = InverseStatus::Converged;
        if (!(j.det() * orientation > 0.0)) res.status = InverseStatus::Folded;
        for (const Box& b : folds)
            if (b.holds(c)) res.status = InverseStatus::Folded;
        return res;
    }
};

Inverter::Inverter(const tagLenPar& par, InverseOptions options) : impl_(new Impl(par, options)) {}
Inverter::~Inverter() = default;
Inverter::Inverter(Inverter&&) noexcept = default;
Inverter& Inverter::operator=(Inverter&&) noexcept = default;

InverseResult Inverter::invert(tagKelPointF counts) const { return impl_->solve(counts); }

void Inverter::invert(const tagKelPointF* counts, InverseResult* results, std::size_t n) const {
    for (std::size_t i = 0; i < n; ++i) results[i] = impl_->solve(counts[i]);
}

bool Inverter::folds() const { return !impl_->folds.empty(); }

}  // namespace vrncal
