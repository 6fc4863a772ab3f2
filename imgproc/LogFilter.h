// Multi-scale Laplacian-of-Gaussian (Mexican hat) keeping the strongest positive response.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class LogFilter {
public:
    void setSigma(std::vector<float> s) { sigma = std::move(s); }
    std::vector<float> getSigma() const { return sigma; }

    // The kernel of the rounded sigma; empty when that is negative, not finite or above 170.
    void createLoGKernel(cv::Mat& kernel, float sigma);
    // The kernel of the rounded sigma as a(x)g(y) + g(x)a(y) (column vectors, the normalisation
    // in a); false where the dense kernel has no such form (rounded sigma 0, or no kernel).
    static bool separableTerms(float sigma, cv::Mat& a, cv::Mat& g);
    // 0, or -100 for an empty or unfilterable src or a sigma without a kernel.
    int process(cv::Mat& src, cv::Mat& dst);
    // The same into images a reader keeps between frames (a fresh image of a frame's size costs
    // a page fault per 4 KB): dst and pass are written in place unless they share src's data,
    // and src takes the last pass, its contents then undefined.
    int process(cv::Mat& src, cv::Mat& dst, cv::Mat& pass);

private:
    int run(cv::Mat& src, cv::Mat& dst, cv::Mat& pass, bool kept);
    std::vector<float> sigma{3.0f};
};

QBCODE_VISIBLE_END
