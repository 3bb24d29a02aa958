// The correction-table linter on arbitrary text: it never throws, every
// finding it makes can be printed, and the memory it takes stays within a
// small factor of the input (it keeps only the keys the loader reads, and at
// most a thousand findings from single lines).
#include <string>

#include "alloc_guard.h"
#include "workflow/lint.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    vrncal_check::AllocGuard guard(size, 8.0);
    for (const auto& f : vrncal::workflow::lint_table(text)) vrncal::workflow::format_finding("fuzz", f);
    return 0;
}
