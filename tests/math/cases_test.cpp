// The worked cases of tests/data/math.cases: plane geometry, the linear
// solvers and the least squares fitter.  Each operation below is one line of
// the case file.
#include <memory>
#include <vector>

#include "case_file.h"
#include "vrncal/calib_alg.h"
#include "vrncal/geometry.h"
#include "vrncal/lsm_fit.h"
#include "vrncal/solver.h"

namespace {

using vrncal_test::Call;
using vrncal_test::Values;

LineSegment segment(const Call& c, std::size_t i) { return LineSegment{c.pt(i), c.pt(i + 2)}; }

// Measured positions (RealX, RealY) from the arguments, nominal left zero.
tagCalData real(const Call& c, std::size_t i) { return tagCalData{0.0f, 0.0f, c.f(i), c.f(i + 1)}; }

// A CMvLsmFit with the N x N matrix of the arguments from position `first`
// as its normal matrix.
std::unique_ptr<CMvLsmFit> withNormal(const Call& c, int n, std::size_t first) {
    auto f = std::make_unique<CMvLsmFit>();
    f->nVar = n;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) f->Normal[i + 1][j + 1] = c.d(first + i * n + j);
    return f;
}

// A permutation of 1 .. N from the arguments at `first`, 1-based.
std::vector<int> permutation(const Call& c, int n, std::size_t first) {
    std::vector<int> p(n + 1, 0);
    for (int i = 1; i <= n; ++i) p[i] = c.i(first + i - 1);
    return p;
}

const vrncal_test::Ops kOps = {
    {"round", [](Call& c) { return Values{kel_round(c.d(0))}; }},
    {"multiply", [](Call& c) { return Values{Multiply(c.pt(0), c.pt(2), c.pt(4))}; }},
    // Point, then the segment.
    {"online", [](Call& c) { return Values{double(IsOnline(c.pt(0), segment(c, 2)))}; }},
    {"intersect", [](Call& c) { return Values{double(Intersect(segment(c, 0), segment(c, 4)))}; }},
    // Point X Y RX RY, centre RX RY, angle: the point after, and the same returned.
    {"rotate", [](Call& c) {
         tagCalData p = c.cal(0);
         const tagCalData r = RotatePoint(p, real(c, 4), c.d(6));
         if (std::memcmp(&r, &p, sizeof p) != 0) return Values{};
         return Values{p.X, p.Y, p.RealX, p.RealY};
     }},
    {"angle", [](Call& c) { return Values{getAngle(c.pt(0), c.pt(2), c.pt(4))}; }},
    {"slope", [](Call& c) { return Values{getSlop(c.pt(0), c.pt(2)), getDip(c.pt(0), c.pt(2))}; }},
    {"finite", [](Call& c) { return Values{double(IsFiniteNumber(c.d(0))), double(hasNaN(c.from(0)))}; }},
    {"collinear", [](Call& c) { return Values{CCalibAlg::GetCollinear(real(c, 0), real(c, 2), real(c, 4))}; }},
    // Two lines through two measured points each.
    {"twoline", [](Call& c) {
         tagCalData l1[2] = {real(c, 0), real(c, 2)}, l2[2] = {real(c, 4), real(c, 6)};
         return Values{CCalibAlg::GetTwoLineAngle(l1, l2)};
     }},
    {"line", [](Call& c) {
         const Line l = Line::GetLine(c.pt(0), c.pt(2));
         return Values{l.A, l.B, l.C};
     }},
    // Cross point of the line through the first two points and the line
    // through the last two.
    {"cross", [](Call& c) {
         const tagKelPointF p = Line::GetCrossPoint(Line::GetLine(c.pt(0), c.pt(2)), Line::GetLine(c.pt(4), c.pt(6)));
         return Values{p.x, p.y};
     }},
    // MVLPkg::Gauss on ROWS rows of COLS values: the solution.
    {"gauss", [](Call& c) {
         std::vector<std::vector<double>> m(c.i(0));
         for (std::size_t r = 0; r < m.size(); ++r)
             for (int k = 0; k < c.i(1); ++k) m[r].push_back(c.d(2 + r * c.i(1) + k));
         return MVLPkg().Gauss(m);
     }},
    // SolveLinearEquations on N, the N x N matrix and N right-hand sides: the
    // result code, then x (preset to 9).
    {"solve", [](Call& c) {
         const int n = c.i(0);
         std::vector<std::vector<double>> a(n);
         std::vector<double> b, x(n, 9.0);
         for (int r = 0; r < n; ++r)
             for (int k = 0; k < n; ++k) a[r].push_back(c.d(1 + r * n + k));
         for (int r = 0; r < n; ++r) b.push_back(c.d(1 + n * n + r));
         Values out{double(MVLPkg().SolveLinearEquations(n, 0, a, b, x))};
         out.insert(out.end(), x.begin(), x.end());
         return out;
     }},
    // The sign of a permutation of 1 .. N, and without position SKIP.
    {"order", [](Call& c) {
         CMvLsmFit f;
         std::vector<int> p = permutation(c, c.i(0), 2);
         return Values{double(f.getorder(p.data(), c.i(0))), double(f.getaorder(p.data(), c.i(0), c.i(1)))};
     }},
    // The determinant of an N x N normal matrix by the permutation expansion,
    // and the minor without row ROW and column COL: "det N ROW COL a11 ...".
    {"det", [](Call& c) {
         auto f = withNormal(c, c.i(0), 3);
         f->det = 0.0;
         f->creatorder(c.i(0));
         const double det = f->det;
         f->det = 0.0;
         f->creataorder(c.i(0), c.i(1), c.i(2));
         return Values{det, f->det};
     }},
    // Least squares without intercept: "ols NVAR x1 .. xNVAR y ..." sample by
    // sample; the coefficients, det as OLS leaves it, and Proj[2][0].
    {"ols", [](Call& c) {
         const std::size_t nvar = c.i(0);
         std::vector<double> x, y;
         for (std::size_t k = 1; k + nvar < c.size(); k += nvar + 1) {
             for (std::size_t j = 0; j < nvar; ++j) x.push_back(c.d(k + j));
             y.push_back(c.d(k + nvar));
         }
         auto f = std::make_unique<CMvLsmFit>();
         f->init(x, y);
         f->OLS();
         Values out(f->Coef + 1, f->Coef + 1 + nvar);
         out.push_back(f->det);
         out.push_back(f->Proj[2][0]);
         return out;
     }},
};

TEST(MathCases, MatchWorkedBits) {
    EXPECT_GE(vrncal_test::runCaseFile(VRNCAL_TEST_DATA "/math.cases", kOps), 90);
}

}  // namespace
