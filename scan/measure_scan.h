// Measuring a stage from a scan of the marked sheet: the marks found on the
// image (blobs.h), matched to the plan's nodes (lattice.h), and their
// positions in the sheet's own frame (frame.h), in field units, as the
// measurement file that `vrncal measure import` reads.
//
// Scale: a pixel is 25.4 / dpi millimetres along each image axis, times the
// scanner's correction factor for that axis (from a scanned ruler or a
// reference sheet: true length / length the scan gives).  Field units are
// millimetres unless unit_mm says otherwise.
#ifndef VRNCAL_SCAN_MEASURE_SCAN_H
#define VRNCAL_SCAN_MEASURE_SCAN_H

#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include <vrncal/records.h>

#include "scan/frame.h"
#include "scan/image.h"
#include "workflow/job.h"

namespace vrncal::scan {

struct MeasureOptions {
    std::string plan = "the plan";        // the job's name, for messages
    std::optional<double> dpi;            // the scanner's resolution; else the file's
    double scale_x = 1.0, scale_y = 1.0;  // the scanner's correction factors per image axis
    double unit_mm = 1.0;                 // millimetres per field unit
    bool light_marks = false;             // marks lighter than the sheet
    bool upright = false;                 // a plan without orientation marker: take the scan as upright
};

struct NodeReading {
    bool found = false;
    Point pixel;                // the mark's centre on the image (or where the lattice puts a missing one)
    tagKelPointF measured{};    // field units, the sheet's frame
    double uncertainty_um = 0;  // standard deviation of the centre per axis, from the scanner's noise
    double area = 0;            // pixels
    std::string problem;        // why it was not found
};

struct ScanReport {
    std::string name;
    int width = 0, height = 0, bits = 8, channels = 1;
    double dpi_x = 0, dpi_y = 0;
    int n = 0;                                            // points per side of the stage
    double mark_px = 0;                                   // a mark's size across, as planned, pixels
    std::size_t blobs = 0;                                // blobs of at least a fifth of a mark's area
    std::size_t specks = 0;                               // smaller ones
    double noise = 0;                                     // of the darkness, relative to the paper
    std::vector<NodeReading> nodes;                       // by plan node
    std::vector<std::pair<Point, std::string>> rejected;  // pixel position and why
    std::optional<Point> marker;                          // the orientation marker, pixels
    bool orientation_assumed = false;                     // the plan has no marker: the sheet taken as upright
    bool mirrored = false;                                // the scan shows the sheet mirrored
    double turned_deg = 0;                                // the centre row's angle on the image, counter-clockwise
    SheetFrame frame;                                     // millimetres on the image's axes
    double pitch_px = 0;
    double plan_pitch_px = 0;  // the plan's pitch at the scan's resolution

    std::size_t matched() const;
    std::vector<int> missing() const;
};

// Throws workflow::Error prefixed with the scan's name (or the plan's) when
// the scan cannot be measured: no resolution, nothing found, no grid of the
// plan's pitch and size, no orientation marker, no frame.
ScanReport measure_scan(const std::string& name, const ScanImage& image, const workflow::JobFile& job,
                        const MeasureOptions& opt);

// The measurement file: the job's columns, measured_x, measured_y (blank for
// a mark not found), uncertainty_um and the centre on the scan (scan_x,
// scan_y, pixels), after a comment naming the scan and the frame.
std::string measurement_text(const workflow::JobFile& job, const ScanReport& r);

// The scan in colour with every blob found: matched marks circled in green
// with their node index, missing nodes crossed in red where the lattice puts
// them, rejected blobs circled in orange, the orientation marker in blue,
// and the frame's axes.
cv::Mat overlay_image(const ScanImage& image, const ScanReport& r);

}  // namespace vrncal::scan

#endif
