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

std::string shape_name(Shape shape) {
    return shape == Shape::Dot ? "dot" : shape == Shape::Cross ? "cross" : "";
}

namespace {

// p: the record with the grid correction selected.
tagKelPointF drive_point(const tagLenPar& p, float x, float y, Drive drive) {
    VrnCal vc;
    tagKelPointF out{};
    if (drive == Drive::Linear)
        vc.LP2DPEX_Cal(tagKelPointF{x, y}, out, p);
    else
        vc.CalibPoint(p, tagKelPointF{x, y}, out);
    return out;
}

}  // namespace

std::vector<Mark> plan_marks(const tagLenPar& par, int size, Drive drive) {
    tagLenPar p = par;
    p.CalMode = 1;
    std::vector<Mark> marks;
    const auto nominal = nominal_grid(size, par.ValSize);
    for (int i = 0; i < size * size; ++i) {
        Mark m;
        m.index = i;
        m.row = i / size;
        m.column = i % size;
        m.x = nominal[static_cast<std::size_t>(i)].X;
        m.y = nominal[static_cast<std::size_t>(i)].Y;
        const tagKelPointF out = drive_point(p, m.x, m.y, drive);
        m.u = out.x;
        m.v = out.y;
        marks.push_back(m);
    }
    return marks;
}

Mark orientation_mark(const tagLenPar& par, int size, Drive drive) {
    const double pitch = par.ValSize / (size - 1);
    Mark m;
    m.index = size * size;
    m.row = m.column = -1;
    m.x = static_cast<float>(-0.5 * par.ValSize + kMarkerColumn * pitch);
    m.y = static_cast<float>(0.5 * par.ValSize - kMarkerRow * pitch);
    tagLenPar p = par;
    p.CalMode = 1;
    const tagKelPointF out = drive_point(p, m.x, m.y, drive);
    m.u = out.x;
    m.v = out.y;
    return m;
}

MarkStyle mark_style(const tagLenPar& par, int size, Shape shape, std::optional<double> size_fu) {
    MarkStyle style;
    style.shape = shape;
    if (shape == Shape::None) return style;
    const double pitch = par.ValSize / (size - 1);
    const double across = size_fu.value_or(std::min(0.4, 0.25 * pitch));
    if (!(across > 0.0) || !(across <= 0.5 * pitch))
        throw Error(fmt::format("the mark size {} must be above 0 and at most half the pitch of the {}, {}", across,
                                stage_name(size), 0.5 * pitch));
    style.size = static_cast<float>(across * par.Resolution / par.FieldSize);
    return style;
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

std::string mark_fields(const Mark& m) {
    return fmt::format("{},{},{},{},{},{},{}", m.index, m.row, m.column, m.x, m.y, m.u, m.v);
}

std::string job_text(const std::vector<Mark>& marks) { return job_text(JobFile{marks, {}, std::nullopt}); }

std::string template_text(const std::vector<Mark>& marks) { return template_text(JobFile{marks, {}, std::nullopt}); }

namespace {

// The job's lines, each followed by tail.
std::string job_lines(const JobFile& job, const std::string& header, const std::string& tail) {
    const bool styled = job.style.shape != Shape::None;
    std::string s = "index,row,column,x,y,u,v" + std::string(styled ? ",shape,shape_size,role" : "") + header + "\n";
    const std::string style = styled ? fmt::format(",{},{}", shape_name(job.style.shape), job.style.size) : "";
    for (const auto& m : job.marks) s += mark_fields(m) + (styled ? style + ",node" : "") + tail + "\n";
    if (styled && job.orientation) {
        const Mark& o = *job.orientation;
        s += fmt::format("{},{},{},{},{},{},{}{},orientation{}\n", o.index, kMarkerRow, kMarkerColumn, o.x, o.y, o.u,
                         o.v, style, tail);
    }
    return s;
}

}  // namespace

std::string job_text(const JobFile& job) { return job_lines(job, "", ""); }

std::string template_text(const JobFile& job) { return job_lines(job, ",measured_x,measured_y", ",,"); }

std::string measured_text(const std::vector<Mark>& marks, const std::vector<tagKelPointF>& measured) {
    std::string s = "index,row,column,x,y,u,v,measured_x,measured_y\n";
    for (std::size_t i = 0; i < marks.size(); ++i)
        s += fmt::format("{},{},{}\n", mark_fields(marks[i]), measured[i].x, measured[i].y);
    return s;
}

std::vector<Mark> read_job(const std::string& path) { return read_job_file(path).marks; }

namespace {

Shape shape_of(const CsvFile& f, const CsvRow& row, int col) {
    const std::string& s = row.fields[static_cast<std::size_t>(col)];
    if (s == "dot") return Shape::Dot;
    if (s == "cross") return Shape::Cross;
    throw Error(fmt::format("{}:{}: shape '{}' is neither dot nor cross", f.path, row.line, s));
}

}  // namespace

JobFile read_job_file(const std::string& path) {
    const CsvFile f = read_csv(path);
    static const char* names[] = {"index", "row", "column", "x", "y", "u", "v"};
    int col[7];
    for (int k = 0; k < 7; ++k) {
        col[k] = f.column(names[k]);
        if (col[k] < 0)
            throw Error(fmt::format("{}:{}: a marking job has the columns index,row,column,x,y,u,v; '{}' is missing",
                                    path, f.header_line, names[k]));
    }
    const int shape_col = f.column("shape"), size_col = f.column("shape_size"), role_col = f.column("role");
    if ((shape_col < 0) != (size_col < 0))
        throw Error(fmt::format("{}:{}: the mark style needs both columns shape and shape_size", path, f.header_line));
    JobFile job;
    std::vector<Mark>& marks = job.marks;
    int style_line = 0;
    for (const auto& row : f.rows) {
        const bool marker = !f.blank(row, role_col) && row.fields[static_cast<std::size_t>(role_col)] == "orientation";
        if (!f.blank(row, role_col) && !marker && row.fields[static_cast<std::size_t>(role_col)] != "node")
            throw Error(fmt::format("{}:{}: role '{}' is neither node nor orientation", path, row.line,
                                    row.fields[static_cast<std::size_t>(role_col)]));
        if (shape_col >= 0) {
            const MarkStyle style{shape_of(f, row, shape_col),
                                  static_cast<float>(f.number(row, size_col, "shape_size"))};
            if (!(style.size > 0.0f))
                throw Error(fmt::format("{}:{}: shape_size {} is not positive", path, row.line, style.size));
            if (style_line != 0 && (style.shape != job.style.shape || style.size != job.style.size))
                throw Error(fmt::format("{}:{}: the mark is drawn unlike the one on line {}: every mark of a job has "
                                        "one shape and size",
                                        path, row.line, style_line));
            job.style = style;
            style_line = row.line;
        }
        if (marker) {
            if (job.orientation)
                throw Error(fmt::format("{}:{}: a second orientation marker", path, row.line));
            Mark o;
            o.index = -1;
            o.row = o.column = -1;
            o.x = static_cast<float>(f.number(row, col[3], "x"));
            o.y = static_cast<float>(f.number(row, col[4], "y"));
            o.u = static_cast<float>(f.number(row, col[5], "u"));
            o.v = static_cast<float>(f.number(row, col[6], "v"));
            job.orientation = o;
            continue;
        }
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
    if (job.orientation) job.orientation->index = static_cast<int>(marks.size());
    return job;
}

}  // namespace vrncal::workflow
