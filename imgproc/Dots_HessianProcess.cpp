#include "Dots_HessianProcess.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

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

int Dots_HessianProcess::process(cv::Mat& src, cv::Mat& dst) {
    if (src.empty() || src.dims > 2 || src.channels() != 1) return -100;
    if (src.type() != CV_32FC1) src.convertTo(src, CV_32F, 1, 0);
    if (std::min(src.rows, src.cols) < 50) return -112;

    dst = cv::Mat::zeros(src.size(), CV_32FC1);
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
        cv::Mat S;
        cv::sepFilter2D(src, S, CV_32F, row, col, cv::Point(-1, -1), 0, cv::BORDER_DEFAULT);

        cv::Mat A, B, C, D, E, F, G, H;
        circshift(S, A, 1, 0);
        circshift(S, B, -1, 0);
        circshift(S, C, 0, 1);
        circshift(S, D, 0, -1);
        circshift(A, E, 0, 1);
        circshift(A, F, 0, -1);
        circshift(B, G, 0, 1);
        circshift(B, H, 0, -1);
        const cv::Mat Dxx = A + B - 2 * S;
        const cv::Mat Dyy = C + D - 2 * S;
        const cv::Mat Dxy = (E + H - F - G) / 4;
        const cv::Mat m = (Dxx + Dyy) / 2;
        cv::Mat p1, p2, mm, q;
        cv::multiply(Dxx, Dyy, p1);
        cv::multiply(Dxy, Dxy, p2);
        cv::multiply(m, m, mm);
        const cv::Mat det = p1 - p2;
        cv::sqrt(mm - det, q);
        const cv::Mat l1 = m + q, l2 = m - q;

        cv::Mat R = cv::Mat::zeros(S.size(), CV_32FC1);
        const float weight = sigma * sigma;
        for (int y = 0; y < R.rows; ++y) {
            const float* a = l1.ptr<float>(y);
            const float* b = l2.ptr<float>(y);
            float* out = R.ptr<float>(y);
            for (int x = 0; x < R.cols; ++x) {
                if (!(a[x] < 0.0f && b[x] < 0.0f)) continue;
                float small = a[x], large = b[x];
                if (std::fabs(small) > std::fabs(large)) std::swap(small, large);
                out[x] = small * small / std::fabs(large) * weight * respGain;
            }
        }
        cv::max(dst, R, dst);
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
