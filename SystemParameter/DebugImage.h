// Debug image output shared by the stages: windows only where a display exists, files never throw.
#pragma once

#include <string>

#include <opencv2/core.hpp>

// True when a window system is reachable; without one every show call is skipped.
bool debugDisplayAvailable();
// cv::imshow when a display exists; a negative waitMs shows without waiting.
void debugShow(const std::string& window, const cv::Mat& img, int waitMs = -1);
// cv::waitKey(waitMs) when a display exists.
void debugWait(int waitMs);
// cv::imwrite without parameters; a failure is reported on standard output, never thrown.
bool debugWrite(const std::string& path, const cv::Mat& img);
