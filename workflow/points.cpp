#include "workflow/points.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>

#include <vrncal/facade.h>

#include "workflow/atomic_file.h"
#include "workflow/calfile.h"
#include "workflow/error.h"
#include "workflow/job.h"
#include "workflow/table_edit.h"
#include "workflow/table_file.h"

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

PointsEdit set_table_points(const std::string& path, int index, const std::string& points_name,
                            const std::vector<tagCalData>& pts, const std::string& out,
                            std::optional<double> field_size) {
    const TableFile table = read_table_file(path, field_size);
    const tagLenPar& cal = *table.calibration;
    const int n = static_cast<int>(std::lround(std::sqrt(static_cast<double>(pts.size()))));
    if (pts.empty() || static_cast<std::size_t>(n) * static_cast<std::size_t>(n) != pts.size())
        throw Error(fmt::format("{}: {} points do not make a square grid", points_name, pts.size()));
    const int stacks = static_cast<int>(cal.Stacks.size());
    if (index < 0 && n != 3)
        throw Error(fmt::format("{}: the nine points need 9 rows, not {}", points_name, pts.size()));
    if (index >= 0 && index < stacks && cal.Stacks[static_cast<std::size_t>(index)].Size != n)
        throw Error(fmt::format("{}: grid {} of {} has {} x {} points; {} holds {} x {}", points_name, index, path,
                                cal.Stacks[static_cast<std::size_t>(index)].Size,
                                cal.Stacks[static_cast<std::size_t>(index)].Size, points_name, n, n));
    if (index >= stacks) {
        if (n == 3 || !is_stage_size(n))
            throw Error(fmt::format("{}: a correction table holds grids of 5, 9, 17, 25, 33 or 65 points per side, "
                                    "not {} x {}",
                                    points_name, n, n));
        for (int i = 0; i < stacks; ++i)
            if (cal.Stacks[static_cast<std::size_t>(i)].Size == n)
                throw Error(fmt::format("{}: a correction table holds one grid per size, and grid {} is its {} x {} "
                                        "grid: replace it (stack {})",
                                        path, i, n, n, i));
    }
    TableEditor edit(table.text);
    const std::string section = index < 0 ? "Cal3" : fmt::format("Cal{}", n);
    edit.set_points(section, pts);
    if (index >= stacks) {
        const auto order = edit.find("CalCoefs", "order");
        if (!(order && std::strtod(order->text.c_str(), nullptr) >= n)) edit.set("CalCoefs", "order", std::to_string(n));
    }
    const std::string target = out.empty() ? path : out;
    write_table_file(target, edit.text(), table.field_size, [&](const tagLenPar& got) {
        const tagCalData* loaded = nullptr;
        if (index < 0) loaded = got.CalCoefs.Cal3Pnts;
        for (const auto& s : got.Stacks)
            if (index >= 0 && s.Size == n) loaded = s.Points.data();
        std::vector<std::string> wrong;
        if (loaded == nullptr || std::memcmp(loaded, pts.data(), pts.size() * sizeof(tagCalData)) != 0)
            wrong.push_back(fmt::format("the points of [{}] do not load as given", section));
        if (got.Stacks.size() != cal.Stacks.size() + (index >= stacks ? 1 : 0))
            wrong.push_back("the grids do not load as they were");
        return wrong;
    });
    int loaded_as = index;
    if (index >= stacks) {
        // The loader reads the grids in this order.
        static const int kOrder[] = {5, 9, 17, 33, 65, 25};
        auto rank = [](int size) { return std::find(std::begin(kOrder), std::end(kOrder), size) - std::begin(kOrder); };
        loaded_as = static_cast<int>(
            std::count_if(cal.Stacks.begin(), cal.Stacks.end(), [&](const tagStack& g) { return rank(g.Size) < rank(n); }));
    }
    return PointsEdit{index >= stacks, loaded_as, n};
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
