// The simulated head: the model's equations at worked points, the
// reproducible noise, and the lens file reader.
#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "workflow/error.h"
#include "workflow/lens.h"

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

class LensFile : public ::testing::Test {
protected:
    std::string write(const std::string& text) {
        std::ofstream(path_) << text;
        return path_;
    }
    void TearDown() override { std::remove(path_.c_str()); }
    // One file per process: ctest runs the tests of this fixture in parallel.
    const std::string path_ = ::testing::TempDir() + "lens_test_" + std::to_string(::getpid()) + ".ini";
};

TEST_F(LensFile, KeysOverrideDefaultsAndBlanksAroundKeysAreAccepted) {
    const auto lens = read_lens_file(write("; a lens\n[lens]\nfocal=254\nrotation = -0.5\n"));
    EXPECT_EQ(lens.focal, 254.0);
    EXPECT_EQ(lens.rotation, -0.5);
    EXPECT_EQ(lens.separation, 12.0);
}

TEST_F(LensFile, BadFilesNameTheFileAndTheKey) {
    auto message = [&](const std::string& text) {
        try {
            read_lens_file(write(text));
        } catch (const Error& e) {
            return std::string(e.what());
        }
        return std::string("no error");
    };
    EXPECT_EQ(message("[lens]\nfocal=12mm\n"), path_ + ": [lens] focal: '12mm' is not a number");
    EXPECT_EQ(message("[lens]\nfocus=12\n"), path_ + ": [lens] focus: unknown key");
    EXPECT_EQ(message("[optics]\nfocal=12\n"), path_ + ": no [lens] section");
    EXPECT_EQ(message("[lens]\nfocal=-1\n"), path_ + ": [lens] focal: must be positive");
    EXPECT_EQ(message("[lens]\nfocal=nan\n"), path_ + ": [lens] focal: 'nan' is not a number");
}

TEST_F(LensFile, WrittenLensReadsBackTheSame) {
    LensModel lens;
    lens.distortion = 0.0125;
    lens.gain_y = -0.003;
    const auto back = read_lens_file(write(lens_to_ini(lens)));
    EXPECT_EQ(back.distortion, 0.0125);
    EXPECT_EQ(back.gain_y, -0.003);
    EXPECT_EQ(back.focal, lens.focal);
}

}  // namespace
}  // namespace vrncal::workflow
