#include "workflow/points.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include <vrncal/facade.h>

#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "workflow/error.h"

namespace vrncal::workflow {

std::vector<tagCalData> stack_points(const Calibration& cal, int index) {
    if (index >= static_cast<int>(cal.par.Stacks.size()))
        throw Error(fmt::format("{}: no grid {} (the file holds {})", cal.path, index, cal.par.Stacks.size()));
    const std::string& path = cal.path;
    VrnCal vc;
    int size = index < 0 ? 3 : 0;
    std::vector<tagCalData> pts(9);
    if (index >= 0) {
        // With size 0 the call only reports the grid's size.
        vc.getCalibPnts(path.c_str(), index, size, pts.data());
        pts.resize(static_cast<std::size_t>(size) * static_cast<std::size_t>(size));
    }
    if (!vc.getCalibPnts(path.c_str(), index, size, pts.data()))
        throw Error(fmt::format("{}: cannot read grid {}", cal.path, index));
    return pts;
}

std::string edit_target(const Calibration& cal, const std::string& out) {
    if (!out.empty() && !(same_file(out, cal.path) && !cal.data_file)) return out;
    if (!cal.data_file)
        throw Error(cal.path + ": is a correction table, and the edit is saved as a binary data file: name "
                               "another file to write with -o");
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
    // The facade edits the file in place: give it the checked bytes in
    // memory, check what it saved, and write that.
    tagLenPar edited = cal.par;
    if (index >= stacks)
        edited.Stacks.push_back(tagStack{n, 1, pts});
    else if (index >= 0)
        edited.Stacks[static_cast<std::size_t>(index)].Points = pts;
    VrnCal vc;
    const std::string bytes = checked_save(out, edited, cal.bytes, [&](const char* p) {
        return vc.setCalibPnts(p, index, n, const_cast<tagCalData*>(pts.data()));
    });
    // The calibration may be replaced by its edit (edit_target allows it for
    // a data file only); the points file may not.
    write_file(out, bytes, same_file(out, path) ? std::vector<std::string>{points_name}
                                                : std::vector<std::string>{path, points_name});
    return PointsEdit{index >= stacks, index >= stacks ? stacks : index, n};
}

GainTable gain_points(const Calibration& cal, int axis) {
    VrnCal vc;
    GainTable g;
    g.points.resize(100);
    vc.getEqualPnts(cal.path.c_str(), axis, g.count, g.points.data());
    g.points.resize(static_cast<std::size_t>(std::clamp(g.count, 0, 100)));
    return g;
}

void set_gain_points(const Calibration& cal, int axis, const std::vector<tagKelPointF>& pts) {
    VrnCal vc;
    vc.setEqualPnts(cal.path.c_str(), axis, static_cast<int>(pts.size()), const_cast<tagKelPointF*>(pts.data()));
}

}  // namespace vrncal::workflow
