// CCfgFile: a small sectioned key=value text store.
//
// It reads a whole INI-style file into memory, answers typed lookups with a
// caller-supplied default, and rewrites the whole file on every change made
// through a setter.  The parsing rules are deliberately minimal (no trimming,
// no quoting, no escapes); calibration files in the field are written to
// match them:
//   - only a ';' in the first column starts a comment;
//   - a '[' line names the section by its text between the first and the
//     last character (trailing CRs removed first); the ']' is not checked;
//   - keys and values are not trimmed, and a value from a CRLF file keeps its
//     CR; a line without '=' is kept with the whole line as key and value;
//   - a repeated section header discards the earlier section, a repeated key
//     keeps its first value.
//
// Lookups insert an empty entry (a null record) for a missing section or key
// and return the default.  A value that is not a number raises
// std::invalid_argument, one out of range std::out_of_range ("stof" or
// "stoi"); GetDouble converts through float, so it carries single precision.
//
// Behaviour chosen where callers could otherwise crash or leak:
//   - the null entries left by failed lookups are skipped by listData and
//     saveItems; a store holding only such entries writes an empty file;
//   - the writer uses the named locale "chs" where the platform has it and
//     the classic locale otherwise (it writes text only, so the bytes are the
//     same either way);
//   - records pushed out by a repeated section header or key are freed at
//     once.
//
// saveItems (and so every setter) prints the trace line "mymap contains:" to
// standard output; listData prints the whole store there.
#ifndef VRNCAL_CFG_FILE_H
#define VRNCAL_CFG_FILE_H

#include <map>
#include <string>

#include "vrncal/export.h"

// One key=value line.
struct tagDataItem {
    int index = -1;  // running ordinal in the loaded file; -1 when set by a setter
    std::string key;
    std::string value;
};

// One section.
struct tagDataSect {
    int index = -1;    // running ordinal in the loaded file; -1 when set by a setter
    std::string name;  // as read; empty for a section created by a setter
    std::map<std::string, tagDataItem*> items;
};

class VRNCAL_API CCfgFile {
public:
    std::string filename;
    std::map<std::string, tagDataSect*> sections;

    CCfgFile();
    ~CCfgFile();
    CCfgFile(const CCfgFile&) = delete;
    CCfgFile& operator=(const CCfgFile&) = delete;

    void setFilename(std::string path);
    int loadItems(std::string path);
    int saveItems(std::string path);
    void resetData();
    void listData();

    float GetFloat(std::string section, std::string key, float def);
    double GetDouble(std::string section, std::string key, double def);
    int GetInt(std::string section, std::string key, int def);
    std::string GetString(std::string section, std::string key, std::string def);

    void SetInt(std::string section, std::string key, int value);
    void SetString(std::string section, std::string key, std::string value);
    void SetFloat(std::string section, std::string key, float value);
    void SetDouble(std::string section, std::string key, double value);
};

#endif
