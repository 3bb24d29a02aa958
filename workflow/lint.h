// The correction table linter behind `vrncal check`.
//
// It reads the text exactly as the library's INI store and table loader do
// (sections and keys are not trimmed, the first of two equal keys wins, the
// last of two equal section headers wins, only the keys the loader asks for
// are ever seen) and reports, with line numbers, everything that makes the
// loaded calibration differ from what the file seems to say.
#ifndef VRNCAL_WORKFLOW_LINT_H
#define VRNCAL_WORKFLOW_LINT_H

#include <string>
#include <vector>

namespace vrncal::workflow {

struct Finding {
    enum Severity { Error, Warning };
    int line;  // 0 when the finding concerns the whole file
    Severity severity;
    std::string message;
};

// Static checks of the text; findings sorted by line.
std::vector<Finding> lint_table(const std::string& text);

// "PATH:LINE: error: message" (or "PATH: error: message" for line 0).
std::string format_finding(const std::string& path, const Finding& f);

}  // namespace vrncal::workflow

#endif
