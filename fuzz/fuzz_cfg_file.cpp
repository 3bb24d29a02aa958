// The INI store on arbitrary text, with lookups of whatever it parsed.
#include <exception>

#include <vrncal/vrncal.h>

#include "alloc_guard.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzFile file(data, size);
    if (!file.ok()) return 0;
    CCfgFile cfg;
    {
        // The store keeps every line as a record of its own: about 160
        // bytes for the shortest line, never more than that per byte.
        vrncal_check::AllocGuard guard(size, 128.0);
        cfg.loadItems(file.path());
    }
    std::vector<std::pair<std::string, std::string>> keys;
    for (const auto& sect : cfg.sections)
        if (sect.second)
            for (const auto& item : sect.second->items) keys.emplace_back(sect.first, item.first);
    for (const auto& k : keys) {
        try {
            cfg.GetFloat(k.first, k.second, 0.0f);
            cfg.GetInt(k.first, k.second, 0);
        } catch (const std::exception&) {
        }
        cfg.GetString(k.first, k.second, "");
    }
    return 0;
}
