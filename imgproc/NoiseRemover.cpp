#include "NoiseRemover.h"

#include <cfloat>
#include <climits>
#include <cstdint>
#include <cstring>

#include <opencv2/imgproc.hpp>

namespace {

// Depths every OpenCV filter used here accepts (8S and 32S are refused by most of them).
bool filterDepth(int depth) {
    return depth == CV_8U || depth == CV_16U || depth == CV_16S || depth == CV_32F ||
           depth == CV_64F;
}

bool usableImage(const cv::Mat& m) {
    return !m.empty() && m.dims <= 2 && m.channels() <= 4 && filterDepth(m.depth());
}

// An operation that cannot run leaves no stale result behind.
void dropResult(const cv::Mat& src, cv::Mat& dst) {
    if (&src != &dst) dst.release();
}

// Gaussian kernel side OpenCV derives (from sigma when the size is not positive), or 0 when
// the size is unusable. A 1-D kernel beyond a million taps cannot be meant and would not fit.
int gaussianSide(int given, double sigma, int depth) {
    const int kMaxSide = 1 << 20;
    if (given > 0) return given % 2 == 1 && given <= kMaxSide ? given : 0;
    if (!(sigma > 0.0) || sigma * 8 + 1 > kMaxSide) return 0;
    return cvRound(sigma * (depth == CV_8U ? 3 : 4) * 2 + 1) | 1;
}

bool sameBits(const cv::Mat& a, const cv::Mat& b) {
    const size_t rowBytes = a.cols * a.elemSize();
    for (int y = 0; y < a.rows; ++y)
        if (std::memcmp(a.ptr(y), b.ptr(y), rowBytes) != 0) return false;
    return true;
}

}  // namespace

NoiseRemover::NoiseRemover()
    : medfilterSize(3),
      GaussFilter_ksize(3, 3),
      GaussFilter_sigma(1.0),
      Morphology_kernel(cv::Mat::ones(3, 3, CV_8UC1)),
      Dnsample_size(480, 360) {}

void NoiseRemover::medfilt2(cv::Mat& src, cv::Mat& dst) {
    const int k = medfilterSize;
    bool ok = !src.empty() && src.dims <= 2 && k >= 1 && k % 2 == 1;
    if (ok && (k == 3 || k == 5)) {
        const int d = src.depth();
        ok = (d == CV_8U || d == CV_16U || d == CV_16S || d == CV_32F) && src.channels() <= 4;
    } else if (ok && k > 5) {
        // The large-aperture median counts in 16 bits: beyond 255 x 255 the counts overflow.
        const int cn = src.channels();
        ok = src.depth() == CV_8U && (cn == 1 || cn == 3 || cn == 4) && k <= 255;
    }
    if (!ok) return dropResult(src, dst);
    cv::medianBlur(src, dst, k);
}

void NoiseRemover::gaussfilt2(cv::Mat& src, cv::Mat& dst) {
    if (!(GaussFilter_sigma > 0.0)) GaussFilter_sigma = -GaussFilter_sigma;
    if (!usableImage(src)) return dropResult(src, dst);
    const int w = gaussianSide(GaussFilter_ksize.width, GaussFilter_sigma, src.depth());
    const int h = gaussianSide(GaussFilter_ksize.height, GaussFilter_sigma, src.depth());
    if (w <= 0 || h <= 0) return dropResult(src, dst);
    cv::GaussianBlur(src, dst, GaussFilter_ksize, GaussFilter_sigma, 0, cv::BORDER_DEFAULT);
}

void NoiseRemover::imopen(cv::Mat& src, cv::Mat& dst) {
    imopen(src, dst, Morphology_kernel);
}

void NoiseRemover::imopen(cv::Mat& src, cv::Mat& dst, cv::Mat kernel) {
    if (!usableImage(src) || kernel.dims > 2 || (!kernel.empty() && kernel.channels() != 1))
        return dropResult(src, dst);
    cv::morphologyEx(src, dst, cv::MORPH_OPEN, kernel, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT,
                     cv::morphologyDefaultBorderValue());
}

void NoiseRemover::ImgDnSample(cv::Mat& src, cv::Mat& dst) {
    const int w = Dnsample_size.x, h = Dnsample_size.y;
    const bool ok = !src.empty() && src.dims <= 2 && filterDepth(src.depth()) && w > 0 && h > 0 &&
                    static_cast<int64_t>(w) * h <= INT_MAX;
    if (!ok) return dropResult(src, dst);
    cv::resize(src, dst, cv::Size(w, h), 1.0, 0.0, cv::INTER_LINEAR);
}

int NoiseRemover::imreconstruct(cv::Mat& marker, cv::Mat& mask, cv::Mat& result) {
    if (marker.empty() || mask.empty()) return -113;
    // cv::min and cv::dilate need matching, filterable inputs.
    if (marker.size() != mask.size() || marker.type() != mask.type() || !usableImage(mask))
        return -113;
    const cv::Mat element = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
    cv::Mat out, previous;
    cv::min(marker, mask, out);
    // Without NaN the loop settles within one pass per pixel; the cap and the bitwise test
    // only keep NaN data from looping for ever.
    const int64_t cap = static_cast<int64_t>(out.total()) + 2;
    for (int64_t pass = 0; pass < cap; ++pass) {
        out.copyTo(previous);
        cv::dilate(out, out, element, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT,
                   cv::Scalar::all(DBL_MAX));
        cv::min(out, mask, out);
        cv::Mat diff;
        cv::absdiff(out, previous, diff);
        const double change = cv::sum(diff)[0];
        if (change == 0.0) break;
        if (change != change && sameBits(out, previous)) break;
    }
    result = out;
    return 0;
}
