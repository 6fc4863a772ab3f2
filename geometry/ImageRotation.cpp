#include "ImageRotation.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include <opencv2/imgproc.hpp>

namespace {

// Source position of output pixel (0, 0) and the per-step increments.
struct Walk {
    float cosa;
    float s;  // sin(-a)
    float x0;
    float y0;
};

bool startWalk(unsigned short height, unsigned short width, float angle, Walk& w) {
    // The truncated degree-to-radian factor is deliberate; results depend on it.
    const float a = angle * 0.017453333f;
    const float sina = std::sin(a);
    const float cosa = std::cos(a);
    const float s = std::sin(-a);
    const int H = height, W = width;
    const int newH = static_cast<int>(std::round(H * std::fabs(cosa) + W * std::fabs(sina)));
    const int newW = static_cast<int>(std::round(H * std::fabs(sina) + W * std::fabs(cosa)));
    if (H == 0 || W == 0) return false;
    const float cx = static_cast<float>(static_cast<int>(
        static_cast<double>(static_cast<float>(newW / 2) - static_cast<float>((newW - W) / 2)) +
        0.5));
    const float cy = static_cast<float>(static_cast<int>(
        static_cast<double>(static_cast<float>(newH / 2) - static_cast<float>((newH - H) / 2)) +
        0.5));
    w.cosa = cosa;
    w.s = s;
    w.x0 = static_cast<float>(W >> 1) - (cosa * cx + s * cy);
    w.y0 = static_cast<float>(H >> 1) - (-s * cx + cosa * cy);
    return true;
}

// Nearest-neighbour sample. The bounds test is on the unrounded coordinate, so x in
// [W - 0.5, W) reads the first pixel of the next row; past the end of the buffer that pixel is 0.
inline unsigned sample(const unsigned char* src, float x, float y, float fw, float fh,
                       unsigned width, size_t total) {
    if (!(x >= 0.f && y >= 0.f && x < fw && y < fh)) return 0;
    const unsigned short ix = static_cast<unsigned short>(static_cast<int>(double(x) + 0.5));
    const unsigned short iy = static_cast<unsigned short>(static_cast<int>(double(y) + 0.5));
    const size_t idx = static_cast<size_t>(width) * iy + ix;
    return idx < total ? src[idx] : 0u;
}

#if defined(__clang__) || (defined(__GNUC__) && __GNUC__ >= 9)
#define QB_VECTOR_WALK 1
typedef float v4f __attribute__((vector_size(16)));
typedef int v4i __attribute__((vector_size(16)));

// Smallest and largest lane, in double.
inline void laneRange(const v4f& v, double& low, double& high) {
    low = high = v[0];
    for (int i = 1; i < 4; ++i) {
        low = std::min<double>(low, v[i]);
        high = std::max<double>(high, v[i]);
    }
}

// Columns [lo, hi) where all four rows of a group sample strictly inside the source, away from
// the rounding edges by more than the drift of the running sums.
void interiorColumns(const v4f& xs, const v4f& ys, float stepX, float stepY, int W, int H, int& lo,
                     int& hi) {
    // Each addition errs by at most half an ulp of a coordinate below W + H.
    const double margin = 1e-2 + static_cast<double>(W) * (W + H) * std::ldexp(1.0, -22);
    double from = 0.0, to = W - 1.0;
    // Every lane within [low, high]: division rounds monotonically, so the extreme lanes give
    // exactly the bounds the lanes one by one would.
    auto keep = [&](const v4f& starts, double step, double low, double high) {
        double sLow, sHigh;
        laneRange(starts, sLow, sHigh);
        if (step == 0.0) {
            if (sLow < low || sHigh > high) to = -1.0;
            return;
        }
        double c1, c2;
        if (step > 0.0) {
            c1 = (low - sLow) / step;
            c2 = (high - sHigh) / step;
        } else {
            c1 = (high - sHigh) / step;
            c2 = (low - sLow) / step;
        }
        from = std::max(from, c1);
        to = std::min(to, c2);
    };
    keep(xs, stepX, margin, W - 0.5 - margin);
    keep(ys, stepY, margin, H - 0.5 - margin);
    lo = hi = 0;
    if (!(from <= to)) return;
    lo = static_cast<int>(std::ceil(from));
    hi = std::max(lo, static_cast<int>(std::floor(to)) + 1);
}

// Columns [lo, hi) outside of which none of the four rows can sample a pixel of `content`
// (every pixel outside it is 0), with a margin of two pixels for rounding and drift.
// invX, invY: 1 / stepX and 1 / stepY (0 for a zero step); the bounds need not be exact, the
// margin covers their rounding.
void contentColumns(const v4f& xs, const v4f& ys, float stepX, float stepY, double invX,
                    double invY, int W, int H, const NonZeroShape& shape, int& lo, int& hi) {
    const cv::Rect& content = shape.box;
    const double margin = 2.0 + static_cast<double>(W) * (W + H) * std::ldexp(1.0, -22);
    // The four rows as one band of samples: at column c they lie within
    // [xMin + c stepX, xMax + c stepX] x [yMin + c stepY, yMax + c stepY].
    double xMin, xMax, yMin, yMax;
    laneRange(xs, xMin, xMax);
    laneRange(ys, yMin, yMax);
    // Columns where [a + c step, b + c step] meets [low, high], narrowed into [f, t].
    auto overlap = [](double a, double b, double step, double inv, double low, double high,
                      double& f, double& t) {
        if (step == 0.0) {
            if (b < low || a > high) t = f - 1.0;
            return;
        }
        double c1 = (low - b) * inv, c2 = (high - a) * inv;
        if (c1 > c2) std::swap(c1, c2);
        f = std::max(f, c1);
        t = std::min(t, c2);
    };
    double xLow = content.x - margin, xHigh = content.x + content.width - 1 + margin;
    double yLow = content.y - margin, yHigh = content.y + content.height - 1 + margin;
    // x in [W - 0.5, W) reads the first pixel of the next row.
    if (content.x == 0) {
        xHigh = W + margin;
        yLow -= 1.0;
    }
    double from = 0.0, to = W - 1.0;
    overlap(xMin, xMax, stepX, invX, xLow, xHigh, from, to);
    overlap(yMin, yMax, stepY, invY, yLow, yHigh, from, to);
    lo = hi = 0;
    if (!(from <= to)) return;
    lo = std::max(0, static_cast<int>(std::floor(from)));
    hi = std::min(W, static_cast<int>(std::ceil(to)) + 1);
    if (hi < lo) hi = lo;
    // With a box touching column 0 the wrap above reads beyond any band's extent.
    if (shape.band < 1 || shape.first.empty() || content.x == 0 || lo >= hi) return;

    const double yFrom = std::min(yMin + lo * stepY, yMin + (hi - 1) * stepY) - margin;
    const double yTo = std::max(yMax + lo * stepY, yMax + (hi - 1) * stepY) + margin;
    const int bands = static_cast<int>(shape.first.size());
    const double perBand = 1.0 / shape.band;
    const int k0 = std::max(0, static_cast<int>(std::floor((yFrom - content.y) * perBand)));
    const int k1 = std::min(bands - 1, static_cast<int>(std::floor((yTo - content.y) * perBand)));
    // Columns of band k's content met by the group, within [lo, hi - 1]; its rows alone give
    // [rowFrom, rowTo], which move monotonically with k along the walk.
    auto bandColumns = [&](int k, double& rowFrom, double& rowTo, double& f, double& t) {
        const double top = content.y + k * shape.band;
        f = lo, t = hi - 1.0;
        overlap(yMin, yMax, stepY, invY, top - margin, top + shape.band - 1 + margin, f, t);
        rowFrom = f, rowTo = t;
        if (shape.first[k] > shape.last[k]) {
            t = f - 1.0;
            return;
        }
        overlap(xMin, xMax, stepX, invX, shape.first[k] - margin, shape.last[k] + margin, f, t);
    };
    // Bands in the order the walk meets them: the first and last columns come from the two
    // ends, and a band that starts after the first found (ends before the last) cannot move it.
    const bool down = stepY < 0.0f;
    const int kFirst = down ? k1 : k0, kLast = down ? k0 : k1, dk = down ? -1 : 1;
    double cutFrom = hi, cutTo = lo - 1.0;
    for (int k = kFirst; k != kLast + dk; k += dk) {
        double rowFrom, rowTo, f, t;
        bandColumns(k, rowFrom, rowTo, f, t);
        if (stepY != 0.0f && rowFrom >= cutFrom) break;
        if (f <= t) cutFrom = std::min(cutFrom, f);
    }
    for (int k = kLast; k != kFirst - dk; k -= dk) {
        double rowFrom, rowTo, f, t;
        bandColumns(k, rowFrom, rowTo, f, t);
        if (stepY != 0.0f && rowTo <= cutTo) break;
        if (f <= t) cutTo = std::max(cutTo, t);
    }
    if (!(cutFrom <= cutTo)) {
        hi = lo;
        return;
    }
    lo = std::max(lo, static_cast<int>(std::floor(cutFrom)));
    hi = std::min(hi, static_cast<int>(std::ceil(cutTo)) + 1);
    if (hi < lo) hi = lo;
}

// floor(v + 0.5) for v >= 0, exactly as adding 0.5 in double and truncating: the fraction
// v - trunc(v) is exact in float.
inline v4i roundHalfUp(const v4f& v) {
    const v4i t = __builtin_convertvector(v, v4i);
    return t - ((v - __builtin_convertvector(t, v4f)) >= 0.5f);
}
#endif

// Walks the output rows in groups of four: the four coordinate chains are independent (one
// vector lane each), and each performs exactly the additions of the row-by-row walk, so the
// samples are bit-identical to it. Inside the columns where the whole group is surely in bounds
// the tests are skipped.
// With `content`, the sink takes no samples outside it (they would all be 0); the coordinates
// still advance through every column, so the samples taken are the same.
template <class Sink>
void walkRotation(const unsigned char* src, unsigned short height, unsigned short width,
                  float angle, Sink&& sink, const NonZeroShape* content = nullptr) {
    Walk w;
    if (!startWalk(height, width, angle, w)) return;
    const int H = height, W = width;
    const float fw = static_cast<float>(W), fh = static_cast<float>(H);
    const size_t total = static_cast<size_t>(W) * H;
    const float cosa = w.cosa, s = w.s;
    float x0 = w.x0, y0 = w.y0;
    int r = 0;
#ifdef QB_VECTOR_WALK
    // Vector indices are int: W * H + W must fit.
    if (total + W < 0x7fffffffu) {
        const int itotal = static_cast<int>(total);
        const v4f stepX = {cosa, cosa, cosa, cosa}, stepY = {s, s, s, s};
        const double invX = cosa == 0.0f ? 0.0 : 1.0 / cosa;
        const double invY = s == 0.0f ? 0.0 : 1.0 / -s;
        for (; r + 4 <= H; r += 4) {
            v4f xs, ys;
            for (int i = 0; i < 4; ++i) {
                xs[i] = x0;
                ys[i] = y0;
                x0 += s;
                y0 += cosa;
            }
            int first = 0, last = W;
            if (content) contentColumns(xs, ys, cosa, -s, invX, invY, W, H, *content, first, last);
            if (first >= last) continue;  // nothing of the content on these rows
            int lo, hi;
            interiorColumns(xs, ys, cosa, -s, W, H, lo, hi);
            unsigned v[4];
            int c = 0;
            for (; c < first; ++c) {
                xs += stepX;
                ys -= stepY;
            }
            for (; c < last; ++c) {
                if (c >= lo && c < hi) {
                    const int end = std::min(hi, last);
                    for (; c < end; ++c) {
                        const v4i idx = roundHalfUp(ys) * W + roundHalfUp(xs);
                        for (int i = 0; i < 4; ++i) v[i] = src[idx[i]];
                        sink.put4(r, c, v);
                        xs += stepX;
                        ys -= stepY;
                    }
                    if (c == last) break;
                }
                v4i in = (xs >= 0.f) & (ys >= 0.f) & (xs < fw) & (ys < fh);
                // Lanes outside sample pixel 0 and are masked to 0 (NaN-free conversions too).
                const v4f xc = reinterpret_cast<v4f>(reinterpret_cast<v4i>(xs) & in);
                const v4f yc = reinterpret_cast<v4f>(reinterpret_cast<v4i>(ys) & in);
                v4i idx = roundHalfUp(yc) * W + roundHalfUp(xc);
                in &= idx < itotal;
                idx &= in;
                for (int i = 0; i < 4; ++i) v[i] = src[idx[i]] & static_cast<unsigned>(in[i]);
                sink.put4(r, c, v);
                xs += stepX;
                ys -= stepY;
            }
        }
    }
#endif
    for (; r + 4 <= H; r += 4) {
        float xs[4], ys[4];
        for (int i = 0; i < 4; ++i) {
            xs[i] = x0;
            ys[i] = y0;
            x0 += s;
            y0 += cosa;
        }
        for (int c = 0; c < W; ++c) {
            unsigned v[4];
            for (int i = 0; i < 4; ++i) {
                v[i] = sample(src, xs[i], ys[i], fw, fh, width, total);
                xs[i] += cosa;
                ys[i] -= s;
            }
            sink.put4(r, c, v);
        }
    }
    for (; r < H; ++r) {
        float x = x0, y = y0;
        for (int c = 0; c < W; ++c) {
            sink.put1(r, c, sample(src, x, y, fw, fh, width, total));
            x += cosa;
            y -= s;
        }
        x0 += s;
        y0 += cosa;
    }
}

bool sharesData(const cv::Mat& a, const cv::Mat& b) {
    return !a.empty() && !b.empty() && a.datastart < b.dataend && b.datastart < a.dataend;
}

struct ImageSink {
    unsigned char* dst;
    size_t width;
    void put4(int r, int c, const unsigned* v) {
        unsigned char* p = dst + r * width + c;
        p[0] = static_cast<unsigned char>(v[0]);
        p[width] = static_cast<unsigned char>(v[1]);
        p[2 * width] = static_cast<unsigned char>(v[2]);
        p[3 * width] = static_cast<unsigned char>(v[3]);
    }
    void put1(int r, int c, unsigned v) { dst[r * width + c] = static_cast<unsigned char>(v); }
};

// Column sums stay below 2^24 (at most 65535 rows of 255): summed as integers and converted
// once, they are the floats a float accumulation gives.
struct SumSink {
    uint32_t* sums;
    void put4(int, int c, const unsigned* v) { sums[c] += v[0] + v[1] + v[2] + v[3]; }
    void put1(int, int c, unsigned v) { sums[c] += v; }
};

}  // namespace

NonZeroShape NonZeroShape::of(const cv::Mat& image) {
    NonZeroShape shape;
    shape.box = cv::boundingRect(image);
    if (shape.box.empty()) return shape;
    const int bands = (shape.box.height + shape.band - 1) / shape.band;
    shape.first.assign(bands, image.cols);
    shape.last.assign(bands, -1);
    for (int y = shape.box.y; y < shape.box.y + shape.box.height; ++y) {
        const unsigned char* row = image.ptr<unsigned char>(y);
        int a = shape.box.x, b = shape.box.x + shape.box.width - 1;
        while (a <= b && row[a] == 0) ++a;
        while (b >= a && row[b] == 0) --b;
        if (a > b) continue;
        const int k = (y - shape.box.y) / shape.band;
        shape.first[k] = std::min(shape.first[k], a);
        shape.last[k] = std::max(shape.last[k], b);
    }
    return shape;
}

void ImageRotation::rotate(cv::Mat& src, cv::Mat& dst, float angle) {
    if (src.empty()) {
        dst.release();
        return;
    }
    // No turn is defined for a non-finite angle: nothing of the source is covered.
    if (!std::isfinite(angle)) {
        dst.create(src.size(), src.type());
        dst.setTo(cv::Scalar::all(0));
        return;
    }
    const cv::Point2f centre(src.cols * 0.5f, src.rows * 0.5f);
    const cv::Mat M = cv::getRotationMatrix2D(centre, angle, 1.0);
    const cv::Size size(src.cols, src.rows);
    // warpAffine reads the source while writing: an in-place call needs a separate output.
    if (sharesData(src, dst)) {
        cv::Mat out;
        cv::warpAffine(src, out, M, size, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar(0));
        out.copyTo(dst);
    } else {
        cv::warpAffine(src, dst, M, size, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar(0));
    }
}

void ImageRotation::fast_rotate(cv::Mat src, cv::Mat& dst, float angle) {
    if (src.empty() || src.type() != CV_8UC1) return;
    if (!src.isContinuous()) src = src.clone();
    if (dst.size() != src.size() || dst.type() != CV_8UC1 || !dst.isContinuous() ||
        sharesData(src, dst))
        dst = cv::Mat(src.size(), CV_8UC1);
    fast_rotate_image(dst.data, src.data, static_cast<unsigned short>(src.rows),
                      static_cast<unsigned short>(src.cols), angle);
}

void ImageRotation::fast_rotate_image(unsigned char* dst, const unsigned char* src,
                                      unsigned short height, unsigned short width, float angle) {
    if (dst == nullptr || src == nullptr) return;
    // Every sample of a non-finite angle fails the bounds test.
    if (!std::isfinite(angle)) {
        std::memset(dst, 0, static_cast<size_t>(height) * width);
        return;
    }
    walkRotation(src, height, width, angle, ImageSink{dst, width});
}

void ImageRotation::fast_rotate_project(float* colSums, const unsigned char* src,
                                        unsigned short height, unsigned short width, float angle) {
    fast_rotate_project(colSums, src, height, width, angle, cv::Rect(0, 0, width, height));
}

void ImageRotation::fast_rotate_project(float* colSums, const unsigned char* src,
                                        unsigned short height, unsigned short width, float angle,
                                        const cv::Rect& content) {
    if (colSums == nullptr) return;
    std::memset(colSums, 0, sizeof(float) * width);
    NonZeroShape shape;
    shape.box = content;
    shape.band = 0;
    fast_rotate_project(colSums, src, height, width, angle, shape);
}

void ImageRotation::fast_rotate_project(float* colSums, const unsigned char* src,
                                        unsigned short height, unsigned short width, float angle,
                                        const NonZeroShape& content) {
    if (colSums == nullptr) return;
    std::memset(colSums, 0, sizeof(float) * width);
    if (src == nullptr || !std::isfinite(angle) || content.box.empty()) return;
    std::vector<uint32_t> sums(width, 0u);
    walkRotation(src, height, width, angle, SumSink{sums.data()}, &content);
    for (int c = 0; c < width; ++c) colSums[c] = static_cast<float>(sums[c]);
}
