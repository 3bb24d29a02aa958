// Internal: how one line of INI text is taken apart, shared by the INI store
// (CCfgFile::loadItems) and the correction table reader, so both read a file
// alike.  The rules are deliberately minimal; files in the field are written
// to match them.
#ifndef VRNCAL_FILES_INI_SYNTAX_H
#define VRNCAL_FILES_INI_SYNTAX_H

#include <cstddef>
#include <string_view>

namespace vrncal_detail {

enum class IniLine { Skip, Section, Item };

// Empty lines and lines with ';' in the first column are skipped; a '[' in
// the first column opens a section; anything else is an item (ignored by the
// readers while no section is open).
inline IniLine classifyIniLine(std::string_view line) {
    if (line.empty() || line[0] == ';') return IniLine::Skip;
    return line[0] == '[' ? IniLine::Section : IniLine::Item;
}

// The name a section line gives: trailing CRs removed, then everything
// between the first and the last character.  The last character is dropped
// unseen (the ']' is assumed, never checked) and the name is not trimmed; a
// lone "[" names the empty section.
inline std::string_view iniSectionName(std::string_view line) {
    std::size_t end = line.size();
    while (end > 0 && line[end - 1] == '\r') --end;
    line = line.substr(0, end);
    return line.substr(1, line.size() - 2);
}

// Key and value of an item line: before and after the first '='; nothing is
// trimmed.  The position is taken as a signed 32-bit number, so "not found"
// is -1 and a line without '=' is both the key (up to npos) and the value
// (from 0).  Kept on purpose.
inline void splitIniItem(std::string_view line, std::string_view& key, std::string_view& value) {
    const int eq = static_cast<int>(line.find('='));
    const long long valueStart = static_cast<long long>(eq) + 1;
    key = line.substr(0, static_cast<std::size_t>(eq));
    value = line.substr(static_cast<std::size_t>(valueStart));
}

}  // namespace vrncal_detail

#endif
