// The calibration records: plain structs that cross every part of the library.
//
// The host owns every record.  tagLenPar holds the whole calibration state of
// one lens; its 600-byte coefficient block and the 16-byte calibration point
// are written raw into the binary data file, so their layouts are fixed and
// checked at compile time (see calib/records.cpp).
//
// A default-constructed record is fully initialised.  Its values describe a
// neutral lens (no correction, a 100-unit field on a 65535-count head) and are
// the same defaults the facade uses for its temporary record when it edits a
// calibration file that does not exist yet.
#ifndef VRNCAL_RECORDS_H
#define VRNCAL_RECORDS_H

#include <vector>

#include "vrncal/export.h"

// A plane point: field units on input, device counts on output of the
// conversions.
struct tagKelPointF {
    float x = 0.0f;
    float y = 0.0f;
};

// One calibration point pair: nominal grid position and where the spot was
// really measured.  16 bytes, in this order in memory and in the data file.
struct tagCalData {
    float X = 0.0f;      // nominal x
    float Y = 0.0f;      // nominal y
    float RealX = 0.0f;  // measured x
    float RealY = 0.0f;  // measured y
};

// One square calibration grid.  Points is row-major: the point of row r and
// column c is Points[r * Size + c]; x grows along a row and y falls from one
// row to the next (row 0 is the top row).  Whenever the record is saved,
// Points holds at least Size * Size elements.
struct tagStack {
    int Size = 0;     // points per side
    int InOrder = 0;  // 1 when the table's fit order reaches Size
    std::vector<tagCalData> Points;
};

// The coefficient block, exactly 600 bytes, copied raw by the data file.
struct tagCalCoefs {
    tagCalData Cal3Pnts[9] = {};  // the 3 x 3 calibration points, row-major

    double LinX = 1.0;              // pre-warp x' = x + QuadX*x*x; the fit sets LinX to 1
    double QuadX = 0.0;
    double XWarpSpare[3] = {1.0, 0.0, 0.0};  // further x pre-warp terms, unused
    double LinY = 1.0;
    double QuadY = 0.0;
    double YWarpSpare[3] = {1.0, 0.0, 0.0};  // further y pre-warp terms, unused

    double AxisXL = 50.0, AxisXR = 50.0, AxisYT = 50.0, AxisYB = 50.0;  // half-axis lengths
    double OX = 0.0, OY = 0.0;                                           // origin offsets
    double SXL = 1.0, SXR = 1.0, ScaleX = 1.0;                           // side terms, x gain
    double SYT = 1.0, SYB = 1.0, ScaleY = 1.0;                           // side terms, y gain
    double TXL = 0.0, TXR = 0.0, TYT = 0.0, TYB = 0.0;                   // keystone terms
    double PLX = 0.0, PLY = 0.0;                                         // shear terms
    double Y2XAngle = 1.5707963267948966;  // angle between the axes, radians
    double k[20] = {};                      // polynomial coefficients ("k%d")
    double s[8] = {};                       // further coefficients ("s%d")
};

// The lens calibration record.  Members are in the order the data file and the
// hosts rely on.
struct tagLenPar {
    float LeadScale = 10000.0f;  // leading word, not used by the library
    float LeadSpare = 0.0f;

    double FieldSize = 100.0;  // field units spanned by Resolution counts
    double ValSize = 80.0;     // field size used for grid pitch and clamping
    int Resolution = 65535;    // device range, counts 0 .. Resolution
    int HalfResolution = 32768;
    double HalfResolutionSq = 1073741824.0;

    // Lens flags as used by the box correction.
    int LEN_XYFLIP = 0;
    int LEN_XINVERT = 0;
    int LEN_YINVERT = 0;

    double BoxOffsetX = 0.0;  // added to the point before the box correction
    double BoxOffsetY = 0.0;
    double BoxSpare[3] = {};  // unused

    // Box correction factors; every factor is neutral at 1.0, scales in percent.
    double BoxBarrelX = 1.0, BoxBarrelY = 1.0;
    double BoxSkewX = 1.0, BoxSkewY = 1.0;
    double BoxTrapX = 1.0, BoxTrapY = 1.0;
    double BoxScaleX = 100.0, BoxScaleY = 100.0;
    int BoxGrid = 0;         // 1 switches the box gain tables on
    int BoxLineCount = 21;   // rows in the box gain tables
    double BoxXT[100] = {}, BoxYT[100] = {};
    double BoxXA[100] = {}, BoxYA[100] = {};
    double BoxXR[100] = {}, BoxYR[100] = {};

    // Scale about the device centre and shift, used by LP2DPEX_SFT.
    float SftShiftX = 0.0f, SftShiftY = 0.0f;
    float SftScaleX = 1.0f, SftScaleY = 1.0f;

    int CalMode = 0;  // non-zero: grid correction; zero: box correction
    // Copies of the lens flags used by the grid correction and the conversions.
    int XYFlip = 0;
    int XInvert = 0;
    int YInvert = 0;

    tagCalCoefs CalCoefs;
    std::vector<tagStack> Stacks;  // the calibration grids

    int grid = 0;        // 1 switches the grid-mode gain tables on
    int LineCount = 21;  // rows in the line table (at most 100 are stored)
    double XT[100] = {}, YT[100] = {};
    double XA[100] = {}, YA[100] = {};
    double XR[100] = {}, YR[100] = {};
};

#endif
