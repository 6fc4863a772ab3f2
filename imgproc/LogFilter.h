// Multi-scale Laplacian-of-Gaussian (Mexican hat) keeping the strongest positive response.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

class LogFilter {
public:
    void setSigma(std::vector<float> s) { sigma = std::move(s); }
    std::vector<float> getSigma() const { return sigma; }

    void createLoGKernel(cv::Mat& kernel, float sigma);
    // 0, or -100 for an empty src.
    int process(cv::Mat& src, cv::Mat& dst);

private:
    std::vector<float> sigma{3.0f};
};
