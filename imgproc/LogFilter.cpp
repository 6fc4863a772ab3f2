#include "LogFilter.h"

#include <cmath>

#include <opencv2/imgproc.hpp>

namespace {

// Sigma 170 (side 1021) is already far beyond any dot; larger kernels only risk the memory of
// the DFT-backed filter.
const float kMaxRoundedSigma = 170.0f;

}  // namespace

void LogFilter::createLoGKernel(cv::Mat& kernel, float sigma) {
    if (kernel.type() != CV_32FC1) kernel.convertTo(kernel, CV_32F);
    const float s = roundf(sigma);
    // A negative, non-finite or huge sigma has no kernel: leave an empty one.
    if (!(s >= 0.0f && s <= kMaxRoundedSigma)) {
        kernel = cv::Mat(0, 0, CV_32F);
        return;
    }
    const float h = 3.0f * s;
    const int n = static_cast<int>(2.0f * h + 1.0f);
    const int reach = static_cast<int>(h);
    kernel = cv::Mat::zeros(n, n, CV_32F);
    const float twoS2 = 2.0f * s * s;
    const double norm = 1.0 / (3.14159 * std::pow(s, 4.0));
    for (int y = -reach; y <= h; ++y) {
        float* row = kernel.ptr<float>(y + reach);
        for (int x = -reach; x <= h; ++x) {
            const float r2 = static_cast<float>(x * x + y * y);
            const float t = r2 / twoS2;
            row[x + reach] = static_cast<float>((1.0f - t) * norm * std::exp(-t));
        }
    }
}

int LogFilter::process(cv::Mat& src, cv::Mat& dst) {
    if (src.empty()) return -100;
    const int depth = src.depth();
    const bool filterable =
        depth == CV_8U || depth == CV_16U || depth == CV_16S || depth == CV_32F || depth == CV_64F;
    if (src.dims > 2 || !filterable) return -100;

    std::vector<cv::Mat> kernels(sigma.size());
    for (size_t i = 0; i < sigma.size(); ++i) {
        createLoGKernel(kernels[i], sigma[i]);
        if (kernels[i].empty()) return -100;
    }
    // Built apart from dst so that src and dst may be the same matrix.
    cv::Mat out = cv::Mat::zeros(src.size(), src.type());
    cv::Mat R;
    for (size_t i = 0; i < sigma.size(); ++i) {
        cv::filter2D(src, R, -1, kernels[i], cv::Point(-1, -1), 0, cv::BORDER_DEFAULT);
        R = R * (sigma[i] * sigma[i]);
        cv::max(out, R, out);
    }
    dst = out;
    return 0;
}
