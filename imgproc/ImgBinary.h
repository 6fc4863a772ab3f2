// Normalisation to 8 bits, binarisation and blob centroids.
#pragma once

#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class ImgBinary {
public:
    void setPars(float maxValue_, double threshold_) {
        maxValue = maxValue_;
        threshold = threshold_;
    }
    std::pair<int, int> getPars() const {
        return {static_cast<int>(maxValue), static_cast<int>(threshold)};
    }

    // In place to CV_8U; -100 empty, -141 maximum below 12.
    int grayimg_normal(cv::Mat& img);
    // The binarisations leave dst empty (unless it is src) for an empty image, and the Otsu
    // and adaptive ones also for more than one channel; Otsu then reports 0.
    void image_binary(cv::Mat& src, cv::Mat& dst);
    double image_otsu_binary(cv::Mat& src, cv::Mat& dst);
    void image_AdapMean_binary(cv::Mat& src, cv::Mat& dst);
    void image_AdapGauss_binary(cv::Mat& src, cv::Mat& dst);
    // 8-bit single-channel images only; others are left alone.
    void remove_board(cv::Mat& img);
    int imreconstruct(cv::Mat& marker, cv::Mat& mask, cv::Mat& result);
    // Appends one centroid per blob larger than 8 px and erases the smaller blobs from bin
    // (whose data is shared with the caller). -100 empty or not CV_8UC1, -143 contour count
    // outside 40..500, -142 no centroid.
    int blob_centroid(const cv::Mat& bin, std::vector<cv::Point2f>& centroids);
    // Where set, blob_centroid appends the centres of the blobs it erases here.
    std::vector<cv::Point2f>* erased = nullptr;
    // Where set, blob_centroid stores the boxes of the blobs here when they are too few to count.
    std::vector<cv::Rect>* tooFew = nullptr;

private:
    float maxValue = 255.0f;
    double threshold = 20.0;
};

QBCODE_VISIBLE_END
