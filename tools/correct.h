// The inner loop of `vrncal correct`: a block of field points to device
// points, with the conversion the options chose.  Kept apart from reading and
// writing so that the benchmark measures the correction alone.
#ifndef VRNCAL_TOOLS_CORRECT_H
#define VRNCAL_TOOLS_CORRECT_H

#include <cstddef>
#include <string>
#include <vector>

#include <vrncal/batch.h>
#include <vrncal/facade.h>

namespace vrncal::tools {

enum class Conversion {
    Corrected,      // the correction CalMode selects (VrnCal::CalibPoint)
    ScaleAndShift,  // the correction, then the scale about the centre and the shift (LP2DPEX_SFT)
    Linear,         // plain linear conversion, no correction (LP2DPEX_Cal)
};

// What correct_points checks besides the points themselves.
struct CorrectChecks {
    std::vector<std::string> inputs;  // files the output may not replace
    double field_half = 0.0;          // count points beyond +-field_half (0: do not)
    bool strict = false;              // a point beyond it is an error; no file is written
};

struct CorrectCount {
    std::size_t points = 0;
    std::size_t outside = 0;  // beyond +-field_half
};

// Reads field points from `points` ("-": standard input), converts them and
// writes one "x y" line per point to `output` ("" or "-": standard output;
// a file is written whole or not at all); with echo, "x y u v", the field
// point before its device point.  Throws ToolError naming the file and line
// of a bad point, or (strict) the count of points outside.
CorrectCount correct_points(const tagLenPar& par, Conversion conv, const std::string& points,
                            const std::string& output, const CorrectChecks& checks = {}, bool echo = false);

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
