// vrncal::replaceFile and vrncal::save: a file is either the old one or the
// complete new one, whatever fails on the way.
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

#include "files/data_file.h"
#include "vrncal/file_io.h"

namespace vrncal {

namespace {

// A failure: the file system's reason, with what was being done.
struct Failure {
    std::string what;
    bool failed() const { return !what.empty(); }
};

Failure sysFailure(const std::string& doing, int err) {
    return Failure{doing + ": " + std::strerror(err)};
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

// The path a chain of symbolic links ends at (the path itself when it is not
// a link); the last element need not exist.
Failure resolveLinks(std::string& path) {
    for (int hops = 0;; ++hops) {
        struct stat st;
        if (::lstat(path.c_str(), &st) != 0) {
            if (errno == ENOENT) return Failure{};
            return sysFailure("cannot reach", errno);
        }
        if (!S_ISLNK(st.st_mode)) return Failure{};
        if (hops == 40) return sysFailure("cannot reach", ELOOP);
        std::string link(256, '\0');
        for (;;) {
            const ssize_t n = ::readlink(path.c_str(), &link[0], link.size());
            if (n < 0) return sysFailure("cannot read the link", errno);
            if (static_cast<std::size_t>(n) < link.size()) {
                link.resize(static_cast<std::size_t>(n));
                break;
            }
            link.resize(link.size() * 2);
        }
        if (!link.empty() && link[0] == '/')
            path = link;
        else
            path = (path.find('/') == std::string::npos ? std::string() : folderOf(path) + "/") + link;
    }
}

Failure writeAll(int fd, std::string_view bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return sysFailure("write failed", errno);
        if (n == 0) return sysFailure("write failed", EIO);
        done += static_cast<std::size_t>(n);
    }
    return Failure{};
}

// Writes into a device or FIFO as it is: such a file cannot be replaced.
Failure writeInto(const std::string& path, bool fifo, std::string_view bytes) {
    // Non-blocking open: a FIFO without a reader fails at once (ENXIO)
    // instead of waiting; the writes themselves block as usual.
    const int fd = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        if (fifo && errno == ENXIO) return Failure{"cannot write: a FIFO with no reader"};
        return sysFailure("cannot write", errno);
    }
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0) ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    Failure f = writeAll(fd, bytes);
    if (::close(fd) != 0 && !f.failed()) f = sysFailure("write failed", errno);
    return f;
}

// Six characters for a temporary name.
std::string randomSuffix() {
    static const char kAlphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    unsigned char raw[6] = {};
    if (::getrandom(raw, sizeof raw, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof raw)) {
        unsigned long long v = static_cast<unsigned long long>(::getpid()) * 2654435761u ^
                               static_cast<unsigned long long>(std::clock()) ^
                               static_cast<unsigned long long>(std::time(nullptr));
        for (unsigned char& b : raw) {
            b = static_cast<unsigned char>(v);
            v = v * 6364136223846793005ull + 1442695040888963407ull;
        }
    }
    std::string s;
    for (unsigned char b : raw) s += kAlphabet[b % (sizeof kAlphabet - 1)];
    return s;
}

// A temporary file in the target's folder.  Unnamed (O_TMPFILE) where the
// file system allows, so that nothing is left if the process dies while it
// writes; named "TARGET.tmpXXXXXX" otherwise.
class TempFile {
public:
    explicit TempFile(const std::string& target) : target_(target), folder_(folderOf(target)) {}
    ~TempFile() {
        if (fd_ >= 0) ::close(fd_);
        if (!name_.empty()) ::unlink(name_.c_str());
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    Failure create() {
        // An unnamed file can be given its name later only through /proc (or
        // with root's privileges).
        if (::access("/proc/self/fd", X_OK) == 0 || ::geteuid() == 0) {
            fd_ = ::open(folder_.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
            if (fd_ >= 0) return Failure{};
        } else {
            errno = EOPNOTSUPP;
        }
        // Only "not supported here" falls back to a named file; a folder that
        // is missing or not writable fails either way.
        if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)
            return sysFailure("cannot create a temporary file in " + folder_, errno);
        for (int attempt = 0; attempt < 100; ++attempt) {
            const std::string name = target_ + ".tmp" + randomSuffix();
            fd_ = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (fd_ >= 0) {
                name_ = name;
                return Failure{};
            }
            if (errno != EEXIST) break;
        }
        return sysFailure("cannot create a temporary file in " + folder_, errno);
    }

    int fd() const { return fd_; }

    // Closes the file, names it beside the target if it has no name yet, and
    // renames it over the target.
    Failure commit() {
        if (name_.empty()) {
            const std::string self = "/proc/self/fd/" + std::to_string(fd_);
            int err = 0;
            for (int attempt = 0; attempt < 100 && name_.empty(); ++attempt) {
                const std::string name = target_ + ".tmp" + randomSuffix();
                // Through /proc without privileges; by descriptor with them.
                if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0 ||
                    (errno != EEXIST && ::linkat(fd_, "", AT_FDCWD, name.c_str(), AT_EMPTY_PATH) == 0)) {
                    name_ = name;
                    break;
                }
                err = errno;
                if (err != EEXIST) break;
            }
            if (name_.empty()) return sysFailure("cannot create a temporary file in " + folder_, err);
        }
        const int fd = fd_;
        fd_ = -1;
        if (::close(fd) != 0) return sysFailure("write failed", errno);
        if (::rename(name_.c_str(), target_.c_str()) != 0) return sysFailure("cannot replace the file", errno);
        name_.clear();
        // The rename itself reaches the disk with the folder; best effort.
        const int dir = ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (dir >= 0) {
            ::fsync(dir);
            ::close(dir);
        }
        return Failure{};
    }

private:
    std::string target_;
    std::string folder_;
    std::string name_;  // the temporary file's name once it has one
    int fd_ = -1;
};

Failure replace(const std::string& path, std::string_view bytes) {
    struct stat st;
    const bool exists = ::stat(path.c_str(), &st) == 0;
    if (!exists && errno != ENOENT) return sysFailure("cannot write", errno);
    if (exists) {
        if (S_ISCHR(st.st_mode) || S_ISFIFO(st.st_mode)) return writeInto(path, S_ISFIFO(st.st_mode), bytes);
        if (S_ISDIR(st.st_mode)) return Failure{"cannot write: is a directory"};
        if (!S_ISREG(st.st_mode))
            return Failure{S_ISBLK(st.st_mode) ? "cannot write: a block device, not a regular file"
                                               : "cannot write: not a regular file"};
        // A file the caller may not write, or that nobody may (even where
        // root could), is not replaced behind its back.
        if (::access(path.c_str(), W_OK) != 0) return sysFailure("cannot write", errno);
        if ((st.st_mode & 0222) == 0) return Failure{"cannot write: the file is read-only"};
    }

    std::string target = path;
    Failure f = resolveLinks(target);
    if (f.failed()) return f;

    TempFile temp(target);
    f = temp.create();
    if (f.failed()) return f;
    f = writeAll(temp.fd(), bytes);
    if (f.failed()) return f;
    if (exists) {
        // The replacement keeps the old file's permissions, and its owner
        // where the caller may give it (root).
        ::fchmod(temp.fd(), st.st_mode & 07777);
        if (::geteuid() == 0 && ::fchown(temp.fd(), st.st_uid, st.st_gid) == 0)
            ::fchmod(temp.fd(), st.st_mode & 07777);
    }
    if (::fsync(temp.fd()) != 0) return sysFailure("write failed", errno);
    return temp.commit();
}

}  // namespace

SaveResult replaceFile(const std::string& path, std::string_view bytes) {
    SaveResult r;
    try {
        if (path.empty()) {
            r.message = "no file named";
            return r;
        }
        const Failure f = replace(path, bytes);
        r.ok = !f.failed();
        if (!r.ok) r.message = path + ": " + f.what;
    } catch (...) {
        r.ok = false;
        try {
            r.message = path + ": out of memory";
        } catch (...) {
            r.message.clear();
        }
    }
    return r;
}

SaveResult save(const std::string& path, const tagLenPar& par) {
    try {
        return replaceFile(path, vrncal_detail::dataFileBytes(par));
    } catch (...) {
        SaveResult r;
        try {
            r.message = path + ": out of memory";
        } catch (...) {
        }
        return r;
    }
}

SaveResult save(const char* path, const tagLenPar& par) {
    if (path == nullptr) {
        SaveResult r;
        r.message = "no file named";
        return r;
    }
    return save(std::string(path), par);
}

}  // namespace vrncal
