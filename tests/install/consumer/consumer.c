/* A minimal C host built against the installed library: load a calibration
 * through the C API, correct one point and a batch, print counts. */
#include <math.h>
#include <stdio.h>

#include <vrncal/vrncal_c.h>

int main(int argc, char** argv) {
    vrncal_calibration* cal;
    float field[2] = {0.0f, 0.0f}, batch[2], x, y;
    if (argc != 2) {
        fprintf(stderr, "usage: consumer_c CALIBRATION\n");
        return 2;
    }
    cal = vrncal_create();
    if (vrncal_load(cal, argv[1]) != VRNCAL_OK) {
        fprintf(stderr, "%s\n", vrncal_message(cal));
        vrncal_destroy(cal);
        return 1;
    }
    vrncal_correct(cal, field[0], field[1], &x, &y);
    vrncal_correct_points(cal, field, batch, 1);
    vrncal_destroy(cal);
    if (batch[0] != x || batch[1] != y) {
        fprintf(stderr, "batch and single corrections differ\n");
        return 1;
    }
    printf("%.0f %.0f\n", floor(x + 0.5), floor(y + 0.5));
    return 0;
}
