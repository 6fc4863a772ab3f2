// Per-dot measurements of a decoded code for the print-quality grade.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class SystemPara;

// A grid position's record is a member-wise copy of its blob's record: the two pointers are
// shared with the blob record, which the BlobAnalysis owns.
struct DotAttribute {
    cv::Point2d* centroid = nullptr;  // owned by the blob record, shared by copies
    double distance = 0.0;
    double area = 0.0;
    double roundness = 0.0;
    double intensity = 0.0;
    cv::RotatedRect* rotBox = nullptr;  // owned by the blob record, shared by copies
    int label = 0;
    int found = 0;
};

class BlobAnalysis {
public:
    BlobAnalysis(SystemPara* para = nullptr, std::string name = std::string())
        : sysPara(para), imgName(std::move(name)) {}
    // Frees the blob records of every run, with their centroid and rotated-box blocks.
    ~BlobAnalysis();
    BlobAnalysis(const BlobAnalysis&) = delete;
    BlobAnalysis& operator=(const BlobAnalysis&) = delete;

    // -603 without a record, -602 when "BlobAnalysis" cannot be read.
    int Initialize();
    // 254 bins; labels from 253 up share the last bin, label 0 and negatives are not counted.
    cv::Mat histc(cv::Mat_<int> labels);
    // Mean of the brightest 70 % of the label's grey values; NaN under two pixels.
    double dotIntensityCal(const cv::Mat& labels, const cv::Mat& grey, int label);
    int bwlabel1(const cv::Mat& src, cv::Mat& dst, double value);
    // points: one row (x, y) per grid position; dots: one caller-owned record per position.
    // Number of matched positions, or -602/-603 (configuration), -505 (unusable input).
    int blob_analysis(const cv::Mat& binary, const cv::Mat& grey, const cv::Mat& points,
                      std::vector<DotAttribute*> dots);

    cv::Mat labelImg;
    double maxValue = 255.0;
    SystemPara* sysPara;
    std::vector<DotAttribute*> dots;
    int isWriteImg = 0;
    std::string savePath;
    std::string imgName;

private:
    int analyse(const cv::Mat& binary, const cv::Mat& grey, const cv::Mat& points,
                std::vector<DotAttribute*>& out);
    void measureBlobs(const cv::Mat& bin, const cv::Mat& grey8, const cv::Mat& stats,
                      cv::Mat& debugImg);
    void releaseRecords();
    // Records of earlier runs stay alive: callers' copies still point into them.
    std::vector<DotAttribute*> retired_;
};

QBCODE_VISIBLE_END
