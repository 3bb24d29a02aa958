#include "points_io.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "errors.h"
#include "workflow/input.h"
#include "workflow/numbers.h"

namespace vrncal::tools {

namespace {

// True when a field of the line, split at blanks and commas, is a number.
bool any_number(std::string_view text) {
    std::size_t pos = 0;
    while (pos < text.size()) {
        const std::size_t end = text.find_first_of(" \t,", pos);
        const std::string_view field = text.substr(pos, end == std::string_view::npos ? end : end - pos);
        if (!field.empty() && parse_double(field)) return true;
        if (end == std::string_view::npos) break;
        pos = end + 1;
    }
    return false;
}

}  // namespace

RowReader::RowReader(const std::string& path, int columns, std::uint64_t max_bytes)
    : columns_(columns), buf_(kMaxLineBytes + 1) {
    if (path == "-") {
        file_ = stdin;
        name_ = "standard input";
        return;
    }
    name_ = path;
    check_input_file(path, max_bytes);
    file_ = std::fopen(path.c_str(), "rb");
    if (file_ == nullptr) throw ToolError(path + ": cannot open: " + std::strerror(errno));
    owned_ = true;
}

RowReader::RowReader(std::FILE* stream, std::string name, int columns)
    : file_(stream), columns_(columns), name_(std::move(name)), buf_(kMaxLineBytes + 1) {}

RowReader::~RowReader() {
    if (owned_) std::fclose(file_);
}

bool RowReader::read_line(std::string_view& line) {
    for (;;) {
        const char* first = buf_.data() + begin_;
        if (const void* nl = std::memchr(first, '\n', end_ - begin_)) {
            const std::size_t len = static_cast<std::size_t>(static_cast<const char*>(nl) - first);
            line = std::string_view(first, len);
            begin_ += len + 1;
            return true;
        }
        if (eof_) {
            if (begin_ == end_) return false;
            line = std::string_view(first, end_ - begin_);  // the last line has no newline
            begin_ = end_;
            return true;
        }
        if (end_ - begin_ >= kMaxLineBytes)
            throw ToolError(fmt::format("{}:{}: a line longer than {} bytes: not a list of points", name_, line_ + 1,
                                        kMaxLineBytes));
        std::memmove(buf_.data(), first, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        errno = 0;
        const std::size_t got = std::fread(buf_.data() + end_, 1, buf_.size() - end_, file_);
        end_ += got;
        if (got == 0) {
            if (std::ferror(file_))
                throw ToolError(name_ + ": read failed: " + std::strerror(errno != 0 ? errno : EIO));
            eof_ = true;
        }
    }
}

bool RowReader::next(float* values) {
    for (;;) {
        std::string_view text;
        if (!read_line(text)) return false;
        ++line_;
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
            // A first line none of whose fields is a number is a header
            // ("x y", "X,Y,RealX,RealY"); one with a number in it is data.
            if (first && !any_number(text)) continue;
            const char* what = parse_double(bad_field) ? "is out of range for a float" : "is not a number";
            throw ToolError(fmt::format("{}:{}: '{}' {}", name_, line_, echo_token(bad_field), what));
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

std::vector<std::vector<float>> read_all_rows(const std::string& path, int columns, std::size_t max_rows) {
    RowReader reader(path, columns, kMaxPointListBytes);
    std::vector<std::vector<float>> rows;
    std::vector<float> v(static_cast<std::size_t>(columns));
    while (reader.next(v.data())) {
        if (rows.size() == max_rows)
            throw ToolError(fmt::format("{}:{}: more than {} rows", reader.name(), reader.line(), max_rows));
        rows.push_back(v);
    }
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
