#include "scan/image.h"

#include <cmath>
#include <cstdio>
#include <fmt/format.h>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <png.h>
#include <tiffio.h>
#include <vector>

#include "workflow/atomic_file.h"
#include "workflow/error.h"
#include "workflow/input.h"

namespace vrncal::scan {

using workflow::Error;

namespace {

bool has_extension(const std::string& path, std::initializer_list<const char*> exts) {
    const auto dot = path.rfind('.');
    if (dot == std::string::npos) return false;
    std::string e = path.substr(dot + 1);
    for (auto& ch : e) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    for (const char* x : exts)
        if (e == x) return true;
    return false;
}

// libpng's errors become the reason; its warnings are dropped.
void png_failed(png_structp png, png_const_charp message) {
    *static_cast<std::string*>(png_get_error_ptr(png)) = message;
    png_longjmp(png, 1);
}
void png_warned(png_structp, png_const_charp) {}

constexpr double kMaxPixels = 600e6;  // a 2400 dpi scan of an A4 sheet

// A PNG through libpng (OpenCV's reader prints libpng's errors): 8 or 16
// bit grey or RGB, palettes expanded and alpha dropped, and the resolution
// of its pHYs chunk when its unit is the metre.  False with the reason.
bool read_png(const std::string& path, cv::Mat& pixels, ScanImage& img, std::string& why) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) {
        why = "it cannot be opened";
        return false;
    }
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &why, png_failed, png_warned);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    std::vector<png_bytep> rows;
    volatile bool ok = false;
    if (info != nullptr && setjmp(png_jmpbuf(png)) == 0) {
        png_init_io(png, f);
        png_read_info(png, info);
        const png_uint_32 w = png_get_image_width(png, info), h = png_get_image_height(png, info);
        if (static_cast<double>(w) * h > kMaxPixels) png_error(png, "more than 600 million pixels");
        const int type = png_get_color_type(png, info);
        if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
        if (type == PNG_COLOR_TYPE_GRAY && png_get_bit_depth(png, info) < 8) png_set_expand_gray_1_2_4_to_8(png);
        if ((type & PNG_COLOR_MASK_ALPHA) != 0) png_set_strip_alpha(png);
        if (png_get_bit_depth(png, info) == 16) png_set_swap(png);  // the samples are little-endian in memory
        png_read_update_info(png, info);
        pixels.create(static_cast<int>(h), static_cast<int>(w),
                      CV_MAKETYPE(png_get_bit_depth(png, info) == 16 ? CV_16U : CV_8U, png_get_channels(png, info)));
        rows.resize(h);
        for (png_uint_32 y = 0; y < h; ++y) rows[y] = pixels.ptr<png_byte>(static_cast<int>(y));
        png_read_image(png, rows.data());
        png_uint_32 rx = 0, ry = 0;
        int unit = 0;
        if (png_get_pHYs(png, info, &rx, &ry, &unit) != 0 && unit == PNG_RESOLUTION_METER && rx > 0 && ry > 0)
            // Pixels per metre are whole: 600 dpi is stored as 23622.
            img.dpi_x = std::round(rx * 2.54) / 100, img.dpi_y = std::round(ry * 2.54) / 100;
        ok = true;
    }
    png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
    std::fclose(f);
    return ok;
}

// The resolution in a TIFF's tags, per inch or per centimetre.
void tiff_resolution(const std::string& path, ScanImage& img) {
    TIFFSetWarningHandler(nullptr);
    TIFFSetErrorHandler(nullptr);
    TIFF* t = TIFFOpen(path.c_str(), "r");
    if (t == nullptr) return;
    float rx = 0.0f, ry = 0.0f;
    uint16_t unit = RESUNIT_INCH;
    TIFFGetFieldDefaulted(t, TIFFTAG_RESOLUTIONUNIT, &unit);
    if (TIFFGetField(t, TIFFTAG_XRESOLUTION, &rx) == 1 && TIFFGetField(t, TIFFTAG_YRESOLUTION, &ry) == 1 && rx > 0 &&
        ry > 0 && unit != RESUNIT_NONE) {
        const double k = unit == RESUNIT_CENTIMETER ? 2.54 : 1.0;
        img.dpi_x = rx * k, img.dpi_y = ry * k;
    }
    TIFFClose(t);
}

}  // namespace

ScanImage read_scan(const std::string& path) {
    // A 1200 dpi colour scan of an A4 sheet at 16 bits is about 800 MiB.
    constexpr std::uint64_t kMaxScanBytes = std::uint64_t{2} << 30;
    workflow::check_input_file(path, kMaxScanBytes);
    std::string head(8, '\0');
    if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
        head.resize(std::fread(head.data(), 1, head.size(), f));
        std::fclose(f);
    }
    const bool png = head == "\x89PNG\r\n\x1a\n";
    const bool tiff = head.rfind(std::string("II*\0", 4), 0) == 0 || head.rfind(std::string("MM\0*", 4), 0) == 0;
    if (!png && !tiff)
        throw Error(path +
                    ": not an image that can be read: a scan is a PNG or TIFF file, 8 or 16 bit, grey or colour");
    ScanImage img;
    cv::Mat raw;
    if (png) {
        std::string why;
        if (!read_png(path, raw, img, why))
            throw Error(why.rfind("more than", 0) == 0
                            ? fmt::format("{}: the PNG image is too large to measure: {}", path, why)
                            : fmt::format("{}: the PNG image is damaged or cut short (libpng: {})", path, why));
    } else {
        cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
        TIFFSetWarningHandler(nullptr);
        TIFFSetErrorHandler(nullptr);
        raw = cv::imread(path, cv::IMREAD_ANYDEPTH | cv::IMREAD_ANYCOLOR);
        if (raw.empty())
            throw Error(path + ": the TIFF image cannot be read: damaged, cut short, or of a kind not read");
        tiff_resolution(path, img);
    }
    img.channels = raw.channels();
    cv::Mat grey;
    if (raw.channels() == 3)
        cv::cvtColor(raw, grey, png ? cv::COLOR_RGB2GRAY : cv::COLOR_BGR2GRAY);
    else if (raw.channels() == 4)
        cv::cvtColor(raw, grey, cv::COLOR_BGRA2GRAY);
    else
        grey = raw;
    raw.release();
    switch (grey.depth()) {
        case CV_8U:
            img.bits = 8;
            grey.convertTo(img.grey, CV_32F, 1.0 / 255.0);
            break;
        case CV_16U:
            img.bits = 16;
            grey.convertTo(img.grey, CV_32F, 1.0 / 65535.0);
            break;
        default:
            throw Error(path + ": the image's samples are neither 8 nor 16 bit integers: save the scan as 8 or 16 bit");
    }
    return img;
}

namespace {

// A PNG through libpng, which (unlike OpenCV) writes the resolution.
bool write_png(std::FILE* f, const cv::Mat& image, double dpi) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    cv::Mat rgb;
    if (image.channels() == 3)
        cv::cvtColor(image, rgb, cv::COLOR_BGR2RGB);
    else
        rgb = image;
    const bool ok = info != nullptr && setjmp(png_jmpbuf(png)) == 0;
    if (ok) {
        png_init_io(png, f);
        png_set_compression_level(png, 1);
        png_set_IHDR(png, info, static_cast<png_uint_32>(rgb.cols), static_cast<png_uint_32>(rgb.rows),
                     rgb.depth() == CV_16U ? 16 : 8, rgb.channels() == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
                     PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        const auto per_metre = static_cast<png_uint_32>(std::lround(dpi / 0.0254));
        png_set_pHYs(png, info, per_metre, per_metre, PNG_RESOLUTION_METER);
        png_write_info(png, info);
        if (rgb.depth() == CV_16U) png_set_swap(png);  // the samples are little-endian in memory
        for (int y = 0; y < rgb.rows; ++y) png_write_row(png, rgb.ptr<png_byte>(y));
        png_write_end(png, nullptr);
    }
    png_destroy_write_struct(&png, info ? &info : nullptr);
    return ok;
}

}  // namespace

void write_image(const std::string& path, const cv::Mat& image, double dpi) {
    const bool tiff = has_extension(path, {"tif", "tiff"});
    if (!tiff && !has_extension(path, {"png"})) throw Error(path + ": an image is written as .png, .tif or .tiff");
    workflow::AtomicFile file(path);
    if (tiff) {
        const int d = static_cast<int>(std::lround(dpi));
        const std::vector<int> params{
            cv::IMWRITE_TIFF_RESUNIT, RESUNIT_INCH, cv::IMWRITE_TIFF_XDPI, d, cv::IMWRITE_TIFF_YDPI, d};
        std::vector<unsigned char> bytes;
        cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
        if (!cv::imencode(".tif", image, bytes, params)) throw Error(path + ": the image cannot be encoded");
        if (std::fwrite(bytes.data(), 1, bytes.size(), file.stream()) != bytes.size())
            throw Error(path + ": write failed");
    } else if (!write_png(file.stream(), image, dpi)) {
        throw Error(path + ": write failed");
    }
    file.commit();
}

}  // namespace vrncal::scan
