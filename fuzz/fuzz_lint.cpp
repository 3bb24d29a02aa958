// The correction-table linter on arbitrary text: it never throws, and every
// finding it makes can be printed.
#include <string>

#include "workflow/lint.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (const auto& f : vrncal::workflow::lint_table(text)) vrncal::workflow::format_finding("fuzz", f);
    return 0;
}
