// The binary data file: what the case file cannot say (null paths) and a
// file cut short at every boundary.  The layout and the worked loads are in
// tests/data/bcd_file.cases, whose records "sample" and "previous" this uses.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

#include "case_file.h"
#include "file_bytes.h"
#include "vrncal/bcd_file.h"

namespace {

using vrncal_test::Bytes;
using vrncal_test::cutValue;

TEST(BcdFile, NullPathsFailOrAreIgnored) {
    tagLenPar par;
    par.Stacks.resize(1);
    EXPECT_FALSE(CBcdFile::LoadBcdFile(nullptr, par));
    EXPECT_TRUE(par.Stacks.empty());
    EXPECT_FALSE(CBcdFile::SaveBcdFile(nullptr, par));
    double field = -1.0, val = -2.0;
    int count = -3;
    EXPECT_TRUE(CBcdFile::GetBasePara(nullptr, field, val, count));
    EXPECT_EQ(field + val + count, -6.0);
    EXPECT_TRUE(CBcdFile::SaveBasePara(nullptr, par));
}

class ShortFile : public vrncal_test::TempDirTest {
protected:
    void SetUp() override {
        TempDirTest::SetUp();
        std::map<std::string, tagLenPar> records;
        vrncal_test::runCaseFile(VRNCAL_TEST_DATA "/bcd_file.cases", {}, &records);
        now = records["sample"];
        old = records["previous"];
        ASSERT_TRUE(CBcdFile::SaveBcdFile(path("full.bcd").c_str(), now));
        full = vrncal_test::readBytes(path("full.bcd"));
    }
    tagLenPar now, old;
    Bytes full;
};

// A file that ends early is read as far as it goes: every member whose bytes
// are all in the file is new, a member cut by the end takes the bytes
// present, every later one is as before.  The reals and the flag words count
// only when whole; a grid only when all of it is there.
TEST_F(ShortFile, IsReadAsFarAsItGoes) {
    const std::size_t cuts[] = {7,     8,     10,    14,    18,    25,    26,    34,    35,    37,
                                38,    39,    41,    42,    45,    46,    50,    53,    54,    62,
                                256,   300,   855,   856,   4096,  4099,  4100,  4107,  4108,  4131,
                                4132,  4195,  4196,  59999, 60000, 60003, 60004, 60008, 60012, 63999,
                                64000, 64004, 64008, 64100, 64151, 64152, 64159, 64160, 64223, 64224};
    for (std::size_t cut : cuts) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        vrncal_test::writeBytes(path("cut.bcd"), Bytes(full.begin(), full.begin() + cut));
        tagLenPar back = old;
        ASSERT_TRUE(CBcdFile::LoadBcdFile(path("cut.bcd").c_str(), back));
        const auto has = [cut](std::size_t offset, std::size_t size) { return offset + size <= cut; };
        EXPECT_EQ(back.FieldSize, has(10, 8) ? now.FieldSize : old.FieldSize);
        EXPECT_EQ(back.ValSize, has(18, 8) ? now.ValSize : old.ValSize);
        EXPECT_EQ(back.LEN_XYFLIP * 10 + back.XYFlip, has(42, 4) ? 12 : 77);
        EXPECT_EQ(back.LEN_XINVERT, has(46, 4) ? 0xFF : 7);
        EXPECT_EQ(back.YInvert, has(50, 4) ? 0xFF : 7);
        EXPECT_EQ(back.LineCount, cutValue(now.LineCount, old.LineCount, 34, cut));
        const int read = cutValue(now.Resolution, old.Resolution, 38, cut);
        const int resolution = read < 65535 ? 65535 : read;
        EXPECT_EQ(back.Resolution, resolution);
        EXPECT_EQ(back.HalfResolution, (resolution + 1) / 2);
        const tagCalCoefs coefs = cutValue(now.CalCoefs, old.CalCoefs, 256, cut);
        EXPECT_EQ(std::memcmp(&back.CalCoefs, &coefs, sizeof coefs), 0);
        EXPECT_EQ(back.grid, cutValue(now.grid, old.grid, 4096, cut));
        for (std::size_t i = 0; i < 3; ++i) {
            const std::size_t row = 4100 + 32 * i;
            EXPECT_EQ(back.XT[i], cutValue(now.XT[i], old.XT[i], row, cut)) << i;
            EXPECT_EQ(back.YT[i], cutValue(now.YT[i], old.YT[i], row + 8, cut)) << i;
            EXPECT_EQ(back.XA[i], cutValue(now.XA[i], old.XA[i], row + 16, cut)) << i;
            EXPECT_EQ(back.YA[i], cutValue(now.YA[i], old.YA[i], row + 24, cut)) << i;
        }
        const std::size_t stacks = has(64152, 72) ? 2 : has(64000, 152) ? 1 : 0;
        ASSERT_EQ(back.Stacks.size(), stacks);
        for (std::size_t i = 0; i < stacks; ++i) {
            EXPECT_EQ(back.Stacks[i].Size * 10 + back.Stacks[i].InOrder, now.Stacks[i].Size * 10 + now.Stacks[i].InOrder);
            ASSERT_EQ(back.Stacks[i].Points.size(), now.Stacks[i].Points.size());
            EXPECT_EQ(std::memcmp(back.Stacks[i].Points.data(), now.Stacks[i].Points.data(),
                                  now.Stacks[i].Points.size() * sizeof(tagCalData)), 0);
        }
        EXPECT_EQ(back.XR[0] + back.YR[99], -4.0);  // not in the file
        EXPECT_EQ(back.CalMode * 100 + back.BoxLineCount, 344);
    }
}

}  // namespace
