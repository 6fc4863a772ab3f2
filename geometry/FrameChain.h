// The frames one recognition passes through (input, fixed pre-crop, downsampled, region crop,
// upright turns) and the maps between them, so that any result can be given in input pixels.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class FrameChain {
public:
    enum Frame { Input = 0 };

    FrameChain();

    // Each step appends a frame and returns its index.
    int crop(cv::Point2d offset);
    // cv::resize's pixel-centre convention: dst = (src + 0.5) * dstSize / srcSize - 0.5.
    int resize(cv::Size from, cv::Size to);
    // ImageRotation::rotate: an affine warp about (cols / 2, rows / 2) keeping the size.
    int turn(cv::Size size, double angleDeg);

    int last() const { return static_cast<int>(toFrame.size()) - 1; }
    // A point of frame `from` in frame `to`.
    cv::Point2d map(cv::Point2d p, int from, int to) const;
    cv::Point2d toInput(cv::Point2d p, int from) const { return map(p, from, Input); }
    cv::Point2d fromInput(cv::Point2d p, int to) const { return map(p, Input, to); }
    // Length of a unit step of frame `from` in input pixels (the frames differ by scale and
    // rotation only).
    double scaleToInput(int from) const;

private:
    int push(const cv::Matx33d& step);
    std::vector<cv::Matx33d> toFrame;  // input -> frame k
};

QBCODE_VISIBLE_END
