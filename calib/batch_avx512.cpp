// The AVX-512 batch path: eight points per step like the AVX2 path, with the
// doubles of the eight points in one 512-bit register and the masks of the
// double blends in mask registers.  Built with -mavx512f -mavx512vl (no
// FMA); chosen at run time only on a CPU that has both.
#include "calib/batch_kernel.h"

namespace {

// The zero-masking forms of the conversions are the same instructions with
// every lane kept; GCC 12 warns about the undefined source operand of the
// plain forms.
constexpr __mmask8 kAll = 0xFF;

struct Avx512Doubles {
    __m512d v;

    VRNCAL_VEC static Avx512Doubles widen(F f) { return {_mm512_maskz_cvtps_pd(kAll, f.v)}; }
    VRNCAL_VEC static F narrow(Avx512Doubles d) { return {_mm512_maskz_cvtpd_ps(kAll, d.v)}; }
    VRNCAL_VEC static Avx512Doubles splat(double d) { return {_mm512_set1_pd(d)}; }
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
