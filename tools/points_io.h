// Point streams: field points in, device points out.
//
// Input is one point per line, "x y" or "x,y" (any mix of blanks and one
// comma between the numbers); "#" starts a comment that runs to the end of
// the line; blank lines are skipped; the first line that holds something may
// be a header (it is skipped when it is not numeric and contains a letter).
// Output is one "x y" line per point, each number in the shortest form that
// reads back as the same float.
#ifndef VRNCAL_TOOLS_POINTS_IO_H
#define VRNCAL_TOOLS_POINTS_IO_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include <vrncal/records.h>

namespace vrncal::tools {

// Reads rows of a fixed number of columns from a file or standard input.
// The text is read in large blocks and split into lines in place.
class RowReader {
public:
    // path "-" reads standard input.  Throws ToolError when the file cannot
    // be opened.
    RowReader(const std::string& path, int columns);
    ~RowReader();
    RowReader(const RowReader&) = delete;
    RowReader& operator=(const RowReader&) = delete;

    // Reads the next row into values[0 .. columns-1]; false at the end.
    // Throws ToolError "NAME:LINE: ..." for a malformed or non-finite row.
    bool next(float* values);
    // Line number of the row last returned.
    long line() const { return line_; }
    const std::string& name() const { return name_; }

private:
    // The next line without its newline; false at the end of the input.
    bool next_line(std::string_view& line);

    std::FILE* file_ = nullptr;
    bool owned_ = false;
    int columns_;
    std::string name_;
    std::vector<char> buf_;          // holds text [begin_, end_) not yet split
    std::size_t begin_ = 0, end_ = 0;
    bool at_eof_ = false;
    long line_ = 0;
    bool seen_content_ = false;
};

// Reads up to max field points; returns how many were read (0 at the end).
std::size_t read_points(RowReader& reader, tagKelPointF* out, std::size_t max);

// Reads every row of a small file (calibration points, gain-table points).
std::vector<std::vector<float>> read_all_rows(const std::string& path, int columns);

// Appends "x y\n" in shortest round-trip form.
void append_point(fmt::memory_buffer& buf, tagKelPointF p);
// Appends n points, each as append_point does.
void append_points(fmt::memory_buffer& buf, const tagKelPointF* p, std::size_t n);

// Writes a buffer to a stream and empties it; throws ToolError on failure.
void flush_buffer(fmt::memory_buffer& buf, std::FILE* out, const std::string& name);

}  // namespace vrncal::tools

#endif
