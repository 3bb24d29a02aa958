// Hands fuzz input to a loader that takes a path: the bytes go to an
// in-memory file reached through /proc/self/fd.
#ifndef VRNCAL_FUZZ_INPUT_H
#define VRNCAL_FUZZ_INPUT_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

class FuzzFile {
public:
    FuzzFile(const uint8_t* data, size_t size) : fd_(memfd_create("vrncal-fuzz", 0)) {
        if (fd_ >= 0 && size > 0 && write(fd_, data, size) != static_cast<ssize_t>(size)) {
            close(fd_);
            fd_ = -1;
        }
        if (fd_ >= 0) path_ = "/proc/self/fd/" + std::to_string(fd_);
    }
    ~FuzzFile() {
        if (fd_ >= 0) close(fd_);
    }
    bool ok() const { return fd_ >= 0; }
    const char* path() const { return path_.c_str(); }

private:
    int fd_;
    std::string path_;
};

#endif
