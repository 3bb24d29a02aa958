#include "workflow/csv.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <fmt/format.h>

#include "workflow/atomic_file.h"
#include "workflow/error.h"
#include "workflow/numbers.h"

namespace vrncal::workflow {

namespace {

std::vector<std::string> split(const std::string& line, char sep) {
    std::vector<std::string> out;
    if (sep == ' ') {
        std::size_t i = 0;
        while (i < line.size()) {
            while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
            if (i == line.size()) break;
            const std::size_t j = line.find_first_of(" \t", i);
            out.emplace_back(line.substr(i, j == std::string::npos ? std::string::npos : j - i));
            i = j == std::string::npos ? line.size() : j;
        }
        return out;
    }
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = line.find(sep, start);
        out.emplace_back(trimmed(line.substr(start, end == std::string::npos ? std::string::npos : end - start)));
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return out;
}

}  // namespace

int CsvFile::column(const std::string& name) const {
    const auto it = std::find(header.begin(), header.end(), name);
    return it == header.end() ? -1 : static_cast<int>(it - header.begin());
}

bool CsvFile::blank(const CsvRow& row, int col) const {
    return col < 0 || static_cast<std::size_t>(col) >= row.fields.size() || row.fields[static_cast<std::size_t>(col)].empty();
}

double CsvFile::number(const CsvRow& row, int col, const std::string& name) const {
    if (blank(row, col)) throw Error(fmt::format("{}:{}: {} is empty", path, row.line, name));
    const std::string& text = row.fields[static_cast<std::size_t>(col)];
    const auto v = parse_double(text);
    if (!v) throw Error(fmt::format("{}:{}: {} '{}' is not a number", path, row.line, name, text));
    if (!std::isfinite(*v)) throw Error(fmt::format("{}:{}: {} is {}, not a finite number", path, row.line, name, text));
    return *v;
}

CsvFile read_csv(const std::string& path) {
    const std::string text = read_file(path);
    CsvFile f;
    f.path = path;
    char sep = 0;
    std::size_t pos = 0;
    int line_no = 0;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = text.size();
        const std::string line(trimmed(std::string_view(text).substr(pos, end - pos)));
        pos = end + 1;
        ++line_no;
        if (line.empty() || line[0] == '#') continue;
        if (sep == 0) sep = line.find(',') != std::string::npos ? ',' : line.find(';') != std::string::npos ? ';'
                          : ' ';
        auto fields = split(line, sep);
        if (f.header_line == 0 && f.rows.empty()) {
            const bool names = std::any_of(fields.begin(), fields.end(),
                                           [](const std::string& s) { return !s.empty() && !parse_double(s); });
            if (names) {
                f.header_line = line_no;
                for (auto& h : fields) {
                    std::transform(h.begin(), h.end(), h.begin(), [](unsigned char c) { return std::tolower(c); });
                    f.header.push_back(h);
                }
                continue;
            }
        }
        if (f.header_line != 0 && fields.size() > f.header.size())
            throw Error(fmt::format("{}:{}: {} fields, but the header on line {} names {} columns", path, line_no,
                                    fields.size(), f.header_line, f.header.size()));
        f.rows.push_back(CsvRow{line_no, std::move(fields)});
    }
    return f;
}

}  // namespace vrncal::workflow
