// Raw binary reading and writing at fixed file offsets, shared by the
// calibration data file and the base-parameter file.
//
// Both files hold the host's own in-memory representation: little-endian
// two's-complement integers and IEEE 754 reals, copied byte for byte.
#ifndef VRNCAL_FILES_BINARY_IO_H
#define VRNCAL_FILES_BINARY_IO_H

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>

#include "files/input.h"

#if defined(__BYTE_ORDER__) && defined(__ORDER_LITTLE_ENDIAN__)
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "the calibration files are little-endian and copied as the host's bytes");
#endif
static_assert(sizeof(int) == 4 && sizeof(double) == 8 && sizeof(float) == 4,
              "the calibration files hold 32-bit integers and 64-bit reals");

namespace vrncal_detail {

// Owns a FILE* for the length of one call.
class FileHandle {
public:
    FileHandle(const char* path, const char* mode)
        : file_(path != nullptr ? std::fopen(path, mode) : nullptr) {}
    ~FileHandle() {
        if (file_ != nullptr) std::fclose(file_);
    }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    std::FILE* get() const { return file_; }
    explicit operator bool() const { return file_ != nullptr; }

    // Closes now; the result of the close is deliberately not reported.
    void close() {
        if (file_ != nullptr) std::fclose(file_);
        file_ = nullptr;
    }

private:
    std::FILE* file_;
};

// Sequential reader with a sticky failure: once a seek or a read comes up
// short, every later read fails too, so a file that ends early is read "as
// far as it goes".  A value cut by the end of the file takes the bytes that
// are present over what it held, as a stream read leaves it.
class BinaryReader {
public:
    explicit BinaryReader(Input& in) : in_(in) {}

    bool ok() const { return ok_; }
    void fail() { ok_ = false; }
    std::int64_t position() const { return in_.position(); }

    bool seek(std::int64_t offset) {
        if (!ok_) return false;
        if (!in_.seek(offset)) return ok_ = false;
        return true;
    }

    // Length of the file in bytes, or -1 when it cannot be told.  Leaves the
    // read position where it was.
    std::int64_t length() {
        if (!ok_) return -1;
        return in_.length();
    }

    // Reads n bytes into dst; true when all n were there.  On a short read
    // the bytes that were there are in dst and the rest is untouched.
    bool readRaw(void* dst, std::size_t n) {
        if (!ok_) return false;
        if (in_.read(dst, n) != n) return ok_ = false;
        return true;
    }

    template <typename T>
    bool read(T& v) {
        static_assert(std::is_trivially_copyable<T>::value, "raw values only");
        return readRaw(&v, sizeof v);
    }

private:
    Input& in_;
    bool ok_ = true;
};

// Builds a file's bytes at absolute offsets.  Seeking past the end and
// writing there leaves the skipped bytes zero, which is how every unlisted
// byte of the files comes to be zero; a later write over earlier bytes
// replaces them, as it would in a file.
class BinaryWriter {
public:
    void seek(std::size_t offset) { pos_ = offset; }

    void writeRaw(const void* src, std::size_t n) {
        if (n == 0) return;
        if (bytes_.size() < pos_ + n) bytes_.resize(pos_ + n, '\0');
        std::memcpy(&bytes_[pos_], src, n);
        pos_ += n;
    }

    template <typename T>
    void write(const T& v) {
        static_assert(std::is_trivially_copyable<T>::value, "raw values only");
        writeRaw(&v, sizeof v);
    }

    const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
    std::size_t pos_ = 0;
};

}  // namespace vrncal_detail

#endif
