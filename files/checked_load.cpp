// vrncal::load: the calibration loader for hosts that want a message rather
// than an exception or a silently partial record.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "files/data_file.h"
#include "files/table_file.h"
#include "vrncal/calib_alg.h"
#include "vrncal/file_io.h"
#include "vrncal/string_util.h"

namespace vrncal {

namespace {

using vrncal_detail::DataFileReport;
using vrncal_detail::DataRead;
using vrncal_detail::Input;
using vrncal_detail::TableKeys;

// A value echoed in a message: at most 40 bytes, control bytes escaped.
std::string quoted(const std::string& value) {
    std::string out = "'";
    const std::size_t limit = 40;
    for (std::size_t i = 0; i < value.size() && i < limit; ++i) {
        const unsigned char ch = static_cast<unsigned char>(value[i]);
        if (ch == '\r')
            out += "\\r";
        else if (ch == '\t')
            out += "\\t";
        else if (ch < 0x20 || ch == 0x7f)
            out += StringUtil::format("\\x%02x", ch);
        else
            out += static_cast<char>(ch);
    }
    if (value.size() > limit) out += "...";
    return out + "'";
}

const char* fileKind(mode_t mode) {
    if (S_ISDIR(mode)) return "a directory";
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode)) return "a character device";
    if (S_ISBLK(mode)) return "a block device";
    if (S_ISSOCK(mode)) return "a socket";
    return "not a regular file";
}

// Reads the whole regular file at path into bytes, never more than max
// bytes.  Returns the problem, empty on success.
std::string readBounded(const char* path, std::uint64_t max, std::string& bytes) {
    // Non-blocking, so that opening a FIFO does not wait for a writer.
    const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return std::string("cannot open: ") + std::strerror(errno);
    struct stat st;
    std::string problem;
    if (::fstat(fd, &st) != 0) {
        problem = std::string("cannot open: ") + std::strerror(errno);
    } else if (!S_ISREG(st.st_mode)) {
        problem = std::string("not a regular file (") + fileKind(st.st_mode) + ")";
    } else if (static_cast<std::uint64_t>(st.st_size) > max) {
        problem = StringUtil::format("%llu bytes, more than the limit of %llu bytes",
                                     static_cast<unsigned long long>(st.st_size),
                                     static_cast<unsigned long long>(max));
    } else {
        bytes.reserve(static_cast<std::size_t>(st.st_size));
        char chunk[65536];
        for (;;) {
            const ssize_t got = ::read(fd, chunk, sizeof chunk);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) {
                problem = std::string("read error: ") + std::strerror(errno);
                break;
            }
            if (got == 0) break;
            if (bytes.size() + static_cast<std::size_t>(got) > max) {
                problem = StringUtil::format("grew beyond the limit of %llu bytes while it was read",
                                             static_cast<unsigned long long>(max));
                break;
            }
            bytes.append(chunk, static_cast<std::size_t>(got));
        }
    }
    ::close(fd);
    return problem;
}

// Why a data file that the described loader accepts is not whole; empty
// when it is.
std::string dataFileDamage(const DataFileReport& r) {
    if (r.length < 4100)
        return StringUtil::format(
            "data file cut short: it ends at byte %lld, inside the header (which ends at byte 4100)",
            static_cast<long long>(r.length));
    if (r.length < r.tableEnd)
        return StringUtil::format(
            "data file cut short: it ends at byte %lld, inside the line table (which ends at byte %lld)",
            static_cast<long long>(r.length), static_cast<long long>(r.tableEnd));
    if (r.declared >= 1 && r.kept < r.declared) {
        if (r.negativeSize)
            return StringUtil::format(
                "damaged data file: grid %lld of %d, at byte %lld, has a negative size",
                static_cast<long long>(r.kept), r.declared, static_cast<long long>(r.stopOffset));
        return StringUtil::format(
            "data file cut short: it lists %d grids but holds %lld whole (it ends at byte %lld; grid "
            "%lld starts at byte %lld)",
            r.declared, static_cast<long long>(r.kept), static_cast<long long>(r.length),
            static_cast<long long>(r.kept), static_cast<long long>(r.stopOffset));
    }
    return std::string();
}

// Why a table that the described loader refuses was refused: the first of
// the nine points that is missing or malformed.
void explainMissingPoints(const std::string& path, std::string_view bytes, const TableKeys& keys,
                          LoadResult& r) {
    if (bytes.empty()) {
        r.message = path + ": empty file";
        return;
    }
    r.section = "Cal3";
    if (!keys.hasSection("Cal3")) {
        const bool binary = bytes.find('\0') != std::string_view::npos;
        r.message = path + (binary ? ": neither a data file (no VRNCLDT magic) nor a correction table"
                                   : ": not a correction table: no [Cal3] section with the nine "
                                     "points PNT0 to PNT8");
        return;
    }
    std::vector<std::string> fields;
    for (int i = 0; i < 9; ++i) {
        const std::string key = StringUtil::format("PNT%d", i);
        const TableKeys::Entry* e = keys.find("Cal3", key);
        tagCalData pt;
        if (e == nullptr) {
            r.key = key;
            r.message = path + ": [Cal3] " + key + " is missing (the nine points PNT0 to PNT8 are required)";
            return;
        }
        if (!vrncal_detail::parsePointValue(e->value, fields, pt)) {
            r.key = key;
            r.line = e->line;
            r.message = StringUtil::format("%s:%llu: [Cal3] %s: ", path.c_str(),
                                           static_cast<unsigned long long>(e->line), key.c_str()) +
                        (e->value.empty() ? std::string("empty")
                                          : quoted(e->value) +
                                                " is not four numbers separated by single spaces");
            return;
        }
    }
    r.message = path + ": not a correction table";
}

// The conversion error of the last value looked up.
void explainConversion(const std::string& path, const TableKeys& keys, bool outOfRange, LoadResult& r) {
    const TableKeys::Lookup& at = keys.lastLookup();
    if (at.entry == nullptr) {
        r.message = path + ": a value is not a number";
        return;
    }
    r.section = at.section;
    r.key = at.key;
    r.line = at.entry->line;
    const char* what = at.integer ? (outOfRange ? "is out of the integer range" : "is not an integer")
                                  : (outOfRange ? "is out of the float range" : "is not a number");
    r.message = StringUtil::format("%s:%llu: [%s] %s: ", path.c_str(),
                                   static_cast<unsigned long long>(r.line), at.section.c_str(),
                                   at.key.c_str()) +
                quoted(at.entry->value) + " " + what;
}

// Loads bytes as the described loader would into par; fills r.
void loadBytes(const std::string& path, std::string bytes, tagLenPar& par, LoadResult& r) {
    Input in = Input::fromBytes(std::move(bytes));
    DataFileReport report;
    switch (vrncal_detail::readDataFile(in, par, &report)) {
        case DataRead::RefusedVersion:
            r.format = FileFormat::DataFile;
            r.message = path + ": data file version '3' is not supported";
            return;
        case DataRead::Loaded: {
            r.format = FileFormat::DataFile;
            const std::string damage = dataFileDamage(report);
            if (!damage.empty()) {
                r.message = path + ": " + damage;
                return;
            }
            r.ok = true;
            return;
        }
        case DataRead::NotDataFile: break;
    }

    r.format = FileFormat::CorrectionTable;
    TableKeys keys;
    in.seek(0);
    keys.scan(in);
    int loaded = 0;
    try {
        loaded = vrncal_detail::readCorrectionTable(keys, par);
    } catch (const std::invalid_argument&) {
        explainConversion(path, keys, false, r);
        return;
    } catch (const std::out_of_range&) {
        explainConversion(path, keys, true, r);
        return;
    }
    if (!loaded) {
        explainMissingPoints(path, in.bytes(), keys, r);
        return;
    }
    CCalibAlg::MVLSMCoef(par);
    r.ok = true;
}

// Replaces r by a failure; if even the message cannot be built, the result
// is a failure without one.
void failed(LoadResult& r, const char* path, const char* what) noexcept {
    r.ok = false;
    r.format = FileFormat::Unknown;
    r.line = 0;
    try {
        r.section.clear();
        r.key.clear();
        r.message = std::string(path) + ": " + what;
    } catch (...) {
        r.message.clear();
    }
}

}  // namespace

const char* formatName(FileFormat format) {
    switch (format) {
        case FileFormat::DataFile: return "data file";
        case FileFormat::CorrectionTable: return "correction table";
        case FileFormat::Unknown: break;
    }
    return "unknown";
}

LoadResult load(const char* path, tagLenPar& par, const LoadOptions& options) {
    LoadResult r;
    if (path == nullptr || *path == '\0') {
        r.message = "no calibration file named";
        return r;
    }
    try {
        std::string bytes;
        const std::string problem = readBounded(path, options.maxBytes, bytes);
        if (!problem.empty()) {
            r.message = std::string(path) + ": " + problem;
            return r;
        }
        // Loaded into a copy, so that a failure leaves the record as it was.
        // The copy starts from the record, as the described loader does (its
        // FieldSize and the members no file stores carry over); the grids are
        // set aside first, since every load empties them.
        std::vector<tagStack> grids;
        grids.swap(par.Stacks);
        tagLenPar work(par);
        grids.swap(par.Stacks);
        loadBytes(path, std::move(bytes), work, r);
        if (r.ok) par = std::move(work);
    } catch (const std::bad_alloc&) {
        failed(r, path, "out of memory");
    } catch (const std::exception& e) {
        failed(r, path, e.what());
    } catch (...) {
        failed(r, path, "unexpected error");
    }
    return r;
}

LoadResult load(const std::string& path, tagLenPar& par, const LoadOptions& options) {
    return load(path.c_str(), par, options);
}

}  // namespace vrncal
