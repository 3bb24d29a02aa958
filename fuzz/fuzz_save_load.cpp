// The writers: whatever loads, saved and loaded again, saves to the same
// bytes (the one change a first round may make is the reader's: flags
// masked to a byte, Resolution raised, field sizes of 1 or less kept), and
// vrncal::save writes exactly SaveBcdFile's bytes, which vrncal::load reads
// back as the described loader does.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include <vrncal/vrncal.h>

#include "fuzz_input.h"
#include "record_bits.h"

namespace {

std::string readAll(const std::string& path) {
    std::string s;
    if (std::FILE* in = std::fopen(path.c_str(), "rb")) {
        char buf[65536];
        std::size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, in)) > 0) s.append(buf, n);
        std::fclose(in);
    }
    return s;
}

// A folder of our own for the files vrncal::save replaces.
const std::string& folder() {
    static const std::string dir = [] {
        char tmpl[] = "/tmp/vrncal-fuzz-XXXXXX";
        const char* made = ::mkdtemp(tmpl);
        return std::string(made != nullptr ? made : "/tmp");
    }();
    return dir;
}

std::string saved(tagLenPar& par, const std::string& name) {
    const std::string path = folder() + "/" + name;
    if (!CBcdFile::SaveBcdFile(path.c_str(), par)) std::abort();
    return readAll(path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzFile file(data, size);
    if (!file.ok()) return 0;
    tagLenPar par;
    try {
        if (!CBcdFile::LoadBcdFile(file.path(), par)) return 0;
    } catch (const std::exception&) {
        return 0;
    }
    const std::string first = saved(par, "first.dat");

    const std::string safePath = folder() + "/safe.dat";
    const vrncal::SaveResult r = vrncal::save(safePath, par);
    if (!r.ok || readAll(safePath) != first) std::abort();

    tagLenPar again;
    if (!CBcdFile::LoadBcdFile((folder() + "/first.dat").c_str(), again)) std::abort();
    tagLenPar checked;
    const vrncal::LoadResult loaded = vrncal::load(safePath, checked);
    // A record whose grids hold fewer points than they declare saves a file
    // that declares more than it holds, which load refuses.
    if (loaded.ok && vrncal_check::recordBits(checked) != vrncal_check::recordBits(again)) std::abort();

    const std::string second = saved(again, "second.dat");
    tagLenPar third;
    if (!CBcdFile::LoadBcdFile((folder() + "/second.dat").c_str(), third)) std::abort();
    if (saved(third, "third.dat") != second) std::abort();
    return 0;
}
