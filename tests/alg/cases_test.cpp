// The worked cases of tests/data for the algorithms: corrections, the grid
// lookup, the fits.  Each operation below is one line of a case file.
#include <cmath>
#include <vector>

#include "case_file.h"
#include "float_bits.h"
#include "vrncal/calib_alg.h"

namespace {

using vrncal_test::bitsOf;
using vrncal_test::Call;
using vrncal_test::Values;

using Member = int (*)(const tagLenPar&, tagKelPointF, tagKelPointF&);

Values pointOf(int result, tagKelPointF p) {
    if (result != 1) return {};
    return {p.x, p.y};
}

// A correction through a member that takes its input by value.
vrncal_test::Op member(Member m) {
    return [m](Call& c) {
        tagKelPointF out{-1.0f, -1.0f};
        return pointOf(m(c.rec, c.pt(0), out), out);
    };
}

// The last grid of the record, or an empty one.
const tagStack& lastStack(const tagLenPar& rec) {
    static const tagStack none;
    return rec.Stacks.empty() ? none : rec.Stacks.back();
}

// The cells of a grid as the precomputed lookup takes them.
tagStkGrid cellsOf(const tagStack& s) {
    tagStkGrid g;
    g.Size = s.Size;
    const int n = s.Size;
    if (n < 2 || s.Points.size() < static_cast<std::size_t>(n) * n) return g;
    for (int r = 0; r + 1 < n; ++r)
        for (int c = 0; c + 1 < n; ++c) {
            const tagCalData* p = &s.Points[r * n + c];
            g.Cells.push_back(tagGridCell{{p[0], p[1], p[n], p[n + 1]}});
        }
    return g;
}

std::vector<tagKelPointF> pointsFrom(const Call& c, std::size_t first, std::size_t end) {
    std::vector<tagKelPointF> v;
    for (std::size_t i = first; i + 1 < end; i += 2) v.push_back(c.pt(i));
    return v;
}

const vrncal_test::Ops kOps = {
    // CCalibAlg::CalibPoint2_new; CalibLSM forwards to it, into its own input.
    {"grid", [](Call& c) {
         tagKelPointF out{-1.0f, -1.0f}, in = c.pt(0);
         const int r = CCalibAlg::CalibPoint2_new(c.rec, in, out);
         if (CCalibAlg::CalibLSM(c.rec, in, in) != 1 || !vrncal_test::sameValue(out.x, in.x) ||
             !vrncal_test::sameValue(out.y, in.y))
             ADD_FAILURE() << "CalibLSM in place differs";
         return pointOf(r, out);
     }},
    // CCalibAlg::CalibManual reads its input only, also when it is the output.
    {"box", [](Call& c) {
         tagKelPointF in = c.pt(0), out{-1.0f, -1.0f};
         const int r = CCalibAlg::CalibManual(c.rec, in, out);
         if (bitsOf(in.x) != bitsOf(c.f(0)) || bitsOf(in.y) != bitsOf(c.f(1))) return Values{};
         CCalibAlg::CalibManual(c.rec, in, in);
         if (bitsOf(in.x) != bitsOf(out.x) || bitsOf(in.y) != bitsOf(out.y)) return Values{};
         return pointOf(r, out);
     }},
    {"p18", member(&CCalibAlg::CalibPoint18)},
    {"p14", member(&CCalibAlg::CalibPoint14)},
    {"p12", member(&CCalibAlg::CalibPoint12)},
    {"p6", member(&CCalibAlg::CalibPoint6)},
    {"p2", member(&CCalibAlg::CalibPoint2)},
    // ShapePoint, also in place.
    {"shape", [](Call& c) {
         tagKelPointF out, in = c.pt(0);
         const int r = CCalibAlg::ShapePoint(c.rec, in, out);
         CCalibAlg::ShapePoint(c.rec, in, in);
         if (bitsOf(in.x) != bitsOf(out.x) || bitsOf(in.y) != bitsOf(out.y)) return Values{};
         return pointOf(r, out);
     }},
    {"pointscale", [](Call& c) { return pointOf(1, CCalibAlg::getPointScale(c.rec, c.pt(0))); }},
    // GetScaleValue(COUNT, V) over the record's XT (breakpoints) and XR (gains).
    {"gain", [](Call& c) {
         return Values{CCalibAlg::GetScaleValue(c.i(0), c.d(1), c.rec.XT, nullptr, c.rec.XR)};
     }},
    // GetGridDR on the last grid: ratio and deviation.
    {"griddr", [](Call& c) {
         tagKelPointF ratio{7.0f, 7.0f}, dev{7.0f, 7.0f};
         if (CCalibAlg::GetGridDR(c.rec, c.pt(0), ratio, dev, lastStack(c.rec)) != 1) return Values{};
         return Values{ratio.x, ratio.y, dev.x, dev.y};
     }},
    // GetGridSR on the last grid: the ratio returned and written.
    {"gridsr", [](Call& c) {
         tagKelPointF written{7.0f, 7.0f};
         const tagKelPointF r = CCalibAlg::GetGridSR(c.rec, c.pt(0), written, lastStack(c.rec));
         return Values{r.x, r.y, written.x, written.y};
     }},
    // GetGridSR over the cells of the last grid.
    {"cells", [](Call& c) {
         tagStkGrid cells = cellsOf(lastStack(c.rec));
         return pointOf(1, CCalibAlg::GetGridSR(c.rec, c.pt(0), cells));
     }},
    // GetPntColRow(PX PY HALF) on the last grid: result, row, column.
    {"colrow", [](Call& c) {
         int row = 7, col = 7;
         const int r = CCalibAlg::GetPntColRow(c.pt(0), c.d(2), lastStack(c.rec), row, col);
         return Values{double(r), double(row), double(col)};
     }},
    {"quadrant", [](Call& c) { return Values{double(CCalibAlg::GetQuadrant(c.pt(0)))}; }},
    // Four vertices, then the point: PointInRect, PntInRect on the records and
    // on the points.
    {"rect", [](Call& c) {
         tagCalData k[4];
         for (int i = 0; i < 4; ++i) k[i] = tagCalData{c.f(2 * i), c.f(2 * i + 1), 0.0f, 0.0f};
         const tagKelPointF p = c.pt(8);
         return Values{double(CCalibAlg::PointInRect(k, p)), double(CCalibAlg::PntInRect(k, p)),
                       double(CCalibAlg::PntInRect(pointsFrom(c, 0, 8), p))};
     }},
    // Vertices, then the point.
    {"polygon", [](Call& c) {
         return Values{double(CCalibAlg::PntInPolygon(pointsFrom(c, 0, c.size() - 2), c.pt(c.size() - 2)))};
     }},
    // GetGridAdd(PX PY, OX OY, QUADRANT) with the cell's vertices after them.
    {"gridadd", [](Call& c) {
         std::vector<tagCalData> cell;
         for (tagKelPointF p : pointsFrom(c, 5, c.size())) cell.push_back(tagCalData{p.x, p.y, 0, 0});
         return Values{double(CCalibAlg::GetGridAdd(c.rec, c.pt(0), c.pt(2), cell, c.i(4)))};
     }},
    // The bilinear cell fit of the last grid (result, size, cells), evaluated
    // at a nominal point (result, measured point).
    {"mvl", [](Call& c) {
         tagStkMVLCoef coefs;
         const int solved = CCalibAlg::MVLSolve(lastStack(c.rec), coefs);
         tagKelPointF m{-1.0f, -1.0f};
         const int r = CCalibAlg::MVLEval(coefs, c.pt(0), m);
         return Values{double(solved), double(coefs.Size), double(coefs.Cells.size()), double(r), m.x, m.y};
     }},
    {"calindex", [](Call& c) {
         Values v;
         for (std::size_t i = 0; i < c.size(); ++i) v.push_back(CCalibAlg::GetCalIndex(c.i(i)));
         return v;
     }},
    // Calibration points (see tests/data/calib_points.cases).
    {"getcalib", [](Call& c) {
         std::vector<tagCalData> out(400, tagCalData{-7, -7, -7, -7});
         int size = c.i(1);
         Values v{double(CCalibAlg::getCalibPnts(c.rec, c.i(0), size, out.data())), double(size)};
         for (std::size_t i = 2; i < c.size(); ++i) v.push_back(out.at(c.i(i)).X);
         return v;
     }},
    {"setcalib", [](Call& c) {
         std::vector<tagCalData> in;
         for (int i = 0; i < 400; ++i) {
             const float n = static_cast<float>(c.i(2) + i);
             in.push_back(tagCalData{n, -n, n + 0.25f, -n - 0.25f});
         }
         return Values{double(CCalibAlg::setCalibPnts(c.rec, c.i(0), c.i(1), in.data()))};
     }},
    {"getequal", [](Call& c) {
         std::vector<tagKelPointF> out(101, tagKelPointF{-7, -7});
         int count = -7;
         Values v{double(CCalibAlg::getEqualPnts(c.rec, c.i(0), count, out.data())), double(count)};
         for (int i = 0; i < c.i(1); ++i) v.insert(v.end(), {out[i].x, out[i].y});
         return v;
     }},
    {"setequal", [](Call& c) {
         std::vector<tagKelPointF> in(150);
         const std::vector<tagKelPointF> pairs = pointsFrom(c, 2, c.size());
         for (std::size_t i = 0; i < in.size(); ++i) in[i] = pairs[i % pairs.size()];
         return Values{double(CCalibAlg::setEqualPnts(c.rec, c.i(0), c.i(1), in.data()))};
     }},
    // Fits write into the record; "get" reads what they wrote.
    {"fit", [](Call& c) {
         static const std::map<std::string, void (*)(tagLenPar&)> fits = {
             {"main", &CCalibAlg::MVLSMCoef}, {"2", &CCalibAlg::MVLSMCoef2},
             {"4", &CCalibAlg::MVLSMCoef4},   {"6", &CCalibAlg::MVLSMCoef6},
             {"8", &CCalibAlg::MVLSMCoef8},   {"10", &CCalibAlg::MVLSMCoef10},
             {"12", &CCalibAlg::MVLSMCoef12}, {"14", &CCalibAlg::MVLSMCoef14},
             {"18", &CCalibAlg::MVLSMCoef18}};
         fits.at(c.args.at(0))(c.rec);
         return Values{};
     }},
};

class AlgCases : public ::testing::TestWithParam<const char*> {};

TEST_P(AlgCases, MatchWorkedBits) {
    EXPECT_GE(vrncal_test::runCaseFile(std::string(VRNCAL_TEST_DATA "/") + GetParam(), kOps), 10);
}

INSTANTIATE_TEST_SUITE_P(Files, AlgCases,
                         ::testing::Values("grid_correction.cases", "box_correction.cases",
                                           "alt_correction.cases", "grid_location.cases",
                                           "coef_fit.cases", "calib_points.cases"));

TEST(PointInCell, NoCornersOrTooFewVerticesAreOutside) {
    EXPECT_FALSE(CCalibAlg::PointInRect(nullptr, tagKelPointF{0.0f, 0.0f}));
    EXPECT_EQ(CCalibAlg::PntInRect(static_cast<tagCalData*>(nullptr), tagKelPointF{2.0f, 2.0f}), 0);
    EXPECT_EQ(CCalibAlg::PntInRect({{0.0f, 4.0f}, {4.0f, 4.0f}, {4.0f, 0.0f}}, tagKelPointF{2.0f, 2.0f}), 0);
}

// Without the pre-warp the grid-mode correction is CalibPoint2: with QuadX =
// QuadY = 0 the two agree to the bit whatever the grids, flags and tables.
TEST(CalibPoint2, IsTheGridModeCorrectionWithoutPreWarp) {
    tagLenPar par;
    tagCalCoefs& c = par.CalCoefs;
    c.PLX = 0.0123, c.TXL = 0.021, c.TXR = -0.017, c.TYT = 0.013, c.TYB = -0.019;
    c.AxisXL = 39.7, c.AxisXR = 40.3, c.AxisYT = 40.1, c.AxisYB = 39.6;
    c.ScaleX = 1.0071, c.ScaleY = 0.9934, c.k[2] = -0.0021, c.k[3] = 0.0017;
    // Two 5 x 5 grids off by (0.3, -0.25) and (0.0008, 0.0004), one point of
    // the first moved further so that the residual varies over the field.
    for (tagKelPointF d : {tagKelPointF{0.3f, -0.25f}, tagKelPointF{0.0008f, 0.0004f}}) {
        tagStack st{5, 1, {}};
        for (int i = 0; i < 25; ++i) {
            const float x = -40.0f + 20.0f * (i % 5), y = 40.0f - 20.0f * (i / 5);
            st.Points.push_back(tagCalData{x, y, x + d.x, y + d.y});
        }
        par.Stacks.push_back(st);
    }
    par.Stacks[0].Points[7].RealX += 0.4f;
    par.Stacks[0].Points[12].RealY -= 0.3f;
    par.grid = 1;
    par.LineCount = 3;
    const double pos[3] = {-40.0, 0.0, 40.0}, gx[3] = {1.05, 1.0, 0.9}, gy[3] = {0.95, 1.0, 1.1};
    for (int i = 0; i < 3; ++i) par.XT[i] = par.YT[i] = pos[i], par.XR[i] = gx[i], par.YR[i] = gy[i];
    for (int flags = 0; flags < 8; ++flags) {
        par.XYFlip = flags & 1, par.XInvert = (flags >> 1) & 1, par.YInvert = (flags >> 2) & 1;
        for (float y = -45.0f; y <= 45.0f; y += 6.37f)
            for (float x = -45.0f; x <= 45.0f; x += 5.93f) {
                tagKelPointF a, b;
                CCalibAlg::CalibPoint2(par, tagKelPointF{x, y}, a);
                CCalibAlg::CalibPoint2_new(par, tagKelPointF{x, y}, b);
                ASSERT_TRUE(bitsOf(a.x) == bitsOf(b.x) && bitsOf(a.y) == bitsOf(b.y))
                    << "flags " << flags << " at " << x << ", " << y;
            }
    }
}

}  // namespace
