// The grid-wise fit: one bilinear map per cell through its four corners, and
// its evaluation.
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "vrncal/calib_alg.h"

namespace {

// A 5 x 5 stack over the nominal field +-40 (pitch 20), measured through a
// distortion with terms beyond bilinear, so every cell gets its own map.
tagStack distortedStack() {
    tagStack stack;
    stack.Size = 5;
    stack.InOrder = 1;
    for (int r = 0; r < 5; ++r) {
        for (int c = 0; c < 5; ++c) {
            const float X = -40.0f + 20.0f * c;
            const float Y = 40.0f - 20.0f * r;
            const double x = X, y = Y;
            const float rx = static_cast<float>(0.3 + 1.013 * x + 0.021 * y + 3e-5 * x * y * y);
            const float ry = static_cast<float>(-0.2 + 0.987 * y - 0.017 * x - 2e-5 * x * x * y);
            stack.Points.push_back(tagCalData{X, Y, rx, ry});
        }
    }
    return stack;
}

// Measured = a bilinear function of nominal over the whole grid.
const double kA[4] = {0.37, 1.011, 0.023, 1.7e-4};
const double kB[4] = {-0.19, -0.014, 0.992, -2.1e-4};

double bilinearX(double x, double y) { return kA[0] + kA[1] * x + kA[2] * y + kA[3] * x * y; }
double bilinearY(double x, double y) { return kB[0] + kB[1] * x + kB[2] * y + kB[3] * x * y; }

tagStack bilinearStack() {
    tagStack stack = distortedStack();
    for (tagCalData& p : stack.Points) {
        p.RealX = static_cast<float>(bilinearX(p.X, p.Y));
        p.RealY = static_cast<float>(bilinearY(p.X, p.Y));
    }
    return stack;
}

}  // namespace

TEST(MVLSolve, CellsReproduceTheMeasuredGridPointsExactly) {
    const tagStack stack = distortedStack();
    tagStkMVLCoef coefs;
    ASSERT_EQ(CCalibAlg::MVLSolve(stack, coefs), 1);
    EXPECT_EQ(coefs.Size, 5);
    ASSERT_EQ(coefs.Cells.size(), 16u);

    // Every grid point, whichever of its cells evaluates it.
    for (const tagCalData& p : stack.Points) {
        tagKelPointF m;
        ASSERT_EQ(CCalibAlg::MVLEval(coefs, tagKelPointF{p.X, p.Y}, m), 1);
        EXPECT_EQ(m.x, p.RealX) << p.X << ", " << p.Y;
        EXPECT_EQ(m.y, p.RealY) << p.X << ", " << p.Y;
    }

    // Row 2, column 1: bounds from P00 and P11, the constant term is the
    // measured P00 exactly, the slopes follow the cell's edges.
    const tagMVLCoef& cell = coefs.Cells[2 * 4 + 1];
    const tagCalData& p00 = stack.Points[2 * 5 + 1];
    const tagCalData& p01 = stack.Points[2 * 5 + 2];
    const tagCalData& p10 = stack.Points[3 * 5 + 1];
    EXPECT_EQ(cell.X0, -20.0f);
    EXPECT_EQ(cell.Y0, 0.0f);
    EXPECT_EQ(cell.X1, 0.0f);
    EXPECT_EQ(cell.Y1, -20.0f);
    EXPECT_EQ(cell.kx[0], static_cast<double>(p00.RealX));
    EXPECT_EQ(cell.ky[0], static_cast<double>(p00.RealY));
    EXPECT_NEAR(cell.kx[1], (static_cast<double>(p01.RealX) - p00.RealX) / 20.0, 1e-12);
    EXPECT_NEAR(cell.ky[2], (static_cast<double>(p10.RealY) - p00.RealY) / -20.0, 1e-12);
}

TEST(MVLSolve, BilinearMeasurementIsReproducedInsideEveryCell) {
    tagStkMVLCoef coefs;
    ASSERT_EQ(CCalibAlg::MVLSolve(bilinearStack(), coefs), 1);
    // The corners are stored as floats (2^-18 at most below 64); the map
    // through them departs from the exact bilinear by no more than that, and
    // the result is stored once more.
    for (float y = -40.0f; y <= 40.0f; y += 3.7f) {
        for (float x = -40.0f; x <= 40.0f; x += 4.3f) {
            tagKelPointF m;
            ASSERT_EQ(CCalibAlg::MVLEval(coefs, tagKelPointF{x, y}, m), 1);
            EXPECT_NEAR(m.x, bilinearX(x, y), 1e-5) << x << ", " << y;
            EXPECT_NEAR(m.y, bilinearY(x, y), 1e-5) << x << ", " << y;
        }
    }
}

TEST(MVLSolve, PointsOutsideTheGridAreLeftAsTheyAre) {
    tagStkMVLCoef coefs;
    ASSERT_EQ(CCalibAlg::MVLSolve(distortedStack(), coefs), 1);
    for (tagKelPointF p : {tagKelPointF{40.5f, 0.0f}, tagKelPointF{0.0f, -40.01f},
                           tagKelPointF{-50.0f, 50.0f}}) {
        tagKelPointF m{1.0f, 1.0f};
        EXPECT_EQ(CCalibAlg::MVLEval(coefs, p, m), 0);
        EXPECT_EQ(m.x, p.x);
        EXPECT_EQ(m.y, p.y);
    }
    // An empty fit holds no cell at all.
    tagKelPointF m;
    EXPECT_EQ(CCalibAlg::MVLEval(tagStkMVLCoef{}, tagKelPointF{0.0f, 0.0f}, m), 0);
}

TEST(MVLSolve, UnusableStacksGiveAnEmptyFit) {
    tagStkMVLCoef coefs;
    ASSERT_EQ(CCalibAlg::MVLSolve(distortedStack(), coefs), 1);

    tagStack one;
    one.Size = 1;
    one.Points.resize(1);
    EXPECT_EQ(CCalibAlg::MVLSolve(one, coefs), 0);
    EXPECT_EQ(coefs.Size, 0);
    EXPECT_TRUE(coefs.Cells.empty());

    // Fewer points than Size * Size: nothing is read past the end.
    tagStack shortStack = distortedStack();
    shortStack.Points.resize(24);
    EXPECT_EQ(CCalibAlg::MVLSolve(shortStack, coefs), 0);
    EXPECT_TRUE(coefs.Cells.empty());

    tagStack negative;
    negative.Size = -3;
    EXPECT_EQ(CCalibAlg::MVLSolve(negative, coefs), 0);
}

TEST(MVLSolve, CoincidentCornersGiveNonFiniteCoefficients) {
    tagStack stack = distortedStack();
    stack.Points[1].X = stack.Points[0].X;  // first cell has no width
    tagStkMVLCoef coefs;
    ASSERT_EQ(CCalibAlg::MVLSolve(stack, coefs), 1);
    const tagMVLCoef& cell = coefs.Cells[0];
    EXPECT_FALSE(std::isfinite(cell.kx[1]) && std::isfinite(cell.kx[3]));
    // The other cells are untouched by it.
    EXPECT_TRUE(std::isfinite(coefs.Cells[5].kx[1]));
}
