// The AVX2 batch path: eight points per step, the doubles in two 256-bit
// registers.  Built with -mavx2 (no FMA); chosen at run time only on a CPU
// that has AVX2.
#include "calib/batch_kernel.h"

namespace {

// Eight doubles as two halves of four.
struct Avx2Doubles {
    __m256d lo, hi;

    VRNCAL_VEC static Avx2Doubles widen(F v) {
        return {_mm256_cvtps_pd(_mm256_castps256_ps128(v.v)), _mm256_cvtps_pd(_mm256_extractf128_ps(v.v, 1))};
    }
    VRNCAL_VEC static F narrow(Avx2Doubles v) {
        return {_mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(v.lo)), _mm256_cvtpd_ps(v.hi), 1)};
    }
    VRNCAL_VEC static Avx2Doubles splat(double v) { return {_mm256_set1_pd(v), _mm256_set1_pd(v)}; }
    // table[i] for each lane (i < n).
    VRNCAL_VEC static F lookup(const float* table, int /*n*/, __m256i i) { return {_mm256_i32gather_ps(table, i, 4)}; }
    // mask ? b : a, with the float lanes' mask widened to the double lanes.
    VRNCAL_VEC static Avx2Doubles pick(Avx2Doubles a, Avx2Doubles b, F mask) {
        const __m256i m = asInt(mask);
        const __m256d mlo = _mm256_castsi256_pd(_mm256_cvtepi32_epi64(_mm256_castsi256_si128(m)));
        const __m256d mhi = _mm256_castsi256_pd(_mm256_cvtepi32_epi64(_mm256_extracti128_si256(m, 1)));
        return {_mm256_blendv_pd(a.lo, b.lo, mlo), _mm256_blendv_pd(a.hi, b.hi, mhi)};
    }
};

VRNCAL_VEC Avx2Doubles operator+(Avx2Doubles a, Avx2Doubles b) {
    return {_mm256_add_pd(a.lo, b.lo), _mm256_add_pd(a.hi, b.hi)};
}
VRNCAL_VEC Avx2Doubles operator-(Avx2Doubles a, Avx2Doubles b) {
    return {_mm256_sub_pd(a.lo, b.lo), _mm256_sub_pd(a.hi, b.hi)};
}
VRNCAL_VEC Avx2Doubles operator*(Avx2Doubles a, Avx2Doubles b) {
    return {_mm256_mul_pd(a.lo, b.lo), _mm256_mul_pd(a.hi, b.hi)};
}
VRNCAL_VEC Avx2Doubles operator/(Avx2Doubles a, Avx2Doubles b) {
    return {_mm256_div_pd(a.lo, b.lo), _mm256_div_pd(a.hi, b.hi)};
}

}  // namespace

namespace vrncal_detail {

void correctAvx2(const BatchModel& m, const tagKelPointF* in, tagKelPointF* out, std::size_t n) {
    Kernel<Avx2Doubles>::run(m, in, out, n);
}

}  // namespace vrncal_detail
