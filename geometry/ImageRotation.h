// Turning an 8-bit image about its centre, keeping its size.
#pragma once

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class ImageRotation {
public:
    void setAngle(float a) { angle = a; }

    // Bilinear affine warp; uncovered pixels are 0. src and dst may be the same image.
    void rotate(cv::Mat& src, cv::Mat& dst, float angle);
    // Nearest-neighbour rotation; dst must be allocated like src, both continuous CV_8U.
    void fast_rotate(cv::Mat src, cv::Mat& dst, float angle);
    void fast_rotate_image(unsigned char* dst, const unsigned char* src, unsigned short height,
                           unsigned short width, float angle);
    // Column sums (width floats) of the image fast_rotate_image would produce, without producing
    // it. The sums are exact integers, so they equal that image reduced by cv::reduce.
    void fast_rotate_project(float* colSums, const unsigned char* src, unsigned short height,
                             unsigned short width, float angle);
    // The same sums when every pixel outside `content` is 0: only samples that can fall
    // inside it are taken.
    void fast_rotate_project(float* colSums, const unsigned char* src, unsigned short height,
                             unsigned short width, float angle, const cv::Rect& content);

    float angle = 0.f;
};

QBCODE_VISIBLE_END
