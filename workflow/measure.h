// Importing measurements into a correction table: the measured positions of
// one stage's marks, checked against the table and the stage before they
// become the table's [Cal3] or [Cal<n>] section.
//
// A measurement file is CSV.  With a header it has the columns measured_x
// and measured_y (field units, caller's frame) and either index or x and y
// (the nominal position) to say which mark each line measures; a filled
// template also has row, column, u and v, which are checked.  Without a
// header it has 3 columns (index, measured x, measured y) or 4 (x, y,
// measured x, measured y).  Lines may come in any order.
#ifndef VRNCAL_WORKFLOW_MEASURE_H
#define VRNCAL_WORKFLOW_MEASURE_H

#include <string>
#include <vector>

#include <vrncal/records.h>

#include "workflow/summary.h"
#include "workflow/job.h"
#include "workflow/table_file.h"

namespace vrncal::workflow {

struct ImportOptions {
    int size = 0;              // the stage: 3 the nine points, N an N x N grid; 0 from the file
    bool single_pass = false;  // the grid was marked with the head driven linearly: convert it
    bool as_residual = false;  // take a grid that only looks single-pass as it stands
    bool drop_grids = false;   // new nine points remove the grids measured through the old ones
};

struct ImportResult {
    int size = 0;
    std::vector<tagCalData> points;  // as the table stores them
    Deviation deviation;             // measured - nominal, as imported
    bool converted = false;          // a single-pass grid in the residual form
    std::vector<int> dropped;        // sizes of the grids removed
    std::string text;                // the edited table
};

// Reads and checks the measurement file against the table and prepares the
// edited table.  Every problem is an Error naming the file and, where there
// is one, the line.
ImportResult prepare_import(const TableFile& table, const std::string& path, const ImportOptions& opt);

// Replaces the table with the edited text, checked by loading it: the stage
// holds the imported points, every other stage is as it was.
void write_import(const TableFile& table, const ImportResult& result);

// How a grid a calibration holds was driven, judged as the import judges a
// measurement: true when it looks marked with the head driven linearly (at
// the nine calibration points it deviates as the nine points did, rather
// than by what the nine-point model leaves).  to_nine and to_nominal: the
// RMS distance there, field units, from the nine points' deviations and
// from nominal.  A grid of an even size or with missing points is judged
// not linear.
bool grid_looks_linear(const tagLenPar& cal, const tagStack& grid, double& to_nine, double& to_nominal);

// The residual form of a grid marked with the head driven linearly: for
// each mark, the deviation that makes the correction of drive (the table
// without this grid) drive the mark's measured landing point to the mark's
// own drive, placed at the mark's nominal position.  It approximates a grid
// marked through the correction and measured again.  Caller's frame.
std::vector<tagKelPointF> residual_form(const tagLenPar& drive, const std::vector<Mark>& marks,
                                        const std::vector<tagKelPointF>& measured);

}  // namespace vrncal::workflow

#endif
