// The correction table reader against the reader it replaced (see
// reference_table.h): same result, same record, same exception.
#include <cstdlib>
#include <exception>
#include <string>
#include <typeinfo>

#include <vrncal/vrncal.h>

#include "fuzz_input.h"
#include "record_bits.h"
#include "reference_table.h"

namespace {

// "result" or "exception type: what", and the record.
template <typename Load>
std::string outcome(Load&& load, tagLenPar& par) {
    try {
        return std::to_string(load(par));
    } catch (const std::exception& e) {
        return std::string(typeid(e).name()) + ": " + e.what();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The reference splits every value whole and keeps every line: keep its
    // cost within the fuzzer's memory limits.
    if (size > (1u << 20)) return 0;
    FuzzFile file(data, size);
    if (!file.ok()) return 0;
    tagLenPar now;
    tagLenPar before;
    const std::string a = outcome([&](tagLenPar& p) { return CBcdFile::LoadCorFile(file.path(), p); }, now);
    const std::string b =
        outcome([&](tagLenPar& p) { return vrncal_check::referenceLoadCorFile(file.path(), p); }, before);
    if (a != b || vrncal_check::recordBits(now) != vrncal_check::recordBits(before)) std::abort();
    return 0;
}
