#include "workflow/memory_file.h"

#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "workflow/error.h"

namespace vrncal::workflow {

MemoryFile::MemoryFile(std::string_view bytes) {
    fd_ = ::memfd_create("vrncal", MFD_CLOEXEC);
    if (fd_ < 0) throw Error(std::string("cannot hold a file in memory: ") + std::strerror(errno));
    path_ = "/proc/self/fd/" + std::to_string(fd_);
    if (::access(path_.c_str(), W_OK) != 0) {
        ::close(fd_);
        throw Error("cannot reach a file held in memory through " + path_ + ": " + std::strerror(errno));
    }
    try {
        if (!bytes.empty()) assign(bytes);
    } catch (...) {
        ::close(fd_);
        throw;
    }
}

MemoryFile::~MemoryFile() { ::close(fd_); }

void MemoryFile::assign(std::string_view bytes) {
    if (::ftruncate(fd_, 0) != 0) throw Error(std::string("cannot hold a file in memory: ") + std::strerror(errno));
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t n = ::pwrite(fd_, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) throw Error(std::string("write failed: ") + std::strerror(n < 0 ? errno : EIO));
        done += static_cast<std::size_t>(n);
    }
}

std::string MemoryFile::bytes() const {
    struct stat st;
    if (::fstat(fd_, &st) != 0) throw Error(std::string("cannot hold a file in memory: ") + std::strerror(errno));
    std::string s(static_cast<std::size_t>(st.st_size), '\0');
    for (std::size_t done = 0; done < s.size();) {
        const ssize_t n = ::pread(fd_, &s[done], s.size() - done, static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) throw Error(std::string("cannot read a file held in memory: ") + std::strerror(n < 0 ? errno : EIO));
        done += static_cast<std::size_t>(n);
    }
    return s;
}

}  // namespace vrncal::workflow
