#include "workflow/table_file.h"

#include <fmt/format.h>

#include <vrncal/facade.h>

#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "workflow/error.h"
#include "workflow/input.h"
#include "workflow/memory_file.h"
#include "workflow/table_edit.h"

namespace vrncal::workflow {

namespace {

tagLenPar load_path(const std::string& path, double field_size, const std::string& what) {
    tagLenPar par;
    par.FieldSize = field_size;
    VrnCal vc;
    bool loaded = false;
    try {
        loaded = vc.loadUcf(path.c_str(), par);
    } catch (const std::exception& e) {
        throw Error(fmt::format("{}: the table does not load ({})", what, e.what()));
    }
    if (!loaded) throw Error(what + ": the table does not load");
    par.CalMode = 1;
    return par;
}

std::string joined(const std::vector<std::string>& items) {
    std::string s;
    for (std::size_t i = 0; i < items.size() && i < 6; ++i) s += (i ? "; " : "") + items[i];
    if (items.size() > 6) s += fmt::format("; and {} more", items.size() - 6);
    return s;
}

}  // namespace

tagLenPar load_table_text(const std::string& text, double field_size) {
    // From memory: no folder sees the table.
    try {
        const MemoryFile mem(text);
        return load_path(mem.path(), field_size, "the table");
    } catch (const Error& e) {
        throw Error(std::string("cannot load a table held in memory: ") + e.what());
    }
}

TableFile read_table_file(const std::string& path, const LoadOptions& options) {
    const auto& field_size = options.field_size;
    TableFile t;
    t.path = path;
    t.text = read_file(path, kMaxCalibrationBytes);
    if (is_data_file(t.text))
        throw Error(path + ": is a binary data file; the workflow keeps its tables as text: export it first "
                           "(convert it to a .cor file)");
    const TableEditor table(t.text);
    if (table.has_section("Cal3")) {
        const Calibration cal = load_calibration(path, options);
        t.field_size = cal.par.FieldSize;
        t.calibration = cal.par;
        t.settings = cal.par;
        return t;
    }
    // A table without nine points: its settings as the loader reads them,
    // from the text with nine placeholder points.
    const auto own = table_field_size(path, t.text);
    if (own && field_size && *own != *field_size)
        throw Error(fmt::format("{}: the table was planned with the field size {}; the field size given, {}, "
                                "disagrees",
                                path, *own, *field_size));
    t.field_size = own ? *own : field_size.value_or(100.0);
    TableEditor probe(t.text);
    probe.set_points("Cal3", std::vector<tagCalData>(9));
    try {
        t.settings = load_table_text(probe.text(), t.field_size);
    } catch (const Error&) {
        load_calibration(path, options);  // says where the table is wrong
        throw;
    }
    return t;
}

void write_table_file(const std::string& path, const std::string& text, double field_size,
                      const std::function<std::vector<std::string>(const tagLenPar&)>& check,
                      const std::vector<std::string>& inputs) {
    if (TableEditor(text).has_section("Cal3")) {
        const auto findings = check(load_table_text(text, field_size));
        if (!findings.empty())
            throw Error(fmt::format("{}: not written: {}", path, joined(findings)));
    }
    write_file(path, text, inputs);
}

std::vector<std::string> save_as_table(const tagLenPar& par, const std::string& path,
                                       const std::vector<std::string>& comments, bool force) {
    TableContent t = table_content(par);
    t.comments = comments;
    std::vector<std::string> differences;
    write_table_file(path, table_text(t), par.FieldSize, [&](const tagLenPar& loaded) {
        differences = carried_differences(par, loaded);
        if (force || differences.empty()) return std::vector<std::string>{};
        return std::vector<std::string>{fmt::format(
            "the text form cannot carry the calibration as it is: {} would differ (force to write it anyway)",
            joined(differences))};
    });
    return differences;
}

}  // namespace vrncal::workflow
