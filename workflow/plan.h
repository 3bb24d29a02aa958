// Planning a calibration: a new correction table for a head, and the
// marking job of any stage of it.
#ifndef VRNCAL_WORKFLOW_PLAN_H
#define VRNCAL_WORKFLOW_PLAN_H

#include <optional>
#include <string>
#include <vector>

#include "workflow/job.h"
#include "workflow/table_file.h"

namespace vrncal::workflow {

struct HeadSettings {
    double field_size = 100.0;  // field units spanned by the device range
    double val_size = 80.0;     // the calibrated field, +-val_size/2
    int resolution = 65535;
    int xy_flip = 0, x_invert = 0, y_invert = 0;
};

// Writes a new correction table with the settings and no nine points yet
// (it does not load until they are imported); an existing file is replaced
// only when asked.  Throws Error.
void create_table(const std::string& path, const HeadSettings& settings, bool replace);

struct StageJob {
    int size = 3;
    Drive drive = Drive::Linear;
    std::vector<Mark> marks;
    std::vector<int> through;  // sizes of the grids the drive goes through
    MarkStyle style;                 // how the marks are drawn
    std::optional<Mark> orientation;  // with a shape: the orientation marker

    JobFile file() const { return JobFile{marks, style, orientation}; }
};

// The job of a stage: the nine points driven linearly; a grid driven through
// the table as it stands, without that grid (or linearly when asked: a
// single-pass grid).  With a shape, the marks are drawn that way, mark_size
// field units across (see mark_style), and the job has an orientation
// marker, so that its marks can be measured from a scan.  Throws Error.
StageJob stage_job(const TableFile& table, int size, bool linear, Shape shape = Shape::None,
                   std::optional<double> mark_size = std::nullopt);

}  // namespace vrncal::workflow

#endif
