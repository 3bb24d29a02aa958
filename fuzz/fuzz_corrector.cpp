// Differential: random records and points through vrncal::Corrector, one at
// a time and in a batch, must give VrnCal::CalibPoint's bits (NaN where the
// facade gives NaN).  Records are drawn from the input: grids regular,
// distorted or raw, of every size up to 65, sometimes short of points; terms
// typical or special (zero, infinite, NaN, huge).
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <vrncal/vrncal.h>

#include "byte_source.h"

namespace {

using vrncal_check::ByteSource;

void drawTable(ByteSource& src, double* t, double* a, double* r, double span) {
    const bool raw = src.flag();
    for (int i = 0; i < 100; ++i) {
        t[i] = raw ? src.real(span) : -span + 2 * span * i / 99.0;
        a[i] = src.real(1.0);
        r[i] = raw ? src.real(1.0) : 1.0 + src.real(0.01) * 1e-3;
    }
}

tagStack drawStack(ByteSource& src, double valSize) {
    tagStack st;
    st.Size = src.flag() ? src.range(-1, 12) : src.range(13, 65);
    st.InOrder = 1;
    const int n = st.Size < 0 ? 0 : st.Size;
    const int style = src.range(0, 3);  // regular, distorted, raw, mirrored
    const double half = std::isfinite(valSize) ? 0.5 * valSize : 40.0;
    const double pitch = n > 1 ? 2 * half / (n - 1) : 0.0;
    const float wobble = src.single(0.3);
    for (int r = 0; r < n; ++r) {
        for (int c = 0; c < n; ++c) {
            tagCalData d;
            d.X = static_cast<float>(-half + c * pitch);
            d.Y = static_cast<float>(half - r * pitch);
            if (style == 1) d.X += wobble * static_cast<float>((r * 7 + c * 3) % 5 - 2) * 0.01f;
            if (style == 2) d.X = src.single(half), d.Y = src.single(half);
            if (style == 3) d.Y = -d.Y;
            d.RealX = d.X + src.single(0.2);
            d.RealY = d.Y + src.single(0.2);
            st.Points.push_back(d);
        }
    }
    if (!st.Points.empty() && src.range(0, 15) == 0) st.Points.resize(static_cast<std::size_t>(src.range(0, n * n - 1)));
    return st;
}

tagLenPar drawRecord(ByteSource& src) {
    tagLenPar p;
    p.CalMode = src.range(0, 2);
    p.XYFlip = src.range(0, 1), p.XInvert = src.range(0, 1), p.YInvert = src.range(0, 1);
    p.LEN_XYFLIP = src.range(0, 1), p.LEN_XINVERT = src.range(0, 1), p.LEN_YINVERT = src.range(0, 1);
    p.FieldSize = src.flag() ? 100.0 : src.real(100.0);
    p.ValSize = src.flag() ? 80.0 : src.real(80.0);
    static const int kResolutions[] = {65535, 65535, 100001, 1, 0, -7};
    p.Resolution = src.flag() ? kResolutions[src.range(0, 5)] : src.raw<int>();
    p.HalfResolution = static_cast<int>((static_cast<unsigned>(p.Resolution) + 1u) >> 1);
    p.HalfResolutionSq = src.flag() ? static_cast<double>(p.HalfResolution) * p.HalfResolution : src.real(1e9);
    tagCalCoefs& c = p.CalCoefs;
    c.QuadX = src.real(1e-4), c.QuadY = src.real(1e-4);
    for (double* v : {&c.AxisXL, &c.AxisXR, &c.AxisYT, &c.AxisYB}) *v = src.real(40.0);
    for (double* v : {&c.TXL, &c.TXR, &c.TYT, &c.TYB, &c.PLX, &c.PLY}) *v = src.real(1e-3);
    for (double* v : {&c.SXL, &c.SXR, &c.SYT, &c.SYB, &c.ScaleX, &c.ScaleY}) *v = src.real(1.0);
    c.k[2] = src.real(1e-3), c.k[3] = src.real(1e-3);
    for (double* v : {&p.BoxOffsetX, &p.BoxOffsetY, &p.BoxBarrelX, &p.BoxBarrelY, &p.BoxSkewX, &p.BoxSkewY,
                      &p.BoxTrapX, &p.BoxTrapY})
        *v = src.real(1.0);
    p.BoxScaleX = src.real(100.0), p.BoxScaleY = src.real(100.0);
    p.grid = src.range(0, 1), p.LineCount = src.range(-1, 101);
    drawTable(src, p.XT, p.XA, p.XR, 50.0);
    drawTable(src, p.YT, p.YA, p.YR, 50.0);
    p.BoxGrid = src.range(0, 1), p.BoxLineCount = src.range(-1, 101);
    drawTable(src, p.BoxXT, p.BoxXA, p.BoxXR, 50.0);
    drawTable(src, p.BoxYT, p.BoxYA, p.BoxYR, 50.0);
    const int stacks = src.range(0, 3);
    for (int i = 0; i < stacks; ++i) p.Stacks.push_back(drawStack(src, p.ValSize));
    return p;
}

bool same(float facade, float batch) {
    if (std::isnan(facade)) return std::isnan(batch);
    return std::memcmp(&facade, &batch, sizeof facade) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ByteSource src(data, size);
    const tagLenPar par = drawRecord(src);
    std::vector<tagKelPointF> in;
    while (src.remaining() > 0 && in.size() < 4096) in.push_back(tagKelPointF{src.single(50.0), src.single(50.0)});
    for (float v : {-60.0f, -40.0f, -0.5f, 0.0f, 13.25f, 40.0f}) in.push_back(tagKelPointF{v, -0.75f * v});

    VrnCal facade;
    const vrncal::Corrector corrector(par);
    std::vector<tagKelPointF> batch(in.size());
    corrector.correct(in.data(), batch.data(), in.size());
    for (std::size_t i = 0; i < in.size(); ++i) {
        tagKelPointF expected{}, one{};
        facade.CalibPoint(par, in[i], expected);
        corrector.correct(in[i], one);
        if (!same(expected.x, one.x) || !same(expected.y, one.y) || !same(expected.x, batch[i].x) ||
            !same(expected.y, batch[i].y))
            std::abort();
    }
    return 0;
}
