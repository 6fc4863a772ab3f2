// Resizing to the working size and speckle removal by morphological opening.
#pragma once

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class NoiseRemover {
public:
    NoiseRemover();

    // The filters below leave dst empty (unless it is src) when OpenCV cannot run them on the
    // input or parameters: empty images, unsupported pixel types, even or huge kernel sizes.
    void medfilt2(cv::Mat& src, cv::Mat& dst);
    // A non-positive sigma is replaced by its negation, in the member itself.
    void gaussfilt2(cv::Mat& src, cv::Mat& dst);
    // Opening with the member kernel; src and dst may be the same matrix.
    void imopen(cv::Mat& src, cv::Mat& dst);
    void imopen(cv::Mat& src, cv::Mat& dst, cv::Mat kernel);
    void ImgDnSample(cv::Mat& src, cv::Mat& dst);
    // Reconstruction by dilation; -113 for an empty marker or mask, or a marker and mask that
    // differ in size or type.
    int imreconstruct(cv::Mat& marker, cv::Mat& mask, cv::Mat& result);

    void setMedfilterSize(int size) { medfilterSize = size; }
    void setGaussFilter_ksize(cv::Size ksize) { GaussFilter_ksize = ksize; }
    void setGaussFilter_sigma(double sigma) { GaussFilter_sigma = sigma; }
    // Shares the matrix data (header copy).
    void setMorphology_kernel(const cv::Mat& kernel) { Morphology_kernel = kernel; }
    void setDnsample_size(cv::Point size) { Dnsample_size = size; }
    int getMedfilterSize() const { return medfilterSize; }
    cv::Size getGaussFilter_ksize() const { return GaussFilter_ksize; }
    double getGaussFilter_sigma() const { return GaussFilter_sigma; }
    cv::Mat getMorphology_kernel() const { return Morphology_kernel; }
    cv::Point getDnsample_size() const { return Dnsample_size; }

private:
    int medfilterSize;
    cv::Size GaussFilter_ksize;
    double GaussFilter_sigma;
    cv::Mat Morphology_kernel;
    cv::Point Dnsample_size;  // x = width, y = height
};

QBCODE_VISIBLE_END
