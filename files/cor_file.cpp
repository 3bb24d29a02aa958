// The correction table text file: CBcdFile::LoadCorFile reads one into a
// record through CCfgFile.
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "math/fp.h"
#include "vrncal/bcd_file.h"
#include "vrncal/cfg_file.h"
#include "vrncal/string_util.h"

using vrncal_detail::stored;

namespace {

const char* const kCoefSection = "CalCoefs";
const char* const kPointSection = "Cal3";

// Parses "X Y RealX RealY" split at single spaces into a point.  False when
// the text is empty or does not give exactly four fields.
bool parsePoint(const std::string& text, std::vector<std::string>& fields, tagCalData& pt) {
    if (text.empty()) return false;
    // Two spaces in a row make an empty fifth field: such a point is rejected.
    StringUtil::split(text, DELIMITER, fields);
    if (fields.size() != 4) return false;
    // strtod then narrowing, not strtof: the double rounding is part of the
    // stored values.  A field that is not a number gives 0.
    pt.X = stored(std::strtod(fields[0].c_str(), nullptr));
    pt.Y = stored(std::strtod(fields[1].c_str(), nullptr));
    pt.RealX = stored(std::strtod(fields[2].c_str(), nullptr));
    pt.RealY = stored(std::strtod(fields[3].c_str(), nullptr));
    return true;
}

}  // namespace

int CBcdFile::GetCalOrder(int level) {
    switch (level) {
        case 1: return 5;
        case 2: return 9;
        case 3: return 17;
        case 4: return 33;
        case 5: return 65;
        case 6: return 25;  // not 2^6 + 1: the sixth level is 25 on purpose
        default: return 3;
    }
}

int CBcdFile::LoadCorFile(const char* path, tagLenPar& par) {
    // Raised deliberately, with the text of the std::string constructor that
    // existing hosts see for a null path.
    if (path == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");

    // A missing file gives an empty store: every read takes its default.
    CCfgFile cfg;
    cfg.setFilename(path);
    cfg.loadItems(path);

    // Stored at once, so they are overwritten even when the load fails below.
    par.ValSize = cfg.GetFloat(kCoefSection, "ValSize", 100.0f);
    par.Resolution = cfg.GetInt(kCoefSection, "Resolution", 65535);
    par.LEN_XYFLIP = par.XYFlip = cfg.GetInt(kCoefSection, "LEN_XYFLIP", 0);
    par.LEN_XINVERT = par.XInvert = cfg.GetInt(kCoefSection, "LEN_XINVERT", 0);
    par.LEN_YINVERT = par.YInvert = cfg.GetInt(kCoefSection, "LEN_YINVERT", 0);
    const int order = vrncal_detail::truncToInt32(cfg.GetFloat(kCoefSection, "order", 3.0f));

    // Every key from here on is read from "Cal3", scalars and tables too:
    // existing files place them there.
    tagCalCoefs& c = par.CalCoefs;
    std::vector<std::string> fields;
    for (int i = 0; i < 9; ++i) {
        const std::string text =
            cfg.GetString(kPointSection, StringUtil::format("PNT%d", i), std::string());
        tagCalData pt;
        if (!parsePoint(text, fields, pt)) return 0;  // earlier points stay written
        c.Cal3Pnts[i] = pt;
    }

    par.grid = cfg.GetInt(kPointSection, "grid", 0);
    const float halfAxis = stored(0.5 * par.ValSize);
    c.AxisXL = cfg.GetFloat(kPointSection, "AxisXL", halfAxis);
    c.AxisXR = cfg.GetFloat(kPointSection, "AxisXR", halfAxis);
    c.AxisYT = cfg.GetFloat(kPointSection, "AxisYT", halfAxis);
    c.AxisYB = cfg.GetFloat(kPointSection, "AxisYB", halfAxis);
    c.TXL = cfg.GetFloat(kPointSection, "TXL", 1.0f);
    c.TXR = cfg.GetFloat(kPointSection, "TXR", 1.0f);
    c.TYT = cfg.GetFloat(kPointSection, "TYT", 1.0f);
    c.TYB = cfg.GetFloat(kPointSection, "TYB", 1.0f);
    c.SXL = cfg.GetFloat(kPointSection, "SXL", 1.0f);
    c.SXR = cfg.GetFloat(kPointSection, "SXR", 1.0f);
    c.SYT = cfg.GetFloat(kPointSection, "SYT", 1.0f);
    c.SYB = cfg.GetFloat(kPointSection, "SYB", 1.0f);
    c.OX = cfg.GetFloat(kPointSection, "OX", 0.0f);
    c.OY = cfg.GetFloat(kPointSection, "OY", 0.0f);
    c.PLX = cfg.GetFloat(kPointSection, "PLX", 0.0f);
    c.PLY = cfg.GetFloat(kPointSection, "PLY", 0.0f);
    c.Y2XAngle = cfg.GetFloat(kPointSection, "Y2XAngle", 1.5707964f);
    for (int i = 0; i < 20; ++i)
        c.k[i] = cfg.GetFloat(kPointSection, StringUtil::format("k%d", i), 1.0f);
    for (int i = 0; i < 8; ++i)
        c.s[i] = cfg.GetFloat(kPointSection, StringUtil::format("s%d", i), 0.0f);
    par.LineCount = cfg.GetInt(kPointSection, "LineCount", 0);

    // FieldSize is not in the file: the row defaults use the record's value.
    if (par.LineCount > 1) {
        const double step = par.FieldSize / (par.LineCount - 1);
        // Only 100 rows fit; LineCount keeps the value read.
        for (int i = 0; i < par.LineCount && i <= 99; ++i) {
            const float d = stored(i * step - 0.5 * par.FieldSize);
            par.XT[i] = cfg.GetFloat(kPointSection, StringUtil::format("XT%d", i), d);
            par.YT[i] = cfg.GetFloat(kPointSection, StringUtil::format("YT%d", i), d);
            par.XA[i] = cfg.GetFloat(kPointSection, StringUtil::format("XA%d", i), -100000.0f);
            par.YA[i] = cfg.GetFloat(kPointSection, StringUtil::format("YA%d", i), -100000.0f);
            par.XR[i] = cfg.GetFloat(kPointSection, StringUtil::format("XR%d", i), 1.0f);
            par.YR[i] = cfg.GetFloat(kPointSection, StringUtil::format("YR%d", i), 1.0f);
        }
    }

    for (int level = 1; level <= 6; ++level) {
        const int n = GetCalOrder(level);
        const std::string section = StringUtil::format("Cal%d", n);
        tagStack stack;
        stack.Size = n;
        stack.InOrder = order >= n ? 1 : 0;
        const int count = n * n;
        stack.Points.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            const std::string text =
                cfg.GetString(section, StringUtil::format("PNT%d", i), std::string());
            tagCalData pt;
            if (!parsePoint(text, fields, pt)) break;
            stack.Points.push_back(pt);
        }
        // An incomplete grid is dropped silently.  Stacks is not cleared
        // first: a second load into the same record appends again.
        if (static_cast<int>(stack.Points.size()) == count) par.Stacks.push_back(std::move(stack));
    }
    return 1;
}
