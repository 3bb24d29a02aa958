// Box parameters read through the library's INI store.
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

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

}  // namespace
}  // namespace vrncal::workflow
