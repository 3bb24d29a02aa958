// Marking jobs: the marks of one calibration stage, each with its nominal
// position and the drive position a host sends to the head.
//
// A stage is the nine points (size 3), driven linearly, or a grid of N x N
// points (N one of 5, 9, 17, 25, 33, 65) driven through the correction as it
// stands.  Marks are numbered row-major over +-ValSize/2: index 0 is the
// top-left mark, x grows along a row, y falls from row to row.  Nominal
// positions are in the caller's frame (the frame a host asks for points in,
// and the frame every stage is measured in); drives are device counts.
//
// The job file is CSV with the header "index,row,column,x,y,u,v"; the
// measurement template adds the empty columns "measured_x,measured_y".
// Numbers are written in the shortest form that reads back as the same float.
#ifndef VRNCAL_WORKFLOW_JOB_H
#define VRNCAL_WORKFLOW_JOB_H

#include <string>
#include <vector>

#include <vrncal/records.h>

namespace vrncal::workflow {

struct Mark {
    int index = 0;
    int row = 0;
    int column = 0;
    float x = 0.0f;  // nominal, field units, caller's frame
    float y = 0.0f;
    float u = 0.0f;  // drive, counts
    float v = 0.0f;
};

enum class Drive {
    Linear,     // the linear conversion with the lens flags (LP2DPEX_Cal)
    Corrected,  // the grid correction of the record (CalibPoint, CalMode 1)
};

// True for 3 (the nine points) and the grid sizes 5, 9, 17, 25, 33, 65.
bool is_stage_size(int size);

// "nine points" or "9x9 grid".
std::string stage_name(int size);

// The marks of a stage, driven through par.
std::vector<Mark> plan_marks(const tagLenPar& par, int size, Drive drive);

// The record a grid stage is marked through: the calibration with every grid
// of that size left out, so that a stage measured again replaces its earlier
// measurement and still measures only what the other stages leave.
tagLenPar drive_record(const tagLenPar& calibration, int size);

// The points a table stores for a measured stage, from the marks and their
// measured positions (caller's frame).  Grids are stored as measured; the
// nine points in the frame the nine-point model sees (the caller's point
// with the record's sign rule applied), row-major in that frame.
std::vector<tagCalData> stored_points(const tagLenPar& par, int size, const std::vector<Mark>& marks,
                                      const std::vector<tagKelPointF>& measured);

std::string job_text(const std::vector<Mark>& marks);
std::string template_text(const std::vector<Mark>& marks);
// A filled template: the job with the measured positions.
std::string measured_text(const std::vector<Mark>& marks, const std::vector<tagKelPointF>& measured);

// Reads a job (or a template, filled or not: the measured columns are
// ignored).  Throws Error naming the file and the line.
std::vector<Mark> read_job(const std::string& path);

}  // namespace vrncal::workflow

#endif
