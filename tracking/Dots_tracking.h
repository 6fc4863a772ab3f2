// Base of the bit reader: configuration, entry point and the per-position bit decision.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class SystemPara;
struct DotAttribute;

class Dots_tracking {
public:
    Dots_tracking(SystemPara* para, double gap) : sysPara(para), gap(gap) {}
    virtual ~Dots_tracking() = default;

    virtual int calculate_bits_array(const cv::Mat& image, cv::Mat& bits, cv::Mat& boxes) = 0;
    virtual int print_qualityAnalysis(const cv::Mat& a, const cv::Mat& b, const cv::Mat& c,
                                      std::vector<DotAttribute*> dots) = 0;

    int Initiate();
    // aux and flag are accepted and unused: the quality grade is a separate entry.
    int Run(const cv::Mat& image, const cv::Mat& aux, cv::Mat& bits, cv::Mat& boxes, bool flag);
    double setBoxRadius(double gap);
    int calculateBitValue(const cv::Mat& binImage, int row, int col, int r);
    // Foreground pixels in the window calculateBitValue decides on.
    long long countForeground(const cv::Mat& binImage, int row, int col, int r) const;
    int boundingBox_centroidPoint(const cv::Mat& boxes, cv::Mat& centres);

    SystemPara* sysPara;
    double gap;
    int debug = 0;
    float boxRatio = 0.2f;
};

QBCODE_VISIBLE_END
