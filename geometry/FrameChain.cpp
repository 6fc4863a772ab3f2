#include "FrameChain.h"

#include <cmath>

#include <opencv2/imgproc.hpp>

FrameChain::FrameChain() : toFrame{cv::Matx33d::eye()} {}

int FrameChain::push(const cv::Matx33d& step) {
    toFrame.push_back(step * toFrame.back());
    return last();
}

int FrameChain::crop(cv::Point2d offset) {
    return push(cv::Matx33d(1, 0, -offset.x, 0, 1, -offset.y, 0, 0, 1));
}

int FrameChain::resize(cv::Size from, cv::Size to) {
    if (from.width <= 0 || from.height <= 0) return push(cv::Matx33d::eye());
    const double sx = static_cast<double>(to.width) / from.width;
    const double sy = static_cast<double>(to.height) / from.height;
    return push(cv::Matx33d(sx, 0, 0.5 * sx - 0.5, 0, sy, 0.5 * sy - 0.5, 0, 0, 1));
}

int FrameChain::turn(cv::Size size, double angleDeg) {
    const cv::Point2f centre(static_cast<float>(size.width * 0.5),
                             static_cast<float>(size.height * 0.5));
    const cv::Mat m = cv::getRotationMatrix2D(centre, angleDeg, 1.0);
    return push(cv::Matx33d(m.at<double>(0, 0), m.at<double>(0, 1), m.at<double>(0, 2),
                            m.at<double>(1, 0), m.at<double>(1, 1), m.at<double>(1, 2), 0, 0, 1));
}

cv::Point2d FrameChain::map(cv::Point2d p, int from, int to) const {
    if (from < 0 || to < 0 || from > last() || to > last()) return p;
    const cv::Matx33d m = toFrame[to] * toFrame[from].inv();
    const cv::Vec3d q = m * cv::Vec3d(p.x, p.y, 1.0);
    return cv::Point2d(q[0] / q[2], q[1] / q[2]);
}

double FrameChain::scaleToInput(int from) const {
    if (from < 0 || from > last()) return 1.0;
    const cv::Matx33d m = toFrame[from].inv();
    return std::sqrt(std::fabs(m(0, 0) * m(1, 1) - m(0, 1) * m(1, 0)));
}
