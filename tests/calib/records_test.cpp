// Default-constructed records: every member initialised, with the neutral
// defaults the facade also uses for a record of its own.
#include <cstring>
#include <new>
#include <vector>

#include <gtest/gtest.h>

#include "vrncal/records.h"

namespace {

// Default-initialises a T (no value-initialisation that would zero members
// without an initialiser) in storage pre-filled with `fill`.
template <typename T>
struct Poisoned {
    alignas(T) unsigned char storage[sizeof(T)];
    T* object;
    explicit Poisoned(unsigned char fill) {
        std::memset(storage, fill, sizeof storage);
        object = new (storage) T;
    }
    ~Poisoned() { object->~T(); }
    Poisoned(const Poisoned&) = delete;
    Poisoned& operator=(const Poisoned&) = delete;
};

// A member whose bytes depend on what the storage held before construction
// has no initialiser.
#define VRNCAL_SAME_MEMBER(a, b, m) \
    EXPECT_EQ(0, std::memcmp(&(a).m, &(b).m, sizeof((a).m))) << #m " is left indeterminate"

TEST(Records, DefaultConstructionLeavesNothingIndeterminate) {
    const Poisoned<tagLenPar> zeros(0x00);
    const Poisoned<tagLenPar> ones(0xff);
    const tagLenPar& a = *zeros.object;
    const tagLenPar& b = *ones.object;
#define M(m) VRNCAL_SAME_MEMBER(a, b, m)
    M(LeadScale); M(LeadSpare); M(FieldSize); M(ValSize); M(Resolution); M(HalfResolution);
    M(HalfResolutionSq); M(LEN_XYFLIP); M(LEN_XINVERT); M(LEN_YINVERT); M(BoxOffsetX);
    M(BoxOffsetY); M(BoxSpare); M(BoxBarrelX); M(BoxBarrelY); M(BoxSkewX); M(BoxSkewY);
    M(BoxTrapX); M(BoxTrapY); M(BoxScaleX); M(BoxScaleY); M(BoxGrid); M(BoxLineCount);
    M(BoxXT); M(BoxYT); M(BoxXA); M(BoxYA); M(BoxXR); M(BoxYR); M(SftShiftX); M(SftShiftY);
    M(SftScaleX); M(SftScaleY); M(CalMode); M(XYFlip); M(XInvert); M(YInvert); M(grid);
    M(LineCount); M(XT); M(YT); M(XA); M(YA); M(XR); M(YR);
#undef M
    // The coefficient block is written raw: all of its bytes, padding included.
    EXPECT_EQ(0, std::memcmp(&a.CalCoefs, &b.CalCoefs, sizeof(tagCalCoefs)));
    EXPECT_TRUE(a.Stacks.empty());

    const Poisoned<tagStack> s0(0x00), s1(0xff);
    EXPECT_EQ(s0.object->Size, s1.object->Size);
    EXPECT_EQ(s0.object->InOrder, s1.object->InOrder);
    const Poisoned<tagCalData> c0(0x00), c1(0xff);
    EXPECT_EQ(0, std::memcmp(c0.object, c1.object, sizeof(tagCalData)));
    const Poisoned<tagKelPointF> p0(0x00), p1(0xff);
    EXPECT_EQ(0, std::memcmp(p0.object, p1.object, sizeof(tagKelPointF)));
}

TEST(Records, DefaultsDescribeANeutralLens) {
    const tagLenPar r;  // compiles only while every member has an initialiser
    EXPECT_EQ(r.LeadScale, 10000.0f);
    EXPECT_EQ(r.FieldSize, 100.0);
    EXPECT_EQ(r.ValSize, 80.0);
    EXPECT_EQ(r.Resolution, 65535);
    EXPECT_EQ(r.HalfResolution, 32768);
    EXPECT_EQ(r.HalfResolutionSq, 1073741824.0);
    EXPECT_EQ(r.LEN_XYFLIP | r.LEN_XINVERT | r.LEN_YINVERT, 0);
    EXPECT_EQ(r.XYFlip | r.XInvert | r.YInvert | r.CalMode, 0);
    EXPECT_EQ(r.BoxOffsetX, 0.0);
    EXPECT_EQ(r.BoxOffsetY, 0.0);
    for (double f : {r.BoxBarrelX, r.BoxBarrelY, r.BoxSkewX, r.BoxSkewY, r.BoxTrapX, r.BoxTrapY})
        EXPECT_EQ(f, 1.0);
    EXPECT_EQ(r.BoxScaleX, 100.0);
    EXPECT_EQ(r.BoxScaleY, 100.0);
    EXPECT_EQ(r.BoxGrid, 0);
    EXPECT_EQ(r.BoxLineCount, 21);
    EXPECT_EQ(r.SftShiftX, 0.0f);
    EXPECT_EQ(r.SftShiftY, 0.0f);
    EXPECT_EQ(r.SftScaleX, 1.0f);
    EXPECT_EQ(r.SftScaleY, 1.0f);
    EXPECT_EQ(r.grid, 0);
    EXPECT_EQ(r.LineCount, 21);
    EXPECT_EQ(r.XT[99], 0.0);
    EXPECT_EQ(r.BoxYR[0], 0.0);

    const tagCalCoefs& c = r.CalCoefs;
    EXPECT_EQ(c.LinX, 1.0);
    EXPECT_EQ(c.LinY, 1.0);
    EXPECT_EQ(c.QuadX, 0.0);
    EXPECT_EQ(c.QuadY, 0.0);
    EXPECT_EQ(c.XWarpSpare[0], 1.0);  // the first unused pre-warp term defaults to 1
    EXPECT_EQ(c.YWarpSpare[0], 1.0);
    for (double a : {c.AxisXL, c.AxisXR, c.AxisYT, c.AxisYB}) EXPECT_EQ(a, 50.0);
    for (double s : {c.SXL, c.SXR, c.ScaleX, c.SYT, c.SYB, c.ScaleY}) EXPECT_EQ(s, 1.0);
    for (double z : {c.OX, c.OY, c.TXL, c.TXR, c.TYT, c.TYB, c.PLX, c.PLY}) EXPECT_EQ(z, 0.0);
    EXPECT_EQ(c.Y2XAngle, 1.5707963267948966);
    EXPECT_EQ(c.k[19], 0.0);
    EXPECT_EQ(c.s[7], 0.0);
    EXPECT_EQ(c.Cal3Pnts[8].RealY, 0.0f);
}

}  // namespace
