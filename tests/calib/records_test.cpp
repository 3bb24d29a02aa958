// Default-constructed records: every member initialised.  The values, the
// neutral defaults the facade also uses for a record of its own, are in
// tests/data/facade.cases.
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

}  // namespace
