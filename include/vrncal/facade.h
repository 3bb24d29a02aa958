// VrnCal: the calibration facade a host calls.
//
// It holds no state.  Every member takes the host's record or a calibration
// file path and forwards to CBcdFile and CCalibAlg; it decides only which
// correction a point goes through (CalMode) and how the lens flags act first.
#ifndef VRNCAL_FACADE_H
#define VRNCAL_FACADE_H

#include "vrncal/export.h"
#include "vrncal/records.h"

class VRNCAL_API VrnCal {
public:
    VrnCal() = default;
    ~VrnCal() = default;

    bool Calib9Pt(const tagLenPar& par, tagKelPointF& in, tagKelPointF& out);
    bool CalibBox(const tagLenPar& par, tagKelPointF& in, tagKelPointF& out);
    // CBcdFile::LoadBcdFile.  For a load that never throws and says what is
    // wrong with a file, see vrncal::load (vrncal/file_io.h).
    bool loadUcf(const char* path, tagLenPar& par);
    bool saveUcf(const char* path, tagLenPar& par);
    bool getRecManParas(double* measured, double* current, double* result);
    bool getBasePara(const char* path, double& fieldSize, double& valSize, int& count);

    // Applies the lens flags and runs the correction chosen by CalMode.
    bool CalibPoint(const tagLenPar& par, tagKelPointF in, tagKelPointF& out);

    // Linear logical-to-device conversion without correction.
    bool LP2DPEX_Cal(tagKelPointF in, tagKelPointF& out, const tagLenPar& par);
    // CalibPoint, then optionally scale about the device centre and shift.
    bool LP2DPEX_SFT(const tagKelPointF& in, tagKelPointF& out, const tagLenPar& par, bool shift);

    // File-level edits and reads of calibration points.
    bool setCalibPnts(const char* path, int index, int size, tagCalData* points);
    bool getCalibPnts(const char* path, int index, int& size, tagCalData* points);
    bool getEqualPnts(const char* path, int axis, int& count, tagKelPointF* points);
    bool setEqualPnts(const char* path, int axis, int count, tagKelPointF* points);
};

#endif
