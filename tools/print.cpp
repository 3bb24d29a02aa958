#include "print.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "errors.h"

namespace vrncal::tools {

namespace {

[[noreturn]] void stdout_failed(int err) {
    // Whatever is still buffered cannot be written either.
    std::clearerr(stdout);
    throw ToolError(err != 0 ? std::string("standard output: write failed: ") + std::strerror(err)
                             : std::string("standard output: write failed"));
}

void lines(const char* prefix, const std::string& text) {
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t nl = text.find('\n', start);
        const std::string_view line(text.data() + start, (nl == std::string::npos ? text.size() : nl) - start);
        if (!line.empty()) std::fprintf(stderr, "vrncal: %s%.*s\n", prefix, static_cast<int>(line.size()), line.data());
        if (nl == std::string::npos) break;
        start = nl + 1;
    }
}

}  // namespace

void write_stdout(std::string_view text) {
    errno = 0;
    if (!text.empty() && std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) stdout_failed(errno);
}

void finish_stdout() {
    errno = 0;
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) stdout_failed(errno);
}

void warn(const std::string& text) { lines("warning: ", text); }
void note(const std::string& text) { lines("note: ", text); }
void print_error(const std::string& message) { lines("", message); }

}  // namespace vrncal::tools
