// Plane geometry on points and calibration records.
//
// Every function is stateless.  Where a formula says "in float", the operands
// are single precision and each operation rounds to single precision; the
// result is widened to double only on return.  Degenerate input (zero-length
// segments, parallel lines) gives infinities or NaNs; nothing is guarded.
#ifndef VRNCAL_GEOMETRY_H
#define VRNCAL_GEOMETRY_H

#include <vector>

#include "vrncal/export.h"
#include "vrncal/records.h"

// A closed segment from start to end.
struct LineSegment {
    tagKelPointF start;
    tagKelPointF end;
};

// Rounds half away from zero:  x > 0 gives floor(x + 0.5), otherwise
// ceil(x - 0.5), so kel_round(0.0) is -0.0 and kel_round(0.49999999999999994)
// is 1 (the sum rounds up before the floor).  Named kel_round so that the
// library never interposes the C library's round() in a host process.
VRNCAL_API double kel_round(double x);

// Cross product of (a - c) and (b - c), in float:
//   (a.x - c.x)(b.y - c.y) - (b.x - c.x)(a.y - c.y)
// positive when c, a, b turn counter-clockwise.
VRNCAL_API double Multiply(tagKelPointF a, tagKelPointF b, tagKelPointF c);

// True when |Multiply(s.start, s.end, p)| < 1e-6 (an absolute tolerance) and p
// lies within the segment's box: (p.x - s.start.x)(p.x - s.end.x) <= 0 and the
// same for y, products in float.
VRNCAL_API bool IsOnline(tagKelPointF p, LineSegment s);

// True when the closed segments touch or cross: a bounding-box test in float,
// then two non-strict straddle tests with Multiply.  Collinear overlapping
// segments and segments that only share an end point intersect.
VRNCAL_API bool Intersect(LineSegment s1, LineSegment s2);

// Rotates (p.RealX, p.RealY) about (centre.RealX, centre.RealY) by angle
// radians, counter-clockwise, storing the result as floats in p:
//   RealX' = dx cos a - dy sin a + centre.RealX
//   RealY' = dx sin a + dy cos a + centre.RealY
// X and Y are left alone.  Returns the updated record.
VRNCAL_API tagCalData RotatePoint(tagCalData& p, const tagCalData& centre, double angle);

// Angle at vertex b of the triangle a, b, c (radians), by the law of cosines:
// acos((ab^2 + bc^2 - ac^2) / (2 ab bc)); squared lengths in float, roots and
// quotient in double.  A zero-length side gives NaN.
VRNCAL_API double getAngle(tagKelPointF a, tagKelPointF b, tagKelPointF c);

// Slope (b.y - a.y) / (b.x - a.x), in float.
VRNCAL_API double getSlop(tagKelPointF a, tagKelPointF b);

// Inclination of the segment in degrees: atan(getSlop(a, b)) / pi * 180.
VRNCAL_API double getDip(tagKelPointF a, tagKelPointF b);

// True for every finite double; false for NaN and both infinities.
VRNCAL_API bool IsFiniteNumber(double x);

// True as soon as one element is not finite (an infinity counts too).
VRNCAL_API bool hasNaN(std::vector<double> values);

// A straight line A*x + B*y + C = 0.
class VRNCAL_API Line {
public:
    double A = 0.0;
    double B = 0.0;
    double C = 0.0;

    Line() = default;
    ~Line() = default;

    // The line through p1 and p2: A = p1.y - p2.y, B = p2.x - p1.x,
    // C = p2.y*p1.x - p1.y*p2.x, each computed in float.  Equal points give the
    // degenerate line 0 = 0.
    static Line GetLine(tagKelPointF p1, tagKelPointF p2);

    // Cramer's rule in double, results stored as floats:
    //   D = l1.A*l2.B - l2.A*l1.B
    //   x = (l1.B*l2.C - l2.B*l1.C) / D,  y = (l2.A*l1.C - l1.A*l2.C) / D
    // D = 0 is not tested.
    static tagKelPointF GetCrossPoint(Line l1, Line l2);

    // A hook kept in the interface; does nothing.
    static void CrossPointShow(tagKelPointF p);
};

#endif
