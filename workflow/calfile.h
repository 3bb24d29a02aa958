// Loading calibrations for the commands, with errors a person can act on.
//
// The library reports a failed load only through false (or lets a number
// conversion error escape from the text loader); these helpers turn that into
// one line naming the file and, where the linter can find it, the line.
#ifndef VRNCAL_WORKFLOW_CALFILE_H
#define VRNCAL_WORKFLOW_CALFILE_H

#include <optional>
#include <string>

#include <vrncal/records.h>

namespace vrncal::workflow {

// Where the field size of a loaded calibration comes from.
enum class FieldSizeFrom {
    Default,   // a table that does not say: the library's 100
    Table,     // the table's [vrncal] FieldSize key
    DataFile,  // the data file's stored FieldSize
    Given,     // given by the caller for a table that does not say
};

// How info shows where the field size comes from ("stored in the data file").
const char* field_size_source(FieldSizeFrom from);

struct Calibration {
    std::string path;
    bool data_file = false;  // binary data file; otherwise a correction table
    tagLenPar par;
    FieldSizeFrom field_size_from = FieldSizeFrom::Default;
};

// Loads a calibration as the library decides (a data file as stored, a
// correction table fitted on load) into a default record, then selects the
// grid correction (CalMode 1): neither file stores CalMode.
//
// The field size (field units spanned by the device range) is set before
// the load: a correction table's own FieldSize key, else the given one, else
// 100.  A given field size that disagrees with the one the file states is an
// error: the file was calibrated with its own.  Throws Error.
Calibration load_calibration(const std::string& path, std::optional<double> field_size = std::nullopt);

// Throws Error unless the field size is a finite number above 1 (what the
// data file keeps).
void check_field_size(double field_size, const std::string& what);

// The FieldSize key of a correction table's [vrncal] section, or nothing.
// Throws Error "PATH:LINE: ..." when it is not a number above 1.
std::optional<double> table_field_size(const std::string& path, const std::string& text);

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
