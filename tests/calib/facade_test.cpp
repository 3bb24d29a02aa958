// The facade's file-level point members: each loads a record of its own from
// the file, edits it and (but for the gain tables) saves it refitted.  The
// worked corrections and conversions are in tests/data/facade.cases.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "files/file_bytes.h"
#include "vrncal/calib_alg.h"
#include "vrncal/facade.h"

namespace {

class FilePoints : public vrncal_test::TempDirTest {
protected:
    // A correction table with the nine points of a perfect lens, one 5 x 5
    // grid (measured 0.5 right of nominal) and a y line table, saved as a
    // data file.
    void SetUp() override {
        TempDirTest::SetUp();
        table = path("lens.cor");
        data = path("lens.dat");
        std::ofstream out(table);
        out << "[CalCoefs]\nValSize=80\norder=5\n[Cal3]\nLineCount=3\nYT1=0.5\nYA1=2.5\n";
        for (int i = 0; i < 9; ++i)
            out << "PNT" << i << "=" << 40 * (i % 3 - 1) << " " << 40 * (1 - i / 3) << " "
                << 40 * (i % 3 - 1) << " " << 40 * (1 - i / 3) << "\n";
        out << "[Cal5]\n";
        for (int i = 0; i < 25; ++i)
            out << "PNT" << i << "=" << 20 * (i % 5 - 2) << " " << 20 * (2 - i / 5) << " "
                << 20 * (i % 5 - 2) + 0.5 << " " << 20 * (2 - i / 5) << "\n";
        out.close();
        ASSERT_TRUE(cal.loadUcf(table.c_str(), rec));
        rec.CalMode = 1;
        ASSERT_TRUE(cal.saveUcf(data.c_str(), rec));
    }
    std::string table, data;
    VrnCal cal;
    tagLenPar rec;
};

TEST_F(FilePoints, GridsAndNinePointsAreReadFromEitherFile) {
    for (const std::string& file : {table, data}) {
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
        EXPECT_FALSE(cal.getCalibPnts(file.c_str(), 1, size, pts.data()));  // one grid only
    }
}

TEST_F(FilePoints, EditedPointsAreSavedAndRefitted) {
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

    // The nine points: the coefficients saved follow the edit.
    tagCalData nine[9];
    size = 3;
    ASSERT_TRUE(cal.getCalibPnts(data.c_str(), -1, size, nine));
    for (tagCalData& d : nine) d.RealX *= 1.01f;
    ASSERT_TRUE(cal.setCalibPnts(data.c_str(), -1, 3, nine));
    ASSERT_TRUE(cal.loadUcf(data.c_str(), back));
    tagLenPar refit = back;
    CCalibAlg::MVLSMCoef(refit);
    EXPECT_EQ(0, std::memcmp(&refit.CalCoefs, &back.CalCoefs, sizeof refit.CalCoefs));
    EXPECT_NE(back.CalCoefs.ScaleX, rec.CalCoefs.ScaleX);
}

TEST_F(FilePoints, MissingFileStartsFromTheDefaultsAndUnwritableOneFails) {
    const std::string fresh = path("new.dat");
    std::vector<tagCalData> pts(9);
    for (int i = 0; i < 9; ++i) pts[i] = tagCalData{float(i), float(-i), float(i) + 0.5f, float(-i)};
    ASSERT_TRUE(cal.setCalibPnts(fresh.c_str(), 4, 3, pts.data()));
    tagLenPar back;
    ASSERT_TRUE(cal.loadUcf(fresh.c_str(), back));
    ASSERT_EQ(back.Stacks.size(), 1u);  // index 4 appends the first grid
    EXPECT_EQ(back.Stacks[0].Size, 3);
    EXPECT_EQ(back.Stacks[0].InOrder, 1);
    EXPECT_EQ(back.Stacks[0].Points[8].RealX, 8.5f);
    EXPECT_EQ(back.FieldSize, 100.0);
    EXPECT_EQ(back.LineCount, 21);
    EXPECT_FALSE(cal.setCalibPnts(path("no/such/x.dat").c_str(), -1, 3, pts.data()));
}

TEST_F(FilePoints, EqualPointsAreReadButEditsAreNeverSaved) {
    // The data file keeps no CalMode: a loaded file is in box mode, so its
    // equal points come from the (empty) box tables.
    tagKelPointF pts[100];
    int count = 0;
    ASSERT_TRUE(cal.getEqualPnts(data.c_str(), 1, count, pts));
    EXPECT_EQ(count, 21);
    EXPECT_EQ(pts[1].x, 0.0f);
    const vrncal_test::Bytes before = vrncal_test::readBytes(data);
    tagKelPointF edit[3] = {{1.0f, 2.0f}, {3.0f, 4.0f}, {5.0f, 6.0f}};
    EXPECT_TRUE(cal.setEqualPnts(data.c_str(), 1, 3, edit));
    EXPECT_EQ(before, vrncal_test::readBytes(data));
}

}  // namespace
