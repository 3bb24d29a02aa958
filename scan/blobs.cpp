#include "scan/blobs.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <opencv2/imgproc.hpp>

#include "workflow/error.h"

namespace vrncal::scan {

using workflow::Error;

namespace {

// Median and robust standard deviation (1.4826 median absolute deviation)
// of about a million pixels spread over the image.
std::pair<double, double> robust_spread(const cv::Mat& m) {
    const std::size_t total = m.total();
    const std::size_t stride = std::max<std::size_t>(1, total / 1000000);
    std::vector<float> v;
    v.reserve(total / stride + 1);
    const float* p = m.ptr<float>(0);  // continuous: made by this file
    for (std::size_t i = 0; i < total; i += stride) v.push_back(p[i]);
    auto mid = v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2);
    std::nth_element(v.begin(), mid, v.end());
    const double median = *mid;
    for (float& x : v) x = std::fabs(x - static_cast<float>(median));
    std::nth_element(v.begin(), mid, v.end());
    return {median, std::max(1.4826 * *mid, 1e-4)};
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
    for (int y = w.y0 + 1; y < w.y1; ++y) edge.push_back(dark.at<float>(y, w.x0)), edge.push_back(dark.at<float>(y, w.x1));
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

}  // namespace

Blobs find_blobs(const std::string& name, const cv::Mat& grey_in, bool light_marks, double mark_px, double min_area) {
    cv::Mat grey = light_marks ? cv::Mat(1.0 - grey_in) : grey_in;

    // A uniform image: nothing to find.
    cv::Mat coarse;
    cv::resize(grey, coarse, cv::Size(std::max(1, grey.cols / 4), std::max(1, grey.rows / 4)), 0, 0, cv::INTER_AREA);
    double lo = 0.0, hi = 0.0;
    cv::minMaxLoc(coarse, &lo, &hi);
    if (hi - lo < 0.05) {
        const double level = 0.5 * (lo + hi);
        throw Error(fmt::format("{}: the image is uniform ({}): no marks to measure", name,
                                level < 0.15 ? "all black" : level > 0.85 ? "all white" : "all one grey"));
    }

    // 1. The ground and the darkness.
    const int f = std::max(1, static_cast<int>(mark_px / 2));
    cv::Mat ground;
    cv::resize(grey, ground, cv::Size(std::max(1, grey.cols / f), std::max(1, grey.rows / f)), 0, 0, cv::INTER_AREA);
    cv::morphologyEx(ground, ground, cv::MORPH_CLOSE, cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(7, 7)));
    cv::GaussianBlur(ground, ground, cv::Size(0, 0), 2.0);
    cv::resize(ground, ground, grey.size(), 0, 0, cv::INTER_LINEAR);
    cv::max(ground, 1e-3, ground);
    cv::Mat dark = ground;  // in place: the ground is not needed again
    cv::divide(grey, ground, dark);
    cv::subtract(1.0, dark, dark);

    // 2. Noise, and the blobs above half the marks' darkness.
    Blobs out;
    out.noise = robust_spread(dark).second;
    cv::Mat smooth;
    cv::GaussianBlur(dark, smooth, cv::Size(0, 0), 1.0);
    const double smooth_noise = robust_spread(smooth).second;
    cv::Mat mask, labels, stats, centroids;
    const double low = std::max(6.0 * smooth_noise, 0.02);
    cv::compare(smooth, low, mask, cv::CMP_GT);
    int count = cv::connectedComponentsWithStats(mask, labels, stats, centroids, 8, CV_32S);
    auto peak = [&](int id) {
        const cv::Rect r(stats.at<int>(id, cv::CC_STAT_LEFT), stats.at<int>(id, cv::CC_STAT_TOP),
                         stats.at<int>(id, cv::CC_STAT_WIDTH), stats.at<int>(id, cv::CC_STAT_HEIGHT));
        double top = 0.0;
        cv::minMaxLoc(smooth(r), nullptr, &top, nullptr, nullptr, labels(r) == id);
        return top;
    };
    std::vector<double> peaks;
    for (int id = 1; id < count; ++id)
        if (stats.at<int>(id, cv::CC_STAT_AREA) >= min_area) peaks.push_back(peak(id));
    if (peaks.empty())
        throw Error(fmt::format("{}: no marks found: nothing of a mark's size stands out of the paper (noise {:.3g} of "
                                "its brightness)",
                                name, out.noise));
    std::nth_element(peaks.begin(), peaks.begin() + static_cast<std::ptrdiff_t>(peaks.size() / 2), peaks.end());
    out.ink = peaks[peaks.size() / 2];
    out.threshold = std::max(low, 0.5 * out.ink);
    cv::compare(smooth, out.threshold, mask, cv::CMP_GT);
    count = cv::connectedComponentsWithStats(mask, labels, stats, centroids, 8, CV_32S);
    mask.release();

    // 3. Centres.
    for (int id = 1; id < count; ++id) {
        const int area = stats.at<int>(id, cv::CC_STAT_AREA);
        if (area < min_area) {
            ++out.specks;
            continue;
        }
        const int left = stats.at<int>(id, cv::CC_STAT_LEFT), top = stats.at<int>(id, cv::CC_STAT_TOP);
        const int width = stats.at<int>(id, cv::CC_STAT_WIDTH), height = stats.at<int>(id, cv::CC_STAT_HEIGHT);
        Blob b;
        b.area = area;
        b.darkness = peak(id);
        const int half = (std::max(width, height) + 1) / 2 + 4;
        b.on_border = left == 0 || top == 0 || left + width == dark.cols || top + height == dark.rows;
        Window w = window_at(dark, centroids.at<double>(id, 0), centroids.at<double>(id, 1), half);
        if (!weighted_centre(dark, w, out.noise, b)) {
            ++out.specks;
            continue;
        }
        w = window_at(dark, b.centre.x, b.centre.y, half);
        b.on_border = b.on_border || w.x1 - w.x0 != 2 * half || w.y1 - w.y0 != 2 * half;
        if (!weighted_centre(dark, w, out.noise, b)) {
            ++out.specks;
            continue;
        }
        out.blobs.push_back(b);
    }
    return out;
}

}  // namespace vrncal::scan
