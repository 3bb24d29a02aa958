#include "workflow/numbers.h"

#include <charconv>
#include <fmt/format.h>

namespace vrncal::workflow {

std::string_view trimmed(std::string_view s) {
    const char* blanks = " \t\r";
    const auto first = s.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    const auto last = s.find_last_not_of(blanks);
    return s.substr(first, last - first + 1);
}

namespace {

template <typename T>
std::optional<T> parse_whole(std::string_view s) {
    s = trimmed(s);
    // from_chars takes no leading '+'; a user may well write one.
    if (s.size() > 1 && s[0] == '+' && s[1] != '-') s.remove_prefix(1);
    if (s.empty()) return std::nullopt;
    T v{};
    const auto res = std::from_chars(s.data(), s.data() + s.size(), v);
    if (res.ec != std::errc() || res.ptr != s.data() + s.size()) return std::nullopt;
    return v;
}

}  // namespace

std::optional<float> parse_float(std::string_view s) { return parse_whole<float>(s); }
std::optional<double> parse_double(std::string_view s) { return parse_whole<double>(s); }
std::optional<int> parse_int(std::string_view s) { return parse_whole<int>(s); }

std::string fmt_num(float v) { return fmt::format("{}", v); }
std::string fmt_num(double v) { return fmt::format("{}", v); }

}  // namespace vrncal::workflow
