// Rendered inputs shared by the geometry tests.
#pragma once

#include "qbcode_render.h"
#include "test_support.h"

namespace geomtest {

inline qbrender::CodeStyle style(double rotationDeg, double spacing, cv::Size size,
                                 cv::Point2d centre = cv::Point2d(-1, -1)) {
    return qbrender::CodeStyle{spacing, 0.6 * spacing, rotationDeg, centre, size};
}

// About half the positions printed, like a real payload.
inline cv::Mat renderBinary(const qbrender::CodeStyle& s) {
    const std::vector<int> bits = qbrender::payloadBits(
        std::vector<uint8_t>{0x5a, 0xc3, 0x96, 0x7e, 0x3c, 0xa5, 0xf0, 0x69, 0xd2, 0x1b});
    cv::Mat bin;
    cv::threshold(qbrender::renderCode(bits, s), bin, 128, 255, cv::THRESH_BINARY);
    return bin;
}

// Same size, type and values.
inline bool sameMat(const cv::Mat& a, const cv::Mat& b) {
    return a.size() == b.size() && a.type() == b.type() &&
           (a.empty() || cv::norm(a, b, cv::NORM_INF) == 0);
}

// Signed difference of two grid directions modulo the hexagon's 60-degree period, in -30..30.
inline double periodDiff(double a, double b) {
    double d = std::fmod(a - b, 60.0);
    if (d < -30) d += 60;
    if (d > 30) d -= 60;
    return d;
}

}  // namespace geomtest
