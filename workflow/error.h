// The one error type of the workflow: a message, ready to be shown as one
// line, that names the file (and the line or key) the problem is in.  The
// tool prints it on standard error and exits with status 1.
#ifndef VRNCAL_WORKFLOW_ERROR_H
#define VRNCAL_WORKFLOW_ERROR_H

#include <stdexcept>
#include <string>

namespace vrncal::workflow {

class Error : public std::runtime_error {
public:
    explicit Error(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace vrncal::workflow

#endif
