// The calibration object of the Python module: one record, the file it came
// from, and the batch corrector built from it on first use.
//
// Python threads may correct with one Calibration while another edits it.
// Edits run with the GIL held and take the lock exclusively; corrections
// take it shared, build their corrector with the GIL held, and then release
// the GIL for the arithmetic.  An edit therefore waits for running
// corrections and drops the corrector, which the next correction rebuilds
// from the edited record.
#ifndef VRNCAL_PYTHON_CALIBRATION_H
#define VRNCAL_PYTHON_CALIBRATION_H

#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include <pybind11/pybind11.h>

#include <vrncal/batch.h>
#include <vrncal/records.h>

#include "workflow/calfile.h"
#include "workflow/lens.h"

namespace vrncal::python {

namespace py = pybind11;

class Calibration {
public:
    Calibration() = default;
    Calibration(tagLenPar p, std::string file, std::string form)
        : path(std::move(file)), format(std::move(form)), par_(std::move(p)) {}
    // A copy takes the record, not the lock or the corrector.  Call with the
    // GIL held.
    Calibration(const Calibration& o)
        : path(o.path), format(o.format), field_size_from(o.field_size_from), par_(o.par_) {}
    Calibration(Calibration&& o) noexcept
        : path(std::move(o.path)),
          format(std::move(o.format)),
          field_size_from(std::move(o.field_size_from)),
          par_(std::move(o.par_)) {}
    Calibration& operator=(const Calibration&) = delete;

    // Read access with the GIL held (no edit can run meanwhile).
    const tagLenPar& par() const { return par_; }

    // Changes the record.  Call with the GIL held.
    template <typename F>
    decltype(auto) edit(F&& f) {
        std::unique_lock<std::shared_mutex> lock(mutex_);
        corrector_.reset();
        return f(par_);
    }

    // Runs f(record) with the GIL released; the record does not change
    // meanwhile.  Call with the GIL held; f must not touch Python objects.
    template <typename F>
    void read_released(F&& f) const {
        std::shared_lock<std::shared_mutex> lock(mutex_);
        struct Unlock {  // unlocks before the GIL comes back
            std::shared_lock<std::shared_mutex>& l;
            ~Unlock() { l.unlock(); }
        };
        py::gil_scoped_release release;
        Unlock unlock{lock};
        f(par_);
    }

    // f(record, corrector) with the GIL released.
    template <typename F>
    void correct_released(F&& f) {
        if (!corrector_) corrector_ = std::make_unique<Corrector>(par_);
        const Corrector& c = *corrector_;
        read_released([&](const tagLenPar& p) { f(p, c); });
    }

    std::string path;    // the file it was loaded from or saved to; empty for a new one
    std::string format;  // "data file", "correction table", or empty
    std::string field_size_from = workflow::field_size_source(workflow::FieldSizeFrom::Default);

private:
    tagLenPar par_;
    std::unique_ptr<Corrector> corrector_;
    mutable std::shared_mutex mutex_;
};

// A simulated head that can be used without the GIL: a lens model is
// copied (Python may change its values meanwhile); measured data cannot
// change.
class HeldHead {
public:
    explicit HeldHead(const workflow::Head& h);
    HeldHead(const HeldHead&) = delete;
    HeldHead& operator=(const HeldHead&) = delete;
    const workflow::Head& get() const { return lens_ ? *lens_ : *head_; }

private:
    const workflow::Head* head_;
    std::optional<workflow::LensModel> lens_;
};

// Writes a text file whole or not at all; throws CalibrationError.
void write_text_file(const std::string& path, const std::string& text);

// A Calibration from a file the workflow loaded.
Calibration loaded(workflow::Calibration&& cal);

// Adds the Calibration class and load() to the module.
void bind_calibration(py::module_& m);
// Adds the head models, simulation, evaluation and checks.
void bind_workflow(py::module_& m);
// Adds plans, marking jobs, measurement import and table writing.
void bind_plans(py::module_& m);

// Raised as vrncal.CalibrationError, with the file (and the line and key,
// where known) as attributes.  The workflow's own errors (workflow::Error)
// become CalibrationError too, with the message only.
struct CalibrationFailure : std::runtime_error {
    explicit CalibrationFailure(const std::string& message, std::string file = {}, long at_line = 0,
                                std::string at_key = {})
        : std::runtime_error(message), path(std::move(file)), line(at_line), key(std::move(at_key)) {}
    std::string path;
    long line;
    std::string key;
};

}  // namespace vrncal::python

#endif
