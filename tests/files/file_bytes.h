// Byte-level access to the binary calibration files for the file tests.
#ifndef VRNCAL_TESTS_FILE_BYTES_H
#define VRNCAL_TESTS_FILE_BYTES_H

#include <stdlib.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vrncal_test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeBytes(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

template <typename T>
T valueAt(const Bytes& b, std::size_t offset) {
    T v{};
    if (offset + sizeof v <= b.size()) std::memcpy(&v, b.data() + offset, sizeof v);
    return v;
}

template <typename T>
void putValue(Bytes& b, std::size_t offset, T v) {
    if (b.size() < offset + sizeof v) b.resize(offset + sizeof v);
    std::memcpy(b.data() + offset, &v, sizeof v);
}

// A value at `offset` after a read cut at `cut`: new when all its bytes are
// in the file, old when none are, the present bytes over the old value when
// the cut falls inside it (as a stream read leaves it).
template <typename T>
T cutValue(const T& now, const T& old, std::size_t offset, std::size_t cut) {
    if (cut >= offset + sizeof(T)) return now;
    if (cut <= offset) return old;
    T v = old;
    std::memcpy(static_cast<void*>(&v), &now, cut - offset);
    return v;
}

// True when bytes [from, to) are all zero.
inline bool zeroRange(const Bytes& b, std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to && i < b.size(); ++i)
        if (b[i] != 0) return false;
    return to <= b.size();
}

inline Bytes slice(const Bytes& b, std::size_t from, std::size_t n) {
    return Bytes(b.begin() + static_cast<std::ptrdiff_t>(from),
                 b.begin() + static_cast<std::ptrdiff_t>(from + n));
}

// A fresh directory under the test temp dir, removed with the fixture.
class TempDirTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string tmpl = ::testing::TempDir() + "vrncal_files_XXXXXX";
        ASSERT_NE(mkdtemp(&tmpl[0]), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }
    std::string path(const char* name) const { return dir_ + "/" + name; }

    std::string dir_;
};

}  // namespace vrncal_test

#endif
