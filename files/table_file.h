// Internal: the correction table text file read from an opened input.
//
// The table is read by the INI rules of CCfgFile, but only the values of the
// keys the table reader looks up are kept (with the number of the line each
// came from): a table costs memory in proportion to those values, not to
// every line of the file.
#ifndef VRNCAL_FILES_TABLE_FILE_H
#define VRNCAL_FILES_TABLE_FILE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "files/input.h"
#include "vrncal/records.h"

namespace vrncal_detail {

class TableKeys {
public:
    // One kept key=value line.
    struct Entry {
        std::string value;
        std::uint64_t line = 0;
    };
    // The last lookup that found a value: where a conversion error came from.
    struct Lookup {
        std::string section;
        std::string key;
        const Entry* entry = nullptr;
        bool integer = false;  // read as an int, not as a float
    };

    // Reads the input from its current position to its end.  A later
    // section header of the same name discards what the earlier one held; a
    // repeated key keeps its first value.
    void scan(Input& in);

    // CCfgFile's typed lookups: def when the section or the key is absent;
    // std::stof / std::stoi of the value otherwise, whose exceptions escape.
    float getFloat(const std::string& section, const std::string& key, float def);
    int getInt(const std::string& section, const std::string& key, int def);
    // GetString with the empty default, without a copy of the value.
    const std::string& getText(const std::string& section, const std::string& key);

    // The entry of a key, null when absent; does not count as a lookup.
    const Entry* find(const std::string& section, const std::string& key) const;
    bool hasSection(const std::string& section) const;

    const Lookup& lastLookup() const { return last_; }
    std::uint64_t lineCount() const { return lines_; }

private:
    struct Section {
        bool present = false;
        std::map<std::string, Entry, std::less<>> items;
    };
    const Entry* lookup(const std::string& section, const std::string& key, bool integer);

    Section sections_[8];
    Lookup last_;
    std::uint64_t lines_ = 0;
};

// Parses a point value "X Y RealX RealY" (fields split at DELIMITER, each
// read with strtod and rounded to float).  False unless it gives exactly four
// fields.  A value with more fields is rejected before it is split.
bool parsePointValue(const std::string& text, std::vector<std::string>& fields, tagCalData& pt);

// CBcdFile::LoadCorFile on scanned keys: fills the record and returns 1, or 0
// when one of the nine points of [Cal3] is missing or malformed.
int readCorrectionTable(TableKeys& keys, tagLenPar& par);

// Scans the input from its start and reads it as a correction table.
int loadCorrectionTable(Input& in, tagLenPar& par);

}  // namespace vrncal_detail

#endif
