// Writes correction tables, the text form the library loads: [CalCoefs]
// with the lens settings, [Cal3] with the nine points, and one "Cal<n>"
// section per grid.  Every number is written in the shortest form that reads
// back as the same float, so a table written from a record loads to the same
// points bit for bit.
#ifndef VRNCAL_WORKFLOW_TABLE_WRITER_H
#define VRNCAL_WORKFLOW_TABLE_WRITER_H

#include <string>
#include <vector>

#include <vrncal/records.h>

namespace vrncal::workflow {

struct TableContent {
    std::vector<std::string> comments;  // written as "; " lines at the top
    double val_size = 100.0;
    int resolution = 65535;
    int xy_flip = 0, x_invert = 0, y_invert = 0;
    tagCalData nine[9] = {};
    std::vector<tagStack> grids;  // written in this order
};

std::string table_text(const TableContent& t);

// Nominal positions of a square grid of n points per side over +-val_size/2,
// in the order the grids are stored: row-major, x growing along a row, y
// falling from row to row.  Measured positions are set equal to nominal.
std::vector<tagCalData> nominal_grid(int n, double val_size);

}  // namespace vrncal::workflow

#endif
