#include "workflow/units.h"

#include "workflow/error.h"

namespace vrncal::workflow {

LengthUnit length_unit(const std::string& field_units) {
    if (field_units == "mm") return LengthUnit{};
    if (field_units == "field") return LengthUnit{1.0, "field units", "field units of no stated size", 5};
    throw Error("--units '" + field_units + "': field units are 'mm' (reports in um) or 'field' (reports in "
                "field units)");
}

}  // namespace vrncal::workflow
