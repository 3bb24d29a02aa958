// The picture behind `vrncal plot`, drawn with cairo into a PNG or SVG file
// from the plot data the workflow computes.
#ifndef VRNCAL_TOOLS_PLOT_H
#define VRNCAL_TOOLS_PLOT_H

#include <string>

#include "workflow/plot_data.h"

namespace vrncal::tools {

// Writes the plot; the format follows the extension (.png or .svg).  Throws
// ToolError for another extension or a failed write.
void render_plot(const workflow::PlotData& data, const std::string& path, int width, int height);

}  // namespace vrncal::tools

#endif
