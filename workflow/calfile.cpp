#include "workflow/calfile.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fmt/format.h>
#include <sys/resource.h>
#include <vector>

#include <vrncal/cfg_file.h>
#include <vrncal/facade.h>

#include "workflow/atomic_file.h"
#include "workflow/check.h"
#include "workflow/error.h"
#include "workflow/input.h"
#include "workflow/memory_file.h"
#include "workflow/numbers.h"
#include "workflow/table_edit.h"
#include "workflow/table_writer.h"

namespace vrncal::workflow {

void validate_data_file(const std::string& path, const std::string& bytes) {
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
                                kToolSection, kFieldSizeKey, echo_token(trimmed(v->text))));
    return fs;
}

const char* field_size_source(FieldSizeFrom from) {
    switch (from) {
        case FieldSizeFrom::Table: return "from [vrncal] FieldSize";
        case FieldSizeFrom::DataFile: return "stored in the data file";
        case FieldSizeFrom::Given: return "given";
        case FieldSizeFrom::Default: break;
    }
    return "the default: the table does not state one";
}

Calibration load_calibration(const std::string& path, const LoadOptions& options) {
    const auto& given = options.field_size;
    if (given) check_field_size(*given, "the field size given");
    std::string bytes = read_file(path, kMaxCalibrationBytes);
    Examination e = examine_calibration(path, bytes, given);
    if (e.own_field_size && given && *e.own_field_size != *given)
        throw Error(fmt::format("{}: the table was calibrated with the field size {} ([{}] {}); the field size "
                                "given, {}, disagrees",
                                path, *e.own_field_size, kToolSection, kFieldSizeKey, *given));
    Calibration cal;
    std::string errors;
    std::size_t count = 0;
    for (const auto& f : e.findings) {
        if (f.severity != Finding::Error) continue;
        const std::string line = f.line > 0 ? fmt::format("{}:{}: {}", path, f.line, f.message) : path + ": " + f.message;
        errors += line + "\n";
        cal.forced.push_back(line);
        ++count;
    }
    if (!e.loaded) {
        // A table the tool planned, before its first import.
        const TableEditor table(bytes);
        if (!e.data_file && !table.has_section("Cal3") && table.has_section(kToolSection))
            throw Error(path + ": the nine points are not measured yet: mark the nine-point job of the table and "
                               "import the measurements");
        if (errors.empty())
            errors = path + ": not a calibration: no data file magic, and no nine points PNT0 to PNT8 in [Cal3]\n";
        errors.pop_back();
        throw Error(errors);
    }
    if (count > 0 && !options.force)
        throw Error(errors + fmt::format("{}: refused: {} error{} above (--force uses it anyway)", path, count,
                                         count == 1 ? "" : "s"));
    cal.path = path;
    cal.data_file = e.data_file;
    cal.par = std::move(e.par);
    cal.bytes = std::move(bytes);
    if (cal.data_file) {
        cal.field_size_from = FieldSizeFrom::DataFile;
        if (given && *given != cal.par.FieldSize)
            throw Error(fmt::format("{}: the data file stores the field size {}; the field size given, {}, disagrees",
                                    path, cal.par.FieldSize, *given));
    } else {
        cal.field_size_from = e.own_field_size ? FieldSizeFrom::Table : given ? FieldSizeFrom::Given
                                                                             : FieldSizeFrom::Default;
    }
    return cal;
}

std::uint64_t data_file_size(const tagLenPar& par) {
    if (par.Stacks.empty()) return 4100 + 32 * static_cast<std::uint64_t>(std::clamp(par.LineCount, 0, 100));
    std::uint64_t end = 64000;
    for (const auto& s : par.Stacks) end += 8 + 16 * static_cast<std::uint64_t>(std::int64_t{s.Size} * s.Size);
    return end;
}

std::string checked_save(const std::string& out, const tagLenPar& expected, const std::string& start,
                         const std::function<bool(const char*)>& save) {
    std::string bytes;
    try {
        const MemoryFile mem(start);
        if (!save(mem.path().c_str())) throw Error("the library cannot write the data file");
        bytes = mem.bytes();
    } catch (const Error& e) {
        throw Error(out + ": " + e.what());
    }
    const std::uint64_t want = data_file_size(expected);
    if (bytes.size() != want) {
        // The saver does not say why it stopped; a file-size limit is the
        // one cause a file in memory shares with the disk.
        rlimit lim{};
        const bool limited = ::getrlimit(RLIMIT_FSIZE, &lim) == 0 && lim.rlim_cur != RLIM_INFINITY && want > lim.rlim_cur;
        throw Error(fmt::format("{}: write failed: the data file came out {} of {} bytes long{}", out, bytes.size(),
                                want, limited ? std::string(" (") + std::strerror(EFBIG) + ")" : ""));
    }
    return bytes;
}

void save_data_file(tagLenPar& par, const std::string& out, const std::vector<std::string>& inputs) {
    VrnCal vc;
    // saveUcf fits the coefficients of par again before it writes.
    const std::string bytes = checked_save(out, par, {}, [&](const char* p) { return vc.saveUcf(p, par); });
    write_file(out, bytes, inputs);
}

void apply_box_file(const std::string& path, tagLenPar& par) {
    CCfgFile cfg;
    load_ini(path, kMaxParameterBytes, cfg);
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
