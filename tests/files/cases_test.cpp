// The worked cases of tests/data/bcd_file.cases and cor_file.cases: records
// saved to scratch files and loaded back, the bytes at their offsets, and
// correction tables written as scratch files.
#include <filesystem>

#include "case_file.h"
#include "file_bytes.h"
#include "vrncal/bcd_file.h"
#include "vrncal/calib_alg.h"

namespace {

using vrncal_test::Bytes;
using vrncal_test::Call;
using vrncal_test::Values;

// "TYPE OFFSET ..." read from the bytes of a file.
Values readValues(const Call& c) {
    const Bytes b = vrncal_test::readBytes(c.file(0));
    const std::string type = c.args.at(1);
    Values v;
    for (std::size_t i = 2; i < c.size(); ++i) {
        const std::size_t at = c.i(i);
        if (type == "u8") v.push_back(at < b.size() ? b[at] : -1.0);
        if (type == "i32") v.push_back(vrncal_test::valueAt<std::int32_t>(b, at));
        if (type == "f32") v.push_back(vrncal_test::valueAt<float>(b, at));
        if (type == "f64") v.push_back(vrncal_test::valueAt<double>(b, at));
    }
    return v;
}

// "NAME TYPE OFFSET VALUE ..." written over a file's bytes, one after another.
Values putValues(const Call& c) {
    Bytes b = vrncal_test::readBytes(c.file(0));
    const std::string type = c.args.at(1);
    std::size_t at = c.i(2);
    for (std::size_t i = 3; i < c.size(); ++i) {
        if (type == "u8") vrncal_test::putValue(b, at, static_cast<std::uint8_t>(c.i(i))), at += 1;
        if (type == "i32") vrncal_test::putValue(b, at, static_cast<std::int32_t>(c.d(i))), at += 4;
        if (type == "f64") vrncal_test::putValue(b, at, c.d(i)), at += 8;
    }
    vrncal_test::writeBytes(c.file(0), b);
    return {};
}

const vrncal_test::Ops kOps = {
    {"calorder", [](Call& c) {
         Values v;
         for (std::size_t i = 0; i < c.size(); ++i) v.push_back(CBcdFile::GetCalOrder(c.i(i)));
         return v;
     }},
    {"loadcor", [](Call& c) { return Values{double(CBcdFile::LoadCorFile(c.file(0).c_str(), c.rec))}; }},
    {"loadbcd", [](Call& c) { return Values{double(CBcdFile::LoadBcdFile(c.file(0).c_str(), c.rec))}; }},
    {"save", [](Call& c) {
         tagLenPar copy = c.rec;
         return Values{double(CBcdFile::SaveBcdFile(c.file(0).c_str(), copy))};
     }},
    {"savebase", [](Call& c) {
         tagLenPar copy = c.rec;
         return Values{double(CBcdFile::SaveBasePara(c.file(0).c_str(), copy))};
     }},
    {"getbase", [](Call& c) {
         double field = -1.0, val = -2.0;
         int count = -3;
         const bool ok = CBcdFile::GetBasePara(c.file(0).c_str(), field, val, count);
         return Values{double(ok), field, val, double(count)};
     }},
    {"fit", [](Call& c) {
         CCalibAlg::MVLSMCoef(c.rec);
         return Values{};
     }},
    {"dropstacks", [](Call& c) {
         c.rec.Stacks.clear();
         return Values{};
     }},
    {"length", [](Call& c) {
         std::error_code e;
         const auto n = std::filesystem::file_size(c.file(0), e);
         return Values{e ? -1.0 : double(n)};
     }},
    {"read", readValues},
    {"put", putValues},
    {"zero", [](Call& c) {
         return Values{double(vrncal_test::zeroRange(vrncal_test::readBytes(c.file(0)), c.i(1), c.i(2)))};
     }},
    // The file's 600 bytes at 256 are the record's coefficient block.
    {"coefs", [](Call& c) {
         const Bytes b = vrncal_test::readBytes(c.file(0));
         return Values{double(b.size() >= 856 && std::memcmp(b.data() + 256, &c.rec.CalCoefs, 600) == 0)};
     }},
    {"copy", [](Call& c) {
         vrncal_test::writeBytes(c.file(1), vrncal_test::readBytes(c.file(0)));
         return Values{};
     }},
    {"cut", [](Call& c) {
         Bytes b = vrncal_test::readBytes(c.file(0));
         b.resize(c.i(1), 0);
         vrncal_test::writeBytes(c.file(0), b);
         return Values{};
     }},
};

class FileCases : public ::testing::TestWithParam<const char*> {};

TEST_P(FileCases, MatchWorkedBits) {
    EXPECT_GE(vrncal_test::runCaseFile(std::string(VRNCAL_TEST_DATA "/") + GetParam(), kOps), 30);
}

INSTANTIATE_TEST_SUITE_P(Files, FileCases, ::testing::Values("bcd_file.cases", "cor_file.cases"));

}  // namespace
