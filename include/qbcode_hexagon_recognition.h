/* Reads a printed hexagonal dot code from an 8-bit grey image. */
#ifndef QBCODE_HEXAGON_RECOGNITION_H
#define QBCODE_HEXAGON_RECOGNITION_H

#include "qbcode_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* image: rows x cols bytes, row stride cols. param_path: YAML file, "" for
 * "./algorithm_parameters_v01.yml". bits: bits_len ints, bits_len must equal
 * get_dots_num(layer). box: 4 ints (x, y, width, height) in input pixels.
 * Returns 0 on success or a negative status code (see docs/status-codes.md).
 * reserved is not used. */
QBCODE_EXPORT int quelbor_hexagon_recognition(unsigned char* image, int rows, int cols,
                                              int reserved, const char* param_path, int* bits,
                                              int bits_len, int* box, int box_len);

/* Copies min(length, 35) characters of the version banner "Quelbor Recognition Algorithm
 * 0.3.10" (so at most "...0.3.1"); never writes a terminator. */
QBCODE_EXPORT void get_version(char* buffer, int length);

/* 1 + 3 * layers * (layers + 1); 1 for layers <= 0. */
QBCODE_EXPORT int get_dots_num(int layers);

#ifdef __cplusplus
}
#endif

#endif
