#include "scan/blobs.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <opencv2/imgproc.hpp>

#include "workflow/error.h"

namespace vrncal::scan {

using workflow::Error;

namespace {

// Robust standard deviation (1.4826 median absolute deviation) of about a
// million values spread over the matrix.
double robust_spread(const cv::Mat& m) {
    std::vector<float> v;
    const int stride = std::max(1, static_cast<int>(m.total() / 1000000));
    for (int y = 0; y < m.rows; ++y)
        for (int x = y % stride; x < m.cols; x += stride) v.push_back(m.at<float>(y, x));
    auto mid = v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2);
    std::nth_element(v.begin(), mid, v.end());
    const float median = *mid;
    for (float& x : v) x = std::fabs(x - median);
    std::nth_element(v.begin(), mid, v.end());
    return std::max(1.4826 * *mid, 1e-4);
}

// The coarse view: the image averaged over f x f blocks and its ground.
struct Coarse {
    int f = 1;
    cv::Mat ground;  // per block
    cv::Mat dark;    // per block
};

// The darkness of a full-resolution region: the ground interpolated
// bilinearly between the block centres.
cv::Mat darkness(const cv::Mat& grey, const Coarse& c, const cv::Rect& r) {
    cv::Mat d(r.size(), CV_32F);
    const int gw = c.ground.cols, gh = c.ground.rows;
    for (int y = 0; y < r.height; ++y) {
        const double v = (r.y + y - 0.5 * (c.f - 1)) / c.f;
        const int v0 = std::clamp(static_cast<int>(std::floor(v)), 0, gh - 1), v1 = std::min(v0 + 1, gh - 1);
        const float tv = static_cast<float>(std::clamp(v - v0, 0.0, 1.0));
        const float* src = grey.ptr<float>(r.y + y) + r.x;
        float* out = d.ptr<float>(y);
        for (int x = 0; x < r.width; ++x) {
            const double u = (r.x + x - 0.5 * (c.f - 1)) / c.f;
            const int u0 = std::clamp(static_cast<int>(std::floor(u)), 0, gw - 1), u1 = std::min(u0 + 1, gw - 1);
            const float tu = static_cast<float>(std::clamp(u - u0, 0.0, 1.0));
            const float g = (1 - tv) * ((1 - tu) * c.ground.at<float>(v0, u0) + tu * c.ground.at<float>(v0, u1)) +
                            tv * ((1 - tu) * c.ground.at<float>(v1, u0) + tu * c.ground.at<float>(v1, u1));
            out[x] = 1.0f - src[x] / g;
        }
    }
    return d;
}

struct Window {
    int x0, y0, x1, y1;  // inclusive
};

Window window_at(const cv::Mat& m, double cx, double cy, int half) {
    const int x = static_cast<int>(std::lround(cx)), y = static_cast<int>(std::lround(cy));
    return Window{std::max(0, x - half), std::max(0, y - half), std::min(m.cols - 1, x + half),
                  std::min(m.rows - 1, y + half)};
}

// The darkness-weighted mean over the window, less the median darkness of
// its border; false when nothing is darker than the border.
bool weighted_centre(const cv::Mat& dark, const Window& w, double noise, Blob& b) {
    std::vector<float> edge;
    for (int x = w.x0; x <= w.x1; ++x) edge.push_back(dark.at<float>(w.y0, x)), edge.push_back(dark.at<float>(w.y1, x));
    for (int y = w.y0 + 1; y < w.y1; ++y)
        edge.push_back(dark.at<float>(y, w.x0)), edge.push_back(dark.at<float>(y, w.x1));
    auto mid = edge.begin() + static_cast<std::ptrdiff_t>(edge.size() / 2);
    std::nth_element(edge.begin(), mid, edge.end());
    const double base = *mid;
    double sw = 0.0, sx = 0.0, sy = 0.0;
    for (int y = w.y0; y <= w.y1; ++y) {
        const float* row = dark.ptr<float>(y);
        for (int x = w.x0; x <= w.x1; ++x) {
            const double v = row[x] - base;
            sw += v, sx += v * x, sy += v * y;
        }
    }
    if (!(sw > 0.0)) return false;
    const double cx = sx / sw, cy = sy / sw;
    double cxx = 0.0, cyy = 0.0, cxy = 0.0, rx = 0.0, ry = 0.0;
    for (int y = w.y0; y <= w.y1; ++y) {
        const float* row = dark.ptr<float>(y);
        for (int x = w.x0; x <= w.x1; ++x) {
            const double v = row[x] - base, dx = x - cx, dy = y - cy;
            cxx += v * dx * dx, cyy += v * dy * dy, cxy += v * dx * dy;
            rx += dx * dx, ry += dy * dy;
        }
    }
    cxx /= sw, cyy /= sw, cxy /= sw;
    b.centre = Point{cx, cy};
    b.sigma_x = noise * std::sqrt(rx) / sw;
    b.sigma_y = noise * std::sqrt(ry) / sw;
    b.size = std::sqrt(std::max(0.0, cxx + cyy));
    const double half = 0.5 * (cxx + cyy), root = std::sqrt(0.25 * (cxx - cyy) * (cxx - cyy) + cxy * cxy);
    b.elongation = half - root > 0.0 ? std::sqrt((half + root) / (half - root)) : 99.0;
    return true;
}

// A candidate region in full resolution, its darkness, smoothed darkness
// and peak.
struct Region {
    cv::Rect rect;
    cv::Mat dark, smooth;
    double peak = 0.0;
    bool listed = false;  // large enough to count towards the marks' darkness
};

}  // namespace

Blobs find_blobs(const std::string& name, const cv::Mat& grey_in, bool light_marks, double mark_px, double min_area) {
    const cv::Mat grey = light_marks ? cv::Mat(1.0 - grey_in) : grey_in;

    // 1. The coarse view, and the image must not be uniform.
    Coarse c;
    c.f = std::max(1, static_cast<int>(std::lround(mark_px / 3)));
    const int gw = std::max(1, grey.cols / c.f), gh = std::max(1, grey.rows / c.f);
    cv::Mat blocks;
    cv::resize(grey(cv::Rect(0, 0, std::min(grey.cols, gw * c.f), std::min(grey.rows, gh * c.f))), blocks,
               cv::Size(gw, gh), 0, 0, cv::INTER_AREA);
    double lo = 0.0, hi = 0.0;
    cv::Mat settled;
    cv::GaussianBlur(blocks, settled, cv::Size(0, 0), 1.0);
    cv::minMaxLoc(settled, &lo, &hi);
    if (hi - lo < 0.05) {
        const double level = 0.5 * (lo + hi);
        throw Error(fmt::format("{}: the image is uniform ({}): no marks to measure", name,
                                level < 0.15   ? "all black"
                                : level > 0.85 ? "all white"
                                               : "all one grey"));
    }
    cv::morphologyEx(blocks, c.ground, cv::MORPH_CLOSE, cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(9, 9)));
    cv::GaussianBlur(c.ground, c.ground, cv::Size(0, 0), 2.0);
    cv::max(c.ground, 1e-3, c.ground);
    cv::divide(blocks, c.ground, c.dark);
    cv::subtract(1.0, c.dark, c.dark);

    // 2. The noise, on a block of paper in full resolution (the marks in
    // it are few against its pixels), and the candidate regions.
    Blobs out;
    {
        const cv::Rect block((grey.cols - std::min(grey.cols, 600)) / 2, (grey.rows - std::min(grey.rows, 600)) / 2,
                             std::min(grey.cols, 600), std::min(grey.rows, 600));
        const cv::Mat d = darkness(grey, c, block);
        out.noise = robust_spread(d);
    }
    cv::Mat mask, labels, stats, centroids;
    cv::compare(c.dark, std::max(8.0 * robust_spread(c.dark), 0.03), mask, cv::CMP_GT);
    const int count = cv::connectedComponentsWithStats(mask, labels, stats, centroids, 8, CV_32S);
    const int margin = static_cast<int>(std::ceil(mark_px)) + 12;
    const cv::Rect image(0, 0, grey.cols, grey.rows);
    std::vector<Region> regions;
    double smooth_noise = 0.0;
    for (int id = 1; id < count; ++id) {
        Region g;
        g.rect = cv::Rect(stats.at<int>(id, cv::CC_STAT_LEFT) * c.f - margin,
                          stats.at<int>(id, cv::CC_STAT_TOP) * c.f - margin,
                          stats.at<int>(id, cv::CC_STAT_WIDTH) * c.f + 2 * margin,
                          stats.at<int>(id, cv::CC_STAT_HEIGHT) * c.f + 2 * margin) &
                 image;
        g.dark = darkness(grey, c, g.rect);
        cv::GaussianBlur(g.dark, g.smooth, cv::Size(0, 0), 1.0);
        cv::minMaxLoc(g.smooth, nullptr, &g.peak);
        g.listed = stats.at<int>(id, cv::CC_STAT_AREA) * c.f * c.f >= min_area;
        regions.push_back(std::move(g));
    }
    std::vector<double> peaks;
    for (const Region& g : regions)
        if (g.listed) peaks.push_back(g.peak);
    if (peaks.empty())
        throw Error(
            fmt::format("{}: no marks found: nothing of a mark's size stands out of the paper (noise {:.3g} of "
                        "its brightness)",
                        name, out.noise));
    std::nth_element(peaks.begin(), peaks.begin() + static_cast<std::ptrdiff_t>(peaks.size() / 2), peaks.end());
    out.ink = peaks[peaks.size() / 2];
    {
        const cv::Rect block((grey.cols - std::min(grey.cols, 600)) / 2, (grey.rows - std::min(grey.rows, 600)) / 2,
                             std::min(grey.cols, 600), std::min(grey.rows, 600));
        cv::Mat s;
        cv::GaussianBlur(darkness(grey, c, block), s, cv::Size(0, 0), 1.0);
        smooth_noise = robust_spread(s);
    }
    out.threshold = std::max(6.0 * smooth_noise, 0.5 * out.ink);

    // 3. Blobs and their centres, each once where regions overlap.
    for (const Region& g : regions) {
        cv::compare(g.smooth, out.threshold, mask, cv::CMP_GT);
        const int n = cv::connectedComponentsWithStats(mask, labels, stats, centroids, 8, CV_32S);
        for (int id = 1; id < n; ++id) {
            const int area = stats.at<int>(id, cv::CC_STAT_AREA);
            if (area < min_area) {
                ++out.specks;
                continue;
            }
            const int left = stats.at<int>(id, cv::CC_STAT_LEFT), top = stats.at<int>(id, cv::CC_STAT_TOP);
            const int width = stats.at<int>(id, cv::CC_STAT_WIDTH), height = stats.at<int>(id, cv::CC_STAT_HEIGHT);
            Blob b;
            b.area = area;
            cv::minMaxLoc(g.smooth, nullptr, &b.darkness, nullptr, nullptr, labels == id);
            const int half = (std::max(width, height) + 1) / 2 + 4;
            Window w = window_at(g.dark, centroids.at<double>(id, 0), centroids.at<double>(id, 1), half);
            if (!weighted_centre(g.dark, w, out.noise, b)) continue;
            w = window_at(g.dark, b.centre.x, b.centre.y, half);
            if (!weighted_centre(g.dark, w, out.noise, b)) continue;
            // Cut short by the region: by the image's edge, or the blob is
            // another region's, where it lies whole.
            const bool cut = w.x1 - w.x0 != 2 * half || w.y1 - w.y0 != 2 * half || left == 0 || top == 0 ||
                             left + width == g.rect.width || top + height == g.rect.height;
            const bool at_edge = g.rect.x == 0 || g.rect.y == 0 || g.rect.x + g.rect.width == grey.cols ||
                                 g.rect.y + g.rect.height == grey.rows;
            if (cut && !at_edge) continue;
            b.on_border = cut;
            b.centre.x += g.rect.x, b.centre.y += g.rect.y;
            const bool seen = std::any_of(out.blobs.begin(), out.blobs.end(), [&](const Blob& o) {
                return std::hypot(o.centre.x - b.centre.x, o.centre.y - b.centre.y) < 1.0;
            });
            if (!seen) out.blobs.push_back(b);
        }
    }
    return out;
}

}  // namespace vrncal::scan
