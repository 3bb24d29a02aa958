// Conversions between numpy arrays and the library's point records.
#ifndef VRNCAL_PYTHON_POINTS_H
#define VRNCAL_PYTHON_POINTS_H

#include <algorithm>
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
// (rows, cols, 2) ...).  C-ordered float32 is used in place and C-ordered
// float64 is rounded to float block by block while it is used (so a large
// batch is not copied first); anything else is converted to float32 once.
class PointsIn {
public:
    explicit PointsIn(const py::handle& obj);  // throws ValueError for another shape

    std::size_t count() const { return count_; }
    const py::array& array() const { return array_; }
    bool single() const { return single_; }
    std::vector<py::ssize_t> shape() const { return {array_.shape(), array_.shape() + array_.ndim()}; }

    // Calls f(in, out, n) on consecutive blocks of the points, out being the
    // matching block of dst (count() points).  in may be that same block,
    // holding the points rounded to float.  Touches no Python object.
    template <typename F>
    void blocks(tagKelPointF* dst, F&& f) const {
        if (single_) {
            f(reinterpret_cast<const tagKelPointF*>(array_.data()), dst, count_);
            return;
        }
        const double* src = static_cast<const double*>(array_.data());
        constexpr std::size_t kBlock = 2048;  // stays in the first-level cache
        for (std::size_t at = 0; at < count_; at += kBlock) {
            const std::size_t n = std::min(kBlock, count_ - at);
            for (std::size_t i = 0; i < n; ++i)
                dst[at + i] = tagKelPointF{static_cast<float>(src[2 * (at + i)]),
                                           static_cast<float>(src[2 * (at + i) + 1])};
            f(dst + at, dst + at, n);
        }
    }

private:
    py::array array_;
    bool single_ = true;
    std::size_t count_ = 0;
};

// Where results go: out when it is given (not None), which must be a
// writable C-ordered float32 array of the points' shape and may be the
// points themselves but must not otherwise overlap them; else a new array.
// Throws ValueError.
FloatArray points_out(const PointsIn& in, const py::object& out);
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
