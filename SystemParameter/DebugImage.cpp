#include "DebugImage.h"

#include <cstdlib>
#include <iostream>

#include <opencv2/highgui.hpp>
#include <opencv2/imgcodecs.hpp>

bool debugDisplayAvailable() {
    const char* x11 = std::getenv("DISPLAY");
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    return (x11 != nullptr && *x11 != '\0') || (wayland != nullptr && *wayland != '\0');
}

void debugShow(const std::string& window, const cv::Mat& img, int waitMs) {
    if (!debugDisplayAvailable() || img.empty()) return;
    try {
        cv::imshow(window, img);
        if (waitMs >= 0) cv::waitKey(waitMs);
    } catch (const cv::Exception& e) {
        std::cout << "cannot show " << window << ": " << e.what() << std::endl;
    }
}

void debugWait(int waitMs) {
    if (!debugDisplayAvailable()) return;
    try {
        cv::waitKey(waitMs);
    } catch (const cv::Exception&) {
    }
}

bool debugWrite(const std::string& path, const cv::Mat& img) {
    try {
        if (!img.empty() && cv::imwrite(path, img)) return true;
    } catch (const cv::Exception&) {
    }
    std::cout << "cannot write " << path << std::endl;
    return false;
}
