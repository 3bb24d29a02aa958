#include "workflow/table_edit.h"

#include <fmt/format.h>

namespace vrncal::workflow {

namespace {

bool is_header(const std::string& line) { return !line.empty() && line[0] == '['; }

// The section a header line names, as the loader reads it: everything
// between the first and the last character.
std::string header_name(const std::string& line) { return line.size() < 2 ? std::string() : line.substr(1, line.size() - 2); }

bool is_item(const std::string& line) { return !line.empty() && line[0] != ';' && line[0] != '['; }

std::string key_of(const std::string& line) {
    const auto eq = line.find('=');
    return eq == std::string::npos ? line : line.substr(0, eq);
}

}  // namespace

std::string point_line(int i, const tagCalData& p) { return fmt::format("PNT{}={} {} {} {}", i, p.X, p.Y, p.RealX, p.RealY); }

TableEditor::TableEditor(const std::string& text) {
    std::size_t pos = 0;
    bool crlf = false;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(pos, end - pos);
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
            crlf = true;
        }
        lines_.push_back(std::move(line));
        pos = end + 1;
    }
    if (crlf) eol_ = "\r\n";
    // The element after the last line end: the text always ends with one.
    if (!lines_.empty()) lines_.emplace_back();
}

std::optional<std::pair<std::size_t, std::size_t>> TableEditor::range(const std::string& section) const {
    std::optional<std::size_t> first;
    for (std::size_t i = 0; i < lines_.size(); ++i)
        if (is_header(lines_[i]) && header_name(lines_[i]) == section) first = i;
    if (!first) return std::nullopt;
    std::size_t end = *first + 1;
    while (end < lines_.size() && !is_header(lines_[end])) ++end;
    return std::make_pair(*first, end);
}

bool TableEditor::has_section(const std::string& section) const { return range(section).has_value(); }

std::optional<TableEditor::Value> TableEditor::find(const std::string& section, const std::string& key) const {
    const auto r = range(section);
    if (!r) return std::nullopt;
    for (std::size_t i = r->first + 1; i < r->second; ++i)
        if (is_item(lines_[i]) && key_of(lines_[i]) == key) {
            const auto eq = lines_[i].find('=');
            return Value{eq == std::string::npos ? lines_[i] : lines_[i].substr(eq + 1), static_cast<int>(i + 1)};
        }
    return std::nullopt;
}

std::size_t TableEditor::add_section(const std::string& section, bool at_top) {
    std::size_t at = lines_.size();
    if (at_top)
        for (std::size_t i = 0; i < lines_.size(); ++i)
            if (is_header(lines_[i])) {
                at = i;
                break;
            }
    // A text without a final line end reads as one more, empty line.
    if (at == lines_.size() && !lines_.empty() && lines_.back().empty()) --at;
    lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(at), "[" + section + "]");
    return at;
}

void TableEditor::set(const std::string& section, const std::string& key, const std::string& value, bool at_top) {
    auto r = range(section);
    if (!r) {
        const std::size_t at = add_section(section, at_top);
        r = std::make_pair(at, at + 1);
    }
    for (std::size_t i = r->first + 1; i < r->second; ++i)
        if (is_item(lines_[i]) && key_of(lines_[i]) == key) {
            lines_[i] = key + "=" + value;
            return;
        }
    std::size_t at = r->second;
    while (at > r->first + 1 && lines_[at - 1].empty()) --at;  // before trailing blank lines
    lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(at), key + "=" + value);
}

void TableEditor::set_points(const std::string& section, const std::vector<tagCalData>& points) {
    auto r = range(section);
    if (!r) {
        const std::size_t at = add_section(section, false);
        r = std::make_pair(at, at + 1);
    }
    std::optional<std::size_t> first_point;
    std::vector<std::string> kept;
    for (std::size_t i = r->first + 1; i < r->second; ++i) {
        const bool pnt = is_item(lines_[i]) && key_of(lines_[i]).rfind("PNT", 0) == 0;
        if (pnt && !first_point) first_point = kept.size();
        if (!pnt) kept.push_back(lines_[i]);
    }
    std::size_t at = first_point.value_or(kept.size());
    if (!first_point)
        while (at > 0 && kept[at - 1].empty()) --at;
    std::vector<std::string> pts;
    for (std::size_t i = 0; i < points.size(); ++i) pts.push_back(point_line(static_cast<int>(i), points[i]));
    kept.insert(kept.begin() + static_cast<std::ptrdiff_t>(at), pts.begin(), pts.end());
    lines_.erase(lines_.begin() + static_cast<std::ptrdiff_t>(r->first + 1),
                 lines_.begin() + static_cast<std::ptrdiff_t>(r->second));
    lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(r->first + 1), kept.begin(), kept.end());
}

void TableEditor::remove_section(const std::string& section) {
    while (auto r = range(section))
        lines_.erase(lines_.begin() + static_cast<std::ptrdiff_t>(r->first),
                     lines_.begin() + static_cast<std::ptrdiff_t>(r->second));
}

std::string TableEditor::text() const {
    std::string s;
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        s += lines_[i];
        // The last element is empty when the text ended with a line end.
        if (i + 1 < lines_.size()) s += eol_;
    }
    return s;
}

}  // namespace vrncal::workflow
