// Pattern angle by brute force: turn, project onto the columns, score by projection peaks.
#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "ImageRotation.h"

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

// Derivative zero-crossing peak finder on the first row of src. peaks (CV_32F) needs at least
// 20 rows and 4 columns (number, position, height, width); with fewer rows fewer peaks are kept.
// Returns the number of peaks (at most 20).
int findPeaks(cv::Mat& src, cv::Mat& peaks, float thresh, int width);

class PeakDetector {
public:
    void setParas(float thresh, int direct, int width) {
        PeakThresh = thresh;
        ProjDirect = direct;
        filterWidth = width;
    }
    // Sums along dim (0: column sums) into a single CV_32F row.
    void imageProject(cv::Mat& src, cv::Mat& dst, int dim);
    // Scores one projection: the three highest peaks into scores[0][theta], the peak positions
    // into row theta of peakTable.
    void peakDetector(cv::Mat& proj, cv::Mat& scores, cv::Mat& peakTable, int theta);

    float PeakThresh = 1200.f;
    int ProjDirect = 1;
    int filterWidth = 4;
};

class PatternRotationCalculation {
public:
    PatternRotationCalculation();

    // binImg: CV_8UC1. scores 1x180 and peakTable 180x20, CV_32F, zero-filled (an empty scores
    // is created). Other table shapes or image types leave the tables alone and give 0.
    int rotationAngleCal(cv::Mat& binImg, cv::Mat& scores, cv::Mat peakTable);
    // The same search over the angles within `window` degrees of upright + 60 k only (the dots'
    // own lattice says where the best lies); with an angle, its turns by 60 and 120 degrees are
    // scored too, as the spacing reads them. -1 when the best scores nothing or lies within two
    // degrees of a window's edge: the caller then searches every angle.
    int rotationAngleNear(cv::Mat& binImg, cv::Mat& scores, cv::Mat peakTable, double upright,
                          double window);
    void assign_theta(std::vector<int>& thetas);
    void setPeakThresh(float t) { PeakThresh = t; }
    int rotated_angle(cv::Mat scores);

    // Turns bin (CV_8UC1) by theta degrees, projects it onto the columns and scores the
    // projection with peakDetector. Rotation and projection are fused where the sums are
    // guaranteed identical to fast_rotate followed by imageProject.
    void scoreAngle(const cv::Mat& bin, int theta, cv::Mat& scores, cv::Mat& peakTable);
    // True when scores and peakTable can take every angle 0..179.
    static bool tablesUsable(const cv::Mat& scores, const cv::Mat& peakTable);

    float PeakThresh = 1200.f;
    std::unique_ptr<ImageRotation> imgRotation;
    std::unique_ptr<PeakDetector> peakDetector;

private:
    // content: the box outside which bin is 0.
    void scoreAngle(const cv::Mat& bin, int theta, cv::Mat& scores, cv::Mat& peakTable,
                    const NonZeroShape& content);
    cv::Mat proj;    // one projection row, reused across angles
    cv::Mat turned;  // only for images too large for the fused path
};

QBCODE_VISIBLE_END
