// Worked cases as data, shared by the test programs.  A case file builds
// records line by line and runs operations on them:
//
//   record NAME [FROM]      start from a default-constructed record, or from a
//                           copy of record FROM as it stands (a default record
//                           exists before the first "record" line)
//   set MEMBER VALUE        a member: FieldSize, CalMode, QuadX, k2, XT5, P4.RealX ...
//   table MEMBER V0 V1 ...  the leading entries of an array member (XT, k ...)
//   cal3 I X Y RX RY        calibration point I of the nine
//   stack SIZE [INORDER]    a grid, followed by SIZE lines of
//   row X Y RX RY ...       one grid row, SIZE points of four values
//   reshape SIZE [COUNT]    the last grid claims SIZE and keeps COUNT points
//   file NAME [crlf]        a scratch file NAME holding the lines up to "END"
//                           (ended by CR LF with "crlf"), for operations on files
//   OP ARG ... -> V ...     run OP; it must give these values, bit for bit
//
// Arguments are read as doubles (decimal, C hex floats, nan, inf) and rounded
// to the type the operation takes.  An expected value matches a result when
// it has the same bits as the result widened to double; any NaN matches a
// NaN.  Operations may change the record (a fit, a load); later lines see the
// change.  "get MEMBER ..." is always there and gives members as they stand
// (also P4.RealX, S1.Size, S1.P80.X for the grids, Stacks for their count).
// "#" starts a comment.
#ifndef VRNCAL_TESTS_CASE_FILE_H
#define VRNCAL_TESTS_CASE_FILE_H

#include <stdlib.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "float_bits.h"
#include "vrncal/records.h"

namespace vrncal_test {

using Values = std::vector<double>;

inline double number(const std::string& s) { return std::strtod(s.c_str(), nullptr); }

// One operation line: the record it works on and its arguments.
struct Call {
    tagLenPar& rec;
    std::vector<std::string> args;
    std::string dir;  // the scratch folder of the "file" lines

    std::size_t size() const { return args.size(); }
    double d(std::size_t i) const { return number(args.at(i)); }
    float f(std::size_t i) const { return static_cast<float>(d(i)); }
    int i(std::size_t k) const { return static_cast<int>(d(k)); }
    tagKelPointF pt(std::size_t k) const { return tagKelPointF{f(k), f(k + 1)}; }
    tagCalData cal(std::size_t k) const { return tagCalData{f(k), f(k + 1), f(k + 2), f(k + 3)}; }
    std::string file(std::size_t k) const { return dir + "/" + args.at(k); }
    std::vector<double> from(std::size_t k) const {
        std::vector<double> v;
        for (; k < args.size(); ++k) v.push_back(d(k));
        return v;
    }
};

using Op = std::function<Values(Call&)>;
using Ops = std::map<std::string, Op>;

// A member of the record by name: a pointer and its type.
struct MemberRef {
    void* p = nullptr;
    char type = 0;  // 'd', 'f' or 'i'
    MemberRef() = default;
    MemberRef(double& v) : p(&v), type('d') {}
    MemberRef(float& v) : p(&v), type('f') {}
    MemberRef(int& v) : p(&v), type('i') {}
    double get() const {
        if (type == 'd') return *static_cast<double*>(p);
        return type == 'f' ? double(*static_cast<float*>(p)) : double(*static_cast<int*>(p));
    }
    void set(double v) const {
        if (type == 'd') *static_cast<double*>(p) = v;
        if (type == 'f') *static_cast<float*>(p) = static_cast<float>(v);
        if (type == 'i') *static_cast<int*>(p) = static_cast<int>(v);
    }
};

// Array members: a table name and its capacity, or null.
inline double* arrayMember(tagLenPar& r, const std::string& name, int& size) {
    size = 100;
#define VRNCAL_ARRAY(m) \
    if (name == #m) return r.m;
    VRNCAL_ARRAY(XT) VRNCAL_ARRAY(YT) VRNCAL_ARRAY(XA) VRNCAL_ARRAY(YA) VRNCAL_ARRAY(XR)
    VRNCAL_ARRAY(YR) VRNCAL_ARRAY(BoxXT) VRNCAL_ARRAY(BoxYT) VRNCAL_ARRAY(BoxXA)
    VRNCAL_ARRAY(BoxYA) VRNCAL_ARRAY(BoxXR) VRNCAL_ARRAY(BoxYR)
#undef VRNCAL_ARRAY
    size = 20;
    if (name == "k") return r.CalCoefs.k;
    size = 8;
    if (name == "s") return r.CalCoefs.s;
    size = 0;
    return nullptr;
}

// Scalar members by name; an array entry as NAME and its index (k2, XT15).
inline MemberRef member(tagLenPar& r, const std::string& name) {
    tagCalCoefs& c = r.CalCoefs;
#define VRNCAL_M(m) \
    if (name == #m) return MemberRef(r.m);
#define VRNCAL_C(m) \
    if (name == #m) return MemberRef(c.m);
    VRNCAL_M(LeadScale) VRNCAL_M(FieldSize) VRNCAL_M(ValSize) VRNCAL_M(Resolution)
    VRNCAL_M(HalfResolution) VRNCAL_M(HalfResolutionSq) VRNCAL_M(LEN_XYFLIP)
    VRNCAL_M(LEN_XINVERT) VRNCAL_M(LEN_YINVERT) VRNCAL_M(BoxOffsetX) VRNCAL_M(BoxOffsetY)
    VRNCAL_M(BoxBarrelX) VRNCAL_M(BoxBarrelY) VRNCAL_M(BoxSkewX) VRNCAL_M(BoxSkewY)
    VRNCAL_M(BoxTrapX) VRNCAL_M(BoxTrapY) VRNCAL_M(BoxScaleX) VRNCAL_M(BoxScaleY)
    VRNCAL_M(BoxGrid) VRNCAL_M(BoxLineCount) VRNCAL_M(SftShiftX) VRNCAL_M(SftShiftY)
    VRNCAL_M(SftScaleX) VRNCAL_M(SftScaleY) VRNCAL_M(CalMode) VRNCAL_M(XYFlip)
    VRNCAL_M(XInvert) VRNCAL_M(YInvert) VRNCAL_M(grid) VRNCAL_M(LineCount)
    VRNCAL_C(LinX) VRNCAL_C(QuadX) VRNCAL_C(LinY) VRNCAL_C(QuadY) VRNCAL_C(AxisXL)
    VRNCAL_C(AxisXR) VRNCAL_C(AxisYT) VRNCAL_C(AxisYB) VRNCAL_C(OX) VRNCAL_C(OY) VRNCAL_C(SXL)
    VRNCAL_C(SXR) VRNCAL_C(ScaleX) VRNCAL_C(SYT) VRNCAL_C(SYB) VRNCAL_C(ScaleY) VRNCAL_C(TXL)
    VRNCAL_C(TXR) VRNCAL_C(TYT) VRNCAL_C(TYB) VRNCAL_C(PLX) VRNCAL_C(PLY) VRNCAL_C(Y2XAngle)
#undef VRNCAL_M
#undef VRNCAL_C
    // P4.RealX: calibration point 4 of the nine; S1.Size, S1.InOrder and
    // S1.P80.X: grid 1 and its point 80.
    std::size_t at = 0;
    const auto index = [&](char tag, std::size_t limit) -> long {
        if (at + 1 >= name.size() || name[at] != tag || !std::isdigit(static_cast<unsigned char>(name[at + 1])))
            return -1;
        const std::size_t dot = name.find('.', at);
        const long i = std::atol(name.c_str() + at + 1);
        at = dot == std::string::npos ? name.size() : dot + 1;
        return i < static_cast<long>(limit) ? i : -1;
    };
    tagCalData* point = nullptr;
    if (const long g = index('S', r.Stacks.size()); g >= 0) {
        tagStack& st = r.Stacks[g];
        if (name.substr(at) == "Size") return MemberRef(st.Size);
        if (name.substr(at) == "InOrder") return MemberRef(st.InOrder);
        if (const long i = index('P', st.Points.size()); i >= 0) point = &st.Points[i];
    } else if (const long i = index('P', 9); i >= 0) {
        point = &c.Cal3Pnts[i];
    }
    if (point) {
        const std::string f = name.substr(at);
        if (f == "X") return MemberRef(point->X);
        if (f == "Y") return MemberRef(point->Y);
        if (f == "RealX") return MemberRef(point->RealX);
        if (f == "RealY") return MemberRef(point->RealY);
        return MemberRef();
    }
    const std::size_t digits = name.find_first_of("0123456789");
    int size = 0;
    if (digits != std::string::npos && digits > 0) {
        double* a = arrayMember(r, name.substr(0, digits), size);
        const int i = std::atoi(name.c_str() + digits);
        if (a && i < size) return MemberRef(a[i]);
    }
    return MemberRef();
}

inline bool sameValue(double expected, double actual) {
    return (expected != expected && actual != actual) || bitsOf(expected) == bitsOf(actual);
}

inline std::string hexList(const Values& v) {
    std::string s;
    char buf[40];
    for (double x : v) {
        std::snprintf(buf, sizeof buf, " %a", x);
        s += buf;
    }
    return s;
}

// Runs every case of the file through `ops` and returns how many ran.  Each
// failure names the file and line and shows what the operation gave.  The
// records as they stand at the end go to `named` when it is given; with no
// operations at all only the records are built.
inline int runCaseFile(const std::string& path, const Ops& ops,
                       std::map<std::string, tagLenPar>* named = nullptr) {
    std::ifstream file(path);
    if (!file) {
        ADD_FAILURE() << "cannot open " << path;
        return 0;
    }
    std::string dir = ::testing::TempDir() + "vrncal_cases_XXXXXX";
    if (!mkdtemp(&dir[0])) ADD_FAILURE() << "no scratch folder";
    std::map<std::string, tagLenPar> records;
    std::string current;
    int lineNo = 0, rowsLeft = 0, cases = 0;
    std::string line;
    while (std::getline(file, line)) {
        ++lineNo;
        const std::string where = path + ":" + std::to_string(lineNo);
        line = line.substr(0, line.find('#'));
        std::istringstream in(line);
        std::vector<std::string> w;
        for (std::string s; in >> s;) w.push_back(s);
        if (w.empty()) continue;
        tagLenPar& rec = records[current];
        // A line with an arrow is an operation, whatever its first word.
        const bool isOp = std::find(w.begin(), w.end(), "->") != w.end();
        const bool isRow = !isOp && w[0] == "row";
        if (isRow != (rowsLeft > 0)) {
            ADD_FAILURE() << where << ": stack rows do not match the stack size";
            rowsLeft = 0;
            if (isRow) continue;
        }
        if (isRow) {
            tagStack& st = rec.Stacks.back();
            if (w.size() != 1 + 4 * static_cast<std::size_t>(st.Size))
                ADD_FAILURE() << where << ": a row needs " << st.Size << " points";
            for (std::size_t i = 1; i + 3 < w.size(); i += 4)
                st.Points.push_back(Call{rec, w, dir}.cal(i));
            --rowsLeft;
        } else if (!isOp && w[0] == "file" && (w.size() == 2 || w.size() == 3)) {
            std::ofstream out(dir + "/" + w[1], std::ios::binary);
            const char* eol = w.size() == 3 && w[2] == "crlf" ? "\r\n" : "\n";
            for (; std::getline(file, line) && line != "END"; ++lineNo) out << line << eol;
            ++lineNo;
        } else if (!isOp && w[0] == "record" && (w.size() == 2 || (w.size() == 3 && records.count(w[2])))) {
            current = w[1];
            records[current] = w.size() == 3 ? records[w[2]] : tagLenPar();
        } else if (!isOp && w[0] == "set" && w.size() == 3 && member(rec, w[1]).p) {
            member(rec, w[1]).set(number(w[2]));
        } else if (!isOp && w[0] == "table" && w.size() >= 3) {
            int size = 0;
            double* a = arrayMember(rec, w[1], size);
            if (!a || static_cast<int>(w.size()) - 2 > size) ADD_FAILURE() << where << ": bad table";
            for (std::size_t i = 2; a && i < w.size() && i - 2 < static_cast<std::size_t>(size); ++i)
                a[i - 2] = number(w[i]);
        } else if (!isOp && w[0] == "cal3" && w.size() == 6) {
            rec.CalCoefs.Cal3Pnts[std::atoi(w[1].c_str()) % 9] = Call{rec, w, dir}.cal(2);
        } else if (!isOp && w[0] == "reshape" && w.size() >= 2 && !rec.Stacks.empty()) {
            tagStack& st = rec.Stacks.back();
            st.Size = std::atoi(w[1].c_str());
            if (w.size() > 2) st.Points.resize(std::min(st.Points.size(), std::size_t(std::atoi(w[2].c_str()))));
        } else if (!isOp && w[0] == "stack" && (w.size() == 2 || w.size() == 3)) {
            rec.Stacks.push_back(tagStack{std::atoi(w[1].c_str()), w.size() == 3 ? std::atoi(w[2].c_str()) : 0, {}});
            rowsLeft = rec.Stacks.back().Size;
        } else if (!ops.empty()) {
            const std::size_t arrow = std::find(w.begin(), w.end(), "->") - w.begin();
            const auto op = ops.find(w[0]);
            if (arrow == w.size() || (op == ops.end() && w[0] != "get")) {
                ADD_FAILURE() << where << ": cannot read \"" << line << "\"";
                continue;
            }
            Call call{rec, std::vector<std::string>(w.begin() + 1, w.begin() + arrow), dir};
            Values got;
            if (w[0] == "get") {
                for (const std::string& m : call.args) {
                    const MemberRef ref = member(rec, m);
                    if (!ref.p && m != "Stacks") ADD_FAILURE() << where << ": no member " << m;
                    got.push_back(ref.p ? ref.get() : double(rec.Stacks.size()));
                }
            } else {
                try {
                    got = op->second(call);
                } catch (const std::exception& e) {  // too few arguments, mostly
                    ADD_FAILURE() << where << ": " << e.what();
                }
            }
            bool same = got.size() == w.size() - arrow - 1;
            for (std::size_t i = 0; same && i < got.size(); ++i)
                same = sameValue(number(w[arrow + 1 + i]), got[i]);
            if (!same) ADD_FAILURE() << where << ": " << line << "\n  gives ->" << hexList(got);
            ++cases;
        }
    }
    if (rowsLeft != 0) ADD_FAILURE() << path << ": stack rows missing at the end";
    std::filesystem::remove_all(dir);
    if (named) *named = records;
    return cases;
}

}  // namespace vrncal_test

#endif
