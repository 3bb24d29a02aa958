// vrncal::Corrector: the correction of many points at once.
//
// The contract: for every input point whose VrnCal::CalibPoint result (for
// the same record) is not NaN, a Corrector gives exactly the same bits; where
// CalibPoint gives NaN, the Corrector gives NaN too (its sign and payload may
// differ, since which of two NaN operands an operation passes on is the
// compiler's choice).  The result flag is always true, as CalibPoint's is.
//
// Under the hood the Corrector works out once per record what the facade
// works out per point, and corrects through one of two paths:
// - the scalar path, the facade's arithmetic inlined into one loop, with the
//   grid cell of each point found by an O(1) lookup or an index instead of
//   the facade's scan of every cell;
// - a vector path, eight points per step with AVX2 (or AVX-512), taken on a
//   CPU that has it for records in grid mode whose grids are rectilinear (one
//   nominal X per column, one nominal Y per row) and that use no gain tables.
//   Everything else takes the scalar path.
// Both run the same IEEE operations in the same order as the facade; neither
// uses fused multiply-add.
//
// A Corrector keeps pointers into the record: the record must outlive the
// Corrector and must not change while the Corrector is used; build a new
// Corrector after editing the record.  Building one allocates (tables of the
// grid cells, about four times the size of the grids); correcting allocates
// nothing.  A Corrector may be used from several threads at once.
#ifndef VRNCAL_BATCH_H
#define VRNCAL_BATCH_H

#include <cstddef>
#include <memory>

#include "vrncal/export.h"
#include "vrncal/records.h"

namespace vrncal {

class VRNCAL_API Corrector {
public:
    // Which code corrects the points.  Automatic takes the fastest path the
    // CPU and the record allow; Scalar always the scalar path; Avx2 and
    // Avx512 that vector path where the CPU and the record allow it, and the
    // scalar path otherwise.  (Tests and benchmarks compare the paths; a
    // host has no reason to pick one.)
    enum class Path { Automatic, Scalar, Avx2, Avx512 };

    explicit Corrector(const tagLenPar& par);
    Corrector(const tagLenPar& par, Path path);
    ~Corrector();
    Corrector(Corrector&&) noexcept;
    Corrector& operator=(Corrector&&) noexcept;
    Corrector(const Corrector&) = delete;
    Corrector& operator=(const Corrector&) = delete;

    // One point, as VrnCal::CalibPoint(par, in, out), through the scalar path.
    bool correct(tagKelPointF in, tagKelPointF& out) const;

    // n points; in and out may be the same array (but must not otherwise
    // overlap).
    void correct(const tagKelPointF* in, tagKelPointF* out, std::size_t n) const;

    // The path the array call takes: Scalar, Avx2 or Avx512.
    Path path() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vrncal

#endif
