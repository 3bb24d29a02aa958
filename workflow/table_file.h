// Correction tables on disk as the workflow keeps them: text, edited in
// place, every write checked by loading the result through the library
// before it replaces the file.
#ifndef VRNCAL_WORKFLOW_TABLE_FILE_H
#define VRNCAL_WORKFLOW_TABLE_FILE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <vrncal/records.h>

#include "workflow/table_writer.h"

namespace vrncal::workflow {

// Loads table text through a temporary file, as a machine loads a table,
// with the field size set before the load; selects the grid correction.
// Throws Error when the library does not load it.
tagLenPar load_table_text(const std::string& text, double field_size);

struct TableFile {
    std::string path;
    std::string text;
    double field_size = 100.0;
    // The settings the loader reads (ValSize, Resolution, flags) with the
    // field size; CalMode 1.
    tagLenPar settings;
    // The loaded calibration; empty while the nine points are missing (a
    // table just planned).
    std::optional<tagLenPar> calibration;
};

// Reads a correction table (not a data file) with the field size as
// load_calibration decides it.  Throws Error.
TableFile read_table_file(const std::string& path, std::optional<double> field_size);

// Writes the text to path whole or not at all.  Before the file is
// replaced, the text is loaded through the library (unless the table has no
// nine points yet) and check is given the record; its findings, if any,
// stop the write with "PATH: not written: FINDINGS".  Throws Error.
void write_table_file(const std::string& path, const std::string& text, double field_size,
                      const std::function<std::vector<std::string>(const tagLenPar&)>& check);

// Saves a record as a correction table that carries it: the table loads
// back to the same bits in every member the text form carries.  When it
// cannot (a member the text form cannot hold, a coefficient stored apart
// from its fit), the differences stop the write unless force is set; they
// are returned either way.  Throws Error.
std::vector<std::string> save_as_table(const tagLenPar& par, const std::string& path,
                                       const std::vector<std::string>& comments, bool force);

}  // namespace vrncal::workflow

#endif
