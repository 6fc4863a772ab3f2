// Centre of the code by normalised correlation with synthetic hexagon templates.
#pragma once

#include <string>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class SystemPara;

class startPoint_cal {
public:
    explicit startPoint_cal(SystemPara* para) : sysPara(para) {}

    int initialize();
    void generate_pattern_simImg(double angle, float gap, cv::Mat& templ);
    // Whether a search at spacing `gap` can run at all, whatever the image: 0, -320 for the
    // section, -321 for a spacing it tries that has no template.
    int configured(float gap);
    // >= 0 success; -320 configuration, -321 template not smaller than image, -314 weak match.
    int findStartPoint_NCC(float& gap, const cv::Mat& image, cv::Mat& templ, cv::Point& centre,
                           double angle);

    SystemPara* sysPara;
    float gapDelta = 0.5f;
    int isDebug = 0;
    int isWriteImg = 0;
    std::string savePath;
    int imgPadding = 0;
    int layer = 0;
    // Best correlation of the last search, kept for the caller's evidence.
    double bestCorrelation = 0.0;
    // Where the best match of a search too weak to pass lay: a start for a grid fit.
    cv::Point weakCentre;
};

QBCODE_VISIBLE_END
