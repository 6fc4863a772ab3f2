#include "LogFilter.h"

#include <algorithm>
#include <cmath>

#include <opencv2/core/hal/intrin.hpp>
#include <opencv2/imgproc.hpp>

namespace {

// Sigma 170 (side 1021) is already far beyond any dot; larger kernels only risk the memory of
// the DFT-backed filter.
const float kMaxRoundedSigma = 170.0f;

// out = max(out, (a + b) * scale), in one pass and in the order of the separate operations;
// with `fresh` out is taken as zeros (out may then be a or b).
void keepStrongest(const cv::Mat& a, const cv::Mat& b, float scale, cv::Mat& out, bool fresh) {
    const float* pa = a.ptr<float>();
    const float* pb = b.ptr<float>();
    float* po = out.ptr<float>();
    const int n = static_cast<int>(out.total() * out.channels());
    int i = 0;
    // 32-bit ARM NEON flushes denormals, unlike its scalar unit: lanes only elsewhere.
#if CV_SIMD && (!defined(__arm__) || defined(__aarch64__))
    const cv::v_float32 s = cv::vx_setall_f32(scale), zero = cv::vx_setzero_f32();
    for (; i + cv::v_float32::nlanes <= n; i += cv::v_float32::nlanes)
        cv::v_store(po + i, cv::v_max(fresh ? zero : cv::vx_load(po + i),
                                      (cv::vx_load(pa + i) + cv::vx_load(pb + i)) * s));
#endif
    for (; i < n; ++i) po[i] = std::max(fresh ? 0.0f : po[i], (pa[i] + pb[i]) * scale);
}

}  // namespace

bool LogFilter::separableTerms(float sigma, cv::Mat& a, cv::Mat& g) {
    const float s = roundf(sigma);
    // Sigma 0 has no finite kernel; the dense path reproduces what it makes of it.
    if (!(s >= 1.0f && s <= kMaxRoundedSigma)) return false;
    const float h = 3.0f * s;
    const int n = static_cast<int>(2.0f * h + 1.0f);
    const int reach = static_cast<int>(h);
    a.create(n, 1, CV_32F);
    g.create(n, 1, CV_32F);
    const double twoS2 = 2.0 * s * s;
    const double norm = 1.0 / (3.14159 * std::pow(s, 4.0));
    for (int x = -reach; x <= reach; ++x) {
        const double t = x * x / twoS2;
        const double e = std::exp(-t);
        g.at<float>(x + reach) = static_cast<float>(e);
        a.at<float>(x + reach) = static_cast<float>((0.5 - t) * e * norm);
    }
    return true;
}

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
    cv::Mat pass;
    return run(src, dst, pass, false);
}

int LogFilter::process(cv::Mat& src, cv::Mat& dst, cv::Mat& pass) {
    return run(src, dst, pass, true);
}

int LogFilter::run(cv::Mat& src, cv::Mat& dst, cv::Mat& pass, bool kept) {
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
    // The sums walk whole continuous images: kept ones that are not, or that are src, go.
    if (kept)
        for (cv::Mat* m : {&dst, &pass})
            if (!m->isContinuous() || m->datastart == src.datastart) m->release();
    // Built apart from dst so that src and dst may be the same matrix (kept images are not).
    cv::Mat out, R, second;
    for (size_t i = 0; i < sigma.size(); ++i) {
        cv::Mat ax, gx;
        if (src.depth() == CV_32F && separableTerms(sigma[i], ax, gx)) {
            // a(x)g(y) + g(x)a(y): two separable passes cost far less than the dense kernel,
            // which OpenCV filters through the DFT at these sizes. With kept images the first
            // scale sums into dst, later first passes go to `pass`, and the last scale's second
            // pass into src itself: three images of the frame's size in all.
            const bool first = out.empty(), last = i + 1 == sigma.size();
            cv::Mat& a = kept ? (first ? dst : pass) : R;
            cv::Mat& b = kept ? (last ? src : first ? pass : second) : second;
            cv::sepFilter2D(src, a, -1, ax, gx, cv::Point(-1, -1), 0, cv::BORDER_DEFAULT);
            cv::sepFilter2D(src, b, -1, gx, ax, cv::Point(-1, -1), 0, cv::BORDER_DEFAULT);
            const float scale = sigma[i] * sigma[i];
            if (first) {
                keepStrongest(a, b, scale, a, true);
                out = a;
                R = cv::Mat();
            } else {
                keepStrongest(a, b, scale, out, false);
            }
            second.release();
            continue;
        }
        if (out.empty()) out = cv::Mat::zeros(src.size(), src.type());
        cv::filter2D(src, R, -1, kernels[i], cv::Point(-1, -1), 0, cv::BORDER_DEFAULT);
        R = R * (sigma[i] * sigma[i]);
        cv::max(out, R, out);
    }
    if (out.empty()) out = cv::Mat::zeros(src.size(), src.type());
    dst = out;
    return 0;
}
