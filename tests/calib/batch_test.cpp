// The batch corrector must give the facade's bits for every point: same
// output, same result, whatever the grids look like.  Each case sweeps a
// record with points on and between the nominal grid lines (where several
// cells share a corner and the first cell in row-major order must win),
// outside the field, at random, and non-finite.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "vrncal/batch.h"
#include "vrncal/bcd_file.h"
#include "vrncal/facade.h"

namespace {

using vrncal::Corrector;

std::uint32_t bits(float v) {
    std::uint32_t b;
    std::memcpy(&b, &v, sizeof b);
    return b;
}

// A Size x Size grid over the field, rows from the top (largest Y) down;
// `distort` moves the measured positions, `jitter` the nominal ones (by up
// to that fraction of the pitch, so that cells overlap and leave gaps).
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

tagLenPar gridRecord(double val) {
    tagLenPar par;
    par.FieldSize = val;
    par.ValSize = val;
    par.CalMode = 1;
    return par;
}

// Points worth asking about: every nominal X and Y of every stack crossed
// with each other (corners and edges of cells), midpoints, the field edges
// and beyond, random points, and non-finite ones.
std::vector<tagKelPointF> probePoints(const tagLenPar& par, std::size_t randomCount) {
    std::vector<float> xs, ys;
    std::size_t total = 0;
    for (const tagStack& s : par.Stacks) total += s.Points.size();
    const std::size_t stride = total / 80 + 1;  // keeps the cross product small
    std::size_t k = 0;
    for (const tagStack& s : par.Stacks)
        for (const tagCalData& p : s.Points)
            if (k++ % stride == 0) xs.push_back(p.X), ys.push_back(p.Y);
    const float half = float(par.ValSize / 2);
    for (float v : {-half, half, std::nextafter(half, 0.0f), -2 * half, 2 * half, 0.0f, -0.0f})
        xs.push_back(v), ys.push_back(v);

    std::vector<tagKelPointF> pts;
    for (float x : xs)
        for (float y : ys) pts.push_back({x, y});
    for (std::size_t i = 0; i + 1 < xs.size(); ++i)
        pts.push_back({(xs[i] + xs[i + 1]) / 2, (ys[i] + ys[i + 1]) / 2});

    std::mt19937 gen(7);
    std::uniform_real_distribution<float> u(-0.6f * float(par.ValSize), 0.6f * float(par.ValSize));
    for (std::size_t i = 0; i < randomCount; ++i) pts.push_back({u(gen), u(gen)});

    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (float v : {nan, inf, -inf, std::numeric_limits<float>::max(), std::numeric_limits<float>::denorm_min()}) {
        pts.push_back({v, 0.0f});
        pts.push_back({0.0f, v});
        pts.push_back({v, v});
    }
    return pts;
}

// Every probe point through both paths, under every combination of the
// flags the grid correction reads, compared bit for bit.
void expectSameAsFacade(tagLenPar par, std::size_t randomCount = 2000, int flagSets = 8) {
    const std::vector<tagKelPointF> pts = probePoints(par, randomCount);
    VrnCal facade;
    for (int flags = 0; flags < flagSets; ++flags) {
        par.XYFlip = flags & 1;
        par.XInvert = (flags >> 1) & 1;
        par.YInvert = (flags >> 2) & 1;
        const Corrector corrector(par);
        std::size_t mismatches = 0;
        for (const tagKelPointF& p : pts) {
            tagKelPointF want{-1.0f, -1.0f}, got{-2.0f, -2.0f};
            const bool wantOk = facade.CalibPoint(par, p, want);
            const bool gotOk = corrector.correct(p, got);
            if (wantOk != gotOk || bits(want.x) != bits(got.x) || bits(want.y) != bits(got.y)) {
                if (++mismatches <= 5)
                    ADD_FAILURE() << "flags " << flags << " point (" << p.x << ", " << p.y << "): facade ("
                                  << want.x << ", " << want.y << ") " << wantOk << ", corrector (" << got.x
                                  << ", " << got.y << ") " << gotOk;
            }
        }
        EXPECT_EQ(mismatches, 0u) << "flags " << flags;
    }
}

TEST(CorrectorMatchesFacade, BundledSampleBothModes) {
    tagLenPar par;
    ASSERT_EQ(CBcdFile::LoadCorFile(VRNCAL_TEST_DATA "/../../examples/sample.cor", par), 1);
    ASSERT_GE(par.Stacks.size(), 2u);
    par.CalMode = 1;
    expectSameAsFacade(par, 20000);
    par.CalMode = 0;  // the box correction goes straight through
    expectSameAsFacade(par);
}

TEST(CorrectorMatchesFacade, RegularAndOverlappingGrids) {
    tagLenPar par = gridRecord(100.0);
    par.Stacks.push_back(makeStack(100.0, 9, 0.02, 0.0, 1));
    expectSameAsFacade(par);
    // A second, finer grid over the same field adds its deviation on top.
    par.Stacks.push_back(makeStack(100.0, 17, 0.01, 0.0, 2));
    expectSameAsFacade(par);
}

TEST(CorrectorMatchesFacade, IrregularNominalGridsWhereCellsOverlap) {
    // Jittered nominal corners: cells overlap, leave gaps, and some come out
    // inverted (left bound beyond the right one) and can never match.
    for (std::uint32_t seed = 10; seed < 14; ++seed) {
        tagLenPar par = gridRecord(80.0);
        par.Stacks.push_back(makeStack(80.0, 11, 0.03, 0.45, seed));
        expectSameAsFacade(par, 4000);
    }
}

TEST(CorrectorMatchesFacade, NonFiniteCornersAndDegenerateStacks) {
    tagLenPar par = gridRecord(60.0);
    tagStack withNan = makeStack(60.0, 7, 0.02, 0.1, 3);
    withNan.Points[8].X = std::numeric_limits<float>::quiet_NaN();
    withNan.Points[20].Y = std::numeric_limits<float>::quiet_NaN();
    withNan.Points[30].RealX = std::numeric_limits<float>::quiet_NaN();
    withNan.Points[40].X = -std::numeric_limits<float>::infinity();
    withNan.Points[48].Y = std::numeric_limits<float>::infinity();
    par.Stacks.push_back(withNan);

    tagStack single;  // one point: no cells
    single.Size = 1;
    single.Points.push_back({0.0f, 0.0f, 1.0f, 1.0f});
    par.Stacks.push_back(single);

    tagStack shortStack = makeStack(60.0, 5, 0.02, 0.0, 4);  // fewer points than Size x Size
    shortStack.Points.resize(20);
    par.Stacks.push_back(shortStack);

    tagStack collapsed = makeStack(60.0, 4, 0.02, 0.0, 5);  // every nominal X the same
    for (tagCalData& p : collapsed.Points) p.X = 0.0f;
    par.Stacks.push_back(collapsed);
    expectSameAsFacade(par, 4000);
}

TEST(CorrectorMatchesFacade, FieldEdgesAndGridsSmallerThanTheField) {
    // The grid covers only the middle of the field: points between its edge
    // and the field edge find no cell.
    tagLenPar par = gridRecord(100.0);
    par.Stacks.push_back(makeStack(50.0, 6, 0.02, 0.0, 6));
    expectSameAsFacade(par);
    par.ValSize = 30.0;  // the clamp now cuts inside the grid
    expectSameAsFacade(par);
}

TEST(CorrectorMatchesFacade, ManyCellsPerSide) {
    tagLenPar par = gridRecord(200.0);
    par.Stacks.push_back(makeStack(200.0, 301, 0.01, 0.05, 8));  // more cells than buckets per side
    expectSameAsFacade(par, 5000, 2);
}

TEST(CorrectorArrays, InPlaceAndSeparateArraysGiveTheSinglePointBits) {
    tagLenPar par = gridRecord(100.0);
    par.Stacks.push_back(makeStack(100.0, 9, 0.02, 0.2, 9));
    const std::vector<tagKelPointF> pts = probePoints(par, 500);
    const Corrector corrector(par);

    std::vector<tagKelPointF> separate(pts.size());
    corrector.correct(pts.data(), separate.data(), pts.size());
    std::vector<tagKelPointF> inPlace = pts;
    corrector.correct(inPlace.data(), inPlace.data(), inPlace.size());

    for (std::size_t i = 0; i < pts.size(); ++i) {
        tagKelPointF one{};
        corrector.correct(pts[i], one);
        ASSERT_EQ(bits(separate[i].x), bits(one.x)) << i;
        ASSERT_EQ(bits(separate[i].y), bits(one.y)) << i;
        ASSERT_EQ(bits(inPlace[i].x), bits(one.x)) << i;
        ASSERT_EQ(bits(inPlace[i].y), bits(one.y)) << i;
    }
}

TEST(CorrectorArrays, MovedCorrectorKeepsWorking) {
    tagLenPar par = gridRecord(100.0);
    par.Stacks.push_back(makeStack(100.0, 5, 0.05, 0.0, 11));
    Corrector a(par);
    tagKelPointF before{}, after{};
    a.correct(tagKelPointF{12.5f, -7.25f}, before);
    Corrector b(std::move(a));
    b.correct(tagKelPointF{12.5f, -7.25f}, after);
    EXPECT_EQ(bits(before.x), bits(after.x));
    EXPECT_EQ(bits(before.y), bits(after.y));
}

}  // namespace
