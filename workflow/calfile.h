// Loading calibrations for the commands, with errors a person can act on.
//
// The library reports a failed load only through false (or lets a number
// conversion error escape from the text loader); these helpers turn that into
// one line naming the file and, where the linter can find it, the line.
#ifndef VRNCAL_WORKFLOW_CALFILE_H
#define VRNCAL_WORKFLOW_CALFILE_H

#include <string>

#include <vrncal/records.h>

namespace vrncal::workflow {

struct Calibration {
    std::string path;
    bool data_file = false;  // binary data file; otherwise a correction table
    tagLenPar par;
};

// Loads a calibration as the library decides (a data file as stored, a
// correction table fitted on load) into a default record, then selects the
// grid correction (CalMode 1): neither file stores CalMode.  Throws Error.
Calibration load_calibration(const std::string& path);

// Saves the record as a binary data file (the library's saver fits the
// coefficients again); out is replaced only when complete.  Throws Error.
void save_data_file(tagLenPar& par, const std::string& out);

// Structural check of a binary data file before the library reads it: the
// library accepts a truncated file and would size grids from whatever bytes
// it finds.  Throws Error describing the first problem.
void validate_data_file(const std::string& path);

// Reads box-correction parameters from an INI file ([Box] section, keys named
// after the record members: BoxScaleX=100.5, BoxXT0=-40 ...) through the
// library's INI store and sets them in par.  Throws Error naming the file
// and the key.
void apply_box_file(const std::string& path, tagLenPar& par);

}  // namespace vrncal::workflow

#endif
