// Dot spacing from the projection peaks of the angle search.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class gapCalculation {
public:
    // Spacing in pixels, or -311.0 / -312.0 / -313.0 for bad inputs.
    float gap_cal_M2(cv::Mat scores, cv::Mat peakTable);
    float gap_cal(cv::Mat scores, cv::Mat peakTable);
    void get_gap_candidates(std::vector<float>& out, const cv::Mat& peakTable, int row);
    float gap_median_cal(std::vector<float>& v);
    float gap_mean_cal(std::vector<float>& v);
};

QBCODE_VISIBLE_END
