// Box parameters read through the library's INI store, and the output files
// that appear whole or not at all.
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "workflow/atomic_file.h"
#include "workflow/calfile.h"

namespace vrncal::workflow {
namespace {

// Bad box files are tested through the tool (tests/tools/cases/correct.cases).
class BoxFile : public ::testing::Test {
protected:
    void TearDown() override { std::remove(path_.c_str()); }
    // One file per process: ctest runs the tests of this fixture in parallel.
    const std::string path_ = ::testing::TempDir() + "box_test_" + std::to_string(::getpid()) + ".ini";
};

TEST_F(BoxFile, SetsFactorsAndTableRows) {
    std::ofstream(path_) << "[Box]\nBoxScaleX=50\nBoxGrid=1\nBoxLineCount=3\nBoxXT2=40\nBoxYR0 = 1.5\n";
    tagLenPar par;
    apply_box_file(path_, par);
    EXPECT_EQ(par.BoxScaleX, 50.0);
    EXPECT_EQ(par.BoxScaleY, 100.0);
    EXPECT_EQ(par.BoxGrid, 1);
    EXPECT_EQ(par.BoxLineCount, 3);
    EXPECT_EQ(par.BoxXT[2], 40.0);
    EXPECT_EQ(par.BoxYR[0], 1.5);
}

TEST(AtomicFile, AppearsOnlyOnCommitWithTheUsualMode) {
    const std::string target = ::testing::TempDir() + "atomic_" + std::to_string(::getpid()) + ".txt";
    std::remove(target.c_str());
    {
        AtomicFile f(target);
        std::fputs("half", f.stream());
    }  // destroyed without commit
    EXPECT_FALSE(std::ifstream(target).good());
    {
        AtomicFile f(target);
        std::fputs("whole", f.stream());
        f.commit();
    }
    EXPECT_EQ(read_file(target), "whole");
    struct stat st {};
    ASSERT_EQ(::stat(target.c_str(), &st), 0);
    const mode_t mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(st.st_mode & 0777, 0666u & ~mask);
    std::remove(target.c_str());
}

}  // namespace
}  // namespace vrncal::workflow
