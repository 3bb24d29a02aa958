// Internal: the calibration data file read from an opened input and built in
// memory, shared by CBcdFile and the checked vrncal::load / vrncal::save.
#ifndef VRNCAL_FILES_DATA_FILE_H
#define VRNCAL_FILES_DATA_FILE_H

#include <cstdint>
#include <string>

#include "files/input.h"
#include "vrncal/records.h"

namespace vrncal_detail {

// What reading a data file found, for callers that want to tell a whole
// file from a damaged one.  The described loader ignores it.
struct DataFileReport {
    std::int64_t length = -1;      // bytes in the file
    std::int64_t tableEnd = 0;     // where the header and line table end
    std::int32_t declared = 0;     // stacks declared at 60000 (below 1: none)
    std::int64_t kept = 0;         // stacks read whole
    std::int64_t stopOffset = 0;   // offset of the first stack record not kept
    bool negativeSize = false;     // that record has a negative Size
};

enum class DataRead { NotDataFile, RefusedVersion, Loaded };

// True when the first bytes are the data file's magic "VRNCLDT".
bool hasDataMagic(const char* bytes, std::size_t n);

// Reads the input from its start.  NotDataFile when the magic is missing
// (the record is untouched); RefusedVersion for the version byte '3';
// otherwise the record is read as CBcdFile::LoadBcdFile reads a data file.
// Stacks must be empty on entry.
DataRead readDataFile(Input& in, tagLenPar& par, DataFileReport* report = nullptr);

// The exact bytes CBcdFile::SaveBcdFile writes for the record.
std::string dataFileBytes(const tagLenPar& par);

}  // namespace vrncal_detail

#endif
