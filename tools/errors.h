// The one error type of the tool: a message that main() prints as a single
// line on standard error before it exits with status 1.
#ifndef VRNCAL_TOOLS_ERRORS_H
#define VRNCAL_TOOLS_ERRORS_H

#include <stdexcept>
#include <string>

namespace vrncal::tools {

class ToolError : public std::runtime_error {
public:
    explicit ToolError(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace vrncal::tools

#endif
