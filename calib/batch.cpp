// The batch corrector: works out once per record what the facade works out
// per point (coefficients, the sign rule, the field clamp, a lookup and a
// table of corners for every grid), then hands the points to the scalar path
// or, where the CPU and the record allow, to a vector path.
#include "vrncal/batch.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "alg/cell_index.h"
#include "alg/grid_cell.h"
#include "calib/batch_lookup.h"
#include "calib/batch_model.h"
#include "math/fp.h"

namespace vrncal {

using namespace vrncal_detail;

namespace {

constexpr std::uint32_t kSignBit = 0x80000000u;

// The least float not below d, and the greatest not above it (NaN stays).
float floatAtOrAbove(double d) {
    float f = stored(d);
    if (static_cast<double>(f) < d) f = std::nextafter(f, std::numeric_limits<float>::infinity());
    return f;
}
float floatAtOrBelow(double d) {
    float f = stored(d);
    if (static_cast<double>(f) > d) f = std::nextafter(f, -std::numeric_limits<float>::infinity());
    return f;
}

// Larger grids keep their points and a cell index rather than a table.
constexpr int kMaxTableSize = 1025;

// Sizes the O(1) lookup of one axis from its nominal coordinates v[0 .. n-1]
// (strictly monotone, finite) and checks that its guess is never more than
// one cell off: the guess is monotone in the coordinate, so checking both
// ends of every cell is enough.  `falling` for the rows, whose Y falls.
bool sizeAxis(const std::vector<float>& v, bool falling, float& origin, float& scale, BatchStack& s,
              std::vector<float>& cmp) {
    const std::size_t n = v.size();
    const double extent = falling ? double(v[0]) - v[n - 1] : double(v[n - 1]) - v[0];
    origin = v[0];
    scale = stored(static_cast<double>(n - 1) / extent);
    if (!(std::isfinite(scale) && scale > 0.0f)) return false;
    const auto guess = [&](float c) {
        return falling ? clampedGuess((origin - c) * scale, s.last) : clampedGuess((c - origin) * scale, s.last);
    };
    for (std::size_t k = 0; k + 1 < n; ++k) {
        const long cell = static_cast<long>(k);
        if (guess(v[k]) < cell - 1 || guess(v[k + 1]) > cell + 1) return false;
    }
    const float inf = std::numeric_limits<float>::infinity();
    cmp.assign(v.begin(), v.end());
    cmp.front() = falling ? inf : -inf;
    cmp.back() = falling ? -inf : inf;
    return true;
}

bool sameBits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }

}  // namespace

struct Corrector::Impl {
    BatchModel model;
    std::vector<BatchStack> stacks;
    std::vector<std::vector<float>> tables;  // what the stacks point into
    std::vector<std::unique_ptr<CellIndex>> indexes;
    Path path = Path::Scalar;

    Impl(const tagLenPar& par, Path wanted) {
        buildCoefficients(par);
        stacks.reserve(par.Stacks.size());
        for (const tagStack& s : par.Stacks)
            if (stackHasCells(s)) addStack(par, s);
        model.stacks = stacks.data();
        model.stackCount = stacks.size();
        choosePath(wanted);
    }

    void buildCoefficients(const tagLenPar& par) {
        BatchModel& m = model;
        const tagCalCoefs& c = par.CalCoefs;
        m.par = &par;
        m.gridMode = par.CalMode != 0;
        // The sign rule: the exchange flag swaps which invert flag acts on
        // which axis, never the coordinates.  Grid mode reads the copies of
        // the flags, box mode the lens flags.
        const int exchange = m.gridMode ? par.XYFlip : par.LEN_XYFLIP;
        const int invertX = m.gridMode ? par.XInvert : par.LEN_XINVERT;
        const int invertY = m.gridMode ? par.YInvert : par.LEN_YINVERT;
        m.signX = (exchange == 0 ? invertX : invertY) != 0 ? kSignBit : 0;
        m.signY = (exchange == 0 ? invertY : invertX) != 0 ? kSignBit : 0;

        m.quadX = c.QuadX;
        m.quadY = c.QuadY;
        m.plx = c.PLX;
        m.keystoneX[0] = -c.TXR, m.keystoneX[1] = c.TXL;
        m.axisX[0] = c.AxisXR, m.axisX[1] = c.AxisXL;
        m.keystoneY[0] = -c.TYT, m.keystoneY[1] = c.TYB;
        m.axisY[0] = c.AxisYT, m.axisY[1] = c.AxisYB;
        m.scaleX = c.ScaleX;
        m.scaleY = c.ScaleY;
        m.k2 = c.k[2];
        m.k3 = c.k[3];
        m.kc = static_cast<double>(par.Resolution) / par.FieldSize;
        // With the exchange flag the axes trade their gains as well.
        m.gainX = par.XYFlip == 0 ? c.ScaleX : c.ScaleY;
        m.gainY = par.XYFlip == 0 ? c.ScaleY : c.ScaleX;

        const double half = 0.5 * par.ValSize;
        m.belowHalf = floatAtOrAbove(-half);
        m.aboveHalf = floatAtOrBelow(half);
        m.lowValue = stored(-half);
        m.highValue = stored(half);
        m.residualLimit = floatAtOrBelow(0.001);
        m.centre = static_cast<float>(par.HalfResolution);
        m.limit = static_cast<float>(par.Resolution);

        if (m.gridMode) {
            m.gainTables = par.grid == 1;
            m.tableX = gainTable(par.LineCount, par.XT, par.XR);
            m.tableY = gainTable(par.LineCount, par.YT, par.YR);
        } else {
            m.gainTables = par.BoxGrid == 1;
            m.tableX = gainTable(par.BoxLineCount, par.BoxXT, par.BoxXR);
            m.tableY = gainTable(par.BoxLineCount, par.BoxYT, par.BoxYR);
        }
    }

    static BatchGainTable gainTable(int count, const double* pos, const double* gain) {
        BatchGainTable t;
        t.count = count;
        t.pos = pos;
        t.gain = gain;
        t.ascending = count >= 1 && count <= 99;
        for (int i = 0; t.ascending && i < count; ++i)
            t.ascending = std::isfinite(pos[i]) && (i == 0 || pos[i - 1] <= pos[i]);
        return t;
    }

    void addStack(const tagLenPar& par, const tagStack& s) {
        BatchStack bs;
        bs.stack = &s;
        bs.h = stored(par.ValSize / static_cast<double>(s.Size - 1));
        if (!makeRectilinear(s, bs)) {
            model.allRectilinear = false;
            if (s.Points.size() <= std::numeric_limits<std::uint32_t>::max())
                bs.index = indexes.emplace_back(std::make_unique<CellIndex>(s)).get();
        }
        stacks.push_back(bs);
    }

    // The lookup and the corner table of a stack whose nominal points form
    // a rectilinear grid (bit for bit one X per column and one Y per row,
    // finite, X rising along a row and Y falling down a column).
    bool makeRectilinear(const tagStack& s, BatchStack& bs) {
        const int n = s.Size;
        if (n > kMaxTableSize) return false;
        const std::size_t un = static_cast<std::size_t>(n);
        std::vector<float> colX(un), rowY(un);
        for (std::size_t i = 0; i < un; ++i) {
            colX[i] = s.Points[i].X;
            rowY[i] = s.Points[i * un].Y;
            if (!std::isfinite(colX[i]) || !std::isfinite(rowY[i])) return false;
            if (i > 0 && !(colX[i - 1] < colX[i] && rowY[i - 1] > rowY[i])) return false;
        }
        for (std::size_t r = 0; r < un; ++r)
            for (std::size_t c = 0; c < un; ++c)
                if (!sameBits(s.Points[r * un + c].X, colX[c]) || !sameBits(s.Points[r * un + c].Y, rowY[r]))
                    return false;

        bs.last = static_cast<float>(n - 2);
        bs.cellsPerRow = n - 1;
        std::vector<float> cmpX, cmpY;
        if (!sizeAxis(colX, false, bs.x0, bs.sx, bs, cmpX) || !sizeAxis(rowY, true, bs.y0, bs.sy, bs, cmpY))
            return false;
        // Padded, so that the vector paths can hold a small table in registers.
        bs.cmpSize = std::max(64, (n + 15) / 16 * 16);
        cmpX.resize(static_cast<std::size_t>(bs.cmpSize), cmpX.back());
        cmpY.resize(static_cast<std::size_t>(bs.cmpSize), cmpY.back());
        bs.xLo = colX.front();
        bs.xHi = colX.back();
        bs.yLo = rowY.back();
        bs.yHi = rowY.front();

        std::vector<float> cells(static_cast<std::size_t>(n - 1) * (n - 1) * kCellFloats, 0.0f);
        float* cell = cells.data();
        for (std::size_t r = 0; r + 1 < un; ++r) {
            for (std::size_t c = 0; c + 1 < un; ++c, cell += kCellFloats) {
                const tagCalData* p = &s.Points[r * un + c];
                const tagCalData* corners[4] = {p, p + 1, p + un, p + un + 1};
                for (int j = 0; j < 4; ++j) {
                    cell[2 * j] = corners[j]->RealX;
                    cell[2 * j + 1] = corners[j]->RealY;
                }
                cell[8] = colX[c];
                cell[9] = rowY[r];
                cell[10] = rowY[r + 1];
            }
        }
        bs.cells = tables.emplace_back(std::move(cells)).data();
        bs.cmpX = tables.emplace_back(std::move(cmpX)).data();
        bs.cmpY = tables.emplace_back(std::move(cmpY)).data();
        return true;
    }

    void choosePath(Path wanted) {
        path = Path::Scalar;
#ifndef VRNCAL_NO_VECTOR
        if (wanted == Path::Scalar) return;
        if (!model.gridMode || model.gainTables || !model.allRectilinear) return;
        __builtin_cpu_init();
        const bool avx2 = __builtin_cpu_supports("avx2");
        const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl");
        if (wanted == Path::Avx512) {
            if (avx512) path = Path::Avx512;
        } else if (wanted == Path::Avx2) {
            if (avx2) path = Path::Avx2;
        } else if (avx512) {
            path = Path::Avx512;
        } else if (avx2) {
            path = Path::Avx2;
        }
#else
        (void)wanted;
#endif
    }

    void run(const tagKelPointF* in, tagKelPointF* out, std::size_t n) const {
#ifndef VRNCAL_NO_VECTOR
        if (path == Path::Avx512) return correctAvx512(model, in, out, n);
        if (path == Path::Avx2) return correctAvx2(model, in, out, n);
#endif
        correctScalar(model, in, out, n);
    }
};

Corrector::Corrector(const tagLenPar& par) : Corrector(par, Path::Automatic) {}
Corrector::Corrector(const tagLenPar& par, Path path) : impl_(new Impl(par, path)) {}
Corrector::~Corrector() = default;
Corrector::Corrector(Corrector&&) noexcept = default;
Corrector& Corrector::operator=(Corrector&&) noexcept = default;

bool Corrector::correct(tagKelPointF in, tagKelPointF& out) const {
    correctScalar(impl_->model, &in, &out, 1);
    return true;
}

void Corrector::correct(const tagKelPointF* in, tagKelPointF* out, std::size_t n) const {
    impl_->run(in, out, n);
}

Corrector::Path Corrector::path() const { return impl_->path; }

}  // namespace vrncal
