// Edits of a correction table's text that keep the rest of the text: every
// other line, comment and key stays as it was, in its place.
//
// Keys are found as the library's loader finds them: in the last header of a
// section (a repeated header hides the earlier ones), the first line of a key
// (a repeated key is ignored), names compared exactly, untrimmed.  Line ends
// are kept: a table written with CR LF stays so.
#ifndef VRNCAL_WORKFLOW_TABLE_EDIT_H
#define VRNCAL_WORKFLOW_TABLE_EDIT_H

#include <optional>
#include <string>
#include <vector>

#include <vrncal/records.h>

namespace vrncal::workflow {

class TableEditor {
public:
    explicit TableEditor(const std::string& text);

    struct Value {
        std::string text;
        int line;  // 1-based
    };
    // The value the loader reads for the key, or nothing.
    std::optional<Value> find(const std::string& section, const std::string& key) const;
    bool has_section(const std::string& section) const;

    // Replaces the key's value where the loader reads it, or adds the key at
    // the end of the section; a missing section is added at the end of the
    // file, or before the first section when at_top.
    void set(const std::string& section, const std::string& key, const std::string& value, bool at_top = false);

    // Replaces the section's points: its PNT keys go, PNT0 .. PNTn-1 take the
    // place of the first of them (or the end of the section); a missing
    // section is added at the end of the file.
    void set_points(const std::string& section, const std::vector<tagCalData>& points);

    // Removes every header of the section and the lines under them.
    void remove_section(const std::string& section);

    std::string text() const;

private:
    // [first, end) of the lines under the last header of the section, first
    // being the header itself; nothing when there is no such header.
    std::optional<std::pair<std::size_t, std::size_t>> range(const std::string& section) const;
    std::size_t add_section(const std::string& section, bool at_top);

    std::vector<std::string> lines_;
    std::string eol_ = "\n";
};

// "PNT<i>=X Y RealX RealY", each number in its shortest round-trip form.
std::string point_line(int i, const tagCalData& p);

}  // namespace vrncal::workflow

#endif
