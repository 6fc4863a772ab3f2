// Four-connected labelling of the regions of one grey value, labels wrapping at 256.
#pragma once

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

// Number of regions, 0 for an image under 4 rows, -1 for bad input.
int bwlabel1(const cv::Mat& src, cv::Mat& dst, double value);

QBCODE_VISIBLE_END
