#include "workflow/measure.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <map>
#include <optional>

#include <vrncal/facade.h>

#include "workflow/csv.h"
#include "workflow/error.h"
#include "workflow/head.h"
#include "workflow/table_edit.h"

namespace vrncal::workflow {

namespace {

constexpr int kStages[] = {3, 5, 9, 17, 25, 33, 65};

// One line of the file.
struct Reading {
    int line = 0;
    std::optional<int> index, row, column;
    std::optional<double> x, y, u, v;
    double mx = 0.0, my = 0.0;
};

struct Columns {
    int index = -1, row = -1, column = -1, x = -1, y = -1, u = -1, v = -1, mx = -1, my = -1;
};

Columns columns_of(const CsvFile& f) {
    Columns c;
    if (f.header_line == 0) {
        const std::size_t n = f.rows.empty() ? 0 : f.rows.front().fields.size();
        if (n == 3) c.index = 0, c.mx = 1, c.my = 2;
        else if (n == 4) c.x = 0, c.y = 1, c.mx = 2, c.my = 3;
        else if (n == 9) c.index = 0, c.row = 1, c.column = 2, c.x = 3, c.y = 4, c.u = 5, c.v = 6, c.mx = 7, c.my = 8;
        else
            throw Error(fmt::format("{}:{}: without a header a measurement file has 3 columns (index, measured x, "
                                    "measured y) or 4 (x, y, measured x, measured y), not {}",
                                    f.path, f.rows.empty() ? 0 : f.rows.front().line, n));
        return c;
    }
    c.index = f.column("index"), c.row = f.column("row"), c.column = f.column("column");
    c.x = f.column("x"), c.y = f.column("y"), c.u = f.column("u"), c.v = f.column("v");
    c.mx = f.column("measured_x"), c.my = f.column("measured_y");
    if (c.mx < 0 || c.my < 0 || (c.index < 0 && (c.x < 0 || c.y < 0)))
        throw Error(fmt::format("{}:{}: a measurement file needs the columns measured_x and measured_y, and index or "
                                "x and y to say which mark a line measures",
                                f.path, f.header_line));
    if ((c.u < 0) != (c.v < 0))
        throw Error(fmt::format("{}:{}: the drive needs both columns u and v", f.path, f.header_line));
    return c;
}

std::vector<Reading> readings_of(const CsvFile& f, const Columns& c) {
    std::vector<Reading> out;
    auto whole = [&](const CsvRow& row, int col, const char* name) -> std::optional<int> {
        if (col < 0) return std::nullopt;
        const double v = f.number(row, col, name);
        if (v != std::floor(v) || std::fabs(v) > 1e6)
            throw Error(fmt::format("{}:{}: {} {} is not a whole number", f.path, row.line, name, v));
        return static_cast<int>(v);
    };
    auto real = [&](const CsvRow& row, int col, const char* name) -> std::optional<double> {
        if (col < 0) return std::nullopt;
        return f.number(row, col, name);
    };
    const int role = f.column("role");
    for (const auto& row : f.rows) {
        // A filled scanning job: its orientation marker measures nothing.
        if (!f.blank(row, role) && row.fields[static_cast<std::size_t>(role)] == "orientation") continue;
        Reading r;
        r.line = row.line;
        r.index = whole(row, c.index, "index");
        r.row = whole(row, c.row, "row");
        r.column = whole(row, c.column, "column");
        r.x = real(row, c.x, "x");
        r.y = real(row, c.y, "y");
        r.u = real(row, c.u, "u");
        r.v = real(row, c.v, "v");
        r.mx = f.number(row, c.mx, "measured_x");
        r.my = f.number(row, c.my, "measured_y");
        out.push_back(r);
    }
    return out;
}

int stage_of(const std::string& path, std::size_t count, int asked) {
    auto marks = [](int n) { return static_cast<std::size_t>(n) * static_cast<std::size_t>(n); };
    for (int n : kStages)
        if (count == marks(n) && asked != 0 && n != asked)
            throw Error(fmt::format("{}: {} measurements make the {}, not the {} asked for", path, count,
                                    stage_name(n), stage_name(asked)));
    if (asked != 0) return asked;
    if (count == 0) throw Error(path + ": no measurements");
    // The stage nearest in count: a mark missing or twice shows as such below.
    int best = 3;
    for (int n : kStages)
        if (std::llabs(static_cast<long long>(marks(n)) - static_cast<long long>(count)) <
            std::llabs(static_cast<long long>(marks(best)) - static_cast<long long>(count)))
            best = n;
    const double off = std::fabs(static_cast<double>(marks(best)) - static_cast<double>(count));
    if (off > std::max(2.0, 0.1 * static_cast<double>(marks(best))))
        throw Error(fmt::format("{}: {} measurements make no stage: the nine points have 9 marks, an N x N grid N x N "
                                "(N 5, 9, 17, 25, 33 or 65)",
                                path, count));
    return best;
}

struct Matched {
    std::vector<tagKelPointF> measured;  // by mark index
    std::vector<int> lines;              // by mark index
    bool has_drive = false;
    std::vector<tagKelPointF> drive;     // the file's drives, by mark index
};

Matched match(const std::string& path, const std::vector<Reading>& readings, const std::vector<Mark>& marks,
              double pitch) {
    const int n = static_cast<int>(std::lround(std::sqrt(static_cast<double>(marks.size()))));
    const double tol = 0.05 * pitch;
    Matched m;
    m.measured.resize(marks.size());
    m.lines.assign(marks.size(), 0);
    m.drive.resize(marks.size());
    for (const auto& r : readings) {
        int i = -1;
        if (r.index) {
            if (*r.index < 0 || *r.index >= static_cast<int>(marks.size()))
                throw Error(fmt::format("{}:{}: index {} is no mark of the {} (0 to {})", path, r.line, *r.index,
                                        stage_name(n), marks.size() - 1));
            i = *r.index;
        }
        if (r.x && r.y) {
            int found = -1;
            for (std::size_t k = 0; k < marks.size(); ++k)
                if (std::fabs(marks[k].x - *r.x) <= tol && std::fabs(marks[k].y - *r.y) <= tol) found = static_cast<int>(k);
            if (i >= 0 && found != i) {
                const Mark& k = marks[static_cast<std::size_t>(i)];
                throw Error(fmt::format("{}:{}: mark {} is at ({}, {}), not at ({}, {}): marks are numbered row by row "
                                        "from the top left, x rising along a row and y falling from row to row "
                                        "(are the rows listed in rising y?)",
                                        path, r.line, i, k.x, k.y, *r.x, *r.y));
            }
            if (found < 0)
                throw Error(fmt::format("{}:{}: ({}, {}) is no mark of the {} over +-{}", path, r.line, *r.x, *r.y,
                                        stage_name(n), marks.back().x));
            i = found;
        }
        const Mark& k = marks[static_cast<std::size_t>(i)];
        if ((r.row && *r.row != k.row) || (r.column && *r.column != k.column))
            throw Error(fmt::format("{}:{}: mark {} is in row {}, column {}, not in row {}, column {}", path, r.line, i,
                                    k.row, k.column, r.row.value_or(k.row), r.column.value_or(k.column)));
        if (m.lines[static_cast<std::size_t>(i)] != 0)
            throw Error(fmt::format("{}:{}: mark {} is measured a second time (first on line {})", path, r.line, i,
                                    m.lines[static_cast<std::size_t>(i)]));
        m.lines[static_cast<std::size_t>(i)] = r.line;
        m.measured[static_cast<std::size_t>(i)] = tagKelPointF{static_cast<float>(r.mx), static_cast<float>(r.my)};
        if (r.u) {
            m.has_drive = true;
            m.drive[static_cast<std::size_t>(i)] = tagKelPointF{static_cast<float>(*r.u), static_cast<float>(*r.v)};
        }
    }
    for (std::size_t k = 0; k < marks.size(); ++k)
        if (m.lines[k] == 0)
            throw Error(fmt::format("{}: mark {} (row {}, column {}, at ({}, {})) is not measured: the file measures "
                                    "{} of the {} marks of the {}",
                                    path, k, marks[k].row, marks[k].column, marks[k].x, marks[k].y, readings.size(),
                                    marks.size(), stage_name(n)));
    return m;
}

// Where the caller's frame and the device frame differ, a word on frames.
std::string frame_hint(const tagLenPar& par) {
    if (par.XInvert == 0 && par.YInvert == 0) return "";
    return " (the table sets invert flags: measure in the caller's frame, the frame of the job's x and y, not in "
           "the device frame)";
}

// The plausibility of the measurements as a whole and one by one: units,
// swapped or mirrored axes, and marks far from where the others put them.
void check_plausible(const std::string& path, const tagLenPar& par, const std::vector<Mark>& marks,
                     const Matched& m, double pitch) {
    const std::size_t n = marks.size();
    double sn = 0.0, sm = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        sn += double{marks[i].x} * marks[i].x + double{marks[i].y} * marks[i].y;
        sm += double{m.measured[i].x} * m.measured[i].x + double{m.measured[i].y} * m.measured[i].y;
    }
    const double ratio = std::sqrt(sm / sn);
    const int line0 = m.lines[0];
    const auto& p0 = m.measured[0];
    if (!(ratio > 0.05 && ratio < 20.0)) {
        const char* unit = ratio > 200 && ratio < 5000 ? ": they look like micrometres"
                           : ratio < 0.005 && ratio > 0.0002 ? ": they look like metres"
                                                            : "";
        throw Error(fmt::format("{}:{}: mark 0 (nominal ({}, {})) measured at ({}, {}): the measurements are about {:.3g} "
                                "times the nominal positions{}; give them in field units, as x and y",
                                path, line0, marks[0].x, marks[0].y, p0.x, p0.y, ratio, unit));
    }
    // Affine fit measured = A nominal + t; the nominal grid is symmetric
    // about 0, so the normal equations fall apart by column.
    double sxx = 0, syy = 0, a00 = 0, a01 = 0, a10 = 0, a11 = 0, t0 = 0, t1 = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double x = marks[i].x, y = marks[i].y;
        sxx += x * x, syy += y * y;
        a00 += m.measured[i].x * x, a01 += m.measured[i].x * y, t0 += m.measured[i].x;
        a10 += m.measured[i].y * x, a11 += m.measured[i].y * y, t1 += m.measured[i].y;
    }
    a00 /= sxx, a01 /= syy, a10 /= sxx, a11 /= syy, t0 /= static_cast<double>(n), t1 /= static_cast<double>(n);
    const std::string at0 = fmt::format("{}:{}: mark 0, the top-left mark at ({}, {}), measured at ({}, {})", path,
                                        line0, marks[0].x, marks[0].y, p0.x, p0.y);
    if (std::fabs(a01) > std::fabs(a00) && std::fabs(a10) > std::fabs(a11))
        throw Error(at0 + ": measured_x follows the nominal y and measured_y the nominal x: the measured columns "
                          "are swapped");
    if (a00 < 0)
        throw Error(at0 + ": the measured x falls where the nominal x rises: the x axis is mirrored" +
                    frame_hint(par));
    if (a11 < 0)
        throw Error(at0 + ": the measured y rises where the nominal y falls: are the rows listed in rising y (mark 0 "
                          "is the top-left mark, y falls from row to row), or is the y axis mirrored" +
                    frame_hint(par) + "?");
    for (const auto& [a, axis] : {std::pair{a00, "x"}, std::pair{a11, "y"}})
        if (!(a > 0.5 && a < 2.0))
            throw Error(fmt::format("{}: the measurements span {:.3g} times the nominal field in {}: wrong units, or a "
                                    "field size that does not fit the head?",
                                    path, a, axis));
    // Each mark against where the affine map puts it.
    const double bound = std::max(0.4 * pitch, 0.01 * par.ValSize);
    std::size_t worst = 0;
    double worst_e = -1.0;
    for (std::size_t i = 0; i < n; ++i) {
        const double ex = m.measured[i].x - (a00 * marks[i].x + a01 * marks[i].y + t0);
        const double ey = m.measured[i].y - (a10 * marks[i].x + a11 * marks[i].y + t1);
        if (std::hypot(ex, ey) > worst_e) worst_e = std::hypot(ex, ey), worst = i;
    }
    if (worst_e > bound)
        throw Error(fmt::format("{}:{}: mark {} (row {}, column {}, nominal ({}, {})) measured at ({}, {}) lies {:.3g} "
                                "from where the other marks put it (more than {:.3g}): a typo, or a mark measured in "
                                "the wrong place?",
                                path, m.lines[worst], worst, marks[worst].row, marks[worst].column, marks[worst].x,
                                marks[worst].y, m.measured[worst].x, m.measured[worst].y, worst_e, bound));
}

double rms_of(const std::vector<double>& v) {
    double s = 0.0;
    for (double e : v) s += e * e;
    return v.empty() ? 0.0 : std::sqrt(s / static_cast<double>(v.size()));
}

// The nine points measured in the caller's frame, by caller-frame mark
// (row-major), from the table's stored nine points.
std::vector<tagKelPointF> nine_measured(const tagLenPar& cal) {
    double sx = 1.0, sy = 1.0;
    apply_sign_rule(cal, sx, sy);
    std::vector<tagKelPointF> out(9);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            const int rs = sy < 0 ? 2 - r : r, cs = sx < 0 ? 2 - c : c;
            const tagCalData& p = cal.CalCoefs.Cal3Pnts[rs * 3 + cs];
            out[static_cast<std::size_t>(r * 3 + c)] =
                tagKelPointF{static_cast<float>(sx * p.RealX), static_cast<float>(sy * p.RealY)};
        }
    return out;
}

// How a grid was driven, judged from its deviations at the nine calibration
// points (the grid's corners, edge middles and centre): a grid marked
// through the correction lands there within what the nine-point fit leaves;
// a grid marked linearly deviates as the nine-point measurement did.  Sets
// the two distances (field units) and says whether the grid looks linear.
bool looks_linear(const tagLenPar& cal, int n, const std::vector<Mark>& marks, const Matched& m, double& to_nine,
                  double& to_nominal) {
    const auto nine = nine_measured(cal);
    const auto nine_marks = plan_marks(cal, 3, Drive::Linear);
    std::vector<double> dl, dr, dn;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            const std::size_t g = static_cast<std::size_t>(r * (n - 1) / 2 * n + c * (n - 1) / 2);
            const std::size_t k = static_cast<std::size_t>(r * 3 + c);
            const double gx = m.measured[g].x - marks[g].x, gy = m.measured[g].y - marks[g].y;
            const double nx = nine[k].x - nine_marks[k].x, ny = nine[k].y - nine_marks[k].y;
            dl.push_back(std::hypot(gx - nx, gy - ny));
            dr.push_back(std::hypot(gx, gy));
            dn.push_back(std::hypot(nx, ny));
        }
    to_nine = rms_of(dl);
    to_nominal = rms_of(dr);
    return rms_of(dn) > 1e-3 * cal.ValSize && to_nine < 0.5 * to_nominal;
}

std::vector<int> grid_sizes(const tagLenPar& p) {
    std::vector<int> s;
    for (const auto& g : p.Stacks) s.push_back(g.Size);
    return s;
}

std::string size_list(const std::vector<int>& sizes) {
    std::string s;
    for (int n : sizes) s += fmt::format("{}{}x{}", s.empty() ? "" : ", ", n, n);
    return s;
}

}  // namespace

bool grid_looks_linear(const tagLenPar& cal, const tagStack& grid, double& to_nine, double& to_nominal) {
    to_nine = to_nominal = 0.0;
    const int n = grid.Size;
    if (n < 3 || n % 2 == 0 || grid.Points.size() < static_cast<std::size_t>(n) * static_cast<std::size_t>(n))
        return false;
    std::vector<Mark> marks(static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
    Matched m;
    for (std::size_t i = 0; i < marks.size(); ++i) {
        marks[i].x = grid.Points[i].X;
        marks[i].y = grid.Points[i].Y;
        m.measured.push_back(tagKelPointF{grid.Points[i].RealX, grid.Points[i].RealY});
    }
    return looks_linear(cal, n, marks, m, to_nine, to_nominal);
}

std::vector<tagKelPointF> residual_form(const tagLenPar& drive, const std::vector<Mark>& marks,
                                        const std::vector<tagKelPointF>& measured) {
    tagLenPar par = drive;
    par.CalMode = 1;
    VrnCal vc;
    const double kc = par.Resolution / par.FieldSize;
    // The gain the correction applies a residual with, per output axis.
    const double gx = par.XYFlip != 0 ? par.CalCoefs.ScaleY : par.CalCoefs.ScaleX;
    const double gy = par.XYFlip != 0 ? par.CalCoefs.ScaleX : par.CalCoefs.ScaleY;
    std::vector<tagKelPointF> out;
    for (std::size_t i = 0; i < marks.size(); ++i) {
        tagKelPointF now{}, linear{};
        vc.CalibPoint(par, measured[i], now);
        vc.LP2DPEX_Cal(tagKelPointF{marks[i].x, marks[i].y}, linear, par);
        // The correction subtracts the residual (in the flagged frame) times
        // kc and the gain from its drive.
        double dx = (now.x - linear.x) / (kc * gx), dy = (now.y - linear.y) / (kc * gy);
        apply_sign_rule(par, dx, dy);
        out.push_back(tagKelPointF{static_cast<float>(marks[i].x + dx), static_cast<float>(marks[i].y + dy)});
    }
    return out;
}

ImportResult prepare_import(const TableFile& table, const std::string& path, const ImportOptions& opt) {
    if (opt.size != 0 && !is_stage_size(opt.size))
        throw Error(fmt::format("{}: a stage is the nine points or a grid of 5, 9, 17, 25, 33 or 65 points per side, "
                                "not {}",
                                path, opt.size));
    const CsvFile f = read_csv(path);
    const Columns cols = columns_of(f);
    const auto readings = readings_of(f, cols);
    ImportResult res;
    const int n = res.size = stage_of(path, readings.size(), opt.size);
    const bool nine = n == 3;
    if (!nine && !table.calibration)
        throw Error(fmt::format("{}: the nine points are not measured yet: import them before the {}, which is marked "
                                "through the nine-point correction",
                                table.path, stage_name(n)));
    if (nine && opt.single_pass)
        throw Error(path + ": the nine points are always marked with the head driven linearly: there is nothing to "
                           "convert");
    const tagLenPar& settings = table.settings;
    const tagLenPar drive = nine ? settings : drive_record(*table.calibration, n);
    const auto marks = plan_marks(drive, n, Drive::Linear);
    const double pitch = settings.ValSize / (n - 1);
    Matched m = match(path, readings, marks, pitch);
    check_plausible(path, settings, marks, m, pitch);

    bool linear = false;
    if (m.has_drive) {
        const auto through = nine ? marks : plan_marks(drive, n, Drive::Corrected);
        auto off = [&](const std::vector<Mark>& want) {
            for (std::size_t i = 0; i < want.size(); ++i)
                if (std::fabs(m.drive[i].x - want[i].u) > 0.5 || std::fabs(m.drive[i].y - want[i].v) > 0.5)
                    return static_cast<int>(i);
            return -1;
        };
        const int bad = off(through);
        if (bad >= 0) {
            linear = !nine && off(marks) < 0;
            if (!linear) {
                const Mark& k = through[static_cast<std::size_t>(bad)];
                throw Error(fmt::format("{}:{}: mark {} was driven to ({}, {}), but the table drives it to ({}, {}) for "
                                        "the {}: the table changed since the job was planned; plan the job again and "
                                        "mark it",
                                        path, m.lines[static_cast<std::size_t>(bad)], bad,
                                        m.drive[static_cast<std::size_t>(bad)].x,
                                        m.drive[static_cast<std::size_t>(bad)].y, k.u, k.v, stage_name(n)));
            }
        }
        if (linear && !opt.single_pass)
            throw Error(fmt::format("{}: the {} was marked with the head driven linearly (its drives are the linear "
                                    "ones), but a grid measures what the table leaves and is marked through it: plan "
                                    "its job and mark it again, or import it converted from a single pass, an "
                                    "approximation of a grid marked through the table",
                                    path, stage_name(n)));
    } else if (!nine) {
        double to_nine = 0.0, to_nominal = 0.0;
        linear = looks_linear(*table.calibration, n, marks, m, to_nine, to_nominal);
        if (linear && !opt.single_pass && !opt.as_residual)
            throw Error(fmt::format("{}: the {} looks marked with the head driven linearly: at the nine calibration "
                                    "points it deviates as the nine-point measurement did (rms {:.3g} apart) rather "
                                    "than by what the nine-point correction leaves (rms {:.3g} from nominal); mark "
                                    "the grid through the table (plan its job) and measure it again, or import it "
                                    "converted from a single pass, an approximation of a grid marked through the "
                                    "table (or, if it was marked through the table, take it as it stands)",
                                    path, stage_name(n), to_nine, to_nominal));
        linear = linear || opt.single_pass;
    }
    if (opt.single_pass && m.has_drive && !linear)
        throw Error(path + ": the grid was marked through the table (its drives are the table's): import it as it "
                           "stands, without the single-pass conversion");
    if (nine && table.calibration && !table.calibration->Stacks.empty()) {
        res.dropped = grid_sizes(*table.calibration);
        if (!opt.drop_grids)
            throw Error(fmt::format("{}: holds the {} measured through its present nine points; new nine points "
                                    "would leave them wrong: drop them with this import and measure them again",
                                    table.path, size_list(res.dropped)));
    }

    std::vector<tagKelPointF> measured = m.measured;
    if (linear && !nine && opt.single_pass) {
        measured = residual_form(drive, marks, m.measured);
        res.converted = true;
    }
    res.points = stored_points(settings, n, marks, measured);
    std::vector<double> dev;
    double worst = 0.0;
    for (std::size_t i = 0; i < marks.size(); ++i) {
        dev.push_back(std::hypot(double{measured[i].x} - marks[i].x, double{measured[i].y} - marks[i].y));
        worst = std::max(worst, dev.back());
    }
    res.deviation = Deviation{worst, rms_of(dev)};

    TableEditor edit(table.text);
    if (!edit.find(kToolSection, kFieldSizeKey)) edit.set(kToolSection, kFieldSizeKey, fmt::format("{}", table.field_size), true);
    if (nine) {
        edit.set_points("Cal3", res.points);
        for (int s : res.dropped) edit.remove_section(fmt::format("Cal{}", s));
    } else {
        edit.set_points(fmt::format("Cal{}", n), res.points);
        const auto order = edit.find("CalCoefs", "order");
        const double o = order ? std::strtod(order->text.c_str(), nullptr) : 3.0;
        if (!(o >= n)) edit.set("CalCoefs", "order", std::to_string(n));
    }
    res.text = edit.text();
    return res;
}

void write_import(const TableFile& table, const ImportResult& res) {
    const std::vector<tagStack> before = table.calibration ? table.calibration->Stacks : std::vector<tagStack>{};
    write_table_file(table.path, res.text, table.field_size, [&](const tagLenPar& got) {
        std::vector<std::string> wrong;
        auto same_points = [](const std::vector<tagCalData>& a, const tagCalData* b, std::size_t count) {
            return a.size() == count && std::memcmp(a.data(), b, count * sizeof(tagCalData)) == 0;
        };
        if (res.size == 3) {
            if (!same_points(res.points, got.CalCoefs.Cal3Pnts, 9)) wrong.push_back("the nine points do not load as imported");
        } else if (table.calibration &&
                   std::memcmp(got.CalCoefs.Cal3Pnts, table.calibration->CalCoefs.Cal3Pnts, sizeof(got.CalCoefs.Cal3Pnts)) != 0) {
            wrong.push_back("the nine points changed");
        }
        std::map<int, const tagStack*> want;
        for (const auto& s : before)
            if (s.Size != res.size && std::find(res.dropped.begin(), res.dropped.end(), s.Size) == res.dropped.end())
                want[s.Size] = &s;
        std::map<int, const tagStack*> have;
        for (const auto& s : got.Stacks) have[s.Size] = &s;
        if (res.size != 3) {
            const auto it = have.find(res.size);
            if (it == have.end() || it->second->InOrder != 1 ||
                !same_points(res.points, it->second->Points.data(), it->second->Points.size()))
                wrong.push_back(fmt::format("the {} does not load as imported", stage_name(res.size)));
            if (it != have.end()) have.erase(it);
        }
        if (have.size() != want.size() ||
            !std::equal(want.begin(), want.end(), have.begin(), [](const auto& a, const auto& b) {
                return a.first == b.first && a.second->InOrder == b.second->InOrder &&
                       a.second->Points.size() == b.second->Points.size() &&
                       std::memcmp(a.second->Points.data(), b.second->Points.data(),
                                   a.second->Points.size() * sizeof(tagCalData)) == 0;
            }))
            wrong.push_back("the other grids do not load as they were");
        if (wrong.empty()) return wrong;
        std::string what;
        for (const auto& w : wrong) what += (what.empty() ? "" : ", ") + w;
        return std::vector<std::string>{"the edited table loads differently from what was imported: " + what};
    });
}

}  // namespace vrncal::workflow
