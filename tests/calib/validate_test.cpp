// vrncal::validate: each way of making the bundled calibration meaningless
// is reported once, with its stable code and message; the calibration itself
// has no problem.
#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "vrncal/vrncal.h"

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

tagLenPar sample() {
    tagLenPar par;
    const std::string path = std::string(VRNCAL_TEST_DATA) + "/../../examples/sample.cor";
    EXPECT_TRUE(VrnCal().loadUcf(path.c_str(), par));
    par.CalMode = 1;
    return par;
}

// "code: message" of every problem, one per line.
std::string report(const tagLenPar& par) {
    std::string out;
    for (const vrncal::Problem& p : vrncal::validate(par))
        out += std::string(vrncal::problemCodeName(p.code)) + ": " + p.message + "\n";
    return out;
}

void reverseRows(tagStack& st, int from, int to) {
    for (int c = 0; c < st.Size; ++c) std::swap(st.Points[from * st.Size + c], st.Points[to * st.Size + c]);
}

TEST(Validate, EachProblemIsReportedWithItsCode) {
    const tagLenPar base = sample();
    ASSERT_EQ(base.Stacks.size(), 2u);
    EXPECT_EQ(report(base), "");

    struct Case {
        std::function<void(tagLenPar&)> edit;
        const char* expected;
    };
    const Case cases[] = {
        {[](tagLenPar& p) { p.FieldSize = 0; },
         "field-size-not-positive: FieldSize is 0: counts per field unit (Resolution / FieldSize) need a "
         "finite field size above 0\n"},
        {[](tagLenPar& p) { p.ValSize = -kInf; },
         "val-size-not-positive: ValSize is -inf: the grids' pitch and the clamp to the field need a "
         "finite size above 0\n"},
        {[](tagLenPar& p) { p.Resolution = 0; },
         "resolution-below-one: Resolution is 0: the device range needs at least 1 count\n"
         "half-resolution-out-of-range: HalfResolution is 32768, outside 1 .. Resolution (0)\n"},
        {[](tagLenPar& p) { p.HalfResolutionSq = 4; },
         "half-resolution-out-of-range: HalfResolutionSq is 4, not the square of HalfResolution (32768)\n"},
        {[](tagLenPar& p) { p.CalCoefs.QuadX = kNaN, p.CalCoefs.k[3] = kInf, p.CalCoefs.s[7] = -kInf; },
         "coefficient-not-finite: coefficients not finite: QuadX (nan), k3 (inf), s7 (-inf)\n"},
        {[](tagLenPar& p) { p.CalCoefs.AxisYT = 0; },
         "axis-zero: AxisYT is 0: the keystone correction divides by it\n"},
        {[](tagLenPar& p) { p.BoxSkewY = kInf, p.BoxOffsetX = kNaN; },
         "box-term-not-finite: box terms not finite: BoxOffsetX (nan), BoxSkewY (inf)\n"},
        {[](tagLenPar& p) { p.grid = 1, p.LineCount = 150; },
         "gain-table-never-applies: grid is 1 but LineCount is 150: the gain tables are read only with 1 "
         ".. 99 rows\n"},
        {[](tagLenPar& p) { p.BoxGrid = 1, p.BoxLineCount = 3, p.BoxYR[2] = kNaN; },
         "gain-table-not-finite: BoxGrid gain table row 2 is not finite (0 0 0 nan)\n"},
        {[](tagLenPar& p) { p.Stacks[0].Points.pop_back(); },
         "grid-too-few-points: grid 0 (9 x 9): 80 points, 81 needed\n"},
        {[](tagLenPar& p) { p.Stacks[1] = tagStack{1, 1, {tagCalData{}}}; },
         "grid-never-applies: grid 1 (1 x 1): fewer than 2 points per side, so no cell to interpolate in\n"},
        {[](tagLenPar& p) {
             for (int r = 0; r < 4; ++r) reverseRows(p.Stacks[0], r, 8 - r);
         },
         "grid-never-applies: grid 0 (9 x 9): no cell encloses any point: the nominal points must rise "
         "in x along each row and fall in y from row to row\n"},
        {[](tagLenPar& p) { reverseRows(p.Stacks[0], 3, 4); },
         "grid-not-regular: grid 0 (9 x 9): 8 of 64 cells can never be found: the nominal points must "
         "rise in x along each row and fall in y from row to row\n"
         "grid-pitch-mismatch: grid 0 (9 x 9): a cell 20 wide where the interpolation assumes ValSize / "
         "(Size - 1) = 10\n"},
        {[](tagLenPar& p) {
             for (tagCalData& d : p.Stacks[1].Points) d.X += 100;
         },
         "grid-never-applies: grid 1 (17 x 17): every cell lies outside the field +-40\n"},
        {[](tagLenPar& p) {
             for (tagCalData& d : p.Stacks[0].Points) d.X *= 1.25f, d.Y *= 1.25f;
         },
         "grid-pitch-mismatch: grid 0 (9 x 9): a cell 12.5 wide where the interpolation assumes "
         "ValSize / (Size - 1) = 10\n"},
        {[](tagLenPar& p) { p.Stacks[1].Points[20].RealY = static_cast<float>(kNaN); },
         "grid-point-not-finite: grid 1 (17 x 17): measured point 20 (row 1, column 3) is not finite "
         "(-24.9993 nan)\n"},
    };
    for (const Case& c : cases) {
        tagLenPar par = base;
        c.edit(par);
        EXPECT_EQ(report(par), c.expected);
    }
}

}  // namespace
