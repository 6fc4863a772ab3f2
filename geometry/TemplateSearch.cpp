#include "TemplateSearch.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <opencv2/core/hal/intrin.hpp>

namespace tsearch {

namespace {

// The direct form's operations in its order, so both give the same double.
inline double score(double n, int64_t sw, int64_t sww, int64_t st, int64_t stt, int64_t swt) {
    const double dw = static_cast<double>(sw), dt = static_cast<double>(st);
    const double varW = n * static_cast<double>(sww) - dw * dw;
    const double varT = n * static_cast<double>(stt) - dt * dt;
    if (!(varW > 0.0 && varT > 0.0)) return 0.0;
    return (n * static_cast<double>(swt) - dw * dt) / std::sqrt(varW * varT);
}

// Stamp sums must fit int16 lanes (the dot shape is correlated with 16-bit products).
const int kMaxStamps = 128;

// D(y, x) = sum over stamps of image(y + a.y, x + a.x), for one row of D.
void stampRow(const cv::Mat& image, const std::vector<cv::Point>& at, int y, int cols,
              uint16_t* acc) {
    for (int x = 0; x < cols; ++x) acc[x] = 0;
    for (const cv::Point& a : at) {
        const uchar* src = image.ptr<uchar>(y + a.y) + a.x;
        int x = 0;
#if CV_SIMD
        // At most 128 values of 255 per lane: the saturating add never saturates.
        for (; x + cv::v_uint16::nlanes <= cols; x += cv::v_uint16::nlanes)
            cv::v_store(acc + x, cv::vx_load(acc + x) + cv::vx_load_expand(src + x));
#endif
        for (; x < cols; ++x) acc[x] = static_cast<uint16_t>(acc[x] + src[x]);
    }
}

// acc[x] += w0 * a[x] + w1 * b[x] for x in [0, cols).
void dotRows(const int16_t* a, const int16_t* b, int w0, int w1, int cols, int32_t* acc) {
    int x = 0;
#if CV_SIMD
    const int n = cv::v_int16::nlanes;
    const cv::v_int16 w = cv::v_reinterpret_as_s16(
        cv::vx_setall_u32(static_cast<uint32_t>(w0) | (static_cast<uint32_t>(w1) << 16)));
    for (; x + n <= cols; x += n) {
        cv::v_int16 lo, hi;
        cv::v_zip(cv::vx_load(a + x), cv::vx_load(b + x), lo, hi);
        cv::v_store(acc + x, cv::vx_load(acc + x) + cv::v_dotprod(lo, w));
        cv::v_store(acc + x + n / 2, cv::vx_load(acc + x + n / 2) + cv::v_dotprod(hi, w));
    }
#endif
    for (; x < cols; ++x) acc[x] += w0 * a[x] + w1 * b[x];
}

}  // namespace

bool sameTemplate(const Stamped& stamped, const cv::Mat& templ) {
    const cv::Mat& dot = stamped.dot;
    if (templ.empty() || templ.type() != CV_8UC1 || dot.empty() || dot.type() != CV_8UC1 ||
        templ.size() != stamped.size || stamped.at.empty())
        return false;
    cv::Mat sum = cv::Mat::zeros(templ.size(), CV_32S);
    cv::Mat dot32;
    dot.convertTo(dot32, CV_32S);
    for (const cv::Point& a : stamped.at) {
        const cv::Rect r(a, dot.size());
        if (a.x < 0 || a.y < 0 || r.br().x > templ.cols || r.br().y > templ.rows) return false;
        sum(r) += dot32;
    }
    cv::Mat t32;
    templ.convertTo(t32, CV_32S);
    return cv::countNonZero(sum != t32) == 0;
}

double correlation(const cv::Mat& image, const cv::Mat& templ, cv::Point at) {
    int64_t sw = 0, sww = 0, st = 0, stt = 0, swt = 0;
    for (int r = 0; r < templ.rows; ++r) {
        const unsigned char* w = image.ptr<unsigned char>(at.y + r) + at.x;
        const unsigned char* t = templ.ptr<unsigned char>(r);
        for (int c = 0; c < templ.cols; ++c) {
            const int64_t a = w[c], b = t[c];
            sw += a;
            sww += a * a;
            st += b;
            stt += b * b;
            swt += a * b;
        }
    }
    return score(static_cast<double>(templ.total()), sw, sww, st, stt, swt);
}

cv::Rect allPlaces(const cv::Mat& image, cv::Size templ) {
    return cv::Rect(0, 0, std::max(image.cols - templ.width + 1, 0),
                    std::max(image.rows - templ.height + 1, 0));
}

bool bestPlace(const cv::Mat& whole, const Stamped& stamped, const cv::Rect& places, cv::Point& at,
               double& best) {
    const cv::Mat& dot = stamped.dot;
    const int S = stamped.size.height, Sc = stamped.size.width;
    if (whole.type() != CV_8UC1 || dot.type() != CV_8UC1 || places.empty() ||
        (places & allPlaces(whole, stamped.size)) != places)
        return false;
    // The window's sums are the whole image's: the sub-image covers every place's window.
    const cv::Mat image =
        whole(cv::Rect(places.x, places.y, places.width + Sc - 1, places.height + S - 1));
    const int m = static_cast<int>(stamped.at.size());
    if (m < 1 || m > kMaxStamps) return false;
    int64_t dotSum = 0, dotSq = 0;
    for (int r = 0; r < dot.rows; ++r)
        for (int c = 0; c < dot.cols; ++c) {
            const int64_t v = dot.at<uchar>(r, c);
            dotSum += v;
            dotSq += v * v;
        }
    // The template's sums, and the bound of every window's product sum in int32.
    const int64_t st = dotSum * m, stt = dotSq * m;
    if (255 * st > INT32_MAX) return false;

    const int outRows = image.rows - S + 1, outCols = image.cols - Sc + 1;
    const int dh = dot.rows, dw = dot.cols;
    const int dRows = outRows + dh - 1, dCols = outCols + dw - 1;
    std::vector<uint16_t> stampSums(static_cast<size_t>(dRows) * dCols);
    for (int y = 0; y < dRows; ++y)
        stampRow(image, stamped.at, y, dCols, stampSums.data() + static_cast<size_t>(y) * dCols);
    auto dRow = [&](int y) {
        return reinterpret_cast<const int16_t*>(stampSums.data() + static_cast<size_t>(y) * dCols);
    };

    // Window sums of the image by running column sums.
    std::vector<int64_t> colSum(image.cols, 0), colSq(image.cols, 0);
    for (int r = 0; r < S; ++r) {
        const uchar* p = image.ptr<uchar>(r);
        for (int c = 0; c < image.cols; ++c) {
            colSum[c] += p[c];
            colSq[c] += static_cast<int64_t>(p[c]) * p[c];
        }
    }
    const double n = static_cast<double>(S) * Sc;
    const double dt = static_cast<double>(st);
    const double varT = n * static_cast<double>(stt) - dt * dt;
    std::vector<int32_t> products(outCols);
    best = -2.0;
    at = places.tl();
    for (int y = 0; y < outRows; ++y) {
        if (y > 0) {
            const uchar* out = image.ptr<uchar>(y - 1);
            const uchar* in = image.ptr<uchar>(y + S - 1);
            for (int c = 0; c < image.cols; ++c) {
                colSum[c] += static_cast<int64_t>(in[c]) - out[c];
                colSq[c] +=
                    static_cast<int64_t>(in[c]) * in[c] - static_cast<int64_t>(out[c]) * out[c];
            }
        }
        std::fill(products.begin(), products.end(), 0);
        for (int s = 0; s < dh; s += 2) {
            const bool pair = s + 1 < dh;
            const int16_t* a = dRow(y + s);
            const int16_t* b = pair ? dRow(y + s + 1) : a;
            for (int t = 0; t < dw; ++t) {
                const int w0 = dot.at<uchar>(s, t), w1 = pair ? dot.at<uchar>(s + 1, t) : 0;
                if (w0 == 0 && w1 == 0) continue;
                dotRows(a + t, b + t, w0, w1, outCols, products.data());
            }
        }
        int64_t sw = 0, sww = 0;
        for (int c = 0; c < Sc; ++c) {
            sw += colSum[c];
            sww += colSq[c];
        }
        for (int x = 0; x < outCols; ++x) {
            if (x > 0) {
                sw += colSum[x + Sc - 1] - colSum[x - 1];
                sww += colSq[x + Sc - 1] - colSq[x - 1];
            }
            // Most places cannot beat the best so far: num / sqrt(var) <= best shows without the
            // square root whenever both sides are clearly apart.
            const double dw = static_cast<double>(sw);
            const double num = n * static_cast<double>(products[x]) - dw * dt;
            if (best >= 0.0 && num <= 0.0) continue;
            if (best > 0.0) {
                const double varW = n * static_cast<double>(sww) - dw * dw;
                if (num * num < best * best * varW * varT * (1.0 - 1e-9)) continue;
            }
            const double v = score(n, sw, sww, st, stt, products[x]);
            if (v > best) {
                best = v;
                at = cv::Point(x, y) + places.tl();
            }
        }
    }
    return true;
}

}  // namespace tsearch
