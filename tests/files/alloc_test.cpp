// Memory a load costs against the size of the file.  Every operator new of
// the process goes through the counter below, which keeps the live bytes and
// their peak; each case measures the peak above what was live before the
// load, for files built to cost the most: a data file that lists INT_MAX
// grids, one huge grid, a point value of a million fields, a table of
// thousands of keys nobody reads, the largest grid section repeated.
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "file_bytes.h"
#include "vrncal/vrncal.h"

namespace {

std::size_t g_live = 0;
std::size_t g_peak = 0;

// Each block carries its size in front of it.
constexpr std::size_t kHeader = alignof(std::max_align_t);

void* allocate(std::size_t n) {
    void* p = std::malloc(n + kHeader);
    if (p == nullptr) return nullptr;
    *static_cast<std::size_t*>(p) = n;
    g_live += n;
    if (g_live > g_peak) g_peak = g_live;
    return static_cast<char*>(p) + kHeader;
}

void release(void* p) {
    if (p == nullptr) return;
    char* block = static_cast<char*>(p) - kHeader;
    g_live -= *reinterpret_cast<std::size_t*>(block);
    std::free(block);
}

}  // namespace

void* operator new(std::size_t n) {
    if (void* p = allocate(n)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t n) { return operator new(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return allocate(n); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return allocate(n); }
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }

namespace {

using vrncal_test::Bytes;
using vrncal_test::putValue;

class AllocTest : public vrncal_test::TempDirTest {
protected:
    // Peak bytes above the start while f runs.
    template <typename F>
    static std::size_t peakOf(F&& f) {
        const std::size_t start = g_live;
        g_peak = g_live;
        f();
        return g_peak - start;
    }

    // Writes the file and checks both loaders: the described one within
    // `factor` bytes per byte of the file (plus 256 KiB of fixed buffers and
    // tables), vrncal::load within one more (it holds the file itself).
    void expectWithin(const std::string& name, const std::string& bytes, double factor) {
        const std::string p = path(name.c_str());
        vrncal_test::writeBytes(p, Bytes(bytes.begin(), bytes.end()));
        const double size = static_cast<double>(bytes.size());
        const double slack = 256.0 * 1024;
        const std::size_t described = peakOf([&] {
            tagLenPar par;
            try {
                CBcdFile::LoadBcdFile(p.c_str(), par);
            } catch (const std::exception&) {
            }
        });
        const std::size_t checked = peakOf([&] {
            tagLenPar par;
            vrncal::load(p, par);
        });
        EXPECT_LE(described, factor * size + slack) << name << ": " << described / size << " x";
        EXPECT_LE(checked, (factor + 1) * size + slack) << name << ": " << checked / size << " x";
    }
};

constexpr std::size_t kMiB = 1024 * 1024;

std::string nineTable() {
    std::string t = "[CalCoefs]\nValSize=80\norder=65\n[Cal3]\n";
    for (int i = 0; i < 9; ++i)
        t += "PNT" + std::to_string(i) + "=" + std::to_string((i % 3 - 1) * 40) + " " +
             std::to_string((1 - i / 3) * 40) + " 0 0\n";
    return t;
}

TEST_F(AllocTest, DataFilesCostAtMostFourTimesTheirSize) {
    // INT_MAX grids listed, each record an empty 8-byte grid: each becomes a
    // 32-byte entry of the record's grid list, which the record must hold.
    Bytes b(4 * kMiB, 0);
    std::memcpy(b.data(), "VRNCLDT", 7);
    putValue<std::int32_t>(b, 60000, INT32_MAX);
    expectWithin("empty-grids.dat", std::string(b.begin(), b.end()), 4.0);

    // One grid as large as the file: its points cost what they take on disk.
    b.assign(64000 + 8 + 500 * 500 * 16, 0);
    std::memcpy(b.data(), "VRNCLDT", 7);
    putValue<std::int32_t>(b, 60000, 1);
    putValue<std::int32_t>(b, 64000, 500);
    expectWithin("one-grid.dat", std::string(b.begin(), b.end()), 1.0);
}

TEST_F(AllocTest, TablesCostAtMostThreeTimesTheirSize) {
    std::string fields;
    for (int i = 0; i < 1000000; ++i) fields += "1 ";
    expectWithin("long-point.cor", nineTable() + "[Cal9]\nPNT0=" + fields + "\n", 3.0);

    std::string junk = nineTable();
    for (int i = 0; junk.size() < 4 * kMiB; ++i) junk += "x" + std::to_string(i) + "=1\n";
    expectWithin("unread-keys.cor", junk, 3.0);

    std::string grids = nineTable();
    while (grids.size() < 4 * kMiB) {
        grids += "[Cal65]\n";
        for (int i = 0; i < 65 * 65; ++i) grids += "PNT" + std::to_string(i) + "=1 2 3 4\n";
    }
    expectWithin("repeated-grids.cor", grids, 3.0);
}

}  // namespace
