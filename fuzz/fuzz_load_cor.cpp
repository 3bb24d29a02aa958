// The correction table loader on arbitrary text, within its memory bound.
#include <exception>

#include <vrncal/vrncal.h>

#include "alloc_guard.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzFile file(data, size);
    if (!file.ok()) return 0;
    tagLenPar par;
    vrncal_check::AllocGuard guard(size, 3.0);
    try {
        CBcdFile::LoadCorFile(file.path(), par);
    } catch (const std::exception&) {
    }
    return 0;
}
