// The checks behind `vrncal check`: a correction table linted as the library
// reads it, then loaded; a data file checked for structure, then loaded; in
// both cases the fitted coefficients checked for non-finite values.
#ifndef VRNCAL_WORKFLOW_CHECK_H
#define VRNCAL_WORKFLOW_CHECK_H

#include <string>
#include <vector>

#include "workflow/lint.h"

namespace vrncal::workflow {

// The linter's findings by line, then those of the load.  Throws Error only when the file cannot be
// read at all (or a data file is damaged beyond loading).
std::vector<Finding> check_calibration(const std::string& path);

}  // namespace vrncal::workflow

#endif
