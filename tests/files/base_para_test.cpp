#include <cstdint>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "file_bytes.h"
#include "float_bits.h"
#include "vrncal/bcd_file.h"

namespace {

using vrncal_test::Bytes;
using vrncal_test::valueAt;

tagLenPar baseRecord() {
    tagLenPar par;
    par.FieldSize = 163.84;
    par.ValSize = 0x1.e0ccccccccccdp+6;  // 120.2
    par.LineCount = 3;
    par.BoxLineCount = 33;
    return par;
}

class BaseParaTest : public vrncal_test::TempDirTest {
protected:
    double field_ = -1.0, val_ = -2.0;
    int count_ = -3;
    bool get(const std::string& p) { return CBcdFile::GetBasePara(p.c_str(), field_, val_, count_); }
};

TEST_F(BaseParaTest, FileHoldsTheBaseRealsTheConstantAndTheBoxLineCount) {
    const std::string p = path("base.bin");
    tagLenPar par = baseRecord();
    ASSERT_TRUE(CBcdFile::SaveBasePara(p.c_str(), par));
    const Bytes b = vrncal_test::readBytes(p);
    ASSERT_EQ(b.size(), 38u);
    EXPECT_TRUE(vrncal_test::zeroRange(b, 0, 10));  // no magic
    EXPECT_SAME_BITS(163.84, valueAt<double>(b, 10));
    EXPECT_SAME_BITS(0x1.e0ccccccccccdp+6, valueAt<double>(b, 18));
    EXPECT_EQ(vrncal_test::slice(b, 26, 8), (Bytes{0, 0, 0, 0, 0, 0, 0x10, 0x40}));
    EXPECT_EQ(valueAt<std::int32_t>(b, 34), 33);  // BoxLineCount, not LineCount
}

TEST_F(BaseParaTest, ReadsBackWhatTheBaseFileHolds) {
    const std::string p = path("base.bin");
    tagLenPar par = baseRecord();
    CBcdFile::SaveBasePara(p.c_str(), par);
    ASSERT_TRUE(get(p));
    EXPECT_SAME_BITS(163.84, field_);
    EXPECT_SAME_BITS(0x1.e0ccccccccccdp+6, val_);
    EXPECT_EQ(count_, 33);
}

TEST_F(BaseParaTest, DataFileGivesItsLineCountInstead) {
    const std::string p = path("cal.bcd");
    tagLenPar par = baseRecord();
    ASSERT_TRUE(CBcdFile::SaveBcdFile(p.c_str(), par));
    ASSERT_TRUE(get(p));
    EXPECT_EQ(field_, 163.84);
    EXPECT_EQ(val_, 0x1.e0ccccccccccdp+6);
    EXPECT_EQ(count_, 3);
    // The data file has 0.0 where the base file has 4.0.
    EXPECT_TRUE(vrncal_test::zeroRange(vrncal_test::readBytes(p), 26, 34));
}

TEST_F(BaseParaTest, OverwritingADataFileLeavesOnlyTheBaseParameters) {
    const std::string p = path("cal.bcd");
    tagLenPar par = baseRecord();
    par.Stacks.push_back(tagStack{1, 0, {tagCalData{1, 2, 3, 4}}});
    ASSERT_TRUE(CBcdFile::SaveBcdFile(p.c_str(), par));
    ASSERT_EQ(std::filesystem::file_size(p), 64000u + 8 + 16);

    ASSERT_TRUE(CBcdFile::SaveBasePara(p.c_str(), par));
    EXPECT_EQ(std::filesystem::file_size(p), 38u);
    ASSERT_TRUE(get(p));
    EXPECT_EQ(field_, 163.84);
    EXPECT_EQ(count_, 33);

    // Without the magic the loader takes it for a correction table, which
    // has no nine points: the load fails with the table's header defaults.
    tagLenPar back = baseRecord();
    EXPECT_FALSE(CBcdFile::LoadBcdFile(p.c_str(), back));
    EXPECT_EQ(back.ValSize, 100.0);
    EXPECT_EQ(back.FieldSize, 163.84);
    EXPECT_TRUE(back.Stacks.empty());
}

TEST_F(BaseParaTest, MissingOrShortFileLeavesWhatCannotBeRead) {
    EXPECT_TRUE(get(path("missing.bin")));
    EXPECT_EQ(field_, -1.0);
    EXPECT_EQ(val_, -2.0);
    EXPECT_EQ(count_, -3);
    EXPECT_TRUE(CBcdFile::GetBasePara(nullptr, field_, val_, count_));

    const std::string p = path("base.bin");
    tagLenPar par = baseRecord();
    CBcdFile::SaveBasePara(p.c_str(), par);
    const Bytes full = vrncal_test::readBytes(p);
    // Cut inside ValSize: FieldSize is read, ValSize takes the 7 bytes
    // present over the caller's value, the count is untouched.
    vrncal_test::writeBytes(p, Bytes(full.begin(), full.begin() + 25));
    EXPECT_TRUE(get(p));
    EXPECT_EQ(field_, 163.84);
    EXPECT_EQ(val_, vrncal_test::cutValue(0x1.e0ccccccccccdp+6, -2.0, 18, 25));
    EXPECT_EQ(count_, -3);
    // Cut inside the count: three of its four bytes.
    vrncal_test::writeBytes(p, Bytes(full.begin(), full.begin() + 37));
    count_ = -3;
    EXPECT_TRUE(get(p));
    EXPECT_EQ(val_, 0x1.e0ccccccccccdp+6);
    EXPECT_EQ(count_, vrncal_test::cutValue(par.BoxLineCount, -3, 34, 37));
}

TEST_F(BaseParaTest, UnopenablePathStillReportsSuccess) {
    tagLenPar par = baseRecord();
    EXPECT_TRUE(CBcdFile::SaveBasePara(path("missing/base.bin").c_str(), par));
    EXPECT_TRUE(CBcdFile::SaveBasePara(nullptr, par));
    EXPECT_FALSE(std::filesystem::exists(path("missing")));
}

}  // namespace
