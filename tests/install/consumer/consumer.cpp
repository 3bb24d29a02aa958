// A minimal host program built against the installed library: check the
// version, load a calibration, correct a point one at a time and in a batch,
// print counts.
#include <cstdio>
#include <cstring>

#include <vrncal/vrncal.h>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: consumer CALIBRATION\n");
        return 2;
    }
    if (std::strcmp(vrncal::version(), VRNCAL_VERSION_STRING) != 0) {
        std::fprintf(stderr, "built against %s, running with %s\n", VRNCAL_VERSION_STRING, vrncal::version());
        return 1;
    }
    tagLenPar lens;
    VrnCal cal;
    const vrncal::LoadResult loaded = vrncal::load(argv[1], lens);
    if (!loaded) {
        std::fprintf(stderr, "%s\n", loaded.message.c_str());
        return 1;
    }
    lens.CalMode = 1;
    tagKelPointF field{0.0f, 0.0f}, one{}, batch{};
    cal.CalibPoint(lens, field, one);
    vrncal::Corrector(lens).correct(field, batch);
    if (std::memcmp(&one, &batch, sizeof one) != 0) {
        std::fprintf(stderr, "batch and single corrections differ\n");
        return 1;
    }
    std::printf("%.0f %.0f\n", kel_round(one.x), kel_round(one.y));
    return 0;
}
