// The base-parameter reader on any file reads the three values at offset 10
// (the caller's values where the file ends first), and the base-parameter
// writer's 38-byte file reads back exactly.
#include <cstdlib>
#include <cstring>
#include <string>

#include <vrncal/vrncal.h>

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzFile file(data, size);
    if (!file.ok()) return 0;
    double fieldSize = 1.5, valSize = 2.5;
    int count = 7;
    if (!CBcdFile::GetBasePara(file.path(), fieldSize, valSize, count)) std::abort();
    const auto expect = [&](const void* value, std::size_t offset, std::size_t n, const void* old) {
        for (std::size_t i = 0; i < n; ++i) {
            const unsigned char want = offset + i < size ? data[offset + i] : static_cast<const unsigned char*>(old)[i];
            if (static_cast<const unsigned char*>(value)[i] != want) std::abort();
        }
    };
    const double oldField = 1.5, oldVal = 2.5;
    const int oldCount = 7;
    // A value the file cuts takes the bytes present over the caller's.
    expect(&fieldSize, 10, 8, &oldField);
    expect(&valSize, 18, 8, &oldVal);
    expect(&count, 34, 4, &oldCount);

    tagLenPar par;
    if (size > 0) std::memcpy(&par.FieldSize, data, size < 8 ? size : 8);
    if (size >= 16) std::memcpy(&par.ValSize, data + 8, 8);
    if (size >= 20) std::memcpy(&par.BoxLineCount, data + 16, 4);
    FuzzFile out(nullptr, 0);
    if (!out.ok() || !CBcdFile::SaveBasePara(out.path(), par)) return 0;
    double f = 0, v = 0;
    int c = 0;
    CBcdFile::GetBasePara(out.path(), f, v, c);
    if (std::memcmp(&f, &par.FieldSize, 8) != 0 || std::memcmp(&v, &par.ValSize, 8) != 0 || c != par.BoxLineCount)
        std::abort();
    return 0;
}
