// Every bit of a calibration record, member by member (padding left out), so
// that two records can be compared exactly: used by the differential fuzz
// targets and the file tests.
#ifndef VRNCAL_FUZZ_RECORD_BITS_H
#define VRNCAL_FUZZ_RECORD_BITS_H

#include <string>

#include <vrncal/records.h>

namespace vrncal_check {

inline std::string recordBits(const tagLenPar& p) {
    std::string s;
    auto put = [&s](const auto& v) { s.append(reinterpret_cast<const char*>(&v), sizeof v); };
    put(p.LeadScale), put(p.LeadSpare), put(p.FieldSize), put(p.ValSize), put(p.Resolution);
    put(p.HalfResolution), put(p.HalfResolutionSq), put(p.LEN_XYFLIP), put(p.LEN_XINVERT);
    put(p.LEN_YINVERT), put(p.BoxOffsetX), put(p.BoxOffsetY), put(p.BoxSpare), put(p.BoxBarrelX);
    put(p.BoxBarrelY), put(p.BoxSkewX), put(p.BoxSkewY), put(p.BoxTrapX), put(p.BoxTrapY);
    put(p.BoxScaleX), put(p.BoxScaleY), put(p.BoxGrid), put(p.BoxLineCount), put(p.BoxXT);
    put(p.BoxYT), put(p.BoxXA), put(p.BoxYA), put(p.BoxXR), put(p.BoxYR), put(p.SftShiftX);
    put(p.SftShiftY), put(p.SftScaleX), put(p.SftScaleY), put(p.CalMode), put(p.XYFlip);
    put(p.XInvert), put(p.YInvert), put(p.CalCoefs), put(p.grid), put(p.LineCount), put(p.XT);
    put(p.YT), put(p.XA), put(p.YA), put(p.XR), put(p.YR);
    for (const tagStack& st : p.Stacks) {
        put(st.Size), put(st.InOrder), put(st.Points.size());
        s.append(reinterpret_cast<const char*>(st.Points.data()), st.Points.size() * sizeof(tagCalData));
    }
    return s;
}

}  // namespace vrncal_check

#endif
