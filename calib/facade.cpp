// VrnCal: the facade a host calls.  It keeps no state; it picks the
// correction for a point, applies the lens flags before it, and strings the
// file and algorithm members together for the file-level point edits.
#include "vrncal/facade.h"

#include <cmath>

#include "calib/lens_flags.h"
#include "vrncal/bcd_file.h"
#include "vrncal/calib_alg.h"

bool VrnCal::Calib9Pt(const tagLenPar& par, tagKelPointF& in, tagKelPointF& out) {
    return CCalibAlg::CalibLSM(par, in, out) != 0;
}

bool VrnCal::CalibBox(const tagLenPar& par, tagKelPointF& in, tagKelPointF& out) {
    return CCalibAlg::CalibManual(par, in, out) != 0;
}

bool VrnCal::loadUcf(const char* path, tagLenPar& par) { return CBcdFile::LoadBcdFile(path, par); }

bool VrnCal::saveUcf(const char* path, tagLenPar& par) {
    CCalibAlg::MVLSMCoef(par);  // the coefficients always match the points saved
    return CBcdFile::SaveBcdFile(path, par);
}

bool VrnCal::getRecManParas(double* m, double* c, double* r) {
    // Truncated to six decimals through a 32-bit int: magnitudes from
    // 2147.483648 up, infinities and NaN all come out as INT_MIN / 1e6.
    const auto six = [](double v) {
        return vrncal_detail::truncToInt32(v * 1000000.0) / 1000000.0;
    };
    // The angle is in degrees; pi is taken to five decimals, as the box
    // parameters in the field were computed with it.
    const double t = std::tan(m[2] * 3.14159 / 180.0);
    double a = c[4];
    if (m[2] != 90.0) a = c[4] - 1.0 / t;
    const double q = c[8] * c[8];
    r[0] = six(m[0] * c[0] / m[4]);
    r[1] = six(m[1] * c[1] / m[7]);
    r[2] = six(c[2] - ((m[3] + m[5]) - 2 * m[4]) * q / (2 * m[4] * m[7] * m[7]));
    r[3] = six(c[3] - q * ((m[6] + m[8]) - 2 * m[7]) / (m[4] * 2 * m[7] * m[4]));
    r[4] = six(a);
    r[5] = six(c[5]);
    r[6] = six((m[3] - m[5]) / (2 * m[7]) + c[6]);
    r[7] = six((m[6] - m[8]) / (2 * m[4]) + c[7]);
    return true;
}

bool VrnCal::getBasePara(const char* path, double& fieldSize, double& valSize, int& count) {
    return CBcdFile::GetBasePara(path, fieldSize, valSize, count);
}

bool VrnCal::CalibPoint(const tagLenPar& par, tagKelPointF in, tagKelPointF& out) {
    tagKelPointF p = vrncal_detail::correctionInput(par, in);
    if (par.CalMode != 0) return Calib9Pt(par, p, out);
    return CalibBox(par, p, out);
}

// The file-level members work on a record of their own, loaded from the file
// (a file that does not load leaves the defaults of tagLenPar in place and
// the call goes on), and drop it afterwards.

bool VrnCal::setCalibPnts(const char* path, int index, int size, tagCalData* points) {
    tagLenPar par;
    loadUcf(path, par);
    CCalibAlg::setCalibPnts(par, index, size, points);
    return saveUcf(path, par);  // refits, so the file's coefficients follow the edit
}

bool VrnCal::getCalibPnts(const char* path, int index, int& size, tagCalData* points) {
    tagLenPar par;
    loadUcf(path, par);
    return CCalibAlg::getCalibPnts(par, index, size, points) != 0;
}

bool VrnCal::getEqualPnts(const char* path, int axis, int& count, tagKelPointF* points) {
    tagLenPar par;
    loadUcf(path, par);
    return CCalibAlg::getEqualPnts(par, axis, count, points) != 0;
}

bool VrnCal::setEqualPnts(const char* path, int axis, int count, tagKelPointF* points) {
    tagLenPar par;
    CBcdFile::LoadBcdFile(path, par);
    // Not saved: the edit is made on the loaded copy only, and hosts rely on
    // this call leaving the file as it is.
    return CCalibAlg::setEqualPnts(par, axis, count, points) != 0;
}
