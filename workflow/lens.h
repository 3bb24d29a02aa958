// A simulated scan head: two galvanometer mirrors in front of an f-theta lens.
//
// Device counts (u, v) drive the mirrors; the model returns where the spot
// lands on the work plane, in field units (taken as millimetres, so errors are
// quoted in micrometres).  With H = HalfResolution, R = Resolution and
// F = FieldSize of the calibration record:
//
//   optical scan angles  ax = (1 + gain_x) (u - H) (F / R) / f
//                        ay = (1 + gain_y) (v - H) (F / R) / f
//   two-mirror geometry  ty = tan ay
//                        tx = tan ax (d sqrt(1 + ty^2) + e) / (d + e)
//   field angle          theta = atan(sqrt(tx^2 + ty^2)),  phi = atan2(ty, tx)
//   f-theta lens         r = f theta (1 + k theta^2)
//   mounting             x = r cos(phi) cos(rho) - r sin(phi) sin(rho) + offset_x
//                        y = r cos(phi) sin(rho) + r sin(phi) cos(rho) + offset_y
//
// f is the focal length, e the separation of the two mirrors, d the distance
// from the second (y) mirror to the lens, k the radial distortion and rho the
// mounting rotation.  The scale is chosen so that an ideal head (e = 0, k = 0,
// no gain error) driven linearly lands exactly on target along both axes;
// away from the axes the two-mirror geometry bends the field (the familiar
// pincushion of scan heads), and e, d, k and the mounting terms add to it.
#ifndef VRNCAL_WORKFLOW_LENS_H
#define VRNCAL_WORKFLOW_LENS_H

#include <string>
#include <vector>

#include <vrncal/records.h>

#include "workflow/head.h"

namespace vrncal::workflow {

struct LensModel : Head {
    double focal = 160.0;       // f, field units
    double separation = 12.0;   // e, field units
    double distance = 35.0;     // d, field units
    double distortion = 0.02;   // k, per radian squared
    double rotation = 0.0;      // rho, degrees
    double offset_x = 0.0;      // field units
    double offset_y = 0.0;
    double gain_x = 0.0;        // relative axis gain error (0.01 = 1 % long)
    double gain_y = 0.0;

    // Where the spot lands when the head is driven to the device point.
    Landing land(const tagLenPar& par, tagKelPointF counts) const override;

    // Throws Error when the head's full range would swing the beam beyond
    // 60 degrees off axis, where the model (and any real f-theta lens) ends.
    void check_range(const tagLenPar& par) const override;

    std::vector<std::string> describe() const override;
};

// Throws Error when the focal length or the mirror distances are not positive.
void check_lens(const LensModel& lens);

// Reads a lens description: an INI file with a [lens] section whose keys are
// the member names above (focal=163).  Missing keys keep the defaults; any
// other key, or a value that is not a number, is an error naming the file and
// the key.
LensModel read_lens_file(const std::string& path);

// The lens as the INI text read_lens_file accepts.
std::string lens_to_ini(const LensModel& lens);

}  // namespace vrncal::workflow

#endif
