/* The C API from a program in C: every function, with the bundled sample.
 * usage: vrncal_capi_test SAMPLE.cor WORK_DIR VERSION */
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <vrncal/vrncal_c.h>

static int failures = 0;

#define CHECK(cond)                                                       \
    do {                                                                  \
        if (!(cond)) {                                                    \
            fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #cond); \
            ++failures;                                                   \
        }                                                                 \
    } while (0)

static int same_bits(const float* a, const float* b, size_t n) { return memcmp(a, b, n * sizeof(float)) == 0; }

enum { N = 2000 };

/* Field points over 1.5 times the calibrated field, and some hostile ones. */
static void probe(float* xy) {
    unsigned s = 12345u;
    size_t i;
    for (i = 0; i < 2 * N; ++i) {
        s = s * 1103515245u + 12345u;
        xy[i] = (float)((s >> 8) % 120001u) / 1000.0f - 60.0f;
    }
    xy[0] = 0.0f, xy[1] = -0.0f, xy[2] = (float)INFINITY, xy[3] = -1e30f, xy[4] = (float)NAN, xy[5] = 40.0f;
}

static int write_degenerate_table(const char* path) {
    FILE* f = fopen(path, "w");
    int i;
    if (f == NULL) return 0;
    fprintf(f, "[CalCoefs]\nValSize=80\n[Cal3]\n");
    for (i = 0; i < 9; ++i) fprintf(f, "PNT%d=%d %d 0 0\n", i, 40 * (i % 3) - 40, 40 - 40 * (i / 3));
    return fclose(f) == 0;
}

/* Batch and single corrections agree bit for bit. */
static void check_batch(const vrncal_calibration* cal, const float* in) {
    static float batch[2 * N], single[2 * N];
    size_t i;
    CHECK(vrncal_correct_points(cal, in, batch, N) == VRNCAL_OK);
    for (i = 0; i < N; ++i) CHECK(vrncal_correct(cal, in[2 * i], in[2 * i + 1], &single[2 * i], &single[2 * i + 1]) == VRNCAL_OK);
    CHECK(same_bits(batch, single, 2 * N));
}

int main(int argc, char** argv) {
    static float in[2 * N], first[2 * N], again[2 * N];
    char path[4096];
    vrncal_calibration* cal;
    vrncal_calibration* back;
    float cx = 0.0f, cy = 0.0f;
    double fs = 0.0;
    unsigned flags = 99;
    int mode = -1;
    size_t problems = 99;

    if (argc != 4) {
        fprintf(stderr, "usage: vrncal_capi_test SAMPLE WORK_DIR VERSION\n");
        return 2;
    }
    probe(in);
    CHECK(strcmp(vrncal_version(), argv[3]) == 0);

    cal = vrncal_create();
    CHECK(cal != NULL);
    CHECK(vrncal_get_mode(cal, &mode) == VRNCAL_OK && mode == VRNCAL_MODE_GRID);
    CHECK(vrncal_get_field_size(cal, &fs) == VRNCAL_OK && fs == 100.0);
    CHECK(strcmp(vrncal_message(cal), "") == 0);

    /* Loading: a missing file is refused with a message naming it. */
    snprintf(path, sizeof path, "%s/missing.cor", argv[2]);
    CHECK(vrncal_load(cal, path) == VRNCAL_ERROR_FILE);
    CHECK(strncmp(vrncal_message(cal), path, strlen(path)) == 0);
    CHECK(vrncal_load(cal, argv[1]) == VRNCAL_OK);
    CHECK(strcmp(vrncal_message(cal), "") == 0);
    CHECK(vrncal_correct(cal, 12.5f, -3.0f, &cx, &cy) == VRNCAL_OK);
    CHECK(cx == 40842.81640625f && cy == 30823.65625f);
    CHECK(vrncal_validate(cal, &problems) == VRNCAL_OK && problems == 0);
    check_batch(cal, in);
    CHECK(vrncal_correct_points(cal, in, first, N) == VRNCAL_OK);

    /* Flags, mode and field size change the corrections; bad values are refused. */
    CHECK(vrncal_set_flags(cal, VRNCAL_FLAG_XY_FLIP | VRNCAL_FLAG_X_INVERT | VRNCAL_FLAG_BOX_Y_INVERT) == VRNCAL_OK);
    CHECK(vrncal_get_flags(cal, &flags) == VRNCAL_OK);
    CHECK(flags == (VRNCAL_FLAG_XY_FLIP | VRNCAL_FLAG_X_INVERT | VRNCAL_FLAG_BOX_Y_INVERT));
    check_batch(cal, in);
    CHECK(vrncal_set_mode(cal, VRNCAL_MODE_BOX) == VRNCAL_OK);
    CHECK(vrncal_get_mode(cal, &mode) == VRNCAL_OK && mode == VRNCAL_MODE_BOX);
    check_batch(cal, in);
    CHECK(vrncal_set_field_size(cal, 120.0) == VRNCAL_OK);
    CHECK(vrncal_get_field_size(cal, &fs) == VRNCAL_OK && fs == 120.0);
    CHECK(vrncal_set_field_size(cal, NAN) == VRNCAL_ERROR_ARGUMENT && strstr(vrncal_message(cal), "field size"));
    CHECK(vrncal_set_flags(cal, 0x40u) == VRNCAL_ERROR_ARGUMENT);
    CHECK(vrncal_set_mode(cal, 2) == VRNCAL_ERROR_ARGUMENT);
    CHECK(vrncal_get_field_size(cal, &fs) == VRNCAL_OK && fs == 120.0);
    CHECK(vrncal_set_field_size(cal, 0.0) == VRNCAL_ERROR_ARGUMENT);
    CHECK(vrncal_set_field_size(cal, 100.0) == VRNCAL_OK && vrncal_set_flags(cal, 0) == VRNCAL_OK);
    CHECK(vrncal_set_mode(cal, VRNCAL_MODE_GRID) == VRNCAL_OK);
    CHECK(vrncal_correct_points(cal, in, again, N) == VRNCAL_OK && same_bits(first, again, 2 * N));

    /* Saving writes a data file that loads back to the same corrections; a
     * folder that does not exist is refused. */
    snprintf(path, sizeof path, "%s/capi.dat", argv[2]);
    CHECK(vrncal_save(cal, path) == VRNCAL_OK);
    back = vrncal_create();
    CHECK(vrncal_load(back, path) == VRNCAL_OK);
    CHECK(vrncal_correct_points(back, in, again, N) == VRNCAL_OK && same_bits(first, again, 2 * N));
    snprintf(path, sizeof path, "%s/no-such-folder/capi.dat", argv[2]);
    CHECK(vrncal_save(cal, path) == VRNCAL_ERROR_FILE && strstr(vrncal_message(cal), "no-such-folder"));

    /* A calibration whose correction cannot make sense: nine points all
     * measured at the centre. */
    snprintf(path, sizeof path, "%s/degenerate.cor", argv[2]);
    CHECK(write_degenerate_table(path));
    CHECK(vrncal_load(back, path) == VRNCAL_OK);
    CHECK(vrncal_validate(back, &problems) == VRNCAL_ERROR_INVALID && problems > 0);
    CHECK(strstr(vrncal_message(back), "coefficient-not-finite: ") != NULL);

    /* In place, and null arguments. */
    memcpy(again, in, sizeof in);
    CHECK(vrncal_correct_points(cal, again, again, N) == VRNCAL_OK && same_bits(first, again, 2 * N));
    CHECK(vrncal_correct_points(cal, NULL, NULL, 0) == VRNCAL_OK);
    CHECK(vrncal_correct_points(cal, NULL, again, 1) == VRNCAL_ERROR_ARGUMENT);
    CHECK(vrncal_correct(NULL, 0.0f, 0.0f, &cx, &cy) == VRNCAL_ERROR_ARGUMENT);
    CHECK(vrncal_load(cal, NULL) == VRNCAL_ERROR_ARGUMENT);
    CHECK(vrncal_load(NULL, argv[1]) == VRNCAL_ERROR_ARGUMENT);
    CHECK(vrncal_get_flags(cal, NULL) == VRNCAL_ERROR_ARGUMENT);
    CHECK(strlen(vrncal_message(NULL)) > 0);

    vrncal_destroy(back);
    vrncal_destroy(cal);
    vrncal_destroy(NULL);
    if (failures == 0) printf("C API: all checks passed\n");
    return failures == 0 ? 0 : 1;
}
