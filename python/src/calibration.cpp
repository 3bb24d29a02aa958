// vrncal.Calibration: a calibration record with its grids as numpy arrays,
// corrected in batches with the GIL released.
#include "calibration.h"

#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <optional>
#include <variant>
#include <vector>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <vrncal/calib_alg.h>
#include <vrncal/facade.h>
#include <vrncal/validate.h>

#include "points.h"
#include "workflow/calfile.h"
#include "workflow/error.h"
#include "workflow/summary.h"

namespace vrncal::python {

namespace {

// ---- named members of the record -----------------------------------------
// The views cal.coefficients, cal.flags, cal.box and cal.shift read and write
// these by the record's own names.

using MemberRef = std::variant<double*, int*, float*>;

struct Member {
    std::string group;
    std::string name;
    std::function<MemberRef(tagLenPar&)> ref;
};

#define VRNCAL_MEMBER(group, name, expr) \
    Member { group, name, [](tagLenPar& p) -> MemberRef { return &(expr); } }

const std::vector<Member>& members() {
    static const std::vector<Member> all = [] {
        std::vector<Member> m = {
            VRNCAL_MEMBER("coefficients", "LinX", p.CalCoefs.LinX),
            VRNCAL_MEMBER("coefficients", "QuadX", p.CalCoefs.QuadX),
            VRNCAL_MEMBER("coefficients", "LinY", p.CalCoefs.LinY),
            VRNCAL_MEMBER("coefficients", "QuadY", p.CalCoefs.QuadY),
            VRNCAL_MEMBER("coefficients", "AxisXL", p.CalCoefs.AxisXL),
            VRNCAL_MEMBER("coefficients", "AxisXR", p.CalCoefs.AxisXR),
            VRNCAL_MEMBER("coefficients", "AxisYT", p.CalCoefs.AxisYT),
            VRNCAL_MEMBER("coefficients", "AxisYB", p.CalCoefs.AxisYB),
            VRNCAL_MEMBER("coefficients", "OX", p.CalCoefs.OX),
            VRNCAL_MEMBER("coefficients", "OY", p.CalCoefs.OY),
            VRNCAL_MEMBER("coefficients", "SXL", p.CalCoefs.SXL),
            VRNCAL_MEMBER("coefficients", "SXR", p.CalCoefs.SXR),
            VRNCAL_MEMBER("coefficients", "ScaleX", p.CalCoefs.ScaleX),
            VRNCAL_MEMBER("coefficients", "SYT", p.CalCoefs.SYT),
            VRNCAL_MEMBER("coefficients", "SYB", p.CalCoefs.SYB),
            VRNCAL_MEMBER("coefficients", "ScaleY", p.CalCoefs.ScaleY),
            VRNCAL_MEMBER("coefficients", "TXL", p.CalCoefs.TXL),
            VRNCAL_MEMBER("coefficients", "TXR", p.CalCoefs.TXR),
            VRNCAL_MEMBER("coefficients", "TYT", p.CalCoefs.TYT),
            VRNCAL_MEMBER("coefficients", "TYB", p.CalCoefs.TYB),
            VRNCAL_MEMBER("coefficients", "PLX", p.CalCoefs.PLX),
            VRNCAL_MEMBER("coefficients", "PLY", p.CalCoefs.PLY),
            VRNCAL_MEMBER("coefficients", "Y2XAngle", p.CalCoefs.Y2XAngle),
            VRNCAL_MEMBER("flags", "XYFlip", p.XYFlip),
            VRNCAL_MEMBER("flags", "XInvert", p.XInvert),
            VRNCAL_MEMBER("flags", "YInvert", p.YInvert),
            VRNCAL_MEMBER("flags", "LEN_XYFLIP", p.LEN_XYFLIP),
            VRNCAL_MEMBER("flags", "LEN_XINVERT", p.LEN_XINVERT),
            VRNCAL_MEMBER("flags", "LEN_YINVERT", p.LEN_YINVERT),
            VRNCAL_MEMBER("box", "BoxOffsetX", p.BoxOffsetX),
            VRNCAL_MEMBER("box", "BoxOffsetY", p.BoxOffsetY),
            VRNCAL_MEMBER("box", "BoxBarrelX", p.BoxBarrelX),
            VRNCAL_MEMBER("box", "BoxBarrelY", p.BoxBarrelY),
            VRNCAL_MEMBER("box", "BoxSkewX", p.BoxSkewX),
            VRNCAL_MEMBER("box", "BoxSkewY", p.BoxSkewY),
            VRNCAL_MEMBER("box", "BoxTrapX", p.BoxTrapX),
            VRNCAL_MEMBER("box", "BoxTrapY", p.BoxTrapY),
            VRNCAL_MEMBER("box", "BoxScaleX", p.BoxScaleX),
            VRNCAL_MEMBER("box", "BoxScaleY", p.BoxScaleY),
            VRNCAL_MEMBER("box", "BoxGrid", p.BoxGrid),
            VRNCAL_MEMBER("box", "BoxLineCount", p.BoxLineCount),
            VRNCAL_MEMBER("shift", "SftShiftX", p.SftShiftX),
            VRNCAL_MEMBER("shift", "SftShiftY", p.SftShiftY),
            VRNCAL_MEMBER("shift", "SftScaleX", p.SftScaleX),
            VRNCAL_MEMBER("shift", "SftScaleY", p.SftScaleY),
        };
        // After Y2XAngle, in the record's order: k0 .. k19, s0 .. s7.
        auto at = m.begin() + 23;
        for (int i = 0; i < 20; ++i)
            at = m.insert(at, Member{"coefficients", "k" + std::to_string(i),
                                     [i](tagLenPar& p) -> MemberRef { return &p.CalCoefs.k[i]; }}) + 1;
        for (int i = 0; i < 8; ++i)
            at = m.insert(at, Member{"coefficients", "s" + std::to_string(i),
                                     [i](tagLenPar& p) -> MemberRef { return &p.CalCoefs.s[i]; }}) + 1;
        return m;
    }();
    return all;
}

#undef VRNCAL_MEMBER

const Member& member(const std::string& name) {
    for (const auto& m : members())
        if (m.name == name) return m;
    throw py::key_error(name);
}

std::vector<std::string> member_names(const std::string& group) {
    std::vector<std::string> names;
    for (const auto& m : members())
        if (m.group == group) names.push_back(m.name);
    if (names.empty()) throw py::key_error(group);
    return names;
}

py::object get_member(const Calibration& cal, const std::string& name) {
    // Only read through: the table hands out references to a mutable record.
    const MemberRef r = member(name).ref(const_cast<tagLenPar&>(cal.par()));
    if (auto d = std::get_if<double*>(&r)) return py::float_(**d);
    if (auto f = std::get_if<float*>(&r)) return py::float_(**f);
    return py::int_(*std::get<int*>(r));
}

void set_member(Calibration& cal, const std::string& name, const py::object& value) {
    const Member& m = member(name);
    tagLenPar probe;
    const MemberRef kind = m.ref(probe);
    if (std::holds_alternative<int*>(kind)) {
        if (!py::isinstance<py::int_>(value))  // bool is an int
            throw py::type_error(name + ": an integer is needed");
        const py::int_ lo(std::numeric_limits<int>::min()), hi(std::numeric_limits<int>::max());
        if (value < lo || value > hi)
            throw py::value_error(name + ": " + py::repr(value).cast<std::string>() + " does not fit a 32-bit integer");
        const long long v = value.cast<long long>();
        if (name == "BoxLineCount" && (v < 0 || v > 100))
            throw py::value_error("BoxLineCount: the box line tables have 0 to 100 rows");
        cal.edit([&](tagLenPar& p) { *std::get<int*>(m.ref(p)) = static_cast<int>(v); });
        return;
    }
    if (py::isinstance<py::str>(value) || py::isinstance<py::bytes>(value))
        throw py::type_error(name + ": a number is needed");
    const double v = py::float_(value).cast<double>();
    const bool single = std::holds_alternative<float*>(kind);
    if (!std::isfinite(single ? static_cast<double>(static_cast<float>(v)) : v))
        throw py::value_error(name + ": " + py::repr(value).cast<std::string>() + " is not a finite number" +
                              (single ? " in single precision" : ""));
    cal.edit([&](tagLenPar& p) {
        const MemberRef r = m.ref(p);
        if (single)
            *std::get<float*>(r) = static_cast<float>(v);
        else
            *std::get<double*>(r) = v;
    });
}

// A field size argument, as the workflow accepts it; ValueError otherwise.
void field_size_arg(double v, const char* what) {
    try {
        workflow::check_field_size(v, what);
    } catch (const workflow::Error& e) {
        throw py::value_error(e.what());
    }
}

double positive(double v, const char* what) {
    if (!std::isfinite(v) || !(v > 0.0))
        throw py::value_error(std::string(what) + " must be a finite number above 0");
    return v;
}

// ---- grids ----------------------------------------------------------------

std::size_t grid_index(const Calibration& cal, py::ssize_t i, bool append_ok = false) {
    const auto n = static_cast<py::ssize_t>(cal.par().Stacks.size());
    const py::ssize_t at = i < 0 ? i + n : i;
    if (at < 0 || at > n || (at == n && !append_ok))
        throw py::index_error("grid index " + std::to_string(i) + " out of range (" + std::to_string(n) +
                              " grids)");
    return static_cast<std::size_t>(at);
}

// A grid from an (n, n, 4) array; InOrder 1, as a table whose fit order
// reaches every grid gives it.
tagStack make_stack(const py::handle& values, std::size_t index) {
    const std::string what = "grid " + std::to_string(index);
    tagStack s;
    std::size_t side = 0;
    s.Points = grid_points(values, what.c_str(), side);
    if (side < 2) throw py::value_error(what + ": a grid has at least 2 points per side");
    s.Size = static_cast<int>(side);
    s.InOrder = 1;
    return s;
}

void put_grid(Calibration& cal, py::ssize_t i, const py::handle& values, bool insert) {
    const std::size_t at = grid_index(cal, i, insert);
    tagStack s = make_stack(values, at);
    cal.edit([&](tagLenPar& p) {
        if (insert)
            p.Stacks.insert(p.Stacks.begin() + static_cast<std::ptrdiff_t>(at), std::move(s));
        else
            p.Stacks[at] = std::move(s);
    });
}

// ---- validation ------------------------------------------------------------

struct Problem {
    std::string code;
    std::optional<int> grid;
    std::string message;
};

std::vector<Problem> problems(const Calibration& cal) {
    std::vector<Problem> out;
    for (const auto& p : vrncal::validate(cal.par()))
        out.push_back({vrncal::problemCodeName(p.code), p.stack >= 0 ? std::optional<int>(p.stack) : std::nullopt,
                       p.message});
    return out;
}

// ---- corrections ----------------------------------------------------------

// Corrected: the batch corrector; Facade: VrnCal::CalibPoint point by point,
// the reference the batch is held to.
enum class Conversion { Corrected, Facade, Linear, Shifted };

FloatArray convert(Calibration& cal, const py::handle& points, Conversion conv, const py::object& into = py::none()) {
    const PointsIn in(points);
    FloatArray out = points_out(in, into);
    tagKelPointF* dst = points_of(out);
    if (conv == Conversion::Corrected) {
        cal.correct_released([&](const tagLenPar&, const Corrector& c) {
            in.blocks(dst, [&](const tagKelPointF* a, tagKelPointF* b, std::size_t n) { c.correct(a, b, n); });
        });
        return out;
    }
    cal.read_released([&](const tagLenPar& par) {
        VrnCal vc;
        in.blocks(dst, [&](const tagKelPointF* a, tagKelPointF* b, std::size_t n) {
            for (std::size_t i = 0; i < n; ++i) {
                const tagKelPointF p = a[i];  // a and b may be the same block
                if (conv == Conversion::Facade)
                    vc.CalibPoint(par, p, b[i]);
                else if (conv == Conversion::Linear)
                    vc.LP2DPEX_Cal(p, b[i], par);
                else
                    vc.LP2DPEX_SFT(p, b[i], par, true);
            }
        });
    });
    return out;
}

std::string describe(const Calibration& cal) {
    const tagLenPar& p = cal.par();
    const std::string heading =
        cal.path.empty() ? std::string("new calibration (not saved)")
                         : workflow::info_heading(cal.path, cal.format == "data file");
    return workflow::info_text(heading, p, cal.field_size_from) +
           (p.CalMode != 0 ? "  mode          grid correction (CalMode " + std::to_string(p.CalMode) + ")\n"
                           : std::string("  mode          box correction (CalMode 0)\n"));
}

// The line of a table that a workflow message names as "PATH:LINE: ...".
long line_of(const std::string& message, const std::string& path) {
    if (message.compare(0, path.size() + 1, path + ":") != 0) return 0;
    std::size_t i = path.size() + 1, end = i;
    while (end < message.size() && end - i < 9 && message[end] >= '0' && message[end] <= '9') ++end;
    return end > i && end < message.size() && message[end] == ':' ? std::stol(message.substr(i, end - i)) : 0;
}

Calibration load(const std::filesystem::path& file, std::optional<double> field_size, bool force) {
    const std::string path = file.string();
    if (field_size) field_size_arg(*field_size, "field_size");
    try {
        return loaded(workflow::load_calibration(path, workflow::LoadOptions{force, field_size}));
    } catch (const workflow::Error& e) {
        throw CalibrationFailure(e.what(), path, line_of(e.what(), path));
    }
}

}  // namespace

Calibration loaded(workflow::Calibration&& cal) {
    Calibration c(std::move(cal.par), cal.path, cal.data_file ? "data file" : "correction table");
    c.field_size_from = workflow::field_size_source(cal.field_size_from);
    return c;
}

void bind_calibration(py::module_& m) {
    m.def("_load", &load, py::arg("path"), py::arg("field_size") = py::none(), py::arg("force") = false);

    py::class_<Problem>(m, "Problem", "A reason the correction cannot make sense (Calibration.validate()).")
        .def_readonly("code", &Problem::code, "Stable code, e.g. 'grid-too-few-points'.")
        .def_readonly("grid", &Problem::grid, "The grid concerned, or None.")
        .def_readonly("message", &Problem::message, "One line for people.")
        .def("__repr__", [](const Problem& p) {
            return py::str("Problem({!r}, grid={!r}, message={!r})").format(p.code, p.grid, p.message);
        });

    py::class_<Calibration>(m, "Calibration", R"doc(
A lens calibration: one calibration record, as a host of the library keeps it.

Load one with vrncal.load(path); Calibration() is a new record with the
library's defaults in grid-correction mode.  Record members are attributes
(resolution, field_size, ...) and views (coefficients, flags, box, shift);
grids are numpy arrays.  correct() maps field points to device counts.
)doc")
        .def(py::init([] {
            Calibration c;
            c.edit([](tagLenPar& p) { p.CalMode = 1; });
            return c;
        }))
        .def("copy", [](const Calibration& c) { return Calibration(c); }, "An independent copy of the calibration.")
        .def("__copy__", [](const Calibration& c) { return Calibration(c); })
        .def("__deepcopy__", [](const Calibration& c, py::handle) { return Calibration(c); })
        .def("__repr__", [](const Calibration& c) { std::string s = describe(c); s.pop_back(); return s; })
        .def_readonly("path", &Calibration::path, "The file it was loaded from or last saved to ('' if none).")
        .def_readonly("format", &Calibration::format,
                      "'correction table', 'data file', or '' for a calibration not loaded from a file.")
        .def_property(
            "resolution", [](const Calibration& c) { return c.par().Resolution; },
            [](Calibration& c, int v) {
                if (v < 1) throw py::value_error("resolution must be at least 1 count");
                c.edit([v](tagLenPar& p) { p.Resolution = v; });
            },
            "Device range in counts: device coordinates run from 0 to resolution (Resolution).")
        .def_property(
            "half_resolution", [](const Calibration& c) { return c.par().HalfResolution; },
            [](Calibration& c, int v) {
                if (v < 0) throw py::value_error("half_resolution must not be negative");
                c.edit([v](tagLenPar& p) {
                    p.HalfResolution = v;
                    p.HalfResolutionSq = static_cast<double>(v) * v;
                });
            },
            "Device centre in counts (HalfResolution).  A data file derives it from the resolution on "
            "load; a correction table leaves the default 32768.")
        .def_property(
            "field_size", [](const Calibration& c) { return c.par().FieldSize; },
            [](Calibration& c, double v) {
                field_size_arg(v, "field_size");
                c.edit([v](tagLenPar& p) { p.FieldSize = v; });
                c.field_size_from = workflow::field_size_source(workflow::FieldSizeFrom::Given);
            },
            "Field units spanned by the resolution, for the linear conversion (FieldSize), above 1.")
        .def_property(
            "val_size", [](const Calibration& c) { return c.par().ValSize; },
            [](Calibration& c, double v) {
                positive(v, "val_size");
                c.edit([v](tagLenPar& p) { p.ValSize = v; });
            },
            "The calibrated field in field units: grid pitch and clamping (ValSize).")
        .def_property(
            "mode", [](const Calibration& c) { return std::string(c.par().CalMode != 0 ? "grid" : "box"); },
            [](Calibration& c, const std::string& v) {
                if (v != "grid" && v != "box") throw py::value_error("mode must be 'grid' or 'box'");
                c.edit([&](tagLenPar& p) { p.CalMode = v == "grid" ? 1 : 0; });
            },
            "'grid' (the nine-point model plus the grids; CalMode 1) or 'box' (the box correction; CalMode "
            "0).  Files do not store it; a loaded calibration is in grid mode.")
        .def_static("_member_names", &member_names)
        .def("_get", &get_member)
        .def("_set", &set_member)
        .def_property(
            "nine_points",
            [](const Calibration& c) { return grid_array(c.par().CalCoefs.Cal3Pnts, 3); },
            [](Calibration& c, const py::handle& v) {
                std::size_t side = 0;
                const auto pts = grid_points(v, "nine_points", side);
                if (side != 3) throw py::value_error("nine_points: expected an array of shape (3, 3, 4)");
                c.edit([&](tagLenPar& p) { std::copy(pts.begin(), pts.end(), p.CalCoefs.Cal3Pnts); });
            },
            "The 3 x 3 calibration points (Cal3Pnts) as a (3, 3, 4) float32 array: nominal x, y, measured "
            "x, y; row 0 is the top row.  Reading gives a read-only copy; assign a new array to change them "
            "(then call fit()).")
        .def("_grid_count", [](const Calibration& c) { return c.par().Stacks.size(); })
        .def("_grid",
             [](const Calibration& c, py::ssize_t i) {
                 const tagStack& s = c.par().Stacks[grid_index(c, i)];
                 const std::size_t side = static_cast<std::size_t>(std::max(s.Size, 0));
                 if (s.Points.size() < side * side)
                     throw CalibrationFailure("grid " + std::to_string(i) + " holds " +
                                              std::to_string(s.Points.size()) + " points, fewer than " +
                                              std::to_string(side) + " x " + std::to_string(side));
                 return grid_array(s.Points.data(), side);
             })
        .def("_set_grid", [](Calibration& c, py::ssize_t i, const py::handle& v) { put_grid(c, i, v, false); })
        .def("_insert_grid", [](Calibration& c, py::ssize_t i, const py::handle& v) { put_grid(c, i, v, true); })
        .def("_set_grids",
             [](Calibration& c, const py::sequence& grids) {
                 std::vector<tagStack> stacks;
                 for (std::size_t i = 0; i < grids.size(); ++i) stacks.push_back(make_stack(grids[i], i));
                 c.edit([&](tagLenPar& p) { p.Stacks = std::move(stacks); });
             })
        .def("_delete_grid",
             [](Calibration& c, py::ssize_t i) {
                 const std::size_t at = grid_index(c, i);
                 c.edit([at](tagLenPar& p) { p.Stacks.erase(p.Stacks.begin() + static_cast<std::ptrdiff_t>(at)); });
             })
        .def(
            "correct",
            [](Calibration& c, const py::handle& pts, const py::object& out) {
                return convert(c, pts, Conversion::Corrected, out);
            },
            py::arg("points"), py::kw_only(), py::arg("out") = py::none(), R"doc(
Field points to device counts through the correction the mode selects.

points: any array of shape (N, 2) (or (..., 2)) of x, y in field units;
each coordinate is rounded to the nearest float once.  Returns a float32
array of the same shape with exactly the bits VrnCal::CalibPoint gives for
each point.  Runs without the GIL.  out: a float32 array of that shape to
write the counts into instead of a new one (the points array itself when it
is float32), so that a loop over many batches allocates nothing.
)doc")
        .def(
            "correct_linear",
            [](Calibration& c, const py::handle& pts, const py::object& out) {
                return convert(c, pts, Conversion::Linear, out);
            },
            py::arg("points"), py::kw_only(), py::arg("out") = py::none(),
            "Field points to device counts by the plain linear conversion with the lens flags, without "
            "correction (VrnCal::LP2DPEX_Cal); clamped to 0 .. resolution.")
        .def(
            "correct_shifted",
            [](Calibration& c, const py::handle& pts, const py::object& out) {
                return convert(c, pts, Conversion::Shifted, out);
            },
            py::arg("points"), py::kw_only(), py::arg("out") = py::none(),
            "The correction, then the scale about the device centre and the shift of the 'shift' view "
            "(VrnCal::LP2DPEX_SFT with the scale-and-shift step on); clamped.")
        .def(
            "correct_point",
            [](const Calibration& c, float x, float y) {
                tagKelPointF out{};
                VrnCal().CalibPoint(c.par(), tagKelPointF{x, y}, out);
                return py::make_tuple(out.x, out.y);
            },
            py::arg("x"), py::arg("y"),
            "One point through the facade, VrnCal::CalibPoint: (x, y) counts as Python floats holding the "
            "float32 values.")
        // The references the batch path is held to: the facade point by
        // point (for the tests), and the C++ batch call timed on the same
        // points (for bench/python_bench.py).
        .def("_correct_facade",
             [](Calibration& c, const py::handle& pts) { return convert(c, pts, Conversion::Facade); })
        .def("_time_batch",
             [](Calibration& c, const FloatArray& in, FloatArray& out, int repeats) {
                 if (in.ndim() != 2 || in.shape(1) != 2 || out.ndim() != 2 || out.shape(0) != in.shape(0) ||
                     out.shape(1) != 2)
                     throw py::value_error("points and out: (N, 2) float32 arrays needed");
                 const auto n = static_cast<std::size_t>(in.shape(0));
                 const auto* src = reinterpret_cast<const tagKelPointF*>(in.data());
                 tagKelPointF* dst = points_of(out);
                 double best = std::numeric_limits<double>::infinity();
                 c.correct_released([&](const tagLenPar&, const Corrector& k) {
                     for (int r = 0; r < repeats; ++r) {
                         const auto t0 = std::chrono::steady_clock::now();
                         k.correct(src, dst, n);
                         const std::chrono::duration<double> t = std::chrono::steady_clock::now() - t0;
                         best = std::min(best, t.count());
                     }
                 });
                 return best;
             })
        .def(
            "fit",
            [](Calibration& c) {
                workflow::NineFit f = workflow::fit_nine_points(c.par());
                c.edit([&](tagLenPar& p) { p.CalCoefs = f.fitted.CalCoefs; });
                py::array_t<double> res({py::ssize_t{3}, py::ssize_t{3}, py::ssize_t{2}});
                auto r = res.mutable_unchecked<3>();
                for (py::ssize_t i = 0; i < 9; ++i) {
                    r(i / 3, i % 3, 0) = f.residuals[static_cast<std::size_t>(i)].dx_um;
                    r(i / 3, i % 3, 1) = f.residuals[static_cast<std::size_t>(i)].dy_um;
                }
                return res;
            },
            R"doc(
Fits the nine-point coefficients again from nine_points, in place (as the
library does before every save).  Returns the residuals as a (3, 3, 2)
array in micrometres (field units taken as mm): for each of the nine points,
how far the correction of its measured position drives from where its
nominal position is driven linearly.
)doc")
        .def("validate", &problems, R"doc(
The problems that make the correction meaningless, [] when there are none:
non-finite coefficients or terms, field sizes that are not positive, a
resolution below 1, grids with too few points or that can never take effect
... Each Problem has a stable code, the grid concerned and a message.
)doc")
        .def(
            "save",
            [](Calibration& c, const std::filesystem::path& file) {
                const std::string path = file.string();
                tagLenPar saved = c.par();
                try {
                    workflow::save_data_file(saved, path);
                } catch (const workflow::Error& e) {
                    throw CalibrationFailure(e.what(), path);
                }
                c.edit([&](tagLenPar& p) { p.CalCoefs = saved.CalCoefs; });
                c.field_size_from = workflow::field_size_source(workflow::FieldSizeFrom::DataFile);
                c.path = path;
                c.format = "data file";
            },
            py::arg("path"), R"doc(
Saves the calibration as a binary data file.  The library fits the
coefficients again from the nine points first, so the calibration in memory
takes the fitted coefficients too.  The file is replaced only when
complete.
)doc")
        .def(
            "apply_box_file",
            [](Calibration& c, const std::filesystem::path& file) {
                const std::string path = file.string();
                c.edit([&](tagLenPar& p) {
                    tagLenPar changed = p;  // a bad file leaves the record as it was
                    workflow::apply_box_file(path, changed);
                    p = std::move(changed);
                });
            },
            py::arg("path"),
            "Sets box-correction parameters from an INI file with a [Box] section (BoxScaleX=100.4, "
            "BoxXT0=-40, ...), as `vrncal correct --box` does.  Does not change the mode.");
}

}  // namespace vrncal::python
