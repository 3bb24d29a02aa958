// Simulated scan heads: where the spot lands when the head is driven to a
// device point.  Two kinds play the machine in the simulator: the analytic
// lens (lens.h) and a head defined by measured data (measured_head.h).
//
// Frames.  A head lands the spot in its own frame, the frame of the device
// axes: x grows with the count u, y with the count v.  A host asks for points
// in its own frame, the caller's frame; with invert flags set the library
// negates the caller's point before driving the head (with the exchange flag
// set, XInvert acts on y and YInvert on x; the coordinates are never
// exchanged).  The simulator therefore reports every landing in the caller's
// frame, where a host measures it: the head's landing with the same signs.
#ifndef VRNCAL_WORKFLOW_HEAD_H
#define VRNCAL_WORKFLOW_HEAD_H

#include <string>
#include <vector>

#include <vrncal/records.h>

namespace vrncal::workflow {

class Head {
public:
    struct Landing {
        double x;
        double y;
    };

    virtual ~Head() = default;

    // Where the spot lands, in the head's frame and field units, when the
    // head is driven to the device point.  Throws Error when the head cannot
    // say (a drive outside measured data).
    virtual Landing land(const tagLenPar& par, tagKelPointF counts) const = 0;

    // Throws Error when the head cannot be driven over the record's range.
    virtual void check_range(const tagLenPar& par) const = 0;

    // A few lines describing the head, for the comments of a table.
    virtual std::vector<std::string> describe() const = 0;
};

// The sign rule of the record's flags (XYFlip, XInvert, YInvert), as the
// library applies it to a caller's point.  It is its own inverse.
void apply_sign_rule(const tagLenPar& par, double& x, double& y);

// The landing in the caller's frame.
Head::Landing land_in_caller_frame(const Head& head, const tagLenPar& par, tagKelPointF counts);

// The distance in field units between target (caller's frame) and where the
// spot lands when the head is driven to counts.
double landing_error(const Head& head, const tagLenPar& par, tagKelPointF target, tagKelPointF counts);

}  // namespace vrncal::workflow

#endif
