// Box parameters read through the library's INI store.
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "workflow/calfile.h"
#include "workflow/error.h"

namespace vrncal::workflow {
namespace {

class BoxFile : public ::testing::Test {
protected:
    std::string error(const std::string& text) {
        std::ofstream(path_) << text;
        tagLenPar par;
        try {
            apply_box_file(path_, par);
        } catch (const Error& e) {
            return e.what();
        }
        return "no error";
    }
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

TEST_F(BoxFile, RejectsWhatTheCorrectionCannotUse) {
    EXPECT_EQ(error("[Box]\nBoxXT100=1\n"), path_ + ": [Box] BoxXT100: row must be 0 to 99");
    EXPECT_EQ(error("[Box]\nBoxXT07=1\n"), path_ + ": [Box] BoxXT07: row must be 0 to 99");
    EXPECT_EQ(error("[Box]\nBoxLineCount=101\n"), path_ + ": [Box] BoxLineCount: '101' is not a row count from 0 to 100");
    EXPECT_EQ(error("[Box]\nBoxGrid=on\n"), path_ + ": [Box] BoxGrid: 'on' is not an integer");
    EXPECT_EQ(error("[Box]\nBoxBarrel=1\n"), path_ + ": [Box] BoxBarrel: unknown key");
    EXPECT_EQ(error("[box]\nBoxScaleX=1\n"), path_ + ": no [Box] section");
}

}  // namespace
}  // namespace vrncal::workflow
