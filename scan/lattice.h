// Matching the marks found on a scan to the nodes of the plan.
//
// The sheet may lie at any angle and place on the scanner, turned or
// mirrored, with dust, scratches, and marks missing or marked twice.  The
// matching does not trust the image axes:
//
//   1. the pitch is the commonest distance between a mark and its nearest
//      neighbours, the lattice angle the mean direction of those steps modulo
//      90 degrees;
//   2. a seed mark with neighbours on all four sides starts a growth from
//      mark to mark: each neighbour is predicted by extending the line
//      through the last two marks (or one step of the lattice), and taken
//      when one candidate lies within a quarter pitch, or the nearest of
//      several when the next is twice as far and more than three marks
//      across from it (closer, they are one mark marked twice);
//   3. the grown lattice must span the plan's n x n nodes; the orientation
//      marker, looked for at its eight possible places (the plan's 8-fold
//      symmetry), says which corner is mark 0 and whether the sheet is
//      mirrored;
//   4. a mark far from where its neighbours put it is rejected.
//
// Pixel positions only: no image, no scale.  Throws workflow::Error whose
// message starts with the scan's name.
#ifndef VRNCAL_SCAN_LATTICE_H
#define VRNCAL_SCAN_LATTICE_H

#include <string>
#include <vector>

namespace vrncal::scan {

struct Point {
    double x = 0.0;
    double y = 0.0;
};

struct LatticeInput {
    std::string name;            // the scan, for messages
    std::vector<Point> centres;  // candidate marks, pixels
    int n = 0;                   // points per side of the plan
    double pitch_px = 0.0;       // the plan's pitch at the scanner's resolution
    double mark_px = 0.0;        // a mark's size across
    bool marker = false;         // the plan has an orientation marker
};

struct Rejection {
    int candidate = 0;
    std::string reason;
};

struct LatticeMatch {
    std::vector<int> node;             // by plan node (row-major): the candidate, or -1
    std::vector<std::string> problem;  // by plan node: why it has no candidate ("" when it has one)
    std::vector<Point> predicted;      // by plan node: where the lattice puts it
    std::vector<Rejection> rejected;   // candidates that are neither node nor marker
    int marker = -1;                   // the candidate that is the orientation marker
    bool orientation_assumed = false;  // no marker in the plan: the sheet taken as upright
    double pitch = 0.0;                // mean distance of neighbouring nodes, pixels
};

LatticeMatch match_lattice(const LatticeInput& in);

}  // namespace vrncal::scan

#endif
