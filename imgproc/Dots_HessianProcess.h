// Multi-scale Hessian dot likelihood: bright, round peaks score high, ridges low.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class Dots_HessianProcess {
public:
    void setScale(const std::vector<float>& s);
    void setScale(const float* s, int n);

    // dst: CV_32FC1 of the size of src. src is converted to CV_32F in place.
    // -100 empty or not single-channel, -112 smaller than 50 in a dimension, -121 kernel too
    // long, -122 bad scale.
    int process(cv::Mat& src, cv::Mat& dst);
    // The same into images a reader keeps between frames: dst is written in place when it is
    // neither src nor blur, blur (each scale's smoothed image) is scratch.
    int process(cv::Mat& src, cv::Mat& dst, cv::Mat& blur);
    // dst(y, x) = src((y + dy) mod rows, (x + dx) mod cols); -100 for an empty src.
    int circshift(cv::Mat& src, cv::Mat& dst, int dx, int dy);
    // Zeroes a 5-pixel frame of a float image; -112 when the image is 5 or less in a dimension.
    int resetBoundaryPixels(cv::Mat& m);

private:
    int run(cv::Mat& src, cv::Mat& dst, cv::Mat& blur, bool kept);
    float dotScore(const float* up, const float* mid, const float* down, int l, int c, int r,
                   float weight) const;

    float kernelFactor = 3.0f;
    float respGain = 10.0f;
    std::vector<float> scales{2.0f, 3.0f};
};

QBCODE_VISIBLE_END
