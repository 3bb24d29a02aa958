// Internal: the grid lookup split into its steps, so that a faster way of
// finding the cell (the batch corrector's index) runs through exactly the
// same arithmetic as CCalibAlg::GetGridDR.
#ifndef VRNCAL_ALG_GRID_CELL_H
#define VRNCAL_ALG_GRID_CELL_H

#include "vrncal/records.h"

namespace vrncal_detail {

// The lookup point clamped to the nominal field (+-ValSize / 2).
tagKelPointF clampToField(const tagLenPar& par, const tagKelPointF& pt);

// Whether the stack has cells at all: Size above 1 and its Size x Size points
// present.
bool stackHasCells(const tagStack& stack);

// Index of the top-left point of the first cell, row-major, whose nominal
// corners enclose (x, y), bounds inclusive on all four sides; -1 for none.
// The stack must have cells.
long findCellInclusive(const tagStack& stack, double x, double y);

// The ratio and deviation of the clamped point p inside the cell whose
// top-left point has index i00.
void deviationInCell(const tagLenPar& par, const tagKelPointF& p, const tagStack& stack, long i00,
                     tagKelPointF& ratio, tagKelPointF& dev);

// GetGridDR with the cell search supplied by the caller: find(x, y) must
// return what findCellInclusive(stack, x, y) returns.
template <typename FindCell>
void gridDeviation(const tagLenPar& par, const tagKelPointF& pt, tagKelPointF& ratio,
                   tagKelPointF& dev, const tagStack& stack, FindCell&& find) {
    ratio = tagKelPointF{1.0f, 1.0f};
    dev = tagKelPointF{0.0f, 0.0f};
    const tagKelPointF p = clampToField(par, pt);
    if (!stackHasCells(stack)) return;
    const long i00 = find(p.x, p.y);
    if (i00 < 0) return;
    deviationInCell(par, p, stack, i00, ratio, dev);
}

}  // namespace vrncal_detail

#endif
