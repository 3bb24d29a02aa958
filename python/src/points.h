// Conversions between numpy arrays and the library's point records.
#ifndef VRNCAL_PYTHON_POINTS_H
#define VRNCAL_PYTHON_POINTS_H

#include <cstddef>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <vrncal/records.h>

namespace vrncal::python {

namespace py = pybind11;

// C-ordered float32, converted once from whatever numpy can convert.
using FloatArray = py::array_t<float, py::array::c_style | py::array::forcecast>;

static_assert(sizeof(tagKelPointF) == 2 * sizeof(float), "a point is two packed floats");
static_assert(sizeof(tagCalData) == 4 * sizeof(float), "a calibration point is four packed floats");

// Field points: any array whose last axis has length 2 ((N, 2), (2,),
// (rows, cols, 2) ...), each coordinate rounded to the nearest float.
// Throws ValueError for another shape.
struct PointsIn {
    FloatArray array;
    const tagKelPointF* data() const { return reinterpret_cast<const tagKelPointF*>(array.data()); }
    std::size_t count() const { return static_cast<std::size_t>(array.size()) / 2; }
};
PointsIn points_in(const py::handle& obj);

// A new float32 array of the shape of the input, for the results.
FloatArray points_like(const PointsIn& in);
inline tagKelPointF* points_of(FloatArray& a) { return reinterpret_cast<tagKelPointF*>(a.mutable_data()); }

// A side x side grid of calibration points as a read-only (side, side, 4)
// float32 array (nominal x, y, measured x, y), copied.
py::array_t<float> grid_array(const tagCalData* points, std::size_t side);

// The points of an (n, n, 4) array, row-major, each value rounded to float
// and required to be finite.  what names the grid in messages.  Throws
// ValueError.
std::vector<tagCalData> grid_points(const py::handle& obj, const char* what, std::size_t& side);

}  // namespace vrncal::python

#endif
