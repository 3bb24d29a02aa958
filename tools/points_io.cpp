#include "points_io.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "workflow/atomic_file.h"
#include "errors.h"
#include "workflow/numbers.h"

namespace vrncal::tools {

RowReader::RowReader(const std::string& path, int columns) : columns_(columns) {
    if (path == "-") {
        file_ = stdin;
        name_ = "standard input";
        return;
    }
    name_ = path;
    require_readable(path);
    file_ = std::fopen(path.c_str(), "rb");
    if (file_ == nullptr) throw ToolError(path + ": cannot open: " + std::strerror(errno));
    owned_ = true;
}

RowReader::~RowReader() {
    if (owned_) std::fclose(file_);
    std::free(buf_);
}

bool RowReader::next(float* values) {
    for (;;) {
        const ssize_t n = ::getline(&buf_, &cap_, file_);
        if (n < 0) {
            if (std::ferror(file_)) throw ToolError(name_ + ": read failed");
            return false;
        }
        ++line_;
        std::string_view text(buf_, static_cast<std::size_t>(n));
        if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
        if (const auto hash = text.find('#'); hash != std::string_view::npos) text = text.substr(0, hash);
        text = trimmed(text);
        if (text.empty()) continue;
        const bool first = !seen_content_;
        seen_content_ = true;

        // Split at blanks, with at most one comma between two numbers.
        int count = 0;
        std::size_t pos = 0;
        bool bad = false;
        std::string_view bad_field;
        while (pos < text.size()) {
            while (pos < text.size() && (text[pos] == ' ' || text[pos] == '\t')) ++pos;
            if (count > 0 && pos < text.size() && text[pos] == ',') {
                ++pos;
                while (pos < text.size() && (text[pos] == ' ' || text[pos] == '\t')) ++pos;
            }
            if (pos >= text.size()) break;
            std::size_t end = pos;
            while (end < text.size() && text[end] != ' ' && text[end] != '\t' && text[end] != ',') ++end;
            if (end == pos) {  // a stray comma
                if (!bad) bad_field = text.substr(pos, 1);
                bad = true;
                ++pos;
                continue;
            }
            const std::string_view field = text.substr(pos, end - pos);
            pos = end;
            if (count >= columns_) {
                ++count;
                continue;
            }
            const auto v = parse_float(field);
            if (!v) {
                if (!bad) bad_field = field;
                bad = true;
                ++count;
                continue;
            }
            values[count++] = *v;
        }
        if (bad) {
            // A first line with words in it is a header ("x y", "X,Y,RealX,RealY").
            bool has_letter = false;
            for (char c : text) has_letter = has_letter || std::isalpha(static_cast<unsigned char>(c));
            if (first && has_letter && !parse_double(bad_field)) continue;
            const char* what = parse_double(bad_field) ? "is out of range for a float" : "is not a number";
            throw ToolError(fmt::format("{}:{}: '{}' {}", name_, line_, bad_field, what));
        }
        if (count != columns_)
            throw ToolError(fmt::format("{}:{}: expected {} numbers, found {}", name_, line_, columns_, count));
        for (int i = 0; i < columns_; ++i)
            if (!std::isfinite(values[i]))
                throw ToolError(fmt::format("{}:{}: {} is not a finite number", name_, line_, fmt_num(values[i])));
        return true;
    }
}

std::size_t read_points(RowReader& reader, tagKelPointF* out, std::size_t max) {
    std::size_t n = 0;
    float v[2];
    while (n < max && reader.next(v)) out[n++] = tagKelPointF{v[0], v[1]};
    return n;
}

std::vector<std::vector<float>> read_all_rows(const std::string& path, int columns) {
    RowReader reader(path, columns);
    std::vector<std::vector<float>> rows;
    std::vector<float> v(static_cast<std::size_t>(columns));
    while (reader.next(v.data())) rows.push_back(v);
    return rows;
}

void append_point(fmt::memory_buffer& buf, tagKelPointF p) {
    fmt::format_to(std::back_inserter(buf), "{} {}\n", p.x, p.y);
}

void flush_buffer(fmt::memory_buffer& buf, std::FILE* out, const std::string& name) {
    if (buf.size() != 0 && std::fwrite(buf.data(), 1, buf.size(), out) != buf.size())
        throw ToolError(name + ": write failed: " + std::strerror(errno));
    buf.clear();
}

}  // namespace vrncal::tools
