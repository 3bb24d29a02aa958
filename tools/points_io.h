// Point streams: field points in, device points out.
//
// Input is one point per line, "x y" or "x,y" (any mix of blanks and one
// comma between the numbers); "#" starts a comment that runs to the end of
// the line; blank lines are skipped; the first line that holds something is
// a header when none of its fields is a number (then it is skipped), and
// data otherwise.  A file must be a regular file; standard input may be any
// stream.  Either is read in blocks, a line at most kMaxLineBytes long, so
// memory stays bounded whatever comes in; a read error is an error, never an
// early end.
// Output is one "x y" line per point, each number in the shortest form that
// reads back as the same float.
#ifndef VRNCAL_TOOLS_POINTS_IO_H
#define VRNCAL_TOOLS_POINTS_IO_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include <vrncal/records.h>

#include "workflow/atomic_file.h"

namespace vrncal::tools {

// Reads rows of a fixed number of columns from a file or standard input.
// The text is read in large blocks and split into lines in place.
class RowReader {
public:
    // path "-" reads standard input.  Throws ToolError when the file cannot
    // be opened, is not a regular file or is larger than max_bytes.
    RowReader(const std::string& path, int columns,
              std::uint64_t max_bytes = std::numeric_limits<std::uint64_t>::max());
    // Reads an open stream (not closed here); name is used in messages.
    RowReader(std::FILE* stream, std::string name, int columns);
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

// Reads every row of a small list (calibration points, gain-table points);
// more than max_rows rows is an error.
std::vector<std::vector<float>> read_all_rows(const std::string& path, int columns, std::size_t max_rows);

// Appends "x y\n" in shortest round-trip form.
void append_point(fmt::memory_buffer& buf, tagKelPointF p);
// Appends n points, each as append_point does.
void append_points(fmt::memory_buffer& buf, const tagKelPointF* p, std::size_t n);

// Where a command writes its lines of points: a file written whole or not
// at all (AtomicFile; it may not be one of inputs), or standard output for
// "" or "-".
class PointOutput {
public:
    PointOutput(const std::string& path, const std::vector<std::string>& inputs);
    ~PointOutput();
    bool to_file() const { return file_ != nullptr; }
    // Writes the buffer and empties it; throws ToolError on failure.
    void flush(fmt::memory_buffer& buf);
    // Puts a file in place (nothing to do for standard output).
    void commit();

private:
    std::unique_ptr<workflow::AtomicFile> file_;
    std::FILE* out_ = stdout;
    std::string name_ = "standard output";
};

}  // namespace vrncal::tools

#endif
