// CCfgFile: an in-memory INI store.  Reads a whole file, answers typed
// lookups, and rewrites the whole file on every setter call.
#include "vrncal/cfg_file.h"

#include <cstdio>
#include <fstream>
#include <locale>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "files/ini_syntax.h"
#include "vrncal/string_util.h"

namespace {

// Writes a string to standard output byte for byte (keys and values may hold
// any byte, including NUL).
void putOut(const std::string& s) {
    std::fwrite(s.data(), 1, s.size(), stdout);
}

// The named locale the writer asks for.  Platforms without it fall back to
// the classic locale so that the setters still work; the writer only outputs
// text, so the choice does not change the bytes written.
std::locale writerLocale() {
    try {
        return std::locale("chs");
    } catch (const std::runtime_error&) {
        return std::locale::classic();
    }
}

}  // namespace

CCfgFile::CCfgFile() = default;

CCfgFile::~CCfgFile() { resetData(); }

void CCfgFile::setFilename(std::string path) { filename = std::move(path); }

int CCfgFile::loadItems(std::string path) {
    if (!sections.empty()) resetData();

    // An unreadable file is not reported: the first read fails and the store
    // stays empty.
    std::ifstream in(path);
    tagDataSect* current = nullptr;
    int ordinal = 0;  // shared by section and item lines
    std::string line;
    // Split at '\n' only: a CR before it stays in the line (and in the value).
    while (std::getline(in, line)) {
        const vrncal_detail::IniLine kind = vrncal_detail::classifyIniLine(line);
        if (kind == vrncal_detail::IniLine::Skip) continue;

        if (kind == vrncal_detail::IniLine::Section) {
            const std::string name(vrncal_detail::iniSectionName(line));
            std::unique_ptr<tagDataSect> sect(new tagDataSect);
            sect->index = ordinal++;
            sect->name = name;
            tagDataSect*& slot = sections[name];
            // A repeated header starts the section afresh: what was read under
            // the earlier header is discarded.
            if (slot != nullptr) {
                for (auto& item : slot->items) delete item.second;
                delete slot;
            }
            slot = sect.release();
            current = slot;
            continue;
        }

        // Keys before the first header belong nowhere.
        if (current == nullptr) continue;

        std::string_view key;
        std::string_view value;
        vrncal_detail::splitIniItem(line, key, value);
        std::unique_ptr<tagDataItem> item(new tagDataItem);
        item->index = ordinal++;  // a repeated key still takes its number
        item->key = std::string(key);
        item->value = std::string(value);
        // The first occurrence of a key wins (unlike repeated sections).
        auto inserted = current->items.emplace(item->key, item.get());
        if (inserted.second) item.release();
    }
    return 1;
}

int CCfgFile::saveItems(std::string path) {
    // An empty store leaves the file alone, not even truncating it.
    if (sections.empty()) return 1;

    // An unwritable path is not reported; the writes go nowhere.
    std::ofstream out(path, std::ios::out | std::ios::trunc);
    out.imbue(writerLocale());
    putOut("mymap contains:\n");
    for (const auto& sect : sections) {
        // Placeholders left by failed lookups are not written.
        if (sect.second == nullptr) continue;
        out << "[" << sect.first << "]" << std::endl;
        for (const auto& item : sect.second->items) {
            if (item.second == nullptr) continue;
            out << item.first << "=" << item.second->value << std::endl;
        }
    }
    return 1;
}

void CCfgFile::resetData() {
    for (auto& sect : sections) {
        if (sect.second == nullptr) continue;
        for (auto& item : sect.second->items) delete item.second;
        sect.second->items.clear();
        delete sect.second;
    }
    sections.clear();
}

void CCfgFile::listData() {
    putOut("mymap contains:\n");
    for (const auto& sect : sections) {
        if (sect.second == nullptr) continue;
        putOut(sect.first);
        putOut("=>\n");
        for (const auto& item : sect.second->items) {
            if (item.second == nullptr) continue;
            putOut("\t=>");
            putOut(item.first);
            putOut(" := ");
            putOut(item.second->value);
            putOut("\n");
        }
    }
}

namespace {

// Insert-on-access lookup: a missing section or key leaves a placeholder
// entry behind, as the existing store did.  Null when there is no record.
tagDataItem* findItem(std::map<std::string, tagDataSect*>& sections,
                      const std::string& section, const std::string& key) {
    tagDataSect* sect = sections[section];
    if (sect == nullptr) return nullptr;
    return sect->items[key];
}

}  // namespace

float CCfgFile::GetFloat(std::string section, std::string key, float def) {
    const tagDataItem* item = findItem(sections, section, key);
    if (item == nullptr) return def;
    // A value that is not a number throws ("stof"); the default is only for
    // absent keys.
    return std::stof(item->value);
}

double CCfgFile::GetDouble(std::string section, std::string key, double def) {
    const tagDataItem* item = findItem(sections, section, key);
    if (item == nullptr) return def;
    // Through the float conversion on purpose: stored tables carry single
    // precision and must read back to the same values.
    return static_cast<double>(std::stof(item->value));
}

int CCfgFile::GetInt(std::string section, std::string key, int def) {
    const tagDataItem* item = findItem(sections, section, key);
    if (item == nullptr) return def;
    return std::stoi(item->value);
}

std::string CCfgFile::GetString(std::string section, std::string key, std::string def) {
    const tagDataItem* item = findItem(sections, section, key);
    if (item == nullptr) return def;
    return item->value;  // unchanged, a trailing CR included
}

namespace {

void setValue(std::map<std::string, tagDataSect*>& sections, const std::string& section,
              const std::string& key, const std::string& value) {
    tagDataSect*& sect = sections[section];
    if (sect == nullptr) {
        std::unique_ptr<tagDataSect> fresh(new tagDataSect);  // index -1, name empty
        std::unique_ptr<tagDataItem> item(new tagDataItem);
        item->key = key;
        item->value = value;
        tagDataItem*& slot = fresh->items[key];
        slot = item.release();
        sect = fresh.release();
        return;
    }
    tagDataItem*& item = sect->items[key];
    if (item == nullptr) {
        std::unique_ptr<tagDataItem> fresh(new tagDataItem);  // index -1
        fresh->key = key;
        item = fresh.release();
    }
    item->value = value;
}

}  // namespace

void CCfgFile::SetInt(std::string section, std::string key, int value) {
    setValue(sections, section, key, StringUtil::format("%lld", static_cast<long long>(value)));
    saveItems(filename);  // every change rewrites the whole file
}

void CCfgFile::SetString(std::string section, std::string key, std::string value) {
    setValue(sections, section, key, value);
    saveItems(filename);
}

void CCfgFile::SetFloat(std::string section, std::string key, float value) {
    // Fixed six decimals, never an exponent ("2.500000").
    setValue(sections, section, key, StringUtil::format("%Lf", static_cast<long double>(value)));
    saveItems(filename);
}

void CCfgFile::SetDouble(std::string section, std::string key, double value) {
    setValue(sections, section, key, StringUtil::format("%Lf", static_cast<long double>(value)));
    saveItems(filename);
}
