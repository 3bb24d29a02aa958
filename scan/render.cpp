#include "scan/render.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <opencv2/imgproc.hpp>
#include <random>

#include "scan/lattice.h"
#include "workflow/error.h"

namespace vrncal::scan {

using workflow::Error;

namespace {

constexpr double kPi = 3.14159265358979323846;

using Outline = std::vector<Point>;

struct Shape {
    std::vector<Outline> parts;  // filled and united
    double ink = 0.85;           // darkness at full cover
};

class Sampler {
public:
    explicit Sampler(std::uint64_t seed) : gen_(seed) {}
    double uniform(double lo, double hi) { return lo + (hi - lo) * (static_cast<double>(gen_() >> 11) * 0x1p-53); }

private:
    std::mt19937_64 gen_;
};

Point land(const workflow::Head& head, const tagLenPar& par, double u, double v) {
    const auto hit =
        workflow::land_in_caller_frame(head, par, tagKelPointF{static_cast<float>(u), static_cast<float>(v)});
    if (!std::isfinite(hit.x) || !std::isfinite(hit.y))
        throw Error(fmt::format("render: the head sends the spot for the drive ({}, {}) off the work plane", u, v));
    return Point{hit.x, hit.y};
}

// A mark drawn around (u, v) counts, landed through the head.  line: the
// laser's line width in field units.
Shape mark_shape(const workflow::Head& head, const tagLenPar& par, const workflow::MarkStyle& style, double u, double v,
                 double line) {
    Shape s;
    const double half = 0.5 * style.size;
    if (style.shape == workflow::Shape::Dot) {
        Outline o;
        for (int i = 0; i < 48; ++i) {
            const double t = 2.0 * kPi * i / 48;
            o.push_back(land(head, par, u + half * std::cos(t), v + half * std::sin(t)));
        }
        s.parts.push_back(o);
        return s;
    }
    for (const auto& [du, dv] : {std::pair{1.0, 0.0}, std::pair{0.0, 1.0}}) {
        std::vector<Point> spine;
        for (int i = -2; i <= 2; ++i) spine.push_back(land(head, par, u + du * half * i / 2, v + dv * half * i / 2));
        Outline left, right;
        for (std::size_t i = 0; i < spine.size(); ++i) {
            const Point a = spine[i == 0 ? 0 : i - 1], b = spine[i + 1 == spine.size() ? i : i + 1];
            const double len = std::hypot(b.x - a.x, b.y - a.y);
            const Point nrm{-(b.y - a.y) / len * 0.5 * line, (b.x - a.x) / len * 0.5 * line};
            left.push_back(Point{spine[i].x + nrm.x, spine[i].y + nrm.y});
            right.push_back(Point{spine[i].x - nrm.x, spine[i].y - nrm.y});
        }
        left.insert(left.end(), right.rbegin(), right.rend());
        s.parts.push_back(left);
    }
    return s;
}

Outline ellipse(Point c, double a, double b, double angle) {
    Outline o;
    for (int i = 0; i < 24; ++i) {
        const double t = 2.0 * kPi * i / 24, x = a * std::cos(t), y = b * std::sin(t);
        o.push_back(
            Point{c.x + x * std::cos(angle) - y * std::sin(angle), c.y + x * std::sin(angle) + y * std::cos(angle)});
    }
    return o;
}

// Lays the shape (pixels) on the image: its cover by 8 x 8 supersampling,
// blurred, darkens the image by ink times the cover.
void lay(cv::Mat& img, const Shape& s, double blur_px) {
    double x_lo = 1e300, y_lo = 1e300, x_hi = -1e300, y_hi = -1e300;
    for (const auto& o : s.parts)
        for (const Point& p : o)
            x_lo = std::min(x_lo, p.x), x_hi = std::max(x_hi, p.x), y_lo = std::min(y_lo, p.y),
            y_hi = std::max(y_hi, p.y);
    const int margin = static_cast<int>(std::ceil(4.0 * blur_px)) + 2;
    const int x0 = std::max(0, static_cast<int>(std::floor(x_lo)) - margin);
    const int y0 = std::max(0, static_cast<int>(std::floor(y_lo)) - margin);
    const int x1 = std::min(img.cols - 1, static_cast<int>(std::ceil(x_hi)) + margin);
    const int y1 = std::min(img.rows - 1, static_cast<int>(std::ceil(y_hi)) + margin);
    if (x1 < x0 || y1 < y0) return;
    constexpr int kSuper = 8, kShift = 8;
    cv::Mat mask = cv::Mat::zeros((y1 - y0 + 1) * kSuper, (x1 - x0 + 1) * kSuper, CV_8U);
    for (const auto& o : s.parts) {
        // Pixel i spans [i - 1/2, i + 1/2]; sub-pixel I of the mask is at
        // (I + 1/2) / 8 - 1/2 in pixels from x0.
        std::vector<cv::Point> pts;
        for (const Point& p : o)
            pts.emplace_back(static_cast<int>(std::lround(((p.x - x0 + 0.5) * kSuper - 0.5) * (1 << kShift))),
                             static_cast<int>(std::lround(((p.y - y0 + 0.5) * kSuper - 0.5) * (1 << kShift))));
        const cv::Point* data = pts.data();
        const int count = static_cast<int>(pts.size());
        cv::fillPoly(mask, &data, &count, 1, cv::Scalar(255), cv::LINE_8, kShift);
    }
    cv::Mat cover;
    cv::resize(mask, cover, cv::Size(x1 - x0 + 1, y1 - y0 + 1), 0, 0, cv::INTER_AREA);
    cover.convertTo(cover, CV_32F, s.ink / 255.0);
    if (blur_px > 0.0) cv::GaussianBlur(cover, cover, cv::Size(0, 0), blur_px);
    cv::Mat roi = img(cv::Rect(x0, y0, x1 - x0 + 1, y1 - y0 + 1));
    cv::multiply(roi, cv::Scalar::all(1.0) - cover, roi);
}

double segment_distance(Point p, Point a, Point b) {
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double t = std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / (dx * dx + dy * dy), 0.0, 1.0);
    return std::hypot(p.x - a.x - t * dx, p.y - a.y - t * dy);
}

}  // namespace

RenderedScan render_scan(const workflow::Head& head, const tagLenPar& par, const workflow::JobFile& job,
                         const RenderOptions& opt) {
    if (job.style.shape == workflow::Shape::None)
        throw Error("render: the job says nothing of the marks' shape: plan it with --mark to scan it");
    if (!(opt.dpi >= 50.0 && opt.dpi <= 5000.0)) throw Error(fmt::format("render: a resolution of {} dpi", opt.dpi));
    Sampler rnd(opt.seed);
    RenderedScan out;
    out.angle_deg = opt.angle_deg ? *opt.angle_deg : rnd.uniform(-3.0, 3.0);
    const double mm_per_unit = opt.unit_mm;
    const double line = opt.line_um / 1000.0 / mm_per_unit;

    // The marks, in field units of the caller's frame.
    std::vector<Shape> marks;
    const std::size_t nodes = job.marks.size();
    for (std::size_t k = 0; k < nodes; ++k) {
        const auto& m = job.marks[k];
        const int index = static_cast<int>(k);
        if (std::find(opt.missing.begin(), opt.missing.end(), index) == opt.missing.end())
            marks.push_back(mark_shape(head, par, job.style, m.u, m.v, line));
        if (std::find(opt.doubled.begin(), opt.doubled.end(), index) != opt.doubled.end()) {
            const double dir = rnd.uniform(0.0, 2.0 * kPi), off = 1.2 * job.style.size;
            marks.push_back(
                mark_shape(head, par, job.style, m.u + off * std::cos(dir), m.v + off * std::sin(dir), line));
        }
    }
    if (job.orientation)
        marks.push_back(mark_shape(head, par, job.style, job.orientation->u, job.orientation->v, line));

    // The sheet on the scanner: mirrored, turned, offset; image y runs down.
    const double th = out.angle_deg * kPi / 180.0;
    const double kx = opt.dpi / 25.4 * mm_per_unit * opt.stretch_x, ky = opt.dpi / 25.4 * mm_per_unit * opt.stretch_y;
    auto place = [&](Point p) {
        const double x = opt.mirrored ? -p.x : p.x, y = -p.y;
        return Point{(std::cos(th) * x + std::sin(th) * y) * kx, (-std::sin(th) * x + std::cos(th) * y) * ky};
    };
    double x_lo = 1e300, y_lo = 1e300, x_hi = -1e300, y_hi = -1e300;
    for (auto& s : marks)
        for (auto& o : s.parts)
            for (Point& p : o) {
                p = place(p);
                x_lo = std::min(x_lo, p.x), x_hi = std::max(x_hi, p.x), y_lo = std::min(y_lo, p.y),
                y_hi = std::max(y_hi, p.y);
            }
    const double margin = 6.0 * opt.dpi / 25.4;
    const Point shift{margin + rnd.uniform(0.0, 4.0) * opt.dpi / 25.4 - x_lo,
                      margin + rnd.uniform(0.0, 4.0) * opt.dpi / 25.4 - y_lo};
    const int width = static_cast<int>(std::ceil(x_hi + shift.x + margin));
    const int height = static_cast<int>(std::ceil(y_hi + shift.y + margin));
    std::vector<Point> centres;
    for (auto& s : marks) {
        Point c{};
        std::size_t count = 0;
        for (auto& o : s.parts)
            for (Point& p : o) p.x += shift.x, p.y += shift.y, c.x += p.x, c.y += p.y, ++count;
        centres.push_back(Point{c.x / count, c.y / count});
    }

    // Paper: smoothly uneven, a little darker towards one side.
    cv::Mat coarse(6, 6, CV_32F);
    for (int i = 0; i < 36; ++i) coarse.at<float>(i / 6, i % 6) = static_cast<float>(rnd.uniform(0.84, 0.92));
    cv::Mat img;
    cv::resize(coarse, img, cv::Size(width, height), 0, 0, cv::INTER_CUBIC);
    for (int y = 0; y < height; ++y) {
        float* row = img.ptr<float>(y);
        for (int x = 0; x < width; ++x) row[x] *= static_cast<float>(1.0 - 0.05 * x / width);
    }

    const double blur = opt.blur_um / 1000.0 * opt.dpi / 25.4;
    const double mark_px =
        job.style.size * kx * std::fabs((job.marks[1].x - job.marks[0].x) / (double{job.marks[1].u} - job.marks[0].u));
    for (const Shape& s : marks) lay(img, s, blur);

    // Dust and scratches, off the marks.
    auto clear_of_marks = [&](Point a, Point b, double reach) {
        for (const Point& c : centres)
            if (segment_distance(c, a, b) < reach + mark_px) return false;
        return true;
    };
    const double px_per_mm = opt.dpi / 25.4;
    for (int i = 0, tries = 0; i < opt.dust && tries < 1000; ++tries) {
        const Point c{rnd.uniform(0, width), rnd.uniform(0, height)};
        const double across = std::exp(rnd.uniform(std::log(0.03), std::log(0.5))) * px_per_mm;
        const double stretch = rnd.uniform(1.0, 2.5), angle = rnd.uniform(0, kPi), ink = rnd.uniform(0.3, 0.9);
        if (!clear_of_marks(c, Point{c.x + 1e-9, c.y}, across * stretch)) continue;
        lay(img, Shape{{ellipse(c, 0.5 * across * stretch, 0.5 * across / stretch, angle)}, ink}, blur);
        ++i;
    }
    for (int i = 0, tries = 0; i < opt.scratches && tries < 1000; ++tries) {
        const Point a{rnd.uniform(0, width), rnd.uniform(0, height)};
        const double len = rnd.uniform(3.0, 8.0) * px_per_mm, dir = rnd.uniform(0, 2 * kPi);
        const Point b{a.x + len * std::cos(dir), a.y + len * std::sin(dir)};
        const double w = rnd.uniform(0.02, 0.04) * px_per_mm;
        if (!clear_of_marks(a, b, w + 3 * blur)) continue;
        const Point n{-std::sin(dir) * 0.5 * w, std::cos(dir) * 0.5 * w};
        lay(img,
            Shape{{{Point{a.x + n.x, a.y + n.y}, Point{b.x + n.x, b.y + n.y}, Point{b.x - n.x, b.y - n.y},
                    Point{a.x - n.x, a.y - n.y}}},
                  rnd.uniform(0.25, 0.5)},
            blur);
        ++i;
    }

    // The scanner's noise and quantisation, row by row.
    const int channels = opt.colour ? 3 : 1;
    const double full = opt.bits == 16 ? 65535.0 : 255.0;
    out.image.create(height, width, CV_MAKETYPE(opt.bits == 16 ? CV_16U : CV_8U, channels));
    cv::RNG rng(opt.seed);
    cv::Mat noise(1, width * channels, CV_32F);
    const float tint[3] = {0.97f, 1.0f, 1.02f};  // paper a little warm: blue, green, red
    for (int y = 0; y < height; ++y) {
        rng.fill(noise, cv::RNG::NORMAL, 0.0, opt.noise);
        const float* src = img.ptr<float>(y);
        const float* nz = noise.ptr<float>(0);
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c) {
                const double v =
                    std::clamp((src[x] * (opt.colour ? tint[c] : 1.0f) + nz[x * channels + c]) * full, 0.0, full);
                const int q = static_cast<int>(std::lround(v));
                if (opt.bits == 16)
                    out.image.ptr<std::uint16_t>(y)[x * channels + c] = static_cast<std::uint16_t>(q);
                else
                    out.image.ptr<std::uint8_t>(y)[x * channels + c] = static_cast<std::uint8_t>(q);
            }
    }
    return out;
}

}  // namespace vrncal::scan
