// vrncal::load on any bytes never throws, says why it refuses, stays within
// its memory bound, and accepts only what the described loader loads, with
// the same record.
#include <cstdlib>
#include <exception>

#include <vrncal/vrncal.h>

#include "alloc_guard.h"
#include "fuzz_input.h"
#include "record_bits.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzFile file(data, size);
    if (!file.ok()) return 0;
    tagLenPar checked;
    vrncal::LoadResult r;
    {
        // The file itself, plus what the loader it stands for costs.
        vrncal_check::AllocGuard guard(size, 5.0);
        r = vrncal::load(file.path(), checked);
    }
    if (r.ok != r.message.empty()) std::abort();
    if (!r.ok && r.message.compare(0, std::string(file.path()).size(), file.path()) != 0) std::abort();

    tagLenPar described;
    bool loaded = false;
    try {
        loaded = CBcdFile::LoadBcdFile(file.path(), described);
    } catch (const std::exception&) {
        if (r.ok) std::abort();
        return 0;
    }
    if (r.ok && (!loaded || vrncal_check::recordBits(checked) != vrncal_check::recordBits(described)))
        std::abort();
    if (!r.ok && vrncal_check::recordBits(checked) != vrncal_check::recordBits(tagLenPar())) std::abort();
    return 0;
}
