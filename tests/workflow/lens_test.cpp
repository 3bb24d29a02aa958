// The simulated head: the model's equations at worked points and the
// reproducible noise.  The lens file reader is tested through the tool
// (tests/tools/cases/simulate.cases).
#include <cmath>
#include <gtest/gtest.h>

#include "workflow/lens.h"
#include "workflow/simulate.h"

namespace vrncal::workflow {
namespace {

// 58982 counts is the linear drive of 40 field units on a 65535-count head
// spanning 100 units (32768 + 40 * 655.35).
constexpr float kFortyUnits = 58982.0f;
constexpr float kMinusTwenty = 19661.0f;  // 32768 - 20 * 655.35

TEST(LensModel, IdealHeadLandsOnTargetAlongBothAxes) {
    LensModel ideal;
    ideal.separation = 0.0;
    ideal.distortion = 0.0;
    const tagLenPar par;
    auto hit = ideal.land(par, {kFortyUnits, 32768.0f});
    EXPECT_NEAR(hit.x, 40.0, 1e-12);
    EXPECT_EQ(hit.y, 0.0);
    hit = ideal.land(par, {32768.0f, kMinusTwenty});
    EXPECT_NEAR(hit.y, -20.0, 1e-12);
    EXPECT_NEAR(hit.x, 0.0, 1e-14);
}

TEST(LensModel, DefaultHeadAtTheCornerBendsAsTheEquationsSay) {
    // Worked independently from the equations in lens.h.
    const auto hit = LensModel{}.land(tagLenPar{}, {kFortyUnits, kFortyUnits});
    EXPECT_NEAR(hit.x, 40.203440559695586, 1e-12);
    EXPECT_NEAR(hit.y, 39.26527138740535, 1e-12);
}

TEST(LensModel, MountingRotationOffsetsAndGainsApplyLast) {
    LensModel lens;
    lens.rotation = 0.15;
    lens.offset_x = 0.12;
    lens.offset_y = -0.08;
    lens.gain_x = 0.004;
    lens.gain_y = -0.003;
    const auto hit = lens.land(tagLenPar{}, {kFortyUnits, kMinusTwenty});
    EXPECT_NEAR(hit.x, 40.419661503242416, 1e-12);
    EXPECT_NEAR(hit.y, -19.525231550828956, 1e-12);
}

TEST(LensModel, QuarterTurnMapsTheXAxisOntoTheYAxis) {
    LensModel lens;
    lens.rotation = 90.0;
    const auto hit = lens.land(tagLenPar{}, {kFortyUnits, 32768.0f});
    const auto plain = LensModel{}.land(tagLenPar{}, {kFortyUnits, 32768.0f});
    EXPECT_NEAR(hit.x, 0.0, 1e-12);
    EXPECT_NEAR(hit.y, plain.x, 1e-12);
}

TEST(Noise, BoxMullerOverTheMersenneTwisterIsReproducible) {
    // The first pair for seed 42, from an independent 64-bit Mersenne Twister
    // and the same transform.
    Noise noise(42, 1.0);
    double a = 0, b = 0;
    noise.pair(a, b);
    EXPECT_EQ(a, -0x1.ecc4552b9eff0p-2);
    EXPECT_EQ(b, -0x1.2629b2777a856p-1);
    Noise scaled(42, 3.0);
    scaled.pair(a, b);
    EXPECT_EQ(a, 3.0 * -0x1.ecc4552b9eff0p-2);
}

TEST(Noise, ZeroSigmaDrawsExactZeros) {
    Noise noise(42, 0.0);
    double a = 1, b = 1;
    noise.pair(a, b);
    EXPECT_EQ(a, 0.0);
    EXPECT_EQ(b, 0.0);
}

}  // namespace
}  // namespace vrncal::workflow
