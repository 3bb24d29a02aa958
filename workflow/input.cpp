#include "workflow/input.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vrncal/cfg_file.h>

#include "workflow/error.h"

namespace vrncal::workflow {

namespace {

// An open descriptor on a regular file that passed the checks.
class InputFd {
public:
    InputFd(const std::string& path, std::uint64_t max_bytes) {
        // Non-blocking, so that opening a FIFO does not wait for a writer;
        // it is refused below in any case.
        fd_ = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
        if (fd_ < 0) {
            if (errno == ENOENT) throw Error(path + ": no such file");
            throw Error(path + ": cannot open: " + std::strerror(errno));
        }
        struct stat st;
        if (::fstat(fd_, &st) != 0) fail(path + ": cannot open: " + std::strerror(errno));
        if (S_ISDIR(st.st_mode)) fail(path + ": is a directory, not a file");
        if (S_ISFIFO(st.st_mode)) fail(path + ": is a FIFO, not a regular file");
        if (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode)) fail(path + ": is a device, not a regular file");
        if (!S_ISREG(st.st_mode)) fail(path + ": is not a regular file");
        size_ = static_cast<std::uint64_t>(st.st_size);
        if (size_ > max_bytes)
            fail(fmt::format("{}: is {}, more than the {} this input may have", path, byte_size(size_),
                             byte_size(max_bytes)));
    }
    ~InputFd() { ::close(fd_); }
    InputFd(const InputFd&) = delete;
    InputFd& operator=(const InputFd&) = delete;

    int fd() const { return fd_; }
    std::uint64_t size() const { return size_; }

private:
    [[noreturn]] void fail(const std::string& message) {
        ::close(fd_);
        throw Error(message);
    }
    int fd_ = -1;
    std::uint64_t size_ = 0;
};

}  // namespace

void check_input_file(const std::string& path, std::uint64_t max_bytes) { InputFd check(path, max_bytes); }

std::string read_file(const std::string& path, std::uint64_t max_bytes) {
    InputFd in(path, max_bytes);
    // The file may grow while it is read: read at most one byte beyond the
    // bound, to tell.
    std::string bytes(static_cast<std::size_t>(in.size()) + 1, '\0');
    std::size_t got = 0;
    for (;;) {
        if (got == bytes.size()) {
            if (got > max_bytes) break;
            bytes.resize(std::min<std::uint64_t>(bytes.size() * 2, max_bytes + 1));
        }
        const ssize_t n = ::read(in.fd(), &bytes[got], bytes.size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw Error(path + ": read failed: " + std::strerror(errno));
        if (n == 0) break;
        got += static_cast<std::size_t>(n);
    }
    if (got > max_bytes)
        throw Error(fmt::format("{}: grew beyond the {} this input may have while it was read", path,
                                byte_size(max_bytes)));
    bytes.resize(got);
    return bytes;
}

void load_ini(const std::string& path, std::uint64_t max_bytes, CCfgFile& cfg) {
    check_input_file(path, max_bytes);
    cfg.loadItems(path);
}

bool is_data_file(std::string_view bytes) { return bytes.substr(0, 7) == "VRNCLDT"; }

std::string echo_token(std::string_view token, std::size_t max_chars) {
    std::string s;
    for (std::size_t i = 0; i < token.size() && i < max_chars; ++i) {
        const auto c = static_cast<unsigned char>(token[i]);
        if (c == '\t')
            s += "\\t";
        else
            s += c < 0x20 || c >= 0x7f ? '?' : static_cast<char>(c);
    }
    if (token.size() > max_chars) s += "...";
    return s;
}

std::string byte_size(std::uint64_t bytes) {
    if (bytes < 1024) return fmt::format("{} bytes", bytes);
    if (bytes < (std::uint64_t{1} << 20)) return fmt::format("{:.4g} KiB", static_cast<double>(bytes) / 1024.0);
    return fmt::format("{:.4g} MiB", static_cast<double>(bytes) / 1048576.0);
}

}  // namespace vrncal::workflow
