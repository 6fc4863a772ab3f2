#include "Dots_tracking.h"

#include <algorithm>
#include <cmath>

#include "SystemPara.h"

int Dots_tracking::Initiate() {
    if (sysPara == nullptr) return -1;
    const int r = sysPara->readPara("DotsTracking");
    if (r < 0) return r;
    boxRatio = sysPara->boxRatio;
    debug = sysPara->track_Debug;
    return 1;
}

int Dots_tracking::Run(const cv::Mat& image, const cv::Mat& /*aux*/, cv::Mat& bits, cv::Mat& boxes,
                       bool /*flag*/) {
    if (Initiate() < 0) return -501;
    return calculate_bits_array(image, bits, boxes);
}

double Dots_tracking::setBoxRadius(double gap) {
    if (gap <= 16.0) return gap / 3.5;
    return std::ceil(gap / 3.0);
}

int Dots_tracking::calculateBitValue(const cv::Mat& binImage, int row, int col, int r) {
    const long long count = countForeground(binImage, row, col, r);
    const double side = 2.0 * r + 1.0;
    const double threshold = side * side * static_cast<double>(boxRatio);
    return threshold < static_cast<double>(count) ? 1 : 0;
}

long long Dots_tracking::countForeground(const cv::Mat& binImage, int row, int col, int r) const {
    const int type = binImage.type();
    long long count = 0;
    if (r > 0 && (type == CV_8UC1 || type == CV_32FC1)) {
        // Same window as row - r .. row + r - 1, clipped to rows and columns from 1 upward;
        // 64-bit bounds so that extreme centres cannot overflow.
        const long long r0 = std::max<long long>(1LL, static_cast<long long>(row) - r);
        const long long r1 = std::min<long long>(binImage.rows, static_cast<long long>(row) + r);
        const long long c0 = std::max<long long>(1LL, static_cast<long long>(col) - r);
        const long long c1 = std::min<long long>(binImage.cols, static_cast<long long>(col) + r);
        for (long long y = r0; y < r1; ++y) {
            if (type == CV_8UC1) {
                const uchar* px = binImage.ptr<uchar>(static_cast<int>(y));
                for (long long x = c0; x < c1; ++x) count += px[x] != 0;
            } else {
                const float* px = binImage.ptr<float>(static_cast<int>(y));
                for (long long x = c0; x < c1; ++x) count += px[x] > 0.0f;
            }
        }
    }
    return count;
}

int Dots_tracking::boundingBox_centroidPoint(const cv::Mat& boxes, cv::Mat& centres) {
    if (boxes.cols != 4 && boxes.type() != CV_64FC1) return -1;
    // Whatever passes is read as four doubles per row; other element types are converted
    // and values a row does not hold read as 0, so nothing is read outside the matrix.
    if (boxes.rows == 0) {
        centres = cv::Mat::zeros(0, 2, boxes.type());
        return 0;
    }
    cv::Mat b;
    boxes.reshape(1, boxes.rows).convertTo(b, CV_64F);
    cv::Mat out = cv::Mat::zeros(boxes.rows, 2, CV_64F);
    for (int i = 0; i < b.rows; ++i) {
        double v[4] = {0.0, 0.0, 0.0, 0.0};
        for (int j = 0; j < 4 && j < b.cols; ++j) v[j] = b.at<double>(i, j);
        out.at<double>(i, 0) = (v[0] + v[2]) * 0.5;
        out.at<double>(i, 1) = (v[1] + v[3]) * 0.5;
    }
    if (boxes.depth() == CV_64F)
        centres = out;
    else
        out.convertTo(centres, boxes.depth());
    return 0;
}
