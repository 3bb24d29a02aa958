// The tool's commands are a thin layer over the workflow library: its names
// are the tool's names, and its one error type is the one main() prints as a
// single line on standard error before it exits with status 1.
#ifndef VRNCAL_TOOLS_ERRORS_H
#define VRNCAL_TOOLS_ERRORS_H

#include "workflow/error.h"

namespace vrncal::tools {

using namespace vrncal::workflow;
using ToolError = workflow::Error;

}  // namespace vrncal::tools

#endif
