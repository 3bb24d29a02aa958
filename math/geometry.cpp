// Plane geometry: orientation, segments, rotation, angles and the line class
// that the grid lookup intersects.
#include <cfloat>
#include <cmath>

#include "math/fp.h"
#include "vrncal/calib_alg.h"
#include "vrncal/geometry.h"

using vrncal_detail::stored;

double kel_round(double x) {
    // Half away from zero; ceil keeps the sign of a zero result.
    return x > 0.0 ? std::floor(x + 0.5) : std::ceil(x - 0.5);
}

double Multiply(tagKelPointF a, tagKelPointF b, tagKelPointF c) {
    const float cross = (a.x - c.x) * (b.y - c.y) - (b.x - c.x) * (a.y - c.y);
    return cross;
}

bool IsOnline(tagKelPointF p, LineSegment s) {
    // The collinearity tolerance is absolute, not scaled by the segment length.
    if (!(std::fabs(Multiply(s.start, s.end, p)) < 0.000001)) return false;
    const float inX = (p.x - s.start.x) * (p.x - s.end.x);
    const float inY = (p.y - s.start.y) * (p.y - s.end.y);
    return inX <= 0.0f && inY <= 0.0f;
}

namespace {
float larger(float a, float b) { return a > b ? a : b; }
float smaller(float a, float b) { return a < b ? a : b; }
}  // namespace

bool Intersect(LineSegment s1, LineSegment s2) {
    // Bounding boxes first; touching boxes pass.
    if (larger(s1.start.x, s1.end.x) < smaller(s2.start.x, s2.end.x)) return false;
    if (larger(s2.start.x, s2.end.x) < smaller(s1.start.x, s1.end.x)) return false;
    if (larger(s1.start.y, s1.end.y) < smaller(s2.start.y, s2.end.y)) return false;
    if (larger(s2.start.y, s2.end.y) < smaller(s1.start.y, s1.end.y)) return false;
    const double d1 = Multiply(s2.start, s1.end, s1.start);
    const double d2 = Multiply(s1.end, s2.end, s1.start);
    if (d1 * d2 < 0.0) return false;
    const double d3 = Multiply(s1.start, s2.end, s2.start);
    const double d4 = Multiply(s2.end, s1.end, s2.start);
    return d3 * d4 >= 0.0;
}

tagCalData RotatePoint(tagCalData& p, const tagCalData& centre, double angle) {
    const double sa = std::sin(angle);
    const double ca = std::cos(angle);
    const double dx = static_cast<double>(p.RealX) - centre.RealX;
    const double dy = static_cast<double>(p.RealY) - centre.RealY;
    p.RealX = stored(dx * ca - dy * sa + centre.RealX);
    p.RealY = stored(dx * sa + dy * ca + centre.RealY);
    return p;
}

double getAngle(tagKelPointF a, tagKelPointF b, tagKelPointF c) {
    const float ab2 = (a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y);
    const float bc2 = (b.x - c.x) * (b.x - c.x) + (b.y - c.y) * (b.y - c.y);
    const float ac2 = (a.x - c.x) * (a.x - c.x) + (a.y - c.y) * (a.y - c.y);
    const double ab = std::sqrt(static_cast<double>(ab2));
    const double bc = std::sqrt(static_cast<double>(bc2));
    const float num = ab2 + bc2 - ac2;
    return std::acos(num / (2.0 * ab * bc));
}

double getSlop(tagKelPointF a, tagKelPointF b) {
    const float slope = (b.y - a.y) / (b.x - a.x);
    return slope;
}

double getDip(tagKelPointF a, tagKelPointF b) {
    return std::atan(getSlop(a, b)) / 3.141592653589793 * 180.0;
}

bool IsFiniteNumber(double x) { return x >= -DBL_MAX && x <= DBL_MAX; }

bool hasNaN(std::vector<double> values) {
    for (double v : values)
        if (!IsFiniteNumber(v)) return true;
    return false;
}

Line Line::GetLine(tagKelPointF p1, tagKelPointF p2) {
    Line line;
    line.A = static_cast<float>(p1.y - p2.y);
    line.B = static_cast<float>(p2.x - p1.x);
    line.C = static_cast<float>(p2.y * p1.x - p1.y * p2.x);
    return line;
}

tagKelPointF Line::GetCrossPoint(Line l1, Line l2) {
    const double d = l1.A * l2.B - l2.A * l1.B;
    tagKelPointF p;
    p.x = stored((l1.B * l2.C - l2.B * l1.C) / d);
    p.y = stored((l2.A * l1.C - l1.A * l2.C) / d);
    return p;
}

void Line::CrossPointShow(tagKelPointF) {}

double CCalibAlg::GetCollinear(tagCalData a, tagCalData b, tagCalData c) {
    const float twice = a.RealX * b.RealY + b.RealX * c.RealY + a.RealY * c.RealX -
                        c.RealY * a.RealX - a.RealY * b.RealX - b.RealY * c.RealX;
    return 0.5f * std::fabs(twice);
}

double CCalibAlg::GetTwoLineAngle(tagCalData* l1, tagCalData* l2) {
    const double dx1 = static_cast<double>(l1[1].RealX) - l1[0].RealX;
    const double dy1 = static_cast<double>(l1[1].RealY) - l1[0].RealY;
    const double dx2 = static_cast<double>(l2[1].RealX) - l2[0].RealX;
    const double dy2 = static_cast<double>(l2[1].RealY) - l2[0].RealY;
    if (std::fabs(dx1) > 0.0 && std::fabs(dx2) > 0.0) {
        const double k1 = dy1 / dx1;
        const double k2 = dy2 / dx2;
        return std::atan((k2 - k1) / (1.0 + k1 * k2));
    }
    // The two vertical cases are not mirror images of each other; existing
    // calibrations were fitted with exactly these.
    if (std::fabs(dx2) > 0.0) return std::atan(dy2 / dx2);
    return 1.5707963267948966 - std::atan(dy1 / dx1);
}
