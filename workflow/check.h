// The checks behind `vrncal check`, and behind every command that loads a
// calibration: a correction table linted as the library reads it, a data
// file checked for structure, then the loaded record: the fitted
// coefficients, and for a data file its grids and points as the linter
// checks a table's.
#ifndef VRNCAL_WORKFLOW_CHECK_H
#define VRNCAL_WORKFLOW_CHECK_H

#include <optional>
#include <string>
#include <vector>

#include <vrncal/records.h>

#include "workflow/lint.h"

namespace vrncal::workflow {

struct Examination {
    bool data_file = false;
    bool loaded = false;          // the library loads the file
    tagLenPar par;                // as loaded, when loaded
    std::optional<double> own_field_size;  // a table's [vrncal] FieldSize
    std::vector<Finding> findings;  // by line; errors and warnings
};

// Examines a calibration given as its bytes (path names it in findings); a
// table that states no field size is loaded with field_size, if given.
// Throws Error only for a data file damaged beyond loading.
Examination examine_calibration(const std::string& path, const std::string& bytes,
                                std::optional<double> field_size);

// Reads the file (with the calibration size bound) and examines it.  Throws
// Error when the file cannot be read at all.
Examination check_calibration(const std::string& path);

}  // namespace vrncal::workflow

#endif
