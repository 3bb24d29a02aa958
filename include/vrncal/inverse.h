// vrncal::Inverter: from a device position back to the field point.
//
// The correction maps a field point p (field units) to the device position
// F(p) (counts) that the head is driven to; F is VrnCal::CalibPoint on the
// record, whichever correction its CalMode selects (the scale-and-shift step
// of LP2DPEX_SFT is not part of it).  The inverse answers "which field point
// does the calibration drive to this device position": the point p with
// F(p) = c, found numerically, since the grid residual is interpolated from
// measured data and has no closed-form inverse.
//
// Method.  Newton's method on F, evaluated with exactly the bits of
// VrnCal::CalibPoint (through vrncal::Corrector).
//   - Seed: the linear model of the correction over the whole field,
//     p0 = J0^-1 (c - c0), with c0 and J0 taken from the images of the
//     midpoints of the four field edges.  It carries the scale, the signs of
//     the lens flags and the offset of the centre.
//   - Jacobian: forward differences with a step of ValSize / 10000, taken
//     towards the field centre.
//   - Damping: a step is halved, up to 12 times, until the residual
//     |F(p) - c| falls.  When no shorter step helps, up to 4 full steps are
//     taken anyway (see the jumps below), and the best point is kept.
//   - The point is a float, like every field point of the library.  A point
//     found just beyond the field edge is moved onto the edge when the edge
//     drives within the tolerance too.
// It stops when both axes of F(p) are within `tolerance` counts of c.
//
// Tolerance.  F takes float points and gives float counts computed through
// float steps, so it scatters from one float field point to the next by
// about a hundredth of a count, and not every device position is reached
// exactly.  The default 0.02 counts is met wherever the correction is
// continuous.  It is not continuous everywhere: a summed grid residual of
// 0.001 field units or less is applied at a quarter of its size, so where
// the residual crosses that size the output jumps by up to 0.00075 field
// units (in counts: that times Resolution / FieldSize and the axis gain).
// A device position inside such a jump has no field point (NotConverged,
// with the nearest point found), and one just beside it may have two, up to
// that distance apart; either is a correct answer.
//
// Folds.  A calibration whose grids move a point by more than the grid
// spacing can fold the field: the correction then runs backwards over a
// region, and a device position there belongs to several field points.
// The Inverter maps the folds once, over a raster of 64 x 64 cells of the
// calibrated field: a cell is folded when its image turns against the
// orientation of the whole field (the image of the field's border).  It
// answers Folded for every position within the device-space box of a folded
// cell, and wherever the Jacobian met on the way has lost that orientation.
//
// Status.  Only Converged says that `field` is the answer.  OutsideField
// still gives the point found (beyond +-ValSize/2 the correction
// extrapolates: each grid keeps the deviation of its edge), with the
// residual saying whether it drives there; every other status leaves the
// best point found, or NaN.
//
// No allocation and no exceptions per point.  Building an Inverter builds a
// Corrector and the fold map (about 4200 corrections).  The record must
// outlive the Inverter and must not change while it is used.
#ifndef VRNCAL_INVERSE_H
#define VRNCAL_INVERSE_H

#include <cstddef>
#include <memory>

#include "vrncal/export.h"
#include "vrncal/records.h"

namespace vrncal {

enum class InverseStatus : int {
    Converged = 0,  // field drives within tolerance of the device position, inside +-ValSize/2
    OutsideField,   // the point lies beyond +-ValSize/2; field holds it, and residual says
                    // whether it drives there (the search stops where the output clamps)
    DeviceLimit,    // the device position is not strictly between 0 and Resolution, where
                    // the correction clamps: no single field point belongs to it (field NaN)
    Folded,         // the correction folds there, so several field points may drive to
                    // the position (field: the point found, or NaN when the whole field
                    // collapses)
    NotConverged,   // no point within tolerance (a jump of the correction, or the iteration
                    // limit); field: the nearest point found
    NotFinite,      // the device position, or the correction on the way, is not finite (field NaN)
};

// A short phrase for the status, for messages ("converged", "outside the
// calibrated field", ...).
VRNCAL_API const char* inverseStatusText(InverseStatus status);

struct InverseOptions {
    double tolerance = 0.02;  // counts, on each axis
    int maxIterations = 30;   // Newton steps
};

struct InverseResult {
    tagKelPointF field{};                          // field units; see the status
    InverseStatus status = InverseStatus::NotFinite;
    int iterations = 0;                            // Newton steps taken
    double residual = 0.0;                         // largest |F(field) - c| of the two axes, counts;
                                                   // NaN when field is NaN
};

class VRNCAL_API Inverter {
public:
    explicit Inverter(const tagLenPar& par, InverseOptions options = {});
    ~Inverter();
    Inverter(Inverter&&) noexcept;
    Inverter& operator=(Inverter&&) noexcept;
    Inverter(const Inverter&) = delete;
    Inverter& operator=(const Inverter&) = delete;

    // The field point the correction drives to the device position.
    InverseResult invert(tagKelPointF counts) const;

    // n positions; results[i] belongs to counts[i].
    void invert(const tagKelPointF* counts, InverseResult* results, std::size_t n) const;

    // True when the correction folds somewhere in the calibrated field (see
    // Folded above).
    bool folds() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vrncal

#endif
