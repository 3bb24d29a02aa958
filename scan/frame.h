// The frame a scan measures in.  A scan cannot know where the lens axis is,
// so the marks fix the frame themselves:
//
//   - the origin is the centre mark (node (n-1)/2, (n-1)/2); when it is
//     missing, the middle of its neighbours on either side;
//   - the x axis runs along the straight line fitted through the centre row
//     (orthogonal least squares), towards rising columns;
//   - the y axis is perpendicular to it, towards row 0 (the side of the
//     orientation marker).
//
// Measured positions are the marks' coordinates in that frame.  The frame is
// right-handed whatever the sheet's placement, so a sheet scanned turned or
// mirrored gives the same coordinates.  A head's offset and rotation against
// the machine are therefore not measured: the field is judged by its shape.
#ifndef VRNCAL_SCAN_FRAME_H
#define VRNCAL_SCAN_FRAME_H

#include <optional>
#include <string>
#include <vector>

#include "scan/lattice.h"

namespace vrncal::scan {

struct SheetFrame {
    Point origin;
    Point ex, ey;                      // unit vectors
    bool origin_interpolated = false;  // the centre mark is missing
};

// The frame of an n x n grid from its marks (row-major, any consistent
// length unit, any handedness); a missing mark is nullopt.  Throws
// workflow::Error prefixed with name when the centre row has fewer than two
// marks or neither the centre mark nor a pair of its neighbours is present.
SheetFrame sheet_frame(const std::string& name, int n, const std::vector<std::optional<Point>>& marks);

// A point in the frame.
Point in_frame(const SheetFrame& f, Point p);

}  // namespace vrncal::scan

#endif
