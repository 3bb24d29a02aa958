#include "scan/lattice.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <fmt/format.h>
#include <map>

#include "workflow/error.h"
#include "workflow/job.h"

namespace vrncal::scan {

using workflow::Error;

namespace {

using Node = std::pair<int, int>;  // steps along the lattice vectors a and b

double dist(Point a, Point b) { return std::hypot(a.x - b.x, a.y - b.y); }

Point lerp(Point p, Point a, double s, Point b, double t) {
    return Point{p.x + s * a.x + t * b.x, p.y + s * a.y + t * b.y};
}

// The commonest distance between a candidate and its four nearest
// neighbours: the centre of the densest window [d, 1.25 d] of them.
double common_step(const std::vector<Point>& c) {
    std::vector<double> pool;
    std::vector<double> d;
    for (std::size_t i = 0; i < c.size(); ++i) {
        d.clear();
        for (std::size_t j = 0; j < c.size(); ++j)
            if (j != i) d.push_back(dist(c[i], c[j]));
        const std::size_t k = std::min<std::size_t>(4, d.size());
        std::partial_sort(d.begin(), d.begin() + static_cast<std::ptrdiff_t>(k), d.end());
        pool.insert(pool.end(), d.begin(), d.begin() + static_cast<std::ptrdiff_t>(k));
    }
    std::sort(pool.begin(), pool.end());
    std::size_t best = 0, best_count = 0;
    for (std::size_t s = 0, e = 0; s < pool.size(); ++s) {
        e = std::max(e, s);
        while (e < pool.size() && pool[e] <= 1.25 * pool[s]) ++e;
        if (e - s > best_count) best_count = e - s, best = s;
    }
    return pool.empty() ? 0.0 : pool[best + best_count / 2];
}

// The candidates within tol of p that are not taken yet, nearest first.
std::vector<int> near(const std::vector<Point>& c, const std::vector<bool>& taken, Point p, double tol) {
    std::vector<int> out;
    for (std::size_t i = 0; i < c.size(); ++i)
        if (!taken[i] && dist(c[i], p) <= tol) out.push_back(static_cast<int>(i));
    std::sort(out.begin(), out.end(), [&](int a, int b) {
        return dist(c[static_cast<std::size_t>(a)], p) < dist(c[static_cast<std::size_t>(b)], p);
    });
    return out;
}

class Grower {
public:
    Grower(const std::vector<Point>& c, Point a, Point b, double tol, double mark)
        : c_(c), a_(a), b_(b), tol_(tol), mark_(mark), taken_(c.size()) {}

    void grow(int seed) {
        at_[{0, 0}] = seed;
        taken_[static_cast<std::size_t>(seed)] = true;
        std::deque<Node> queue{{0, 0}};
        static const Node dirs[] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
        while (!queue.empty()) {
            const Node m = queue.front();
            queue.pop_front();
            for (const Node& d : dirs) {
                const Node t{m.first + d.first, m.second + d.second};
                if (at_.count(t) || doubled_.count(t)) continue;
                const Point p = predict(t);
                const auto found = near(c_, taken_, p, tol_);
                if (found.empty()) continue;
                if (found.size() > 1 && !apart(p, found[0], found[1])) {
                    doubled_[t] = found;
                    continue;
                }
                at_[t] = found[0];
                taken_[static_cast<std::size_t>(found[0])] = true;
                queue.push_back(t);
            }
        }
    }

    // Where the lattice puts node t: the line through two marks before it
    // extended by one step, or one lattice step from a mark beside it.
    Point predict(Node t) const {
        static const Node dirs[] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
        Point ext{}, step{};
        int n_ext = 0, n_step = 0;
        for (const Node& d : dirs) {
            const auto m = at_.find({t.first - d.first, t.second - d.second});
            if (m == at_.end()) continue;
            const Point pm = c_[static_cast<std::size_t>(m->second)];
            const auto m2 = at_.find({t.first - 2 * d.first, t.second - 2 * d.second});
            if (m2 != at_.end()) {
                const Point p2 = c_[static_cast<std::size_t>(m2->second)];
                ext.x += 2 * pm.x - p2.x, ext.y += 2 * pm.y - p2.y, ++n_ext;
            } else {
                const Point p = lerp(pm, a_, d.first, b_, d.second);
                step.x += p.x, step.y += p.y, ++n_step;
            }
        }
        if (n_ext > 0) return Point{ext.x / n_ext, ext.y / n_ext};
        return Point{step.x / n_step, step.y / n_step};
    }

    std::map<Node, int> at_;
    std::map<Node, std::vector<int>> doubled_;

private:
    // The nearest candidate stands apart from the next: a speck of dust
    // beside a mark rather than a mark marked twice.
    bool apart(Point p, int first, int second) const {
        const Point a = c_[static_cast<std::size_t>(first)], b = c_[static_cast<std::size_t>(second)];
        return dist(a, b) > 3.0 * mark_ && dist(b, p) > 2.0 * dist(a, p);
    }

    const std::vector<Point>& c_;
    Point a_, b_;
    double tol_, mark_;
    std::vector<bool> taken_;
};

// The position at lattice coordinates (fi, fj) from an affine fit of the
// nodes within radius steps, leaving one node out; false with fewer than
// three nodes or nodes on one line.
bool fit_at(const std::map<Node, int>& at, const std::vector<Point>& c, double fi, double fj, int radius, Node exclude,
            Point& out) {
    // Least squares of p = q + s a + t b over the nodes, (s, t) relative to
    // (fi, fj): the normal equations of (q, a, b), one per coordinate.
    double m[3][3] = {}, rx[3] = {}, ry[3] = {};
    int count = 0;
    for (int i = static_cast<int>(std::ceil(fi - radius)); i <= static_cast<int>(std::floor(fi + radius)); ++i)
        for (int j = static_cast<int>(std::ceil(fj - radius)); j <= static_cast<int>(std::floor(fj + radius)); ++j) {
            if (Node{i, j} == exclude) continue;
            const auto it = at.find({i, j});
            if (it == at.end()) continue;
            const Point p = c[static_cast<std::size_t>(it->second)];
            const double v[3] = {1.0, i - fi, j - fj};
            for (int r = 0; r < 3; ++r) {
                for (int s = 0; s < 3; ++s) m[r][s] += v[r] * v[s];
                rx[r] += v[r] * p.x, ry[r] += v[r] * p.y;
            }
            ++count;
        }
    if (count < 3) return false;
    auto det3 = [](const double a[3][3]) {
        return a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) - a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
               a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
    };
    const double det = det3(m);
    if (!(std::fabs(det) > 1e-9 * count * count * count)) return false;
    // Cramer's rule for the constant term.
    auto solve0 = [&](const double r[3]) {
        double a[3][3];
        std::copy(&m[0][0], &m[0][0] + 9, &a[0][0]);
        for (int k = 0; k < 3; ++k) a[k][0] = r[k];
        return det3(a) / det;
    };
    out = Point{solve0(rx), solve0(ry)};
    return true;
}

// The node's distance from where the nodes around it put it, or -1.
double residual(const std::map<Node, int>& at, const std::vector<Point>& c, Node k) {
    Point q;
    const Point p = c[static_cast<std::size_t>(at.at(k))];
    for (int radius : {1, 2}) {
        int around = 0;
        for (int i = -radius; i <= radius; ++i)
            for (int j = -radius; j <= radius; ++j) around += (i || j) && at.count({k.first + i, k.second + j});
        if (around >= 4 && fit_at(at, c, k.first, k.second, radius, k, q)) return dist(p, q);
    }
    return -1.0;
}

// Plan node (column c, row r) in the scan's lattice under symmetry g: bit 2
// exchanges the axes, bits 0 and 1 run them backwards.
std::pair<double, double> place(int g, int n, double c, double r) {
    double i = (g & 4) ? r : c, j = (g & 4) ? c : r;
    if (g & 1) i = n - 1 - i;
    if (g & 2) j = n - 1 - j;
    return {i, j};
}

std::string px(Point p) { return fmt::format("({:.1f}, {:.1f})", p.x, p.y); }

}  // namespace

LatticeMatch match_lattice(const LatticeInput& in) {
    const std::vector<Point>& c = in.centres;
    const int n = in.n;
    const std::size_t nodes = static_cast<std::size_t>(n) * static_cast<std::size_t>(n);
    if (c.size() < std::min<std::size_t>(nodes, 5))
        throw Error(fmt::format("{}: {} mark{} found where the plan has {}: is it a scan of the marked sheet?", in.name,
                                c.size(), c.size() == 1 ? "" : "s", nodes));

    // 1. The pitch and the lattice angle.
    const double step = common_step(c);
    if (!(step > 0.75 * in.pitch_px && step < 1.33 * in.pitch_px))
        throw Error(
            fmt::format("{}: the marks lie {:.1f} pixels apart, but the plan's pitch is {:.1f} pixels at this "
                        "resolution: is the resolution (--dpi) or the plan wrong?",
                        in.name, step, in.pitch_px));
    double cs = 0.0, sn = 0.0;
    std::vector<Point> steps;
    for (std::size_t i = 0; i < c.size(); ++i)
        for (std::size_t j = 0; j < c.size(); ++j) {
            const double d = dist(c[i], c[j]);
            if (j == i || std::fabs(d - step) > 0.2 * step) continue;
            const double th = std::atan2(c[j].y - c[i].y, c[j].x - c[i].x);
            cs += std::cos(4 * th), sn += std::sin(4 * th);
            steps.push_back(Point{c[j].x - c[i].x, c[j].y - c[i].y});
        }
    const double alpha = std::atan2(sn, cs) / 4;
    const Point ua{std::cos(alpha), std::sin(alpha)}, ub{-std::sin(alpha), std::cos(alpha)};
    auto length_along = [&](Point u) {
        std::vector<double> l;
        for (const Point& s : steps) {
            const double along = std::fabs(s.x * u.x + s.y * u.y);
            if (along > 0.9 * std::hypot(s.x, s.y)) l.push_back(along);
        }
        if (l.empty()) return step;
        std::nth_element(l.begin(), l.begin() + static_cast<std::ptrdiff_t>(l.size() / 2), l.end());
        return l[l.size() / 2];
    };
    const double la = length_along(ua), lb = length_along(ub);
    const Point a{la * ua.x, la * ua.y}, b{lb * ub.x, lb * ub.y};
    const double tol = 0.25 * std::min(la, lb);

    // 2. A seed with neighbours on every side, nearest the middle, and the
    // growth from it.
    std::vector<double> xs, ys;
    for (const Point& p : c) xs.push_back(p.x), ys.push_back(p.y);
    std::nth_element(xs.begin(), xs.begin() + static_cast<std::ptrdiff_t>(xs.size() / 2), xs.end());
    std::nth_element(ys.begin(), ys.begin() + static_cast<std::ptrdiff_t>(ys.size() / 2), ys.end());
    const Point middle{xs[xs.size() / 2], ys[ys.size() / 2]};
    int seed = -1, seed_sides = 0;
    const std::vector<bool> none(c.size(), false);
    for (std::size_t i = 0; i < c.size(); ++i) {
        int sides = 0;
        for (const auto& [s, t] : {std::pair{1, 0}, {-1, 0}, {0, 1}, {0, -1}})
            sides += near(c, none, lerp(c[i], a, s, b, t), tol).size() == 1;
        if (sides > seed_sides ||
            (sides == seed_sides && seed >= 0 && dist(c[i], middle) < dist(c[static_cast<std::size_t>(seed)], middle)))
            seed = static_cast<int>(i), seed_sides = sides;
    }
    if (seed_sides < 2)
        throw Error(fmt::format("{}: the {} marks found form no grid of the plan's pitch ({:.1f} pixels)", in.name,
                                c.size(), in.pitch_px));
    Grower grower(c, a, b, tol, in.mark_px);
    grower.grow(seed);
    std::map<Node, int>& at = grower.at_;

    // 3. The plan's n x n window over the grown lattice.
    int imin = 0, imax = 0, jmin = 0, jmax = 0;
    auto extend = [&](const Node& k) {
        imin = std::min(imin, k.first), imax = std::max(imax, k.first);
        jmin = std::min(jmin, k.second), jmax = std::max(jmax, k.second);
    };
    for (const auto& [k, v] : at) extend(k);
    for (const auto& [k, v] : grower.doubled_) extend(k);
    const int ei = imax - imin + 1, ej = jmax - jmin + 1;
    if (ei < n || ej < n)
        throw Error(
            fmt::format("{}: the marks found form a grid of {} x {} nodes where the plan has {} x {}: is it "
                        "the plan of this sheet, and is the whole sheet on the scan?",
                        in.name, std::max(ei, ej), std::min(ei, ej), n, n));
    LatticeMatch out;
    std::vector<std::string> reason(c.size());
    int oi = imin, oj = jmin, best = -1;
    for (int i = imin; i + n - 1 <= imax; ++i)
        for (int j = jmin; j + n - 1 <= jmax; ++j) {
            int count = 0;
            for (const auto& [k, v] : at) count += k.first >= i && k.first < i + n && k.second >= j && k.second < j + n;
            if (count > best) best = count, oi = i, oj = j;
        }
    const int outside = static_cast<int>(at.size()) - best;
    if (outside >= n)
        throw Error(
            fmt::format("{}: the marks found form a grid of {} x {} nodes, larger than the plan's {} x {}: is "
                        "it the plan of this sheet?",
                        in.name, std::max(ei, ej), std::min(ei, ej), n, n));
    for (auto it = at.begin(); it != at.end();) {
        const Node k = it->first;
        if (k.first >= oi && k.first < oi + n && k.second >= oj && k.second < oj + n) {
            ++it;
            continue;
        }
        reason[static_cast<std::size_t>(it->second)] = "beyond the grid, in line with its marks";
        it = at.erase(it);
    }
    std::map<Node, std::vector<int>> doubled;
    for (const auto& [k, v] : grower.doubled_)
        if (k.first >= oi && k.first < oi + n && k.second >= oj && k.second < oj + n)
            doubled[{k.first - oi, k.second - oj}] = v;
    std::map<Node, int> grid;
    for (const auto& [k, v] : at) grid[{k.first - oi, k.second - oj}] = v;

    // 4. Marks far from where their neighbours put them, worst first.
    std::map<Node, std::string> outlier;
    for (;;) {
        Node worst{};
        double worst_r = -1.0;
        for (const auto& [k, v] : grid) {
            const double r = residual(grid, c, k);
            if (r > worst_r) worst_r = r, worst = k;
        }
        if (worst_r <= 0.15 * std::min(la, lb)) break;
        const int cand = grid[worst];
        grid.erase(worst);
        Point q;
        fit_at(grid, c, worst.first, worst.second, 2, worst, q);
        outlier[worst] = fmt::format(
            "its mark at {} lies {:.1f} pixels from where its neighbours put it, {}: dust on "
            "the mark, or a mark out of place?",
            px(c[static_cast<std::size_t>(cand)]), worst_r, px(q));
        reason[static_cast<std::size_t>(cand)] = fmt::format("{:.1f} pixels from where its neighbours put it", worst_r);
    }

    // 5. The orientation: the marker at one of its eight places.
    std::vector<bool> taken(c.size(), false);
    for (const auto& [k, v] : grid) taken[static_cast<std::size_t>(v)] = true;
    for (const auto& [k, v] : doubled)
        for (int i : v) taken[static_cast<std::size_t>(i)] = true;
    auto position = [&](double fi, double fj) {
        Point p;
        for (int radius : {1, 2, 3, n})
            if (fit_at(grid, c, fi, fj, radius, Node{-1, -1}, p)) return p;
        return p;
    };
    int g = 0;
    if (in.marker) {
        std::vector<std::pair<int, int>> hits;  // symmetry, candidate
        for (int s = 0; s < 8; ++s) {
            const auto [fi, fj] = place(s, n, workflow::kMarkerColumn, workflow::kMarkerRow);
            const auto found = near(c, taken, position(fi, fj), 0.15 * std::min(la, lb));
            if (!found.empty()) hits.emplace_back(s, found[0]);
        }
        if (hits.empty())
            throw Error(
                fmt::format("{}: the orientation marker is not found (in the corner cell of mark 0, half a "
                            "pitch from it along the row and a quarter pitch across): without it a turned or "
                            "mirrored sheet cannot be told; is it the plan of this sheet?",
                            in.name));
        if (hits.size() > 1)
            throw Error(
                fmt::format("{}: marks at {} and {} are both where the orientation marker may be: dust? the "
                            "sheet's orientation is uncertain; clean the sheet and scan it again",
                            in.name, px(c[static_cast<std::size_t>(hits[0].second)]),
                            px(c[static_cast<std::size_t>(hits[1].second)])));
        g = hits[0].first;
        out.marker = hits[0].second;
    } else {
        // Upright: the plan's columns run to the image's right, its rows down.
        double best_score = -10.0;
        for (int s = 0; s < 8; ++s) {
            const auto [i0, j0] = place(s, n, 0, 0);
            const auto [ic, jc] = place(s, n, 1, 0);
            const auto [ir, jr] = place(s, n, 0, 1);
            const Point col = lerp(Point{}, a, ic - i0, b, jc - j0), row = lerp(Point{}, a, ir - i0, b, jr - j0);
            const double score = col.x / std::hypot(col.x, col.y) + row.y / std::hypot(row.x, row.y);
            if (score > best_score) best_score = score, g = s;
        }
        out.orientation_assumed = true;
    }

    // 6. Plan nodes to candidates.
    out.node.assign(nodes, -1);
    out.problem.assign(nodes, "");
    out.predicted.resize(nodes);
    double sum = 0.0;
    int pairs = 0;
    for (std::size_t k = 0; k < nodes; ++k) {
        const int r = static_cast<int>(k) / n, col = static_cast<int>(k) % n;
        const auto [fi, fj] = place(g, n, col, r);
        const Node key{static_cast<int>(fi), static_cast<int>(fj)};
        Point q;
        out.predicted[k] = fit_at(grid, c, fi, fj, 2, key, q) ? q : position(fi, fj);
        if (const auto it = grid.find(key); it != grid.end()) {
            out.node[k] = it->second;
            for (const Node& d : {Node{1, 0}, Node{0, 1}})
                if (const auto nb = grid.find({key.first + d.first, key.second + d.second}); nb != grid.end())
                    sum += dist(c[static_cast<std::size_t>(it->second)], c[static_cast<std::size_t>(nb->second)]),
                        ++pairs;
        } else if (const auto d = doubled.find(key); d != doubled.end()) {
            std::string where;
            for (int i : d->second) {
                where += (where.empty() ? "" : " and ") + px(c[static_cast<std::size_t>(i)]);
                reason[static_cast<std::size_t>(i)] =
                    fmt::format("one of {} marks at node {}: marked twice?", d->second.size(), k);
            }
            out.problem[k] = fmt::format("{} marks near it, at {}: marked twice?", d->second.size(), where);
        } else if (const auto o = outlier.find(key); o != outlier.end()) {
            out.problem[k] = o->second;
        } else {
            out.problem[k] = fmt::format("no mark found near {}", px(out.predicted[k]));
        }
    }
    out.pitch = pairs > 0 ? sum / pairs : 0.5 * (la + lb);
    for (std::size_t i = 0; i < c.size(); ++i) {
        if (static_cast<int>(i) == out.marker || (taken[i] && reason[i].empty())) continue;
        out.rejected.push_back(Rejection{static_cast<int>(i), reason[i].empty() ? "off the grid" : reason[i]});
    }
    return out;
}

}  // namespace vrncal::scan
