// A minimal host program built against the installed library: load a
// calibration, correct a point one at a time and in a batch, print counts.
#include <cstdio>
#include <cstring>

#include <vrncal/vrncal.h>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: consumer CALIBRATION\n");
        return 2;
    }
    tagLenPar lens;
    VrnCal cal;
    if (!cal.loadUcf(argv[1], lens)) {
        std::fprintf(stderr, "%s: not loaded\n", argv[1]);
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
