// The tool's own CSV files (marking jobs, measurements, head data): a header
// line naming the columns, then one record per line.
//
// Blank lines and lines starting with '#' are skipped.  Fields are separated
// by commas; a file without a comma on its first line may use semicolons,
// tabs or blanks instead.  Fields are trimmed.  The first line is the header
// when one of its fields is not a number.
#ifndef VRNCAL_WORKFLOW_CSV_H
#define VRNCAL_WORKFLOW_CSV_H

#include <string>
#include <vector>

namespace vrncal::workflow {

struct CsvRow {
    int line = 0;
    std::vector<std::string> fields;
};

struct CsvFile {
    std::string path;
    int header_line = 0;              // 0: no header
    std::vector<std::string> header;  // lower case
    std::vector<CsvRow> rows;

    // Index of the column of that name (lower case), or -1.
    int column(const std::string& name) const;
    // The field as a number; throws Error "PATH:LINE: NAME ..." when it is
    // empty, not a number or not finite.
    double number(const CsvRow& row, int column, const std::string& name) const;
    // True when the field is absent or blank.
    bool blank(const CsvRow& row, int column) const;
};

// Throws Error naming the file when it cannot be read or a line has more
// fields than the header.
CsvFile read_csv(const std::string& path);

}  // namespace vrncal::workflow

#endif
