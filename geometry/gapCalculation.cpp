#include "gapCalculation.h"

float gapCalculation::gap_cal_M2(cv::Mat, cv::Mat) { return -313.0f; }
