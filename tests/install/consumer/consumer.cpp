// A minimal host program built against the installed library.
#include <cstdio>

#include <vrncal/vrncal.h>

int main() {
    const double centre = kel_round(32767.5);
    std::printf("%.0f %.0f\n", centre, centre);
    return 0;
}
