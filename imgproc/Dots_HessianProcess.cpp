#include "Dots_HessianProcess.h"

#include <algorithm>
#include <cmath>

#include <opencv2/core/hal/intrin.hpp>
#include <opencv2/imgproc.hpp>

// Fused multiply-adds would change the last bit against the whole-image form.
#ifdef __clang__
#pragma STDC FP_CONTRACT OFF
#endif

void Dots_HessianProcess::setScale(const std::vector<float>& s) {
    scales = s;
}
void Dots_HessianProcess::setScale(const float* s, int n) {
    if (s == nullptr || n < 1) {
        scales.clear();
        return;
    }
    scales.assign(s, s + n);
}

// One pixel of the per-scale response from the 3x3 neighbourhood of the smoothed image S
// (rows up/mid/down, columns l/c/r, already wrapped at the image edges). The operations and
// their order are those of the whole-image form: Dxx = A + B - 2S, Dxy = (E + H - F - G) / 4,
// m = (Dxx + Dyy) / 2, det = Dxx Dyy - Dxy^2, so the numbers are the same to the last bit.
inline float Dots_HessianProcess::dotScore(const float* up, const float* mid, const float* down,
                                           int l, int c, int r, float weight) const {
    const float s = mid[c];
    const float dxx = (mid[r] + mid[l]) - 2.0f * s;
    const float dyy = (down[c] + up[c]) - 2.0f * s;
    const float dxy = (((down[r] + up[l]) - up[r]) - down[l]) * 0.25f;
    const float m = (dxx + dyy) * 0.5f;
    const float p1 = dxx * dyy;
    const float p2 = dxy * dxy;
    const float q = std::sqrt(m * m - (p1 - p2));
    const float l1 = m + q, l2 = m - q;
    // Only bright, round peaks: both curvatures negative.
    if (!(l1 < 0.0f && l2 < 0.0f)) return 0.0f;
    float small = l1, large = l2;
    if (std::fabs(small) > std::fabs(large)) std::swap(small, large);
    return small * small / std::fabs(large) * weight * respGain;
}

namespace {

// Vector lanes give the scalar values only where division and square root are IEEE operations
// and denormals are kept: not on 32-bit ARM NEON.
#if CV_SIMD && (!defined(__arm__) || defined(__aarch64__))
#define QBCODE_HESSIAN_SIMD 1
#endif

#ifdef QBCODE_HESSIAN_SIMD
// dotScore for the lanes x .. x + n - 1, folded into out by the scalar std::max rule; the same
// operations in the same order, with selects for the branches.
int dotScoreRow(const float* up, const float* mid, const float* down, float* out, int from, int to,
                float weight, float gain) {
    using namespace cv;
    const int n = v_float32::nlanes;
    const v_float32 two = vx_setall_f32(2.0f), quarter = vx_setall_f32(0.25f),
                    half = vx_setall_f32(0.5f), zero = vx_setzero_f32(), w = vx_setall_f32(weight),
                    g = vx_setall_f32(gain);
    int x = from;
    for (; x + n <= to; x += n) {
        const v_float32 s = vx_load(mid + x);
        const v_float32 dxx = (vx_load(mid + x + 1) + vx_load(mid + x - 1)) - two * s;
        const v_float32 dyy = (vx_load(down + x) + vx_load(up + x)) - two * s;
        const v_float32 dxy =
            (((vx_load(down + x + 1) + vx_load(up + x - 1)) - vx_load(up + x + 1)) -
             vx_load(down + x - 1)) *
            quarter;
        const v_float32 m = (dxx + dyy) * half;
        const v_float32 p1 = dxx * dyy;
        const v_float32 p2 = dxy * dxy;
        const v_float32 q = v_sqrt(m * m - (p1 - p2));
        const v_float32 l1 = m + q, l2 = m - q;
        const v_float32 peak = (l1 < zero) & (l2 < zero);
        const v_float32 swap = v_abs(l1) > v_abs(l2);
        const v_float32 small = v_select(swap, l2, l1), large = v_select(swap, l1, l2);
        const v_float32 score = v_select(peak, small * small / v_abs(large) * w * g, zero);
        const v_float32 o = vx_load(out + x);
        v_store(out + x, v_select(o < score, score, o));
    }
    return x;
}
#endif

}  // namespace

int Dots_HessianProcess::process(cv::Mat& src, cv::Mat& dst) {
    cv::Mat blur;
    return run(src, dst, blur, false);
}

int Dots_HessianProcess::process(cv::Mat& src, cv::Mat& dst, cv::Mat& blur) {
    return run(src, dst, blur, true);
}

int Dots_HessianProcess::run(cv::Mat& src, cv::Mat& dst, cv::Mat& S, bool kept) {
    if (src.empty() || src.dims > 2 || src.channels() != 1) return -100;
    if (src.type() != CV_32FC1) src.convertTo(src, CV_32F, 1, 0);
    if (std::min(src.rows, src.cols) < 50) return -112;

    if (kept && dst.datastart != src.datastart && S.datastart != dst.datastart) {
        dst.create(src.size(), CV_32FC1);
        dst.setTo(0);
    } else {
        dst = cv::Mat::zeros(src.size(), CV_32FC1);
    }
    if (S.datastart == src.datastart) S.release();
    for (const float sigma : scales) {
        if (!(sigma > 0.0f)) return -122;
        const float reach = kernelFactor * sigma + 1.0f;
        // 2r > 49 exactly when the rounded half-width reaches 25; testing before the cast keeps
        // huge sigmas from overflowing it.
        if (!(reach + 0.5 < 25.0)) return -121;
        const int r = static_cast<int>(reach + 0.5);
        const int n = 2 * r + 1;

        cv::Mat row(1, n, CV_32F);
        const float norm = 1.0f / (sigma * std::sqrt(2.0f * static_cast<float>(CV_PI)));
        const float twoSigma2 = 2.0f * sigma * sigma;
        for (int i = -r; i <= r; ++i)
            row.at<float>(0, i + r) = norm * std::exp(-static_cast<float>(i * i) / twoSigma2);
        const cv::Mat col = row.t();
        cv::sepFilter2D(src, S, CV_32F, row, col, cv::Point(-1, -1), 0, cv::BORDER_DEFAULT);

        const float weight = sigma * sigma;
        const int rows = S.rows, cols = S.cols;
        for (int y = 0; y < rows; ++y) {
            const float* up = S.ptr<float>(y == 0 ? rows - 1 : y - 1);
            const float* mid = S.ptr<float>(y);
            const float* down = S.ptr<float>(y == rows - 1 ? 0 : y + 1);
            float* out = dst.ptr<float>(y);
            out[0] = std::max(out[0], dotScore(up, mid, down, cols - 1, 0, 1, weight));
            int x = 1;
#ifdef QBCODE_HESSIAN_SIMD
            x = dotScoreRow(up, mid, down, out, 1, cols - 1, weight, respGain);
#endif
            for (; x < cols - 1; ++x)
                out[x] = std::max(out[x], dotScore(up, mid, down, x - 1, x, x + 1, weight));
            out[cols - 1] =
                std::max(out[cols - 1], dotScore(up, mid, down, cols - 2, cols - 1, 0, weight));
        }
    }
    return resetBoundaryPixels(dst);
}

int Dots_HessianProcess::circshift(cv::Mat& src, cv::Mat& dst, int dx, int dy) {
    if (src.empty() || src.dims > 2) return -100;
    const int rows = src.rows, cols = src.cols;
    // Any shift reduces to one in 0..size-1 pointing at the source column (row) of index 0.
    int sx = dx % cols, sy = dy % rows;
    if (sx < 0) sx += cols;
    if (sy < 0) sy += rows;

    cv::Mat tmp(rows, cols, src.type());
    if (sx == 0) {
        src.copyTo(tmp);
    } else {
        src.colRange(sx, cols).copyTo(tmp.colRange(0, cols - sx));
        src.colRange(0, sx).copyTo(tmp.colRange(cols - sx, cols));
    }
    // A new matrix, so that src and dst may be the same object.
    cv::Mat out(rows, cols, src.type());
    if (sy == 0) {
        tmp.copyTo(out);
    } else {
        tmp.rowRange(sy, rows).copyTo(out.rowRange(0, rows - sy));
        tmp.rowRange(0, sy).copyTo(out.rowRange(rows - sy, rows));
    }
    dst = out;
    return 0;
}

int Dots_HessianProcess::resetBoundaryPixels(cv::Mat& m) {
    if (m.dims > 2 || m.rows <= 5 || m.cols <= 5) return -112;
    m.rowRange(0, 5).setTo(cv::Scalar::all(0));
    m.rowRange(m.rows - 5, m.rows).setTo(cv::Scalar::all(0));
    m.colRange(0, 5).setTo(cv::Scalar::all(0));
    m.colRange(m.cols - 5, m.cols).setTo(cv::Scalar::all(0));
    return 0;
}
