// The tool's point-list reader on arbitrary bytes: rows of two (a points
// file for `correct`) or four numbers (points for `points set`), as the first
// byte chooses.  Every input ends in rows or in one ToolError.
#include <cstdio>
#include <vector>

#include "alloc_guard.h"
#include "errors.h"
#include "points_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const int columns = (data[0] & 1) ? 4 : 2;
    std::FILE* f = fmemopen(const_cast<uint8_t*>(data + 1), size - 1, "rb");
    if (f == nullptr) return 0;
    // The reader holds a block and one line, whatever the input.
    vrncal_check::AllocGuard guard(0, 0.0);
    try {
        vrncal::tools::RowReader reader(f, "fuzz", columns);
        std::vector<float> row(4);
        while (reader.next(row.data())) {
        }
    } catch (const vrncal::tools::ToolError&) {
    }
    std::fclose(f);
    return 0;
}
