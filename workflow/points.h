// Reading and replacing the points of a calibration file through the
// facade's file-level members: the nine points (index -1) or one grid.
#ifndef VRNCAL_WORKFLOW_POINTS_H
#define VRNCAL_WORKFLOW_POINTS_H

#include <optional>
#include <string>
#include <vector>

#include <vrncal/records.h>

#include "workflow/calfile.h"

namespace vrncal::workflow {

// The points of the nine-point grid (index -1) or of grid `index`, row-major,
// read from the loaded calibration's file.  Throws Error when the file has
// no such grid.
std::vector<tagCalData> stack_points(const Calibration& cal, int index);

struct PointsEdit {
    bool appended = false;  // a new grid past the last one
    int index = -1;         // -1: the nine points
    int size = 3;           // points per side
};

// Replaces (or appends, for an index past the last grid) the points of a
// stack and saves the calibration, refitted, to out, a data file.  The points
// come from points_name (for messages), already read.  Throws Error; out is
// written whole or not at all.
PointsEdit set_stack_points(const Calibration& cal, int index, const std::string& points_name,
                            const std::vector<tagCalData>& points, const std::string& out);

// Replaces the points of a stack of a correction table (or appends a grid
// for an index past the last one) in its text, keeping every other line,
// and writes the table to out (the table itself when empty).  A table holds
// one grid per size.  The written table is checked by loading it.  Throws
// Error.
PointsEdit set_table_points(const std::string& path, int index, const std::string& points_name,
                            const std::vector<tagCalData>& points, const std::string& out,
                            std::optional<double> field_size);

struct GainTable {
    int count = 0;                     // the row count the library reports
    std::vector<tagKelPointF> points;  // the rows, at most 100
};

// The gain-table points of one axis (0 x, 1 y) as the library reads them.
GainTable gain_points(const std::string& path, int axis);

// Passes gain-table points to the library's edit, which does not save them.
void set_gain_points(const std::string& path, int axis, const std::vector<tagKelPointF>& points);

}  // namespace vrncal::workflow

#endif
