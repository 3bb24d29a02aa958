#include "files/input.h"

#include <sys/stat.h>

#include <cstring>
#include <utility>

namespace vrncal_detail {

namespace {

constexpr std::size_t kChunk = 64 * 1024;

}  // namespace

Input::~Input() {
    if (file_ != nullptr) std::fclose(file_);
}

Input::Input(Input&& other) noexcept
    : file_(std::exchange(other.file_, nullptr)),
      inMemory_(std::exchange(other.inMemory_, false)),
      data_(std::move(other.data_)),
      pos_(std::exchange(other.pos_, 0)) {}

Input& Input::operator=(Input&& other) noexcept {
    if (this != &other) {
        if (file_ != nullptr) std::fclose(file_);
        file_ = std::exchange(other.file_, nullptr);
        inMemory_ = std::exchange(other.inMemory_, false);
        data_ = std::move(other.data_);
        pos_ = std::exchange(other.pos_, 0);
    }
    return *this;
}

Input Input::open(const char* path) {
    Input in;
    if (path == nullptr) return in;
    std::FILE* f = std::fopen(path, "rb");
    if (f == nullptr) return in;
    struct stat st;
    if (::fstat(fileno(f), &st) == 0 && S_ISREG(st.st_mode)) {
        in.file_ = f;
        return in;
    }
    // A stream can be read once only: take all of it now.  A directory reads
    // as empty (its reads fail), as it did when it was read line by line.
    std::string bytes;
    std::string chunk(kChunk, '\0');
    try {
        for (;;) {
            const std::size_t got = std::fread(&chunk[0], 1, chunk.size(), f);
            bytes.append(chunk, 0, got);
            if (got < chunk.size()) break;
        }
    } catch (...) {
        std::fclose(f);
        throw;
    }
    std::fclose(f);
    return fromBytes(std::move(bytes));
}

Input Input::openInPlace(const char* path) {
    Input in;
    if (path != nullptr) in.file_ = std::fopen(path, "rb");
    return in;
}

Input Input::fromBytes(std::string bytes) {
    Input in;
    in.inMemory_ = true;
    in.data_ = std::move(bytes);
    return in;
}

std::size_t Input::read(void* dst, std::size_t n) {
    if (n == 0) return 0;
    if (inMemory_) {
        const std::int64_t size = static_cast<std::int64_t>(data_.size());
        if (pos_ >= size) return 0;
        const std::size_t avail = static_cast<std::size_t>(size - pos_);
        const std::size_t got = n < avail ? n : avail;
        std::memcpy(dst, data_.data() + pos_, got);
        pos_ += static_cast<std::int64_t>(got);
        return got;
    }
    if (file_ == nullptr) return 0;
    const std::size_t got = std::fread(dst, 1, n, file_);
    pos_ += static_cast<std::int64_t>(got);
    return got;
}

bool Input::seek(std::int64_t offset) {
    if (offset < 0) return false;
    if (inMemory_) {
        pos_ = offset;
        return true;
    }
    if (file_ == nullptr || std::fseek(file_, static_cast<long>(offset), SEEK_SET) != 0) return false;
    pos_ = offset;
    return true;
}

std::int64_t Input::length() {
    if (inMemory_) return static_cast<std::int64_t>(data_.size());
    if (file_ == nullptr) return -1;
    const long here = std::ftell(file_);
    if (here < 0 || std::fseek(file_, 0, SEEK_END) != 0) return -1;
    const long end = std::ftell(file_);
    if (std::fseek(file_, here, SEEK_SET) != 0) return -1;
    return end;
}

bool LineReader::refill() {
    if (eof_) return false;
    chunk_.resize(kChunk);
    const std::size_t got = in_.read(&chunk_[0], chunk_.size());
    chunk_.resize(got);
    chunkPos_ = 0;
    if (got == 0) eof_ = true;
    return got > 0;
}

bool LineReader::next(std::string_view& line) {
    if (in_.inMemory()) {
        const std::string_view data = in_.bytes();
        if (!started_) {
            started_ = true;
            const std::int64_t at = in_.position();
            memPos_ = at < static_cast<std::int64_t>(data.size()) ? static_cast<std::size_t>(at)
                                                                  : data.size();
        }
        if (memPos_ >= data.size()) return false;
        const std::size_t nl = data.find('\n', memPos_);
        const std::size_t end = nl == std::string_view::npos ? data.size() : nl;
        line = data.substr(memPos_, end - memPos_);
        memPos_ = nl == std::string_view::npos ? data.size() : nl + 1;
        ++number_;
        return true;
    }
    line_.clear();
    for (;;) {
        if (chunkPos_ >= chunk_.size() && !refill()) break;
        const char* at = chunk_.data() + chunkPos_;
        const std::size_t avail = chunk_.size() - chunkPos_;
        const void* nl = std::memchr(at, '\n', avail);
        if (nl != nullptr) {
            const std::size_t len = static_cast<std::size_t>(static_cast<const char*>(nl) - at);
            line_.append(at, len);
            chunkPos_ += len + 1;
            ++number_;
            line = line_;
            return true;
        }
        line_.append(at, avail);
        chunkPos_ = chunk_.size();
    }
    // The last line without '\n' counts unless it is empty.
    if (line_.empty()) return false;
    ++number_;
    line = line_;
    return true;
}

}  // namespace vrncal_detail
