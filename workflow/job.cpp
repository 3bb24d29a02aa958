#include "workflow/job.h"

#include <algorithm>
#include <fmt/format.h>

#include <vrncal/facade.h>

#include "workflow/csv.h"
#include "workflow/error.h"
#include "workflow/head.h"
#include "workflow/table_writer.h"

namespace vrncal::workflow {

bool is_stage_size(int size) {
    for (int n : {3, 5, 9, 17, 25, 33, 65})
        if (size == n) return true;
    return false;
}

std::string stage_name(int size) { return size == 3 ? "nine points" : fmt::format("{}x{} grid", size, size); }

std::vector<Mark> plan_marks(const tagLenPar& par, int size, Drive drive) {
    tagLenPar p = par;
    p.CalMode = 1;
    VrnCal vc;
    std::vector<Mark> marks;
    const auto nominal = nominal_grid(size, p.ValSize);
    for (int i = 0; i < size * size; ++i) {
        Mark m;
        m.index = i;
        m.row = i / size;
        m.column = i % size;
        m.x = nominal[static_cast<std::size_t>(i)].X;
        m.y = nominal[static_cast<std::size_t>(i)].Y;
        tagKelPointF out{};
        if (drive == Drive::Linear)
            vc.LP2DPEX_Cal(tagKelPointF{m.x, m.y}, out, p);
        else
            vc.CalibPoint(p, tagKelPointF{m.x, m.y}, out);
        m.u = out.x;
        m.v = out.y;
        marks.push_back(m);
    }
    return marks;
}

tagLenPar drive_record(const tagLenPar& calibration, int size) {
    tagLenPar p = calibration;
    p.Stacks.erase(std::remove_if(p.Stacks.begin(), p.Stacks.end(), [&](const tagStack& s) { return s.Size == size; }),
                   p.Stacks.end());
    p.CalMode = 1;
    return p;
}

std::vector<tagCalData> stored_points(const tagLenPar& par, int size, const std::vector<Mark>& marks,
                                      const std::vector<tagKelPointF>& measured) {
    std::vector<tagCalData> pts(marks.size());
    // The sign rule mirrors the 3 x 3 lattice onto itself: a negated x runs
    // the columns backwards, a negated y the rows.
    double sx = 1.0, sy = 1.0;
    if (size == 3) apply_sign_rule(par, sx, sy);
    for (std::size_t i = 0; i < marks.size(); ++i) {
        const Mark& m = marks[i];
        const int row = sy < 0 ? size - 1 - m.row : m.row;
        const int col = sx < 0 ? size - 1 - m.column : m.column;
        // Adding +0 turns the -0 of a negated centre into 0.
        const float fx = static_cast<float>(sx), fy = static_cast<float>(sy);
        pts[static_cast<std::size_t>(row * size + col)] =
            tagCalData{fx * m.x + 0.0f, fy * m.y + 0.0f, fx * measured[i].x + 0.0f, fy * measured[i].y + 0.0f};
    }
    return pts;
}

namespace {

std::string mark_fields(const Mark& m) {
    return fmt::format("{},{},{},{},{},{},{}", m.index, m.row, m.column, m.x, m.y, m.u, m.v);
}

}  // namespace

std::string job_text(const std::vector<Mark>& marks) {
    std::string s = "index,row,column,x,y,u,v\n";
    for (const auto& m : marks) s += mark_fields(m) + "\n";
    return s;
}

std::string template_text(const std::vector<Mark>& marks) {
    std::string s = "index,row,column,x,y,u,v,measured_x,measured_y\n";
    for (const auto& m : marks) s += mark_fields(m) + ",,\n";
    return s;
}

std::string measured_text(const std::vector<Mark>& marks, const std::vector<tagKelPointF>& measured) {
    std::string s = "index,row,column,x,y,u,v,measured_x,measured_y\n";
    for (std::size_t i = 0; i < marks.size(); ++i)
        s += fmt::format("{},{},{}\n", mark_fields(marks[i]), measured[i].x, measured[i].y);
    return s;
}

std::vector<Mark> read_job(const std::string& path) {
    const CsvFile f = read_csv(path);
    static const char* names[] = {"index", "row", "column", "x", "y", "u", "v"};
    int col[7];
    for (int k = 0; k < 7; ++k) {
        col[k] = f.column(names[k]);
        if (col[k] < 0)
            throw Error(fmt::format("{}:{}: a marking job has the columns index,row,column,x,y,u,v; '{}' is missing",
                                    path, f.header_line, names[k]));
    }
    std::vector<Mark> marks;
    for (const auto& row : f.rows) {
        double v[7];
        for (int k = 0; k < 7; ++k) v[k] = f.number(row, col[k], names[k]);
        Mark m;
        m.index = static_cast<int>(v[0]);
        m.row = static_cast<int>(v[1]);
        m.column = static_cast<int>(v[2]);
        m.x = static_cast<float>(v[3]);
        m.y = static_cast<float>(v[4]);
        m.u = static_cast<float>(v[5]);
        m.v = static_cast<float>(v[6]);
        if (m.index != static_cast<int>(marks.size()))
            throw Error(fmt::format("{}:{}: mark {} where mark {} was expected: the marks run from 0 in order", path,
                                    row.line, v[0], marks.size()));
        marks.push_back(m);
    }
    if (marks.empty()) throw Error(path + ": the job holds no marks");
    return marks;
}

}  // namespace vrncal::workflow
