// Print-quality score from the per-dot attribute table.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class SystemPara;

class PrintingScoreCal {
public:
    explicit PrintingScoreCal(SystemPara* para = nullptr) : sysPara(para) {}

    // -801 when "PrintScoreCalculate" cannot be read.
    int Initialize();
    double area_scoreCal(double area);
    double intensity_scoreCal(double intensity);
    double centroid_scoreCal(double offset);
    double rotBox_scoreCal(double ratio);
    void connectiveness_scoreCalM1(const cv::Mat& table);
    double connectiveness_scoreCalM2(const cv::Mat& table);
    // table: one row per dot, CV_64FC1, >= 8 columns. Total score; scores gets the six parts.
    double run(cv::Mat table, std::vector<double>& scores);

    SystemPara* sysPara;
    double gap = 0.0;
    int dotCount = 0;
    double totalAreaScore = 0.0;
    double areaScore = 0.0;
    double refIntensity = 80.0;
    double intenScore = 0.0;
    double totalIntenScore = 0.0;
    double roundThreshold = 0.8;
    double roundScore = 0.0;
    double totalRoundScore = 0.0;
    double centScore = 0.0;
    double totalCentScore = 0.0;
    double rotBoxScore = 0.0;
    double totalRotBoxScore = 0.0;
    double labelScore = 0.0;
    double totalLabelScore = 0.0;
    double connectCount = 0.0;
    double punishPointConnecting = 0.0;
    double punishPointMissing = 0.0;
};

QBCODE_VISIBLE_END
