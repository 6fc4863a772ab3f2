#include "NoiseRemover.h"

NoiseRemover::NoiseRemover()
    : medfilterSize(3),
      GaussFilter_ksize(3, 3),
      GaussFilter_sigma(1.0),
      Morphology_kernel(cv::Mat::ones(3, 3, CV_8UC1)),
      Dnsample_size(480, 360) {}
void NoiseRemover::medfilt2(cv::Mat&, cv::Mat&) {}
void NoiseRemover::gaussfilt2(cv::Mat&, cv::Mat&) {}
void NoiseRemover::imopen(cv::Mat&, cv::Mat&) {}
void NoiseRemover::imopen(cv::Mat&, cv::Mat&, cv::Mat) {}
void NoiseRemover::ImgDnSample(cv::Mat&, cv::Mat&) {}
int NoiseRemover::imreconstruct(cv::Mat&, cv::Mat&, cv::Mat&) { return -113; }
