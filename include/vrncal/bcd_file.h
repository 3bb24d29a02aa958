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

    // Writes the record as a binary data file, each region at its fixed
    // offset (unlisted bytes are zero).  The coefficients are written as they
    // stand: fit them first.  Returns whether the file could be opened for
    // writing; a failed write or close is not reported.  Each stack's Size *
    // Size points are taken from the front of its Points; a stack holding
    // fewer is written with the points it has (never read past the end).
    static bool SaveBcdFile(const char* path, tagLenPar& par);

    // Loads a binary data file, or hands any file without the magic
    // "VRNCLDT" (a shorter one included) to LoadCorFile and fits the
    // coefficients (CCalibAlg::MVLSMCoef) when that returns 1; the result is
    // then LoadCorFile's.  Stacks is emptied first, whatever happens next.
    // False when the path cannot be opened or the version byte is '3'.
    //
    // A binary load runs no fit.  FieldSize and ValSize are taken only when
    // greater than 1.0; a Resolution below 65535 becomes 65535.  A file that
    // ends early is read as far as it goes and the result is true: a member
    // cut by the end takes the bytes present over what it held (as a stream
    // read leaves it; the base reals and flag words count only when whole),
    // and every member after it keeps what it held.
    //
    // A file that declares more than it holds never makes the load allocate
    // more than the file could fill: the stack count is capped by the file
    // length, and reading stacks stops at the first record that is not wholly
    // in the file or has a negative Size (its n * n points computed in 64
    // bits).  The stacks before it are kept, it and all later ones dropped, so
    // every loaded stack holds exactly Size * Size points.
    //
    // The path is opened once.  A regular file is read in place; anything
    // else is read to its end first and then loaded from memory as a regular
    // file of those bytes would be: a FIFO carrying a whole calibration of
    // either form loads (opening it waits for a writer, as any open of a FIFO
    // does).  A device that never ends (/dev/zero, /dev/urandom) is read
    // until memory runs out, and std::bad_alloc leaves the call; /dev/null
    // reads as an empty table (result false).  vrncal::load refuses all of
    // these with a message instead.
    //
    // Memory follows the file: a data file costs at most 4 bytes per byte of
    // the file (an 8-byte empty grid record becomes a 32-byte stack of the
    // record), a correction table at most 3 bytes per byte plus a fixed
    // amount (see docs/file-formats.md).
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
    // anything is read.  The path is opened once, as LoadBcdFile opens it.
    static int LoadCorFile(const char* path, tagLenPar& par);

    // Grid level to points per side: 1 -> 5, 2 -> 9, 3 -> 17, 4 -> 33,
    // 5 -> 65, 6 -> 25 (not 2^6 + 1, on purpose), anything else -> 3.
    static int GetCalOrder(int level);

    // Reads FieldSize, ValSize and the count at offset 34 from a file's
    // header: LineCount in a data file, BoxLineCount in a base-parameter
    // file.  Always true; outputs that cannot be read keep their values (one
    // cut by the end of the file takes the bytes present).  The path is read
    // in place whatever it is: a FIFO gives nothing (it cannot be sought to
    // offset 10), /dev/zero gives zeros.
    static bool GetBasePara(const char* path, double& fieldSize, double& valSize, int& count);

    // Writes the 38-byte base-parameter file: 10 zero bytes (no magic), then
    // FieldSize, ValSize, 4.0 and BoxLineCount.  Truncates whatever the path
    // held.  Always true, even when nothing could be written.
    static bool SaveBasePara(const char* path, tagLenPar& par);
};

#endif
