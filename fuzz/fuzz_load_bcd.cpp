// Any byte string given to the calibration loader must load or fail cleanly,
// within its memory bound, and a loaded record must be safe to correct with.
#include <exception>

#include <vrncal/vrncal.h>

#include "alloc_guard.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzFile file(data, size);
    if (!file.ok()) return 0;
    tagLenPar par;
    VrnCal cal;
    {
        // A data file costs at most 4 bytes per byte, a table 3.
        vrncal_check::AllocGuard guard(size, 4.0);
        try {
            if (!cal.loadUcf(file.path(), par)) return 0;
        } catch (const std::exception&) {
            return 0;  // a table value that is not a number escapes as documented
        }
    }
    tagKelPointF out;
    for (float v : {-60.0f, -10.0f, 0.0f, 7.5f, 60.0f}) cal.CalibPoint(par, tagKelPointF{v, -v}, out);
    return 0;
}
