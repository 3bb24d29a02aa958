#include "workflow/table_file.h"

#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <unistd.h>

#include <vrncal/facade.h>

#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "workflow/error.h"
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
    std::string path = (std::filesystem::temp_directory_path() / "vrncal-tableXXXXXX").string();
    const int fd = ::mkstemp(path.data());
    if (fd < 0) throw Error("cannot create a temporary file in " + std::filesystem::temp_directory_path().string());
    std::FILE* f = ::fdopen(fd, "wb");
    const bool written = f != nullptr && std::fwrite(text.data(), 1, text.size(), f) == text.size();
    if (f != nullptr) std::fclose(f);
    struct Remove {
        std::string p;
        ~Remove() { std::remove(p.c_str()); }
    } remove{path};
    if (!written) throw Error("cannot write the temporary table " + path);
    return load_path(path, field_size, "the temporary table " + path);
}

TableFile read_table_file(const std::string& path, std::optional<double> field_size) {
    require_readable(path);
    if (is_data_file(path))
        throw Error(path + ": is a binary data file; the workflow keeps its tables as text: export it first "
                           "(convert it to a .cor file)");
    TableFile t;
    t.path = path;
    t.text = read_file(path);
    const TableEditor table(t.text);
    if (table.has_section("Cal3")) {
        const Calibration cal = load_calibration(path, field_size);
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
        load_calibration(path, field_size);  // says where the table is wrong
        throw;
    }
    return t;
}

void write_table_file(const std::string& path, const std::string& text, double field_size,
                      const std::function<std::vector<std::string>(const tagLenPar&)>& check) {
    AtomicFile file(path);
    if (std::fwrite(text.data(), 1, text.size(), file.stream()) != text.size()) throw Error(path + ": write failed");
    file.close_stream();
    if (TableEditor(text).has_section("Cal3")) {
        const auto findings = check(load_path(file.temp_path(), field_size, path));
        if (!findings.empty())
            throw Error(fmt::format("{}: not written: {}", path, joined(findings)));
    }
    file.commit();
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
