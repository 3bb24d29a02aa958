// The compiled part of the Python package vrncal (imported as vrncal._vrncal;
// vrncal/__init__.py adds the pure-Python layer).  Every C++ exception stops
// at this boundary and reaches Python as an exception: CalibrationError for
// what is wrong with a file or a calibration, ValueError, TypeError,
// IndexError or KeyError for bad arguments, MemoryError, RuntimeError for
// anything else.
#include <pybind11/pybind11.h>

#include <vrncal/version.h>

#include "calibration.h"
#include "workflow/error.h"

namespace py = pybind11;
using namespace vrncal::python;

PYBIND11_MODULE(_vrncal, m) {
    m.doc() = "Field distortion correction for two-axis galvanometer scan heads (compiled part).";

    static py::exception<CalibrationFailure> error(m, "CalibrationError");
    error.doc() = "A calibration file cannot be loaded or saved, or a calibration is unusable.  The "
                  "message names the file (and the line or key where known); the attributes path, line "
                  "and key hold them, or None.";
    error.attr("path") = py::none();
    error.attr("line") = py::none();
    error.attr("key") = py::none();
    py::register_exception_translator([](std::exception_ptr p) {
        auto raise = [](const char* message, const std::string& path, long line, const std::string& key) {
            py::object e = py::reinterpret_borrow<py::object>(error)(message);
            if (!path.empty()) e.attr("path") = path;
            if (line > 0) e.attr("line") = line;
            if (!key.empty()) e.attr("key") = key;
            PyErr_SetObject(error.ptr(), e.ptr());
        };
        try {
            if (p) std::rethrow_exception(p);
        } catch (const CalibrationFailure& e) {
            raise(e.what(), e.path, e.line, e.key);
        } catch (const vrncal::workflow::Error& e) {
            raise(e.what(), {}, 0, {});
        }
    });

    m.attr("__version__") = vrncal::version();
    bind_calibration(m);
    bind_workflow(m);
    bind_plans(m);
}
