// Scans on disk: PNG or TIFF, 8 or 16 bit, grey or colour, read with OpenCV
// into one grey level per pixel; the resolution the file states, read with
// libpng and libtiff (OpenCV does not report it).
#ifndef VRNCAL_SCAN_IMAGE_H
#define VRNCAL_SCAN_IMAGE_H

#include <opencv2/core.hpp>
#include <optional>
#include <string>

namespace vrncal::scan {

struct ScanImage {
    cv::Mat grey;                        // CV_32F, 0 black to 1 white
    int bits = 8;                        // per sample in the file
    int channels = 1;                    // in the file
    std::optional<double> dpi_x, dpi_y;  // as the file states them
};

// Throws workflow::Error naming the file when it is not a readable image of
// those kinds.
ScanImage read_scan(const std::string& path);

// Writes a grey (CV_8U or CV_16U) or colour image as PNG or TIFF by the
// path's extension, through a temporary file and a rename.  A TIFF carries
// the resolution.  Throws workflow::Error.
void write_image(const std::string& path, const cv::Mat& image, double dpi);

}  // namespace vrncal::scan

#endif
