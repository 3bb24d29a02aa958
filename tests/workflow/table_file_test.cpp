// Text tables carry a calibration exactly: written from a record and loaded
// back, every member the text form carries has the same bits.  The check
// here compares the members itself (whole coefficient block, points, line
// table), apart from the writer's own comparison.
#include <cstring>
#include <gtest/gtest.h>
#include <unistd.h>

#include "workflow/calfile.h"
#include "workflow/error.h"
#include "workflow/lens.h"
#include "workflow/simulate.h"
#include "workflow/table_edit.h"
#include "workflow/table_file.h"

namespace vrncal::workflow {
namespace {

template <typename T>
bool same(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

void expect_same_record(const tagLenPar& a, const tagLenPar& b) {
    EXPECT_TRUE(same(a.FieldSize, b.FieldSize) && same(a.ValSize, b.ValSize));
    EXPECT_TRUE(a.Resolution == b.Resolution && a.HalfResolution == b.HalfResolution &&
                same(a.HalfResolutionSq, b.HalfResolutionSq));
    EXPECT_TRUE(a.XYFlip == b.XYFlip && a.XInvert == b.XInvert && a.YInvert == b.YInvert &&
                a.LEN_XYFLIP == b.LEN_XYFLIP && a.LEN_XINVERT == b.LEN_XINVERT && a.LEN_YINVERT == b.LEN_YINVERT);
    EXPECT_TRUE(same(a.CalCoefs, b.CalCoefs)) << "coefficient block";
    ASSERT_EQ(a.Stacks.size(), b.Stacks.size());
    for (std::size_t i = 0; i < a.Stacks.size(); ++i) {
        EXPECT_EQ(a.Stacks[i].Size, b.Stacks[i].Size);
        EXPECT_EQ(a.Stacks[i].InOrder, b.Stacks[i].InOrder);
        ASSERT_EQ(a.Stacks[i].Points.size(), b.Stacks[i].Points.size());
        EXPECT_EQ(std::memcmp(a.Stacks[i].Points.data(), b.Stacks[i].Points.data(),
                              a.Stacks[i].Points.size() * sizeof(tagCalData)), 0);
    }
    EXPECT_TRUE(a.grid == b.grid && a.LineCount == b.LineCount);
    EXPECT_TRUE(same(a.XT, b.XT) && same(a.YT, b.YT) && same(a.XA, b.XA) && same(a.YA, b.YA) &&
                same(a.XR, b.XR) && same(a.YR, b.YR));
}

class TableFileTest : public ::testing::Test {
protected:
    // Saves as text, loads back, compares.
    void round_trip(const tagLenPar& par) {
        EXPECT_TRUE(save_as_table(par, path_, {"round trip"}, false).empty());
        expect_same_record(par, load_calibration(path_).par);
    }
    void TearDown() override {
        std::remove(path_.c_str());
        std::remove(data_.c_str());
    }
    const std::string path_ = ::testing::TempDir() + "table_file_" + std::to_string(::getpid()) + ".cor";
    const std::string data_ = ::testing::TempDir() + "table_file_" + std::to_string(::getpid()) + ".dat";
};

TEST_F(TableFileTest, SampleSimulatedAndConvertedTablesRoundTripBitForBit) {
    const tagLenPar sample = load_calibration(VRNCAL_EXAMPLES "/sample.cor").par;
    round_trip(sample);

    // A wide simulated head with flags, and a line table switched on.
    LensModel lens;
    lens.gain_y = 0.03;
    SimulateOptions opt;
    opt.head = &lens;
    opt.grids = {33, 9};
    opt.field_size = 130.5;
    opt.val_size = 110.0;
    opt.xy_flip = opt.x_invert = 1;
    opt.noise_um = 3.0;
    TableContent t = simulate_calibration(opt);
    t.cal3_keys = {"grid=1", "LineCount=3", "XT0=-50", "XR0=1.001", "XT1=0", "XT2=50", "YR2=0.999", "k11=0.25"};
    tagLenPar sim = load_table_text(table_text(t), opt.field_size);
    EXPECT_EQ(sim.Stacks.size(), 2u);
    EXPECT_EQ(sim.XR[0], static_cast<double>(1.001f));
    round_trip(sim);

    // Through a data file, which stores the coefficients as fitted on save.
    tagLenPar saved = sim;
    save_data_file(saved, data_);
    round_trip(load_calibration(data_).par);
}

TEST_F(TableFileTest, WhatTheTextCannotCarryIsRefusedOrReported) {
    tagLenPar par = load_calibration(VRNCAL_EXAMPLES "/sample.cor").par;
    par.CalCoefs.QuadX *= 1.5;  // a coefficient apart from its fit
    par.XYFlip = 1;             // a flag copy apart from its lens flag
    try {
        save_as_table(par, path_, {}, false);
        ADD_FAILURE() << "no error";
    } catch (const Error& e) {
        const std::string m = e.what();
        EXPECT_NE(m.find(path_ + ": not written: the text form cannot carry"), std::string::npos) << m;
        EXPECT_NE(m.find("XYFlip (1 here, 0 in the text form)"), std::string::npos) << m;
        EXPECT_NE(m.find("QuadX"), std::string::npos) << m;
    }
    EXPECT_NE(::access(path_.c_str(), F_OK), 0);
    EXPECT_EQ(save_as_table(par, path_, {}, true).size(), 2u);
}

TEST(TableEditor, KeepsTheRestOfTheTextAndItsLineEnds) {
    TableEditor e("; c\r\n[CalCoefs]\r\nValSize=80\r\n[Cal3]\r\nPNT0=1 1 1 1\r\nAxisXL=3\r\nPNT1=2 2 2 2\r\n");
    EXPECT_EQ(e.find("CalCoefs", "ValSize")->text, "80");
    EXPECT_EQ(e.find("CalCoefs", "ValSize")->line, 3);
    e.set_points("Cal3", {tagCalData{0.5f, 0, 0, 0}});
    e.set("CalCoefs", "order", "9");
    e.set("vrncal", "FieldSize", "126", true);
    EXPECT_EQ(e.text(),
              "; c\r\n[vrncal]\r\nFieldSize=126\r\n[CalCoefs]\r\nValSize=80\r\norder=9\r\n[Cal3]\r\nPNT0=0.5 0 0 "
              "0\r\nAxisXL=3\r\n");
    // The loader reads the last header of a section and the first of a key.
    TableEditor twice("[A]\nk=1\n[A]\nk=2\nk=3\n");
    EXPECT_EQ(twice.find("A", "k")->text, "2");
    twice.set("A", "k", "4");
    EXPECT_EQ(twice.text(), "[A]\nk=1\n[A]\nk=4\nk=3\n");
}

}  // namespace
}  // namespace vrncal::workflow
