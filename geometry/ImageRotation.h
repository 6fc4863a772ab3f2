// Turning an 8-bit image about its centre, keeping its size.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

// Where an 8-bit image is non-zero: its box and, for each band of `band` rows from the box's
// top, the first and last non-zero column (first > last for an empty band).
struct NonZeroShape {
    cv::Rect box;
    int band = 8;
    std::vector<int> first, last;
    static NonZeroShape of(const cv::Mat& image);  // CV_8UC1
};

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
    // The same with the shape of the non-zero pixels: rows are cut to the bands they cross.
    void fast_rotate_project(float* colSums, const unsigned char* src, unsigned short height,
                             unsigned short width, float angle, const NonZeroShape& content);

    float angle = 0.f;
};

QBCODE_VISIBLE_END
