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
//
// A job meant to be scanned also says how to draw each mark, in the columns
// "shape,shape_size,role": a filled dot or a cross of that diameter (span)
// in counts, drawn around the drive so that the head's distortion over the
// mark itself is negligible; and it carries one more line, the orientation
// marker (role "orientation", index n*n): a mark in the top-left cell, half
// a pitch right of mark 0 and a quarter pitch below it.  Placed off both
// diagonals, it tells a sheet scanned turned or mirrored from an upright one.
#ifndef VRNCAL_WORKFLOW_JOB_H
#define VRNCAL_WORKFLOW_JOB_H

#include <optional>
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

// How the marks are drawn.  None: plain points, as a job without the shape
// columns.
enum class Shape { None, Dot, Cross };

struct MarkStyle {
    Shape shape = Shape::None;
    float size = 0.0f;  // counts: the dot's diameter, the cross's span
};

// The orientation marker's place in the grid, in pitches from mark 0: along
// a row (columns) and down the rows.
inline constexpr double kMarkerColumn = 0.5;
inline constexpr double kMarkerRow = 0.25;

// "dot", "cross"; nothing for None.
std::string shape_name(Shape shape);

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

// The orientation marker of a stage (index size * size, row and column -1),
// driven as the marks are.
Mark orientation_mark(const tagLenPar& par, int size, Drive drive);

// The style of marks of that shape for a stage: size_fu field units across,
// by default 0.4 or a quarter of the pitch, whichever is less.  Throws Error
// when the size is not positive or exceeds half the pitch.
MarkStyle mark_style(const tagLenPar& par, int size, Shape shape, std::optional<double> size_fu);

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

// A job file as it is read and written: the marks, how they are drawn, and
// the orientation marker when the job has one.
struct JobFile {
    std::vector<Mark> marks;
    MarkStyle style;
    std::optional<Mark> orientation;
};

// The first seven fields of a mark's line: "index,row,column,x,y,u,v".
std::string mark_fields(const Mark& m);

std::string job_text(const std::vector<Mark>& marks);
std::string template_text(const std::vector<Mark>& marks);
// With the shape columns and the orientation marker, when style has a shape.
std::string job_text(const JobFile& job);
std::string template_text(const JobFile& job);
// A filled template: the job with the measured positions.
std::string measured_text(const std::vector<Mark>& marks, const std::vector<tagKelPointF>& measured);

// Reads a job (or a template, filled or not: the measured columns are
// ignored).  Throws Error naming the file and the line.
JobFile read_job_file(const std::string& path);
// The marks alone (no orientation marker).
std::vector<Mark> read_job(const std::string& path);

}  // namespace vrncal::workflow

#endif
