// Grid location: the cell lookup and interpolation of GetGridDR, the
// ratio-only variants, point classification and the polygon tests.
#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "float_bits.h"
#include "vrncal/calib_alg.h"

namespace {

const float kInf = std::numeric_limits<float>::infinity();
const float kNaN = std::numeric_limits<float>::quiet_NaN();

tagStack stackOf(int size, const std::vector<tagCalData>& points) {
    tagStack s;
    s.Size = size;
    s.Points = points;
    return s;
}

// A distorted 4x4 grid over +-35: the pitch 70/3 is not a float, so its
// rounding shows in every interpolation.
const std::vector<tagCalData> kGrid4 = {
    {-0x1.18p+5f, 0x1.18p+5f, -0x1.17a2p+5f, 0x1.19aee6p+5f},
    {-0x1.755556p+3f, 0x1.18p+5f, -0x1.7ed1b8p+3f, 0x1.1904eap+5f},
    {0x1.755556p+3f, 0x1.18p+5f, 0x1.75d3c4p+3f, 0x1.167d56p+5f},
    {0x1.18p+5f, 0x1.18p+5f, 0x1.1c3b64p+5f, 0x1.1b7804p+5f},
    {-0x1.18p+5f, 0x1.755556p+3f, -0x1.1b0cb2p+5f, 0x1.733a92p+3f},
    {-0x1.755556p+3f, 0x1.755556p+3f, -0x1.70bc6ap+3f, 0x1.7d0d84p+3f},
    {0x1.755556p+3f, 0x1.755556p+3f, 0x1.7a1206p+3f, 0x1.71eab4p+3f},
    {0x1.18p+5f, 0x1.755556p+3f, 0x1.164674p+5f, 0x1.7b1758p+3f},
    {-0x1.18p+5f, -0x1.755556p+3f, -0x1.14f804p+5f, -0x1.6f930cp+3f},
    {-0x1.755556p+3f, -0x1.755556p+3f, -0x1.78538ep+3f, -0x1.78bfb2p+3f},
    {0x1.755556p+3f, -0x1.755556p+3f, 0x1.6efec6p+3f, -0x1.6d9cep+3f},
    {0x1.18p+5f, -0x1.755556p+3f, 0x1.19be42p+5f, -0x1.7770a4p+3f},
    {-0x1.18p+5f, -0x1.18p+5f, -0x1.184fep+5f, -0x1.1487fcp+5f},
    {-0x1.755556p+3f, -0x1.18p+5f, -0x1.709a02p+3f, -0x1.1982aap+5f},
    {0x1.755556p+3f, -0x1.18p+5f, 0x1.799724p+3f, -0x1.16fb16p+5f},
    {0x1.18p+5f, -0x1.18p+5f, 0x1.13b67ap+5f, -0x1.16511ap+5f},
};

tagLenPar grid4Record() {
    tagLenPar rec;
    rec.ValSize = 70.0;
    return rec;
}

struct LookupCase {
    tagKelPointF pt;
    tagKelPointF ratio, dev;  // GetGridDR
    tagKelPointF ratioSR;     // GetGridSR, computed in double
};

const LookupCase kLookups[] = {
    {{0x0p+0f, 0x0p+0f}, {0x1p+0f, 0x1p+0f}, {0x1.afcp-16f, 0x1.1375p-4f}, {0x1p+0f, 0x1p+0f}},
    {{0x1.9p+1f, -0x1.ep+2f}, {0x1.08e926p+0f, 0x1.035cbp+0f}, {-0x1.ae8dp-4f, 0x1.8e39a8p-4f}, {0x1.08e926p+0f, 0x1.035cb4p+0f}},
    // a grid node shared by four cells: interpolated in the top-left one
    {{-0x1.755556p+3f, 0x1.755556p+3f}, {0x1.033116p+0f, 0x1.f5a0aep-1f}, {0x1.263a8p-3f, 0x1.ee0b8p-3f}, {0x1.033116p+0f, 0x1.f5a0b4p-1f}},
    {{-0x1.4p+4f, 0x1.ep+4f}, {0x1.fc489ep-1f, 0x1.fd6d0ap-1f}, {-0x1.2b7bp-3f, 0x1.36745cp-3f}, {0x1.fc489cp-1f, 0x1.fd6d08p-1f}},
    {{0x1.1p+5f, -0x1.14p+5f}, {0x1.03c26cp+0f, 0x1.01809cp+0f}, {-0x1.f7e3p-2f, 0x1.9c3a64p-3f}, {0x1.03c26cp+0f, 0x1.01809ap+0f}},
    {{-0x1.18p+5f, 0x1.18p+5f}, {0x1.00561p+0f, 0x1.fcf0ccp-1f}, {0x1.7808p-5f, 0x1.aee5fap-3f}, {0x1.00560ep+0f, 0x1.fcf0c8p-1f}},
    // beyond the field: looked up at the clamped corner (35, -35)
    {{0x1.9p+5f, -0x1.ep+5f}, {0x1.03fb0ep+0f, 0x1.018c5ap+0f}, {-0x1.12618p-1f, 0x1.aee5f8p-3f}, {0x1.03fb0ep+0f, 0x1.018c5ap+0f}},
    {{0x1.18p+5f, 0x1.8p+3f}, {0x1.01820ap+0f, 0x1.f84948p-1f}, {-0x1.a3c2p-3f, 0x1.77ec6cp-3f}, {0x1.01820cp+0f, 0x1.f84946p-1f}},
    {{-0x1.18p+5f, -0x1.18p+5f}, {0x1.ff6e1ap-1f, 0x1.033618p+0f}, {-0x1.3f8p-5f, 0x1.bc01fcp-2f}, {0x1.ff6e1cp-1f, 0x1.033616p+0f}},
    // on an axis the ratio of that axis stays 1
    {{0x1.14ccccp+4f, 0x0p+0f}, {0x1.0046eap+0f, 0x1p+0f}, {-0x1.326p-6f, 0x1.095fp-4f}, {0x1.0046eap+0f, 0x1p+0f}},
    {{0x0p+0f, 0x1.6e6666p+4f}, {0x1p+0f, 0x1.ff8d2ap-1f}, {0x1.05eaap-7f, 0x1.49129p-6f}, {0x1p+0f, 0x1.ff8d24p-1f}},
};

TEST(GetGridDR, InterpolatesWorkedCasesBitForBit) {
    const tagLenPar rec = grid4Record();
    const tagStack stack = stackOf(4, kGrid4);
    for (const LookupCase& c : kLookups) {
        SCOPED_TRACE(testing::Message() << c.pt.x << ", " << c.pt.y);
        tagKelPointF ratio{0.0f, 0.0f};
        tagKelPointF dev{5.0f, 5.0f};
        EXPECT_EQ(CCalibAlg::GetGridDR(rec, c.pt, ratio, dev, stack), 1);
        EXPECT_SAME_BITS(c.ratio.x, ratio.x);
        EXPECT_SAME_BITS(c.ratio.y, ratio.y);
        EXPECT_SAME_BITS(c.dev.x, dev.x);
        EXPECT_SAME_BITS(c.dev.y, dev.y);

        tagKelPointF written{0.0f, 0.0f};
        const tagKelPointF returned = CCalibAlg::GetGridSR(rec, c.pt, written, stack);
        EXPECT_SAME_BITS(c.ratioSR.x, returned.x);
        EXPECT_SAME_BITS(c.ratioSR.y, returned.y);
        EXPECT_SAME_BITS(c.ratioSR.x, written.x);
        EXPECT_SAME_BITS(c.ratioSR.y, written.y);
    }
}

TEST(GetGridDR, PointBeyondTheFieldTakesTheDeviationOfTheEdge) {
    const tagLenPar rec = grid4Record();
    const tagStack stack = stackOf(4, kGrid4);
    tagKelPointF r1, d1, r2, d2;
    CCalibAlg::GetGridDR(rec, tagKelPointF{-1e6f, 3.5f}, r1, d1, stack);
    CCalibAlg::GetGridDR(rec, tagKelPointF{-35.0f, 3.5f}, r2, d2, stack);
    EXPECT_SAME_BITS(d2.x, d1.x);
    EXPECT_SAME_BITS(d2.y, d1.y);
    EXPECT_SAME_BITS(r2.x, r1.x);
}

TEST(GetGridDR, NoCellLeavesThePresetOutputs) {
    const tagLenPar rec = grid4Record();
    const auto expectPreset = [&](const tagStack& stack, tagKelPointF pt) {
        tagKelPointF ratio{7.0f, 7.0f};
        tagKelPointF dev{7.0f, 7.0f};
        EXPECT_EQ(CCalibAlg::GetGridDR(rec, pt, ratio, dev, stack), 1);
        EXPECT_SAME_BITS(1.0f, ratio.x);
        EXPECT_SAME_BITS(1.0f, ratio.y);
        EXPECT_SAME_BITS(0.0f, dev.x);
        EXPECT_SAME_BITS(0.0f, dev.y);
        tagKelPointF sr{7.0f, 7.0f};
        const tagKelPointF returned = CCalibAlg::GetGridSR(rec, pt, sr, stack);
        EXPECT_SAME_BITS(1.0f, returned.x);
        EXPECT_SAME_BITS(1.0f, sr.y);
    };
    expectPreset(stackOf(0, {}), tagKelPointF{1.0f, 1.0f});
    expectPreset(stackOf(1, {kGrid4[5]}), tagKelPointF{1.0f, 1.0f});
    expectPreset(stackOf(-3, kGrid4), tagKelPointF{1.0f, 1.0f});
    // Fewer points than Size x Size: treated as a grid without cells.
    expectPreset(stackOf(4, std::vector<tagCalData>(kGrid4.begin(), kGrid4.end() - 1)),
                 tagKelPointF{1.0f, 1.0f});
    expectPreset(stackOf(1000000, kGrid4), tagKelPointF{1.0f, 1.0f});
    // A grid that covers only part of the field.
    expectPreset(stackOf(2, {kGrid4[0], kGrid4[1], kGrid4[4], kGrid4[5]}), tagKelPointF{5.0f, 5.0f});
    // NaN never falls in a cell.
    expectPreset(stackOf(4, kGrid4), tagKelPointF{kNaN, 1.0f});
}

TEST(GetGridDR, PerfectGridGivesZeroDeviationUpToRounding) {
    tagLenPar rec;  // ValSize 80
    std::vector<tagCalData> pts;
    for (int r = 0; r < 5; ++r)
        for (int c = 0; c < 5; ++c) {
            const float x = -40.0f + 20.0f * c;
            const float y = 40.0f - 20.0f * r;
            pts.push_back(tagCalData{x, y, x, y});
        }
    const tagStack stack = stackOf(5, pts);
    tagKelPointF ratio, dev;
    CCalibAlg::GetGridDR(rec, tagKelPointF{13.3f, -27.1f}, ratio, dev, stack);
    EXPECT_SAME_BITS(1.0f, ratio.x);
    EXPECT_SAME_BITS(1.0f, ratio.y);
    EXPECT_SAME_BITS(0.0f, dev.x);
    EXPECT_SAME_BITS(0.0f, dev.y);
    CCalibAlg::GetGridDR(rec, tagKelPointF{-0.7f, 3.9f}, ratio, dev, stack);
    EXPECT_SAME_BITS(0x1.ffffdap-1f, ratio.x);  // the float line intersection rounds
    EXPECT_SAME_BITS(0x1.000002p+0f, ratio.y);
    EXPECT_SAME_BITS(-0x1.ap-21f, dev.x);
    EXPECT_SAME_BITS(0.0f, dev.y);
}

// A twisted cell whose interpolated top and bottom coincide: x falls back to
// the top edge, y to the left edge.
TEST(GetGridDR, DegenerateCellUsesTheAsymmetricFallbacks) {
    tagLenPar rec;  // ValSize 80, so the pitch of a 2x2 grid is 80
    const tagStack stack = stackOf(2, {{-40.0f, 40.0f, -40.0f, 40.0f},
                                       {40.0f, 40.0f, 40.0f, 36.0f},
                                       {-40.0f, -40.0f, 40.0f, 36.0f},
                                       {40.0f, -40.0f, -40.0f, 40.0f}});
    tagKelPointF ratio, dev;
    CCalibAlg::GetGridDR(rec, tagKelPointF{0.0f, 10.0f}, ratio, dev, stack);
    EXPECT_SAME_BITS(0.0f, dev.x);   // top.RealX - x = 0 - 0
    EXPECT_SAME_BITS(28.5f, dev.y);  // left.RealY - y = 38.5 - 10
    EXPECT_SAME_BITS(1.0f, ratio.x);  // the top-bottom line is degenerate
    EXPECT_SAME_BITS(1.0f, ratio.y);
    CCalibAlg::GetGridDR(rec, tagKelPointF{0.0f, -25.0f}, ratio, dev, stack);
    EXPECT_SAME_BITS(61.75f, dev.y);  // 36.75 + 25
}

// With nominal corners at infinity the distances are infinite; the guarded
// top and bottom values keep their corners and the deviation goes NaN, where
// unguarded values would have produced a finite fallback.
TEST(GetGridDR, GuardedEdgesKeepTheirCornerForInfiniteDistances) {
    tagLenPar rec;
    tagKelPointF ratio, dev;
    const tagStack top = stackOf(2, {{-kInf, 40.0f, 5.0f, 5.0f},
                                     {kInf, 40.0f, -2.0f, 5.0f},
                                     {-kInf, 0.0f, -2.0f, -2.0f},
                                     {kInf, 0.0f, 5.0f, -2.0f}});
    CCalibAlg::GetGridDR(rec, tagKelPointF{3.0f, 40.0f}, ratio, dev, top);
    EXPECT_TRUE(std::isnan(dev.x));
    EXPECT_TRUE(std::isnan(dev.y));
    const tagStack bottom = stackOf(2, {{-kInf, kInf, 1.0f, -2.0f},
                                        {0.0f, kInf, 1.0f, 1.0f},
                                        {-kInf, -kInf, 5.0f, 5.0f},
                                        {0.0f, -kInf, -2.0f, 5.0f}});
    CCalibAlg::GetGridDR(rec, tagKelPointF{-40.0f, 0.0f}, ratio, dev, bottom);
    EXPECT_TRUE(std::isnan(dev.x));
    EXPECT_TRUE(std::isnan(dev.y));
    EXPECT_SAME_BITS(1.0f, ratio.x);
    EXPECT_SAME_BITS(1.0f, ratio.y);
}

TEST(GetGridDR, ClampOrderDecidesForNegativeValSize) {
    // half = -17.5: y is tested against -half first and becomes 17.5, x
    // against +half first and becomes -17.5.  The pitch is -35/3.
    tagLenPar rec = grid4Record();
    rec.ValSize = -35.0;
    tagKelPointF ratio, dev;
    CCalibAlg::GetGridDR(rec, tagKelPointF{3.0f, 3.0f}, ratio, dev, stackOf(4, kGrid4));
    EXPECT_SAME_BITS(0x1.0c116p-2f, ratio.x);
    EXPECT_SAME_BITS(0x1.f45f58p-3f, ratio.y);
    EXPECT_SAME_BITS(-0x1.8aca38p+5f, dev.x);
    EXPECT_SAME_BITS(0x1.a06c26p+0f, dev.y);
}

// ---- GetGridSR over precomputed cells -----------------------------------------

tagStkGrid cellsOf(const std::vector<tagCalData>& pts, int size) {
    tagStkGrid g;
    g.Size = size;
    for (int r = 0; r + 1 < size; ++r)
        for (int c = 0; c + 1 < size; ++c) {
            const int i = r * size + c;
            g.Cells.push_back(tagGridCell{{pts[i], pts[i + 1], pts[i + size], pts[i + size + 1]}});
        }
    return g;
}

TEST(GetGridSRCells, MatchesThePointGridInsideCells) {
    const tagLenPar rec = grid4Record();
    tagStkGrid cells = cellsOf(kGrid4, 4);
    for (int i : {0, 1, 3, 9, 10}) {
        const LookupCase& c = kLookups[i];
        const tagKelPointF r = CCalibAlg::GetGridSR(rec, c.pt, cells);
        EXPECT_SAME_BITS(c.ratioSR.x, r.x) << i;
        EXPECT_SAME_BITS(c.ratioSR.y, r.y) << i;
    }
}

TEST(GetGridSRCells, BottomRightEdgesAreExclusive) {
    const tagLenPar rec = grid4Record();
    tagStkGrid cells = cellsOf(kGrid4, 4);
    // The grid node (-35/3, 35/3) is the bottom-right corner of cell 0 and the
    // top-left corner of cell 4: the cell list takes cell 4.
    const tagKelPointF node{-0x1.755556p+3f, 0x1.755556p+3f};
    tagStkGrid only4 = cells;
    only4.Cells = {cells.Cells[4]};
    const tagKelPointF fromAll = CCalibAlg::GetGridSR(rec, node, cells);
    const tagKelPointF fromCell4 = CCalibAlg::GetGridSR(rec, node, only4);
    EXPECT_SAME_BITS(fromCell4.x, fromAll.x);
    EXPECT_SAME_BITS(fromCell4.y, fromAll.y);
    EXPECT_FALSE(fromAll.x == kLookups[2].ratioSR.x && fromAll.y == kLookups[2].ratioSR.y);
    // The right and bottom field edges belong to no cell.
    const tagKelPointF edge = CCalibAlg::GetGridSR(rec, tagKelPointF{35.0f, 12.0f}, cells);
    EXPECT_SAME_BITS(1.0f, edge.x);
    EXPECT_SAME_BITS(1.0f, edge.y);
}

TEST(GetGridSRCells, EmptyListOrTooSmallGridGivesOne) {
    const tagLenPar rec = grid4Record();
    tagStkGrid empty;
    empty.Size = 4;
    tagKelPointF r = CCalibAlg::GetGridSR(rec, tagKelPointF{3.0f, -7.5f}, empty);
    EXPECT_SAME_BITS(1.0f, r.x);
    EXPECT_SAME_BITS(1.0f, r.y);
    tagStkGrid noPitch = cellsOf(kGrid4, 4);
    noPitch.Size = 1;
    r = CCalibAlg::GetGridSR(rec, tagKelPointF{3.0f, -7.5f}, noPitch);
    EXPECT_SAME_BITS(1.0f, r.x);
    EXPECT_SAME_BITS(1.0f, r.y);
}

// ---- GetPntColRow ----------------------------------------------------------------

struct ColRow {
    int result, row, col;
};

ColRow colRow(tagKelPointF pt, const tagStack& stack, double half = 35.0) {
    ColRow out{};
    out.result = CCalibAlg::GetPntColRow(pt, half, stack, out.row, out.col);
    return out;
}

void expectColRow(ColRow expected, ColRow actual) {
    EXPECT_EQ(expected.result, actual.result);
    EXPECT_EQ(expected.row, actual.row);
    EXPECT_EQ(expected.col, actual.col);
}

TEST(GetPntColRow, InsideTheFieldFindsTheLowerRightCellOnSharedEdges) {
    const tagStack stack = stackOf(4, kGrid4);
    expectColRow({1, 1, 1}, colRow(tagKelPointF{3.0f, -7.5f}, stack));
    expectColRow({1, 0, 0}, colRow(tagKelPointF{-35.0f, 35.0f}, stack));
    // The node shared by cells (0,0), (0,1), (1,0), (1,1) lands in (1,1);
    // GetGridDR interpolates it in (0,0).
    expectColRow({1, 1, 1}, colRow(tagKelPointF{-0x1.755556p+3f, 0x1.755556p+3f}, stack));
    // The right and bottom edges of the grid are in no cell.
    expectColRow({0, -1, -1}, colRow(tagKelPointF{35.0f, 0.5f}, stack));
    expectColRow({0, -1, -1}, colRow(tagKelPointF{0.5f, -35.0f}, stack));
    expectColRow({0, -1, -1}, colRow(tagKelPointF{kNaN, kNaN}, stack));
}

TEST(GetPntColRow, OutsidePointsGetMinusOneOrSize) {
    const tagStack stack = stackOf(4, kGrid4);
    expectColRow({1, -1, -1}, colRow(tagKelPointF{-36.0f, 36.0f}, stack));
    expectColRow({1, 4, 4}, colRow(tagKelPointF{36.0f, -36.0f}, stack));
    expectColRow({1, 2, -1}, colRow(tagKelPointF{-40.0f, -20.0f}, stack));
    expectColRow({1, 0, 4}, colRow(tagKelPointF{40.0f, 35.0f}, stack));
    // x inside, y outside: the top row gives the column.
    expectColRow({1, -1, 2}, colRow(tagKelPointF{20.0f, 50.0f}, stack));
    expectColRow({1, 4, 0}, colRow(tagKelPointF{-35.0f, -50.0f}, stack));
    // The last column and row match nothing: their far point is beyond the grid.
    expectColRow({1, -1, -1}, colRow(tagKelPointF{35.0f, 50.0f}, stack));
    expectColRow({1, -1, 4}, colRow(tagKelPointF{40.0f, -35.0f}, stack));
}

TEST(GetPntColRow, EmptyOrShortGridsAreNeverReadPastTheirEnd) {
    expectColRow({0, -1, -1}, colRow(tagKelPointF{1.0f, 1.0f}, stackOf(0, {})));
    expectColRow({1, -1, -1}, colRow(tagKelPointF{1.0f, 40.0f}, stackOf(0, {})));
    expectColRow({1, -1, -1}, colRow(tagKelPointF{-40.0f, 1.0f}, stackOf(0, {})));
    expectColRow({0, -1, -1}, colRow(tagKelPointF{1.0f, 1.0f}, stackOf(1, {kGrid4[0]})));
    const tagStack shortStack = stackOf(4, std::vector<tagCalData>(kGrid4.begin(), kGrid4.begin() + 5));
    expectColRow({0, -1, -1}, colRow(tagKelPointF{3.0f, -7.5f}, shortStack));
    expectColRow({1, -1, -1}, colRow(tagKelPointF{-40.0f, -20.0f}, shortStack));
    expectColRow({1, -1, 4}, colRow(tagKelPointF{40.0f, 3.0f}, stackOf(4, {})));
}

// ---- Quadrants and point-in-cell tests ------------------------------------------

TEST(GetQuadrant, ZeroAndNaNCountAsNonNegative) {
    EXPECT_EQ(CCalibAlg::GetQuadrant(tagKelPointF{0.0f, 0.0f}), 0);
    EXPECT_EQ(CCalibAlg::GetQuadrant(tagKelPointF{-0.0f, -1.0f}), 3);
    EXPECT_EQ(CCalibAlg::GetQuadrant(tagKelPointF{-1.0f, 0.0f}), 1);
    EXPECT_EQ(CCalibAlg::GetQuadrant(tagKelPointF{-1.0f, -1e-30f}), 2);
    EXPECT_EQ(CCalibAlg::GetQuadrant(tagKelPointF{kNaN, kNaN}), 0);
    EXPECT_EQ(CCalibAlg::GetQuadrant(tagKelPointF{-kInf, kNaN}), 1);
}

TEST(PointInRect, InclusiveAxisAlignedTestIgnoresCornerTwo) {
    tagCalData corners[4] = {{-1.0f, 2.0f, 0, 0}, {3.0f, 2.0f, 0, 0}, {1e9f, 1e9f, 0, 0}, {3.0f, -4.0f, 0, 0}};
    EXPECT_TRUE(CCalibAlg::PointInRect(corners, tagKelPointF{-1.0f, 2.0f}));
    EXPECT_TRUE(CCalibAlg::PointInRect(corners, tagKelPointF{3.0f, -4.0f}));
    EXPECT_FALSE(CCalibAlg::PointInRect(corners, tagKelPointF{3.0001f, 0.0f}));
    EXPECT_FALSE(CCalibAlg::PointInRect(corners, tagKelPointF{0.0f, -4.0001f}));
    EXPECT_FALSE(CCalibAlg::PointInRect(corners, tagKelPointF{kNaN, 0.0f}));
    EXPECT_FALSE(CCalibAlg::PointInRect(nullptr, tagKelPointF{0.0f, 0.0f}));
}

// Vertices in order around the square (0,0)-(4,4), starting at the top left.
const std::vector<tagKelPointF> kSquare = {{0.0f, 4.0f}, {4.0f, 4.0f}, {4.0f, 0.0f}, {0.0f, 0.0f}};

TEST(PntInRect, StrictPointFormExcludesTopAndRightEdges) {
    EXPECT_EQ(CCalibAlg::PntInRect(kSquare, tagKelPointF{2.0f, 2.0f}), 1);
    EXPECT_EQ(CCalibAlg::PntInRect(kSquare, tagKelPointF{0.0f, 2.0f}), 1);  // left edge
    EXPECT_EQ(CCalibAlg::PntInRect(kSquare, tagKelPointF{2.0f, 0.0f}), 1);  // bottom edge
    EXPECT_EQ(CCalibAlg::PntInRect(kSquare, tagKelPointF{4.0f, 2.0f}), 0);  // right edge
    EXPECT_EQ(CCalibAlg::PntInRect(kSquare, tagKelPointF{2.0f, 4.0f}), 0);  // top edge
    EXPECT_EQ(CCalibAlg::PntInRect(kSquare, tagKelPointF{5.0f, 2.0f}), 0);
    EXPECT_EQ(CCalibAlg::PntInRect(std::vector<tagKelPointF>(kSquare.begin(), kSquare.end() - 1),
                                   tagKelPointF{2.0f, 2.0f}),
              0);
}

TEST(PntInRect, CornerFormIncludesTopAndRightEdges) {
    tagCalData c[4];
    for (int i = 0; i < 4; ++i) c[i] = tagCalData{kSquare[i].x, kSquare[i].y, 0.0f, 0.0f};
    EXPECT_EQ(CCalibAlg::PntInRect(c, tagKelPointF{2.0f, 2.0f}), 1);
    EXPECT_EQ(CCalibAlg::PntInRect(c, tagKelPointF{4.0f, 2.0f}), 1);  // right edge
    EXPECT_EQ(CCalibAlg::PntInRect(c, tagKelPointF{2.0f, 4.0f}), 1);  // top edge
    EXPECT_EQ(CCalibAlg::PntInRect(c, tagKelPointF{2.0f, 0.0f}), 0);  // bottom edge
    EXPECT_EQ(CCalibAlg::PntInRect(c, tagKelPointF{-0.5f, 2.0f}), 0);
    EXPECT_EQ(CCalibAlg::PntInRect(static_cast<tagCalData*>(nullptr), tagKelPointF{2.0f, 2.0f}), 0);
    // Records in row-major cell order are taken as a crossed quadrilateral.
    tagCalData rowMajor[4] = {c[0], c[1], c[3], c[2]};
    EXPECT_EQ(CCalibAlg::PntInRect(rowMajor, tagKelPointF{2.0f, 3.0f}), 1);
    EXPECT_EQ(CCalibAlg::PntInRect(rowMajor, tagKelPointF{0.5f, 2.0f}), 0);
}

TEST(PntInPolygon, InsideOnEdgesAndOutside) {
    EXPECT_EQ(CCalibAlg::PntInPolygon({}, tagKelPointF{0.0f, 0.0f}), 0);
    // The square (1,1)-(5,5) right of the y axis; the test segment runs from
    // the point to just left of the axis.
    const std::vector<tagKelPointF> sq = {{1.0f, 5.0f}, {5.0f, 5.0f}, {5.0f, 1.0f}, {1.0f, 1.0f}};
    EXPECT_EQ(CCalibAlg::PntInPolygon(sq, tagKelPointF{3.0f, 3.0f}), 2);
    EXPECT_EQ(CCalibAlg::PntInPolygon(sq, tagKelPointF{6.0f, 3.0f}), 0);
    EXPECT_EQ(CCalibAlg::PntInPolygon(sq, tagKelPointF{3.0f, 5.0f}), 1);  // edge 0
    EXPECT_EQ(CCalibAlg::PntInPolygon(sq, tagKelPointF{1.0f, 3.0f}), 1);  // edge 3
    EXPECT_EQ(CCalibAlg::PntInPolygon(sq, tagKelPointF{5.0f, 3.0f}), 0);  // edge 1
    EXPECT_EQ(CCalibAlg::PntInPolygon(sq, tagKelPointF{3.0f, 1.0f}), 0);  // edge 2
    // A vertex on the test segment counts once, as the upper end of its edge.
    const std::vector<tagKelPointF> diamond = {{3.0f, 5.0f}, {5.0f, 3.0f}, {3.0f, 1.0f}, {1.0f, 3.0f}};
    EXPECT_EQ(CCalibAlg::PntInPolygon(diamond, tagKelPointF{3.0f, 3.0f}), 2);
    EXPECT_EQ(CCalibAlg::PntInPolygon(diamond, tagKelPointF{4.0f, 3.0f}), 2);
    // Left of the y axis the test segment runs to the right, up to the axis.
    const std::vector<tagKelPointF> left = {{-5.0f, 5.0f}, {-1.0f, 5.0f}, {-1.0f, 1.0f}, {-5.0f, 1.0f}};
    EXPECT_EQ(CCalibAlg::PntInPolygon(left, tagKelPointF{-3.0f, 3.0f}), 2);
    EXPECT_EQ(CCalibAlg::PntInPolygon(left, tagKelPointF{-0.5f, 3.0f}), 0);
    // The segment stops at the axis, so a polygon around the origin holds
    // points that no edge reaches: they count as outside.
    const std::vector<tagKelPointF> centred = {{-2.0f, 2.0f}, {2.0f, 2.0f}, {2.0f, -2.0f}, {-2.0f, -2.0f}};
    EXPECT_EQ(CCalibAlg::PntInPolygon(centred, tagKelPointF{1.0f, 0.5f}), 0);
    EXPECT_EQ(CCalibAlg::PntInPolygon(centred, tagKelPointF{-1.0f, 0.5f}), 0);
}

TEST(GetGridAdd, MovedPointInCellAndQuadrant) {
    const tagLenPar rec;
    std::vector<tagCalData> cell;
    for (const tagKelPointF& p : kSquare) cell.push_back(tagCalData{p.x, p.y, 0.0f, 0.0f});
    const tagKelPointF pt{1.0f, 3.0f};
    EXPECT_EQ(CCalibAlg::GetGridAdd(rec, pt, tagKelPointF{1.0f, -1.0f}, cell, 0), 1);
    EXPECT_EQ(CCalibAlg::GetGridAdd(rec, pt, tagKelPointF{1.0f, -1.0f}, cell, -1), 1);
    EXPECT_EQ(CCalibAlg::GetGridAdd(rec, pt, tagKelPointF{1.0f, -1.0f}, cell, 3), 0);
    EXPECT_EQ(CCalibAlg::GetGridAdd(rec, pt, tagKelPointF{4.0f, 0.0f}, cell, 0), 0);
    EXPECT_EQ(CCalibAlg::GetGridAdd(rec, pt, tagKelPointF{0.0f, 0.0f}, {cell[0], cell[1], cell[2]}, -1), 0);
}

}  // namespace
