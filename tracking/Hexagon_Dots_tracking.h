// Samples the hexagon grid at six orientations and keeps the one whose markers fit.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Dots_tracking.h"

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class Point_Generation;
class BlobAnalysis;

class Hexagon_Dots_tracking : public Dots_tracking {
public:
    Hexagon_Dots_tracking(SystemPara* para, double gap, int startX, int startY, int layer,
                          double binaryMaxValue = 255.0);
    ~Hexagon_Dots_tracking() override;

    int Initiate();
    // Binarises image in place (threshold 60). Orientation index 0..5, or -500.
    int calculate_bits_array(const cv::Mat& image, cv::Mat& bits, cv::Mat& boxes) override;
    int hexagon_outputD(cv::Mat D, cv::Mat& bits);
    // Blob analysis of the decoded grid; -503 when it fails.
    int print_qualityAnalysis(const cv::Mat& a, const cv::Mat& b, const cv::Mat& c,
                              std::vector<DotAttribute*> dots) override;

    int startPointX;
    int startPointY;
    int layer;
    int dotsNum = 1;
    std::string imgName;
    std::unique_ptr<Point_Generation> pointGenerator;
    double binaryMaxValue;
    std::unique_ptr<BlobAnalysis> blobAnalysis;
    // Analyses replaced by a later call; freed with the tracker.
    std::vector<std::unique_ptr<BlobAnalysis>> earlierAnalyses;
};

QBCODE_VISIBLE_END
