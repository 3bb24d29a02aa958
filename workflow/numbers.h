// Strict text-to-number conversion for the tool's own inputs (point files,
// lens and box parameter files, command-line values).  Unlike the library's
// text layer, which reads a leading number and ignores the rest, these accept
// a value only when the whole text (less surrounding blanks) is one number.
#ifndef VRNCAL_WORKFLOW_NUMBERS_H
#define VRNCAL_WORKFLOW_NUMBERS_H

#include <optional>
#include <string>
#include <string_view>

namespace vrncal::workflow {

// Surrounding spaces, tabs and carriage returns removed.
std::string_view trimmed(std::string_view s);

// The float nearest to the decimal text (correctly rounded, not through
// double), or nothing when the text is not exactly one number.
std::optional<float> parse_float(std::string_view s);
std::optional<double> parse_double(std::string_view s);
std::optional<int> parse_int(std::string_view s);

// Shortest text that reads back as the same value.
std::string fmt_num(float v);
std::string fmt_num(double v);

}  // namespace vrncal::workflow

#endif
