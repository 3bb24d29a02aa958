// CBcdFile: the calibration files.
//
// The binary calibration data file (magic "VRNCLDT", fixed little-endian
// offsets), the human-editable correction table text file, and the small
// base-parameter file.  All members are static.  docs/file-formats.md
// describes both formats byte by byte and key by key.
#ifndef VRNCAL_BCD_FILE_H
#define VRNCAL_BCD_FILE_H

#include "vrncal/export.h"
#include "vrncal/records.h"

class VRNCAL_API CBcdFile {
public:
    CBcdFile() = default;
    ~CBcdFile() = default;

    // Writes the record as a binary data file.  Returns whether the file could
    // be opened for writing.
    static bool SaveBcdFile(const char* path, tagLenPar& par);

    // Loads a binary data file, or hands any file without the magic to
    // LoadCorFile and fits the coefficients when that succeeds.  Stacks is
    // emptied first, whatever happens next.
    static bool LoadBcdFile(const char* path, tagLenPar& par);

    // Reads a correction table text file into the record.  Returns 1 when the
    // file was read, 0 when the nine-point grid ("PNT0".."PNT8" in [Cal3]) is
    // missing or malformed; a missing file gives 0.  Each field is stored as
    // soon as it is read, so a failed load leaves the record partly updated.
    // Only ValSize, Resolution, the lens flags and "order" come from
    // [CalCoefs]; every later key is read from [Cal3].  Complete grids of
    // [Cal5], [Cal9], [Cal17], [Cal33], [Cal65], [Cal25] are appended to
    // Stacks without clearing it; incomplete ones are dropped silently.
    // InOrder is 1 when "order", truncated toward zero, reaches the grid size;
    // an order that is NaN or beyond the int range counts as INT_MIN (as the
    // x86-64 conversion gives), so no grid is in order.
    // A numeric key whose value is not a number raises std::invalid_argument or
    // std::out_of_range ("stof"/"stoi") out of the call.  A null path raises
    // std::logic_error("basic_string::_M_construct null not valid") before
    // anything is read.
    static int LoadCorFile(const char* path, tagLenPar& par);

    // Grid level to points per side: 1 -> 5, 2 -> 9, 3 -> 17, 4 -> 33,
    // 5 -> 65, 6 -> 25 (not 2^6 + 1, on purpose), anything else -> 3.
    static int GetCalOrder(int level);

    // Reads FieldSize, ValSize and the count at offset 34 from a file's
    // header.  Always true; outputs that cannot be read keep their values.
    static bool GetBasePara(const char* path, double& fieldSize, double& valSize, int& count);

    // Writes the 38-byte base-parameter file (FieldSize, ValSize, 4.0,
    // BoxLineCount at offset 10).  Always true.
    static bool SaveBasePara(const char* path, tagLenPar& par);
};

#endif
