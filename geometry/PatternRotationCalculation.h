// Pattern angle by brute force: turn, project onto the columns, score by projection peaks.
#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "ImageRotation.h"

// Derivative zero-crossing peak finder. peaks needs at least 20 rows and 4 columns
// (number, position, height, width). Returns the number of peaks (at most 20).
int findPeaks(cv::Mat& src, cv::Mat& peaks, float thresh, int width);

class PeakDetector {
public:
    void setParas(float thresh, int direct, int width) {
        PeakThresh = thresh;
        ProjDirect = direct;
        filterWidth = width;
    }
    void imageProject(cv::Mat& src, cv::Mat& dst, int dim);
    void peakDetector(cv::Mat& proj, cv::Mat& scores, cv::Mat& peakTable, int theta);

    float PeakThresh = 1200.f;
    int ProjDirect = 1;
    int filterWidth = 4;
};

class PatternRotationCalculation {
public:
    PatternRotationCalculation();

    // binImg: continuous CV_8UC1. scores 1x180 and peakTable 180x20, CV_32F, zero-filled.
    int rotationAngleCal(cv::Mat& binImg, cv::Mat& scores, cv::Mat peakTable);
    void assign_theta(std::vector<int>& thetas);
    void setPeakThresh(float t) { PeakThresh = t; }
    int rotated_angle(cv::Mat scores);

    float PeakThresh = 1200.f;
    std::unique_ptr<ImageRotation> imgRotation;
    std::unique_ptr<PeakDetector> peakDetector;
};
