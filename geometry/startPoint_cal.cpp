#include "startPoint_cal.h"

int startPoint_cal::initialize() { return -1; }
int startPoint_cal::findStartPoint_NCC(float&, const cv::Mat&, cv::Mat&, cv::Point&, double) {
    return -320;
}
