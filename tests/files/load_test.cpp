// vrncal::load, save and replaceFile: hostile and special files give one
// message and leave the record and the files as they were; good files give
// the described loader's record; the described loader reads a stream once.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "file_bytes.h"
#include "fuzz/record_bits.h"
#include "vrncal/vrncal.h"

namespace {

using vrncal_check::recordBits;
using vrncal_test::Bytes;
using vrncal_test::putValue;
using vrncal_test::readBytes;
using vrncal_test::writeBytes;

const std::string kHostile = std::string(VRNCAL_TEST_DATA) + "/hostile/";
const std::string kSample = std::string(VRNCAL_TEST_DATA) + "/../../examples/sample.cor";

class LoadTest : public vrncal_test::TempDirTest {
protected:
    // The record a load starts from, distinct from every default.
    static tagLenPar before() {
        tagLenPar par;
        par.FieldSize = 123.0;
        par.CalMode = 7;
        par.Stacks.push_back(tagStack{2, 1, std::vector<tagCalData>(4)});
        return par;
    }

    // vrncal::load refuses path with exactly path + expected and leaves the
    // record untouched.
    static void expectRefused(const std::string& path, const std::string& expected,
                              const vrncal::LoadOptions& options = vrncal::LoadOptions()) {
        tagLenPar par = before();
        vrncal::LoadResult r;
        EXPECT_NO_THROW(r = vrncal::load(path, par, options)) << path;
        EXPECT_FALSE(r.ok) << path;
        EXPECT_EQ(r.message, path + expected);
        EXPECT_EQ(recordBits(par), recordBits(before())) << path;
    }

    // A data file saved from the sample, as bytes.
    Bytes sampleData() {
        tagLenPar par;
        EXPECT_TRUE(VrnCal().loadUcf(kSample.c_str(), par));
        EXPECT_TRUE(vrncal::save(path("sample.dat"), par));
        return readBytes(path("sample.dat"));
    }
};

TEST_F(LoadTest, HostileTablesAreRefusedWithTheLineAndKey) {
    std::ifstream list(kHostile + "expected.txt");
    std::string line;
    int cases = 0;
    while (std::getline(list, line)) {
        if (line.empty() || line[0] == '#') continue;
        const std::size_t tab = line.find('\t');
        ASSERT_NE(tab, std::string::npos) << line;
        expectRefused(kHostile + line.substr(0, tab), line.substr(tab + 1));
        ++cases;
    }
    EXPECT_EQ(cases, 15);
}

TEST_F(LoadTest, DamagedDataFilesAreRefused) {
    const Bytes good = sampleData();
    ASSERT_EQ(good.size(), 64000u + 2 * 8 + (81 + 289) * 16);
    struct Case {
        std::function<void(Bytes&)> damage;
        std::string expected;
    };
    const Case cases[] = {
        {[](Bytes& b) { b[7] = '3'; }, ": data file version '3' is not supported"},
        {[](Bytes& b) { b.resize(7); },
         ": data file cut short: it ends at byte 7, inside the header (which ends at byte 4100)"},
        {[](Bytes& b) {
             putValue<std::int32_t>(b, 34, 3);
             b.resize(4120);
         },
         ": data file cut short: it ends at byte 4120, inside the line table (which ends at byte 4196)"},
        {[](Bytes& b) { b.resize(b.size() - 1); },
         ": data file cut short: it lists 2 grids but holds 1 whole (it ends at byte 69935; grid 1 starts "
         "at byte 65304)"},
        {[](Bytes& b) { putValue<std::int32_t>(b, 60000, INT_MAX); },
         ": data file cut short: it lists 2147483647 grids but holds 2 whole (it ends at byte 69936; "
         "grid 2 starts at byte 69936)"},
        {[](Bytes& b) { putValue<std::int32_t>(b, 65304, -17); },
         ": damaged data file: grid 1 of 2, at byte 65304, has a negative size"},
        {[](Bytes& b) { putValue<std::int32_t>(b, 64000, 100000); },
         ": data file cut short: it lists 2 grids but holds 0 whole (it ends at byte 69936; grid 0 "
         "starts at byte 64000)"},
    };
    int n = 0;
    for (const Case& c : cases) {
        Bytes b = good;
        c.damage(b);
        const std::string p = path(("damaged" + std::to_string(n++)).c_str());
        writeBytes(p, b);
        expectRefused(p, c.expected);
    }
}

TEST_F(LoadTest, SpecialFilesAreRefusedWithoutReading) {
    const std::string fifo = path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    expectRefused(fifo, ": not a regular file (a FIFO)");  // returns at once: no writer needed
    expectRefused(dir_, ": not a regular file (a directory)");
    expectRefused(path("missing"), ": cannot open: No such file or directory");
    vrncal::LoadOptions small;
    small.maxBytes = 1000;
    expectRefused(kSample, StringUtil::format(": %llu bytes, more than the limit of 1000 bytes",
                                              static_cast<unsigned long long>(
                                                  std::filesystem::file_size(kSample))),
                  small);
    tagLenPar par;
    EXPECT_EQ(vrncal::load(nullptr, par).message, "no calibration file named");
}

TEST_F(LoadTest, GoodFilesGiveTheDescribedLoadersRecord) {
    sampleData();
    const std::string link = path("link.cor");
    std::filesystem::create_symlink(kSample, link);
    // A table whose quirks the described loader reads silently still loads.
    const std::string quirky = path("quirky.cor");
    std::string text((std::istreambuf_iterator<char>(std::ifstream(kSample).rdbuf())), {});
    writeBytes(quirky, Bytes(text.begin(), text.end()));
    std::ofstream(quirky, std::ios::app) << "[Cal5]\nPNT0=1 2 3 4\n[CalCoefs]\nValSize = 7\n";
    for (const std::string& p : {kSample, path("sample.dat"), link, quirky}) {
        tagLenPar expected = before();
        tagLenPar actual = before();
        ASSERT_TRUE(CBcdFile::LoadBcdFile(p.c_str(), expected)) << p;
        const vrncal::LoadResult r = vrncal::load(p, actual);
        EXPECT_TRUE(r.ok) << r.message;
        EXPECT_EQ(r.message, "");
        EXPECT_EQ(r.format, p == path("sample.dat") ? vrncal::FileFormat::DataFile
                                                     : vrncal::FileFormat::CorrectionTable);
        EXPECT_EQ(recordBits(actual), recordBits(expected)) << p;
    }
}

// The described loader opens a path once: a FIFO that carries a whole file
// loads as the file itself does (it used to block on a second open).
TEST_F(LoadTest, DescribedLoaderReadsAFifoOnce) {
    const Bytes data = sampleData();
    const Bytes table = readBytes(kSample);
    const std::string fifo = path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const Bytes* content : {&table, &data}) {
        std::thread writer([&] { writeBytes(fifo, *content); });
        tagLenPar fromFifo;
        const bool loaded = VrnCal().loadUcf(fifo.c_str(), fromFifo);
        writer.join();
        tagLenPar fromFile;
        writeBytes(path("copy"), *content);
        ASSERT_TRUE(VrnCal().loadUcf(path("copy").c_str(), fromFile));
        EXPECT_TRUE(loaded);
        EXPECT_EQ(recordBits(fromFifo), recordBits(fromFile));
    }
}

TEST_F(LoadTest, SaveWritesTheDescribedBytesAndKeepsTheFileItReplaces) {
    tagLenPar par;
    ASSERT_TRUE(VrnCal().loadUcf(kSample.c_str(), par));
    ASSERT_TRUE(CBcdFile::SaveBcdFile(path("described.dat").c_str(), par));
    const std::string target = path("target.dat");
    writeBytes(target, Bytes{1, 2, 3});
    ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
    const std::string link = path("link.dat");
    std::filesystem::create_symlink("target.dat", link);

    const vrncal::SaveResult r = vrncal::save(link, par);
    EXPECT_TRUE(r.ok) << r.message;
    EXPECT_TRUE(std::filesystem::is_symlink(link));  // the link stays, its target is replaced
    EXPECT_EQ(readBytes(target), readBytes(path("described.dat")));
    struct stat st;
    ASSERT_EQ(::stat(target.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_), {}), 3);  // no temporary left
}

TEST_F(LoadTest, FailedWritesKeepTheOldFileAndSayWhy) {
    const std::string old = path("old.dat");
    writeBytes(old, Bytes(100, 7));
    const auto refused = [&](const std::string& p, const std::string& expected) {
        const vrncal::SaveResult r = vrncal::replaceFile(p, std::string(5000, 'x'));
        EXPECT_FALSE(r.ok);
        EXPECT_EQ(r.message, p + expected);
        EXPECT_EQ(readBytes(old), Bytes(100, 7));
    };
    // Past the file-size limit, with SIGXFSZ ignored as the tool does.
    struct rlimit saved;
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
    struct rlimit small = saved;
    small.rlim_cur = 4096;
    void (*previous)(int) = ::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    refused(old, ": write failed: File too large");
    ::setrlimit(RLIMIT_FSIZE, &saved);
    ::signal(SIGXFSZ, previous);

    ASSERT_EQ(::chmod(old.c_str(), 0444), 0);
    refused(old, ": cannot write: the file is read-only");
    refused(dir_, ": cannot write: is a directory");
    refused(path("no/such/dir/x.dat"), ": cannot create a temporary file in " + path("no/such/dir") +
                                           ": No such file or directory");
    const std::string fifo = path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    refused(fifo, ": cannot write: a FIFO with no reader");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_), {}), 2);  // old.dat and the FIFO
    EXPECT_TRUE(vrncal::replaceFile("/dev/null", "data").ok);  // a device is written into
}

TEST(Version, LibraryAndHeaderAgree) {
    const vrncal::VersionNumbers v = vrncal::versionNumbers();
    EXPECT_EQ(std::to_string(v.major) + "." + std::to_string(v.minor) + "." + std::to_string(v.patch),
              vrncal::version());
    EXPECT_STREQ(vrncal::version(), VRNCAL_VERSION_STRING);
}

}  // namespace
