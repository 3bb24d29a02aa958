#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "file_bytes.h"
#include "float_bits.h"
#include "vrncal/bcd_file.h"
#include "vrncal/calib_alg.h"

namespace {

using vrncal_test::Bytes;
using vrncal_test::cutValue;
using vrncal_test::putValue;
using vrncal_test::valueAt;
using vrncal_test::zeroRange;

// Point p of a stack: distinct floats that are exact in binary.
tagCalData stackPoint(int stack, int p) {
    const float b = static_cast<float>(stack * 100 + p);
    return tagCalData{b, -b, b + 0.125f, -b - 0.0625f};
}

tagStack makeStack(int stack, int size, int inOrder) {
    tagStack st{size, inOrder, {}};
    for (int p = 0; p < size * size; ++p) st.Points.push_back(stackPoint(stack, p));
    return st;
}

// The record the layout tests save: every stored member distinct, the flag
// words chosen to show that nothing is masked on writing.
tagLenPar sample() {
    tagLenPar par;
    par.FieldSize = 163.84;
    par.ValSize = 120.5;
    par.LineCount = 3;
    par.Resolution = 100001;
    par.LEN_XYFLIP = 1;
    par.XYFlip = 2;
    par.LEN_XINVERT = 0x1FF;  // spills into the copy's byte
    par.XInvert = 1;
    par.LEN_YINVERT = 0;
    par.YInvert = -1;  // fills bits 8-31
    tagCalCoefs& c = par.CalCoefs;
    for (int i = 0; i < 9; ++i) c.Cal3Pnts[i] = stackPoint(9, i);
    c.QuadX = -0x1.5p-12;
    c.QuadY = 0x1.3p-11;
    c.ScaleX = 1.0009765625;
    c.Y2XAngle = 0x1.921fb6p+0;
    for (int i = 0; i < 20; ++i) c.k[i] = 0.5 * i - 3.0;
    for (int i = 0; i < 8; ++i) c.s[i] = -0.25 * i;
    par.grid = 5;
    for (int i = 0; i < 100; ++i) {
        par.XT[i] = 10 * i + 1;
        par.YT[i] = 10 * i + 2;
        par.XA[i] = 10 * i + 3;
        par.YA[i] = 10 * i + 4;
        par.XR[i] = par.YR[i] = 0.5;  // not stored
    }
    par.Stacks.push_back(makeStack(0, 3, 7));  // InOrder travels raw
    par.Stacks.push_back(makeStack(1, 2, 0));
    par.CalMode = 1;
    par.BoxLineCount = 33;
    return par;
}

// Offsets of the sample's file.
constexpr std::size_t kStack0 = 64000;
constexpr std::size_t kStack1 = kStack0 + 8 + 9 * 16;  // 64152
constexpr std::size_t kSampleLength = kStack1 + 8 + 4 * 16;  // 64224

// The record a load starts from: every member a load may touch differs from
// the sample.
tagLenPar previous() {
    tagLenPar par;
    par.FieldSize = 11.0;
    par.ValSize = 12.0;
    par.LineCount = 4;
    par.Resolution = 70001;
    par.HalfResolution = 1;
    par.HalfResolutionSq = 1.0;
    par.LEN_XYFLIP = par.LEN_XINVERT = par.LEN_YINVERT = 7;
    par.XYFlip = par.XInvert = par.YInvert = 7;
    std::memset(static_cast<void*>(&par.CalCoefs), 0x5A, sizeof par.CalCoefs);
    par.grid = 9;
    for (int i = 0; i < 100; ++i) {
        par.XT[i] = par.YT[i] = par.XA[i] = par.YA[i] = -1.0;
        par.XR[i] = par.YR[i] = -2.0;
    }
    par.Stacks.push_back(makeStack(5, 4, 1));
    par.CalMode = 3;
    par.BoxLineCount = 44;
    return par;
}

bool sameCoefs(const tagCalCoefs& a, const tagCalCoefs& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

void expectSameStack(const tagStack& expected, const tagStack& actual) {
    EXPECT_EQ(actual.Size, expected.Size);
    EXPECT_EQ(actual.InOrder, expected.InOrder);
    ASSERT_EQ(actual.Points.size(), expected.Points.size());
    if (expected.Points.empty()) return;
    EXPECT_EQ(std::memcmp(actual.Points.data(), expected.Points.data(),
                          expected.Points.size() * sizeof(tagCalData)),
              0);
}

// Members the file does not hold: a load leaves them as they were.
void expectUnstoredKept(const tagLenPar& par) {
    EXPECT_EQ(par.XR[0], -2.0);
    EXPECT_EQ(par.YR[99], -2.0);
    EXPECT_EQ(par.CalMode, 3);
    EXPECT_EQ(par.BoxLineCount, 44);
}

class BcdFileTest : public vrncal_test::TempDirTest {
protected:
    std::string saved(const tagLenPar& par, const char* name = "cal.bcd") {
        const std::string p = path(name);
        tagLenPar copy = par;
        EXPECT_TRUE(CBcdFile::SaveBcdFile(p.c_str(), copy));
        return p;
    }
    Bytes sampleBytes() { return vrncal_test::readBytes(saved(sample())); }

    // Loads the bytes into a copy of previous().
    bool load(const Bytes& bytes, tagLenPar& par, const char* name = "in.bcd") {
        const std::string p = path(name);
        vrncal_test::writeBytes(p, bytes);
        par = previous();
        return CBcdFile::LoadBcdFile(p.c_str(), par);
    }
};

// ---- layout ---------------------------------------------------------------

TEST_F(BcdFileTest, SavedHeaderSitsAtItsOffsets) {
    const Bytes b = sampleBytes();
    ASSERT_EQ(b.size(), kSampleLength);
    EXPECT_EQ(std::string(b.begin(), b.begin() + 7), "VRNCLDT");
    EXPECT_TRUE(zeroRange(b, 7, 10));  // version byte and reserved
    EXPECT_SAME_BITS(163.84, valueAt<double>(b, 10));
    EXPECT_SAME_BITS(120.5, valueAt<double>(b, 18));
    EXPECT_TRUE(zeroRange(b, 26, 34));  // reserved real 0.0
    EXPECT_EQ(valueAt<std::int32_t>(b, 34), 3);
    EXPECT_EQ(valueAt<std::int32_t>(b, 38), 100001);
    // Copy << 8 | flag, unmasked.
    EXPECT_EQ(vrncal_test::slice(b, 42, 12),
              (Bytes{0x01, 0x02, 0x00, 0x00, 0xFF, 0x01, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(vrncal_test::slice(b, 54, 8), (Bytes{0, 0, 0, 0, 0, 0, 0x10, 0x40}));
    EXPECT_TRUE(zeroRange(b, 62, 256));
}

TEST_F(BcdFileTest, SavedBlocksSitAtTheirOffsets) {
    const tagLenPar par = sample();
    const Bytes b = sampleBytes();
    ASSERT_EQ(b.size(), kSampleLength);

    EXPECT_EQ(std::memcmp(b.data() + 256, &par.CalCoefs, 600), 0);
    EXPECT_SAME_BITS(-0x1.5p-12, valueAt<double>(b, 256 + 152));  // QuadX
    EXPECT_SAME_BITS(-3.0, valueAt<double>(b, 256 + 376));         // k[0]
    EXPECT_TRUE(zeroRange(b, 856, 4096));

    EXPECT_EQ(valueAt<std::int32_t>(b, 4096), 5);
    for (int i = 0; i < 3; ++i) {  // XT, YT, XA, YA per row
        for (int j = 0; j < 4; ++j)
            EXPECT_EQ(valueAt<double>(b, 4100 + 32 * i + 8 * j), 10.0 * i + 1 + j) << i << " " << j;
    }
    EXPECT_TRUE(zeroRange(b, 4196, 60000));

    EXPECT_EQ(valueAt<std::int32_t>(b, 60000), 2);
    EXPECT_EQ(valueAt<std::int32_t>(b, 60004), 3);
    EXPECT_EQ(valueAt<std::int32_t>(b, 60008), 2);
    EXPECT_TRUE(zeroRange(b, 60012, 64000));

    EXPECT_EQ(valueAt<std::int32_t>(b, kStack0), 3);
    EXPECT_EQ(valueAt<std::int32_t>(b, kStack0 + 4), 7);
    EXPECT_EQ(valueAt<float>(b, kStack0 + 8), 0.0f);
    EXPECT_EQ(valueAt<float>(b, kStack0 + 8 + 16 * 8 + 12), -8.0625f);  // point 8, RealY
    EXPECT_EQ(valueAt<std::int32_t>(b, kStack1), 2);
    EXPECT_EQ(valueAt<std::int32_t>(b, kStack1 + 4), 0);
    EXPECT_EQ(valueAt<float>(b, kStack1 + 8 + 16 * 3 + 8), 103.125f);  // point 3, RealX
}

TEST_F(BcdFileTest, WithoutStacksTheFileEndsAfterTheLineTable) {
    struct Case {
        int lineCount;
        std::size_t length;
    };
    for (const Case c : {Case{0, 4100}, Case{-5, 4100}, Case{3, 4196}, Case{100, 7300}, Case{150, 7300}}) {
        tagLenPar par = sample();
        par.Stacks.clear();
        par.LineCount = c.lineCount;
        const Bytes b = vrncal_test::readBytes(saved(par));
        EXPECT_EQ(b.size(), c.length) << c.lineCount;
        EXPECT_EQ(valueAt<std::int32_t>(b, 34), c.lineCount);

        tagLenPar back;
        ASSERT_TRUE(load(b, back));
        EXPECT_TRUE(back.Stacks.empty());
        EXPECT_EQ(back.LineCount, c.lineCount);
    }
}

TEST_F(BcdFileTest, OnlyTheFirstHundredRowsTravel) {
    tagLenPar par = sample();
    par.LineCount = 150;
    tagLenPar back;
    ASSERT_TRUE(load(vrncal_test::readBytes(saved(par)), back));
    EXPECT_EQ(back.LineCount, 150);
    EXPECT_EQ(back.XT[99], 991.0);
    EXPECT_EQ(back.YA[99], 994.0);
    EXPECT_EQ(back.Stacks.size(), 2u);
}

TEST_F(BcdFileTest, RecordThatBreaksThePointInvariantWritesOnlyWhatItHas) {
    tagLenPar par = sample();
    par.Stacks.assign(1, makeStack(0, 2, 1));
    par.Stacks[0].Size = 3;  // 9 points claimed, 4 held
    const Bytes b = vrncal_test::readBytes(saved(par));
    EXPECT_EQ(b.size(), kStack0 + 8 + 4 * 16);
    tagLenPar back;
    ASSERT_TRUE(load(b, back));
    EXPECT_TRUE(back.Stacks.empty());  // the short grid is not taken
}

// ---- loading --------------------------------------------------------------

TEST_F(BcdFileTest, RoundTripReplacesStoredMembersAndStacks) {
    const tagLenPar par = sample();
    tagLenPar back;
    ASSERT_TRUE(load(sampleBytes(), back));
    EXPECT_EQ(back.FieldSize, 163.84);
    EXPECT_EQ(back.ValSize, 120.5);
    EXPECT_EQ(back.LineCount, 3);
    EXPECT_EQ(back.Resolution, 100001);
    EXPECT_EQ(back.HalfResolution, 50001);
    EXPECT_EQ(back.HalfResolutionSq, 2500100001.0);
    EXPECT_EQ(back.LEN_XYFLIP, 1);
    EXPECT_EQ(back.XYFlip, 2);
    EXPECT_EQ(back.LEN_XINVERT, 0xFF);  // bits 0-7 of 0x1FF
    EXPECT_EQ(back.XInvert, 1);
    EXPECT_EQ(back.LEN_YINVERT, 0);
    EXPECT_EQ(back.YInvert, 0xFF);  // bits 8-15 only
    // The stored coefficients as they are: no fit after a binary load.
    EXPECT_TRUE(sameCoefs(back.CalCoefs, par.CalCoefs));
    EXPECT_EQ(back.grid, 5);
    EXPECT_EQ(back.XT[2], 21.0);
    EXPECT_EQ(back.YA[2], 24.0);
    EXPECT_EQ(back.XT[3], -1.0);  // beyond LineCount: untouched
    ASSERT_EQ(back.Stacks.size(), 2u);  // the previous stack is gone, not appended to
    expectSameStack(par.Stacks[0], back.Stacks[0]);
    expectSameStack(par.Stacks[1], back.Stacks[1]);
    expectUnstoredKept(back);
}

TEST_F(BcdFileTest, GridsOfOneAndNoPointsAreKept) {
    tagLenPar par = sample();
    par.Stacks = {makeStack(0, 1, 1), makeStack(1, 0, 2), makeStack(2, 2, 0)};
    tagLenPar back;
    ASSERT_TRUE(load(vrncal_test::readBytes(saved(par)), back));
    ASSERT_EQ(back.Stacks.size(), 3u);
    for (int i = 0; i < 3; ++i) expectSameStack(par.Stacks[i], back.Stacks[i]);
}

TEST_F(BcdFileTest, ResolutionBelowTheDefaultRangeIsRaised) {
    struct Case {
        int saved, resolution, half;
        double square;
    };
    const Case cases[] = {
        {40000, 65535, 32768, 1073741824.0},
        {-5, 65535, 32768, 1073741824.0},
        {65535, 65535, 32768, 1073741824.0},
        {65536, 65536, 32768, 1073741824.0},
        {100001, 100001, 50001, 2500100001.0},
        // (INT_MAX + 1) >> 1 wraps in 32 bits to a negative centre.
        {INT_MAX, INT_MAX, -1073741824, 0x1p+60},
    };
    for (const Case& c : cases) {
        tagLenPar par = sample();
        par.Resolution = c.saved;
        tagLenPar back;
        ASSERT_TRUE(load(vrncal_test::readBytes(saved(par)), back));
        EXPECT_EQ(back.Resolution, c.resolution) << c.saved;
        EXPECT_EQ(back.HalfResolution, c.half) << c.saved;
        EXPECT_SAME_BITS(c.square, back.HalfResolutionSq);
    }
}

TEST_F(BcdFileTest, BaseRealsOfOneOrLessKeepThePreviousValues) {
    Bytes b = sampleBytes();
    tagLenPar back;
    for (double v : {0.5, 1.0, -200.0, std::numeric_limits<double>::quiet_NaN()}) {
        putValue(b, 10, v);
        putValue(b, 18, v);
        ASSERT_TRUE(load(b, back));
        EXPECT_EQ(back.FieldSize, 11.0) << v;
        EXPECT_EQ(back.ValSize, 12.0) << v;
        EXPECT_EQ(back.Resolution, 100001);  // the rest still loads
    }
    putValue(b, 10, 0x1.0000000000001p+0);
    putValue(b, 18, std::numeric_limits<double>::infinity());
    ASSERT_TRUE(load(b, back));
    EXPECT_EQ(back.FieldSize, 0x1.0000000000001p+0);
    EXPECT_EQ(back.ValSize, std::numeric_limits<double>::infinity());
}

TEST_F(BcdFileTest, VersionThreeIsRefusedWithOnlyTheStacksEmptied) {
    Bytes b = sampleBytes();
    b[7] = '3';
    tagLenPar back;
    EXPECT_FALSE(load(b, back));
    EXPECT_TRUE(back.Stacks.empty());
    const tagLenPar before = previous();
    EXPECT_EQ(back.FieldSize, 11.0);
    EXPECT_EQ(back.Resolution, 70001);
    EXPECT_EQ(back.HalfResolution, 1);
    EXPECT_EQ(back.LEN_XYFLIP, 7);
    EXPECT_TRUE(sameCoefs(back.CalCoefs, before.CalCoefs));
    EXPECT_EQ(back.LineCount, 4);

    for (std::uint8_t v : {0x01, 0x32, 0x34, 0xFF}) {  // every other version loads
        b[7] = v;
        EXPECT_TRUE(load(b, back)) << int(v);
        EXPECT_EQ(back.Stacks.size(), 2u);
        EXPECT_EQ(back.Resolution, 100001);
    }
}

TEST_F(BcdFileTest, UnopenablePathsFail) {
    tagLenPar par = previous();
    EXPECT_FALSE(CBcdFile::LoadBcdFile(path("missing/cal.bcd").c_str(), par));
    EXPECT_TRUE(par.Stacks.empty());
    EXPECT_EQ(par.FieldSize, 11.0);
    EXPECT_EQ(par.Resolution, 70001);

    par = previous();
    EXPECT_FALSE(CBcdFile::LoadBcdFile(nullptr, par));
    EXPECT_TRUE(par.Stacks.empty());

    tagLenPar rec = sample();
    EXPECT_FALSE(CBcdFile::SaveBcdFile(path("missing/cal.bcd").c_str(), rec));
    EXPECT_FALSE(CBcdFile::SaveBcdFile(nullptr, rec));
    EXPECT_FALSE(std::filesystem::exists(path("missing")));
}

// ---- the text fallback ----------------------------------------------------

// A correction table with a distorted nine-point grid and one 5 x 5 grid.
std::string correctionTable() {
    std::string t =
        "[CalCoefs]\nValSize=120.3\nResolution=65535\nLEN_XINVERT=1\norder=5\n"
        "[Cal3]\n"
        "PNT0=-40 40 -40.344666 38.95457\nPNT1=0 40 0.01868591 39.846813\n"
        "PNT2=40 40 40.384872 39.16773\nPNT3=-40 0 -40.08948 -0.18597838\n"
        "PNT4=0 0 0.119339816 -0.08322935\nPNT5=40 0 40.32923 0.02442044\n"
        "PNT6=-40 -40 -40.142128 -39.32385\nPNT7=0 -40 0.22413167 -40.00827\n"
        "PNT8=40 -40 40.586285 -39.11505\n"
        "grid=1\nLineCount=3\nXT1=2.5\n"
        "[Cal5]\n";
    for (int i = 0; i < 25; ++i) {
        const int x = (i % 5 - 2) * 20, y = (2 - i / 5) * 20;
        t += "PNT" + std::to_string(i) + "=" + std::to_string(x) + " " + std::to_string(y) + " " +
             std::to_string(x) + ".25 " + std::to_string(y) + ".5\n";
    }
    return t;
}

TEST_F(BcdFileTest, TextFileIsLoadedAndFitted) {
    const std::string p = path("lens.cor");
    std::ofstream(p) << correctionTable();

    tagLenPar expected = previous();
    expected.Stacks.clear();
    ASSERT_EQ(CBcdFile::LoadCorFile(p.c_str(), expected), 1);
    const tagCalCoefs unfitted = expected.CalCoefs;
    CCalibAlg::MVLSMCoef(expected);
    ASSERT_FALSE(sameCoefs(unfitted, expected.CalCoefs));

    tagLenPar par = previous();
    ASSERT_TRUE(CBcdFile::LoadBcdFile(p.c_str(), par));
    EXPECT_TRUE(sameCoefs(par.CalCoefs, expected.CalCoefs));
    ASSERT_EQ(par.Stacks.size(), 1u);  // the previous stack was dropped first
    EXPECT_EQ(par.Stacks[0].Size, 5);
    EXPECT_EQ(par.Stacks[0].InOrder, 1);
    EXPECT_EQ(par.ValSize, static_cast<double>(120.3f));
}

TEST_F(BcdFileTest, TextThenBinaryRoundTripKeepsTheRecord) {
    const std::string p = path("lens.cor");
    std::ofstream(p) << correctionTable();
    tagLenPar first;
    ASSERT_TRUE(CBcdFile::LoadBcdFile(p.c_str(), first));
    tagLenPar second;
    ASSERT_TRUE(load(vrncal_test::readBytes(saved(first)), second));

    EXPECT_TRUE(sameCoefs(second.CalCoefs, first.CalCoefs));
    EXPECT_EQ(second.ValSize, first.ValSize);
    EXPECT_EQ(second.FieldSize, first.FieldSize);
    EXPECT_EQ(second.Resolution, 65535);
    EXPECT_EQ(second.HalfResolution, 32768);
    EXPECT_EQ(second.LEN_XINVERT, 1);
    EXPECT_EQ(second.XInvert, 1);
    EXPECT_EQ(second.grid, 1);
    EXPECT_EQ(second.LineCount, 3);
    EXPECT_EQ(second.XT[1], 2.5);
    EXPECT_EQ(second.XA[2], -100000.0);
    ASSERT_EQ(second.Stacks.size(), 1u);
    expectSameStack(first.Stacks[0], second.Stacks[0]);
}

TEST_F(BcdFileTest, AnythingWithoutTheMagicGoesToTheTextLoader) {
    // Binary garbage, a near-miss magic, and a file shorter than the magic:
    // the text loader finds no nine points, so the load fails without a fit.
    const Bytes inputs[] = {
        Bytes{'V', 'R', 'N', 'C', 'L', 'D', 'X', 0, 1, 2, 0xFF, '\n', '[', 'x'},
        Bytes{'v', 'R', 'N', 'C', 'L', 'D', 'T', 0},
        Bytes{'V', 'R', 'N'},
        Bytes{},
    };
    for (const Bytes& in : inputs) {
        tagLenPar back;
        EXPECT_FALSE(load(in, back)) << in.size();
        EXPECT_TRUE(back.Stacks.empty());
        EXPECT_EQ(back.ValSize, 100.0);  // the text loader's default
        EXPECT_EQ(back.Resolution, 65535);
        EXPECT_EQ(back.HalfResolution, 1);  // not derived on this path
        EXPECT_TRUE(sameCoefs(back.CalCoefs, previous().CalCoefs));
    }
}

// ---- files that end early or lie ------------------------------------------

// What a load of the sample cut to `cut` bytes must give: every member whose
// bytes are all in the file is new, a member cut by the end takes the bytes
// present, every later one is as before.
void expectLoadedUpTo(std::size_t cut, const tagLenPar& back) {
    const tagLenPar now = sample();
    const tagLenPar old = previous();
    const auto has = [cut](std::size_t offset, std::size_t size) { return offset + size <= cut; };
    SCOPED_TRACE("cut at " + std::to_string(cut));

    // The reals and flag words count only when whole.
    EXPECT_EQ(back.FieldSize, has(10, 8) ? now.FieldSize : old.FieldSize);
    EXPECT_EQ(back.ValSize, has(18, 8) ? now.ValSize : old.ValSize);
    EXPECT_EQ(back.LEN_XYFLIP, has(42, 4) ? 1 : 7);
    EXPECT_EQ(back.XYFlip, has(42, 4) ? 2 : 7);
    EXPECT_EQ(back.LEN_XINVERT, has(46, 4) ? 0xFF : 7);
    EXPECT_EQ(back.YInvert, has(50, 4) ? 0xFF : 7);

    EXPECT_EQ(back.LineCount, cutValue(now.LineCount, old.LineCount, 34, cut));
    const int read = cutValue(now.Resolution, old.Resolution, 38, cut);
    const int resolution = read < 65535 ? 65535 : read;
    EXPECT_EQ(back.Resolution, resolution);
    EXPECT_EQ(back.HalfResolution, (resolution + 1) / 2);
    EXPECT_TRUE(sameCoefs(back.CalCoefs, cutValue(now.CalCoefs, old.CalCoefs, 256, cut)));
    EXPECT_EQ(back.grid, cutValue(now.grid, old.grid, 4096, cut));
    for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t row = 4100 + 32 * i;
        EXPECT_EQ(back.XT[i], cutValue(now.XT[i], old.XT[i], row, cut)) << i;
        EXPECT_EQ(back.YT[i], cutValue(now.YT[i], old.YT[i], row + 8, cut)) << i;
        EXPECT_EQ(back.XA[i], cutValue(now.XA[i], old.XA[i], row + 16, cut)) << i;
        EXPECT_EQ(back.YA[i], cutValue(now.YA[i], old.YA[i], row + 24, cut)) << i;
    }
    const std::size_t stacks = has(kStack1, 72) ? 2 : has(kStack0, 152) ? 1 : 0;
    ASSERT_EQ(back.Stacks.size(), stacks);
    for (std::size_t i = 0; i < stacks; ++i) expectSameStack(now.Stacks[i], back.Stacks[i]);
    expectUnstoredKept(back);
}

TEST_F(BcdFileTest, ShortFileIsReadAsFarAsItGoes) {
    const Bytes full = sampleBytes();
    const std::size_t cuts[] = {7, 8, 10, 14, 18, 25, 26, 34, 35, 37, 39,
                                38,    41,    42,    45,    46,    50,    53,    54,    62,
                                256,   300,   855,   856,   4096,  4099,  4100,  4107,  4108,
                                4131,  4132,  4195,  4196,  59999, 60000, 60003, 60004, 60008,
                                60012, 63999, 64000, 64004, 64008, 64100, 64151, 64152, 64159,
                                64160, 64223, kSampleLength};
    for (std::size_t cut : cuts) {
        tagLenPar back;
        ASSERT_TRUE(load(Bytes(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(cut)), back))
            << cut;
        expectLoadedUpTo(cut, back);
    }
}

TEST_F(BcdFileTest, StackCountBeyondTheFileKeepsTheStacksPresent) {
    Bytes b = sampleBytes();
    tagLenPar back;
    for (std::int32_t s : {INT_MAX, 3, 1000, 20000}) {
        putValue(b, 60000, s);
        ASSERT_TRUE(load(b, back)) << s;
        ASSERT_EQ(back.Stacks.size(), 2u) << s;
        expectSameStack(sample().Stacks[1], back.Stacks[1]);
    }
    // One more stack claimed and 8 zero bytes present: a complete empty grid.
    putValue(b, 60000, std::int32_t{3});
    b.resize(kSampleLength + 8, 0);
    ASSERT_TRUE(load(b, back));
    ASSERT_EQ(back.Stacks.size(), 3u);
    EXPECT_EQ(back.Stacks[2].Size, 0);
    EXPECT_TRUE(back.Stacks[2].Points.empty());
}

TEST_F(BcdFileTest, StackCountBelowOneReadsNoStacks) {
    Bytes b = sampleBytes();
    tagLenPar back;
    for (std::int32_t s : {0, -1, INT_MIN}) {
        putValue(b, 60000, s);
        ASSERT_TRUE(load(b, back)) << s;
        EXPECT_TRUE(back.Stacks.empty()) << s;
        EXPECT_EQ(back.grid, 5);
    }
}

TEST_F(BcdFileTest, GridSizeThatTheFileCannotHoldEndsTheStacks) {
    // 0x10000 squared wraps to 0 in 32 bits; 46341 squared passes INT_MAX.
    const std::int32_t sizes[] = {0x10000, 46341, INT_MAX, -2, INT_MIN, 4};
    for (std::int32_t n : sizes) {
        Bytes b = sampleBytes();
        tagLenPar back;
        putValue(b, kStack1, n);  // the second record lies: the first is kept
        ASSERT_TRUE(load(b, back)) << n;
        ASSERT_EQ(back.Stacks.size(), 1u) << n;
        expectSameStack(sample().Stacks[0], back.Stacks[0]);

        putValue(b, kStack0, n);  // the first lies: none is kept
        ASSERT_TRUE(load(b, back)) << n;
        EXPECT_TRUE(back.Stacks.empty()) << n;
    }
}

TEST_F(BcdFileTest, RecordSizeOverridesTheTable) {
    Bytes b = sampleBytes();
    putValue(b, 60004, INT_MAX);
    putValue(b, 60008, std::int32_t{-1});
    tagLenPar back;
    ASSERT_TRUE(load(b, back));
    ASSERT_EQ(back.Stacks.size(), 2u);
    expectSameStack(sample().Stacks[0], back.Stacks[0]);
    expectSameStack(sample().Stacks[1], back.Stacks[1]);
}

}  // namespace
