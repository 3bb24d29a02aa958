// Loading and saving calibrations for the commands, with errors a person can
// act on.
//
// Every command loads a calibration the same way: the file is read once,
// with a bound; it is checked as `vrncal check` checks it (the linter for a
// correction table, the structure for a data file, then the loaded record:
// coefficients, grids and points); and only then used.  A calibration with
// errors, anything that makes the loaded record differ from what the file
// says or the correction meaningless, is refused with every error on a line
// of its own, unless the caller forces it; a file the library cannot load
// at all is refused even then.
#ifndef VRNCAL_WORKFLOW_CALFILE_H
#define VRNCAL_WORKFLOW_CALFILE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

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
    std::string bytes;  // the file as read and checked (an edit starts from them)
    // With force: the errors that would have refused the file, one line
    // each ("PATH:LINE: message"), for the caller to show as warnings.
    std::vector<std::string> forced;
};

struct LoadOptions {
    bool force = false;  // use a calibration with errors (not one that does not load)
    std::optional<double> field_size;  // for a table that states none
};

// Loads a calibration as the library decides (a data file as stored, a
// correction table fitted on load) into a default record, then selects the
// grid correction (CalMode 1): neither file stores CalMode.
//
// The field size (field units spanned by the device range) is set before
// the load: a correction table's own FieldSize key, else the given one, else
// 100.  A given field size that disagrees with the one the file states is an
// error: the file was calibrated with its own.  Throws Error, whose message
// has one line per error.
Calibration load_calibration(const std::string& path, const LoadOptions& options = {});

// Throws Error unless the field size is a finite number above 1 (what the
// data file keeps).
void check_field_size(double field_size, const std::string& what);

// The FieldSize key of a correction table's [vrncal] section, or nothing.
// Throws Error "PATH:LINE: ..." when it is not a number above 1.
std::optional<double> table_field_size(const std::string& path, const std::string& text);

// The size of the data file the library's saver writes for the record: its
// fixed layout makes that exact.
std::uint64_t data_file_size(const tagLenPar& par);

// Saves the record as a binary data file (the library's saver fits the
// coefficients again), checked and written through an AtomicFile; out may
// not be one of inputs.  Throws Error.
void save_data_file(tagLenPar& par, const std::string& out, const std::vector<std::string>& inputs = {});

// Checks that a library saver, run on a file in memory holding `start`,
// wrote the data file of `expected` whole, and returns its bytes.  save gets
// the path to write; out names the file for messages.  Throws Error.
std::string checked_save(const std::string& out, const tagLenPar& expected, const std::string& start,
                         const std::function<bool(const char*)>& save);

// Structural check of a binary data file before the library reads it: the
// library accepts a truncated file and would size grids from whatever bytes
// it finds.  Throws Error describing the first problem.
void validate_data_file(const std::string& path, const std::string& bytes);

// Reads box-correction parameters from an INI file ([Box] section, keys named
// after the record members: BoxScaleX=100.5, BoxXT0=-40 ...) through the
// library's INI store and sets them in par.  Throws Error naming the file
// and the key.
void apply_box_file(const std::string& path, tagLenPar& par);

}  // namespace vrncal::workflow

#endif
