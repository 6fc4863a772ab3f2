// Frames and settings shared by the whole-call benchmark and the anchors.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace qbbench {

// Eight camera-like 480 x 640 frames of our code (fixed seeds).
const std::vector<cv::Mat>& cameraFrames();

// One OpenCV thread while alive: every whole call and anchor is measured single-threaded.
struct SingleThread {
    SingleThread();
    ~SingleThread();
    SingleThread(const SingleThread&) = delete;
    SingleThread& operator=(const SingleThread&) = delete;
    int saved;
};

}  // namespace qbbench
