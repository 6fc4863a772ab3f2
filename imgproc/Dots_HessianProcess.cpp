#include "Dots_HessianProcess.h"

void Dots_HessianProcess::setScale(const std::vector<float>& s) { scales = s; }
void Dots_HessianProcess::setScale(const float* s, int n) {
    scales.assign(s, s + (n > 0 ? n : 0));
}
int Dots_HessianProcess::process(cv::Mat&, cv::Mat&) { return -100; }
int Dots_HessianProcess::circshift(cv::Mat&, cv::Mat&, int, int) { return -100; }
int Dots_HessianProcess::resetBoundaryPixels(cv::Mat&) { return -112; }
