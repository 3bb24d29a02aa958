#include "workflow/atomic_file.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

#include "workflow/error.h"

namespace vrncal::workflow {

namespace {

// The temporary files that have a name, for the signal handler: fixed slots
// that it can read without allocating.
constexpr int kSlots = 8;
constexpr std::size_t kNameBytes = 4096;
char g_names[kSlots][kNameBytes];
volatile std::sig_atomic_t g_used[kSlots];

int register_name(const std::string& name) {
    if (name.size() >= kNameBytes) return -1;
    for (int i = 0; i < kSlots; ++i)
        if (!g_used[i]) {
            std::memcpy(g_names[i], name.c_str(), name.size() + 1);
            g_used[i] = 1;
            return i;
        }
    return -1;
}

void unregister_name(const std::string& name) {
    for (int i = 0; i < kSlots; ++i)
        if (g_used[i] && name == g_names[i]) g_used[i] = 0;
}

extern "C" void remove_and_reraise(int sig) {
    for (int i = 0; i < kSlots; ++i)
        if (g_used[i]) ::unlink(g_names[i]);
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

std::string folder_of(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The path a chain of symbolic links ends at; the last one need not exist.
std::string follow_links(const std::string& target) {
    std::string path = target;
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st;
        if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
        std::string link(4096, '\0');
        const ssize_t n = ::readlink(path.c_str(), link.data(), link.size());
        if (n < 0 || static_cast<std::size_t>(n) == link.size())
            throw Error(target + ": cannot follow the symbolic link: " + std::strerror(n < 0 ? errno : ENAMETOOLONG));
        link.resize(static_cast<std::size_t>(n));
        path = link[0] == '/' || path.find('/') == std::string::npos ? link : folder_of(path) + "/" + link;
    }
    throw Error(target + ": cannot follow the symbolic link: " + std::strerror(ELOOP));
}

std::string temp_name(const std::string& resolved) {
    static thread_local std::mt19937_64 gen{std::random_device{}()};
    return fmt::format("{}.tmp{:06x}", resolved, gen() & 0xffffff);
}

}  // namespace

AtomicFile::AtomicFile(std::string target, const std::vector<std::string>& inputs) : target_(std::move(target)) {
    for (const auto& in : inputs)
        if (same_file(in, target_))
            throw Error(target_ + ": is also an input of this command and would be replaced; name another output");
    struct stat st;
    bool exists = ::stat(target_.c_str(), &st) == 0;
    if (exists && (S_ISFIFO(st.st_mode) || S_ISCHR(st.st_mode))) {
        // Opened through the name as given, so that a link the kernel
        // resolves itself (/dev/stdout) reaches what it names.
        resolved_ = target_;
    } else {
        resolved_ = follow_links(target_);
        exists = ::stat(resolved_.c_str(), &st) == 0;
        if (!exists && errno != ENOENT) throw Error(target_ + ": cannot write: " + std::strerror(errno));
    }
    folder_ = folder_of(resolved_);
    mode_t mode = 0;
    if (exists) {
        if (S_ISDIR(st.st_mode)) throw Error(target_ + ": is a directory");
        if (S_ISFIFO(st.st_mode) || S_ISCHR(st.st_mode)) {
            // Opened without waiting: a FIFO nobody reads is refused rather
            // than waited for (as the library's replaceFile does); the
            // writes themselves block as usual.
            const int fd = ::open(resolved_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
            if (fd < 0 && errno == ENXIO && S_ISFIFO(st.st_mode))
                throw Error(target_ + ": is a FIFO that nothing reads; not written");
            if (fd < 0) throw Error(target_ + ": cannot write: " + std::strerror(errno));
            if (const int flags = ::fcntl(fd, F_GETFL); flags >= 0) ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
            file_ = ::fdopen(fd, "wb");
            if (file_ == nullptr) {
                const int err = errno;
                ::close(fd);
                fail("cannot write", err);
            }
            direct_ = true;
            return;
        }
        if (!S_ISREG(st.st_mode)) throw Error(target_ + ": is not a regular file, a FIFO or a device; not written");
        if ((st.st_mode & 0222) == 0)
            throw Error(fmt::format("{}: is read-only (mode {:04o}); not replaced", target_, st.st_mode & 07777));
        if (::access(resolved_.c_str(), W_OK) != 0) throw Error(target_ + ": cannot write: " + std::strerror(errno));
        mode = st.st_mode & 07777;
    } else {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        mode = 0666 & ~mask;
    }
    // Unnamed where the file system allows (and /proc is there to name it
    // at the end): an interrupted command then leaves nothing behind,
    // whatever ends it.
    int fd = -1;
    if (::access("/proc/self/fd", X_OK) == 0)
        fd = ::open(folder_.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    else
        errno = EOPNOTSUPP;
    if (fd < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
        for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
            const std::string name = temp_name(resolved_);
            fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
            if (fd >= 0) {
                temp_ = name;
                register_name(temp_);
            } else if (errno != EEXIST) {
                break;
            }
        }
    }
    if (fd < 0) fail("cannot create a temporary file in " + folder_, errno);
    file_ = ::fdopen(fd, "wb");
    if (file_ == nullptr) {
        const int err = errno;
        ::close(fd);
        fail("cannot create a temporary file in " + folder_, err);
    }
    if (::fchmod(fd, mode) != 0) fail("cannot set the mode of the temporary file", errno);
    if (exists && ::geteuid() == 0 && (st.st_uid != 0 || st.st_gid != 0) && ::fchown(fd, st.st_uid, st.st_gid) != 0)
        fail("cannot give the temporary file the owner of the old one", errno);
}

AtomicFile::~AtomicFile() { discard(); }

void AtomicFile::discard() {
    if (file_ != nullptr) std::fclose(file_);
    file_ = nullptr;
    if (!committed_ && !temp_.empty()) {
        ::unlink(temp_.c_str());
        unregister_name(temp_);
        temp_.clear();
    }
}

void AtomicFile::fail(const std::string& what, int err) {
    const std::string message = fmt::format("{}: {}: {}", target_, what, std::strerror(err));
    discard();
    throw Error(message);
}

void AtomicFile::write(std::string_view bytes) {
    if (file_ == nullptr) throw Error(target_ + ": write after the file was closed");
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size())
        fail("write failed", errno);
}

void AtomicFile::commit() {
    if (file_ == nullptr) throw Error(target_ + ": committed twice");
    if (std::fflush(file_) != 0) fail("write failed", errno);
    // A write through stream() that failed earlier leaves the error flag.
    if (std::ferror(file_)) fail("write failed", EIO);
    const int fd = ::fileno(file_);
    if (!direct_ && ::fsync(fd) != 0) fail("write failed", errno);
    if (!direct_ && temp_.empty()) {
        // Give the unnamed file a name beside the target, then rename it.
        const std::string self = "/proc/self/fd/" + std::to_string(fd);
        int err = EEXIST;
        for (int attempt = 0; attempt < 100 && err == EEXIST; ++attempt) {
            const std::string name = temp_name(resolved_);
            register_name(name);
            if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
                temp_ = name;
                err = 0;
            } else {
                err = errno;
                unregister_name(name);
            }
        }
        if (err != 0) fail("cannot create a temporary file in " + folder_, err);
    }
    std::FILE* f = file_;
    file_ = nullptr;
    if (std::fclose(f) != 0) fail("write failed", errno);
    if (direct_) {
        committed_ = true;
        return;
    }
    if (::rename(temp_.c_str(), resolved_.c_str()) != 0) fail("cannot replace the file", errno);
    unregister_name(temp_);
    committed_ = true;
    // The rename reaches the disk with the folder; best effort.
    const int dir = ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
}

void write_file(const std::string& path, std::string_view bytes, const std::vector<std::string>& inputs) {
    AtomicFile file(path, inputs);
    file.write(bytes);
    file.commit();
}

bool same_file(const std::string& a, const std::string& b) {
    struct stat sa, sb;
    return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

void remove_temporary_files_on_signals() {
    struct sigaction sa {};
    sa.sa_handler = remove_and_reraise;
    sigemptyset(&sa.sa_mask);
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old {};
        // A signal the caller's parent chose to ignore stays ignored.
        if (::sigaction(sig, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
        ::sigaction(sig, &sa, nullptr);
    }
}

}  // namespace vrncal::workflow
