// The worked cases of tests/data/facade.cases: the facade's dispatch, the
// conversions to device counts and the box parameter update.
#include "case_file.h"
#include "vrncal/calib_alg.h"
#include "vrncal/facade.h"

namespace {

using vrncal_test::Call;
using vrncal_test::Values;

Values pointOf(bool ok, tagKelPointF p) {
    if (!ok) return {};
    return {p.x, p.y};
}

const vrncal_test::Ops kOps = {
    {"point", [](Call& c) {
         tagKelPointF out{-1.0f, -1.0f};
         return pointOf(VrnCal().CalibPoint(c.rec, c.pt(0), out), out);
     }},
    {"cal", [](Call& c) {
         tagKelPointF out{-1.0f, -1.0f};
         return pointOf(VrnCal().LP2DPEX_Cal(c.pt(0), out, c.rec), out);
     }},
    {"sft", [](Call& c) {
         tagKelPointF out{-1.0f, -1.0f};
         return pointOf(VrnCal().LP2DPEX_SFT(c.pt(0), out, c.rec, true), out);
     }},
    {"sftoff", [](Call& c) {
         tagKelPointF out{-1.0f, -1.0f};
         return pointOf(VrnCal().LP2DPEX_SFT(c.pt(0), out, c.rec, false), out);
     }},
    {"box", [](Call& c) {
         tagKelPointF in = c.pt(0), out{-1.0f, -1.0f};
         return pointOf(CCalibAlg::CalibManual(c.rec, in, out) == 1, out);
     }},
    {"recman", [](Call& c) {
         double m[9], k[9], r[8] = {};
         for (int i = 0; i < 9; ++i) m[i] = c.d(i), k[i] = c.d(9 + i);
         if (!VrnCal().getRecManParas(m, k, r)) return Values{};
         return Values(r, r + 8);
     }},
};

TEST(FacadeCases, MatchWorkedBits) {
    EXPECT_GE(vrncal_test::runCaseFile(VRNCAL_TEST_DATA "/facade.cases", kOps), 60);
}

}  // namespace
