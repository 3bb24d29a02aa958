// The tool's two outputs besides files.  Everything a command prints on
// standard output goes through print(), so that a write that fails (a full
// disk, a file-size limit) is an error with a message and status 1, never a
// silent loss; notes and warnings go to standard error with the tool's name.
#ifndef VRNCAL_TOOLS_PRINT_H
#define VRNCAL_TOOLS_PRINT_H

#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace vrncal::tools {

// Writes to standard output; throws ToolError when the write fails.
void write_stdout(std::string_view text);

template <typename... Args>
void print(fmt::format_string<Args...> format, Args&&... args) {
    write_stdout(fmt::format(format, std::forward<Args>(args)...));
}

// Flushes standard output at the end of a command; throws ToolError when
// what was buffered cannot be written.
void finish_stdout();

// "vrncal: warning: TEXT" (or "vrncal: note: TEXT") on standard error, one
// line for each line of text.
void warn(const std::string& text);
void note(const std::string& text);

// Each line of a message on standard error, after "vrncal: ".
void print_error(const std::string& message);

}  // namespace vrncal::tools

#endif
