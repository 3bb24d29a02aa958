#include "workflow/lint.h"

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

// A known key written with blanks around it (reported where it is parsed).
bool padded_known(const std::string& key) {
    const std::size_t first = key.find_first_not_of(" \t");
    if (first == std::string::npos) return false;
    const std::string bare = key.substr(first, key.find_last_not_of(" \t") - first + 1);
    return bare != key && (coefs_keys().count(bare) != 0 || is_cal3_key(bare));
}

std::string shown(const std::string& v) {
    std::string s = v;
    while (!s.empty() && s.back() == '\r') s.pop_back();
    return s;
}

Parsed parse(const std::string& text) {
    Parsed p;
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
                p.findings.push_back({line_no, Finding::Error,
                                      fmt::format("section header does not end in ']': the loader names it '{}'", name)});
            auto it = p.sections.find(name);
            if (it != p.sections.end()) {
                const bool read = name == "CalCoefs" || name == "Cal3" ||
                                  (name.rfind("Cal", 0) == 0 && name.size() > 3 &&
                                   is_grid_size(std::atoi(name.c_str() + 3)));
                if (!it->second.items.empty())
                    p.findings.push_back(
                        {it->second.line, read ? Finding::Error : Finding::Warning,
                         fmt::format("[{}] is repeated at line {}: the later header replaces this one, and the {} "
                                     "key(s) under this one are discarded",
                                     name, line_no, it->second.items.size())});
                p.sections.erase(it);
            }
            current = &p.sections[name];
            current->line = line_no;
            current_name = name;
            continue;
        }
        if (current == nullptr) {
            if (!blank)
                p.findings.push_back({line_no, Finding::Warning, "before the first section header: ignored"});
            continue;
        }
        if (blank) continue;
        const std::size_t eq = line.find('=');
        if (eq == std::string::npos) {
            p.findings.push_back({line_no, Finding::Warning,
                                  fmt::format("'{}' has no '=': the loader reads no value from it", shown(line))});
            continue;
        }
        const std::string key = line.substr(0, eq);
        const std::string value = line.substr(eq + 1);
        const std::size_t first = key.find_first_not_of(" \t");
        const std::size_t last = key.find_last_not_of(" \t");
        if (first != std::string::npos && (first != 0 || last != key.size() - 1)) {
            const std::string bare = key.substr(first, last - first + 1);
            if (coefs_keys().count(bare) || is_cal3_key(bare))
                p.findings.push_back({line_no, Finding::Error,
                                      fmt::format("key '{}' has blanks around it: the loader does not trim keys, so "
                                                  "{} is not set",
                                                  key, bare)});
        }
        auto [it, inserted] = current->items.emplace(key, Item{value, line_no});
        if (!inserted) {
            const bool same = shown(it->second.value) == shown(value);
            p.findings.push_back({line_no, same ? Finding::Warning : Finding::Error,
                                  fmt::format("{} repeated in [{}]: the loader keeps the first value (line {}) and "
                                              "ignores this one",
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
                                      fmt::format("{} = '{}' is not finite", key, shown(v))});
                return;
            }
        } else {
            const int i = std::stoi(v, &used, 10);
            const std::string rest = shown(v.substr(used));
            if (!rest.empty())
                p.findings.push_back({item.line, Finding::Warning,
                                      fmt::format("{} = '{}' is read as the integer {}", key, shown(v), i)});
            return;
        }
    } catch (const std::invalid_argument&) {
        p.findings.push_back({item.line, Finding::Error,
                              fmt::format("{} = '{}' in [{}] is not a number: the load stops with '{}'", key,
                                          shown(v), sect, what)});
        return;
    } catch (const std::out_of_range&) {
        p.findings.push_back({item.line, Finding::Error,
                              fmt::format("{} = '{}' in [{}] is out of range: the load stops with '{}'", key,
                                          shown(v), sect, what)});
        return;
    }
    const std::string rest = shown(v.substr(used));
    if (rest.find_first_not_of(" \t") != std::string::npos)
        p.findings.push_back({item.line, Finding::Warning,
                              fmt::format("{} = '{}': the loader reads the leading number and ignores '{}'", key,
                                          shown(v), rest)});
}

std::optional<double> read_number(const Item& item, Kind kind) {
    try {
        if (kind == Kind::Float) return static_cast<double>(std::stof(item.value));
        return static_cast<double>(std::stoi(item.value));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

struct Point {
    float v[4];
};

// A point value as the loader reads it: split at single spaces into exactly
// four fields, each through strtod.  Reports what makes it differ.
std::optional<Point> check_point(Parsed& p, const std::string& sect, const std::string& key, const Item& item) {
    std::vector<std::string> fields;
    const std::string& s = item.value;
    std::size_t start = 0;
    for (std::size_t at; (at = s.find(' ', start)) != std::string::npos; start = at + 1) fields.push_back(s.substr(start, at - start));
    if (start < s.size()) fields.push_back(s.substr(start));
    if (fields.size() != 4) {
        const bool doubled = s.find("  ") != std::string::npos;
        p.findings.push_back(
            {item.line, Finding::Error,
             fmt::format("{} in [{}] has {} field(s), not 4 (X Y RealX RealY, separated by single spaces){}{}", key,
                         sect, fields.size(), doubled ? ": two blanks in a row make an empty field" : "",
                         sect == "Cal3" ? "; the file will not load" : "")});
        return std::nullopt;
    }
    Point pt{};
    static const char* names[] = {"X", "Y", "RealX", "RealY"};
    for (int i = 0; i < 4; ++i) {
        const char* b = fields[static_cast<std::size_t>(i)].c_str();
        char* e = nullptr;
        errno = 0;
        pt.v[i] = static_cast<float>(std::strtod(b, &e));
        const std::string rest = shown(e);
        if (e == b) {
            p.findings.push_back({item.line, Finding::Error,
                                  fmt::format("{} in [{}]: {} '{}' is not a number: the loader reads 0", key, sect,
                                              names[i], shown(fields[static_cast<std::size_t>(i)]))});
        } else if (!rest.empty()) {
            p.findings.push_back({item.line, Finding::Warning,
                                  fmt::format("{} in [{}]: {} '{}': the loader reads {} and ignores '{}'", key, sect,
                                              names[i], shown(fields[static_cast<std::size_t>(i)]), pt.v[i], rest)});
        } else if (!std::isfinite(pt.v[i])) {
            p.findings.push_back({item.line, Finding::Error,
                                  fmt::format("{} in [{}]: {} is not finite", key, sect, names[i])});
        }
    }
    return pt;
}

// Nominal positions of a grid of n points per side over +-half.
void check_layout(Parsed& p, const std::string& sect, int n, double val_size, const std::vector<Point>& pts,
                  const std::vector<int>& lines) {
    const double pitch = val_size / (n - 1);
    int reported = 0, off = 0;
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) {
            const std::size_t i = static_cast<std::size_t>(r * n + c);
            const double ex = -0.5 * val_size + c * pitch;
            const double ey = 0.5 * val_size - r * pitch;
            if (std::fabs(pts[i].v[0] - ex) > 1e-3 * pitch || std::fabs(pts[i].v[1] - ey) > 1e-3 * pitch) {
                ++off;
                if (reported++ < 3)
                    p.findings.push_back(
                        {lines[i], Finding::Warning,
                         fmt::format("PNT{} in [{}]: nominal ({}, {}) is off the regular grid the lookup assumes "
                                     "(expected ({}, {}): row-major, x growing along a row, y falling, over "
                                     "+-ValSize/2)",
                                     i, sect, pts[i].v[0], pts[i].v[1], ex, ey)});
            }
            const double dev = std::hypot(pts[i].v[2] - pts[i].v[0], pts[i].v[3] - pts[i].v[1]);
            if (dev > 0.1 * val_size)
                p.findings.push_back({lines[i], Finding::Warning,
                                      fmt::format("PNT{} in [{}]: measured {} from nominal, more than 10 % of "
                                                  "ValSize",
                                                  i, sect, dev)});
        }
    if (off > 3)
        p.findings.push_back({lines[0], Finding::Warning,
                              fmt::format("[{}]: {} more point(s) off the regular grid", sect, off - 3)});
}

}  // namespace

std::vector<Finding> lint_table(const std::string& text) {
    Parsed p = parse(text);
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
            } else if (!padded_known(key)) {
                F.push_back({item.line, Finding::Warning, fmt::format("unknown key {} in [CalCoefs]: ignored", key)});
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
        std::vector<Point> nine;
        std::vector<int> nine_lines;
        for (int i = 0; i < 9; ++i) {
            const std::string key = fmt::format("PNT{}", i);
            auto it = cal3->items.find(key);
            if (it == cal3->items.end() || shown(it->second.value).empty()) {
                F.push_back({it == cal3->items.end() ? cal3->line : it->second.line, Finding::Error,
                             fmt::format("{} of the nine calibration points is missing or empty in [Cal3]: the file will "
                                         "not load",
                                         key)});
                continue;
            }
            if (auto pt = check_point(p, "Cal3", key, it->second)) {
                nine.push_back(*pt);
                nine_lines.push_back(it->second.line);
            }
        }
        if (nine.size() == 9) {
            check_layout(p, "Cal3", 3, val_size, nine, nine_lines);
        }
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
            } else if (!padded_known(key)) {
                F.push_back({item.line, Finding::Warning, fmt::format("unknown key {} in [Cal3]: ignored", key)});
            }
        }
        if (auto it = cal3->items.find("LineCount"); it != cal3->items.end() && line_count > 100)
            F.push_back({it->second.line, Finding::Warning,
                         fmt::format("LineCount {}: only the first 100 rows are read and stored", line_count)});
        if (auto it = cal3->items.find("grid"); it != cal3->items.end()) {
            if (grid == 1 && (line_count < 1 || line_count > 99))
                F.push_back({it->second.line, Finding::Warning,
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
                if (key != kFieldSizeKey) {
                    F.push_back({item.line, Finding::Warning, fmt::format("unknown key {} in [{}]: ignored", key, name)});
                    continue;
                }
                const std::string v = shown(item.value);
                const auto fs = parse_double(v);
                if (!fs || !(*fs > 1.0) || !std::isfinite(*fs))
                    F.push_back({item.line, Finding::Error,
                                 fmt::format("{} = '{}' in [{}] is not a field size (a number above 1)", key, v, name)});
            }
            continue;
        }
        int n = 0;
        if (name.rfind("Cal", 0) == 0 && name.size() > 3 && name.find_first_not_of("0123456789", 3) == std::string::npos &&
            name.size() < 8)
            n = std::atoi(name.c_str() + 3);
        if (!is_grid_size(n)) {
            F.push_back({sect.line, Finding::Warning,
                         fmt::format("section [{}] is not read: the grids are [Cal5], [Cal9], [Cal17], [Cal25], "
                                     "[Cal33] and [Cal65]",
                                     name)});
            continue;
        }
        std::vector<Point> pts;
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
        if (complete) check_layout(p, name, n, val_size, pts, lines);
        for (const auto& [key, item] : sect.items) {
            auto pk = point_key(key);
            if (pk && *pk < n * n) continue;
            F.push_back({item.line, Finding::Warning,
                         pk ? fmt::format("{} is not read: [{}] holds PNT0 to PNT{}", key, name, n * n - 1)
                            : fmt::format("unknown key {} in [{}]: ignored", key, name)});
        }
    }

    std::stable_sort(F.begin(), F.end(), [](const Finding& a, const Finding& b) { return a.line < b.line; });
    return F;
}

std::string format_finding(const std::string& path, const Finding& f) {
    const char* sev = f.severity == Finding::Error ? "error" : "warning";
    if (f.line == 0) return fmt::format("{}: {}: {}", path, sev, f.message);
    return fmt::format("{}:{}: {}: {}", path, f.line, sev, f.message);
}

}  // namespace vrncal::workflow
