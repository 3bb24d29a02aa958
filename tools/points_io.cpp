#include "points_io.h"

#include <fmt/compile.h>

#include <charconv>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <string_view>

#include "errors.h"
#include "workflow/input.h"
#include "workflow/numbers.h"

namespace vrncal::tools {

RowReader::RowReader(const std::string& path, int columns, std::uint64_t max_bytes) : columns_(columns) {
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
    : file_(stream), columns_(columns), name_(std::move(name)) {}

RowReader::~RowReader() {
    if (owned_) std::fclose(file_);
}

bool RowReader::next_line(std::string_view& line) {
    constexpr std::size_t kBlock = 1 << 20;
    for (;;) {
        const char* from = buf_.data() + begin_;
        // memchr and memmove must not see the null data of an empty buffer.
        const void* nl = end_ > begin_ ? std::memchr(from, '\n', end_ - begin_) : nullptr;
        if (nl != nullptr) {
            const std::size_t len = static_cast<std::size_t>(static_cast<const char*>(nl) - from);
            line = std::string_view(from, len);
            begin_ += len + 1;
            return true;
        }
        if (at_eof_) {
            if (begin_ == end_) return false;
            line = std::string_view(from, end_ - begin_);  // a last line without a newline
            begin_ = end_;
            return true;
        }
        // A line without end is not a list of points (it may be /dev/zero):
        // memory stays bounded.
        if (end_ - begin_ >= kMaxLineBytes)
            throw ToolError(fmt::format("{}:{}: a line longer than {} bytes: not a list of points", name_, line_ + 1,
                                        kMaxLineBytes));
        // Keep the unfinished line at the front, make room, read a block.
        if (end_ > begin_) std::memmove(buf_.data(), from, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        if (buf_.size() < end_ + kBlock) buf_.resize(end_ + kBlock);
        errno = 0;
        const std::size_t got = std::fread(buf_.data() + end_, 1, buf_.size() - end_, file_);
        end_ += got;
        if (got == 0) {
            if (std::ferror(file_))
                throw ToolError(name_ + ": read failed: " + std::strerror(errno != 0 ? errno : EIO));
            at_eof_ = true;
        }
    }
}

namespace {

bool is_blank(char c) { return c == ' ' || c == '\t'; }

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

// The common row, parsed straight from the text: `columns` finite numbers
// separated by blanks or one comma, nothing else.  Returns false for
// anything else (comments, a header, a '+', a bad number...), which the full
// parser then reads; a row this accepts reads the same there.
bool parse_plain_row(std::string_view text, int columns, float* values) {
    const char* p = text.data();
    const char* const end = p + text.size();
    for (int i = 0; i < columns; ++i) {
        if (i > 0) {
            while (p < end && is_blank(*p)) ++p;
            if (p < end && *p == ',') ++p;
            while (p < end && is_blank(*p)) ++p;
        }
        const auto res = std::from_chars(p, end, values[i]);
        if (res.ec != std::errc() || !std::isfinite(values[i])) return false;
        p = res.ptr;
        if (p < end && !is_blank(*p) && *p != ',') return false;
    }
    while (p < end && (is_blank(*p) || *p == '\r')) ++p;
    return p == end;
}

}  // namespace

bool RowReader::next(float* values) {
    std::string_view text;
    while (next_line(text)) {
        ++line_;
        // Skip the leading blanks the way trimmed() does, for the quick path.
        std::size_t lead = 0;
        while (lead < text.size() && (is_blank(text[lead]) || text[lead] == '\r')) ++lead;
        if (lead < text.size() && text[lead] != '#' && parse_plain_row(text.substr(lead), columns_, values)) {
            seen_content_ = true;
            return true;
        }
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
    return false;
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

void append_point(fmt::memory_buffer& buf, tagKelPointF p) { append_points(buf, &p, 1); }

void append_points(fmt::memory_buffer& buf, const tagKelPointF* p, std::size_t n) {
    // A float in shortest form takes at most 15 characters ("-1.1754944e-38").
    constexpr std::size_t kMaxLine = 2 * 16 + 1;
    std::size_t at = buf.size();
    buf.resize(at + n * kMaxLine);
    for (std::size_t i = 0; i < n; ++i)
        at = static_cast<std::size_t>(fmt::format_to(buf.data() + at, FMT_COMPILE("{} {}\n"), p[i].x, p[i].y) -
                                      buf.data());
    buf.resize(at);
}

PointOutput::PointOutput(const std::string& path, const std::vector<std::string>& inputs) {
    if (path.empty() || path == "-") return;
    file_ = std::make_unique<workflow::AtomicFile>(path, inputs);
    out_ = file_->stream();
    name_ = path;
}

PointOutput::~PointOutput() = default;

void PointOutput::flush(fmt::memory_buffer& buf) {
    if (buf.size() != 0 && std::fwrite(buf.data(), 1, buf.size(), out_) != buf.size())
        throw ToolError(name_ + ": write failed: " + std::strerror(errno));
    buf.clear();
}

void PointOutput::commit() {
    if (file_) file_->commit();
}

}  // namespace vrncal::tools
