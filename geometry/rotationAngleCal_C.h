// Variant of the angle search on a Gaussian-smoothed grey crop, configured by "PatternRotation".
#pragma once

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class SystemPara;

// Fills m1 (1x180) and m2 (180x20), CV_32F; returns whole degrees 0..179, -100 when the
// section cannot be read or img is empty, -301 when no angle scores above 0.
// The crop is binarised (Otsu) and scored like the binary search with the file's PeakThresh and
// filterWidth: a coarse pass every 180 / RotationNum degrees, a fine pass of whole degrees within
// +-29 of the coarse best (wrapping at 179), then the two companions 60 and 120 degrees away.
int rotationAngleCal_C(cv::Mat& img, cv::Mat& m1, cv::Mat& m2, SystemPara* para);

QBCODE_VISIBLE_END
