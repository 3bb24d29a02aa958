// The C API: an opaque handle around one record, with the batch corrector
// built from it after every change, so that correcting only reads.
#include "vrncal/vrncal_c.h"

#include <cmath>
#include <exception>
#include <memory>
#include <new>
#include <string>

#include "vrncal/batch.h"
#include "vrncal/calib_alg.h"
#include "vrncal/facade.h"
#include "vrncal/file_io.h"
#include "vrncal/validate.h"
#include "vrncal/version.h"

struct vrncal_calibration {
    tagLenPar par;
    // Built from par after every change; null only when building it ran out
    // of memory, and then the facade corrects point by point.
    std::unique_ptr<vrncal::Corrector> corrector;
    std::string message;

    void changed() {
        corrector.reset();
        corrector = std::make_unique<vrncal::Corrector>(par);
    }
};

namespace {

// Runs a call that changes the handle: the message says why it failed, and
// no exception leaves the library.
template <typename F>
vrncal_status guarded(vrncal_calibration* cal, F&& f) {
    if (cal == nullptr) return VRNCAL_ERROR_ARGUMENT;
    try {
        cal->message.clear();
        return f(*cal);
    } catch (const std::bad_alloc&) {
        cal->message = "out of memory";
        return VRNCAL_ERROR_MEMORY;
    } catch (const std::exception& e) {
        cal->message = e.what();
        return VRNCAL_ERROR_INTERNAL;
    } catch (...) {
        cal->message = "unknown failure";
        return VRNCAL_ERROR_INTERNAL;
    }
}

vrncal_status argument(vrncal_calibration& cal, const char* what) {
    cal.message = what;
    return VRNCAL_ERROR_ARGUMENT;
}

}  // namespace

extern "C" {

vrncal_calibration* vrncal_create(void) {
    try {
        auto cal = std::make_unique<vrncal_calibration>();
        cal->par.CalMode = 1;
        cal->changed();
        return cal.release();
    } catch (...) {
        return nullptr;
    }
}

void vrncal_destroy(vrncal_calibration* cal) { delete cal; }

vrncal_status vrncal_load(vrncal_calibration* cal, const char* path) {
    return guarded(cal, [&](vrncal_calibration& c) {
        if (path == nullptr) return argument(c, "vrncal_load: no path");
        tagLenPar loaded;
        const vrncal::LoadResult r = vrncal::load(path, loaded);
        if (!r) {
            c.message = r.message;
            return VRNCAL_ERROR_FILE;
        }
        loaded.CalMode = c.par.CalMode;  // files do not store the mode
        c.par = std::move(loaded);
        c.changed();
        return VRNCAL_OK;
    });
}

vrncal_status vrncal_save(vrncal_calibration* cal, const char* path) {
    return guarded(cal, [&](vrncal_calibration& c) {
        if (path == nullptr) return argument(c, "vrncal_save: no path");
        tagLenPar fitted = c.par;
        CCalibAlg::MVLSMCoef(fitted);
        const vrncal::SaveResult r = vrncal::save(path, fitted);
        if (!r) {
            c.message = r.message;
            return VRNCAL_ERROR_FILE;
        }
        c.par.CalCoefs = fitted.CalCoefs;
        c.changed();
        return VRNCAL_OK;
    });
}

const char* vrncal_message(const vrncal_calibration* cal) {
    return cal == nullptr ? "no calibration (a null handle)" : cal->message.c_str();
}

vrncal_status vrncal_set_field_size(vrncal_calibration* cal, double field_size) {
    return guarded(cal, [&](vrncal_calibration& c) {
        if (!std::isfinite(field_size) || !(field_size > 0.0))
            return argument(c, "vrncal_set_field_size: the field size must be a finite number above 0");
        c.par.FieldSize = field_size;
        c.changed();
        return VRNCAL_OK;
    });
}

vrncal_status vrncal_get_field_size(const vrncal_calibration* cal, double* field_size) {
    if (cal == nullptr || field_size == nullptr) return VRNCAL_ERROR_ARGUMENT;
    *field_size = cal->par.FieldSize;
    return VRNCAL_OK;
}

vrncal_status vrncal_set_flags(vrncal_calibration* cal, unsigned flags) {
    return guarded(cal, [&](vrncal_calibration& c) {
        if ((flags & ~VRNCAL_FLAGS_ALL) != 0) return argument(c, "vrncal_set_flags: unknown flag bits");
        tagLenPar& p = c.par;
        p.XYFlip = (flags & VRNCAL_FLAG_XY_FLIP) != 0;
        p.XInvert = (flags & VRNCAL_FLAG_X_INVERT) != 0;
        p.YInvert = (flags & VRNCAL_FLAG_Y_INVERT) != 0;
        p.LEN_XYFLIP = (flags & VRNCAL_FLAG_BOX_XY_FLIP) != 0;
        p.LEN_XINVERT = (flags & VRNCAL_FLAG_BOX_X_INVERT) != 0;
        p.LEN_YINVERT = (flags & VRNCAL_FLAG_BOX_Y_INVERT) != 0;
        c.changed();
        return VRNCAL_OK;
    });
}

vrncal_status vrncal_get_flags(const vrncal_calibration* cal, unsigned* flags) {
    if (cal == nullptr || flags == nullptr) return VRNCAL_ERROR_ARGUMENT;
    const tagLenPar& p = cal->par;
    *flags = (p.XYFlip ? VRNCAL_FLAG_XY_FLIP : 0u) | (p.XInvert ? VRNCAL_FLAG_X_INVERT : 0u) |
             (p.YInvert ? VRNCAL_FLAG_Y_INVERT : 0u) | (p.LEN_XYFLIP ? VRNCAL_FLAG_BOX_XY_FLIP : 0u) |
             (p.LEN_XINVERT ? VRNCAL_FLAG_BOX_X_INVERT : 0u) | (p.LEN_YINVERT ? VRNCAL_FLAG_BOX_Y_INVERT : 0u);
    return VRNCAL_OK;
}

vrncal_status vrncal_set_mode(vrncal_calibration* cal, int mode) {
    return guarded(cal, [&](vrncal_calibration& c) {
        if (mode != VRNCAL_MODE_BOX && mode != VRNCAL_MODE_GRID)
            return argument(c, "vrncal_set_mode: the mode is VRNCAL_MODE_GRID or VRNCAL_MODE_BOX");
        c.par.CalMode = mode;
        c.changed();
        return VRNCAL_OK;
    });
}

vrncal_status vrncal_get_mode(const vrncal_calibration* cal, int* mode) {
    if (cal == nullptr || mode == nullptr) return VRNCAL_ERROR_ARGUMENT;
    *mode = cal->par.CalMode != 0 ? VRNCAL_MODE_GRID : VRNCAL_MODE_BOX;
    return VRNCAL_OK;
}

vrncal_status vrncal_correct(const vrncal_calibration* cal, float x, float y, float* counts_x, float* counts_y) {
    if (cal == nullptr || counts_x == nullptr || counts_y == nullptr) return VRNCAL_ERROR_ARGUMENT;
    tagKelPointF out{};
    VrnCal().CalibPoint(cal->par, tagKelPointF{x, y}, out);
    *counts_x = out.x;
    *counts_y = out.y;
    return VRNCAL_OK;
}

vrncal_status vrncal_correct_points(const vrncal_calibration* cal, const float* field_xy, float* counts_xy,
                                    size_t count) {
    if (cal == nullptr || ((field_xy == nullptr || counts_xy == nullptr) && count > 0))
        return VRNCAL_ERROR_ARGUMENT;
    // A point is two packed floats, so the caller's arrays are point arrays.
    static_assert(sizeof(tagKelPointF) == 2 * sizeof(float), "a point is two packed floats");
    const auto* in = reinterpret_cast<const tagKelPointF*>(field_xy);
    auto* out = reinterpret_cast<tagKelPointF*>(counts_xy);
    if (cal->corrector) {
        cal->corrector->correct(in, out, count);
    } else {
        VrnCal vc;
        for (size_t i = 0; i < count; ++i) vc.CalibPoint(cal->par, in[i], out[i]);
    }
    return VRNCAL_OK;
}

vrncal_status vrncal_validate(vrncal_calibration* cal, size_t* problems) {
    return guarded(cal, [&](vrncal_calibration& c) {
        const auto found = vrncal::validate(c.par);
        if (problems != nullptr) *problems = found.size();
        for (const auto& p : found)
            c.message += std::string(c.message.empty() ? "" : "\n") + vrncal::problemCodeName(p.code) + ": " +
                         p.message;
        return found.empty() ? VRNCAL_OK : VRNCAL_ERROR_INVALID;
    });
}

const char* vrncal_version(void) { return vrncal::version(); }

}  // extern "C"
