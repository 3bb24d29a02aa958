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
    // file was read, 0 when the nine-point grid is missing or malformed.  A
    // numeric key whose value is not a number raises std::invalid_argument or
    // std::out_of_range ("stof"/"stoi") out of the call.
    static int LoadCorFile(const char* path, tagLenPar& par);

    // Grid level to points per side: 1 -> 5, 2 -> 9, 3 -> 17, 4 -> 33,
    // 5 -> 65, 6 -> 25, anything else -> 3.
    static int GetCalOrder(int level);

    // Reads FieldSize, ValSize and the count at offset 34 from a file's
    // header.  Always true; outputs that cannot be read keep their values.
    static bool GetBasePara(const char* path, double& fieldSize, double& valSize, int& count);

    // Writes the 38-byte base-parameter file (FieldSize, ValSize, 4.0,
    // BoxLineCount at offset 10).  Always true.
    static bool SaveBasePara(const char* path, tagLenPar& par);
};

#endif
