// Box correction: worked cases from tests/data plus the properties the
// hand-tuned parameters promise.
#include <gtest/gtest.h>

#include "alg/correction_cases.h"
#include "float_bits.h"
#include "vrncal/calib_alg.h"

using vrncal_test::floatFrom;

namespace {

TEST(BoxCorrectionCases, MatchWorkedBits) {
    const vrncal_test::CaseFile file = vrncal_test::readCaseFile(VRNCAL_TEST_DATA "/box_correction.cases");
    for (const std::string& e : file.errors) ADD_FAILURE() << e;
    ASSERT_GE(file.cases.size(), 120u);
    for (const vrncal_test::CorrectionCase& c : file.cases) {
        SCOPED_TRACE(c.where);
        ASSERT_EQ(c.op, "box");
        tagKelPointF in = c.in;
        tagKelPointF out{-1.0f, -1.0f};
        EXPECT_EQ(CCalibAlg::CalibManual(file.records[c.record], in, out), 1);
        EXPECT_SAME_BITS(floatFrom(c.expectX), out.x);
        EXPECT_SAME_BITS(floatFrom(c.expectY), out.y);
        EXPECT_SAME_BITS(c.in.x, in.x);  // the input is only read
        EXPECT_SAME_BITS(c.in.y, in.y);
    }
}

TEST(BoxCorrection, NeutralParametersAreTheLinearConversion) {
    tagLenPar rec;  // FieldSize 100, Resolution 65535, HalfResolution 32768
    tagKelPointF in{0.0f, 0.0f};
    tagKelPointF out;
    CCalibAlg::CalibManual(rec, in, out);
    EXPECT_SAME_BITS(32768.0f, out.x);
    EXPECT_SAME_BITS(32768.0f, out.y);
    in = tagKelPointF{50.0f, -25.0f};
    CCalibAlg::CalibManual(rec, in, out);
    EXPECT_SAME_BITS(65535.0f, out.x);   // 32768 + 32767.5, clamped
    EXPECT_SAME_BITS(16384.25f, out.y);  // 32768 - 16383.75
    rec.Resolution = 131071;             // room above, and kc = 1310.71
    CCalibAlg::CalibManual(rec, in, out);
    EXPECT_SAME_BITS(98303.5f, out.x);
    EXPECT_SAME_BITS(0.25f, out.y);
}

TEST(BoxCorrection, OutputMayAliasInput) {
    tagLenPar rec;
    rec.BoxSkewX = 1.002;
    rec.BoxTrapY = 0.996;
    rec.BoxGrid = 1;
    rec.BoxLineCount = 2;
    rec.BoxXT[0] = -40.0;
    rec.BoxXT[1] = 40.0;
    rec.BoxXR[0] = 0.9;
    rec.BoxXR[1] = 1.1;
    tagKelPointF in{12.5f, -7.25f};
    tagKelPointF separate;
    CCalibAlg::CalibManual(rec, in, separate);
    CCalibAlg::CalibManual(rec, in, in);  // the gain lookup must still see the input
    EXPECT_SAME_BITS(separate.x, in.x);
    EXPECT_SAME_BITS(separate.y, in.y);
}

}  // namespace
