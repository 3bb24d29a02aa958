// Finding marks on a scan: dark blobs on a lighter, possibly uneven ground.
//
//   1. At a coarse scale, where a mark is about three pixels across (the
//      image averaged over blocks of f x f pixels), the ground is estimated
//      by a grey closing (which removes anything dark and smaller than a
//      few marks) and a blur; a pixel's darkness is 1 - grey / ground, 0 on
//      paper, near 1 on ink.  Whatever stands out of the coarse darkness's
//      noise is a candidate region.
//   2. Only those regions are looked at in full resolution, with the ground
//      interpolated from the coarse one: the noise is the robust spread
//      (median absolute deviation) of the darkness of a block of paper;
//      blobs are the 8-connected regions of the slightly smoothed darkness
//      above half the typical peak darkness of the candidates.
//   3. Each blob's centre is the darkness-weighted mean position over a
//      window around it, less the window border's median darkness, taken
//      twice (the window centred on the first result).  Its uncertainty is
//      the noise carried through that mean; its size and elongation come
//      from the same weighted second moments.
#ifndef VRNCAL_SCAN_BLOBS_H
#define VRNCAL_SCAN_BLOBS_H

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "scan/lattice.h"

namespace vrncal::scan {

struct Blob {
    Point centre;             // pixels, x right, y down
    double area = 0.0;        // pixels above the threshold
    double size = 0.0;        // sqrt of the trace of the weighted second moments, pixels
    double elongation = 1.0;  // ratio of the principal axes of those moments, >= 1
    double sigma_x = 0.0;     // standard deviation of the centre from the noise, pixels
    double sigma_y = 0.0;
    double darkness = 0.0;   // the blob's peak, 0 paper to 1 black
    bool on_border = false;  // touches the edge of the image
};

struct Blobs {
    std::vector<Blob> blobs;  // at least min_area pixels
    std::size_t specks = 0;   // smaller ones
    double noise = 0.0;       // standard deviation of the darkness on paper
    double ink = 0.0;         // typical peak darkness of a mark
    double threshold = 0.0;
};

// grey: CV_32F, 0 black to 1 white; light_marks: marks lighter than the
// ground (the image is inverted first); mark_px: a mark's size across in
// pixels; min_area: the smallest blob listed.  Throws workflow::Error
// prefixed with name when the image is uniform or nothing stands out of the
// noise.
Blobs find_blobs(const std::string& name, const cv::Mat& grey, bool light_marks, double mark_px, double min_area);

}  // namespace vrncal::scan

#endif
