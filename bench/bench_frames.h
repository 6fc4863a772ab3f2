// Frames and settings shared by the whole-call benchmark and the anchors.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_reader.hpp"

namespace qbbench {

// Eight camera-like 480 x 640 frames of our code (fixed seeds).
const std::vector<cv::Mat>& cameraFrames();

// The accuracy suite's frames of the named conditions, `each` per condition, drawn as the suite
// draws them (photographs where the benchmark was configured with the folder).
std::vector<cv::Mat> suiteFrames(const std::vector<std::string>& names, int each);
// Three codes in one 480 x 640 frame, far enough apart to be clusters of their own.
cv::Mat threeCodes();

// A camera stream's frames: the suite's nominal set (24), its no-code set (12 each of
// photographs, textures, noise and fake hexagonal fields) and the three-code frame.
struct StreamFrames {
    std::vector<cv::Mat> nominal, empty;
    cv::Mat three;
};
StreamFrames streamFrames();

inline qbcode::ImageView viewOf(const cv::Mat& m) {
    return qbcode::ImageView(m.data, m.rows, m.cols, m.step);
}

// A symbol of `side` pixels (dark modules on a light ground) in the middle of a 480 x 640
// frame, turned by 23 degrees and degraded like the camera frames of our own code.
cv::Mat anchorView(const cv::Mat& symbol, int side);
#ifdef QBCODE_BENCH_ZXING
// zxing-cpp's anchor: a QR code seen that way.
cv::Mat qrFrame();
#endif

// One OpenCV thread while alive: every whole call and anchor is measured single-threaded.
struct SingleThread {
    SingleThread();
    ~SingleThread();
    SingleThread(const SingleThread&) = delete;
    SingleThread& operator=(const SingleThread&) = delete;
    int saved;
};

}  // namespace qbbench
