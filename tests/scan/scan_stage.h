// A stage of a calibration on a simulated head, ready to be rendered as a
// scan and measured: its job (dots and an orientation marker) and the true
// landing of every node in the sheet's frame.
#ifndef VRNCAL_TESTS_SCAN_STAGE_H
#define VRNCAL_TESTS_SCAN_STAGE_H

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "scan/measure_scan.h"
#include "scan/render.h"
#include "workflow/simulate.h"
#include "workflow/table_file.h"

namespace vrncal::scan::testing {

struct Stage {
    tagLenPar par;  // the record the job is marked through
    workflow::JobFile job;
    std::vector<Point> truth;  // by node, field units, the sheet's frame
};

// The stage of size n of the table t on the head: the nine points (n 3)
// driven linearly, a grid through the table as it stands.
inline Stage plan_stage(const workflow::Head& head, const workflow::TableContent& t, int n) {
    Stage s;
    const bool nine = n == 3;
    s.par = nine ? workflow::settings_record(t) : workflow::load_table_text(workflow::table_text(t), *t.field_size);
    const auto drive = nine ? workflow::Drive::Linear : workflow::Drive::Corrected;
    s.job.marks = workflow::plan_marks(s.par, n, drive);
    s.job.style = workflow::mark_style(s.par, n, workflow::Shape::Dot, std::nullopt);
    s.job.orientation = workflow::orientation_mark(s.par, n, drive);
    std::vector<std::optional<Point>> landed;
    for (const auto& m : s.job.marks) {
        const auto hit = workflow::land_in_caller_frame(head, s.par, tagKelPointF{m.u, m.v});
        landed.emplace_back(Point{hit.x, hit.y});
    }
    const SheetFrame f = sheet_frame("truth", n, landed);
    for (const auto& p : landed) s.truth.push_back(in_frame(f, *p));
    return s;
}

// The nine points of a table measured exactly (the simulator's landings).
inline void measure_nine(const workflow::Head& head, workflow::TableContent& t) {
    const tagLenPar p = workflow::settings_record(t);
    const auto marks = workflow::plan_marks(p, 3, workflow::Drive::Linear);
    workflow::Noise quiet(1, 0.0);
    const auto pts = workflow::stored_points(p, 3, marks, workflow::measure_marks(head, p, marks, quiet, 0.0));
    std::copy(pts.begin(), pts.end(), t.nine);
}

struct Agreement {
    double rms_um = 0.0, max_um = 0.0;
    std::size_t matched = 0;
};

// Measured against true positions, over the nodes measured.
inline Agreement agreement(const ScanReport& r, const std::vector<Point>& truth) {
    Agreement a;
    double sum = 0.0;
    for (std::size_t k = 0; k < truth.size(); ++k) {
        if (!r.nodes[k].found) continue;
        const double e = 1000.0 * std::hypot(r.nodes[k].measured.x - truth[k].x, r.nodes[k].measured.y - truth[k].y);
        sum += e * e, a.max_um = std::max(a.max_um, e), ++a.matched;
    }
    a.rms_um = a.matched ? std::sqrt(sum / static_cast<double>(a.matched)) : 0.0;
    return a;
}

// Renders the stage and measures the image.
inline ScanReport scan_stage(const workflow::Head& head, const Stage& s, const RenderOptions& ro,
                             const MeasureOptions& mo = {}) {
    ScanImage img;
    const RenderedScan r = render_scan(head, s.par, s.job, ro);
    const double full = r.image.depth() == CV_16U ? 65535.0 : 255.0;
    cv::Mat grey = r.image;
    if (r.image.channels() == 3) cv::cvtColor(r.image, grey, cv::COLOR_BGR2GRAY);
    grey.convertTo(img.grey, CV_32F, 1.0 / full);
    MeasureOptions m = mo;
    if (!m.dpi) m.dpi = ro.dpi;
    return measure_scan("scan", img, s.job, m);
}

}  // namespace vrncal::scan::testing

#endif
