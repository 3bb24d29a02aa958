// The batch corrector.  For now it runs every point through the facade; the
// grid index comes later and must give the same bits.
#include "vrncal/batch.h"

#include "vrncal/facade.h"

namespace vrncal {

struct Corrector::Impl {
    const tagLenPar& par;
};

Corrector::Corrector(const tagLenPar& par) : impl_(new Impl{par}) {}
Corrector::~Corrector() = default;
Corrector::Corrector(Corrector&&) noexcept = default;
Corrector& Corrector::operator=(Corrector&&) noexcept = default;

bool Corrector::correct(tagKelPointF in, tagKelPointF& out) const {
    VrnCal cal;
    return cal.CalibPoint(impl_->par, in, out);
}

void Corrector::correct(const tagKelPointF* in, tagKelPointF* out, std::size_t n) const {
    VrnCal cal;
    for (std::size_t i = 0; i < n; ++i) {
        const tagKelPointF p = in[i];
        cal.CalibPoint(impl_->par, p, out[i]);
    }
}

}  // namespace vrncal
