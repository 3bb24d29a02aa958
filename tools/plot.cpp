#include "plot.h"

#include <algorithm>
#include <cairo-svg.h>
#include <cairo.h>
#include <cmath>
#include <fmt/format.h>
#include <memory>

#include "workflow/atomic_file.h"
#include "errors.h"

namespace vrncal::tools {

namespace {

struct Rgb {
    double r, g, b;
};

// A perceptually ordered dark-blue to yellow ramp (viridis, five stops).
Rgb ramp(double t) {
    static const Rgb stops[] = {{0.267, 0.005, 0.329}, {0.231, 0.322, 0.545}, {0.129, 0.569, 0.549},
                                {0.369, 0.788, 0.384}, {0.992, 0.906, 0.145}};
    t = std::clamp(t, 0.0, 1.0) * 4.0;
    const int i = std::min(static_cast<int>(t), 3);
    const double f = t - i;
    return {stops[i].r + (stops[i + 1].r - stops[i].r) * f, stops[i].g + (stops[i + 1].g - stops[i].g) * f,
            stops[i].b + (stops[i + 1].b - stops[i].b) * f};
}

// A round upper end for the colour scale: 1, 2 or 5 times a power of ten.
double nice_ceiling(double v) {
    if (!(v > 0.0)) return 1.0;
    const double p = std::pow(10.0, std::floor(std::log10(v)));
    for (double m : {1.0, 2.0, 5.0, 10.0})
        if (m * p >= v) return m * p;
    return 10.0 * p;
}

std::string number(double v) { return fmt::format("{:g}", v); }

void draw(cairo_t* cr, const PlotData& d, int width, int height) {
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
    cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);

    const bool colour = d.cells > 0;
    const double top = 56, bottom = 64, left = 56, right = colour ? 130 : 40;
    const double side = std::max(40.0, std::min(width - left - right, height - top - bottom));
    const double x0 = left + (width - left - right - side) / 2.0;
    const double y0 = top;
    // The frame shows the field plus a margin for drive lines bent outwards.
    double extent = 0.5 * d.val_size;
    for (const auto& line : d.drive)
        for (const auto& p : line) extent = std::max({extent, std::fabs(p.x), std::fabs(p.y)});
    extent *= 1.06;
    auto sx = [&](double x) { return x0 + (x + extent) / (2 * extent) * side; };
    auto sy = [&](double y) { return y0 + (extent - y) / (2 * extent) * side; };

    // Title.
    cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
    cairo_set_font_size(cr, 16);
    cairo_move_to(cr, left, 26);
    cairo_show_text(cr, d.title.c_str());
    cairo_set_font_size(cr, 12);
    cairo_move_to(cr, left, 44);
    cairo_show_text(cr, fmt::format("drive positions of the correction, deviations from nominal x {} "
                                    "(largest {:.1f} µm before exaggeration)",
                                    number(d.factor), d.max_deviation * 1000.0)
                            .c_str());

    // Error colour map over the calibrated field.
    double scale_max = 1.0;
    if (colour) {
        const double emax = *std::max_element(d.error_um.begin(), d.error_um.end());
        scale_max = nice_ceiling(emax);
        const double cell = d.val_size / d.cells;
        for (int r = 0; r < d.cells; ++r)
            for (int c = 0; c < d.cells; ++c) {
                const Rgb col = ramp(d.error_um[static_cast<std::size_t>(r * d.cells + c)] / scale_max);
                cairo_set_source_rgb(cr, col.r, col.g, col.b);
                const double fx = -0.5 * d.val_size + c * cell;
                const double fy = 0.5 * d.val_size - r * cell;
                cairo_rectangle(cr, std::floor(sx(fx)), std::floor(sy(fy)), std::ceil(sx(fx + cell)) - std::floor(sx(fx)),
                                std::ceil(sy(fy - cell)) - std::floor(sy(fy)));
                cairo_fill(cr);
            }
    }

    // Frame and axes ticks.
    cairo_set_source_rgb(cr, 0.3, 0.3, 0.3);
    cairo_set_line_width(cr, 1.0);
    cairo_rectangle(cr, x0 + 0.5, y0 + 0.5, side, side);
    cairo_stroke(cr);
    cairo_set_font_size(cr, 11);
    for (double v : {-0.5 * d.val_size, 0.0, 0.5 * d.val_size}) {
        const std::string t = number(v);
        cairo_text_extents_t e;
        cairo_text_extents(cr, t.c_str(), &e);
        cairo_move_to(cr, sx(v) - e.width / 2, y0 + side + 16);
        cairo_show_text(cr, t.c_str());
        cairo_move_to(cr, x0 - e.width - 6, sy(v) + 4);
        cairo_show_text(cr, t.c_str());
    }

    auto polyline = [&](const std::vector<PlotPoint>& line) {
        for (std::size_t i = 0; i < line.size(); ++i)
            (i == 0 ? cairo_move_to : cairo_line_to)(cr, sx(line[i].x), sy(line[i].y));
        cairo_stroke(cr);
    };
    // Nominal grid, thin and grey; drive positions, bold.
    cairo_set_line_width(cr, 1.0);
    colour ? cairo_set_source_rgba(cr, 1, 1, 1, 0.55) : cairo_set_source_rgb(cr, 0.7, 0.7, 0.7);
    for (const auto& line : d.nominal) polyline(line);
    cairo_set_line_width(cr, 1.6);
    cairo_set_source_rgb(cr, 0.84, 0.15, 0.16);
    for (const auto& line : d.drive) polyline(line);

    // Legend.
    const double ly = y0 + side + 40;
    cairo_set_font_size(cr, 12);
    cairo_set_line_width(cr, 1.0);
    cairo_set_source_rgb(cr, 0.6, 0.6, 0.6);
    cairo_move_to(cr, left, ly);
    cairo_line_to(cr, left + 26, ly);
    cairo_stroke(cr);
    cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
    cairo_move_to(cr, left + 32, ly + 4);
    cairo_show_text(cr, "nominal grid (field units)");
    cairo_set_line_width(cr, 1.6);
    cairo_set_source_rgb(cr, 0.84, 0.15, 0.16);
    cairo_move_to(cr, left + 230, ly);
    cairo_line_to(cr, left + 256, ly);
    cairo_stroke(cr);
    cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
    cairo_move_to(cr, left + 262, ly + 4);
    cairo_show_text(cr, fmt::format("corrected drive position, deviation x {}", number(d.factor)).c_str());

    // Colour scale bar.
    if (colour) {
        const double bx = x0 + side + 24, bw = 18, by = y0 + 10, bh = side - 20;
        for (int i = 0; i < 256; ++i) {
            const Rgb col = ramp((i + 0.5) / 256.0);
            cairo_set_source_rgb(cr, col.r, col.g, col.b);
            cairo_rectangle(cr, bx, by + bh - (i + 1) * bh / 256.0, bw, bh / 256.0 + 0.5);
            cairo_fill(cr);
        }
        cairo_set_source_rgb(cr, 0.3, 0.3, 0.3);
        cairo_set_line_width(cr, 1.0);
        cairo_rectangle(cr, bx + 0.5, by + 0.5, bw, bh);
        cairo_stroke(cr);
        cairo_set_font_size(cr, 11);
        for (int i = 0; i <= 4; ++i) {
            const double v = scale_max * i / 4.0;
            const double y = by + bh - bh * i / 4.0;
            cairo_move_to(cr, bx + bw, y);
            cairo_line_to(cr, bx + bw + 4, y);
            cairo_stroke(cr);
            cairo_move_to(cr, bx + bw + 7, y + 4);
            cairo_show_text(cr, number(v).c_str());
        }
        cairo_save(cr);
        cairo_move_to(cr, bx - 6, by + bh / 2 + 80);
        cairo_rotate(cr, -M_PI / 2);
        cairo_show_text(cr, "landing error after correction (µm)");
        cairo_restore(cr);
    }
}

}  // namespace

void render_plot(const PlotData& data, const std::string& path, int width, int height) {
    const auto dot = path.rfind('.');
    const std::string ext = dot == std::string::npos ? "" : path.substr(dot);
    if (ext != ".png" && ext != ".svg")
        throw ToolError(path + ": the plot is written as .png or .svg; name the file with one of these extensions");
    AtomicFile file(path);
    file.close_stream();
    cairo_surface_t* surface = ext == ".png"
                                   ? cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)
                                   : cairo_svg_surface_create(file.temp_path().c_str(), width, height);
    std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> guard(surface, cairo_surface_destroy);
    cairo_t* cr = cairo_create(surface);
    draw(cr, data, width, height);
    const cairo_status_t drawn = cairo_status(cr);
    cairo_destroy(cr);
    cairo_status_t status = drawn;
    if (ext == ".png") {
        if (status == CAIRO_STATUS_SUCCESS) status = cairo_surface_write_to_png(surface, file.temp_path().c_str());
    } else {
        cairo_surface_finish(surface);
        if (status == CAIRO_STATUS_SUCCESS) status = cairo_surface_status(surface);
    }
    if (status != CAIRO_STATUS_SUCCESS)
        throw ToolError(fmt::format("{}: cannot write the plot: {}", path, cairo_status_to_string(status)));
    file.commit();
}

}  // namespace vrncal::tools
