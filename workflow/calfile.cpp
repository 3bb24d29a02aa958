#include "workflow/calfile.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <vector>

#include <vrncal/cfg_file.h>
#include <vrncal/facade.h>

#include "workflow/atomic_file.h"
#include "workflow/error.h"
#include "workflow/lint.h"
#include "workflow/numbers.h"
#include "workflow/table_edit.h"
#include "workflow/table_writer.h"

namespace vrncal::workflow {

namespace {

// The first error the linter finds that explains the failure, as
// "path:line: message".
template <typename Pred>
std::string located(const std::string& path, Pred explains, const std::string& fallback) {
    try {
        for (const auto& f : lint_table(read_file(path)))
            if (f.severity == Finding::Error && explains(f.message))
                return f.line > 0 ? fmt::format("{}:{}: {}", path, f.line, f.message) : path + ": " + f.message;
    } catch (const std::exception&) {
    }
    return path + ": " + fallback;
}

}  // namespace

void validate_data_file(const std::string& path) {
    const std::string bytes = read_file(path);
    const auto size = static_cast<std::int64_t>(bytes.size());
    auto i32 = [&](std::int64_t off) {
        std::int32_t v;
        std::memcpy(&v, bytes.data() + off, 4);
        return v;
    };
    auto truncated = [&](const std::string& where, std::int64_t need) {
        return Error(fmt::format("{}: truncated data file: it ends at byte {} inside {} (which needs {} bytes)",
                                     path, size, where, need));
    };
    if (bytes.size() > 7 && bytes[7] == '3')
        throw Error(path + ": data file version '3' is not supported");
    if (size < 4100) throw truncated("the header", 4100);
    const std::int32_t line_count = i32(34);
    const std::int64_t rows = std::max(0, std::min(line_count, 100));
    const std::int64_t table_end = 4100 + 32 * rows;
    if (size < table_end) throw truncated("the line table", table_end);
    if (size == table_end) return;  // no grids
    if (size < 60004) throw truncated("the grid list", 60004);
    const std::int32_t stacks = i32(60000);
    if (stacks < 1) return;
    if (stacks > 64) throw Error(fmt::format("{}: corrupt data file: {} grids listed at byte 60000", path, stacks));
    std::int64_t at = 64000;
    for (std::int32_t s = 0; s < stacks; ++s) {
        if (size < at + 8) throw truncated(fmt::format("grid {}", s), at + 8);
        const std::int32_t n = i32(at);
        if (n < 0 || n > 1000)
            throw Error(fmt::format("{}: corrupt data file: grid {} at byte {} claims {} points per side", path, s,
                                        at, n));
        const std::int64_t end = at + 8 + 16 * std::int64_t{n} * n;
        if (size < end) throw truncated(fmt::format("grid {} ({}x{})", s, n, n), end);
        at = end;
    }
}

void check_field_size(double field_size, const std::string& what) {
    if (!(field_size > 1.0) || !std::isfinite(field_size))
        throw Error(fmt::format("{}: field size {} is not a number above 1", what, field_size));
}

std::optional<double> table_field_size(const std::string& path, const std::string& text) {
    const auto v = TableEditor(text).find(kToolSection, kFieldSizeKey);
    if (!v) return std::nullopt;
    const auto fs = parse_double(v->text);
    if (!fs || !(*fs > 1.0) || !std::isfinite(*fs))
        throw Error(fmt::format("{}:{}: [{}] {}: '{}' is not a field size (a number above 1)", path, v->line,
                                kToolSection, kFieldSizeKey, std::string(trimmed(v->text))));
    return fs;
}

Calibration load_calibration(const std::string& path, std::optional<double> field_size) {
    require_readable(path);
    Calibration cal;
    cal.path = path;
    cal.data_file = is_data_file(path);
    if (field_size) check_field_size(*field_size, "the field size given");
    bool planned = false;
    if (cal.data_file) {
        validate_data_file(path);
    } else {
        const std::string text = read_file(path);
        const auto own = table_field_size(path, text);
        if (own && field_size && *own != *field_size)
            throw Error(fmt::format("{}: the table was calibrated with the field size {} ([{}] {}); the field size "
                                    "given, {}, disagrees",
                                    path, *own, kToolSection, kFieldSizeKey, *field_size));
        if (own || field_size) {
            cal.par.FieldSize = own ? *own : *field_size;
            cal.field_size_from = own ? FieldSizeFrom::Table : FieldSizeFrom::Given;
        }
        const TableEditor table(text);
        planned = !table.has_section("Cal3") && table.has_section(kToolSection);
    }
    VrnCal vc;
    bool ok = false;
    try {
        ok = vc.loadUcf(path.c_str(), cal.par);
    } catch (const std::exception& e) {
        // Only the text loader throws: a numeric key that is not a number.
        auto conversion = [](const std::string& m) { return m.find("the load stops") != std::string::npos; };
        throw Error(located(path, conversion, fmt::format("a value is not a number ({})", e.what())));
    }
    if (!ok) {
        if (cal.data_file) throw Error(path + ": the data file cannot be loaded");
        // A table the tool planned, before its first import.
        if (planned)
            throw Error(path + ": the nine points are not measured yet: mark the nine-point job of the table and "
                               "import the measurements");
        auto nine = [](const std::string& m) {
            return m.find("[Cal3]") != std::string::npos && (m.rfind("PNT", 0) == 0 || m.rfind("no [Cal3]", 0) == 0);
        };
        throw Error(located(path, nine,
                                "not a calibration: no data file magic, and no nine points PNT0 to PNT8 in [Cal3]"));
    }
    cal.par.CalMode = 1;
    if (cal.data_file) {
        cal.field_size_from = FieldSizeFrom::DataFile;
        if (field_size && *field_size != cal.par.FieldSize)
            throw Error(fmt::format("{}: the data file stores the field size {}; the field size given, {}, disagrees",
                                    path, cal.par.FieldSize, *field_size));
    }
    return cal;
}

void save_data_file(tagLenPar& par, const std::string& out) {
    AtomicFile file(out);
    file.close_stream();
    VrnCal vc;
    if (!vc.saveUcf(file.temp_path().c_str(), par)) throw Error(out + ": cannot write");
    file.commit();
}

void apply_box_file(const std::string& path, tagLenPar& par) {
    require_readable(path);
    CCfgFile cfg;
    cfg.loadItems(path);
    const auto sect = cfg.sections.find("Box");
    if (sect == cfg.sections.end() || sect->second == nullptr) throw Error(path + ": no [Box] section");
    struct Real {
        const char* name;
        double tagLenPar::*member;
    };
    static const Real reals[] = {
        {"BoxOffsetX", &tagLenPar::BoxOffsetX}, {"BoxOffsetY", &tagLenPar::BoxOffsetY},
        {"BoxBarrelX", &tagLenPar::BoxBarrelX}, {"BoxBarrelY", &tagLenPar::BoxBarrelY},
        {"BoxSkewX", &tagLenPar::BoxSkewX},     {"BoxSkewY", &tagLenPar::BoxSkewY},
        {"BoxTrapX", &tagLenPar::BoxTrapX},     {"BoxTrapY", &tagLenPar::BoxTrapY},
        {"BoxScaleX", &tagLenPar::BoxScaleX},   {"BoxScaleY", &tagLenPar::BoxScaleY},
    };
    struct Table {
        const char* prefix;
        double (tagLenPar::*member)[100];
    };
    static const Table tables[] = {
        {"BoxXT", &tagLenPar::BoxXT}, {"BoxYT", &tagLenPar::BoxYT}, {"BoxXA", &tagLenPar::BoxXA},
        {"BoxYA", &tagLenPar::BoxYA}, {"BoxXR", &tagLenPar::BoxXR}, {"BoxYR", &tagLenPar::BoxYR},
    };
    for (const auto& [raw_key, item] : sect->second->items) {
        if (item == nullptr) continue;
        const std::string key(trimmed(raw_key));
        const std::string value(trimmed(item->value));
        auto bad = [&](const char* what) {
            return Error(fmt::format("{}: [Box] {}: '{}' {}", path, key, value, what));
        };
        if (key == "BoxGrid" || key == "BoxLineCount") {
            const auto v = parse_int(value);
            if (!v) throw bad("is not an integer");
            if (key == "BoxLineCount" && (*v < 0 || *v > 100)) throw bad("is not a row count from 0 to 100");
            (key == "BoxGrid" ? par.BoxGrid : par.BoxLineCount) = *v;
            continue;
        }
        const auto v = parse_double(value);
        bool done = false;
        for (const auto& r : reals)
            if (key == r.name) {
                if (!v || !std::isfinite(*v)) throw bad("is not a number");
                par.*(r.member) = *v;
                done = true;
            }
        for (const auto& t : tables) {
            const std::size_t len = std::strlen(t.prefix);
            if (done || key.compare(0, len, t.prefix) != 0) continue;
            const auto row = parse_int(key.substr(len));
            if (!row || *row < 0 || *row > 99 || std::to_string(*row) != key.substr(len))
                throw Error(fmt::format("{}: [Box] {}: row must be 0 to 99", path, key));
            if (!v || !std::isfinite(*v)) throw bad("is not a number");
            (par.*(t.member))[*row] = *v;
            done = true;
        }
        if (!done) throw Error(fmt::format("{}: [Box] {}: unknown key", path, key));
    }
}

}  // namespace vrncal::workflow
