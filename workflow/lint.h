// The correction table linter behind `vrncal check`.
//
// It reads the text exactly as the library's INI store and table loader do
// (sections and keys are not trimmed, the first of two equal keys wins, the
// last of two equal section headers wins, only the keys the loader asks for
// are ever seen) and reports, with line numbers, everything that makes the
// loaded calibration differ from what the file seems to say.
#ifndef VRNCAL_WORKFLOW_LINT_H
#define VRNCAL_WORKFLOW_LINT_H

#include <string>
#include <vector>

#include <vrncal/records.h>

namespace vrncal::workflow {

struct Finding {
    enum Severity { Error, Warning };
    int line;  // 0 when the finding concerns the whole file
    Severity severity;
    std::string message;
    std::string code = {};  // the library's stable problem code, where it found it
};

// Static checks of the text; findings sorted by line.
std::vector<Finding> lint_table(const std::string& text);

// The layout of a grid's nominal points (the regular grid over +-ValSize/2
// the lookup assumes) and the size of its measured deviations.  name is the
// section ("Cal9") of a table, whose points have the given lines, or a label
// ("grid 0 (9 x 9)") of a data file, whose lines is empty.
void check_grid_points(const std::string& name, bool table, int n, double val_size,
                       const std::vector<tagCalData>& pts, const std::vector<int>& lines,
                       std::vector<Finding>& findings);

// "PATH:LINE: error: message" (or "PATH: error: message" for line 0).
std::string format_finding(const std::string& path, const Finding& f);

}  // namespace vrncal::workflow

#endif
