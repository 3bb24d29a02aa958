// The correction table text file: CBcdFile::LoadCorFile reads one into a
// record.  The INI text is read by CCfgFile's rules, keeping only the keys
// looked up below.
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "files/ini_syntax.h"
#include "files/table_file.h"
#include "math/fp.h"
#include "vrncal/bcd_file.h"
#include "vrncal/string_util.h"

using vrncal_detail::stored;

namespace {

const char* const kCoefSection = "CalCoefs";
const char* const kPointSection = "Cal3";

// The sections the table reader looks in, by index: the header keys, the
// nine points with every other key, then the grids in reading order.
const char* const kSections[8] = {"CalCoefs", "Cal3", "Cal5", "Cal9", "Cal17", "Cal33", "Cal65", "Cal25"};
const int kGridSizes[8] = {0, 0, 5, 9, 17, 33, 65, 25};

int sectionIndex(std::string_view name) {
    for (int i = 0; i < 8; ++i)
        if (name == kSections[i]) return i;
    return -1;
}

// True when text is prefix followed by a number below limit written as
// "%d" writes it (no sign, no leading zero).
bool indexedKey(std::string_view text, std::string_view prefix, long limit) {
    if (text.size() <= prefix.size() || text.size() > prefix.size() + 9) return false;
    if (text.compare(0, prefix.size(), prefix) != 0) return false;
    const std::string_view digits = text.substr(prefix.size());
    if (digits.size() > 1 && digits[0] == '0') return false;
    long v = 0;
    for (char ch : digits) {
        if (ch < '0' || ch > '9') return false;
        v = v * 10 + (ch - '0');
    }
    return v < limit;
}

// Whether the reader below ever looks up this key in this section.  Must
// list every key readCorrectionTable reads; a lookup of any other key fails
// loudly (see TableKeys::lookup).
bool tableKey(int section, std::string_view key) {
    static const char* const kHeaderKeys[] = {"ValSize", "Resolution", "LEN_XYFLIP", "LEN_XINVERT",
                                              "LEN_YINVERT", "order"};
    static const char* const kScalarKeys[] = {"grid", "AxisXL", "AxisXR", "AxisYT", "AxisYB", "TXL",
                                              "TXR", "TYT", "TYB", "SXL", "SXR", "SYT", "SYB", "OX",
                                              "OY", "PLX", "PLY", "Y2XAngle", "LineCount"};
    static const char* const kRowPrefixes[] = {"XT", "YT", "XA", "YA", "XR", "YR"};
    if (section == 0) {
        for (const char* k : kHeaderKeys)
            if (key == k) return true;
        return false;
    }
    if (section >= 2) return indexedKey(key, "PNT", static_cast<long>(kGridSizes[section]) * kGridSizes[section]);
    if (indexedKey(key, "PNT", 9) || indexedKey(key, "k", 20) || indexedKey(key, "s", 8)) return true;
    for (const char* k : kScalarKeys)
        if (key == k) return true;
    for (const char* p : kRowPrefixes)
        if (indexedKey(key, p, 100)) return true;
    return false;
}

// The number of pieces StringUtil::split would cut text into, without
// cutting it: the same scan, counting.
std::size_t countPieces(const std::string& text, const std::string& delim) {
    if (delim.empty()) return text.empty() ? 0 : 1;
    std::size_t pieces = 0;
    std::size_t start = 0;
    std::size_t pos = text.find(delim, start);
    while (pos != std::string::npos) {
        ++pieces;
        start = pos + 1;
        pos = text.find(delim, start);
    }
    if (start < text.size()) ++pieces;
    return pieces;
}

}  // namespace

namespace vrncal_detail {

void TableKeys::scan(Input& in) {
    for (Section& s : sections_) s = Section();
    LineReader lines(in);
    std::string_view line;
    bool open = false;  // a section header has been seen
    int current = -1;   // the section items go to; -1 for one not looked in
    while (lines.next(line)) {
        const IniLine kind = classifyIniLine(line);
        if (kind == IniLine::Skip) continue;
        if (kind == IniLine::Section) {
            open = true;
            current = sectionIndex(iniSectionName(line));
            // A repeated header discards what the earlier one held.
            if (current >= 0) {
                sections_[current] = Section();
                sections_[current].present = true;
            }
            continue;
        }
        if (!open || current < 0) continue;
        std::string_view key;
        std::string_view value;
        splitIniItem(line, key, value);
        if (!tableKey(current, key)) continue;
        auto& items = sections_[current].items;
        // The first occurrence of a key wins.
        if (items.find(key) != items.end()) continue;
        items.emplace(std::string(key), Entry{std::string(value), lines.lineNumber()});
    }
    lines_ = lines.lineNumber();
}

bool TableKeys::hasSection(const std::string& section) const {
    const int i = sectionIndex(section);
    return i >= 0 && sections_[i].present;
}

const TableKeys::Entry* TableKeys::find(const std::string& section, const std::string& key) const {
    const int i = sectionIndex(section);
    if (i < 0 || !sections_[i].present) return nullptr;
    const auto it = sections_[i].items.find(key);
    return it == sections_[i].items.end() ? nullptr : &it->second;
}

const TableKeys::Entry* TableKeys::lookup(const std::string& section, const std::string& key,
                                          bool integer) {
    const int i = sectionIndex(section);
    // The scan kept only the keys tableKey() lists; a lookup of another key
    // would silently read its default.
    if (i < 0 || !tableKey(i, key)) throw std::logic_error("table key not kept: [" + section + "] " + key);
    const Entry* e = find(section, key);
    if (e != nullptr) last_ = Lookup{section, key, e, integer};
    return e;
}

float TableKeys::getFloat(const std::string& section, const std::string& key, float def) {
    const Entry* e = lookup(section, key, false);
    // A value that is not a number throws ("stof"); the default is only for
    // absent keys.
    return e == nullptr ? def : std::stof(e->value);
}

int TableKeys::getInt(const std::string& section, const std::string& key, int def) {
    const Entry* e = lookup(section, key, true);
    return e == nullptr ? def : std::stoi(e->value);
}

const std::string& TableKeys::getText(const std::string& section, const std::string& key) {
    static const std::string empty;
    const Entry* e = lookup(section, key, false);
    return e == nullptr ? empty : e->value;
}

// Parses "X Y RealX RealY" split at single spaces into a point.  False when
// the text is empty or does not give exactly four fields.
bool parsePointValue(const std::string& text, std::vector<std::string>& fields, tagCalData& pt) {
    if (text.empty()) return false;
    const std::string delim(DELIMITER);
    // Two spaces in a row make an empty fifth field: such a point is
    // rejected.  Counted first, so a value of millions of fields is not cut
    // into millions of strings only to be rejected.
    if (countPieces(text, delim) != 4) return false;
    StringUtil::split(text, delim, fields);
    // strtod then narrowing, not strtof: the double rounding is part of the
    // stored values.  A field that is not a number gives 0.
    pt.X = stored(std::strtod(fields[0].c_str(), nullptr));
    pt.Y = stored(std::strtod(fields[1].c_str(), nullptr));
    pt.RealX = stored(std::strtod(fields[2].c_str(), nullptr));
    pt.RealY = stored(std::strtod(fields[3].c_str(), nullptr));
    return true;
}

int readCorrectionTable(TableKeys& cfg, tagLenPar& par) {
    // Stored at once, so they are overwritten even when the load fails below.
    par.ValSize = cfg.getFloat(kCoefSection, "ValSize", 100.0f);
    par.Resolution = cfg.getInt(kCoefSection, "Resolution", 65535);
    par.LEN_XYFLIP = par.XYFlip = cfg.getInt(kCoefSection, "LEN_XYFLIP", 0);
    par.LEN_XINVERT = par.XInvert = cfg.getInt(kCoefSection, "LEN_XINVERT", 0);
    par.LEN_YINVERT = par.YInvert = cfg.getInt(kCoefSection, "LEN_YINVERT", 0);
    const int order = vrncal_detail::truncToInt32(cfg.getFloat(kCoefSection, "order", 3.0f));

    // Every key from here on is read from "Cal3", scalars and tables too:
    // existing files place them there.
    tagCalCoefs& c = par.CalCoefs;
    std::vector<std::string> fields;
    for (int i = 0; i < 9; ++i) {
        const std::string& text = cfg.getText(kPointSection, StringUtil::format("PNT%d", i));
        tagCalData pt;
        if (!parsePointValue(text, fields, pt)) return 0;  // earlier points stay written
        c.Cal3Pnts[i] = pt;
    }

    par.grid = cfg.getInt(kPointSection, "grid", 0);
    const float halfAxis = stored(0.5 * par.ValSize);
    c.AxisXL = cfg.getFloat(kPointSection, "AxisXL", halfAxis);
    c.AxisXR = cfg.getFloat(kPointSection, "AxisXR", halfAxis);
    c.AxisYT = cfg.getFloat(kPointSection, "AxisYT", halfAxis);
    c.AxisYB = cfg.getFloat(kPointSection, "AxisYB", halfAxis);
    c.TXL = cfg.getFloat(kPointSection, "TXL", 1.0f);
    c.TXR = cfg.getFloat(kPointSection, "TXR", 1.0f);
    c.TYT = cfg.getFloat(kPointSection, "TYT", 1.0f);
    c.TYB = cfg.getFloat(kPointSection, "TYB", 1.0f);
    c.SXL = cfg.getFloat(kPointSection, "SXL", 1.0f);
    c.SXR = cfg.getFloat(kPointSection, "SXR", 1.0f);
    c.SYT = cfg.getFloat(kPointSection, "SYT", 1.0f);
    c.SYB = cfg.getFloat(kPointSection, "SYB", 1.0f);
    c.OX = cfg.getFloat(kPointSection, "OX", 0.0f);
    c.OY = cfg.getFloat(kPointSection, "OY", 0.0f);
    c.PLX = cfg.getFloat(kPointSection, "PLX", 0.0f);
    c.PLY = cfg.getFloat(kPointSection, "PLY", 0.0f);
    c.Y2XAngle = cfg.getFloat(kPointSection, "Y2XAngle", 1.5707964f);
    for (int i = 0; i < 20; ++i)
        c.k[i] = cfg.getFloat(kPointSection, StringUtil::format("k%d", i), 1.0f);
    for (int i = 0; i < 8; ++i)
        c.s[i] = cfg.getFloat(kPointSection, StringUtil::format("s%d", i), 0.0f);
    par.LineCount = cfg.getInt(kPointSection, "LineCount", 0);

    // FieldSize is not in the file: the row defaults use the record's value.
    if (par.LineCount > 1) {
        const double step = par.FieldSize / (par.LineCount - 1);
        // Only 100 rows fit; LineCount keeps the value read.
        for (int i = 0; i < par.LineCount && i <= 99; ++i) {
            const float d = stored(i * step - 0.5 * par.FieldSize);
            par.XT[i] = cfg.getFloat(kPointSection, StringUtil::format("XT%d", i), d);
            par.YT[i] = cfg.getFloat(kPointSection, StringUtil::format("YT%d", i), d);
            par.XA[i] = cfg.getFloat(kPointSection, StringUtil::format("XA%d", i), -100000.0f);
            par.YA[i] = cfg.getFloat(kPointSection, StringUtil::format("YA%d", i), -100000.0f);
            par.XR[i] = cfg.getFloat(kPointSection, StringUtil::format("XR%d", i), 1.0f);
            par.YR[i] = cfg.getFloat(kPointSection, StringUtil::format("YR%d", i), 1.0f);
        }
    }

    for (int level = 1; level <= 6; ++level) {
        const int n = CBcdFile::GetCalOrder(level);
        const std::string section = StringUtil::format("Cal%d", n);
        tagStack stack;
        stack.Size = n;
        stack.InOrder = order >= n ? 1 : 0;
        const int count = n * n;
        stack.Points.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            const std::string& text = cfg.getText(section, StringUtil::format("PNT%d", i));
            tagCalData pt;
            if (!parsePointValue(text, fields, pt)) break;
            stack.Points.push_back(pt);
        }
        // An incomplete grid is dropped silently.  Stacks is not cleared
        // first: a second load into the same record appends again.
        if (static_cast<int>(stack.Points.size()) == count) par.Stacks.push_back(std::move(stack));
    }
    return 1;
}

int loadCorrectionTable(Input& in, tagLenPar& par) {
    TableKeys keys;
    if (in.seek(0)) keys.scan(in);
    return readCorrectionTable(keys, par);
}

}  // namespace vrncal_detail

int CBcdFile::LoadCorFile(const char* path, tagLenPar& par) {
    // Raised deliberately, with the text of the std::string constructor that
    // existing hosts see for a null path.
    if (path == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
    // A missing file reads as an empty table: every read takes its default.
    vrncal_detail::Input in = vrncal_detail::Input::open(path);
    return vrncal_detail::loadCorrectionTable(in, par);
}

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

