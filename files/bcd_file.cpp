// The binary calibration data file: CBcdFile::SaveBcdFile writes a record at
// fixed offsets, CBcdFile::LoadBcdFile reads one back (or hands a text
// correction table to LoadCorFile).  docs/file-formats.md has the layout.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "files/binary_io.h"
#include "files/data_file.h"
#include "files/table_file.h"
#include "vrncal/bcd_file.h"
#include "vrncal/calib_alg.h"

using vrncal_detail::BinaryReader;
using vrncal_detail::BinaryWriter;
using vrncal_detail::DataFileReport;
using vrncal_detail::DataRead;
using vrncal_detail::FileHandle;
using vrncal_detail::Input;

namespace {

const char kMagic[7] = {'V', 'R', 'N', 'C', 'L', 'D', 'T'};
constexpr char kRefusedVersion = '3';

constexpr long kRealsOffset = 10;
constexpr long kCoefOffset = 256;
constexpr long kGridOffset = 4096;
constexpr long kStackCountOffset = 60000;
constexpr long kStackTableOffset = 60004;
constexpr long kStackOffset = 64000;
constexpr int kMaxRows = 100;
constexpr double kHeaderConstant = 4.0;

constexpr std::int64_t kPointBytes = sizeof(tagCalData);
constexpr std::int64_t kStackHeaderBytes = 2 * sizeof(std::int32_t);

static_assert(sizeof(tagCalCoefs) == 600, "the coefficient block is 600 bytes in the file");
static_assert(sizeof(tagCalData) == 16, "a point is 16 bytes in the file");

// Flag and its working copy in one word: copy in bits 8-15, flag in bits 0-7.
// Neither is masked, so values beyond 0-255 spill into the other field (or
// above bit 15) as existing files have them; formed unsigned so that negative
// values shift without undefined behaviour and give the same bits.
std::int32_t packFlags(int copy, int flag) {
    return static_cast<std::int32_t>((static_cast<std::uint32_t>(copy) << 8) |
                                     static_cast<std::uint32_t>(flag));
}

void unpackFlags(std::int32_t word, int& flag, int& copy) {
    const std::uint32_t w = static_cast<std::uint32_t>(word);
    flag = static_cast<int>(w & 0xFFu);
    copy = static_cast<int>((w >> 8) & 0xFFu);
}

// Largest stack count the file can hold: every table entry at 60004 must be
// present, and every stack record after 64000 takes at least its 8-byte
// header.  Bounds the allocations by the file, whatever S claims.
std::int64_t stackCapacity(std::int64_t fileLength) {
    if (fileLength < kStackOffset + kStackHeaderBytes) return 0;
    const std::int64_t byTable = (fileLength - kStackTableOffset) / 4;
    const std::int64_t byRecords = (fileLength - kStackOffset) / kStackHeaderBytes;
    return byTable < byRecords ? byTable : byRecords;
}

// Number of stack records, of at most `declared`, that lie wholly in the
// file from 64000 on with a Size that is not negative: the stacks a load
// keeps.  Only the 8-byte headers are read; the points are skipped.
std::int64_t countWholeStacks(BinaryReader& in, std::int64_t fileLength, std::int64_t declared,
                              DataFileReport* report) {
    std::int64_t pos = kStackOffset;  // start of the record looked at
    std::int64_t n = 0;
    if (!in.seek(pos)) return 0;
    for (; n < declared; ++n) {
        if (fileLength - pos < kStackHeaderBytes) break;
        std::int32_t size = 0;
        std::int32_t inOrder = 0;
        if (!in.read(size) || !in.read(inOrder)) break;
        if (size < 0) {
            if (report != nullptr) report->negativeSize = true;
            break;
        }
        const std::int64_t points = static_cast<std::int64_t>(size) * size;
        if (points > (fileLength - pos - kStackHeaderBytes) / kPointBytes) break;
        pos += kStackHeaderBytes + points * kPointBytes;
        if (points > 0 && !in.seek(pos)) break;
    }
    if (report != nullptr) report->stopOffset = pos;
    return n;
}

// Reads the stack section into par.Stacks (empty on entry).  A stack whose
// record is not wholly in the file, or whose Size is negative, ends the
// section there: the stacks before it are kept, it and all later ones are
// dropped, so every kept stack holds Size * Size points.  The records are
// counted first, so Stacks is allocated once for exactly the stacks kept and
// a file that declares more than it holds costs no more than it holds.
void readStacks(BinaryReader& in, std::int64_t fileLength, tagLenPar& par, DataFileReport* report) {
    if (!in.seek(kStackCountOffset)) return;
    std::int32_t count = -1;  // a file that ends before 60000 has no stacks
    in.read(count);
    if (report != nullptr) report->declared = count;
    if (count < 1) return;

    const std::int64_t cap = stackCapacity(fileLength);
    const std::int64_t declared = count < cap ? count : cap;
    if (declared == 0) {
        if (report != nullptr) report->stopOffset = kStackOffset;
        return;
    }
    // The table at 60004 repeats each record's Size; the record's own value
    // is the one that counts, so the table is not needed.
    const std::int64_t whole = countWholeStacks(in, fileLength, declared, report);
    if (report != nullptr) report->kept = whole;
    if (whole == 0 || !in.seek(kStackOffset)) return;

    par.Stacks.resize(static_cast<std::size_t>(whole));
    std::size_t kept = 0;
    for (; kept < par.Stacks.size(); ++kept) {
        tagStack& st = par.Stacks[kept];
        if (!in.read(st.Size) || !in.read(st.InOrder)) break;
        const std::int64_t points = static_cast<std::int64_t>(st.Size) * st.Size;
        st.Points.resize(static_cast<std::size_t>(points));
        if (!in.readRaw(st.Points.data(), static_cast<std::size_t>(points * kPointBytes))) break;
    }
    // Only a read error can end the loop early.
    par.Stacks.resize(kept);
}

}  // namespace

namespace vrncal_detail {

bool hasDataMagic(const char* bytes, std::size_t n) {
    return n >= sizeof kMagic && std::memcmp(bytes, kMagic, sizeof kMagic) == 0;
}

std::string dataFileBytes(const tagLenPar& par) {
    BinaryWriter out;
    out.writeRaw(kMagic, sizeof kMagic);
    // The version byte at 7 and the two bytes after it are skipped, so zero.
    out.seek(kRealsOffset);
    out.write(par.FieldSize);
    out.write(par.ValSize);
    out.write(0.0);  // reserved real
    out.write(static_cast<std::int32_t>(par.LineCount));
    out.write(static_cast<std::int32_t>(par.Resolution));
    out.write(packFlags(par.XYFlip, par.LEN_XYFLIP));
    out.write(packFlags(par.XInvert, par.LEN_XINVERT));
    out.write(packFlags(par.YInvert, par.LEN_YINVERT));
    out.write(kHeaderConstant);  // constant, skipped by the reader

    out.seek(kCoefOffset);
    out.write(par.CalCoefs);

    out.seek(kGridOffset);
    out.write(static_cast<std::int32_t>(par.grid));
    // Only the first 100 rows fit; XR and YR are not kept in this file.
    for (int i = 0; i < par.LineCount && i < kMaxRows; ++i) {
        out.write(par.XT[i]);
        out.write(par.YT[i]);
        out.write(par.XA[i]);
        out.write(par.YA[i]);
    }

    // Without stacks the file ends after the line table.
    const std::int32_t count = static_cast<std::int32_t>(par.Stacks.size());
    if (count >= 1) {
        out.seek(kStackCountOffset);
        out.write(count);
        for (const tagStack& st : par.Stacks) out.write(static_cast<std::int32_t>(st.Size));

        // A table longer than 999 entries runs past 64000; the records
        // overwrite its tail, as existing files have it.
        out.seek(kStackOffset);
        for (const tagStack& st : par.Stacks) {
            out.write(static_cast<std::int32_t>(st.Size));
            out.write(static_cast<std::int32_t>(st.InOrder));  // raw, not reduced to 0/1
            // Size * Size points from the front.  A record that breaks the
            // invariant (fewer points than that) gets only the points it
            // has: nothing is read past the end of the vector.
            const std::int64_t n = st.Size;
            std::int64_t points = n * n;
            if (points > static_cast<std::int64_t>(st.Points.size()))
                points = static_cast<std::int64_t>(st.Points.size());
            out.writeRaw(st.Points.data(), static_cast<std::size_t>(points * kPointBytes));
        }
    }
    return out.bytes();
}

DataRead readDataFile(Input& input, tagLenPar& par, DataFileReport* report) {
    BinaryReader in(input);
    char magic[sizeof kMagic] = {};
    if (!in.seek(0) || !in.read(magic) || !hasDataMagic(magic, sizeof magic))
        return DataRead::NotDataFile;

    char version = 0;
    in.read(version);
    // Version "3" is refused outright and not handed to the text loader.
    if (version == kRefusedVersion) return DataRead::RefusedVersion;

    const std::int64_t fileLength = in.length();
    if (report != nullptr) report->length = input.length();
    if (fileLength < 0) in.fail();  // cannot be measured: read no further

    in.seek(kRealsOffset);
    double real = 0.0;
    // Values of 1.0 or less (and NaN) keep what the record held.  The reals
    // and the flag words pass through temporaries and count only when read
    // in full; the members read directly take what a cut read leaves.
    if (in.read(real) && real > 1.0) par.FieldSize = real;
    if (in.read(real) && real > 1.0) par.ValSize = real;
    in.read(real);  // reserved

    in.read(par.LineCount);
    in.read(par.Resolution);

    std::int32_t word = 0;
    if (in.read(word)) unpackFlags(word, par.LEN_XYFLIP, par.XYFlip);
    if (in.read(word)) unpackFlags(word, par.LEN_XINVERT, par.XInvert);
    if (in.read(word)) unpackFlags(word, par.LEN_YINVERT, par.YInvert);
    in.read(real);  // the constant at 54

    // Derived whether or not Resolution could be read.
    if (par.Resolution < 65535) {
        par.Resolution = 65535;
        par.HalfResolution = 32768;
        par.HalfResolutionSq = 1073741824.0;
    } else {
        // (Resolution + 1) >> 1 in 32-bit two's complement: INT_MAX wraps to
        // a negative centre as existing hosts compute it, without overflow.
        const std::uint32_t r1 = static_cast<std::uint32_t>(par.Resolution) + 1u;
        par.HalfResolution = static_cast<std::int32_t>(r1) >> 1;
        par.HalfResolutionSq = static_cast<double>(par.HalfResolution) * par.HalfResolution;
    }

    in.seek(kCoefOffset);
    in.read(par.CalCoefs);

    in.seek(kGridOffset);
    in.read(par.grid);
    // Bounded by the LineCount just read; LineCount keeps its value.
    int rows = 0;
    for (int i = 0; i < par.LineCount && i < kMaxRows; ++i, ++rows) {
        in.read(par.XT[i]);
        in.read(par.YT[i]);
        in.read(par.XA[i]);
        in.read(par.YA[i]);
    }
    if (report != nullptr) report->tableEnd = kGridOffset + 4 + 32 * static_cast<std::int64_t>(rows);

    readStacks(in, fileLength, par, report);
    // A file that ends early is still a loaded file; the stored coefficients
    // are used as they are, with no fit.
    return DataRead::Loaded;
}

}  // namespace vrncal_detail

bool CBcdFile::SaveBcdFile(const char* path, tagLenPar& par) {
    FileHandle file(path, "wb");
    if (!file) return false;
    const std::string bytes = vrncal_detail::dataFileBytes(par);
    std::fwrite(bytes.data(), 1, bytes.size(), file.get());
    // A failed write, flush or close is not reported: the result says only
    // that the file could be opened.
    file.close();
    return true;
}

bool CBcdFile::LoadBcdFile(const char* path, tagLenPar& par) {
    // Emptied before anything else, so even a file that cannot be opened
    // leaves no stale grids behind.
    for (tagStack& st : par.Stacks) st.Points.clear();
    par.Stacks.clear();

    // Opened once: a stream is read whole here, so the text loader below
    // reads the same bytes and the path is never opened twice.
    Input in = Input::open(path);
    if (!in.isOpen()) return false;

    switch (vrncal_detail::readDataFile(in, par)) {
        case DataRead::Loaded: return true;
        case DataRead::RefusedVersion: return false;
        case DataRead::NotDataFile: break;
    }
    // Anything else, even binary garbage or a file shorter than the magic, is
    // taken for a correction table; the table carries points but no
    // coefficients, so they are fitted here.
    const int loaded = vrncal_detail::loadCorrectionTable(in, par);
    if (loaded) CCalibAlg::MVLSMCoef(par);
    return loaded != 0;
}
