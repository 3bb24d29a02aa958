// The batch corrector: the facade's correction of a point, with the grid
// cells found through a per-stack index instead of a scan of every cell.
// The arithmetic is the library's own (the same functions the facade runs),
// so the results are the same bits.
#include "vrncal/batch.h"

#include <limits>
#include <optional>
#include <vector>

#include "alg/cell_index.h"
#include "alg/grid_cell.h"
#include "alg/grid_correction.h"
#include "calib/lens_flags.h"
#include "vrncal/calib_alg.h"

namespace vrncal {

using vrncal_detail::CellIndex;

struct Corrector::Impl {
    const tagLenPar& par;
    // One entry per stack; empty for a stack without cells, where the lookup
    // returns before searching.
    std::vector<std::optional<CellIndex>> index;

    explicit Impl(const tagLenPar& p) : par(p), index(p.Stacks.size()) {
        for (std::size_t i = 0; i < p.Stacks.size(); ++i) {
            const tagStack& s = p.Stacks[i];
            if (!vrncal_detail::stackHasCells(s)) continue;
            if (s.Points.size() > std::numeric_limits<std::uint32_t>::max()) continue;
            index[i].emplace(s);
        }
    }

    bool correct(tagKelPointF in, tagKelPointF& out) const {
        tagKelPointF p = vrncal_detail::correctionInput(par, in);
        if (par.CalMode == 0) return CCalibAlg::CalibManual(par, p, out) != 0;
        return vrncal_detail::correctGridPoint(
                   par, p, out,
                   [this](std::size_t i, const tagKelPointF& g, tagKelPointF& ratio, tagKelPointF& dev) {
                       const tagStack& s = par.Stacks[i];
                       if (!index[i]) {  // no cells, or too many points to index
                           CCalibAlg::GetGridDR(par, g, ratio, dev, s);
                           return;
                       }
                       const CellIndex& cells = *index[i];
                       vrncal_detail::gridDeviation(par, g, ratio, dev, s, [&cells](double x, double y) {
                           return cells.find(x, y);
                       });
                   }) != 0;
    }
};

Corrector::Corrector(const tagLenPar& par) : impl_(new Impl(par)) {}
Corrector::~Corrector() = default;
Corrector::Corrector(Corrector&&) noexcept = default;
Corrector& Corrector::operator=(Corrector&&) noexcept = default;

bool Corrector::correct(tagKelPointF in, tagKelPointF& out) const { return impl_->correct(in, out); }

void Corrector::correct(const tagKelPointF* in, tagKelPointF* out, std::size_t n) const {
    for (std::size_t i = 0; i < n; ++i) {
        const tagKelPointF p = in[i];  // in and out may be the same array
        impl_->correct(p, out[i]);
    }
}

}  // namespace vrncal
