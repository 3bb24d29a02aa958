// The length unit reports are given in.  Field units are whatever the
// calibration was measured in; the tool takes them as millimetres unless
// told otherwise, and then quotes small lengths in micrometres.
#ifndef VRNCAL_WORKFLOW_UNITS_H
#define VRNCAL_WORKFLOW_UNITS_H

#include <string>

namespace vrncal::workflow {

struct LengthUnit {
    double per_field_unit = 1000.0;  // report units in one field unit
    std::string name = "um";         // as printed after a number
    std::string field = "field units taken as mm";  // for headings
    int decimals = 2;                // for lengths printed in the report unit
};

// "mm" (field units are millimetres: reports in um) or "field" (no known
// unit: reports in field units).  Throws Error for anything else.
LengthUnit length_unit(const std::string& field_units);

}  // namespace vrncal::workflow

#endif
