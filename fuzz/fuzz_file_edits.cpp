// The file-level point calls on any file: the first 16 bytes choose the call
// and its arguments, the rest is the file.  Reads must stay within what they
// are given; setCalibPnts must leave exactly the file that loading, editing,
// refitting and saving the record by hand gives; setEqualPnts must leave the
// file untouched.
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include <vrncal/vrncal.h>

#include "byte_source.h"
#include "fuzz_input.h"
#include "record_bits.h"

namespace {

std::string bytesOf(const FuzzFile& f) {
    std::string s;
    if (std::FILE* in = std::fopen(f.path(), "rb")) {
        char buf[65536];
        std::size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, in)) > 0) s.append(buf, n);
        std::fclose(in);
    }
    return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 16) return 0;
    vrncal_check::ByteSource args(data, 16);
    FuzzFile file(data + 16, size - 16);
    if (!file.ok()) return 0;
    const int op = args.range(0, 3);
    const int index = args.range(-2, 8);
    int n = args.range(-2, 66);
    const float seed = args.single(40.0);
    std::vector<tagCalData> points(static_cast<std::size_t>(n * n) + 9);
    for (std::size_t i = 0; i < points.size(); ++i) {
        const float f = seed + static_cast<float>(i);
        points[i] = tagCalData{f, -f, f * 0.5f, -f * 0.25f};
    }
    std::vector<tagKelPointF> table(100, tagKelPointF{seed, -seed});
    VrnCal cal;
    try {
        switch (op) {
            case 0: cal.getCalibPnts(file.path(), index, n, points.data()); break;
            case 1: {
                int count = 0;
                cal.getEqualPnts(file.path(), index, count, table.data());
                break;
            }
            case 2: {
                const std::string before = bytesOf(file);
                cal.setEqualPnts(file.path(), index, n, table.data());
                if (bytesOf(file) != before) std::abort();
                break;
            }
            case 3: {
                if (n < 0) return 0;
                // By hand: the facade's temporary record, loaded, edited,
                // refitted and saved.
                tagLenPar expected;
                cal.loadUcf(file.path(), expected);
                CCalibAlg::setCalibPnts(expected, index, n, points.data());
                FuzzFile mirror(nullptr, 0);
                if (!mirror.ok() || !cal.saveUcf(mirror.path(), expected)) return 0;
                if (!cal.setCalibPnts(file.path(), index, n, points.data())) std::abort();
                if (bytesOf(file) != bytesOf(mirror)) std::abort();
                break;
            }
        }
    } catch (const std::exception&) {
        // A table value that is not a number escapes from the load.
    }
    return 0;
}
