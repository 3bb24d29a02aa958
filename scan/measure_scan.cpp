#include "scan/measure_scan.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <opencv2/imgproc.hpp>

#include "scan/blobs.h"
#include "workflow/error.h"

namespace vrncal::scan {

using workflow::Error;

std::size_t ScanReport::matched() const {
    return static_cast<std::size_t>(
        std::count_if(nodes.begin(), nodes.end(), [](const NodeReading& r) { return r.found; }));
}

std::vector<int> ScanReport::missing() const {
    std::vector<int> out;
    for (std::size_t k = 0; k < nodes.size(); ++k)
        if (!nodes[k].found) out.push_back(static_cast<int>(k));
    return out;
}

namespace {

constexpr double kPi = 3.14159265358979323846;

// The plan's pitch and a mark's size across, in field units.
struct PlanGeometry {
    int n = 0;
    double pitch = 0.0;
    double mark = 0.0;
};

PlanGeometry plan_geometry(const std::string& plan, const workflow::JobFile& job) {
    PlanGeometry g;
    const auto& m = job.marks;
    g.n = static_cast<int>(std::lround(std::sqrt(static_cast<double>(m.size()))));
    if (g.n < 3 || g.n % 2 == 0 || static_cast<std::size_t>(g.n * g.n) != m.size())
        throw Error(
            fmt::format("{}: {} marks make no square grid with a centre mark, 3 x 3 or larger", plan, m.size()));
    g.pitch = std::fabs(double{m[1].x} - m[0].x);
    if (!(g.pitch > 0.0)) throw Error(plan + ": marks 0 and 1 have the same nominal position");
    if (job.style.shape == workflow::Shape::None) {
        g.mark = std::min(0.4, 0.25 * g.pitch);
        return g;
    }
    // Counts to field units: the slope of x against u over the marks.
    double su = 0.0, sx = 0.0;
    for (const auto& k : m) su += k.u, sx += k.x;
    su /= static_cast<double>(m.size()), sx /= static_cast<double>(m.size());
    double num = 0.0, den = 0.0;
    for (const auto& k : m) num += (k.u - su) * (k.x - sx), den += (k.u - su) * (k.u - su);
    g.mark = job.style.size * std::fabs(num / den);
    return g;
}

// Why a blob cannot be a mark, or "".
std::string unlike_a_mark(const Blob& b, workflow::Shape shape, double mark_px) {
    const bool dot = shape != workflow::Shape::Cross;
    const double area = dot ? 0.25 * kPi * mark_px * mark_px : 0.0;
    const double size = (dot ? 0.354 : 0.289) * mark_px;  // the moments of a disc, of a thin cross
    if (b.on_border) return "cut by the edge of the image";
    // A dot by its area, a cross (whose strokes are as wide as the laser's
    // line) by its span.
    const std::string what = dot ? fmt::format("{:.0f} pixels, a mark about {:.0f}", b.area, area)
                                 : fmt::format("{:.1f} pixels across, a mark about {:.1f}", b.size / 0.289, mark_px);
    if ((dot && b.area < 0.4 * area) || b.size < 0.5 * size) return "too small for a mark (" + what + ")";
    if ((dot && b.area > 3.0 * area) || b.size > 2.0 * size) return "too large for a mark (" + what + ")";
    if (b.elongation > 1.3)
        return fmt::format("elongated ({:.2f} : 1): a scratch, a smear or two marks run together", b.elongation);
    return "";
}

}  // namespace

ScanReport measure_scan(const std::string& name, const ScanImage& image, const workflow::JobFile& job,
                        const MeasureOptions& opt) {
    ScanReport r;
    r.name = name;
    r.width = image.grey.cols, r.height = image.grey.rows, r.bits = image.bits, r.channels = image.channels;
    if (opt.dpi && image.dpi_x &&
        (std::fabs(*opt.dpi / *image.dpi_x - 1) > 0.005 || std::fabs(*opt.dpi / *image.dpi_y - 1) > 0.005))
        throw Error(fmt::format("{}: the image states {} dpi, not the {} dpi given: which is the scanner's?", name,
                                *image.dpi_x == *image.dpi_y ? fmt::format("{}", *image.dpi_x)
                                                             : fmt::format("{} x {}", *image.dpi_x, *image.dpi_y),
                                *opt.dpi));
    if (opt.dpi) {
        r.dpi_x = r.dpi_y = *opt.dpi;
    } else if (image.dpi_x) {
        r.dpi_x = *image.dpi_x, r.dpi_y = *image.dpi_y;
    } else {
        throw Error(name + ": the image states no resolution: give the scanner's with --dpi");
    }
    if (!(r.dpi_x >= 50.0 && r.dpi_x <= 20000.0 && r.dpi_y >= 50.0 && r.dpi_y <= 20000.0))
        throw Error(fmt::format("{}: a resolution of {} dpi is not a scanner's (50 to 20000)", name, r.dpi_x));
    if (!job.orientation && !opt.upright)
        throw Error(opt.plan +
                    ": the plan has no orientation marker (plan the job with --mark): a sheet scanned turned "
                    "or mirrored cannot be told; give --upright to take the scan as upright (mark 0 at its top "
                    "left) when it is");
    const PlanGeometry g = plan_geometry(opt.plan, job);
    r.n = g.n;
    // Pixels per field unit along each image axis.
    const double kx = r.dpi_x / 25.4 * opt.unit_mm / opt.scale_x, ky = r.dpi_y / 25.4 * opt.unit_mm / opt.scale_y;
    r.mark_px = g.mark * 0.5 * (kx + ky);
    const double area =
        job.style.shape == workflow::Shape::Cross ? 0.3 * r.mark_px * r.mark_px : 0.25 * kPi * r.mark_px * r.mark_px;
    const Blobs found = find_blobs(name, image.grey, opt.light_marks, r.mark_px, std::max(4.0, 0.2 * area));
    r.blobs = found.blobs.size();
    r.specks = found.specks;
    r.noise = found.noise;

    std::vector<int> candidate_blob;
    LatticeInput in;
    in.name = name;
    in.n = g.n;
    in.pitch_px = g.pitch * 0.5 * (kx + ky);
    in.mark_px = r.mark_px;
    in.marker = job.orientation.has_value();
    std::vector<double> sizes;
    for (std::size_t i = 0; i < found.blobs.size(); ++i) {
        const Blob& b = found.blobs[i];
        const std::string why = unlike_a_mark(b, job.style.shape, r.mark_px);
        if (!why.empty()) {
            r.rejected.emplace_back(b.centre, why);
            sizes.push_back(b.size);
            continue;
        }
        candidate_blob.push_back(static_cast<int>(i));
        in.centres.push_back(b.centre);
    }
    if (in.centres.empty() && !sizes.empty()) {
        std::nth_element(sizes.begin(), sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() / 2), sizes.end());
        throw Error(
            fmt::format("{}: {} blobs found, none of a mark's size: the plan's marks are {:.3g} across, {:.1f} "
                        "pixels at {} dpi, the blobs' median is {:.1f}: is the resolution (--dpi) or the plan "
                        "wrong?",
                        name, found.blobs.size(), g.mark, r.mark_px, r.dpi_x,
                        sizes[sizes.size() / 2] / (job.style.shape == workflow::Shape::Cross ? 0.289 : 0.354)));
    }
    const LatticeMatch m = match_lattice(in);
    r.pitch_px = m.pitch;
    r.plan_pitch_px = in.pitch_px;
    r.orientation_assumed = m.orientation_assumed;
    if (m.marker >= 0) r.marker = in.centres[static_cast<std::size_t>(m.marker)];
    for (const auto& rej : m.rejected)
        r.rejected.emplace_back(in.centres[static_cast<std::size_t>(rej.candidate)], rej.reason);

    // Marks unlike the others (dust on a mark, a mark run into another).
    const std::size_t nodes = m.node.size();
    r.nodes.resize(nodes);
    std::vector<double> areas;
    for (std::size_t k = 0; k < nodes; ++k)
        if (m.node[k] >= 0)
            areas.push_back(
                found.blobs[static_cast<std::size_t>(candidate_blob[static_cast<std::size_t>(m.node[k])])].area);
    if (areas.empty()) throw Error(name + ": no mark matched a node of the plan");
    std::nth_element(areas.begin(), areas.begin() + static_cast<std::ptrdiff_t>(areas.size() / 2), areas.end());
    const double typical = areas[areas.size() / 2];
    std::vector<std::optional<Point>> mm(nodes);
    for (std::size_t k = 0; k < nodes; ++k) {
        NodeReading& nr = r.nodes[k];
        nr.pixel = m.predicted[k];
        nr.problem = m.problem[k];
        if (m.node[k] < 0) {
            // Where a blob was turned down, say so.
            for (const auto& [p, why] : r.rejected)
                if (m.problem[k].rfind("no mark found", 0) == 0 &&
                    std::hypot(p.x - nr.pixel.x, p.y - nr.pixel.y) < 0.25 * in.pitch_px)
                    nr.problem = fmt::format("the blob there, at ({:.1f}, {:.1f}), is {}", p.x, p.y, why);
            continue;
        }
        const Blob& b = found.blobs[static_cast<std::size_t>(candidate_blob[static_cast<std::size_t>(m.node[k])])];
        nr.pixel = b.centre;
        nr.area = b.area;
        if (b.area < 0.6 * typical || b.area > 1.6 * typical) {
            nr.problem = fmt::format(
                "its mark at ({:.1f}, {:.1f}) is unlike the others ({:.0f} pixels where they "
                "have {:.0f}): dust on it?",
                b.centre.x, b.centre.y, b.area, typical);
            r.rejected.emplace_back(
                b.centre, fmt::format("unlike the other marks ({:.0f} pixels, they {:.0f})", b.area, typical));
            continue;
        }
        nr.found = true;
        nr.problem.clear();
        nr.uncertainty_um = 1000.0 * std::max(b.sigma_x / kx, b.sigma_y / ky) * opt.unit_mm;
        mm[k] = Point{b.centre.x / kx, b.centre.y / ky};
    }

    // The frame, in field units on the image's axes.
    r.frame = sheet_frame(name, g.n, mm);
    for (std::size_t k = 0; k < nodes; ++k)
        if (mm[k]) {
            const Point p = in_frame(r.frame, *mm[k]);
            // Adding +0 turns the -0 of the origin into 0.
            r.nodes[k].measured = tagKelPointF{static_cast<float>(p.x) + 0.0f, static_cast<float>(p.y) + 0.0f};
        }
    // The image's y runs down: an upright sheet has its y axis pointing up.
    r.mirrored = r.frame.ey.x * -r.frame.ex.y + r.frame.ey.y * r.frame.ex.x > 0.0;
    r.turned_deg = std::atan2(-r.frame.ex.y, r.frame.ex.x) * 180.0 / kPi;
    return r;
}

std::string measurement_text(const workflow::JobFile& job, const ScanReport& r) {
    const int mid = (r.n - 1) / 2;
    std::string s = fmt::format(
        "# measured from {} at {} dpi by vrncal measure: origin at the centre mark {}{}, x "
        "along row {}, y towards row 0\n",
        r.name, r.dpi_x, mid * r.n + mid, r.frame.origin_interpolated ? " (missing: between its neighbours)" : "", mid);
    s += "index,row,column,x,y,u,v,measured_x,measured_y,uncertainty_um,scan_x,scan_y\n";
    for (std::size_t k = 0; k < job.marks.size(); ++k) {
        const NodeReading& n = r.nodes[k];
        s += workflow::mark_fields(job.marks[k]);
        if (n.found)
            s += fmt::format(",{},{},{:.2g},{:.2f},{:.2f}\n", n.measured.x, n.measured.y, n.uncertainty_um, n.pixel.x,
                             n.pixel.y);
        else
            s += ",,,,,\n";
    }
    return s;
}

cv::Mat overlay_image(const ScanImage& image, const ScanReport& r) {
    cv::Mat grey8, out;
    image.grey.convertTo(grey8, CV_8U, 255.0);
    cv::cvtColor(grey8, out, cv::COLOR_GRAY2BGR);
    grey8.release();
    const double pitch = r.pitch_px > 0 ? r.pitch_px : 100.0;
    const int thick = std::clamp(static_cast<int>(pitch / 120), 1, 4);
    const double font = std::clamp(pitch / 160, 0.4, 2.0);
    const int radius = static_cast<int>(0.6 * r.mark_px) + 2 + thick;
    auto at = [](Point p) { return cv::Point(static_cast<int>(std::lround(p.x)), static_cast<int>(std::lround(p.y))); };
    const cv::Scalar green(40, 160, 40), red(30, 30, 220), orange(0, 140, 255), blue(220, 90, 20);
    for (const auto& [p, why] : r.rejected) cv::circle(out, at(p), radius, orange, thick, cv::LINE_AA);
    for (std::size_t k = 0; k < r.nodes.size(); ++k) {
        const NodeReading& n = r.nodes[k];
        const cv::Point c = at(n.pixel);
        const cv::Point label = c + cv::Point(radius, -radius);
        if (n.found) {
            cv::circle(out, c, radius, green, thick, cv::LINE_AA);
            cv::putText(out, std::to_string(k), label, cv::FONT_HERSHEY_SIMPLEX, font, green, thick, cv::LINE_AA);
        } else {
            cv::drawMarker(out, c, red, cv::MARKER_TILTED_CROSS, 2 * radius, thick, cv::LINE_AA);
            cv::putText(out, std::to_string(k) + "?", label, cv::FONT_HERSHEY_SIMPLEX, font, red, thick, cv::LINE_AA);
        }
    }
    if (r.marker) {
        cv::circle(out, at(*r.marker), radius, blue, thick, cv::LINE_AA);
        cv::putText(out, "orientation", at(*r.marker) + cv::Point(radius, 3 * radius), cv::FONT_HERSHEY_SIMPLEX, font,
                    blue, thick, cv::LINE_AA);
    }
    const int mid = (r.n - 1) / 2;
    const NodeReading& centre = r.nodes[static_cast<std::size_t>(mid * r.n + mid)];
    for (const auto& [e, name] : {std::pair{r.frame.ex, "x"}, std::pair{r.frame.ey, "y"}}) {
        const Point tip{centre.pixel.x + 0.8 * pitch * e.x, centre.pixel.y + 0.8 * pitch * e.y};
        cv::arrowedLine(out, at(centre.pixel), at(tip), blue, thick, cv::LINE_AA, 0, 0.15);
        cv::putText(out, name, at(tip), cv::FONT_HERSHEY_SIMPLEX, font, blue, thick, cv::LINE_AA);
    }
    return out;
}

}  // namespace vrncal::scan
