#include "workflow/head.h"

#include <cmath>


namespace vrncal::workflow {

void apply_sign_rule(const tagLenPar& par, double& x, double& y) {
    const bool negate_x = par.XYFlip != 0 ? par.YInvert != 0 : par.XInvert != 0;
    const bool negate_y = par.XYFlip != 0 ? par.XInvert != 0 : par.YInvert != 0;
    if (negate_x) x = -x;
    if (negate_y) y = -y;
}

Head::Landing land_in_caller_frame(const Head& head, const tagLenPar& par, tagKelPointF counts) {
    Head::Landing hit = head.land(par, counts);
    apply_sign_rule(par, hit.x, hit.y);
    return hit;
}

double landing_error(const Head& head, const tagLenPar& par, tagKelPointF target, tagKelPointF counts) {
    const auto hit = land_in_caller_frame(head, par, counts);
    return std::hypot(hit.x - target.x, hit.y - target.y);
}

}  // namespace vrncal::workflow
