// The calibration workflow, as the command-line tool runs it: the simulated
// heads, simulate, evaluate, check and the data behind plot.  Everything here
// calls workflow/; nothing is computed twice.
#include <filesystem>
#include <optional>
#include <vector>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include "calibration.h"
#include "points.h"
#include "workflow/calfile.h"
#include "workflow/check.h"
#include "workflow/evaluate.h"
#include "workflow/head.h"
#include "workflow/lens.h"
#include "workflow/measured_head.h"
#include "workflow/plot_data.h"
#include "workflow/simulate.h"
#include "workflow/table_file.h"

namespace vrncal::python {

namespace {

using workflow::Head;
using workflow::LensModel;
using workflow::MeasuredHead;

// A list of polylines as (k, 2) float64 arrays.
py::list lines_array(const std::vector<std::vector<workflow::PlotPoint>>& lines) {
    py::list out;
    for (const auto& line : lines) {
        py::array_t<double> a({static_cast<py::ssize_t>(line.size()), py::ssize_t{2}});
        auto r = a.mutable_unchecked<2>();
        for (std::size_t i = 0; i < line.size(); ++i) {
            r(static_cast<py::ssize_t>(i), 0) = line[i].x;
            r(static_cast<py::ssize_t>(i), 1) = line[i].y;
        }
        out.append(a);
    }
    return out;
}

Calibration simulate(const HeldHead& held, const std::vector<int>& grids, double field_size, double val_size,
                     bool xy_flip, bool x_invert, bool y_invert, double noise_um, std::uint64_t seed,
                     const std::optional<std::filesystem::path>& out) {
    workflow::SimulateOptions opt;
    opt.head = &held.get();
    opt.grids = grids;
    workflow::check_field_size(field_size, "simulate: field_size");
    opt.field_size = field_size;
    opt.val_size = val_size;
    opt.xy_flip = xy_flip, opt.x_invert = x_invert, opt.y_invert = y_invert;
    opt.noise_um = noise_um;
    opt.seed = seed;
    std::string text;
    {
        py::gil_scoped_release release;
        text = workflow::table_text(workflow::simulate_calibration(opt));
    }
    // The table is loaded as a machine would load it: from the file asked
    // for, or through a temporary one.
    if (out) {
        write_text_file(out->string(), text);
        return loaded(workflow::load_calibration(out->string()));
    }
    Calibration cal(workflow::load_table_text(text, field_size), "", "");
    cal.field_size_from = workflow::field_size_source(workflow::FieldSizeFrom::Table);
    return cal;
}

}  // namespace

HeldHead::HeldHead(const Head& h) : head_(&h) {
    if (const auto* lens = dynamic_cast<const LensModel*>(&h)) lens_ = *lens;
}

void bind_workflow(py::module_& m) {
    py::class_<Head>(m, "Head", R"doc(
A simulated scan head: where the spot lands when the head is driven to
device counts.  LensModel (the analytic lens) and MeasuredHead (measured
data) are heads.
)doc")
        .def(
            "land",
            [](const Head& model, const Calibration& cal, const py::handle& counts) {
                const HeldHead held(model);
                const Head& head = held.get();
                head.check_range(cal.par());
                const PointsIn in(counts);
                py::array_t<double> out(in.shape());
                double* xy = out.mutable_data();
                std::vector<tagKelPointF> buffer(in.count());
                cal.read_released([&](const tagLenPar& p) {
                    in.blocks(buffer.data(), [&](const tagKelPointF* a, tagKelPointF* b, std::size_t n) {
                        const std::size_t at = static_cast<std::size_t>(b - buffer.data());
                        for (std::size_t i = 0; i < n; ++i) {
                            const auto hit = workflow::land_in_caller_frame(head, p, a[i]);
                            xy[2 * (at + i)] = hit.x;
                            xy[2 * (at + i) + 1] = hit.y;
                        }
                    });
                });
                return out;
            },
            py::arg("calibration"), py::arg("counts"), R"doc(
Where the spot lands (field units, float64, the shape of counts) when the
head is driven to the device points counts, in the caller's frame (the
frame the calibration's flags map field points from); the calibration
supplies resolution, field size and flags.
)doc")
        .def("describe", &Head::describe, "A few lines describing the head, as a simulated table's comments show.");

    py::class_<LensModel, Head>(m, "LensModel", R"doc(
The analytic head: two galvanometer mirrors in front of an f-theta lens (the
model `vrncal simulate --help` describes).  Field units are mm.

LensModel(focal=160, separation=12, distance=35, distortion=0.02,
          rotation=0, offset_x=0, offset_y=0, gain_x=0, gain_y=0)
)doc")
        .def(py::init([](double focal, double separation, double distance, double distortion, double rotation,
                         double offset_x, double offset_y, double gain_x, double gain_y) {
                 LensModel l;
                 l.focal = focal, l.separation = separation, l.distance = distance, l.distortion = distortion;
                 l.rotation = rotation, l.offset_x = offset_x, l.offset_y = offset_y;
                 l.gain_x = gain_x, l.gain_y = gain_y;
                 workflow::check_lens(l);
                 return l;
             }),
             py::kw_only(), py::arg("focal") = 160.0, py::arg("separation") = 12.0, py::arg("distance") = 35.0,
             py::arg("distortion") = 0.02, py::arg("rotation") = 0.0, py::arg("offset_x") = 0.0,
             py::arg("offset_y") = 0.0, py::arg("gain_x") = 0.0, py::arg("gain_y") = 0.0)
        .def_static(
            "from_file", [](const std::filesystem::path& p) { return workflow::read_lens_file(p.string()); },
            py::arg("path"), "Reads a lens file: an INI file with a [lens] section (examples/lens.ini).")
        .def_readwrite("focal", &LensModel::focal)
        .def_readwrite("separation", &LensModel::separation)
        .def_readwrite("distance", &LensModel::distance)
        .def_readwrite("distortion", &LensModel::distortion)
        .def_readwrite("rotation", &LensModel::rotation)
        .def_readwrite("offset_x", &LensModel::offset_x)
        .def_readwrite("offset_y", &LensModel::offset_y)
        .def_readwrite("gain_x", &LensModel::gain_x)
        .def_readwrite("gain_y", &LensModel::gain_y)
        .def("to_ini", &workflow::lens_to_ini, "The lens as the text of a lens file.")
        .def("__repr__", [](const LensModel& l) {
            return py::str("LensModel(focal={}, separation={}, distance={}, distortion={}, rotation={}, "
                           "offset_x={}, offset_y={}, gain_x={}, gain_y={})")
                .format(l.focal, l.separation, l.distance, l.distortion, l.rotation, l.offset_x, l.offset_y,
                        l.gain_x, l.gain_y);
        });

    py::class_<MeasuredHead, Head>(m, "MeasuredHead", R"doc(
A head defined by measured data: the landings measured for a regular grid of
drive positions, interpolated by a natural cubic spline (the head data files
of `vrncal simulate --head`, e.g. examples/head.csv).
)doc")
        .def_static(
            "from_file", [](const std::filesystem::path& p) { return workflow::read_measured_head(p.string()); },
            py::arg("path"), "Reads a head data file: CSV with the columns u, v, x, y.")
        .def("__repr__", [](const MeasuredHead& h) {
            std::string s = "MeasuredHead(";
            for (const auto& line : h.describe()) s += (s.size() > 13 ? "; " : "") + line;
            return s + ")";
        });

    m.def(
        "simulate",
        [](const std::optional<const Head*>& head, const std::vector<int>& grids, double field_size, double val_size,
           bool xy_flip, bool x_invert, bool y_invert, double noise_um, std::uint64_t seed,
           const std::optional<std::filesystem::path>& path) {
            const LensModel lens;
            return simulate(HeldHead(head && *head ? **head : lens), grids, field_size, val_size, xy_flip, x_invert,
                            y_invert, noise_um, seed, path);
        },
        py::arg("head") = py::none(), py::arg("grids") = std::vector<int>{17}, py::arg("field_size") = 100.0,
        py::arg("val_size") = 80.0, py::arg("xy_flip") = false, py::arg("x_invert") = false,
        py::arg("y_invert") = false, py::arg("noise_um") = 0.0, py::arg("seed") = 1, py::arg("path") = py::none(),
        R"doc(
Calibrates a simulated head as `vrncal simulate` does: the nine points
marked linearly and measured, the nine-point fit, then each grid (5, 9, 17,
25, 33 or 65 points per side, in the order given) marked through the
correction as it stands and measured, with Gaussian noise of noise_um per
axis.  head: a LensModel (default LensModel()) or a MeasuredHead.  Writes
the correction table to path when given, and returns the calibration loaded
from it.
)doc");

    py::class_<workflow::Stage>(m, "Stage", "One stage of evaluate(): landing errors in micrometres.")
        .def_readonly("name", &workflow::Stage::name)
        .def_property_readonly("max_um", [](const workflow::Stage& s) { return s.stats.max; })
        .def_property_readonly("rms_um", [](const workflow::Stage& s) { return s.stats.rms; })
        .def_property_readonly("p95_um", [](const workflow::Stage& s) { return s.stats.p95; })
        .def_property_readonly("count", [](const workflow::Stage& s) { return s.stats.count; })
        .def("__repr__", [](const workflow::Stage& s) {
            return py::str("Stage({!r}, max_um={:.2f}, rms_um={:.2f}, p95_um={:.2f})")
                .format(s.name, s.stats.max, s.stats.rms, s.stats.p95);
        });

    py::object cls = m.attr("Calibration");
    cls.attr("evaluate") = py::cpp_function(
        [](const Calibration& cal, const Head& model, int pattern) {
            const HeldHead held(model);
            held.get().check_range(cal.par());
            std::vector<workflow::Stage> stages;
            cal.read_released([&](const tagLenPar& p) { stages = workflow::evaluate_stages(held.get(), p, pattern); });
            return stages;
        },
        py::name("evaluate"), py::is_method(cls), py::arg("head"), py::arg("pattern") = 101, R"doc(
The landing error on a simulated head, as `vrncal evaluate` reports it:
over a pattern x pattern raster of targets spanning +-val_size/2, the head
driven linearly, then through the nine-point correction alone, then adding
the grids one by one.  Returns one Stage per step (name, max_um, rms_um,
p95_um, count).
)doc");

    py::class_<workflow::Finding>(m, "Finding", py::dynamic_attr(),
                                  "A problem check() found: line (0: the whole file), severity, message, and "
                                  "text, the line `vrncal check` prints.")
        .def_readonly("line", &workflow::Finding::line)
        .def_property_readonly("severity",
                               [](const workflow::Finding& f) {
                                   return f.severity == workflow::Finding::Error ? "error" : "warning";
                               })
        .def_readonly("message", &workflow::Finding::message)
        .def_readonly("code", &workflow::Finding::code)
        .def("__repr__", [](const workflow::Finding& f) {
            return py::str("Finding(line={}, severity={!r}, message={!r})")
                .format(f.line, f.severity == workflow::Finding::Error ? "error" : "warning", f.message);
        });

    m.def(
        "check",
        [](const std::filesystem::path& p) {
            const std::string path = p.string();
            py::list out;
            for (const auto& f : workflow::check_calibration(path).findings) {
                py::object o = py::cast(f);
                o.attr("text") = workflow::format_finding(path, f);
                out.append(o);
            }
            return out;
        },
        py::arg("path"), R"doc(
Lints a calibration file as `vrncal check` does: a correction table as the
library reads it (with line numbers), a data file for its structure; then
the fitted coefficients.  Returns the findings (Finding: line, severity,
message, text as the tool prints it); none when the file is fine.
)doc");

    cls.attr("plot_data") = py::cpp_function(
        [](const Calibration& cal, int lines, std::optional<double> factor, std::optional<const Head*> model) {
            if (lines < 2 || lines > 201) throw py::value_error("lines must be 2 to 201");
            if (factor && !(*factor > 0.0)) throw py::value_error("factor must be positive");
            std::optional<HeldHead> held;
            if (model && *model) {
                held.emplace(**model);
                held->get().check_range(cal.par());
            }
            workflow::PlotData d;
            cal.read_released(
                [&](const tagLenPar& p) { d = workflow::plot_data(p, lines, factor, held ? &held->get() : nullptr); });
            py::dict out;
            out["val_size"] = d.val_size;
            out["nominal"] = lines_array(d.nominal);
            out["drive"] = lines_array(d.drive);
            out["factor"] = d.factor;
            out["max_deviation"] = d.max_deviation;
            if (d.cells > 0) {
                py::array_t<double> e({static_cast<py::ssize_t>(d.cells), static_cast<py::ssize_t>(d.cells)});
                std::copy(d.error_um.begin(), d.error_um.end(), e.mutable_data());
                out["error_um"] = e;
            } else {
                out["error_um"] = py::none();
            }
            return out;
        },
        py::name("plot_data"), py::is_method(cls), py::arg("lines") = 17, py::arg("factor") = py::none(),
        py::arg("head") = py::none(), R"doc(
What `vrncal plot` draws, for a matplotlib figure: a dict with 'nominal' and
'drive' (lists of (k, 2) arrays: grid lines at their nominal positions and at
the drive positions the correction gives, deviations exaggerated by
'factor'), 'max_deviation' (field units), 'val_size', and 'error_um' (with a
head: the landing error as a 120 x 120 map, row 0 at the top; else None).
)doc");
}

}  // namespace vrncal::python
