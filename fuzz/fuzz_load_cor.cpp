// The correction table loader on arbitrary text.
#include <exception>

#include <vrncal/vrncal.h>

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzFile file(data, size);
    if (!file.ok()) return 0;
    tagLenPar par;
    try {
        CBcdFile::LoadCorFile(file.path(), par);
    } catch (const std::exception&) {
    }
    return 0;
}
