// The grid-wise fit: one bilinear map per cell through its four corners.
// The hostile grids are in tests/data/grid_location.cases ("mvl").
#include <gtest/gtest.h>

#include "vrncal/calib_alg.h"

namespace {

// A 5 x 5 grid over +-40 (pitch 20) measured through `distort`.
template <typename Distort>
tagStack measuredGrid(Distort distort) {
    tagStack stack{5, 1, {}};
    for (int i = 0; i < 25; ++i) {
        const float X = -40.0f + 20.0f * (i % 5), Y = 40.0f - 20.0f * (i / 5);
        double rx = 0.0, ry = 0.0;
        distort(X, Y, rx, ry);
        stack.Points.push_back(tagCalData{X, Y, static_cast<float>(rx), static_cast<float>(ry)});
    }
    return stack;
}

// Terms beyond bilinear, so every cell gets its own map.
void cubic(double x, double y, double& rx, double& ry) {
    rx = 0.3 + 1.013 * x + 0.021 * y + 3e-5 * x * y * y;
    ry = -0.2 + 0.987 * y - 0.017 * x - 2e-5 * x * x * y;
}

void bilinear(double x, double y, double& rx, double& ry) {
    rx = 0.37 + 1.011 * x + 0.023 * y + 1.7e-4 * x * y;
    ry = -0.19 - 0.014 * x + 0.992 * y - 2.1e-4 * x * y;
}

TEST(MVLSolve, CellsGoThroughTheMeasuredPointsAndNoFurther) {
    const tagStack stack = measuredGrid(cubic);
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
    // The constant term of a cell is its measured top-left point exactly.
    EXPECT_EQ(coefs.Cells[9].kx[0], static_cast<double>(stack.Points[11].RealX));
    EXPECT_EQ(coefs.Cells[9].ky[0], static_cast<double>(stack.Points[11].RealY));
    // Outside the grid the point is left as it is.
    for (tagKelPointF p : {tagKelPointF{40.5f, 0.0f}, tagKelPointF{0.0f, -40.01f}}) {
        tagKelPointF m{1.0f, 1.0f};
        EXPECT_EQ(CCalibAlg::MVLEval(coefs, p, m), 0);
        EXPECT_EQ(m.x, p.x);
        EXPECT_EQ(m.y, p.y);
    }
}

TEST(MVLSolve, BilinearMeasurementIsReproducedInsideEveryCell) {
    tagStkMVLCoef coefs;
    ASSERT_EQ(CCalibAlg::MVLSolve(measuredGrid(bilinear), coefs), 1);
    // The corners are stored as floats (2^-18 at most below 64); the map
    // through them departs from the exact bilinear by no more than that, and
    // the result is stored once more.
    for (float y = -40.0f; y <= 40.0f; y += 3.7f)
        for (float x = -40.0f; x <= 40.0f; x += 4.3f) {
            tagKelPointF m;
            double rx, ry;
            bilinear(x, y, rx, ry);
            ASSERT_EQ(CCalibAlg::MVLEval(coefs, tagKelPointF{x, y}, m), 1);
            EXPECT_NEAR(m.x, rx, 1e-5) << x << ", " << y;
            EXPECT_NEAR(m.y, ry, 1e-5) << x << ", " << y;
        }
}

}  // namespace
