/* vrncal C API: the library's calibration and correction for hosts in C and
 * any language that calls C (C#, Rust, Go, Python ctypes ...).
 *
 * A vrncal_calibration is an opaque handle that holds one calibration
 * record.  Load a calibration file into it, then map field points (field
 * units, centred on the lens axis) to device counts (0 ... Resolution):
 *
 *     vrncal_calibration* cal = vrncal_create();
 *     if (vrncal_load(cal, "sample.cor") != VRNCAL_OK) {
 *         fprintf(stderr, "%s\n", vrncal_message(cal));   // names the file and line
 *         ...
 *     }
 *     float counts_x, counts_y;
 *     vrncal_correct(cal, 12.5f, -3.0f, &counts_x, &counts_y);
 *     vrncal_destroy(cal);
 *
 * Every function returns a status (VRNCAL_OK or an error code) and never
 * lets a C++ exception out.  A function that fails leaves the calibration as
 * it was and, where it takes a non-const handle, puts one line saying why in
 * the handle's message.
 *
 * Threads.  The library keeps no global state and starts no threads:
 * different handles may be used from different threads at the same time
 * without locking.  On one handle, the functions that take a const handle
 * (vrncal_get_*, vrncal_correct, vrncal_correct_points, vrncal_message) may
 * run in any number of threads at once; a function that takes a non-const
 * handle (vrncal_load, vrncal_save, vrncal_set_*, vrncal_validate,
 * vrncal_destroy) must not run at the same time as any other call on that
 * handle.
 */
#ifndef VRNCAL_VRNCAL_C_H
#define VRNCAL_VRNCAL_C_H

#include <stddef.h>

#include "vrncal/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vrncal_calibration vrncal_calibration;

typedef enum vrncal_status {
    VRNCAL_OK = 0,
    VRNCAL_ERROR_ARGUMENT = 1, /* a null handle or pointer, or a value out of range */
    VRNCAL_ERROR_FILE = 2,     /* a file cannot be loaded or written */
    VRNCAL_ERROR_INVALID = 3,  /* vrncal_validate found problems */
    VRNCAL_ERROR_MEMORY = 4,   /* out of memory */
    VRNCAL_ERROR_INTERNAL = 5  /* anything else; the message says what */
} vrncal_status;

/* Correction modes (the record's CalMode). */
#define VRNCAL_MODE_BOX 0  /* the box correction */
#define VRNCAL_MODE_GRID 1 /* the nine-point model plus the measured grids */

/* Lens flags, as a bit mask.  The record keeps two copies: the first three
 * bits are the copies the grid correction and the conversions use (XYFlip,
 * XInvert, YInvert), the next three those of the box correction
 * (LEN_XYFLIP, LEN_XINVERT, LEN_YINVERT).  A correction table sets both
 * copies alike; a data file stores them apart. */
#define VRNCAL_FLAG_XY_FLIP 0x01u
#define VRNCAL_FLAG_X_INVERT 0x02u
#define VRNCAL_FLAG_Y_INVERT 0x04u
#define VRNCAL_FLAG_BOX_XY_FLIP 0x08u
#define VRNCAL_FLAG_BOX_X_INVERT 0x10u
#define VRNCAL_FLAG_BOX_Y_INVERT 0x20u
#define VRNCAL_FLAGS_ALL 0x3fu

/* A new calibration: the library's default record (a 100-unit field on a
 * 65535-count head, no correction terms, no grids) in grid mode.  NULL when
 * out of memory. */
VRNCAL_API vrncal_calibration* vrncal_create(void);

/* Frees the handle; NULL is allowed. */
VRNCAL_API void vrncal_destroy(vrncal_calibration* cal);

/* Loads a calibration file: a binary data file (coefficients as stored) or a
 * correction table (coefficients fitted from its nine points).  Replaces the
 * whole record except the mode, which files do not store.  On failure
 * (VRNCAL_ERROR_FILE) the message names the file, and for a table the line
 * and key.  Whether the calibration makes sense is vrncal_validate's
 * question. */
VRNCAL_API vrncal_status vrncal_load(vrncal_calibration* cal, const char* path);

/* Saves the calibration as a binary data file.  The coefficients are fitted
 * again from the nine points first, as the library does before every save,
 * and the handle takes them too.  The file is replaced only when it has been
 * written completely; on failure the old file is kept. */
VRNCAL_API vrncal_status vrncal_save(vrncal_calibration* cal, const char* path);

/* The message of the last failing call that took the handle non-const ("" if
 * none, or after a successful vrncal_validate).  Valid until the next such
 * call or vrncal_destroy.  Never NULL. */
VRNCAL_API const char* vrncal_message(const vrncal_calibration* cal);

/* FieldSize: the field units spanned by Resolution counts, for the linear
 * conversion; finite and above 0. */
VRNCAL_API vrncal_status vrncal_set_field_size(vrncal_calibration* cal, double field_size);
VRNCAL_API vrncal_status vrncal_get_field_size(const vrncal_calibration* cal, double* field_size);

/* Lens flags: a combination of VRNCAL_FLAG_*.  get reports a flag set when
 * the record's member is non-zero. */
VRNCAL_API vrncal_status vrncal_set_flags(vrncal_calibration* cal, unsigned flags);
VRNCAL_API vrncal_status vrncal_get_flags(const vrncal_calibration* cal, unsigned* flags);

/* Correction mode: VRNCAL_MODE_GRID or VRNCAL_MODE_BOX. */
VRNCAL_API vrncal_status vrncal_set_mode(vrncal_calibration* cal, int mode);
VRNCAL_API vrncal_status vrncal_get_mode(const vrncal_calibration* cal, int* mode);

/* One field point to device counts through the correction the mode selects:
 * exactly what VrnCal::CalibPoint gives. */
VRNCAL_API vrncal_status vrncal_correct(const vrncal_calibration* cal, float x, float y, float* counts_x,
                                        float* counts_y);

/* count points at once: field_xy holds x0, y0, x1, y1, ... and counts_xy
 * receives the counts in the same layout; the two may be the same array.
 * Each result has the bits vrncal_correct gives for that point (NaN where it
 * gives NaN).  Allocates nothing. */
VRNCAL_API vrncal_status vrncal_correct_points(const vrncal_calibration* cal, const float* field_xy,
                                               float* counts_xy, size_t count);

/* Checks that the correction can make sense: finite coefficients and terms,
 * positive field sizes, grids that can take effect ...  VRNCAL_OK when there
 * is no problem; otherwise VRNCAL_ERROR_INVALID, with the number of problems
 * in *problems (when not NULL) and one line per problem in the message,
 * "code: description" (codes such as grid-too-few-points are stable). */
VRNCAL_API vrncal_status vrncal_validate(vrncal_calibration* cal, size_t* problems);

/* The version of the running library, "MAJOR.MINOR.PATCH". */
VRNCAL_API const char* vrncal_version(void);

#ifdef __cplusplus
}
#endif

#endif
