#include "workflow/inspect.h"

#include <algorithm>
#include <cmath>

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

}  // namespace vrncal::workflow
