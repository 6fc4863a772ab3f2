#include "Hexagon_Dots_tracking.h"

#include <cmath>
#include <iostream>
#include <limits>
#include <new>

#include <opencv2/imgproc.hpp>

#include "BlobAnalysis.h"
#include "CodeFormat.h"
#include "Point_Generation.h"

namespace {

const double kAngles[6] = {0.0, 60.0, 120.0, 180.0, 240.0, 300.0};

// int(v) truncates; values an int cannot hold (NaN, huge) saturate instead of being undefined,
// and NaN lands far outside any image.
int truncToInt(double v) {
    if (std::isnan(v) || v <= static_cast<double>(std::numeric_limits<int>::min()))
        return std::numeric_limits<int>::min();
    if (v >= static_cast<double>(std::numeric_limits<int>::max()))
        return std::numeric_limits<int>::max();
    return static_cast<int>(v);
}

// Marker positions past the end of a short row (fewer than three rings) read as 0.
double valueAt(const cv::Mat& row, int i) {
    return i < row.cols ? row.at<double>(0, i) : 0.0;
}

}  // namespace

Hexagon_Dots_tracking::Hexagon_Dots_tracking(SystemPara* para, double gap, int startX, int startY,
                                             int layer, double binaryMaxValue)
    : Dots_tracking(para, gap),
      startPointX(startX),
      startPointY(startY),
      layer(layer),
      binaryMaxValue(binaryMaxValue) {}

Hexagon_Dots_tracking::~Hexagon_Dots_tracking() = default;

int Hexagon_Dots_tracking::Initiate() {
    dotsNum = qbcode::positionsFor(layer);
    pointGenerator = std::make_unique<Generate_Hexagon_points>(
        cv::Point2d(static_cast<double>(startPointY), static_cast<double>(startPointX)), sysPara,
        gap, layer);
    return 0;
}

int Hexagon_Dots_tracking::calculate_bits_array(const cv::Mat& image, cv::Mat& bits,
                                                cv::Mat& boxes) {
    try {
        Initiate();
        cv::Mat D = cv::Mat::zeros(6, dotsNum, CV_64FC1);
        bits = cv::Mat::zeros(1, dotsNum, CV_64FC1);
        cv::Mat left = cv::Mat::zeros(6, dotsNum, CV_64FC1);
        cv::Mat top = cv::Mat::zeros(6, dotsNum, CV_64FC1);
        cv::Mat right = cv::Mat::zeros(6, dotsNum, CV_64FC1);
        cv::Mat bottom = cv::Mat::zeros(6, dotsNum, CV_64FC1);
        const double r = setBoxRadius(gap);

        // The caller's image becomes its binary version; later stages see it so.
        if (!image.empty()) {
            try {
                cv::Mat target = image;
                cv::threshold(image, target, 60.0, binaryMaxValue, cv::THRESH_BINARY);
            } catch (const cv::Exception&) {
                // Element types the threshold cannot take are not counted by the sampling.
            }
        }
        if (debug) std::cout << "bounding box radius r_: " << r << std::endl;

        for (int k = 0; k < 6; ++k) {
            pointGenerator->angle = kAngles[k];
            cv::Mat points;
            pointGenerator->Run(points);
            const int n = std::min(dotsNum, points.rows);
            if (n > 0 && (points.type() != CV_64FC1 || points.cols < 2)) break;
            for (int i = 0; i < n; ++i) {
                const double p = points.at<double>(i, 0), q = points.at<double>(i, 1);
                left.at<double>(k, i) = q - r;
                top.at<double>(k, i) = p - r;
                right.at<double>(k, i) = q + r;
                bottom.at<double>(k, i) = p + r;
                if (!image.empty())
                    D.at<double>(k, i) =
                        calculateBitValue(image, truncToInt(p), truncToInt(q), truncToInt(r));
            }
        }

        const int idx = hexagon_outputD(D, bits);
        if (debug) std::cout << std::endl << "the correct index from D(6x91)--" << idx << std::endl;
        if (idx >= 0 && idx < D.rows) {
            boxes = cv::Mat::zeros(dotsNum, 4, CV_64FC1);
            for (int i = 0; i < dotsNum; ++i) {
                double* b = boxes.ptr<double>(i);
                b[0] = left.at<double>(idx, i);
                b[1] = top.at<double>(idx, i);
                b[2] = right.at<double>(idx, i);
                b[3] = bottom.at<double>(idx, i);
            }
            return idx;
        }
        return -500;
    } catch (const cv::Exception&) {
        // Only a grid too large to allocate gets here; nothing can be read from it.
        return -500;
    } catch (const std::bad_alloc&) {
        return -500;
    }
}

int Hexagon_Dots_tracking::hexagon_outputD(cv::Mat D, cv::Mat& bits) {
    if (D.rows == 0) return -1;
    if (D.type() != CV_64FC1) D.convertTo(D, CV_64F);
    int best = -1;
    double bestRatio = 2.0;
    for (int k = 0; k < D.rows; ++k) {
        const cv::Mat row = D.row(k);
        if (debug) {
            std::cout << std::endl;
            for (int i = 0; i < row.cols; ++i) std::cout << row.at<double>(0, i);
        }
        double ful = 0.0, emp = 0.0;
        for (int i : qbcode::markerOnPositions()) ful += valueAt(row, i);
        for (int i : qbcode::markerOffPositions()) emp += valueAt(row, i);
        if (debug) std::cout << "ful:" << ful << std::endl << "emp:" << emp << std::endl;
        if (emp == 0.0) emp = 1.0;
        const double ratio = ful / emp;
        if (ratio >= bestRatio) {
            row.copyTo(bits);
            bestRatio = ratio;
            best = k;
        }
    }
    return best;
}

int Hexagon_Dots_tracking::print_qualityAnalysis(const cv::Mat& a, const cv::Mat& b,
                                                 const cv::Mat& c,
                                                 std::vector<DotAttribute*> dots) {
    const std::string name = imgName;
    // The caller's records of an earlier analysis point into it: it lives as long as the tracker.
    if (blobAnalysis) earlierAnalyses.push_back(std::move(blobAnalysis));
    blobAnalysis = std::make_unique<BlobAnalysis>(sysPara, name);
    std::vector<DotAttribute*> copy = dots;
    const int r = blobAnalysis->blob_analysis(a, b, c, copy);
    return r < 0 ? -503 : r;
}
