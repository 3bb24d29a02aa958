// Calibrating a real machine from Python, as `vrncal plan`, `vrncal measure
// import` and `vrncal simulate --job` do it: a new correction table, the
// marking job of each stage, the simulated machine measuring a job, the
// import of measurements, and tables written from records.
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include "calibration.h"
#include "points.h"
#include "workflow/atomic_file.h"
#include "workflow/job.h"
#include "workflow/measure.h"
#include "workflow/plan.h"
#include "workflow/simulate.h"
#include "workflow/table_file.h"

namespace vrncal::python {

namespace {

using workflow::Mark;

// A marking job: the marks of one stage, and how they were planned when
// that is known (a job read from a file does not say).
struct Job {
    int size = 3;
    std::optional<workflow::Drive> drive;
    std::vector<int> through;
    std::vector<Mark> marks;
};

// "nine" or 3, or a grid size.
int stage_size(const py::object& stage) {
    if (py::isinstance<py::str>(stage) && stage.cast<std::string>() == "nine") return 3;
    if (py::isinstance<py::int_>(stage) && workflow::is_stage_size(stage.cast<int>())) return stage.cast<int>();
    throw py::value_error("stage " + py::repr(stage).cast<std::string>() +
                          ": a stage is 'nine' (or 3) or a grid of 5, 9, 17, 25, 33 or 65 points per side");
}

template <typename Get>
py::array_t<float> mark_pairs(const Job& j, Get get) {
    py::array_t<float> a({static_cast<py::ssize_t>(j.marks.size()), py::ssize_t{2}});
    float* out = a.mutable_data();
    for (std::size_t i = 0; i < j.marks.size(); ++i) {
        const tagKelPointF p = get(j.marks[i]);
        out[2 * i] = p.x;
        out[2 * i + 1] = p.y;
    }
    return a;
}

template <typename Get>
py::array_t<int> mark_numbers(const Job& j, Get get) {
    py::array_t<int> a(static_cast<py::ssize_t>(j.marks.size()));
    for (std::size_t i = 0; i < j.marks.size(); ++i) a.mutable_data()[i] = get(j.marks[i]);
    return a;
}

// Measured positions, one per mark: an (N, 2) array.
std::vector<tagKelPointF> measured_of(const Job& j, const py::handle& measured) {
    const PointsIn in(measured);
    if (in.count() != j.marks.size() || in.shape().size() != 2)
        throw py::value_error("measured: one (x, y) per mark needed, an array of shape (" +
                              std::to_string(j.marks.size()) + ", 2)");
    std::vector<tagKelPointF> out(in.count());
    in.blocks(out.data(), [](const tagKelPointF* a, tagKelPointF* b, std::size_t n) {
        if (a != b) std::copy(a, a + n, b);
    });
    return out;
}

Job stage_job(const std::filesystem::path& table, const py::object& stage, bool linear,
              std::optional<double> field_size) {
    const workflow::StageJob s =
        workflow::stage_job(workflow::read_table_file(table.string(), workflow::LoadOptions{false, field_size}), stage_size(stage), linear);
    return Job{s.size, s.drive, s.through, s.marks};
}

FloatArray measure(const workflow::Head& model, const Job& job, const tagLenPar& settings, double noise_um,
                           std::uint64_t seed) {
    if (!(noise_um >= 0.0)) throw py::value_error("noise_um must not be negative");
    const HeldHead held(model);
    held.get().check_range(settings);
    workflow::Noise noise(seed, noise_um == 0.0 ? 0.0 : 1.0);
    const auto measured = workflow::measure_marks(held.get(), settings, job.marks, noise, noise_um);
    FloatArray out(std::vector<py::ssize_t>{static_cast<py::ssize_t>(measured.size()), 2});
    std::copy(measured.begin(), measured.end(), points_of(out));
    return out;
}

struct Imported {
    workflow::ImportResult result;
    std::string path;
};

}  // namespace

void write_text_file(const std::string& path, const std::string& text) {
    workflow::AtomicFile file(path);
    if (std::fwrite(text.data(), 1, text.size(), file.stream()) != text.size())
        throw CalibrationFailure(path + ": write failed", path);
    file.commit();
}

void bind_plans(py::module_& m) {
    py::class_<Job>(m, "Job", R"doc(
The marking job of one calibration stage: marks numbered row-major over
+-val_size/2 (index 0 top left), each with its nominal position (field
units, caller's frame) and the drive position sent to the head (counts).
)doc")
        .def_readonly("size", &Job::size, "3 for the nine points, N for an N x N grid.")
        .def_property_readonly("stage", [](const Job& j) { return workflow::stage_name(j.size); })
        .def_property_readonly(
            "drive",
            [](const Job& j) -> py::object {
                if (!j.drive) return py::none();
                return py::str(*j.drive == workflow::Drive::Linear ? "linear" : "corrected");
            },
            "'linear', 'corrected' (through the table as it stands), or None for a job read from a file.")
        .def_readonly("through", &Job::through, "The grid sizes the drive goes through.")
        .def("__len__", [](const Job& j) { return j.marks.size(); })
        .def_property_readonly("index", [](const Job& j) { return mark_numbers(j, [](const Mark& k) { return k.index; }); })
        .def_property_readonly("row", [](const Job& j) { return mark_numbers(j, [](const Mark& k) { return k.row; }); })
        .def_property_readonly("column",
                               [](const Job& j) { return mark_numbers(j, [](const Mark& k) { return k.column; }); })
        .def_property_readonly(
            "nominal", [](const Job& j) { return mark_pairs(j, [](const Mark& k) { return tagKelPointF{k.x, k.y}; }); },
            "(N, 2) float32: where each mark is meant to land, field units.")
        .def_property_readonly(
            "counts", [](const Job& j) { return mark_pairs(j, [](const Mark& k) { return tagKelPointF{k.u, k.v}; }); },
            "(N, 2) float32: the drive position of each mark, counts.")
        .def(
            "save", [](const Job& j, const std::filesystem::path& p) { write_text_file(p.string(), workflow::job_text(j.marks)); },
            py::arg("path"), "Writes the job file (CSV: index,row,column,x,y,u,v).")
        .def(
            "save_template",
            [](const Job& j, const std::filesystem::path& p) { write_text_file(p.string(), workflow::template_text(j.marks)); },
            py::arg("path"), "Writes the measurement template: the job plus empty measured_x, measured_y.")
        .def(
            "save_measured",
            [](const Job& j, const std::filesystem::path& p, const py::handle& measured) {
                write_text_file(p.string(), workflow::measured_text(j.marks, measured_of(j, measured)));
            },
            py::arg("path"), py::arg("measured"), "Writes the template filled with the measured positions (N, 2).")
        .def_static(
            "from_file",
            [](const std::filesystem::path& p) {
                Job j;
                j.marks = workflow::read_job(p.string());
                const auto n = static_cast<int>(j.marks.size());
                for (j.size = 0; (j.size + 1) * (j.size + 1) <= n;) ++j.size;
                return j;
            },
            py::arg("path"), "Reads a job file or a measurement template (the measured columns are ignored).")
        .def("__repr__", [](const Job& j) {
            return py::str("Job({}, {} marks{})")
                .format(workflow::stage_name(j.size), j.marks.size(),
                        !j.drive ? "" : *j.drive == workflow::Drive::Linear ? ", driven linearly" : ", driven through the table");
        });

    m.def(
        "plan",
        [](const std::filesystem::path& table, double field_size, double val_size, int resolution, bool xy_flip,
           bool x_invert, bool y_invert, bool replace) {
            workflow::HeadSettings s;
            s.field_size = field_size, s.val_size = val_size, s.resolution = resolution;
            s.xy_flip = xy_flip, s.x_invert = x_invert, s.y_invert = y_invert;
            workflow::create_table(table.string(), s, replace);
            return stage_job(table, py::int_(3), false, std::nullopt);
        },
        py::arg("table"), py::kw_only(), py::arg("field_size") = 100.0, py::arg("val_size") = 80.0,
        py::arg("resolution") = 65535, py::arg("xy_flip") = false, py::arg("x_invert") = false,
        py::arg("y_invert") = false, py::arg("replace") = false, R"doc(
Starts a calibration as `vrncal plan new` does: writes a new correction table
for a head (no nine points yet; an existing file only with replace=True) and
returns the marking job of its nine points, driven linearly.
)doc");

    m.def("stage_job", &stage_job, py::arg("table"), py::arg("stage"), py::kw_only(), py::arg("linear") = false,
          py::arg("field_size") = py::none(), R"doc(
The marking job of a stage, as `vrncal plan job` writes it: stage 'nine'
driven linearly, or a grid (5, 9, 17, 25, 33, 65) driven through the table
as it stands without that grid (linear=True: driven linearly, a single-pass
grid).
)doc");

    py::object head = m.attr("Head");
    head.attr("measure") = py::cpp_function(
        [](const workflow::Head& h, const Job& job, const py::object& table, double noise_um, std::uint64_t seed,
           std::optional<double> field_size) {
            if (py::isinstance<Calibration>(table)) return measure(h, job, table.cast<const Calibration&>().par(), noise_um, seed);
            const auto path = table.cast<std::filesystem::path>();
            return measure(h, job, workflow::read_table_file(path.string(), workflow::LoadOptions{false, field_size}).settings, noise_um, seed);
        },
        py::name("measure"), py::is_method(head), py::arg("job"), py::arg("table"), py::kw_only(),
        py::arg("noise_um") = 0.0, py::arg("seed") = 1, py::arg("field_size") = py::none(), R"doc(
The simulator plays the machine, as `vrncal simulate --job` does: marks the
job's drive positions on this head and measures where each mark lands, in
the caller's frame, with Gaussian noise of noise_um per axis.  table: the
correction table (a path) or a Calibration whose settings (field size,
flags) the machine runs with.  Returns an (N, 2) float32 array; write it
with job.save_measured().
)doc");

    py::class_<Imported>(m, "Imported", "What import_measurements() wrote into the table.")
        .def_property_readonly("size", [](const Imported& r) { return r.result.size; })
        .def_property_readonly("stage", [](const Imported& r) { return workflow::stage_name(r.result.size); })
        .def_property_readonly("points",
                               [](const Imported& r) {
                                   return grid_array(r.result.points.data(), static_cast<std::size_t>(r.result.size));
                               },
                               "The stage's points as the table stores them, (n, n, 4).")
        .def_property_readonly("max_deviation", [](const Imported& r) { return r.result.deviation.max; })
        .def_property_readonly("rms_deviation", [](const Imported& r) { return r.result.deviation.rms; })
        .def_property_readonly("converted", [](const Imported& r) { return r.result.converted; },
                               "A single-pass grid converted to the residual form.")
        .def_property_readonly("dropped", [](const Imported& r) { return r.result.dropped; },
                               "Sizes of the grids removed (measured through the old nine points).")
        .def("__repr__", [](const Imported& r) {
            return py::str("Imported({} into {}, measured - nominal: max {:.4g}, rms {:.4g})")
                .format(workflow::stage_name(r.result.size), r.path, r.result.deviation.max, r.result.deviation.rms);
        });

    m.def(
        "import_measurements",
        [](const std::filesystem::path& table, const std::filesystem::path& measurements, const py::object& stage,
           bool single_pass, bool as_residual, bool drop_grids, std::optional<double> field_size) {
            const workflow::TableFile t = workflow::read_table_file(table.string(), workflow::LoadOptions{false, field_size});
            workflow::ImportOptions opt;
            if (!stage.is_none()) opt.size = stage_size(stage);
            opt.single_pass = single_pass, opt.as_residual = as_residual, opt.drop_grids = drop_grids;
            Imported r{workflow::prepare_import(t, measurements.string(), opt), table.string()};
            workflow::write_import(t, r.result);
            return r;
        },
        py::arg("table"), py::arg("measurements"), py::kw_only(), py::arg("stage") = py::none(),
        py::arg("single_pass") = false, py::arg("as_residual") = false, py::arg("drop_grids") = false,
        py::arg("field_size") = py::none(), R"doc(
Imports the measured positions of one stage into the correction table, as
`vrncal measure import` does: every mark present once, numbers that make
sense, the frame and the units checked; the table gets the stage's [Cal3]
or [Cal<n>] section and is replaced only when the result loads.  A bad file
raises CalibrationError naming it and the line; the table is then
untouched.
)doc");

    py::object cls = m.attr("Calibration");
    cls.attr("save_table") = py::cpp_function(
        [](Calibration& c, const std::filesystem::path& file, const std::vector<std::string>& comments, bool force) {
            const std::string path = file.string();
            const auto notes = workflow::save_as_table(c.par(), path, comments, force);
            c.path = path;
            c.format = "correction table";
            return notes;
        },
        py::name("save_table"), py::is_method(cls), py::arg("path"), py::kw_only(),
        py::arg("comments") = std::vector<std::string>{}, py::arg("force") = false, R"doc(
Saves the calibration as a correction table (text) that loads back to the
same bits in every member the text form carries.  What the text cannot carry
(e.g. coefficients stored apart from their fit in a data file) stops the
write with CalibrationError unless force=True; returns those differences.
)doc");
}

}  // namespace vrncal::python
