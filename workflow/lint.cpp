#include "workflow/lint.h"

#include "workflow/input.h"
#include "workflow/numbers.h"
#include "workflow/table_writer.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>

namespace vrncal::workflow {

namespace {

struct Item {
    std::string value;
    int line;
};

struct Section {
    int line = 0;
    int keys = 0;  // key lines under the header, kept or not
    std::map<std::string, Item> items;
};

// The loader's view of the file, plus what it never sees.
struct Parsed {
    std::map<std::string, Section> sections;
    std::vector<Finding> findings;
};

constexpr int kGridSizes[] = {5, 9, 17, 33, 65, 25};  // the loader's order

const std::set<std::string>& coefs_keys() {
    static const std::set<std::string> keys{"ValSize", "Resolution", "LEN_XYFLIP",
                                            "LEN_XINVERT", "LEN_YINVERT", "order"};
    return keys;
}

bool is_grid_size(int n) { return std::find(std::begin(kGridSizes), std::end(kGridSizes), n) != std::end(kGridSizes); }

// Scalar keys of [Cal3] besides the points and the line table.
enum class Kind { Float, Int };
const std::map<std::string, Kind>& cal3_scalars() {
    static const std::map<std::string, Kind> keys = [] {
        std::map<std::string, Kind> m;
        m["grid"] = Kind::Int;
        m["LineCount"] = Kind::Int;
        for (const char* k : {"AxisXL", "AxisXR", "AxisYT", "AxisYB", "TXL", "TXR", "TYT", "TYB", "SXL",
                              "SXR", "SYT", "SYB", "OX", "OY", "PLX", "PLY", "Y2XAngle"})
            m[k] = Kind::Float;
        for (int i = 0; i < 20; ++i) m[fmt::format("k{}", i)] = Kind::Float;
        for (int i = 0; i < 8; ++i) m[fmt::format("s{}", i)] = Kind::Float;
        return m;
    }();
    return keys;
}

// Keys the fit writes after every load of a table: a value in the file is
// replaced before anything uses it.
const std::set<std::string>& fitted_keys() {
    static const std::set<std::string> keys{"AxisXL", "AxisXR", "AxisYT", "AxisYB", "TXL", "TXR",
                                            "TYT", "TYB", "SXL", "SXR", "SYT", "SYB", "OX", "OY",
                                            "PLX", "PLY", "Y2XAngle", "k0", "k1", "k2", "k3"};
    return keys;
}

// "XT12" -> ("XT", 12); nothing when the key is not a line-table key.
std::optional<std::pair<std::string, int>> line_table_key(const std::string& key) {
    if (key.size() < 3) return std::nullopt;
    const std::string prefix = key.substr(0, 2);
    if (prefix != "XT" && prefix != "YT" && prefix != "XA" && prefix != "YA" && prefix != "XR" && prefix != "YR")
        return std::nullopt;
    const std::string digits = key.substr(2);
    if (digits.size() > 4 || digits.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
    if (digits.size() > 1 && digits[0] == '0') return std::nullopt;
    return std::make_pair(prefix, std::stoi(digits));
}

// "PNT12" -> 12.
std::optional<int> point_key(const std::string& key) {
    if (key.size() < 4 || key.compare(0, 3, "PNT") != 0) return std::nullopt;
    const std::string digits = key.substr(3);
    if (digits.size() > 5 || digits.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
    if (digits.size() > 1 && digits[0] == '0') return std::nullopt;
    return std::stoi(digits);
}

bool is_cal3_key(const std::string& key) {
    return cal3_scalars().count(key) != 0 || line_table_key(key).has_value() || point_key(key).has_value();
}

// What surrounds a key: "a tab" names the usual cause.
std::string blank_kind(const std::string& key) {
    return key.find('\t') != std::string::npos ? "a tab" : "blanks";
}

// Edit distance with transpositions, small strings only.
int edit_distance(const std::string& a, const std::string& b) {
    const std::size_t n = a.size(), m = b.size();
    std::vector<std::vector<int>> d(n + 1, std::vector<int>(m + 1));
    for (std::size_t i = 0; i <= n; ++i) d[i][0] = static_cast<int>(i);
    for (std::size_t j = 0; j <= m; ++j) d[0][j] = static_cast<int>(j);
    for (std::size_t i = 1; i <= n; ++i)
        for (std::size_t j = 1; j <= m; ++j) {
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    return d[n][m];
}

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The known key an unknown one was probably meant to be ("Valsize" for
// ValSize, "PTN3" for PNT3), or nothing.
std::optional<std::string> misspelled(const std::string& key, const std::string& sect) {
    if (key.empty() || key.size() > 24) return std::nullopt;
    const std::size_t digits = key.find_last_not_of("0123456789") + 1;
    const std::string stem = key.substr(0, digits), number = key.substr(digits);
    auto close = [](const std::string& typed, const std::string& known) {
        if (lower(typed) == lower(known)) return true;
        const int allowed = known.size() <= 3 ? 1 : 2;
        return known.size() > 2 && edit_distance(lower(typed), lower(known)) <= allowed;
    };
    if (sect == kToolSection) {
        if (close(key, kFieldSizeKey)) return std::string(kFieldSizeKey);
        return std::nullopt;
    }
    if (!number.empty() && !stem.empty())
        for (const char* prefix : {"PNT", "XT", "YT", "XA", "YA", "XR", "YR", "k", "s"})
            if (stem != prefix && close(stem, prefix)) return prefix + number;
    std::vector<std::string> known(coefs_keys().begin(), coefs_keys().end());
    for (const auto& [name, kind] : cal3_scalars()) known.push_back(name);
    for (const auto& k : known)
        if (k != key && close(key, k)) return k;
    return std::nullopt;
}

// Why a value's text after its leading number is there.
std::string trailing_cause(const std::string& rest) {
    const std::size_t first = rest.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    if (rest[first] == ';' || rest[first] == '#') return "a comment after the value";
    if (rest[0] == ',' && rest.size() > 1 && std::isdigit(static_cast<unsigned char>(rest[1])))
        return "a decimal comma";
    if (rest.find('\t') != std::string::npos) return "a tab";
    return "";
}

std::string shown(const std::string& v) {
    std::string s = v;
    while (!s.empty() && s.back() == '\r') s.pop_back();
    return s;
}

// A value as a message shows it: cut short, control bytes made visible.
std::string echo(const std::string& v) { return echo_token(shown(v), 40); }

// An unknown key: an error when it looks like a known key misspelled (the
// known key then silently keeps its default), a warning otherwise.
Finding unknown_key(const std::string& key, const std::string& sect, int line) {
    if (const auto meant = misspelled(key, sect))
        return {line, Finding::Error,
                fmt::format("{} in [{}] is not a key the loader reads: a misspelled {}? (not set)", echo(key), sect,
                            *meant)};
    return {line, Finding::Warning, fmt::format("unknown key {} in [{}]: ignored", echo(key), sect)};
}

bool read_section(const std::string& name) {
    return name == "CalCoefs" || name == "Cal3" || name == kToolSection ||
           (name.rfind("Cal", 0) == 0 && name.size() > 3 && name.size() < 6 &&
            name.find_first_not_of("0123456789", 3) == std::string::npos && is_grid_size(std::atoi(name.c_str() + 3)));
}

// Keys worth keeping for the checks that need the whole section: the keys
// the loader reads, with indices it can reach.  Anything else is reported
// as its line is read, so the memory the linter takes stays bounded.
bool kept_key(const std::string& key, const std::string& sect) {
    if (sect == kToolSection) return key == kFieldSizeKey;
    if (coefs_keys().count(key) || cal3_scalars().count(key)) return true;
    if (const auto lt = line_table_key(key)) return lt->second < 100;
    if (const auto pk = point_key(key)) return *pk < 65 * 65;
    return false;
}

// At most this many findings come from single lines; past it the file is
// not a table as written, and one error says so.
constexpr std::size_t kMaxLineFindings = 1000;

Parsed parse(const std::string& text) {
    Parsed p;
    std::size_t line_findings = 0;
    auto note = [&](Finding f) {
        if (++line_findings <= kMaxLineFindings)
            p.findings.push_back(std::move(f));
        else if (line_findings == kMaxLineFindings + 1)
            p.findings.push_back({f.line, Finding::Error,
                                  fmt::format("more than {} problems: the rest of the file is not examined line by "
                                              "line; this is not a correction table as written",
                                              kMaxLineFindings)});
    };
    Section ignored;  // the keys of a section the loader does not read
    int before_header = 0, before_header_line = 0;
    Section* current = nullptr;
    std::string current_name;
    int line_no = 0;
    std::size_t pos = 0;
    while (pos < text.size()) {
        const std::size_t nl = text.find('\n', pos);
        const std::string line = text.substr(pos, nl == std::string::npos ? std::string::npos : nl - pos);
        pos = nl == std::string::npos ? text.size() : nl + 1;
        ++line_no;
        if (line.empty() || line[0] == ';') continue;
        const bool blank = line.find_first_not_of(" \t\r") == std::string::npos;
        if (line[0] == '[') {
            std::string t = line;
            while (!t.empty() && t.back() == '\r') t.pop_back();
            // The loader drops the last character without looking at it.
            const std::string name = t.size() >= 2 ? t.substr(1, t.size() - 2) : std::string();
            if (t.back() != ']')
                note({line_no, Finding::Error,
                      fmt::format("section header does not end in ']': the loader names it '{}'", echo(name))});
            current_name = name;
            if (current == nullptr && before_header > 0)
                note({before_header_line, Finding::Warning,
                      fmt::format("{} line{} before the first section header: ignored", before_header,
                                  before_header == 1 ? "" : "s")});
            if (!read_section(name)) {
                note({line_no, Finding::Warning,
                      fmt::format("section [{}] is not read: the grids are [Cal5], [Cal9], [Cal17], [Cal25], "
                                  "[Cal33] and [Cal65]",
                                  echo(name))});
                current = &ignored;
                continue;
            }
            auto it = p.sections.find(name);
            if (it != p.sections.end()) {
                if (it->second.keys > 0)
                    note({it->second.line, Finding::Error,
                          fmt::format("[{}] is repeated at line {}: the later header replaces this one, and the {} "
                                      "key(s) under this one are discarded",
                                      name, line_no, it->second.keys)});
                p.sections.erase(it);
            }
            current = &p.sections[name];
            current->line = line_no;
            continue;
        }
        if (current == nullptr) {
            if (!blank && before_header++ == 0) before_header_line = line_no;
            continue;
        }
        if (blank || current == &ignored) continue;
        const std::size_t eq = line.find('=');
        if (eq == std::string::npos) {
            note({line_no, Finding::Warning,
                  fmt::format("'{}' has no '=': the loader reads no value from it", echo(line))});
            continue;
        }
        ++current->keys;
        const std::string key = line.substr(0, eq);
        const std::string value = line.substr(eq + 1);
        const std::size_t first = key.find_first_not_of(" \t");
        const std::size_t last = key.find_last_not_of(" \t");
        if (first != std::string::npos && (first != 0 || last != key.size() - 1)) {
            const std::string bare = key.substr(first, last - first + 1);
            if (coefs_keys().count(bare) || is_cal3_key(bare)) {
                note({line_no, Finding::Error,
                      fmt::format("key '{}' has {} around it: the loader does not trim keys, so {} is not set",
                                  echo(key), blank_kind(key), bare)});
                continue;
            }
        }
        if (!kept_key(key, current_name)) {
            if (const auto pk = point_key(key))
                note({line_no, Finding::Warning, fmt::format("{} in [{}] is not read", key, current_name)});
            else if (const auto lt = line_table_key(key))
                note({line_no, Finding::Warning,
                      fmt::format("{} is not read: the loader reads line-table rows 0 to 99 at most", key)});
            else  // past the limit only counted: spare the spelling check
                note(line_findings < kMaxLineFindings ? unknown_key(key, current_name, line_no) : Finding{});
            continue;
        }
        auto [it, inserted] = current->items.emplace(key, Item{value, line_no});
        if (!inserted) {
            const bool same = shown(it->second.value) == shown(value);
            note({line_no, same ? Finding::Warning : Finding::Error,
                  fmt::format("{} repeated in [{}]: the loader keeps the first value (line {}) and ignores this one",
                              key, current_name, it->second.line)});
        }
    }
    return p;
}

// The loader's float conversion (std::stof) and int conversion (std::stoi).
void check_number(Parsed& p, const std::string& sect, const std::string& key, const Item& item, Kind kind) {
    const std::string v = item.value;
    const char* what = kind == Kind::Float ? "stof" : "stoi";
    std::size_t used = 0;
    try {
        if (kind == Kind::Float) {
            const float f = std::stof(v, &used);
            if (!std::isfinite(f)) {
                p.findings.push_back({item.line, Finding::Error,
                                      fmt::format("{} = '{}' is not finite", key, echo(v))});
                return;
            }
        } else {
            const int i = std::stoi(v, &used, 10);
            const std::string rest = shown(v.substr(used));
            const std::string cause = trailing_cause(rest);
            // "12.5" loses its fraction, "1.0" nothing.
            const bool fraction = !rest.empty() && (rest[0] == '.' || cause == "a decimal comma") &&
                                  std::strtod(("0." + rest.substr(1)).c_str(), nullptr) != 0.0;
            if (fraction)
                p.findings.push_back({item.line, Finding::Error,
                                      fmt::format("{} = '{}' is read as the integer {}", key, echo(v), i)});
            else if (!rest.empty() && rest.find_first_not_of(" \t") != std::string::npos)
                p.findings.push_back(
                    {item.line, Finding::Warning,
                     fmt::format("{} = '{}'{}: the loader reads {} and ignores '{}'", key, echo(v),
                                 cause.empty() ? "" : ": " + cause, i, echo(rest))});
            return;
        }
    } catch (const std::invalid_argument&) {
        p.findings.push_back({item.line, Finding::Error,
                              fmt::format("{} = '{}' in [{}] is not a number: the load stops with '{}'", key,
                                          echo(v), sect, what)});
        return;
    } catch (const std::out_of_range&) {
        p.findings.push_back({item.line, Finding::Error,
                              fmt::format("{} = '{}' in [{}] is out of range: the load stops with '{}'", key,
                                          echo(v), sect, what)});
        return;
    }
    const std::string rest = shown(v.substr(used));
    if (rest.find_first_not_of(" \t") == std::string::npos) return;
    // A decimal comma changes the number; a comment or a unit does not.
    const std::string cause = trailing_cause(rest);
    if (cause == "a decimal comma")
        p.findings.push_back({item.line, Finding::Error,
                              fmt::format("{} = '{}' has a decimal comma: the loader reads {}", key, echo(v),
                                          shown(v.substr(0, used)))});
    else if (!cause.empty())
        p.findings.push_back({item.line, Finding::Warning,
                              fmt::format("{} = '{}': {}: the loader reads the leading number and ignores '{}'", key,
                                          echo(v), cause, echo(rest))});
    else
        p.findings.push_back({item.line, Finding::Warning,
                              fmt::format("{} = '{}': the loader reads the leading number and ignores '{}'", key,
                                          echo(v), echo(rest))});
}

std::optional<double> read_number(const Item& item, Kind kind) {
    try {
        if (kind == Kind::Float) return static_cast<double>(std::stof(item.value));
        return static_cast<double>(std::stoi(item.value));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// A point value as the loader reads it: split at single spaces into exactly
// four fields, each through strtod.  Reports what makes it differ.
std::optional<tagCalData> check_point(Parsed& p, const std::string& sect, const std::string& key, const Item& item) {
    // Only the first four fields are kept: a value may be very long.
    std::vector<std::string> fields;
    std::size_t count = 0;
    const std::string& s = item.value;
    std::size_t start = 0;
    for (std::size_t at; (at = s.find(' ', start)) != std::string::npos; start = at + 1)
        if (count++ < 4) fields.push_back(s.substr(start, at - start));
    if (start < s.size() && count++ < 4) fields.push_back(s.substr(start));
    if (count != 4) {
        std::string cause;
        if (s.find('\t') != std::string::npos)
            cause = ": tabs do not separate fields, the loader splits at single spaces";
        else if (s.find("  ") != std::string::npos)
            cause = ": two blanks in a row make an empty field";
        else if (s.find(';') != std::string::npos || s.find('#') != std::string::npos)
            cause = ": a comment after the value counts as more fields";
        p.findings.push_back(
            {item.line, Finding::Error,
             fmt::format("{} in [{}] has {} field(s), not 4 (X Y RealX RealY, separated by single spaces){}{}", key,
                         sect, count, cause, sect == "Cal3" ? "; the file will not load" : "")});
        return std::nullopt;
    }
    float v[4] = {};
    static const char* names[] = {"X", "Y", "RealX", "RealY"};
    for (int i = 0; i < 4; ++i) {
        const char* b = fields[static_cast<std::size_t>(i)].c_str();
        char* e = nullptr;
        errno = 0;
        v[i] = static_cast<float>(std::strtod(b, &e));
        const std::string rest = shown(e);
        if (e == b) {
            p.findings.push_back({item.line, Finding::Error,
                                  fmt::format("{} in [{}]: {} '{}' is not a number: the loader reads 0", key, sect,
                                              names[i], echo(fields[static_cast<std::size_t>(i)]))});
        } else if (!rest.empty()) {
            const std::string cause = trailing_cause(rest);
            p.findings.push_back({item.line, Finding::Error,
                                  fmt::format("{} in [{}]: {} '{}'{}: the loader reads {} and ignores '{}'", key, sect,
                                              names[i], echo(fields[static_cast<std::size_t>(i)]),
                                              cause.empty() ? "" : " has " + cause, v[i], echo(rest))});
        } else if (!std::isfinite(v[i])) {
            p.findings.push_back({item.line, Finding::Error,
                                  fmt::format("{} in [{}]: {} is not finite", key, sect, names[i])});
        }
    }
    return tagCalData{v[0], v[1], v[2], v[3]};
}

// What makes a file no table at all, before any line is read.
std::optional<Finding> not_a_table(const std::string& text) {
    if (text.empty()) return Finding{0, Finding::Error, "the file is empty: no calibration in it"};
    const std::size_t probe = std::min<std::size_t>(text.size(), 4096);
    std::size_t control = 0;
    for (std::size_t i = 0; i < probe; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == 0) return Finding{0, Finding::Error, "a binary file (it holds zero bytes), but not a data file: it "
                                                      "does not start with the magic VRNCLDT"};
        control += c < 0x20 && c != '\n' && c != '\r' && c != '\t';
    }
    if (control * 10 > probe)
        return Finding{0, Finding::Error, "a binary file (mostly control bytes), but not a data file: it does not "
                                          "start with the magic VRNCLDT"};
    return std::nullopt;
}

}  // namespace

std::vector<Finding> lint_table(const std::string& text) {
    if (auto f = not_a_table(text)) return {*f};
    Parsed p = parse(text);
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0)
        p.findings.push_back({1, Finding::Error,
                              "the file starts with a UTF-8 byte order mark: the loader takes it for part of the "
                              "first line, so that line is not read as written (save the file without BOM)"});
    auto& F = p.findings;
    auto find_sect = [&](const std::string& name) -> Section* {
        auto it = p.sections.find(name);
        return it == p.sections.end() ? nullptr : &it->second;
    };

    // [CalCoefs]
    double val_size = 100.0;
    Section* coefs = find_sect("CalCoefs");
    if (coefs == nullptr) {
        F.push_back({0, Finding::Warning,
                     "no [CalCoefs] section: ValSize 100, Resolution 65535 and the lens flags 0 are used"});
    } else {
        for (const auto& [key, item] : coefs->items) {
            if (key == "ValSize" || key == "order") {
                check_number(p, "CalCoefs", key, item, Kind::Float);
            } else if (coefs_keys().count(key)) {
                check_number(p, "CalCoefs", key, item, Kind::Int);
            } else if (is_cal3_key(key)) {
                F.push_back({item.line, Finding::Error,
                             fmt::format("{} is placed under [CalCoefs]: the loader reads it only under [Cal3], so "
                                         "it is not seen",
                                         key)});
            }
        }
        // The field size the tool keeps beside the table, or the library's 100.
        double field_size = 100.0;
        bool own_field_size = false;
        if (const Section* tool = find_sect(kToolSection))
            if (auto it = tool->items.find(kFieldSizeKey); it != tool->items.end())
                if (const auto fs = parse_double(shown(it->second.value)); fs && *fs > 1.0)
                    field_size = *fs, own_field_size = true;
        if (auto it = coefs->items.find("ValSize"); it != coefs->items.end()) {
            if (auto v = read_number(it->second, Kind::Float)) {
                val_size = *v;
                if (!(*v > 1.0))
                    F.push_back({it->second.line, Finding::Error,
                                 fmt::format("ValSize {} is not above 1: the field has no size", *v)});
                else if (*v > field_size)
                    F.push_back({it->second.line, Finding::Warning,
                                 fmt::format("ValSize {} is larger than the field size {} the device range spans{}", *v,
                                             field_size, own_field_size ? "" : " (the default: the table states none)")});
            }
        }
        if (auto it = coefs->items.find("Resolution"); it != coefs->items.end()) {
            if (auto v = read_number(it->second, Kind::Int)) {
                if (*v < 2)
                    F.push_back({it->second.line, Finding::Error, fmt::format("Resolution {} is not a device range", *v)});
                else if (*v != 65535)
                    F.push_back({it->second.line, Finding::Warning,
                                 fmt::format("Resolution {}: a loaded table keeps HalfResolution 32768, and a data "
                                             "file raises any value below 65535 to 65535",
                                             *v)});
            }
        }
        for (const char* flag : {"LEN_XYFLIP", "LEN_XINVERT", "LEN_YINVERT"}) {
            auto it = coefs->items.find(flag);
            if (it == coefs->items.end()) continue;
            if (auto v = read_number(it->second, Kind::Int); v && (*v < 0 || *v > 255))
                F.push_back({it->second.line, Finding::Error,
                             fmt::format("{} {} does not fit the data file's 8-bit flag field", flag, *v)});
            else if (v && *v > 1)
                F.push_back({it->second.line, Finding::Warning, fmt::format("{} {}: any non-zero value sets the flag", flag, *v)});
        }
    }

    // [Cal3]
    Section* cal3 = find_sect("Cal3");
    if (cal3 == nullptr) {
        F.push_back({0, Finding::Error, "no [Cal3] section: the nine calibration points are missing and the file will "
                                        "not load"});
    } else {
        std::vector<tagCalData> nine;
        std::vector<int> nine_lines;
        // Missing points are named together: one line for one cause.
        std::vector<std::string> missing;
        int missing_line = 0;
        for (int i = 0; i < 9; ++i) {
            const std::string key = fmt::format("PNT{}", i);
            auto it = cal3->items.find(key);
            if (it == cal3->items.end() || shown(it->second.value).empty()) {
                if (missing.empty()) missing_line = it == cal3->items.end() ? cal3->line : it->second.line;
                missing.push_back(key);
                continue;
            }
            if (auto pt = check_point(p, "Cal3", key, it->second)) {
                nine.push_back(*pt);
                nine_lines.push_back(it->second.line);
            }
        }
        if (!missing.empty()) {
            std::string keys = missing.front();
            if (missing.size() > 1)
                keys += (missing.size() == 2 ? " and " : " to ") + missing.back();
            if (missing.size() > 2 && std::stoi(missing.back().substr(3)) - std::stoi(missing.front().substr(3)) + 1 !=
                                          static_cast<int>(missing.size())) {
                keys = missing.front();
                for (std::size_t i = 1; i < missing.size(); ++i) keys += ", " + missing[i];
            }
            F.push_back({missing_line, Finding::Error,
                         fmt::format("{} of the nine calibration points {} missing or empty in [Cal3]: the file will "
                                     "not load",
                                     keys, missing.size() == 1 ? "is" : "are")});
        }
        if (nine.size() == 9) check_grid_points("Cal3", true, 3, val_size, nine, nine_lines, F);
        int line_count = 0;
        if (auto it = cal3->items.find("LineCount"); it != cal3->items.end())
            line_count = static_cast<int>(read_number(it->second, Kind::Int).value_or(0));
        int grid = 0;
        if (auto it = cal3->items.find("grid"); it != cal3->items.end())
            grid = static_cast<int>(read_number(it->second, Kind::Int).value_or(0));
        for (const auto& [key, item] : cal3->items) {
            if (auto k = cal3_scalars().find(key); k != cal3_scalars().end()) {
                check_number(p, "Cal3", key, item, k->second);
                if (fitted_keys().count(key))
                    F.push_back({item.line, Finding::Warning,
                                 fmt::format("{} is computed by the fit on every load: this value has no effect", key)});
            } else if (auto lt = line_table_key(key)) {
                if (line_count > 1 && lt->second < line_count && lt->second < 100)
                    check_number(p, "Cal3", key, item, Kind::Float);
                else
                    F.push_back({item.line, Finding::Warning,
                                 fmt::format("{} is not read: the loader reads line-table rows 0 to {} only", key,
                                             line_count > 1 ? std::min(line_count, 100) - 1 : -1)});
            } else if (auto pk = point_key(key)) {
                if (*pk > 8) F.push_back({item.line, Finding::Warning, fmt::format("{} in [Cal3] is not read: the nine points are PNT0 to PNT8", key)});
            } else if (coefs_keys().count(key)) {
                F.push_back({item.line, Finding::Error,
                             fmt::format("{} is placed under [Cal3]: the loader reads it only under [CalCoefs], so it "
                                         "is not seen",
                                         key)});
            }
        }
        if (auto it = cal3->items.find("LineCount"); it != cal3->items.end() && line_count > 100)
            F.push_back({it->second.line, Finding::Warning,
                         fmt::format("LineCount {}: only the first 100 rows are read and stored", line_count)});
        if (auto it = cal3->items.find("grid"); it != cal3->items.end()) {
            if (grid == 1 && (line_count < 1 || line_count > 99))
                F.push_back({it->second.line, Finding::Error,
                             fmt::format("grid=1 switches the gain tables on, but LineCount {} leaves every gain at 1",
                                         line_count)});
            else if (grid != 0 && grid != 1)
                F.push_back({it->second.line, Finding::Warning,
                             fmt::format("grid={}: only 1 switches the gain tables on", grid)});
        }
    }

    // The grids.
    for (const auto& [name, sect] : p.sections) {
        if (name == "CalCoefs" || name == "Cal3") continue;
        if (name == kToolSection) {
            // The tool's own section: the library does not read it.
            for (const auto& [key, item] : sect.items) {
                const std::string v = shown(item.value);
                const auto fs = parse_double(v);
                if (!fs || !(*fs > 1.0) || !std::isfinite(*fs))
                    F.push_back({item.line, Finding::Error,
                                 fmt::format("{} = '{}' in [{}] is not a field size (a number above 1)", key, echo(v),
                                             name)});
            }
            continue;
        }
        const int n = std::atoi(name.c_str() + 3);  // a grid: parse() keeps no other section
        std::vector<tagCalData> pts;
        std::vector<int> lines;
        bool complete = true;
        for (int i = 0; i < n * n; ++i) {
            auto it = sect.items.find(fmt::format("PNT{}", i));
            if (it == sect.items.end() || shown(it->second.value).empty()) {
                F.push_back({it == sect.items.end() ? sect.line : it->second.line, Finding::Error,
                             fmt::format("grid [{}] is dropped: PNT{} is missing, and the loader keeps a grid only "
                                         "with all {} points",
                                         name, i, n * n)});
                complete = false;
                break;
            }
            auto pt = check_point(p, name, it->first, it->second);
            if (!pt) {
                F.push_back({it->second.line, Finding::Error,
                             fmt::format("grid [{}] is dropped: the loader keeps a grid only with all {} points", name,
                                         n * n)});
                complete = false;
                break;
            }
            pts.push_back(*pt);
            lines.push_back(it->second.line);
        }
        if (complete) check_grid_points(name, true, n, val_size, pts, lines, F);
        for (const auto& [key, item] : sect.items) {
            auto pk = point_key(key);
            if (pk && *pk < n * n) continue;
            if (pk)
                F.push_back({item.line, Finding::Warning,
                             fmt::format("{} is not read: [{}] holds PNT0 to PNT{}", key, name, n * n - 1)});
            else
                F.push_back({item.line, Finding::Warning,
                             fmt::format("{} in [{}] is not read: a grid section holds only its points", key, name)});
        }
    }

    std::stable_sort(F.begin(), F.end(), [](const Finding& a, const Finding& b) { return a.line < b.line; });
    return F;
}

void check_grid_points(const std::string& name, bool table, int n, double val_size,
                       const std::vector<tagCalData>& pts, const std::vector<int>& lines,
                       std::vector<Finding>& findings) {
    auto label = [&](std::size_t i) {
        return table ? fmt::format("PNT{} in [{}]", i, name) : fmt::format("point {} of {}", i, name);
    };
    auto line = [&](std::size_t i) { return i < lines.size() ? lines[i] : 0; };
    const double pitch = val_size / (n - 1);
    int reported = 0, off = 0;
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) {
            const std::size_t i = static_cast<std::size_t>(r * n + c);
            const double ex = -0.5 * val_size + c * pitch;
            const double ey = 0.5 * val_size - r * pitch;
            if (std::fabs(pts[i].X - ex) > 1e-3 * pitch || std::fabs(pts[i].Y - ey) > 1e-3 * pitch) {
                ++off;
                if (reported++ < 3)
                    findings.push_back(
                        {line(i), Finding::Warning,
                         fmt::format("{}: nominal ({}, {}) is off the regular grid the lookup assumes "
                                     "(expected ({}, {}): row-major, x growing along a row, y falling, over "
                                     "+-ValSize/2)",
                                     label(i), pts[i].X, pts[i].Y, ex, ey)});
            }
            const double dev = std::hypot(pts[i].RealX - pts[i].X, pts[i].RealY - pts[i].Y);
            if (dev > 0.1 * val_size)
                findings.push_back({line(i), Finding::Warning,
                                    fmt::format("{}: measured {} from nominal, more than 10 % of ValSize", label(i),
                                                dev)});
        }
    if (off > 3)
        findings.push_back({line(0), Finding::Warning,
                            fmt::format("{}{}{}: {} more point(s) off the regular grid", table ? "[" : "", name,
                                        table ? "]" : "", off - 3)});
}

std::string format_finding(const std::string& path, const Finding& f) {
    const char* sev = f.severity == Finding::Error ? "error" : "warning";
    if (f.line == 0) return fmt::format("{}: {}: {}", path, sev, f.message);
    return fmt::format("{}:{}: {}: {}", path, f.line, sev, f.message);
}

}  // namespace vrncal::workflow
