#include "PatternRotationCalculation.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <opencv2/imgproc.hpp>

int findPeaks(cv::Mat& src, cv::Mat& peaks, float thresh, int width) {
    if (src.empty() || src.channels() != 1 || peaks.type() != CV_32F || peaks.cols < 4) return 0;
    const int w = width;
    const int N = src.cols;
    // Too short for one full slope window on each side: nothing can qualify.
    if (w < 1 || w > (N - 2) / 2) return 0;
    cv::Mat row;
    if (src.type() == CV_32F)
        row = src.row(0);
    else
        src.row(0).convertTo(row, CV_32F);
    const float* x = row.ptr<float>(0);

    std::vector<float> S(N, 0.f), D(N, 0.f);
    for (int j = 0; j <= N - w; ++j) {
        float sum = 0.f;
        for (int i = 0; i < w; ++i) sum += x[j + i];
        S[j] = sum;
    }
    for (int j = N - w + 1; j < N; ++j) S[j] = x[j];
    for (int j = w; j <= N - w - 1; ++j) D[j] = S[j - w] - S[j + 1];

    const int limit = std::min(20, peaks.rows);
    int count = 0;
    for (int j = w; j <= N - w - 2 && count < limit; ++j) {
        if (!(D[j] < 0.f && D[j + 1] > 0.f)) continue;
        int k = j - 1;
        while (k >= 1 && !(D[k] > D[k + 1])) --k;
        if (k < 1) continue;  // the flank never steepens: not a peak
        const float frac = D[j] / (D[j] - D[j + 1]);
        const float height = (1.f - frac) * x[j] + frac * x[j + 1];
        if (!(height > thresh)) continue;
        float* p = peaks.ptr<float>(count);
        p[0] = static_cast<float>(count);
        p[1] = static_cast<float>(j) + frac;
        p[2] = height;
        p[3] = static_cast<float>(j + 1 - k);
        ++count;
    }
    return count;
}

void PeakDetector::imageProject(cv::Mat& src, cv::Mat& dst, int dim) {
    if (src.empty() || src.channels() != 1 || (dim != 0 && dim != 1)) {
        dst.release();
        return;
    }
    cv::reduce(src, dst, dim, cv::REDUCE_SUM, CV_32F);
    if (dst.rows > 1) cv::transpose(dst, dst);
}

void PeakDetector::peakDetector(cv::Mat& proj, cv::Mat& scores, cv::Mat& peakTable, int theta) {
    // findPeaks fills at most 20 rows: more would only add zeros to the search below.
    float storage[20][4] = {};
    cv::Mat peaks(20, 4, CV_32F, storage);
    const int n = findPeaks(proj, peaks, PeakThresh, filterWidth);
    // The three highest peaks, each the first of its height, as minMaxLoc picks them.
    double sum = 0.0;
    for (int i = 0; i < 3; ++i) {
        int at = 0;
        for (int r = 1; r < peaks.rows; ++r)
            if (peaks.at<float>(r, 2) > peaks.at<float>(at, 2)) at = r;
        sum += peaks.at<float>(at, 2);
        peaks.at<float>(at, 2) = 0.f;
    }
    if (scores.type() == CV_32F && !scores.empty() && theta >= 0 && theta < scores.cols)
        scores.at<float>(0, theta) = static_cast<float>(sum);
    if (n > 0 && peakTable.type() == CV_32F && theta >= 0 && theta < peakTable.rows) {
        const int m = std::min(n, peakTable.cols);
        for (int i = 0; i < m; ++i) peakTable.at<float>(theta, i) = peaks.at<float>(i, 1);
    }
}

PatternRotationCalculation::PatternRotationCalculation()
    : imgRotation(new ImageRotation), peakDetector(new PeakDetector) {}

void PatternRotationCalculation::assign_theta(std::vector<int>& thetas) {
    for (size_t i = 0; i < thetas.size(); ++i) thetas[i] = 2 * static_cast<int>(i);
}

int PatternRotationCalculation::rotated_angle(cv::Mat scores) {
    if (scores.empty() || scores.channels() != 1) return 0;
    cv::Point at;
    cv::minMaxLoc(scores, nullptr, nullptr, nullptr, &at);
    return at.x;
}

bool PatternRotationCalculation::tablesUsable(const cv::Mat& scores, const cv::Mat& peakTable) {
    return scores.type() == CV_32F && scores.rows >= 1 && scores.cols >= 180 &&
           peakTable.type() == CV_32F && peakTable.rows >= 180 && peakTable.cols >= 1;
}

void PatternRotationCalculation::scoreAngle(const cv::Mat& bin, int theta, cv::Mat& scores,
                                            cv::Mat& peakTable) {
    if (bin.empty() || bin.type() != CV_8UC1) return;
    scoreAngle(bin, theta, scores, peakTable, NonZeroShape::of(bin));
}

void PatternRotationCalculation::scoreAngle(const cv::Mat& bin, int theta, cv::Mat& scores,
                                            cv::Mat& peakTable, const NonZeroShape& content) {
    const cv::Mat src = bin.isContinuous() ? bin : bin.clone();
    // Sizes beyond 16 bits are cut by the rotation's own arguments; only there do the two
    // routes differ, so only there is the image materialised.
    if (src.rows <= 0xffff && src.cols <= 0xffff) {
        if (proj.rows != 1 || proj.cols != src.cols || proj.type() != CV_32F)
            proj.create(1, src.cols, CV_32F);
        imgRotation->fast_rotate_project(
            proj.ptr<float>(0), src.data, static_cast<unsigned short>(src.rows),
            static_cast<unsigned short>(src.cols), static_cast<float>(theta), content);
    } else {
        if (turned.size() != src.size() || turned.type() != CV_8UC1)
            turned = cv::Mat::zeros(src.size(), CV_8UC1);
        imgRotation->fast_rotate(src, turned, static_cast<float>(theta));
        peakDetector->imageProject(turned, proj, 0);
    }
    peakDetector->peakDetector(proj, scores, peakTable, theta);
}

int PatternRotationCalculation::rotationAngleCal(cv::Mat& binImg, cv::Mat& scores,
                                                 cv::Mat peakTable) {
    if (scores.empty()) scores = cv::Mat::zeros(1, 180, CV_32F);
    if (!tablesUsable(scores, peakTable)) return 0;
    std::vector<int> thetas(90);
    assign_theta(thetas);
    setPeakThresh(1200.f);
    peakDetector->setParas(PeakThresh, 1, 4);
    if (binImg.empty() || binImg.type() != CV_8UC1) return rotated_angle(scores);
    const cv::Mat src = binImg.isContinuous() ? binImg : binImg.clone();
    const NonZeroShape content = NonZeroShape::of(src);
    for (int theta : thetas) {
        if (theta > 180) continue;
        scoreAngle(src, theta, scores, peakTable, content);
    }
    return rotated_angle(scores);
}

int PatternRotationCalculation::rotationAngleNear(cv::Mat& binImg, cv::Mat& scores,
                                                  cv::Mat peakTable, double upright,
                                                  double window) {
    if (scores.empty()) scores = cv::Mat::zeros(1, 180, CV_32F);
    if (!tablesUsable(scores, peakTable) || binImg.empty() || binImg.type() != CV_8UC1 ||
        !std::isfinite(upright) || !(window > 0.0))
        return -1;
    setPeakThresh(1200.f);
    peakDetector->setParas(PeakThresh, 1, 4);
    const cv::Mat src = binImg.isContinuous() ? binImg : binImg.clone();
    const NonZeroShape content = NonZeroShape::of(src);
    // Membership by the angle modulo 60, so that an angle and its turns are searched together.
    auto offset = [upright](int theta) {
        const double d = theta - upright;
        return std::fabs(d - 60.0 * std::floor((d + 30.0) / 60.0));
    };
    int best = -1;
    float most = 0.f;
    for (int theta = 0; theta < 180; theta += 2) {
        if (offset(theta % 60) > window) continue;
        scoreAngle(src, theta, scores, peakTable, content);
        const float s = scores.at<float>(0, theta);
        if (s > most) {
            most = s;
            best = theta;
        }
    }
    if (best < 0 || offset(best % 60) > window - 2.0) return -1;
    return best;
}
