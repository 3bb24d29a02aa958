// The correction table reader as it was first written: the whole file read
// into the INI store (CCfgFile) and every value split whole.  The library's
// reader keeps only the keys it reads and counts a point's fields before it
// splits them; the differential target holds it to this one, record bit for
// record bit and exception for exception.
#ifndef VRNCAL_FUZZ_REFERENCE_TABLE_H
#define VRNCAL_FUZZ_REFERENCE_TABLE_H

#include <climits>
#include <cstdlib>
#include <string>
#include <vector>

#include <vrncal/vrncal.h>

namespace vrncal_check {

inline bool referencePoint(const std::string& text, std::vector<std::string>& fields, tagCalData& pt) {
    if (text.empty()) return false;
    StringUtil::split(text, DELIMITER, fields);
    if (fields.size() != 4) return false;
    pt.X = static_cast<float>(std::strtod(fields[0].c_str(), nullptr));
    pt.Y = static_cast<float>(std::strtod(fields[1].c_str(), nullptr));
    pt.RealX = static_cast<float>(std::strtod(fields[2].c_str(), nullptr));
    pt.RealY = static_cast<float>(std::strtod(fields[3].c_str(), nullptr));
    return true;
}

inline int referenceLoadCorFile(const char* path, tagLenPar& par) {
    CCfgFile cfg;
    cfg.setFilename(path);
    cfg.loadItems(path);
    const char* coef = "CalCoefs";
    const char* cal3 = "Cal3";
    par.ValSize = cfg.GetFloat(coef, "ValSize", 100.0f);
    par.Resolution = cfg.GetInt(coef, "Resolution", 65535);
    par.LEN_XYFLIP = par.XYFlip = cfg.GetInt(coef, "LEN_XYFLIP", 0);
    par.LEN_XINVERT = par.XInvert = cfg.GetInt(coef, "LEN_XINVERT", 0);
    par.LEN_YINVERT = par.YInvert = cfg.GetInt(coef, "LEN_YINVERT", 0);
    const double orderValue = cfg.GetFloat(coef, "order", 3.0f);
    const int order = orderValue >= -2147483648.0 && orderValue < 2147483648.0 ? static_cast<int>(orderValue)
                                                                               : INT_MIN;
    tagCalCoefs& c = par.CalCoefs;
    std::vector<std::string> fields;
    for (int i = 0; i < 9; ++i) {
        tagCalData pt;
        if (!referencePoint(cfg.GetString(cal3, StringUtil::format("PNT%d", i), ""), fields, pt)) return 0;
        c.Cal3Pnts[i] = pt;
    }
    par.grid = cfg.GetInt(cal3, "grid", 0);
    const float halfAxis = static_cast<float>(0.5 * par.ValSize);
    double* const axes[] = {&c.AxisXL, &c.AxisXR, &c.AxisYT, &c.AxisYB};
    const char* const axisKeys[] = {"AxisXL", "AxisXR", "AxisYT", "AxisYB"};
    for (int i = 0; i < 4; ++i) *axes[i] = cfg.GetFloat(cal3, axisKeys[i], halfAxis);
    double* const ones[] = {&c.TXL, &c.TXR, &c.TYT, &c.TYB, &c.SXL, &c.SXR, &c.SYT, &c.SYB};
    const char* const oneKeys[] = {"TXL", "TXR", "TYT", "TYB", "SXL", "SXR", "SYT", "SYB"};
    for (int i = 0; i < 8; ++i) *ones[i] = cfg.GetFloat(cal3, oneKeys[i], 1.0f);
    double* const zeros[] = {&c.OX, &c.OY, &c.PLX, &c.PLY};
    const char* const zeroKeys[] = {"OX", "OY", "PLX", "PLY"};
    for (int i = 0; i < 4; ++i) *zeros[i] = cfg.GetFloat(cal3, zeroKeys[i], 0.0f);
    c.Y2XAngle = cfg.GetFloat(cal3, "Y2XAngle", 1.5707964f);
    for (int i = 0; i < 20; ++i) c.k[i] = cfg.GetFloat(cal3, StringUtil::format("k%d", i), 1.0f);
    for (int i = 0; i < 8; ++i) c.s[i] = cfg.GetFloat(cal3, StringUtil::format("s%d", i), 0.0f);
    par.LineCount = cfg.GetInt(cal3, "LineCount", 0);
    if (par.LineCount > 1) {
        const double step = par.FieldSize / (par.LineCount - 1);
        for (int i = 0; i < par.LineCount && i <= 99; ++i) {
            const float d = static_cast<float>(i * step - 0.5 * par.FieldSize);
            par.XT[i] = cfg.GetFloat(cal3, StringUtil::format("XT%d", i), d);
            par.YT[i] = cfg.GetFloat(cal3, StringUtil::format("YT%d", i), d);
            par.XA[i] = cfg.GetFloat(cal3, StringUtil::format("XA%d", i), -100000.0f);
            par.YA[i] = cfg.GetFloat(cal3, StringUtil::format("YA%d", i), -100000.0f);
            par.XR[i] = cfg.GetFloat(cal3, StringUtil::format("XR%d", i), 1.0f);
            par.YR[i] = cfg.GetFloat(cal3, StringUtil::format("YR%d", i), 1.0f);
        }
    }
    for (int level = 1; level <= 6; ++level) {
        const int n = CBcdFile::GetCalOrder(level);
        const std::string section = StringUtil::format("Cal%d", n);
        tagStack stack;
        stack.Size = n;
        stack.InOrder = order >= n ? 1 : 0;
        for (int i = 0; i < n * n; ++i) {
            tagCalData pt;
            if (!referencePoint(cfg.GetString(section, StringUtil::format("PNT%d", i), ""), fields, pt)) break;
            stack.Points.push_back(pt);
        }
        if (static_cast<int>(stack.Points.size()) == n * n) par.Stacks.push_back(std::move(stack));
    }
    return 1;
}

}  // namespace vrncal_check

#endif
