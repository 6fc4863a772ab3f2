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

/* The full result of a read. Positions are in input pixels (x = column, y = row), sub-pixel. */
#define QBCODE_MAX_BITS 397 /* eleven rings */

typedef struct qbcode_point {
    double x;
    double y;
} qbcode_point;

/* What the verification measured; a host may set its own bar on these. */
typedef struct qbcode_checks {
    int verified;         /* 1: the verification is on and every check passed */
    double blank_fill;    /* largest foreground share of a 0-bit box */
    int outside;          /* positions read from outside the image or the kept crop */
    int markers_matched;  /* of the 18 orientation markers */
    int dots_matched;     /* 1-bits with a detected dot */
    int dots_missing;     /* 1-bits without one */
    int dots_unexplained; /* detected dots on positions read as 0 */
    double residual;      /* RMS distance of the dots from the fitted grid, in spacings */
    double correlation;   /* best template correlation of the centre search */
    double marker_ratio;  /* printed / blank markers of the chosen orientation */
} qbcode_checks;

typedef struct qbcode_timings { /* milliseconds of wall time */
    double preprocess;
    double region;
    double angle;
    double spacing;
    double centre;
    double decode;
    double verify;
    double total;
} qbcode_timings;

typedef struct qbcode_result {
    int status;                /* as returned */
    int bit_count;             /* 1 + 3 * layer * (layer + 1) */
    int bits[QBCODE_MAX_BITS]; /* the first bit_count entries; all 0 unless status is 0 */
    int box[4];                /* as quelbor_hexagon_recognition fills it */
    int orientation;           /* 0..5, -1 when not read */
    double angle;              /* degrees the input is turned to bring the code upright */
    double spacing;            /* dot spacing */
    qbcode_point centre;       /* the centre dot */
    qbcode_point corners[6];   /* the corner dots of the outer ring */
    double margin;             /* weakest bit: min |fill - threshold| / threshold */
    qbcode_checks checks;
    qbcode_timings timings;
    char message[128]; /* what a configuration error names (a key), or "" */
    /* Per position, bit order: 1 at the grey level its bit says, 0 halfway to the other level,
     * below 0 beyond it or on an object that is neither (see qbcode::Result::confidence). */
    double confidence[QBCODE_MAX_BITS];
    double decision_margin; /* the weakest position's confidence */
} qbcode_result;

/* Reads the code in an 8-bit grey image of rows x cols pixels whose rows lie stride bytes
 * apart (0: cols) with the parameter file at param_path and fills *result. NULL or "" takes
 * the first readable of ./algorithm_parameters_v01.yml, the installed copy beside the library
 * (share/qbcode_hexagon_recognition/), the one under the build's prefix, else the defaults
 * compiled in. Returns result->status: 0, or a negative status code. Never throws; a null
 * result gives -6. */
QBCODE_EXPORT int qbcode_read(const unsigned char* image, int rows, int cols, int stride,
                              const char* param_path, qbcode_result* result);

/* Every code in the image, one read per cluster of dots, largest first: fills up to capacity
 * results and returns how many (0 when none was read), or a negative status when the call
 * itself cannot run (a null results array with capacity > 0 gives -6). Never throws. */
QBCODE_EXPORT int qbcode_read_all(const unsigned char* image, int rows, int cols, int stride,
                                  const char* param_path, qbcode_result* results, int capacity);

/* A reader kept across frames: the parameter file is parsed once and the reader's buffers are
 * reused. Make one per camera stream. One reader per thread reads in parallel; a reader shared
 * between threads is safe, and its reads then take turns. */
typedef struct qbcode_reader qbcode_reader;

/* From a parameter file (NULL or "" searches as qbcode_read does) or from YAML text held in
 * memory. NULL only when memory ran out (or yaml_text is NULL): a file that cannot be read gives
 * a reader whose qbcode_reader_status and every read return the configuration's status. */
QBCODE_EXPORT qbcode_reader* qbcode_reader_new(const char* param_path);
QBCODE_EXPORT qbcode_reader* qbcode_reader_new_from_yaml(const char* yaml_text);
/* 0, the configuration status every read will return, or -7 for a NULL or freed handle. */
QBCODE_EXPORT int qbcode_reader_status(const qbcode_reader* reader);
/* As qbcode_read and qbcode_read_all, with the reader's parameters. Never throw. */
QBCODE_EXPORT int qbcode_reader_read(qbcode_reader* reader, const unsigned char* image, int rows,
                                     int cols, int stride, qbcode_result* result);
QBCODE_EXPORT int qbcode_reader_read_all(qbcode_reader* reader, const unsigned char* image,
                                         int rows, int cols, int stride, qbcode_result* results,
                                         int capacity);
/* NULL and a handle already freed are ignored. */
QBCODE_EXPORT void qbcode_reader_free(qbcode_reader* reader);

#ifdef __cplusplus
}
#endif

#endif
