// Variant of the angle search on a Gaussian-smoothed grey crop, configured by "PatternRotation".
#pragma once

#include <opencv2/core.hpp>

class SystemPara;

// Fills m1 (1x180) and m2 (180x20), CV_32F; returns whole degrees or -100 / -301.
int rotationAngleCal_C(cv::Mat& img, cv::Mat& m1, cv::Mat& m2, SystemPara* para);
