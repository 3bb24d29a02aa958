// Reader for the correction case files in tests/data/.
//
// A case file lists records and the device points that field points must map
// to, bit for bit:
//
//   record NAME                  start from a default-constructed record
//   set MEMBER VALUE             a scalar member (FieldSize, QuadX, k2, XYFlip, ...)
//   table MEMBER V0 V1 ...       the leading entries of a table (XT, BoxYR, ...)
//   stack SIZE                   a grid, followed by SIZE lines
//   row X Y RealX RealY ...      one grid row, SIZE points of four values
//   OP PX PY -> X Y              correct (PX, PY) with OP, expect (X, Y)
//
// Inputs are decimal (or nan/inf) read as double and rounded to the member's
// type; expected values are C hex floats or nan.  "#" starts a comment.
#ifndef VRNCAL_TESTS_CORRECTION_CASES_H
#define VRNCAL_TESTS_CORRECTION_CASES_H

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "vrncal/records.h"

namespace vrncal_test {

struct CorrectionCase {
    std::string where;  // file:line and record name, for failure messages
    std::size_t record = 0;
    std::string op;
    tagKelPointF in;
    std::string expectX, expectY;
};

struct CaseFile {
    std::vector<tagLenPar> records;
    std::vector<CorrectionCase> cases;
    std::vector<std::string> errors;
};

inline double* caseTable(tagLenPar& p, const std::string& name) {
#define VRNCAL_TABLE(m) \
    if (name == #m) return p.m;
    VRNCAL_TABLE(XT) VRNCAL_TABLE(YT) VRNCAL_TABLE(XA) VRNCAL_TABLE(YA) VRNCAL_TABLE(XR)
    VRNCAL_TABLE(YR) VRNCAL_TABLE(BoxXT) VRNCAL_TABLE(BoxYT) VRNCAL_TABLE(BoxXA)
    VRNCAL_TABLE(BoxYA) VRNCAL_TABLE(BoxXR) VRNCAL_TABLE(BoxYR)
#undef VRNCAL_TABLE
    return nullptr;
}

inline bool caseSet(tagLenPar& p, const std::string& name, double v) {
#define VRNCAL_D(m) \
    if (name == #m) return p.m = v, true;
#define VRNCAL_I(m) \
    if (name == #m) return p.m = static_cast<int>(v), true;
#define VRNCAL_C(m) \
    if (name == #m) return p.CalCoefs.m = v, true;
    VRNCAL_D(FieldSize) VRNCAL_D(ValSize) VRNCAL_I(Resolution) VRNCAL_I(HalfResolution)
    VRNCAL_D(HalfResolutionSq) VRNCAL_I(LEN_XYFLIP) VRNCAL_I(LEN_XINVERT) VRNCAL_I(LEN_YINVERT)
    VRNCAL_D(BoxBarrelX) VRNCAL_D(BoxBarrelY) VRNCAL_D(BoxSkewX) VRNCAL_D(BoxSkewY)
    VRNCAL_D(BoxTrapX) VRNCAL_D(BoxTrapY) VRNCAL_D(BoxScaleX) VRNCAL_D(BoxScaleY)
    VRNCAL_I(BoxGrid) VRNCAL_I(BoxLineCount) VRNCAL_I(XYFlip) VRNCAL_I(XInvert)
    VRNCAL_I(YInvert) VRNCAL_I(grid) VRNCAL_I(LineCount) VRNCAL_I(CalMode)
    VRNCAL_D(BoxOffsetX) VRNCAL_D(BoxOffsetY) VRNCAL_D(SftShiftX) VRNCAL_D(SftShiftY)
    VRNCAL_D(SftScaleX) VRNCAL_D(SftScaleY)
    VRNCAL_C(QuadX) VRNCAL_C(QuadY) VRNCAL_C(AxisXL) VRNCAL_C(AxisXR) VRNCAL_C(AxisYT)
    VRNCAL_C(AxisYB) VRNCAL_C(SXL) VRNCAL_C(SXR) VRNCAL_C(ScaleX) VRNCAL_C(SYT) VRNCAL_C(SYB)
    VRNCAL_C(ScaleY) VRNCAL_C(TXL) VRNCAL_C(TXR) VRNCAL_C(TYT) VRNCAL_C(TYB) VRNCAL_C(PLX)
    VRNCAL_C(PLY)
#undef VRNCAL_D
#undef VRNCAL_I
#undef VRNCAL_C
    if (name.size() > 1 && name[0] == 'k') {
        const int i = std::atoi(name.c_str() + 1);
        if (i >= 0 && i < 20) return p.CalCoefs.k[i] = v, true;
    }
    return false;
}

inline CaseFile readCaseFile(const std::string& path) {
    CaseFile out;
    std::ifstream file(path);
    if (!file) {
        out.errors.push_back("cannot open " + path);
        return out;
    }
    std::string line;
    int lineNo = 0;
    int rowsLeft = 0;
    std::string recordName;
    const auto fail = [&](const std::string& what) {
        out.errors.push_back(path + ":" + std::to_string(lineNo) + ": " + what);
    };
    while (std::getline(file, line)) {
        ++lineNo;
        const std::size_t hash = line.find('#');
        if (hash != std::string::npos) line.erase(hash);
        std::istringstream words(line);
        std::vector<std::string> w;
        for (std::string s; words >> s;) w.push_back(s);
        if (w.empty()) continue;
        const auto number = [](const std::string& s) { return std::strtod(s.c_str(), nullptr); };

        if (w[0] == "record" && w.size() == 2) {
            if (rowsLeft != 0) fail("stack rows missing");
            out.records.emplace_back();
            recordName = w[1];
            rowsLeft = 0;
            continue;
        }
        if (out.records.empty()) {
            fail("no record yet");
            continue;
        }
        tagLenPar& rec = out.records.back();
        if (w[0] == "row") {
            tagStack* stack = rec.Stacks.empty() ? nullptr : &rec.Stacks.back();
            if (rowsLeft <= 0 || !stack || w.size() != 1 + 4 * static_cast<std::size_t>(stack->Size)) {
                fail("unexpected row");
                continue;
            }
            for (std::size_t i = 1; i + 3 < w.size(); i += 4) {
                tagCalData d;
                d.X = static_cast<float>(number(w[i]));
                d.Y = static_cast<float>(number(w[i + 1]));
                d.RealX = static_cast<float>(number(w[i + 2]));
                d.RealY = static_cast<float>(number(w[i + 3]));
                stack->Points.push_back(d);
            }
            --rowsLeft;
            continue;
        }
        if (rowsLeft != 0) fail("stack rows missing");
        rowsLeft = 0;
        if (w[0] == "set" && w.size() == 3) {
            if (!caseSet(rec, w[1], number(w[2]))) fail("unknown member " + w[1]);
        } else if (w[0] == "table" && w.size() >= 3 && w.size() <= 102) {
            double* table = caseTable(rec, w[1]);
            if (!table) fail("unknown table " + w[1]);
            for (std::size_t i = 2; table && i < w.size(); ++i) table[i - 2] = number(w[i]);
        } else if (w[0] == "stack" && w.size() == 2) {
            tagStack stack;
            stack.Size = std::atoi(w[1].c_str());
            rec.Stacks.push_back(stack);
            rowsLeft = stack.Size;
        } else if (w.size() == 6 && w[3] == "->") {
            CorrectionCase c;
            c.where = path + ":" + std::to_string(lineNo) + " (" + recordName + ")";
            c.record = out.records.size() - 1;
            c.op = w[0];
            c.in.x = static_cast<float>(number(w[1]));
            c.in.y = static_cast<float>(number(w[2]));
            c.expectX = w[4];
            c.expectY = w[5];
            out.cases.push_back(c);
        } else {
            fail("cannot read \"" + line + "\"");
        }
    }
    if (rowsLeft != 0) fail("stack rows missing at end of file");
    return out;
}

}  // namespace vrncal_test

#endif
