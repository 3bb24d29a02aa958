// Checked file access for hosts: a load that never throws and says what is
// wrong with a file, and saves that never leave a half-written file.
//
// These calls stand beside CBcdFile and VrnCal::loadUcf / saveUcf, which keep
// their long-standing behaviour (a text table with a value that is not a
// number throws out of them, a failed write is reported as success).  A
// record that vrncal::load accepts is exactly the record VrnCal::loadUcf
// gives for the same file.
#ifndef VRNCAL_FILE_IO_H
#define VRNCAL_FILE_IO_H

#include <cstdint>
#include <string>
#include <string_view>

#include "vrncal/export.h"
#include "vrncal/records.h"

namespace vrncal {

enum class FileFormat {
    Unknown,          // not told (the file could not be read)
    DataFile,         // binary, magic "VRNCLDT", coefficients stored
    CorrectionTable,  // INI text, coefficients fitted on load
};

// "data file", "correction table" or "unknown".
VRNCAL_API const char* formatName(FileFormat format);

// The largest file vrncal::load reads unless told otherwise: 64 MiB, far
// above any calibration (a table with all six grids is about 1 MiB).
constexpr std::uint64_t kDefaultMaxFileBytes = std::uint64_t{64} << 20;

struct LoadOptions {
    std::uint64_t maxBytes = kDefaultMaxFileBytes;
};

struct LoadResult {
    bool ok = false;
    FileFormat format = FileFormat::Unknown;
    // One line naming the file, "PATH: what" or, for a line of a text table,
    // "PATH:LINE: [Section] Key: what"; empty on success.
    std::string message;
    std::uint64_t line = 0;  // line of the text table at fault, 0 when none
    std::string section;     // section and key at fault, when one is
    std::string key;

    explicit operator bool() const { return ok; }
};

// Loads a calibration file as VrnCal::loadUcf does (a data file as stored, a
// correction table fitted from its nine points), but never throws and
// refuses, with a message, what the described loader would load silently
// wrong or not at all:
//   - a path that cannot be opened, or that is not a regular file (a
//     directory, FIFO, device or socket: nothing is read from it, and
//     opening a FIFO does not wait for a writer);
//   - a file larger than options.maxBytes (the file is read once, into
//     memory, and never beyond that bound);
//   - a data file of version '3', or one cut short: ending inside its header
//     or line table, or declaring more grids than it holds whole;
//   - a correction table without its nine points ([Cal3] PNT0 .. PNT8, each
//     four numbers separated by single spaces), or with a numeric key whose
//     value is not a number or is out of range (the line and key are named);
//   - running out of memory.
// On success the record is what loadUcf would have left; on failure it is
// left exactly as it was.  Whether the calibration makes sense is a separate
// question: see vrncal::validate.
VRNCAL_API LoadResult load(const char* path, tagLenPar& par, const LoadOptions& options = LoadOptions());
VRNCAL_API LoadResult load(const std::string& path, tagLenPar& par,
                           const LoadOptions& options = LoadOptions());

struct SaveResult {
    bool ok = false;
    std::string message;  // one line naming the file; empty on success

    explicit operator bool() const { return ok; }
};

// Writes the record as a data file, byte for byte what CBcdFile::SaveBcdFile
// writes (the coefficients as they stand: fit them first, as
// VrnCal::saveUcf does, if the points changed), through replaceFile.
VRNCAL_API SaveResult save(const char* path, const tagLenPar& par);
VRNCAL_API SaveResult save(const std::string& path, const tagLenPar& par);

// Replaces the file at path with the given bytes so that it is either the
// old file or the complete new one, whatever fails:
//   - the bytes go to a temporary file in the target's folder (unnamed while
//     it is written where the file system allows, so an interrupted process
//     leaves nothing behind), every write is checked, the file is flushed to
//     disk (fsync), closed, and then renamed over the target;
//   - a symbolic link is followed: its target is replaced, the link kept;
//   - a replaced file keeps its permission bits (and, for root, its owner);
//     a new file gets 0666 less the umask;
//   - a character device or a FIFO is written directly (a FIFO without a
//     reader is refused rather than waited for); a directory, block device
//     or socket is refused; so is an existing file the caller may not write;
//   - on any failure the old file is untouched, no temporary file is left,
//     and the message says what failed ("cannot create a temporary file in
//     DIR: ...", "write failed: No space left on device", ...).
// A write beyond the process's file-size limit raises SIGXFSZ, which ends
// the process unless the host ignores that signal (then the write fails and
// is reported).
VRNCAL_API SaveResult replaceFile(const std::string& path, std::string_view bytes);

}  // namespace vrncal

#endif
