// The scan a marked sheet would give, for rehearsing the measurement without
// a scanner: the job marked on a simulated head, the sheet laid on a
// scanner at an angle and offset, and the scanner's blur, noise and uneven
// lighting.
//
// Each mark is drawn as the marking program draws it, in counts around its
// drive (a dot's outline or a cross's two strokes), and every point of it is
// landed through the head, so the mark's own distortion is the head's.  The
// marks are rendered by 8 x 8 supersampling of their exact outlines, blurred
// with the scanner's Gaussian spot and laid on a paper whose brightness
// varies smoothly; dust specks and scratches (kept off the marks) and
// Gaussian noise follow, quantised to 8 or 16 bits.  Random choices come from
// the seed: a 64-bit Mersenne Twister, and OpenCV's generator for the noise.
#ifndef VRNCAL_SCAN_RENDER_H
#define VRNCAL_SCAN_RENDER_H

#include <cstdint>
#include <opencv2/core.hpp>
#include <optional>
#include <vector>

#include <vrncal/records.h>

#include "workflow/head.h"
#include "workflow/job.h"

namespace vrncal::scan {

struct RenderOptions {
    double dpi = 600.0;
    std::optional<double> angle_deg;  // the sheet's turn on the scanner; by default random within +-3
    bool mirrored = false;            // the scan shows the sheet mirrored
    std::vector<int> missing;         // nodes left unmarked
    std::vector<int> doubled;         // nodes marked twice, the second 1.2 marks across away
    int dust = 12;                    // dust specks, 30 to 500 um
    int scratches = 1;                // thin scratches, 3 to 8 mm long
    double blur_um = 20.0;            // standard deviation of the scanner's spot
    double noise = 0.01;              // standard deviation of the scanner's noise, of full scale
    double line_um = 60.0;            // the laser's line width, for crosses
    double stretch_x = 1.0;           // the scanner's true scale per image axis against its stated dpi
    double stretch_y = 1.0;
    double unit_mm = 1.0;  // millimetres per field unit
    int bits = 8;          // 8 or 16
    bool colour = false;
    std::uint64_t seed = 1;
};

struct RenderedScan {
    cv::Mat image;         // CV_8U or CV_16U, grey or BGR
    double angle_deg = 0;  // the sheet's turn as laid
};

// Throws workflow::Error when the job has no mark shape, or the head cannot
// land a mark.
RenderedScan render_scan(const workflow::Head& head, const tagLenPar& par, const workflow::JobFile& job,
                         const RenderOptions& opt);

}  // namespace vrncal::scan

#endif
