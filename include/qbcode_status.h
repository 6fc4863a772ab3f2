/* Status codes of the hexagonal dot code reader: one table for the library, its tools and its
 * bindings. 0 is success; every negative value names the cause (docs/status-codes.md). */
#ifndef QBCODE_STATUS_H
#define QBCODE_STATUS_H

#include "qbcode_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* X(identifier, value, name). -100 is reported by two stages and carries both names. */
#define QBCODE_STATUS_TABLE(X)                                         \
    X(QBCODE_OK, 0, "ok")                                              \
    X(QBCODE_IMAGE_PARAMS_UNREADABLE, -1, "image-params-unreadable")   \
    X(QBCODE_IMAGE_PARAMS_MISSING, -2, "image-params-missing")         \
    X(QBCODE_BITS_LENGTH, -3, "bits-length")                           \
    X(QBCODE_BOX_LENGTH, -4, "box-length")                             \
    X(QBCODE_INTERNAL_ERROR, -5, "internal-error")                     \
    X(QBCODE_NO_RESULT, -6, "no-result")                               \
    X(QBCODE_BAD_HANDLE, -7, "bad-handle")                             \
    X(QBCODE_EMPTY_IMAGE, -100, "empty-image/angle-config")            \
    X(QBCODE_SIZE_NOT_640X480, -102, "size-not-640x480")               \
    X(QBCODE_IMAGE_TOO_SMALL, -112, "image-too-small")                 \
    X(QBCODE_RECONSTRUCT_INPUT, -113, "reconstruct-input")             \
    X(QBCODE_HESSIAN_KERNEL_TOO_LONG, -121, "hessian-kernel-too-long") \
    X(QBCODE_HESSIAN_BAD_SCALE, -122, "hessian-bad-scale")             \
    X(QBCODE_LOG_FAILED, -130, "log-failed")                           \
    X(QBCODE_NOTHING_TO_NORMALISE, -141, "nothing-to-normalise")       \
    X(QBCODE_NO_DOT_BLOBS, -142, "no-dot-blobs")                       \
    X(QBCODE_BLOB_COUNT, -143, "blob-count")                           \
    X(QBCODE_ROI_ERROR, -200, "roi-error")                             \
    X(QBCODE_ROI_BORDER, -201, "roi-border")                           \
    X(QBCODE_NOT_A_LATTICE, -202, "not-a-lattice")                     \
    X(QBCODE_NO_ANGLE, -301, "no-angle")                               \
    X(QBCODE_SPACING_SCORES_SHAPE, -311, "spacing-scores-shape")       \
    X(QBCODE_SPACING_TABLE_SHAPE, -312, "spacing-table-shape")         \
    X(QBCODE_NO_SPACING, -313, "no-spacing")                           \
    X(QBCODE_WEAK_CENTRE, -314, "weak-centre")                         \
    X(QBCODE_CENTRE_CONFIG, -320, "centre-config")                     \
    X(QBCODE_TEMPLATE_TOO_LARGE, -321, "template-too-large")           \
    X(QBCODE_NO_CENTRE, -322, "no-centre")                             \
    X(QBCODE_NO_ORIENTATION, -500, "no-orientation")                   \
    X(QBCODE_TRACKING_CONFIG, -501, "tracking-config")                 \
    X(QBCODE_BITS_COPY, -502, "bits-copy")                             \
    X(QBCODE_QUALITY_ANALYSIS, -503, "quality-analysis")               \
    X(QBCODE_VERIFY_BLANK_FILLED, -510, "verify-blank-filled")         \
    X(QBCODE_VERIFY_OUTSIDE, -511, "verify-outside")                   \
    X(QBCODE_VERIFY_MARKERS, -512, "verify-markers")                   \
    X(QBCODE_VERIFY_MISSING_DOT, -513, "verify-missing-dot")           \
    X(QBCODE_VERIFY_RESIDUAL, -514, "verify-residual")                 \
    X(QBCODE_VERIFY_UNEXPLAINED_DOT, -515, "verify-unexplained-dot")   \
    X(QBCODE_VERIFY_UNSURE, -516, "verify-unsure")                     \
    X(QBCODE_VERIFY_COVERED, -517, "verify-covered")                   \
    X(QBCODE_BLOB_INPUT, -505, "blob-input")                           \
    X(QBCODE_CONFIG, -600, "config")                                   \
    X(QBCODE_BLOB_CONFIG, -602, "blob-config")                         \
    X(QBCODE_BLOB_NO_CONFIG, -603, "blob-no-config")                   \
    X(QBCODE_PARAMS_NOT_REGULAR, -700, "params-not-regular-file")      \
    X(QBCODE_PARAMS_TOO_LARGE, -701, "params-too-large")               \
    X(QBCODE_PARAMS_TOO_DEEP, -702, "params-too-deep")                 \
    X(QBCODE_PARAM_TYPE, -703, "param-wrong-type")                     \
    X(QBCODE_TOO_MANY_SCALES, -710, "too-many-scales")                 \
    X(QBCODE_DNRATIO_RANGE, -711, "dnratio-range")                     \
    X(QBCODE_IMAGE_TOO_LARGE, -712, "image-too-large")                 \
    X(QBCODE_LAYER_TOO_LARGE, -713, "layer-too-large")                 \
    X(QBCODE_SCORE_CONFIG, -801, "score-config")                       \
    X(QBCODE_GRADE_INPUT, -802, "grade-input")                         \
    X(QBCODE_GRADE_INTERNAL, -803, "grade-internal")                   \
    X(QBCODE_TOO_FEW_DOTS, -804, "too-few-dots")

#define QBCODE_STATUS_ENUM_ENTRY(id, value, name) id = value,
enum qbcode_status { QBCODE_STATUS_TABLE(QBCODE_STATUS_ENUM_ENTRY) };
#undef QBCODE_STATUS_ENUM_ENTRY

/* Short name of a status: "ok" for 0 and any positive value, "unknown" for a negative value
 * outside the table. Never null. */
QBCODE_EXPORT const char* qbcode_status_name(int status);

#ifdef __cplusplus
}
#endif

#endif
