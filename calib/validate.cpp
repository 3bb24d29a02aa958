// vrncal::validate: the problems that make a record's correction meaningless.
#include "vrncal/validate.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

#include "math/fp.h"
#include "vrncal/string_util.h"

namespace vrncal {

namespace {

using vrncal_detail::stored;

struct Named {
    const char* name;
    double value;
};

// "QuadX (nan), k3 (inf)": the members of list that are not finite, the
// first few by name.  Empty when all are finite.
template <std::size_t N>
std::string notFinite(const Named (&list)[N]) {
    std::string names;
    int count = 0;
    for (const Named& m : list) {
        if (std::isfinite(m.value)) continue;
        if (count < 6) names += StringUtil::format("%s%s (%g)", count ? ", " : "", m.name, m.value);
        ++count;
    }
    if (count > 6) names += StringUtil::format(" and %d more", count - 6);
    return names;
}

class Checker {
public:
    explicit Checker(const tagLenPar& par) : par_(par) {}

    std::vector<Problem> run() {
        scalars();
        coefficients();
        boxTerms();
        gainTable("grid", par_.grid, "LineCount", par_.LineCount, par_.XT, par_.XR, par_.YT, par_.YR);
        gainTable("BoxGrid", par_.BoxGrid, "BoxLineCount", par_.BoxLineCount, par_.BoxXT, par_.BoxXR,
                  par_.BoxYT, par_.BoxYR);
        for (std::size_t i = 0; i < par_.Stacks.size(); ++i) grid(static_cast<int>(i), par_.Stacks[i]);
        return std::move(out_);
    }

private:
    void add(ProblemCode code, int stack, std::string message) {
        out_.push_back(Problem{code, stack, std::move(message)});
    }

    bool fieldOk() const { return std::isfinite(par_.ValSize) && par_.ValSize > 0.0; }

    void scalars() {
        if (!(std::isfinite(par_.FieldSize) && par_.FieldSize > 0.0))
            add(ProblemCode::FieldSizeNotPositive, -1,
                StringUtil::format("FieldSize is %g: counts per field unit (Resolution / FieldSize) "
                                   "need a finite field size above 0",
                                   par_.FieldSize));
        if (!fieldOk())
            add(ProblemCode::ValSizeNotPositive, -1,
                StringUtil::format("ValSize is %g: the grids' pitch and the clamp to the field need a "
                                   "finite size above 0",
                                   par_.ValSize));
        if (par_.Resolution < 1)
            add(ProblemCode::ResolutionBelowOne, -1,
                StringUtil::format("Resolution is %d: the device range needs at least 1 count",
                                   par_.Resolution));
        const int half = par_.HalfResolution;
        if (half < 1 || half > par_.Resolution)
            add(ProblemCode::HalfResolutionOutOfRange, -1,
                StringUtil::format("HalfResolution is %d, outside 1 .. Resolution (%d)", half,
                                   par_.Resolution));
        else if (par_.HalfResolutionSq != static_cast<double>(half) * half)
            add(ProblemCode::HalfResolutionOutOfRange, -1,
                StringUtil::format("HalfResolutionSq is %g, not the square of HalfResolution (%d)",
                                   par_.HalfResolutionSq, half));
    }

    void coefficients() {
        const tagCalCoefs& c = par_.CalCoefs;
        // The three spare pre-warp terms of each axis are never read.
        Named list[] = {{"LinX", c.LinX},     {"QuadX", c.QuadX},   {"LinY", c.LinY},
                        {"QuadY", c.QuadY},   {"AxisXL", c.AxisXL}, {"AxisXR", c.AxisXR},
                        {"AxisYT", c.AxisYT}, {"AxisYB", c.AxisYB}, {"OX", c.OX},
                        {"OY", c.OY},         {"SXL", c.SXL},       {"SXR", c.SXR},
                        {"ScaleX", c.ScaleX}, {"SYT", c.SYT},       {"SYB", c.SYB},
                        {"ScaleY", c.ScaleY}, {"TXL", c.TXL},       {"TXR", c.TXR},
                        {"TYT", c.TYT},       {"TYB", c.TYB},       {"PLX", c.PLX},
                        {"PLY", c.PLY},       {"Y2XAngle", c.Y2XAngle}};
        std::string names = notFinite(list);
        char kNames[20][4];
        char sNames[8][3];
        Named ks[20];
        Named ss[8];
        for (int i = 0; i < 20; ++i) {
            std::snprintf(kNames[i], sizeof kNames[i], "k%d", i);
            ks[i] = Named{kNames[i], c.k[i]};
        }
        for (int i = 0; i < 8; ++i) {
            std::snprintf(sNames[i], sizeof sNames[i], "s%d", i);
            ss[i] = Named{sNames[i], c.s[i]};
        }
        for (const std::string& more : {notFinite(ks), notFinite(ss)})
            if (!more.empty()) names += (names.empty() ? "" : ", ") + more;
        if (!names.empty())
            add(ProblemCode::CoefficientNotFinite, -1, "coefficients not finite: " + names);

        // The keystone terms divide by the half axes.
        const Named axes[] = {{"AxisXL", c.AxisXL}, {"AxisXR", c.AxisXR}, {"AxisYT", c.AxisYT},
                              {"AxisYB", c.AxisYB}};
        for (const Named& a : axes)
            if (a.value == 0.0)
                add(ProblemCode::AxisZero, -1,
                    StringUtil::format("%s is 0: the keystone correction divides by it", a.name));
    }

    void boxTerms() {
        const Named list[] = {{"BoxOffsetX", par_.BoxOffsetX}, {"BoxOffsetY", par_.BoxOffsetY},
                              {"BoxBarrelX", par_.BoxBarrelX}, {"BoxBarrelY", par_.BoxBarrelY},
                              {"BoxSkewX", par_.BoxSkewX},     {"BoxSkewY", par_.BoxSkewY},
                              {"BoxTrapX", par_.BoxTrapX},     {"BoxTrapY", par_.BoxTrapY},
                              {"BoxScaleX", par_.BoxScaleX},   {"BoxScaleY", par_.BoxScaleY}};
        const std::string names = notFinite(list);
        if (!names.empty()) add(ProblemCode::BoxTermNotFinite, -1, "box terms not finite: " + names);
    }

    // A gain table is read only when its switch is exactly 1 and its row
    // count is 1 .. 99; then its positions and gains must be finite (the
    // middle column is never read).
    void gainTable(const char* switchName, int on, const char* countName, int rows, const double* xt,
                   const double* xr, const double* yt, const double* yr) {
        if (on != 1) return;
        if (rows < 1 || rows > 99) {
            add(ProblemCode::GainTableNeverApplies, -1,
                StringUtil::format("%s is 1 but %s is %d: the gain tables are read only with 1 .. 99 "
                                   "rows",
                                   switchName, countName, rows));
            return;
        }
        for (int i = 0; i < rows; ++i) {
            if (std::isfinite(xt[i]) && std::isfinite(xr[i]) && std::isfinite(yt[i]) &&
                std::isfinite(yr[i]))
                continue;
            add(ProblemCode::GainTableNotFinite, -1,
                StringUtil::format("%s gain table row %d is not finite (%g %g %g %g)", switchName, i,
                                   xt[i], xr[i], yt[i], yr[i]));
            return;
        }
    }

    // Whether some lookup point has this coordinate range: the lookup clamps
    // each coordinate to +-ValSize / 2 (stored as a float), so the points
    // looked up are the floats within the field and its two clamp values.
    bool reachable(double lo, double hi) const {
        if (!fieldOk()) return true;
        const double half = 0.5 * par_.ValSize;
        const double edgeLo = stored(-half);
        const double edgeHi = stored(half);
        return (lo <= half && hi >= -half) || (lo <= edgeLo && edgeLo <= hi) ||
               (lo <= edgeHi && edgeHi <= hi);
    }

    void grid(int index, const tagStack& st) {
        const std::int64_t n = st.Size;
        const std::string name = StringUtil::format("grid %d (%d x %d)", index, st.Size, st.Size);
        if (n < 0 || static_cast<std::int64_t>(st.Points.size()) < n * n) {
            add(ProblemCode::GridTooFewPoints, index,
                StringUtil::format("%s: %zu points, %lld needed", name.c_str(), st.Points.size(),
                                   static_cast<long long>(n < 0 ? 0 : n * n)));
            return;
        }
        if (n < 2) {
            add(ProblemCode::GridNeverApplies, index,
                name + ": fewer than 2 points per side, so no cell to interpolate in");
            return;
        }
        for (std::int64_t i = 0; i < n * n; ++i) {
            const tagCalData& p = st.Points[static_cast<std::size_t>(i)];
            if (std::isfinite(p.RealX) && std::isfinite(p.RealY)) continue;
            add(ProblemCode::GridPointNotFinite, index,
                StringUtil::format("%s: measured point %lld (row %lld, column %lld) is not finite (%g %g)",
                                   name.c_str(), static_cast<long long>(i), static_cast<long long>(i / n),
                                   static_cast<long long>(i % n), p.RealX, p.RealY));
            break;
        }
        cells(index, st, name);
    }

    // The grid lookup takes the first cell whose top-left and bottom-right
    // nominal points enclose the point; a cell whose corners are out of order
    // (or not numbers) encloses nothing and is never found.
    void cells(int index, const tagStack& st, const std::string& name) {
        const std::int64_t n = st.Size;
        const double pitch = stored(par_.ValSize / static_cast<double>(n - 1));
        std::int64_t ordered = 0;
        std::int64_t found = 0;
        double offPitch = 0.0;
        bool pitchOff = false;
        for (std::int64_t r = 0; r + 1 < n; ++r) {
            for (std::int64_t c = 0; c + 1 < n; ++c) {
                const tagCalData& p00 = st.Points[static_cast<std::size_t>(r * n + c)];
                const tagCalData& p11 = st.Points[static_cast<std::size_t>((r + 1) * n + c + 1)];
                if (!(p00.X <= p11.X && p11.Y <= p00.Y)) continue;
                ++ordered;
                if (reachable(p00.X, p11.X) && reachable(p11.Y, p00.Y)) ++found;
                const double w = static_cast<double>(p11.X) - p00.X;
                const double h = static_cast<double>(p00.Y) - p11.Y;
                if (!pitchOff && fieldOk() &&
                    (std::fabs(w - pitch) > 0.01 * pitch || std::fabs(h - pitch) > 0.01 * pitch)) {
                    pitchOff = true;
                    offPitch = std::fabs(w - pitch) > 0.01 * pitch ? w : h;
                }
            }
        }
        const std::int64_t all = (n - 1) * (n - 1);
        if (found == 0) {
            add(ProblemCode::GridNeverApplies, index,
                ordered == 0
                    ? name + ": no cell encloses any point: the nominal points must rise in x along "
                             "each row and fall in y from row to row"
                    : StringUtil::format("%s: every cell lies outside the field +-%g", name.c_str(),
                                         0.5 * par_.ValSize));
            return;
        }
        if (ordered < all)
            add(ProblemCode::GridNotRegular, index,
                StringUtil::format("%s: %lld of %lld cells can never be found: the nominal points must "
                                   "rise in x along each row and fall in y from row to row",
                                   name.c_str(), static_cast<long long>(all - ordered),
                                   static_cast<long long>(all)));
        if (pitchOff)
            add(ProblemCode::GridPitchMismatch, index,
                StringUtil::format("%s: a cell %g wide where the interpolation assumes ValSize / "
                                   "(Size - 1) = %g",
                                   name.c_str(), offPitch, pitch));
    }

    const tagLenPar& par_;
    std::vector<Problem> out_;
};

}  // namespace

const char* problemCodeName(ProblemCode code) {
    switch (code) {
        case ProblemCode::FieldSizeNotPositive: return "field-size-not-positive";
        case ProblemCode::ValSizeNotPositive: return "val-size-not-positive";
        case ProblemCode::ResolutionBelowOne: return "resolution-below-one";
        case ProblemCode::HalfResolutionOutOfRange: return "half-resolution-out-of-range";
        case ProblemCode::CoefficientNotFinite: return "coefficient-not-finite";
        case ProblemCode::AxisZero: return "axis-zero";
        case ProblemCode::BoxTermNotFinite: return "box-term-not-finite";
        case ProblemCode::GainTableNotFinite: return "gain-table-not-finite";
        case ProblemCode::GainTableNeverApplies: return "gain-table-never-applies";
        case ProblemCode::GridTooFewPoints: return "grid-too-few-points";
        case ProblemCode::GridNeverApplies: return "grid-never-applies";
        case ProblemCode::GridNotRegular: return "grid-not-regular";
        case ProblemCode::GridPitchMismatch: return "grid-pitch-mismatch";
        case ProblemCode::GridPointNotFinite: return "grid-point-not-finite";
    }
    return "unknown";
}

std::vector<Problem> validate(const tagLenPar& par) { return Checker(par).run(); }

}  // namespace vrncal
