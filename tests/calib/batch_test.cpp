// The batch corrector must give the facade's bits for every point whose
// facade result is not NaN, and NaN where the facade gives NaN, on every
// path (scalar, AVX2, AVX-512, automatic), under all eight combinations of
// the lens flags.  The points: every grid node and its neighbours one ulp
// away, cell edges crossed with other cells' coordinates, the field edges
// and beyond, a raster of scan lines, random points, and non-finite ones.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>
#include <random>
#include <vector>

#include "float_bits.h"
#include "vrncal/batch.h"
#include "vrncal/bcd_file.h"
#include "vrncal/facade.h"

namespace {

using vrncal::Corrector;
using Path = Corrector::Path;
using vrncal_test::bitsOf;

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

// A Size x Size grid over [-val/2, val/2], rows from the top down: a mild
// pincushion plus noise in the measured positions; `jitter` moves the
// nominal ones (by up to that fraction of the pitch, so that cells overlap
// and leave gaps and the grid is no longer rectilinear).
tagStack makeStack(double val, int size, double distort, double jitter, std::uint32_t seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    const double pitch = val / (size - 1);
    tagStack s;
    s.Size = size;
    for (int r = 0; r < size; ++r) {
        for (int c = 0; c < size; ++c) {
            const double x = -val / 2 + c * pitch, y = val / 2 - r * pitch;
            const double nx = x + jitter * pitch * u(gen), ny = y + jitter * pitch * u(gen);
            const double rx = x * (1.0 + distort * y / val) + distort * 0.5 * u(gen);
            const double ry = y * (1.0 - distort * x / val) + distort * 0.5 * u(gen);
            s.Points.push_back(tagCalData{float(nx), float(ny), float(rx), float(ry)});
        }
    }
    return s;
}

// The bundled sample: nine-point coefficients fitted on load, a 9 x 9 and a
// 17 x 17 grid.
tagLenPar sample() {
    tagLenPar par;
    EXPECT_EQ(CBcdFile::LoadCorFile(VRNCAL_TEST_DATA "/../../examples/sample.cor", par), 1);
    par.CalMode = 1;
    return par;
}

// The sample's coefficients with the given grids instead of its own.
tagLenPar withGrids(std::initializer_list<int> sizes, double distort = 0.02, double jitter = 0.0) {
    tagLenPar par = sample();
    par.Stacks.clear();
    std::uint32_t seed = 1;
    for (int n : sizes) par.Stacks.push_back(makeStack(par.ValSize, n, distort, jitter, seed++));
    return par;
}

// Ascending breakpoints over the field, gains a little off 1.
void fillGainTable(double* pos, double* gain, int count, double val) {
    for (int i = 0; i < count; ++i) {
        pos[i] = -val / 2 + val * i / (count - 1);
        gain[i] = 1.0 + 0.001 * ((i * 7) % 5 - 2);
    }
}

std::vector<tagKelPointF> probePoints(const tagLenPar& par) {
    std::vector<float> xs, ys;
    const auto withUlps = [](std::vector<float>& v, float f) {
        v.push_back(f);
        v.push_back(std::nextafter(f, kInf));
        v.push_back(std::nextafter(f, -kInf));
    };
    std::vector<tagKelPointF> pts;
    for (const tagStack& s : par.Stacks) {
        for (std::size_t i = 0; i < s.Points.size(); ++i) {
            const tagCalData& p = s.Points[i];
            if (i < static_cast<std::size_t>(s.Size)) withUlps(xs, p.X);
            if (i % s.Size == 0) withUlps(ys, p.Y);
            // The node and its eight neighbours one ulp away.
            for (float dx : {-kInf, 0.0f, kInf})
                for (float dy : {-kInf, 0.0f, kInf})
                    pts.push_back({dx == 0 ? p.X : std::nextafter(p.X, dx), dy == 0 ? p.Y : std::nextafter(p.Y, dy)});
        }
    }
    const float half = float(par.ValSize / 2);
    for (float v : {half, -half, 2 * half, -2 * half, 1e30f, -1e30f, 0.0f, -0.0f, kInf, -kInf, kNan,
                    std::numeric_limits<float>::max(), std::numeric_limits<float>::denorm_min()}) {
        withUlps(xs, v);
        withUlps(ys, v);
    }
    // Each special X against a rotating choice of Ys and the other way
    // round: cell edges crossed with every other coordinate.
    for (std::size_t i = 0; i < xs.size(); ++i)
        for (std::size_t j = 0; j < 24; ++j) pts.push_back({xs[i], ys[(i * 7 + j * 13) % ys.size()]});
    for (std::size_t i = 0; i < ys.size(); ++i)
        for (std::size_t j = 0; j < 24; ++j) pts.push_back({xs[(i * 11 + j * 5) % xs.size()], ys[i]});
    // A raster of scan lines slightly wider than the field, and random points.
    for (int line = 0; line <= 40; ++line)
        for (int k = 0; k <= 400; ++k)
            pts.push_back({float(-0.55 * par.ValSize + 1.1 * par.ValSize * k / 400),
                           float(0.55 * par.ValSize - 1.1 * par.ValSize * line / 40)});
    std::mt19937 gen(7);
    std::uniform_real_distribution<float> u(-0.6f * float(par.ValSize), 0.6f * float(par.ValSize));
    for (int i = 0; i < 20000; ++i) pts.push_back({u(gen), u(gen)});
    return pts;
}

// Whether asking for this path can give a vector path: built in, and the
// CPU has it.
bool vectorAvailable(Path path) {
#ifdef VRNCAL_NO_VECTOR
    (void)path;
    return false;
#else
    if (path == Path::Scalar) return false;
    if (path == Path::Avx512) return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl");
    return __builtin_cpu_supports("avx2");
#endif
}

enum class Takes { Vector, Scalar };

// Every probe point (every stride-th) through every path under the flag
// combinations (of the copies the grid correction reads and of the lens
// flags the box correction reads), against the facade.  `takes`: the path
// the record must take where the CPU has a vector path.
void expectSameAsFacade(tagLenPar par, Takes takes, int flagSets = 8, std::size_t stride = 1) {
    std::vector<tagKelPointF> pts;
    const std::vector<tagKelPointF> all = probePoints(par);
    for (std::size_t i = 0; i < all.size(); i += stride) pts.push_back(all[i]);
    std::vector<tagKelPointF> want(pts.size()), got(pts.size());
    VrnCal facade;
    for (int flags = 0; flags < flagSets; ++flags) {
        par.XYFlip = par.LEN_XYFLIP = flags & 1;
        par.XInvert = par.LEN_XINVERT = (flags >> 1) & 1;
        par.YInvert = par.LEN_YINVERT = (flags >> 2) & 1;
        for (std::size_t i = 0; i < pts.size(); ++i) ASSERT_TRUE(facade.CalibPoint(par, pts[i], want[i]));
        for (Path path : {Path::Scalar, Path::Avx2, Path::Avx512, Path::Automatic}) {
            const Corrector corrector(par, path);
            if (takes == Takes::Vector && vectorAvailable(path)) {
                EXPECT_NE(corrector.path(), Path::Scalar);
            } else {
                EXPECT_EQ(corrector.path(), Path::Scalar);
            }
            got = pts;  // in place
            corrector.correct(got.data(), got.data(), got.size());
            std::size_t bad = 0;
            for (std::size_t i = 0; i < pts.size(); ++i) {
                const bool same = std::isnan(want[i].x) ? std::isnan(got[i].x) : bitsOf(want[i].x) == bitsOf(got[i].x);
                const bool sameY = std::isnan(want[i].y) ? std::isnan(got[i].y) : bitsOf(want[i].y) == bitsOf(got[i].y);
                if ((!same || !sameY) && ++bad <= 3)
                    ADD_FAILURE() << "flags " << flags << " path " << int(corrector.path()) << " point "
                                  << std::hexfloat << pts[i].x << ", " << pts[i].y << ": facade " << want[i].x
                                  << ", " << want[i].y << ", corrector " << got[i].x << ", " << got[i].y;
            }
            EXPECT_EQ(bad, 0u) << "flags " << flags << " path " << int(path);
        }
        // The single-point call, on every 7th point.
        const Corrector corrector(par);
        for (std::size_t i = 0; i < pts.size(); i += 7) {
            tagKelPointF one{};
            ASSERT_TRUE(corrector.correct(pts[i], one));
            EXPECT_SAME_BITS(want[i].x, one.x);
            EXPECT_SAME_BITS(want[i].y, one.y);
        }
    }
}

TEST(CorrectorMatchesFacade, NinePointModelOnly) { expectSameAsFacade(withGrids({}), Takes::Vector); }
TEST(CorrectorMatchesFacade, OneGridOf9) { expectSameAsFacade(withGrids({9}), Takes::Vector); }
TEST(CorrectorMatchesFacade, OneGridOf65) { expectSameAsFacade(withGrids({65}), Takes::Vector); }
TEST(CorrectorMatchesFacade, SixGrids) { expectSameAsFacade(withGrids({5, 9, 17, 33, 65, 25}), Takes::Vector); }
TEST(CorrectorMatchesFacade, BundledSample) { expectSameAsFacade(sample(), Takes::Vector); }

TEST(CorrectorMatchesFacade, BoxModeWithGainTables) {
    tagLenPar par = sample();
    par.CalMode = 0;
    par.BoxScaleX = 100.4, par.BoxScaleY = 99.7, par.BoxSkewX = 1.0003, par.BoxSkewY = 0.9998;
    par.BoxTrapX = 1.0001, par.BoxTrapY = 0.9999, par.BoxBarrelX = 0.9985, par.BoxBarrelY = 0.9982;
    par.BoxOffsetX = -0.12, par.BoxOffsetY = 0.08;
    par.BoxGrid = 1;
    par.BoxLineCount = 21;
    fillGainTable(par.BoxXT, par.BoxXR, 21, par.ValSize);
    fillGainTable(par.BoxYT, par.BoxYR, 21, par.ValSize);
    expectSameAsFacade(par, Takes::Scalar);
    par.BoxYT[5] = par.BoxYT[9];  // not ascending: the lookup scans as the facade does
    par.BoxXT[3] = std::nan("");
    expectSameAsFacade(par, Takes::Scalar);
}

TEST(CorrectorMatchesFacade, GridGainTablesTakeTheScalarPath) {
    tagLenPar par = withGrids({9, 17});
    par.grid = 1;
    par.LineCount = 15;
    fillGainTable(par.XT, par.XR, 15, par.ValSize);
    fillGainTable(par.YT, par.YR, 15, par.ValSize);
    par.YT[4] = par.YT[5];  // a zero-width interval is never matched
    expectSameAsFacade(par, Takes::Scalar);
}

TEST(CorrectorMatchesFacade, NonFiniteAndZeroCoefficients) {
    // NaN, infinite and zero coefficients flow through both paths as through
    // the facade: zero axes divide by zero, NaN picks nothing.
    tagLenPar par = withGrids({9});
    par.CalCoefs.TXR = std::nan("");
    par.CalCoefs.AxisYT = 0.0;
    par.CalCoefs.k[2] = HUGE_VAL;
    expectSameAsFacade(par, Takes::Vector);
    par = withGrids({5});
    par.CalCoefs.QuadY = std::nan("");
    par.CalCoefs.PLX = -HUGE_VAL;
    par.FieldSize = 0.0;
    expectSameAsFacade(par, Takes::Vector);
}

TEST(CorrectorMatchesFacade, FieldEdgesNegativeFieldAndGridsSmallerThanTheField) {
    // The grid covers only the middle of the field: points between its edge
    // and the field edge find no cell; then the clamp cuts inside the grid;
    // a negative field turns the clamp's limits round; a NaN field clamps
    // nothing.
    tagLenPar par = withGrids({});
    par.Stacks.push_back(makeStack(40.0, 6, 0.02, 0.0, 6));
    expectSameAsFacade(par, Takes::Vector);
    // A zero or tiny field gives a zero pitch, where the edge guards decide.
    for (double val : {30.0, 33.3, 0.2, -30.0, std::nan(""), 0.0, 1e-44, HUGE_VAL}) {
        par.ValSize = val;
        expectSameAsFacade(par, Takes::Vector, 8, val == 33.3 || val == 0.2 ? 1 : 3);
    }
    // A flat grid: measured X constant down each column, Y along each row,
    // so every guarded corner difference is zero.
    par = withGrids({5});
    for (tagCalData& p : par.Stacks[0].Points) p.RealX = p.X, p.RealY = p.Y;
    for (double val : {80.0, 0.0}) {
        par.ValSize = val;
        expectSameAsFacade(par, Takes::Vector);
    }
}

TEST(CorrectorMatchesFacade, IrregularAndDamagedGridsTakeTheScalarPath) {
    // Jittered nominal corners: cells overlap, leave gaps, and some come out
    // inverted and can never match.
    expectSameAsFacade(withGrids({11, 7}, 0.03, 0.45), Takes::Scalar);

    tagLenPar par = withGrids({7});
    tagStack& withNan = par.Stacks[0];
    withNan.Points[8].X = kNan;
    withNan.Points[20].Y = kNan;
    withNan.Points[30].RealX = kNan;
    withNan.Points[40].X = -kInf;
    tagStack single;  // one point: no cells
    single.Size = 1;
    single.Points.push_back({0.0f, 0.0f, 1.0f, 1.0f});
    par.Stacks.push_back(single);
    tagStack shortStack = makeStack(par.ValSize, 5, 0.02, 0.0, 4);  // fewer points than Size x Size
    shortStack.Points.resize(20);
    par.Stacks.push_back(shortStack);
    tagStack collapsed = makeStack(par.ValSize, 4, 0.02, 0.0, 5);  // every nominal X the same
    for (tagCalData& p : collapsed.Points) p.X = 0.0f;
    par.Stacks.push_back(collapsed);
    expectSameAsFacade(par, Takes::Scalar);
}

TEST(CorrectorMatchesFacade, RectilinearButUnevenAndSignedZeroGrids) {
    // Still one X per column and one Y per row, but unevenly spaced: a little
    // (the O(1) guess still lands within one cell) or much (the columns crowd
    // to the left and the grid is left to the scalar path).  Measured corners
    // repeat (the edge guards), and a nominal -0 in one row is not the
    // column's +0.
    for (int crowd = 0; crowd < 2; ++crowd) {
        tagLenPar par = withGrids({9});
        tagStack& s = par.Stacks[0];
        for (int r = 0; r < 9; ++r)
            for (int c = 0; c < 9; ++c) {
                tagCalData& p = s.Points[r * 9 + c];
                p.X = float(crowd ? -40.0 + 80.0 * (c * c) / 64.0 : -40.0 + 10.0 * c + (c % 8 ? 3.5 : 0.0) * (c % 2 ? 1 : -1));
                if (c == 3) p.RealY = s.Points[r * 9 + 2].RealY;
                if (r == 4) p.RealX = s.Points[3 * 9 + c].RealX;
            }
        expectSameAsFacade(par, crowd ? Takes::Scalar : Takes::Vector);
    }
    tagLenPar par = withGrids({9, 5});
    par.Stacks[1].Points[2].X = -0.0f;  // row 0 of the middle column
    expectSameAsFacade(par, Takes::Scalar);
}

TEST(CorrectorMatchesFacade, ResidualsAtTheQuarterThreshold) {
    // One cell whose left edge measures exactly d off its nominal X of 0, so
    // the residual at x = 0 is exactly d: around 0.001, the limit above which
    // it is applied in full rather than at a quarter.
    for (float d : {0.001f, std::nextafter(0.001f, 0.0f), std::nextafter(0.001f, 1.0f), -0.001f}) {
        tagLenPar par = withGrids({});
        tagStack s;
        s.Size = 2;
        s.Points = {{0, 40, d, 40}, {40, 40, 40, 40}, {0, 0, d, 0}, {40, 0, 40, 0}};
        par.Stacks.push_back(s);
        expectSameAsFacade(par, Takes::Vector, 8, 1);
    }
}

TEST(CorrectorMatchesFacade, ManyCellsPerSide) {
    expectSameAsFacade(withGrids({301}, 0.01, 0.05), Takes::Scalar, 2, 40);
    expectSameAsFacade(withGrids({129}), Takes::Vector, 2, 4);
}

TEST(CorrectorArrays, SeparateArraysEveryLengthAndMove) {
    // Every length up to five blocks of eight (the vector paths take four
    // blocks at a time, then single blocks, then a padded tail); the output
    // beyond n stays untouched.
    const tagLenPar par = withGrids({17, 9});
    const std::vector<tagKelPointF> pts = probePoints(par);
    Corrector a(par);
    for (std::size_t n = 0; n <= 40; ++n) {
        std::vector<tagKelPointF> out(n + 1, tagKelPointF{-7.0f, -7.0f});
        a.correct(pts.data() + 1000, out.data(), n);
        for (std::size_t i = 0; i < n; ++i) {
            tagKelPointF one{};
            a.correct(pts[1000 + i], one);
            EXPECT_EQ(bitsOf(out[i].x), bitsOf(one.x));
            EXPECT_EQ(bitsOf(out[i].y), bitsOf(one.y));
        }
        EXPECT_EQ(out[n].x, -7.0f);
    }
    const Corrector b(std::move(a));
    tagKelPointF before{}, after{};
    Corrector(par).correct(pts[5], before);
    b.correct(pts[5], after);
    EXPECT_EQ(bitsOf(before.x), bitsOf(after.x));
}

}  // namespace

// Correcting allocates nothing: every allocation of the process is counted
// while a Corrector corrects.  (Not under the sanitizers, which bring their
// own operator new.)
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VRNCAL_TEST_ASAN 1
#endif
#endif
#if !defined(__SANITIZE_ADDRESS__) && !defined(VRNCAL_TEST_ASAN)
namespace {
std::atomic<long> allocations{0};
}
void* operator new(std::size_t size) {
    ++allocations;
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"  // malloc behind new, free behind delete
#endif
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

TEST(CorrectorArrays, CorrectingAllocatesNothing) {
    tagLenPar irregular = withGrids({11}, 0.03, 0.45);
    irregular.grid = 1;  // gain tables too
    irregular.LineCount = 3;
    for (const tagLenPar& par : {withGrids({5, 9, 17, 33, 65, 25}), irregular}) {
        for (Path path : {Path::Scalar, Path::Automatic}) {
            const Corrector corrector(par, path);
            std::vector<tagKelPointF> pts(1003, tagKelPointF{12.5f, -3.0f});
            const long before = allocations;
            corrector.correct(pts.data(), pts.data(), pts.size());
            corrector.correct(pts[0], pts[1]);
            EXPECT_EQ(allocations - before, 0);
        }
    }
}
#endif
