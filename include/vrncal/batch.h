// vrncal::Corrector: the correction of many points at once.
//
// A Corrector gives, for every point, exactly the bits that
// VrnCal::CalibPoint gives for the same record and point; it only finds the
// grid cell of each point faster (an index built once from the record's
// stacks instead of a linear scan of every cell).  It keeps a reference to the
// record: the record must outlive the Corrector and must not change while the
// Corrector is used; build a new Corrector after editing the record.
// Correcting allocates nothing; building the index does.
#ifndef VRNCAL_BATCH_H
#define VRNCAL_BATCH_H

#include <cstddef>
#include <memory>

#include "vrncal/export.h"
#include "vrncal/records.h"

namespace vrncal {

class VRNCAL_API Corrector {
public:
    explicit Corrector(const tagLenPar& par);
    ~Corrector();
    Corrector(Corrector&&) noexcept;
    Corrector& operator=(Corrector&&) noexcept;
    Corrector(const Corrector&) = delete;
    Corrector& operator=(const Corrector&) = delete;

    // One point, as VrnCal::CalibPoint(par, in, out).
    bool correct(tagKelPointF in, tagKelPointF& out) const;

    // n points; in and out may be the same array.
    void correct(const tagKelPointF* in, tagKelPointF* out, std::size_t n) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vrncal

#endif
