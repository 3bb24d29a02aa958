#include "workflow/atomic_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "workflow/error.h"

namespace vrncal::workflow {

namespace {

std::string sys_error() { return std::strerror(errno); }

}  // namespace

AtomicFile::AtomicFile(std::string target) : target_(std::move(target)) {
    // The temporary file sits beside the target so that the rename stays on
    // one file system and is atomic.
    std::string pattern = target_ + ".tmpXXXXXX";
    const int fd = ::mkstemp(pattern.data());
    if (fd < 0) throw Error(target_ + ": cannot write: " + sys_error());
    temp_ = pattern;
    // mkstemp creates the file private (0600); give the result the mode any
    // newly created file would get.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
    file_ = ::fdopen(fd, "wb");
    if (file_ == nullptr) {
        ::close(fd);
        std::remove(temp_.c_str());
        throw Error(target_ + ": cannot write: " + sys_error());
    }
}

AtomicFile::~AtomicFile() {
    if (file_ != nullptr) std::fclose(file_);
    if (!committed_) std::remove(temp_.c_str());
}

void AtomicFile::close_stream() {
    if (file_ == nullptr) return;
    const bool failed = std::ferror(file_) != 0;
    const bool close_failed = std::fclose(file_) != 0;
    file_ = nullptr;
    if (failed || close_failed) throw Error(target_ + ": write failed: " + sys_error());
}

void AtomicFile::commit() {
    close_stream();
    if (std::rename(temp_.c_str(), target_.c_str()) != 0)
        throw Error(target_ + ": cannot write: " + sys_error());
    committed_ = true;
}

void require_readable(const std::string& path) {
    std::error_code ec;
    const auto st = std::filesystem::status(path, ec);
    if (!std::filesystem::exists(st)) throw Error(path + ": no such file");
    if (std::filesystem::is_directory(st)) throw Error(path + ": is a directory, not a file");
    std::ifstream in(path, std::ios::binary);
    if (!in) throw Error(path + ": cannot open: " + sys_error());
}

std::string read_file(const std::string& path) {
    require_readable(path);
    std::ifstream in(path, std::ios::binary);
    if (!in) throw Error(path + ": cannot open: " + sys_error());
    std::ostringstream ss;
    ss << in.rdbuf();
    if (in.bad()) throw Error(path + ": read failed");
    return ss.str();
}

bool is_data_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    char magic[7] = {};
    in.read(magic, 7);
    return in.gcount() == 7 && std::memcmp(magic, "VRNCLDT", 7) == 0;
}

}  // namespace vrncal::workflow
