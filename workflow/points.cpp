#include "workflow/points.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fmt/format.h>

#include <vrncal/facade.h>

#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "workflow/error.h"

namespace vrncal::workflow {

std::vector<tagCalData> stack_points(const Calibration& cal, int index) {
    const std::string& path = cal.path;
    if (index >= static_cast<int>(cal.par.Stacks.size()))
        throw Error(fmt::format("{}: no grid {} (the file holds {})", path, index, cal.par.Stacks.size()));
    VrnCal vc;
    int size = index < 0 ? 3 : 0;
    std::vector<tagCalData> pts(9);
    if (index >= 0) {
        // With size 0 the call only reports the grid's size.
        vc.getCalibPnts(path.c_str(), index, size, pts.data());
        pts.resize(static_cast<std::size_t>(size) * static_cast<std::size_t>(size));
    }
    if (!vc.getCalibPnts(path.c_str(), index, size, pts.data()))
        throw Error(fmt::format("{}: cannot read grid {}", path, index));
    return pts;
}

std::string edit_target(const Calibration& cal, const std::string& out) {
    if (!out.empty()) return out;
    if (!cal.data_file)
        throw Error(cal.path + ": is a correction table, and the edit is saved as a binary data file: name the "
                               "data file to write with -o");
    return cal.path;
}

PointsEdit set_stack_points(const Calibration& cal, int index, const std::string& points_name,
                            const std::vector<tagCalData>& pts, const std::string& out) {
    const std::string& path = cal.path;
    const int n = static_cast<int>(std::lround(std::sqrt(static_cast<double>(pts.size()))));
    if (pts.empty() || static_cast<std::size_t>(n) * static_cast<std::size_t>(n) != pts.size())
        throw Error(fmt::format("{}: {} points do not make a square grid", points_name, pts.size()));
    const int stacks = static_cast<int>(cal.par.Stacks.size());
    if (index < 0 && n != 3)
        throw Error(fmt::format("{}: the nine points need 9 rows, not {}", points_name, pts.size()));
    if (index >= 0 && index < stacks && cal.par.Stacks[static_cast<std::size_t>(index)].Size != n)
        throw Error(fmt::format("{}: grid {} of {} has {} x {} points; {} holds {} x {}", points_name, index, path,
                                cal.par.Stacks[static_cast<std::size_t>(index)].Size,
                                cal.par.Stacks[static_cast<std::size_t>(index)].Size, points_name, n, n));
    // The facade edits the file in place: give it a copy beside the target.
    AtomicFile file(out);
    file.close_stream();
    std::filesystem::copy_file(path, file.temp_path(), std::filesystem::copy_options::overwrite_existing);
    VrnCal vc;
    if (!vc.setCalibPnts(file.temp_path().c_str(), index, n, const_cast<tagCalData*>(pts.data())))
        throw Error(out + ": cannot write");
    file.commit();
    return PointsEdit{index >= stacks, index >= stacks ? stacks : index, n};
}

GainTable gain_points(const std::string& path, int axis) {
    load_calibration(path);
    VrnCal vc;
    GainTable g;
    g.points.resize(100);
    vc.getEqualPnts(path.c_str(), axis, g.count, g.points.data());
    g.points.resize(static_cast<std::size_t>(std::clamp(g.count, 0, 100)));
    return g;
}

void set_gain_points(const std::string& path, int axis, const std::vector<tagKelPointF>& pts) {
    load_calibration(path);
    VrnCal vc;
    vc.setEqualPnts(path.c_str(), axis, static_cast<int>(pts.size()), const_cast<tagKelPointF*>(pts.data()));
}

}  // namespace vrncal::workflow
