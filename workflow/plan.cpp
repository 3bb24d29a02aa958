#include "workflow/plan.h"

#include <filesystem>
#include <fmt/format.h>

#include "workflow/calfile.h"
#include "workflow/error.h"

namespace vrncal::workflow {

void create_table(const std::string& path, const HeadSettings& s, bool replace) {
    check_field_size(s.field_size, path);
    if (!(s.val_size > 1.0) || !(s.val_size <= s.field_size))
        throw Error(fmt::format("{}: the calibrated field {} must be above 1 and at most the field size {}", path,
                                s.val_size, s.field_size));
    // The text loader leaves the half resolution at 32768.
    if (((s.resolution + 1) >> 1) != 32768)
        throw Error(fmt::format("{}: a correction table cannot carry the resolution {}: the library's text loader "
                                "keeps the device centre at 32768, right only for 65535 or 65536",
                                path, s.resolution));
    std::error_code ec;
    if (!replace && std::filesystem::exists(path, ec))
        throw Error(path + ": exists already; a new table replaces it only when asked");
    TableContent t;
    t.comments = {"Correction table planned by vrncal plan: import the nine points, then the grids."};
    t.field_size = s.field_size;
    t.val_size = s.val_size;
    t.resolution = s.resolution;
    t.xy_flip = s.xy_flip, t.x_invert = s.x_invert, t.y_invert = s.y_invert;
    t.has_nine = false;
    write_table_file(path, table_text(t), s.field_size, [](const tagLenPar&) { return std::vector<std::string>{}; });
}

namespace {

void add_style(StageJob& job, const tagLenPar& drive, Shape shape, std::optional<double> mark_size) {
    job.style = mark_style(drive, job.size, shape, mark_size);
    if (shape != Shape::None) job.orientation = orientation_mark(drive, job.size, job.drive);
}

}  // namespace

StageJob stage_job(const TableFile& table, int size, bool linear, Shape shape, std::optional<double> mark_size) {
    if (!is_stage_size(size))
        throw Error(fmt::format("a stage is the nine points or a grid of 5, 9, 17, 25, 33 or 65 points per side, not {}",
                                size));
    if (shape == Shape::None && mark_size)
        throw Error("a mark size goes with a mark shape");
    StageJob job;
    job.size = size;
    if (size == 3 || linear) {
        job.marks = plan_marks(table.settings, size, Drive::Linear);
        add_style(job, table.settings, shape, mark_size);
        return job;
    }
    if (!table.calibration)
        throw Error(fmt::format("{}: the nine points are not measured yet: the {} is marked through the nine-point "
                                "correction, so import the nine points first",
                                table.path, stage_name(size)));
    const tagLenPar drive = drive_record(*table.calibration, size);
    job.drive = Drive::Corrected;
    job.marks = plan_marks(drive, size, Drive::Corrected);
    for (const auto& g : drive.Stacks) job.through.push_back(g.Size);
    add_style(job, drive, shape, mark_size);
    return job;
}

}  // namespace vrncal::workflow
