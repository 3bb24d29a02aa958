// Compile-time checks of the record layouts that files and hosts depend on.
#include <cstddef>
#include <type_traits>

#include "vrncal/records.h"

static_assert(sizeof(tagKelPointF) == 8, "tagKelPointF is two floats");
static_assert(sizeof(tagCalData) == 16, "tagCalData is written raw as 16 bytes");
static_assert(sizeof(tagCalCoefs) == 600, "the coefficient block is written raw as 600 bytes");
static_assert(std::is_trivially_copyable<tagCalCoefs>::value, "the coefficient block is copied raw");
static_assert(std::is_trivially_copyable<tagCalData>::value, "points are copied raw");

// Member order of the coefficient block (its bytes are the file's bytes).
static_assert(offsetof(tagCalCoefs, Cal3Pnts) == 0, "");
static_assert(offsetof(tagCalCoefs, LinX) == 144, "");
static_assert(offsetof(tagCalCoefs, QuadX) == 152, "");
static_assert(offsetof(tagCalCoefs, LinY) == 184, "");
static_assert(offsetof(tagCalCoefs, QuadY) == 192, "");
static_assert(offsetof(tagCalCoefs, AxisXL) == 224, "");
static_assert(offsetof(tagCalCoefs, OX) == 256, "");
static_assert(offsetof(tagCalCoefs, SXL) == 272, "");
static_assert(offsetof(tagCalCoefs, ScaleX) == 288, "");
static_assert(offsetof(tagCalCoefs, ScaleY) == 312, "");
static_assert(offsetof(tagCalCoefs, TXL) == 320, "");
static_assert(offsetof(tagCalCoefs, PLX) == 352, "");
static_assert(offsetof(tagCalCoefs, Y2XAngle) == 368, "");
static_assert(offsetof(tagCalCoefs, k) == 376, "");
static_assert(offsetof(tagCalCoefs, s) == 536, "");

// Member order of the lens record.
#define VRNCAL_BEFORE(a, b) static_assert(offsetof(tagLenPar, a) < offsetof(tagLenPar, b), #a " precedes " #b)
static_assert(offsetof(tagLenPar, FieldSize) == 8, "the leading word is 8 bytes");
VRNCAL_BEFORE(FieldSize, ValSize);
VRNCAL_BEFORE(ValSize, Resolution);
VRNCAL_BEFORE(Resolution, HalfResolution);
VRNCAL_BEFORE(HalfResolution, HalfResolutionSq);
VRNCAL_BEFORE(HalfResolutionSq, LEN_XYFLIP);
VRNCAL_BEFORE(LEN_XYFLIP, LEN_XINVERT);
VRNCAL_BEFORE(LEN_XINVERT, LEN_YINVERT);
VRNCAL_BEFORE(LEN_YINVERT, BoxOffsetX);
VRNCAL_BEFORE(BoxOffsetX, BoxOffsetY);
VRNCAL_BEFORE(BoxOffsetY, BoxSpare);
VRNCAL_BEFORE(BoxSpare, BoxBarrelX);
VRNCAL_BEFORE(BoxBarrelX, BoxBarrelY);
VRNCAL_BEFORE(BoxBarrelY, BoxSkewX);
VRNCAL_BEFORE(BoxSkewX, BoxSkewY);
VRNCAL_BEFORE(BoxSkewY, BoxTrapX);
VRNCAL_BEFORE(BoxTrapX, BoxTrapY);
VRNCAL_BEFORE(BoxTrapY, BoxScaleX);
VRNCAL_BEFORE(BoxScaleX, BoxScaleY);
VRNCAL_BEFORE(BoxScaleY, BoxGrid);
VRNCAL_BEFORE(BoxGrid, BoxLineCount);
VRNCAL_BEFORE(BoxLineCount, BoxXT);
VRNCAL_BEFORE(BoxXT, BoxYT);
VRNCAL_BEFORE(BoxYT, BoxXA);
VRNCAL_BEFORE(BoxXA, BoxYA);
VRNCAL_BEFORE(BoxYA, BoxXR);
VRNCAL_BEFORE(BoxXR, BoxYR);
VRNCAL_BEFORE(BoxYR, SftShiftX);
VRNCAL_BEFORE(SftShiftX, SftShiftY);
VRNCAL_BEFORE(SftShiftY, SftScaleX);
VRNCAL_BEFORE(SftScaleX, SftScaleY);
VRNCAL_BEFORE(SftScaleY, CalMode);
VRNCAL_BEFORE(CalMode, XYFlip);
VRNCAL_BEFORE(XYFlip, XInvert);
VRNCAL_BEFORE(XInvert, YInvert);
VRNCAL_BEFORE(YInvert, CalCoefs);
VRNCAL_BEFORE(CalCoefs, Stacks);
VRNCAL_BEFORE(Stacks, grid);
VRNCAL_BEFORE(grid, LineCount);
VRNCAL_BEFORE(LineCount, XT);
VRNCAL_BEFORE(XT, YT);
VRNCAL_BEFORE(YT, XA);
VRNCAL_BEFORE(XA, YA);
VRNCAL_BEFORE(YA, XR);
VRNCAL_BEFORE(XR, YR);
#undef VRNCAL_BEFORE
