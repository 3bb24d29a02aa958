// The box-parameter reader on arbitrary text: every input sets parameters or
// ends in one workflow::Error naming the key.
#include <vrncal/records.h>

#include "alloc_guard.h"
#include "fuzz_input.h"
#include "workflow/calfile.h"
#include "workflow/error.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzFile file(data, size);
    if (!file.ok()) return 0;
    tagLenPar par;
    vrncal_check::AllocGuard guard(size, 8.0);
    try {
        vrncal::workflow::apply_box_file(file.path(), par);
    } catch (const vrncal::workflow::Error&) {
    }
    return 0;
}
