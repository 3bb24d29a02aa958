#include "workflow/summary.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include <vrncal/calib_alg.h>
#include <vrncal/facade.h>

namespace vrncal::workflow {

std::vector<Coef> coefficients(const tagCalCoefs& c) {
    return {{"LinX", c.LinX},   {"QuadX", c.QuadX},   {"LinY", c.LinY},       {"QuadY", c.QuadY},
            {"AxisXL", c.AxisXL}, {"AxisXR", c.AxisXR}, {"AxisYT", c.AxisYT}, {"AxisYB", c.AxisYB},
            {"OX", c.OX},       {"OY", c.OY},         {"SXL", c.SXL},         {"SXR", c.SXR},
            {"ScaleX", c.ScaleX}, {"SYT", c.SYT},     {"SYB", c.SYB},         {"ScaleY", c.ScaleY},
            {"TXL", c.TXL},     {"TXR", c.TXR},       {"TYT", c.TYT},         {"TYB", c.TYB},
            {"PLX", c.PLX},     {"PLY", c.PLY},       {"Y2XAngle", c.Y2XAngle}, {"k0", c.k[0]},
            {"k1", c.k[1]},     {"k2", c.k[2]},       {"k3", c.k[3]}};
}

Deviation deviation(const tagStack& s) {
    Deviation d;
    const std::size_t side = static_cast<std::size_t>(std::max(s.Size, 0));
    const std::size_t n = std::min(s.Points.size(), side * side);
    double sum = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        const auto& p = s.Points[i];
        const double e = std::hypot(double{p.RealX} - p.X, double{p.RealY} - p.Y);
        d.max = std::max(d.max, e);
        sum += e * e;
    }
    if (n > 0) d.rms = std::sqrt(sum / static_cast<double>(n));
    return d;
}

bool gains_in_use(const tagLenPar& p) { return p.grid == 1 && p.LineCount >= 1 && p.LineCount <= 99; }

NineFit fit_nine_points(const tagLenPar& par) {
    NineFit f;
    f.fitted = par;
    CCalibAlg::MVLSMCoef(f.fitted);
    tagLenPar nine = f.fitted;
    nine.Stacks.clear();
    nine.CalMode = 1;
    VrnCal vc;
    const double kc = nine.Resolution / nine.FieldSize;
    for (int i = 0; i < 9; ++i) {
        const tagCalData& c = nine.CalCoefs.Cal3Pnts[i];
        tagKelPointF drive{};
        vc.CalibPoint(nine, tagKelPointF{c.RealX, c.RealY}, drive);
        tagKelPointF linear{};
        vc.LP2DPEX_Cal(tagKelPointF{c.X, c.Y}, linear, nine);
        f.residuals[static_cast<std::size_t>(i)] = {c, (drive.x - linear.x) / kc * 1000.0,
                                                    (drive.y - linear.y) / kc * 1000.0};
    }
    return f;
}

std::string info_heading(const std::string& path, bool data_file) {
    return fmt::format("{}: {}", path,
                       data_file ? "calibration data file (binary; coefficients as stored)"
                                 : "correction table (text; coefficients fitted on load)");
}

std::string info_text(const std::string& heading, const tagLenPar& p, const std::string& field_size_from) {
    std::string s = heading + "\n";
    s += fmt::format("  resolution    {} counts, half {}\n", p.Resolution, p.HalfResolution);
    s += fmt::format("  field size    {} ({}; linear conversion), ValSize {} (grids and clamping)\n", p.FieldSize,
                     field_size_from, p.ValSize);
    s += fmt::format("  lens flags    XYFlip {}  XInvert {}  YInvert {}   box: LEN_XYFLIP {}  LEN_XINVERT {}  "
                     "LEN_YINVERT {}\n",
                     p.XYFlip, p.XInvert, p.YInvert, p.LEN_XYFLIP, p.LEN_XINVERT, p.LEN_YINVERT);
    s += "  coefficients\n";
    const auto coefs = coefficients(p.CalCoefs);
    std::string row;
    for (std::size_t i = 0; i < coefs.size(); ++i) {
        const std::string cell = fmt::format("{:<9}{}", coefs[i].name, coefs[i].value);
        const bool last = i % 3 == 2 || i + 1 == coefs.size();
        row += last ? cell : fmt::format("{:<33}", cell);
        if (last) {
            s += "    " + row + "\n";
            row.clear();
        }
    }
    s += fmt::format("  grids         {}\n", p.Stacks.size());
    for (std::size_t i = 0; i < p.Stacks.size(); ++i) {
        const auto& st = p.Stacks[i];
        const auto d = deviation(st);
        s += fmt::format("    {}: {:>2} x {:<2}  InOrder {}  measured - nominal: max {:.4f}  rms {:.4f}\n", i,
                         st.Size, st.Size, st.InOrder, d.max, d.rms);
    }
    if (gains_in_use(p))
        s += fmt::format("  gain tables   in use (grid 1, {} rows)\n", p.LineCount);
    else
        s += fmt::format("  gain tables   off (grid {}, LineCount {})\n", p.grid, p.LineCount);
    return s;
}

}  // namespace vrncal::workflow
