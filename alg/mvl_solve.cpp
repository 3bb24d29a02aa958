// The grid-wise multivariable fit: one bilinear map per grid cell, from the
// nominal to the measured position, through the cell's four corners.
#include <cstddef>
#include <vector>

#include "math/fp.h"
#include "vrncal/calib_alg.h"
#include "vrncal/solver.h"

using vrncal_detail::stored;

namespace {

// Solves one axis of one cell: the four corners give four equations
// 1, u, v, u*v | measured.  P00 comes first, so its row (1, 0, 0, 0) stays the
// first pivot and the constant term is its measured value exactly.
void solveCell(MVLPkg& solver, const tagCalData* const corner[4], bool yAxis, double (&k)[4]) {
    std::vector<std::vector<double>> m(4);
    const double x0 = corner[0]->X;
    const double y0 = corner[0]->Y;
    for (int i = 0; i < 4; ++i) {
        const double u = corner[i]->X - x0;
        const double v = corner[i]->Y - y0;
        const double measured = yAxis ? corner[i]->RealY : corner[i]->RealX;
        m[i] = {1.0, u, v, u * v, measured};
    }
    const std::vector<double> c = solver.Gauss(m);
    for (int j = 0; j < 4; ++j) k[j] = c[j];
}

}  // namespace

int CCalibAlg::MVLSolve(const tagStack& stack, tagStkMVLCoef& coefs) {
    coefs.Size = 0;
    coefs.Cells.clear();
    const int n = stack.Size;
    if (n < 2 || stack.Points.size() < static_cast<std::size_t>(n) * static_cast<std::size_t>(n))
        return 0;

    const std::size_t side = static_cast<std::size_t>(n);
    coefs.Cells.resize((side - 1) * (side - 1));
    MVLPkg solver;
    for (std::size_t r = 0; r + 1 < side; ++r) {
        for (std::size_t c = 0; c + 1 < side; ++c) {
            const tagCalData* const corner[4] = {
                &stack.Points[r * side + c], &stack.Points[r * side + c + 1],
                &stack.Points[(r + 1) * side + c], &stack.Points[(r + 1) * side + c + 1]};
            tagMVLCoef& cell = coefs.Cells[r * (side - 1) + c];
            cell.X0 = corner[0]->X;
            cell.Y0 = corner[0]->Y;
            cell.X1 = corner[3]->X;
            cell.Y1 = corner[3]->Y;
            solveCell(solver, corner, false, cell.kx);
            solveCell(solver, corner, true, cell.ky);
        }
    }
    coefs.Size = n;
    return 1;
}

int CCalibAlg::MVLEval(const tagStkMVLCoef& coefs, tagKelPointF nominal, tagKelPointF& measured) {
    for (const tagMVLCoef& cell : coefs.Cells) {
        if (!(cell.X0 <= nominal.x && nominal.x <= cell.X1 && cell.Y1 <= nominal.y &&
              nominal.y <= cell.Y0))
            continue;
        const double u = static_cast<double>(nominal.x) - cell.X0;
        const double v = static_cast<double>(nominal.y) - cell.Y0;
        measured.x = stored(cell.kx[0] + cell.kx[1] * u + cell.kx[2] * v + cell.kx[3] * u * v);
        measured.y = stored(cell.ky[0] + cell.ky[1] * u + cell.ky[2] * v + cell.ky[3] * u * v);
        return 1;
    }
    measured = nominal;
    return 0;
}
