// Internal: the vector grid correction, eight points per step.
//
// Included by each vector file and compiled there for its instruction set;
// everything here has internal linkage, so no copy compiled for one
// instruction set can stand in for another's.  The floats of eight points
// live in one 256-bit register; the double steps run on a type D that holds
// eight doubles (two 256-bit registers, or one 512-bit register).
//
// Every step is the scalar path's step (calib/batch_scalar.cpp) done on
// eight lanes with the same IEEE operations in the same order; branches
// become blends that pick, lane by lane, the value the branch would have
// computed.  No fused multiply-add: the files are built without it.
#ifndef VRNCAL_CALIB_BATCH_KERNEL_H
#define VRNCAL_CALIB_BATCH_KERNEL_H

#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "calib/batch_model.h"
#include "vrncal/records.h"

namespace {

#define VRNCAL_VEC inline __attribute__((always_inline))

// Eight floats.  A wrapper, so that the operators below are the explicit
// instructions and nothing is left to the compiler's vector extensions.
struct F {
    __m256 v;
};

VRNCAL_VEC F splat(float v) { return {_mm256_set1_ps(v)}; }
VRNCAL_VEC F zero() { return {_mm256_setzero_ps()}; }
VRNCAL_VEC F operator+(F a, F b) { return {_mm256_add_ps(a.v, b.v)}; }
VRNCAL_VEC F operator-(F a, F b) { return {_mm256_sub_ps(a.v, b.v)}; }
VRNCAL_VEC F operator*(F a, F b) { return {_mm256_mul_ps(a.v, b.v)}; }
VRNCAL_VEC F operator/(F a, F b) { return {_mm256_div_ps(a.v, b.v)}; }
VRNCAL_VEC F operator&(F a, F b) { return {_mm256_and_ps(a.v, b.v)}; }
VRNCAL_VEC F operator^(F a, F b) { return {_mm256_xor_ps(a.v, b.v)}; }
VRNCAL_VEC F lt(F a, F b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_LT_OQ)}; }
VRNCAL_VEC F gt(F a, F b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_GT_OQ)}; }
VRNCAL_VEC F le(F a, F b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_LE_OQ)}; }
VRNCAL_VEC F ge(F a, F b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_GE_OQ)}; }
VRNCAL_VEC F eqZero(F a) { return {_mm256_cmp_ps(a.v, _mm256_setzero_ps(), _CMP_EQ_OQ)}; }
VRNCAL_VEC F neZero(F a) { return {_mm256_cmp_ps(a.v, _mm256_setzero_ps(), _CMP_NEQ_OQ)}; }
// mask ? b : a, lane by lane.
VRNCAL_VEC F pick(F a, F b, F mask) { return {_mm256_blendv_ps(a.v, b.v, mask.v)}; }
VRNCAL_VEC F absF(F a) { return {_mm256_and_ps(a.v, _mm256_castsi256_ps(_mm256_set1_epi32(0x7fffffff)))}; }
VRNCAL_VEC F signMask(std::uint32_t m) { return {_mm256_castsi256_ps(_mm256_set1_epi32(static_cast<int>(m)))}; }
VRNCAL_VEC __m256i asInt(F a) { return _mm256_castps_si256(a.v); }

// Four consecutive floats of eight rows, as four vectors of eight lanes:
// out[j] lane i = rows[i][j].  Two 128-bit loads per register, then a 4 x 4
// transpose in each half.
VRNCAL_VEC void loadColumns4(const float* const* rows, int at, F out[4]) {
    const auto pair = [rows, at](int i) {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(rows[i] + at)), _mm_loadu_ps(rows[i + 4] + at), 1);
    };
    const __m256 a = pair(0), b = pair(1), c = pair(2), d = pair(3);
    const __m256 ab0 = _mm256_unpacklo_ps(a, b), cd0 = _mm256_unpacklo_ps(c, d);
    const __m256 ab1 = _mm256_unpackhi_ps(a, b), cd1 = _mm256_unpackhi_ps(c, d);
    out[0] = {_mm256_shuffle_ps(ab0, cd0, 0x44)};
    out[1] = {_mm256_shuffle_ps(ab0, cd0, 0xEE)};
    out[2] = {_mm256_shuffle_ps(ab1, cd1, 0x44)};
    out[3] = {_mm256_shuffle_ps(ab1, cd1, 0xEE)};
}

using vrncal_detail::BatchModel;
using vrncal_detail::BatchStack;
using vrncal_detail::kCellFloats;

template <class D>
struct Kernel {
    // The float after a double step: the same rounding as a scalar store.
    VRNCAL_VEC static D wide(F v) { return D::widen(v); }
    VRNCAL_VEC static F narrow(D v) { return D::narrow(v); }
    VRNCAL_VEC static D splatD(double v) { return D::splat(v); }

    // Line::GetLine through left-right (A) and top-bottom (B), then
    // Line::GetCrossPoint(B, A).
    VRNCAL_VEC static void crossPoint(F lx, F ly, F rx, F ry, F tx, F ty, F bx, F by, F& cx, F& cy) {
        const D aA = wide(ly - ry);
        const D aB = wide(rx - lx);
        const D aC = wide(ry * lx - ly * rx);
        const D bA = wide(ty - by);
        const D bB = wide(bx - tx);
        const D bC = wide(by * tx - ty * bx);
        const D d = bA * aB - aA * bB;
        cx = narrow((bB * aC - aB * bC) / d);
        cy = narrow((aA * bC - bA * aC) / d);
    }

    // trunc(clamp(t, 0, last)); max and min turn a NaN into 0, as the
    // scalar lookup does.
    VRNCAL_VEC static __m256i guess(F t, F last) {
        return _mm256_cvttps_epi32(_mm256_min_ps(_mm256_max_ps(t.v, _mm256_setzero_ps()), last.v));
    }

    // The cells of eight clamped points in one rectilinear stack, their
    // deviations added to (sx, sy); lanes without a cell add nothing.
    VRNCAL_VEC static void addStack(const BatchStack& s, F x, F y, F& sx, F& sy) {
        const F found = ge(x, splat(s.xLo)) & le(x, splat(s.xHi)) & ge(y, splat(s.yLo)) & le(y, splat(s.yHi));
        const F last = splat(s.last);
        // The guesses, clamped as max/min do: a NaN becomes 0.
        const __m256i gc = guess((x - splat(s.x0)) * splat(s.sx), last);
        const __m256i gr = guess((splat(s.y0) - y) * splat(s.sy), last);
        const __m256i one = _mm256_set1_epi32(1);
        const __m256i gc1 = _mm256_add_epi32(gc, one), gr1 = _mm256_add_epi32(gr, one);
        const int n = s.cellsPerRow + 1;
        const F cx0 = D::lookup(s.cmpX, n, gc), cx1 = D::lookup(s.cmpX, n, gc1);
        const F cy0 = D::lookup(s.cmpY, n, gr), cy1 = D::lookup(s.cmpY, n, gr1);
        // A true comparison is -1 as an integer.
        __m256i c = _mm256_sub_epi32(gc, one);
        c = _mm256_sub_epi32(c, asInt(lt(cx0, x)));
        c = _mm256_sub_epi32(c, asInt(lt(cx1, x)));
        __m256i r = _mm256_sub_epi32(gr, one);
        r = _mm256_sub_epi32(r, asInt(gt(cy0, y)));
        r = _mm256_sub_epi32(r, asInt(gt(cy1, y)));
        __m256i k = _mm256_add_epi32(_mm256_mullo_epi32(r, _mm256_set1_epi32(s.cellsPerRow)), c);
        // Lanes without a cell read cell 0 and are dropped at the end.
        k = _mm256_and_si256(k, asInt(found));

        alignas(32) std::int32_t ks[8];
        _mm256_store_si256(reinterpret_cast<__m256i*>(ks), k);
        const float* rows[8];
        for (int i = 0; i < 8; ++i) rows[i] = s.cells + static_cast<std::ptrdiff_t>(ks[i]) * kCellFloats;
        F top[4], bottom[4], nominal[4];
        loadColumns4(rows, 0, top);      // r00x r00y r01x r01y
        loadColumns4(rows, 4, bottom);   // r10x r10y r11x r11y
        loadColumns4(rows, 8, nominal);  // X00 Y00 Y10 -
        const F r00x = top[0], r00y = top[1], r01x = top[2], r01y = top[3];
        const F r10x = bottom[0], r10y = bottom[1], r11x = bottom[2], r11y = bottom[3];
        const F y00 = nominal[1], y10 = nominal[2];
        const F ux = absF(x - nominal[0]);
        const F uy = absF(y - y00);
        const F h = splat(s.h);

        const F dtx = r01x - r00x, dty = r01y - r00y, dbx = r11x - r10x, dby = r11y - r10y;
        const F dlx = r10x - r00x, dly = r10y - r00y, drx = r11x - r01x, dry = r11y - r01y;
        const F topX = dtx * ux / h + r00x;
        const F topY = pick(dty * ux / h + r00y, r00y, eqZero(dty));
        const F bottomX = dbx * ux / h + r10x;
        const F bottomY = pick(dby * ux / h + r10y, r10y, eqZero(dby));
        const F leftX = pick(r00x + dlx * uy / h, r00x, eqZero(dlx));
        const F leftY = dly * uy / h + r00y;
        const F rightX = pick(r01x + drx * uy / h, r01x, eqZero(drx));
        const F rightY = dry * uy / h + r01y;

        F cx, cy;
        crossPoint(leftX, leftY, rightX, rightY, topX, topY, bottomX, bottomY, cx, cy);

        const F spanX = bottomX - topX;
        const F spanY = bottomY - topY;
        const F devX = pick(topX - x, ((bottomX - x) - (topX - x)) * (cx - topX) / spanX + (topX - x), neZero(spanX));
        const F devY = pick(leftY - y, ((bottomY - y10) - (topY - y00)) * (cy - topY) / spanY + (topY - y00),
                            neZero(spanY));
        // +0 where no cell was found, which leaves the sum as it is.
        sx = sx + (devX & found);
        sy = sy + (devY & found);
    }

    // The residual in counts, a quarter of it where it is 0.001 or less.
    VRNCAL_VEC static F applyResidual(F v, F d, double kc, double gain, float limit) {
        const D counts = wide(d) * splatD(kc) * splatD(gain);
        const D quarter = splatD(0.25) * counts;
        return narrow(wide(v) - D::pick(quarter, counts, gt(absF(d), splat(limit))));
    }

    VRNCAL_VEC static F centreAndClamp(const BatchModel& m, F v) {
        v = v + splat(m.centre);
        const F limit = splat(m.limit);
        const F high = pick(v, limit, gt(v, limit));
        return pick(high, zero(), lt(v, zero()));
    }

    // The analytic part of the grid correction: pre-warp, shape, cross term
    // and counts.
    VRNCAL_VEC static void analytic(const BatchModel& m, F inX, F inY, F& ox, F& oy) {
        const D px = wide(inX ^ signMask(m.signX));
        const D py = wide(inY ^ signMask(m.signY));
        F tx = narrow(splatD(m.quadX) * px * px + px);
        F ty = narrow(splatD(m.quadY) * py * py + py);

        // Shape: shear, then each keystone with the coefficients of its half.
        const D y = wide(ty);
        const F x1 = narrow(wide(tx) - splatD(m.plx) * y);
        const D x1d = wide(x1);
        const F left = lt(x1, zero());
        const D cxk = D::pick(splatD(m.keystoneX[0]), splatD(m.keystoneX[1]), left);
        const D axk = D::pick(splatD(m.axisX[0]), splatD(m.axisX[1]), left);
        const F kx = narrow(cxk * y * x1d / axk + x1d);
        const F x2 = pick(x1, kx, neZero(x1));
        const F bottom = lt(ty, zero());
        const D cyk = D::pick(splatD(m.keystoneY[0]), splatD(m.keystoneY[1]), bottom);
        const D ayk = D::pick(splatD(m.axisY[0]), splatD(m.axisY[1]), bottom);
        const F ky = narrow(y + x1d * cyk * y / ayk);
        const F y2 = pick(ty, ky, neZero(ty));
        tx = narrow(wide(x2) * splatD(m.scaleX));
        ty = narrow(wide(y2) * splatD(m.scaleY));

        const D dtx = wide(tx);
        const D dty = wide(ty);
        const D kc = splatD(m.kc);
        ox = narrow(splatD(m.k2) * dty * dty * dtx + kc * dtx);
        oy = narrow(splatD(m.k3) * dtx * dtx * dty + kc * dty);
    }

    // B blocks of eight points (x0 y0 x1 y1 ... x7 y7 each), step by step for
    // all B together: every stack is interpolated for each block before the
    // next stack, so that the blocks' independent arithmetic fills each
    // other's waits on the dividers.
    template <int B>
    VRNCAL_VEC static void blocks(const BatchModel& m, const float* src, float* dst) {
        F inX[B], inY[B], ox[B], oy[B], gx[B], gy[B], dx[B], dy[B];
        const F below = splat(m.belowHalf), above = splat(m.aboveHalf);
        const F lowV = splat(m.lowValue), highV = splat(m.highValue);
        for (int b = 0; b < B; ++b) {
            const __m256 p = _mm256_loadu_ps(src + 16 * b);
            const __m256 q = _mm256_loadu_ps(src + 16 * b + 8);
            const __m256 lo = _mm256_permute2f128_ps(p, q, 0x20);
            const __m256 hi = _mm256_permute2f128_ps(p, q, 0x31);
            inX[b] = {_mm256_shuffle_ps(lo, hi, 0x88)};
            inY[b] = {_mm256_shuffle_ps(lo, hi, 0xDD)};
            analytic(m, inX[b], inY[b], ox[b], oy[b]);
            // The grid is looked up at the caller's point (the lens flags
            // are applied twice), clamped to the field: y first, then x.
            gy[b] = pick(pick(inY[b], highV, gt(inY[b], above)), lowV, lt(inY[b], below));
            gx[b] = pick(pick(inX[b], lowV, lt(inX[b], below)), highV, gt(inX[b], above));
            dx[b] = dy[b] = zero();
        }
        for (std::size_t i = 0; i < m.stackCount; ++i)
            for (int b = 0; b < B; ++b) addStack(m.stacks[i], gx[b], gy[b], dx[b], dy[b]);
        for (int b = 0; b < B; ++b) {
            const F outX = centreAndClamp(m, applyResidual(ox[b], dx[b] ^ signMask(m.signX), m.kc, m.gainX, m.residualLimit));
            const F outY = centreAndClamp(m, applyResidual(oy[b], dy[b] ^ signMask(m.signY), m.kc, m.gainY, m.residualLimit));
            const __m256 u = _mm256_unpacklo_ps(outX.v, outY.v);
            const __m256 v = _mm256_unpackhi_ps(outX.v, outY.v);
            _mm256_storeu_ps(dst + 16 * b, _mm256_permute2f128_ps(u, v, 0x20));
            _mm256_storeu_ps(dst + 16 * b + 8, _mm256_permute2f128_ps(u, v, 0x31));
        }
    }

    static void run(const BatchModel& m, const tagKelPointF* in, tagKelPointF* out, std::size_t n) {
        constexpr int kGroup = 4;
        const float* src = reinterpret_cast<const float*>(in);
        float* dst = reinterpret_cast<float*>(out);
        std::size_t i = 0;
        for (; i + 8 * kGroup <= n; i += 8 * kGroup) blocks<kGroup>(m, src + 2 * i, dst + 2 * i);
        for (; i + 8 <= n; i += 8) blocks<1>(m, src + 2 * i, dst + 2 * i);
        if (i < n) {
            // The last few points through a padded block.
            alignas(32) float tail[16] = {};
            const std::size_t rest = n - i;
            std::memcpy(tail, src + 2 * i, rest * 2 * sizeof(float));
            blocks<1>(m, tail, tail);
            std::memcpy(dst + 2 * i, tail, rest * 2 * sizeof(float));
        }
    }
};

}  // namespace

#endif
