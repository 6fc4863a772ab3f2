#include "rotationAngleCal_C.h"

#include <algorithm>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "PatternRotationCalculation.h"
#include "SystemPara.h"

int rotationAngleCal_C(cv::Mat& img, cv::Mat& m1, cv::Mat& m2, SystemPara* para) {
    if (para == nullptr || img.empty() || para->readPara("PatternRotation") < 0) return -100;
    if (m1.empty()) m1 = cv::Mat::zeros(1, 180, CV_32F);
    if (m2.empty()) m2 = cv::Mat::zeros(180, 20, CV_32F);
    if (!PatternRotationCalculation::tablesUsable(m1, m2)) return -301;

    // Scores are column sums of a binary image, so the file's threshold keeps its units.
    cv::Mat grey;
    if (img.type() == CV_8UC1) {
        grey = img;
    } else {
        cv::Mat first;
        cv::extractChannel(img, first, 0);
        first.convertTo(grey, CV_8U);
    }
    // Otsu on a flat image would turn it all white; a flat image has no dots.
    double lo = 0.0, hi = 0.0;
    cv::minMaxLoc(grey, &lo, &hi);
    cv::Mat bin = cv::Mat::zeros(grey.size(), CV_8U);
    if (hi > lo) cv::threshold(grey, bin, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);

    PatternRotationCalculation search;
    search.setPeakThresh(para->PeakThresh);
    search.peakDetector->setParas(para->PeakThresh, para->ProjDirect, para->filterWidth);

    std::vector<bool> done(180, false);
    auto score = [&](int theta) {
        theta = ((theta % 180) + 180) % 180;
        if (done[theta]) return;
        done[theta] = true;
        search.scoreAngle(bin, theta, m1, m2);
    };
    auto bestOf = [&]() {
        int best = 0;
        for (int t = 1; t < 180; ++t)
            if (m1.at<float>(0, t) > m1.at<float>(0, best)) best = t;
        return best;
    };

    const int step = para->RotationNum > 0 ? std::max(1, 180 / para->RotationNum) : 2;
    for (int t = 0; t < 180; t += step) score(t);
    const int coarse = bestOf();
    // A window of +-29 degrees spans one period of the hexagonal grid less one degree.
    for (int d = -29; d <= 29; ++d) score(coarse + d);
    const int fine = bestOf();
    // The spacing reads the rows 60 and 120 degrees away from the best angle.
    score(fine + 60);
    score(fine + 120);
    const int result = bestOf();
    if (!(m1.at<float>(0, result) > 0.f)) return -301;
    return result;
}
