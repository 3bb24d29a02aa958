#include "points.h"

#include <cmath>
#include <cstring>
#include <string>

namespace vrncal::python {

namespace {

std::string shape_text(const py::array& a) {
    std::string s = "(";
    for (py::ssize_t i = 0; i < a.ndim(); ++i) s += (i ? ", " : "") + std::to_string(a.shape(i));
    return s + (a.ndim() == 1 ? ",)" : ")");
}

FloatArray as_floats(const py::handle& obj) {
    FloatArray a = FloatArray::ensure(obj);
    if (!a) {  // numpy says why
        py::module_::import("numpy").attr("asarray")(obj, py::dtype::of<float>());
        throw py::type_error("points must be numbers");
    }
    return a;
}

}  // namespace

PointsIn::PointsIn(const py::handle& obj) {
    if (py::isinstance<py::array_t<double, py::array::c_style>>(obj)) {
        array_ = py::reinterpret_borrow<py::array>(obj);
        single_ = false;
    } else {
        array_ = as_floats(obj);
    }
    if (array_.ndim() < 1 || array_.shape(array_.ndim() - 1) != 2)
        throw py::value_error("points must be an array of shape (N, 2) (x, y in field units); got shape " +
                              shape_text(array_));
    count_ = static_cast<std::size_t>(array_.size()) / 2;
}

FloatArray points_out(const PointsIn& in, const py::object& out) {
    if (out.is_none()) return FloatArray(in.shape());
    if (!py::isinstance<py::array_t<float, py::array::c_style>>(out))
        throw py::value_error("out must be a C-ordered float32 array");
    auto a = py::reinterpret_borrow<FloatArray>(out);
    if (std::vector<py::ssize_t>(a.shape(), a.shape() + a.ndim()) != in.shape())
        throw py::value_error("out must have the shape of the points, " + shape_text(in.array()) + "; got " +
                              shape_text(a));
    if (!a.writeable()) throw py::value_error("out is read-only");
    const auto* o = reinterpret_cast<const char*>(a.data());
    const auto* p = static_cast<const char*>(in.array().data());
    const std::size_t out_bytes = in.count() * sizeof(tagKelPointF);
    const std::size_t in_bytes = in.count() * (in.single() ? sizeof(tagKelPointF) : 2 * sizeof(double));
    const bool same = in.single() && o == p;
    if (!same && in.count() > 0 && o < p + in_bytes && p < o + out_bytes)
        throw py::value_error("out overlaps the points (it may be the float32 points array itself)");
    return a;
}

py::array_t<float> grid_array(const tagCalData* points, std::size_t side) {
    const auto n = static_cast<py::ssize_t>(side);
    py::array_t<float> a({n, n, py::ssize_t{4}});
    if (side > 0) std::memcpy(a.mutable_data(), points, side * side * sizeof(tagCalData));
    // A copy: writing into it would change nothing, so it says so by refusing.
    a.attr("flags").attr("writeable") = false;
    return a;
}

std::vector<tagCalData> grid_points(const py::handle& obj, const char* what, std::size_t& side) {
    FloatArray a = as_floats(obj);
    if (a.ndim() != 3 || a.shape(0) != a.shape(1) || a.shape(2) != 4)
        throw py::value_error(std::string(what) + ": expected an array of shape (n, n, 4) (nominal x, y, measured "
                              "x, y per point); got shape " + shape_text(a));
    side = static_cast<std::size_t>(a.shape(0));
    std::vector<tagCalData> pts(side * side);
    if (!pts.empty()) std::memcpy(static_cast<void*>(pts.data()), a.data(), pts.size() * sizeof(tagCalData));
    for (std::size_t i = 0; i < pts.size(); ++i) {
        const tagCalData& p = pts[i];
        if (!std::isfinite(p.X) || !std::isfinite(p.Y) || !std::isfinite(p.RealX) || !std::isfinite(p.RealY))
            throw py::value_error(std::string(what) + ": the point at row " + std::to_string(i / side) +
                                  ", column " + std::to_string(i % side) + " is not finite");
    }
    return pts;
}

}  // namespace vrncal::python
