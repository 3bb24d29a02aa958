// Input files, read with a bound.
//
// Every file the tool reads is a regular file of a stated largest size,
// opened once and read through that one descriptor; a directory, FIFO,
// device or socket is refused with a message before anything is read (a
// stream of points comes in through standard input instead).  A read error
// is an error, never an early end of the file.
#ifndef VRNCAL_WORKFLOW_INPUT_H
#define VRNCAL_WORKFLOW_INPUT_H

#include <cstdint>
#include <string>
#include <string_view>

class CCfgFile;

namespace vrncal::workflow {

// The largest files read: a calibration (a table with all six grids is about
// 1 MiB), a parameter file (lens, box), a list of points to set (a 65 x 65
// grid is about 200 KiB).  A list of points to correct may be of any size.
constexpr std::uint64_t kMaxCalibrationBytes = std::uint64_t{64} << 20;
constexpr std::uint64_t kMaxParameterBytes = std::uint64_t{1} << 20;
constexpr std::uint64_t kMaxPointListBytes = std::uint64_t{16} << 20;
// The longest line of a point stream (which itself may be of any length).
constexpr std::size_t kMaxLineBytes = std::size_t{64} << 10;

// Throws Error naming the file unless it is a regular file of at most
// max_bytes that can be opened for reading.
void check_input_file(const std::string& path, std::uint64_t max_bytes);

// Reads a whole file once, through one descriptor, after the check above.
std::string read_file(const std::string& path, std::uint64_t max_bytes);

// Loads an INI file (lens, box parameters) into the library's store, after
// the check above.
void load_ini(const std::string& path, std::uint64_t max_bytes, CCfgFile& cfg);

// True when the file starts with the data file's magic "VRNCLDT".
bool is_data_file(std::string_view bytes);

// A token as it may be echoed in a message: at most max_chars characters
// (then "..."), a tab shown as \t and other control and non-ASCII bytes as
// '?'.
std::string echo_token(std::string_view token, std::size_t max_chars = 24);

// "1.5 MiB", "64 MiB", "900 bytes".
std::string byte_size(std::uint64_t bytes);

}  // namespace vrncal::workflow

#endif
