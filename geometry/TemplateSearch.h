// Template correlation from exact integer sums, for templates made of one dot shape stamped at
// the grid positions: the sums over the template reduce to the stamps' sums, which is far less
// work than a dense correlation and the same number on every CPU.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace tsearch {

struct Stamped {
    cv::Mat dot;                // CV_8UC1 dot shape
    std::vector<cv::Point> at;  // top-left corner of each stamp in the template
    cv::Size size;              // of the template
};

// True when templ (CV_8UC1) is exactly the stamps summed, each stamp inside the template.
bool sameTemplate(const Stamped& stamped, const cv::Mat& templ);

// Normalised correlation of a template window at `at` from exact integer sums, in a fixed order
// of double operations. Flat windows or templates score 0.
double correlation(const cv::Mat& image, const cv::Mat& templ, cv::Point at);

// Every place of a template of that size on image (top-left corners).
cv::Rect allPlaces(const cv::Mat& image, cv::Size templ);

// The place of the highest correlation of the stamped template over image (CV_8UC1) among
// `places`, the first in row order among equal ones, with its score: the maximum of
// `correlation` over those places. False, with nothing computed, when the sums could overflow
// the integer lanes or places are not all on the image.
bool bestPlace(const cv::Mat& image, const Stamped& stamped, const cv::Rect& places, cv::Point& at,
               double& score);

}  // namespace tsearch
