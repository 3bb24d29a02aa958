// The picture behind `vrncal plot`, drawn with cairo into a PNG or SVG file.
#ifndef VRNCAL_TOOLS_PLOT_H
#define VRNCAL_TOOLS_PLOT_H

#include <string>
#include <vector>

namespace vrncal::tools {

struct PlotPoint {
    double x;
    double y;
};

struct PlotData {
    std::string title;
    double val_size = 80.0;                          // the calibrated field spans +-val_size/2
    std::vector<std::vector<PlotPoint>> nominal;     // grid lines at their nominal positions
    std::vector<std::vector<PlotPoint>> drive;       // the same lines at the exaggerated drive positions
    double factor = 1.0;                             // exaggeration of the drive deviations
    double max_deviation = 0.0;                      // largest drive deviation, field units
    // Optional colour map of the landing error: cells x cells values in
    // micrometres, row 0 at the top of the field.
    int cells = 0;
    std::vector<double> error_um;
};

// Writes the plot; the format follows the extension (.png or .svg).  Throws
// ToolError for another extension or a failed write.
void render_plot(const PlotData& data, const std::string& path, int width, int height);

// A factor 1, 2 or 5 times a power of ten that makes the largest deviation
// about a twentieth of the field.
double auto_factor(double max_deviation, double val_size);

}  // namespace vrncal::tools

#endif
