// The picture behind `vrncal plot`, drawn with cairo into a PNG or SVG file
// from the plot data the workflow computes.
#ifndef VRNCAL_TOOLS_PLOT_H
#define VRNCAL_TOOLS_PLOT_H

#include <string>
#include <vector>

#include "workflow/plot_data.h"

namespace vrncal::tools {

// Writes the plot, whole or not at all; the format follows the extension
// (.png or .svg).  Throws ToolError for another extension, a failed write or
// a path that is one of inputs.
void render_plot(const workflow::PlotData& data, const std::string& path, int width, int height,
                 const std::vector<std::string>& inputs);

}  // namespace vrncal::tools

#endif
