// The inner loop of `vrncal correct`: a block of field points to device
// points, with the conversion the options chose.  Kept apart from reading and
// writing so that the benchmark measures the correction alone.
#ifndef VRNCAL_TOOLS_CORRECT_H
#define VRNCAL_TOOLS_CORRECT_H

#include <cstddef>
#include <string>

#include <vrncal/batch.h>
#include <vrncal/facade.h>

namespace vrncal::tools {

enum class Conversion {
    Corrected,      // the correction CalMode selects (VrnCal::CalibPoint)
    ScaleAndShift,  // the correction, then the scale about the centre and the shift (LP2DPEX_SFT)
    Linear,         // plain linear conversion, no correction (LP2DPEX_Cal)
};

// Reads field points from `points` ("-": standard input), converts them and
// writes one "x y" line per point to `output` ("" or "-": standard output;
// a file is written whole or not at all).  Throws ToolError naming the file
// and line of a bad point.
void correct_points(const tagLenPar& par, Conversion conv, const std::string& points, const std::string& output);

class BlockCorrector {
public:
    BlockCorrector(const tagLenPar& par, Conversion conv) : par_(par), conv_(conv), batch_(par) {}
    void run(const tagKelPointF* in, tagKelPointF* out, std::size_t n) const;

private:
    const tagLenPar& par_;
    Conversion conv_;
    Corrector batch_;
};

}  // namespace vrncal::tools

#endif
