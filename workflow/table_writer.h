// Writes correction tables, the text form the library loads: the tool's own
// [vrncal] section with the field size (the library's loader does not read
// it), [CalCoefs] with the lens settings, [Cal3] with the nine points and any
// further keys, and one "Cal<n>" section per grid.  Every number is written
// in the shortest form that reads back as the same value, so a table written
// from a record loads to the same points bit for bit.
#ifndef VRNCAL_WORKFLOW_TABLE_WRITER_H
#define VRNCAL_WORKFLOW_TABLE_WRITER_H

#include <optional>
#include <string>
#include <vector>

#include <vrncal/records.h>

namespace vrncal::workflow {

// The tool's own section of a correction table and its key.
inline constexpr const char* kToolSection = "vrncal";
inline constexpr const char* kFieldSizeKey = "FieldSize";

struct TableContent {
    std::vector<std::string> comments;  // written as "; " lines at the top
    std::optional<double> field_size;   // FieldSize in [vrncal]
    double val_size = 100.0;
    int resolution = 65535;
    int xy_flip = 0, x_invert = 0, y_invert = 0;
    int order = 0;                      // 0: the largest grid size, at least 3
    bool has_nine = true;               // false: a new table, no [Cal3] yet
    tagCalData nine[9] = {};
    std::vector<std::string> cal3_keys;  // further "key=value" lines of [Cal3]
    std::vector<tagStack> grids;         // written in this order
};

std::string table_text(const TableContent& t);

// The content that carries a record: its settings, points and grids, and the
// [Cal3] keys the loader reads and the fit leaves alone (the gain-table
// switch and rows, k4 to k19, s0 to s7) where they differ from the loader's
// defaults.  Whether the text can carry the record exactly is for
// carried_differences to say, on the record loaded back.
TableContent table_content(const tagLenPar& par);

// The members a correction table carries (with the field size the tool
// keeps beside it) in which got differs from want, bit for bit, by name;
// empty when the two agree.
std::vector<std::string> carried_differences(const tagLenPar& want, const tagLenPar& got);

// Nominal positions of a square grid of n points per side over +-val_size/2,
// in the order the grids are stored: row-major, x growing along a row, y
// falling from row to row.  Measured positions are set equal to nominal.
std::vector<tagCalData> nominal_grid(int n, double val_size);

}  // namespace vrncal::workflow

#endif
