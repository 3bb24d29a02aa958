// The AVX-512 batch path: eight points per step like the AVX2 path, with the
// doubles of the eight points in one 512-bit register and the masks of the
// double blends in mask registers.  Built with -mavx512f -mavx512vl (no
// FMA); chosen at run time only on a CPU that has both.
// GCC 12 warns that the AVX-512 intrinsics' own "undefined" source operands
// may be used uninitialized; they are never read.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include "calib/batch_kernel.h"

namespace {

struct Avx512Doubles {
    __m512d v;

    VRNCAL_VEC static Avx512Doubles widen(F f) { return {_mm512_cvtps_pd(f.v)}; }
    VRNCAL_VEC static F narrow(Avx512Doubles d) { return {_mm512_cvtpd_ps(d.v)}; }
    VRNCAL_VEC static Avx512Doubles splat(double d) { return {_mm512_set1_pd(d)}; }
    // table[i] for each lane (i < n).  A table of up to 65 floats is read by
    // permutes from registers (the 65th, if any, by a blend), a larger one
    // gathered; the table is padded to at least 64 floats.
    VRNCAL_VEC static F lookup(const float* table, int n, __m256i i) {
        const __m512i at = _mm512_zextsi256_si512(i);
        const __m512 t0 = _mm512_loadu_ps(table), t1 = _mm512_loadu_ps(table + 16);
        if (n <= 16) return {_mm512_castps512_ps256(_mm512_permutexvar_ps(at, t0))};
        if (n <= 32) return {_mm512_castps512_ps256(_mm512_permutex2var_ps(t0, at, t1))};
        if (n > 65) return {_mm256_i32gather_ps(table, i, 4)};
        const __m512 low = _mm512_permutex2var_ps(t0, at, t1);
        const __m512 high = _mm512_permutex2var_ps(_mm512_loadu_ps(table + 32), at, _mm512_loadu_ps(table + 48));
        __m512 v = _mm512_mask_blend_ps(_mm512_cmpge_epi32_mask(at, _mm512_set1_epi32(32)), low, high);
        if (n == 65) v = _mm512_mask_blend_ps(_mm512_cmpge_epi32_mask(at, _mm512_set1_epi32(64)), v, _mm512_set1_ps(table[64]));
        return {_mm512_castps512_ps256(v)};
    }
    // mask ? b : a.
    VRNCAL_VEC static Avx512Doubles pick(Avx512Doubles a, Avx512Doubles b, F mask) {
        return {_mm512_mask_blend_pd(static_cast<__mmask8>(_mm256_movemask_ps(mask.v)), a.v, b.v)};
    }
};

VRNCAL_VEC Avx512Doubles operator+(Avx512Doubles a, Avx512Doubles b) { return {_mm512_add_pd(a.v, b.v)}; }
VRNCAL_VEC Avx512Doubles operator-(Avx512Doubles a, Avx512Doubles b) { return {_mm512_sub_pd(a.v, b.v)}; }
VRNCAL_VEC Avx512Doubles operator*(Avx512Doubles a, Avx512Doubles b) { return {_mm512_mul_pd(a.v, b.v)}; }
VRNCAL_VEC Avx512Doubles operator/(Avx512Doubles a, Avx512Doubles b) { return {_mm512_div_pd(a.v, b.v)}; }

}  // namespace

namespace vrncal_detail {

void correctAvx512(const BatchModel& m, const tagKelPointF* in, tagKelPointF* out, std::size_t n) {
    Kernel<Avx512Doubles>::run(m, in, out, n);
}

}  // namespace vrncal_detail
