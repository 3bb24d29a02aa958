#include "calibration.h"
namespace vrncal::python { void bind_plans(py::module_&) {} }
