// The facade: correction dispatch and lens flags, the conversions to device
// counts, the box parameter update, and the file-level point members.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

#include "alg/correction_cases.h"
#include "float_bits.h"
#include "vrncal/bcd_file.h"
#include "vrncal/calib_alg.h"
#include "vrncal/facade.h"

using vrncal_test::floatFrom;

namespace {

TEST(FacadeCases, MatchWorkedBits) {
    const vrncal_test::CaseFile file = vrncal_test::readCaseFile(VRNCAL_TEST_DATA "/facade.cases");
    for (const std::string& e : file.errors) ADD_FAILURE() << e;
    ASSERT_GE(file.cases.size(), 40u);
    VrnCal cal;
    for (const vrncal_test::CorrectionCase& c : file.cases) {
        SCOPED_TRACE(c.where + " " + c.op);
        const tagLenPar& rec = file.records[c.record];
        tagKelPointF out{-1.0f, -1.0f};
        bool ok = false;
        if (c.op == "point")
            ok = cal.CalibPoint(rec, c.in, out);
        else if (c.op == "cal")
            ok = cal.LP2DPEX_Cal(c.in, out, rec);
        else if (c.op == "sft")
            ok = cal.LP2DPEX_SFT(c.in, out, rec, true);
        else if (c.op == "sftoff")
            ok = cal.LP2DPEX_SFT(c.in, out, rec, false);
        else
            FAIL() << "unknown operation";
        EXPECT_TRUE(ok);
        EXPECT_SAME_BITS(floatFrom(c.expectX), out.x);
        EXPECT_SAME_BITS(floatFrom(c.expectY), out.y);
    }
}

TEST(FacadeDispatch, BoxModeWithoutFlagsPassesThePointUnchanged) {
    // A record whose box correction is far from neutral: the facade must hand
    // the point over untouched, so the two calls agree bit for bit.
    tagLenPar rec;
    rec.BoxScaleX = 98.7;
    rec.BoxSkewY = 0.9985;
    rec.BoxBarrelX = 1.01;
    rec.BoxTrapY = 0.996;
    VrnCal cal;
    for (const tagKelPointF p : {tagKelPointF{12.5f, -7.25f}, tagKelPointF{-43.1198f, 1.8361f}}) {
        tagKelPointF viaFacade, direct;
        tagKelPointF in = p;
        EXPECT_TRUE(cal.CalibPoint(rec, p, viaFacade));
        CCalibAlg::CalibManual(rec, in, direct);
        EXPECT_SAME_BITS(direct.x, viaFacade.x);
        EXPECT_SAME_BITS(direct.y, viaFacade.y);
    }
}

TEST(FacadeDispatch, ResultFollowsTheCorrection) {
    VrnCal cal;
    tagLenPar rec;
    tagKelPointF out;
    rec.CalMode = 1;
    EXPECT_TRUE(cal.CalibPoint(rec, {1.0f, 2.0f}, out));
    rec.CalMode = 0;
    EXPECT_TRUE(cal.CalibPoint(rec, {1.0f, 2.0f}, out));
}

// ---- box parameter update ---------------------------------------------------

class RecManParas : public ::testing::Test {
protected:
    // Measurements as a host takes them on a box-calibrated field: two side
    // lengths, the angle between the axes in degrees, then the three widths
    // along the top/centre/bottom and heights along the left/centre/right.
    double m[9] = {80.12, 79.95, 89.7, 40.03, 80.06, 39.98, 39.97, 79.91, 40.05};
    double c[9] = {100.0, 100.0, 1.0, 1.0, 1.0, 1.23456789, 0.0, 0.0, 40.0};
    double r[8] = {};
    VrnCal cal;
};

TEST_F(RecManParas, WorkedUpdate) {
    EXPECT_TRUE(cal.getRecManParas(m, c, r));
    EXPECT_EQ(r[0], 100.074943);
    EXPECT_EQ(r[1], 100.050056);
    EXPECT_EQ(r[2], 1.125359);
    EXPECT_EQ(r[3], 1.12464);
    EXPECT_EQ(r[4], 0.994762);  // 1 - 1/tan(89.7 deg), pi to five decimals
    EXPECT_EQ(r[5], 1.234567);
    EXPECT_EQ(r[6], 0.000312);
    EXPECT_EQ(r[7], -0.000499);
}

TEST_F(RecManParas, AngleOfNinetyDegreesKeepsTheSkew) {
    m[2] = 90.0;
    cal.getRecManParas(m, c, r);
    EXPECT_EQ(r[4], 1.0);
    m[2] = 45.0;  // 1 - 1/tan(45 x 3.14159/180) = -1.3268e-6, truncated
    cal.getRecManParas(m, c, r);
    EXPECT_EQ(r[4], -0.000001);
}

TEST_F(RecManParas, TruncatesTowardZeroThroughA32BitInteger) {
    c[5] = -1.23456789;
    cal.getRecManParas(m, c, r);
    EXPECT_EQ(r[5], -1.234567);
    c[5] = 2147.483647;
    cal.getRecManParas(m, c, r);
    EXPECT_EQ(r[5], 2147.483647);
    c[5] = 2147.483648;  // the first value that overflows the integer
    cal.getRecManParas(m, c, r);
    EXPECT_EQ(r[5], -2147.483648);
}

TEST_F(RecManParas, ZeroMeasurementGivesTheOverflowValue) {
    m[4] = 0.0;
    EXPECT_TRUE(cal.getRecManParas(m, c, r));
    EXPECT_EQ(r[0], -2147.483648);  // +inf
    EXPECT_EQ(r[2], -2147.483648);  // -inf
    EXPECT_EQ(r[3], -2147.483648);  // +inf
    EXPECT_EQ(r[7], -2147.483648);  // -inf
    EXPECT_EQ(r[1], 100.050056);    // untouched by m[4]
}

// ---- file-level point members -----------------------------------------------

class FilePoints : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = ::testing::TempDir() + "vrncal-facade-" + std::to_string(::getpid());
        ::mkdir(dir_.c_str(), 0700);
    }
    void TearDown() override {
        for (const std::string& f : made_) std::remove(f.c_str());
        ::rmdir(dir_.c_str());
    }
    std::string path(const std::string& name) {
        made_.push_back(dir_ + "/" + name);
        return made_.back();
    }
    static std::string bytesOf(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    // A correction table with the nine points of a perfect lens, one 5 x 5
    // grid and a y line table.
    std::string writeTable() {
        const std::string p = path("lens.cor");
        std::ofstream out(p);
        out << "[CalCoefs]\nValSize=80\norder=5\n[Cal3]\nLineCount=3\n"
               "YT0=-10\nYT1=0\nYT2=10\nYA0=1\nYA1=2\nYA2=3\n";
        const int v[3] = {-40, 0, 40};
        for (int i = 0; i < 9; ++i)
            out << "PNT" << i << "=" << v[i % 3] << " " << -v[i / 3] << " " << v[i % 3] << " "
                << -v[i / 3] << "\n";
        out << "[Cal5]\n";
        for (int i = 0; i < 25; ++i) {
            const int x = -40 + 20 * (i % 5), y = 40 - 20 * (i / 5);
            out << "PNT" << i << "=" << x << " " << y << " " << x + 0.5 << " " << y << "\n";
        }
        return p;
    }

private:
    std::string dir_;
    std::vector<std::string> made_;
};

TEST_F(FilePoints, ReadsTheGridAndTheNinePointsOfAFile) {
    const std::string file = writeTable();
    VrnCal cal;
    std::vector<tagCalData> pts(25);
    int size = 5;
    ASSERT_TRUE(cal.getCalibPnts(file.c_str(), 0, size, pts.data()));
    EXPECT_EQ(size, 5);
    EXPECT_EQ(pts[6].X, -20.0f);
    EXPECT_EQ(pts[6].Y, 20.0f);
    EXPECT_EQ(pts[6].RealX, -19.5f);

    size = 3;
    ASSERT_TRUE(cal.getCalibPnts(file.c_str(), -1, size, pts.data()));
    EXPECT_EQ(pts[2].X, 40.0f);
    EXPECT_EQ(pts[2].Y, 40.0f);

    size = 5;
    EXPECT_FALSE(cal.getCalibPnts(file.c_str(), 1, size, pts.data()));  // one stack only
}

TEST_F(FilePoints, EditedGridIsSavedAndRefitted) {
    const std::string table = writeTable();
    const std::string data = path("lens.dat");
    VrnCal cal;
    tagLenPar rec;
    ASSERT_TRUE(cal.loadUcf(table.c_str(), rec));
    ASSERT_TRUE(cal.saveUcf(data.c_str(), rec));

    std::vector<tagCalData> pts(25);
    int size = 5;
    ASSERT_TRUE(cal.getCalibPnts(data.c_str(), 0, size, pts.data()));
    pts[12].RealX = 1.25f;
    ASSERT_TRUE(cal.setCalibPnts(data.c_str(), 0, 5, pts.data()));

    tagLenPar back;
    ASSERT_TRUE(cal.loadUcf(data.c_str(), back));
    ASSERT_EQ(back.Stacks.size(), 1u);
    EXPECT_EQ(back.Stacks[0].Points[12].RealX, 1.25f);
    EXPECT_EQ(back.CalCoefs.ScaleX, rec.CalCoefs.ScaleX);

    // The nine points: the fit is rerun before the save, so the coefficients
    // follow the edit.
    tagCalData nine[9];
    size = 3;
    ASSERT_TRUE(cal.getCalibPnts(data.c_str(), -1, size, nine));
    for (tagCalData& d : nine) d.RealX *= 1.01f;
    ASSERT_TRUE(cal.setCalibPnts(data.c_str(), -1, 3, nine));
    ASSERT_TRUE(cal.loadUcf(data.c_str(), back));
    tagLenPar expect = back;
    CCalibAlg::MVLSMCoef(expect);
    EXPECT_EQ(0, std::memcmp(&expect.CalCoefs, &back.CalCoefs, sizeof expect.CalCoefs));
    EXPECT_NE(back.CalCoefs.ScaleX, rec.CalCoefs.ScaleX);
}

TEST_F(FilePoints, SettingPointsOnAMissingFileWritesANewOne) {
    const std::string data = path("new.dat");
    std::vector<tagCalData> pts(9);
    for (int i = 0; i < 9; ++i) pts[i] = tagCalData{float(i), float(-i), float(i) + 0.5f, float(-i)};
    VrnCal cal;
    ASSERT_TRUE(cal.setCalibPnts(data.c_str(), 4, 3, pts.data()));
    tagLenPar back;
    ASSERT_TRUE(cal.loadUcf(data.c_str(), back));
    ASSERT_EQ(back.Stacks.size(), 1u);  // index 4 appends the first stack
    EXPECT_EQ(back.Stacks[0].Size, 3);
    EXPECT_EQ(back.Stacks[0].InOrder, 1);
    EXPECT_EQ(back.Stacks[0].Points[8].RealX, 8.5f);
    EXPECT_EQ(back.FieldSize, 100.0);  // the defaults of a new record
    EXPECT_EQ(back.LineCount, 21);
}

TEST_F(FilePoints, UnwritablePathReportsTheFailedSave) {
    std::vector<tagCalData> pts(9);
    VrnCal cal;
    EXPECT_FALSE(cal.setCalibPnts("/nonexistent-dir/x.dat", -1, 3, pts.data()));
}

TEST_F(FilePoints, EqualPointsAreReadButEditsAreNeverSaved) {
    const std::string table = writeTable();
    const std::string data = path("lens.dat");
    VrnCal cal;
    tagLenPar rec;
    ASSERT_TRUE(cal.loadUcf(table.c_str(), rec));
    rec.CalMode = 1;
    rec.YT[1] = 0.5;
    rec.YA[1] = 2.5;
    ASSERT_TRUE(cal.saveUcf(data.c_str(), rec));

    // The data file keeps no CalMode: a loaded file is in box mode, so its
    // equal points come from the (empty) box tables.
    tagKelPointF pts[100];
    int count = 0;
    ASSERT_TRUE(cal.getEqualPnts(data.c_str(), 1, count, pts));
    EXPECT_EQ(count, 21);
    EXPECT_EQ(pts[1].x, 0.0f);

    const std::string before = bytesOf(data);
    tagKelPointF edit[3] = {{1.0f, 2.0f}, {3.0f, 4.0f}, {5.0f, 6.0f}};
    EXPECT_TRUE(cal.setEqualPnts(data.c_str(), 1, 3, edit));
    EXPECT_EQ(before, bytesOf(data));
}

}  // namespace
