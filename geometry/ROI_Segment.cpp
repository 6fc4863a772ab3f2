#include "ROI_Segment.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include <opencv2/core/hal/intrin.hpp>

namespace {

// Truncation toward zero that cannot overflow for garbage coordinates.
int truncToInt(float v) {
    if (!(v > -1e9f)) return v != v ? 0 : -1000000000;
    if (!(v < 1e9f)) return 1000000000;
    return static_cast<int>(v);
}

}  // namespace

float ROI_Segment::getDistance(const std::vector<float>& a, const std::vector<float>& b) {
    float sum = 0.f;
    const size_t n = std::min(a.size(), b.size());
    for (size_t i = 0; i < n; ++i) {
        const float d = a[i] - b[i];
        sum += static_cast<double>(d) * d;
    }
    return powf(sum, 0.5f);
}

std::vector<std::vector<float>> ROI_Segment::data_transform(float* data, int n, int dim) {
    std::vector<std::vector<float>> rows;
    if (data == nullptr || n <= 0 || dim <= 0) return rows;
    rows.reserve(n);
    for (int i = 0; i < n; ++i) {
        const float* p = data + static_cast<size_t>(i) * dim;
        rows.emplace_back(p, p + dim);
    }
    return rows;
}

void ROI_Segment::data_transform(float* data, int n, std::vector<float>& out) {
    if (data == nullptr || n <= 0) return;
    const size_t count = std::min(static_cast<size_t>(n), out.size());
    std::copy(data, data + count, out.begin());
}

float ROI_Segment::getlocaldensity1(const std::vector<std::vector<float>>& rows, float dc,
                                    std::vector<float>& rho,
                                    std::vector<std::vector<float>>& dist) {
    float maxDist = 0.f;
    const size_t n = std::min({rows.size(), rho.size(), dist.size()});
    for (size_t i = 0; i < n; ++i) {
        for (size_t j = 0; j < n; ++j) {
            if (i == j) continue;
            const float d = getDistance(rows[i], rows[j]);
            dist[i][j] = d;
            if (d < dc) rho[i] += 1.f;
            if (d > maxDist) maxDist = d;
        }
    }
    return maxDist;
}

float ROI_Segment::getLocalDensity2(const std::vector<std::vector<float>>& rows, float dc,
                                    std::vector<float>& rho,
                                    std::vector<std::vector<float>>& dist) {
    float maxDist = 0.f;
    const size_t n = std::min({rows.size(), rho.size(), dist.size()});
    if (n < 2) return maxDist;
    const float denom = (dc + dc) * dc;
    for (size_t i = 0; i < n; ++i) {
        for (size_t j = i + 1; j < n; ++j) {
            const float d = getDistance(rows[i], rows[j]);
            dist[i][j] = d;
            dist[j][i] = d;
            const float w = expf(-(d * d) / denom);
            rho[i] += w;
            rho[j] += w;
            if (d > maxDist) maxDist = d;
        }
    }
    return maxDist;
}

void ROI_Segment::getDistanceToHigherDensity(const std::vector<std::vector<float>>& /*rows*/,
                                             const std::vector<std::vector<float>>& dist,
                                             const std::vector<float>& rho,
                                             std::vector<float>& delta, std::vector<int>& nneigh,
                                             float maxDist) {
    const size_t n = std::min({dist.size(), rho.size(), delta.size(), nneigh.size()});
    for (size_t i = 0; i < n; ++i) {
        float best = maxDist;
        int neighbour = -1;
        for (size_t j = 0; j < n; ++j) {
            if (j == i) continue;
            if (rho[i] < rho[j] && dist[i][j] <= best) {
                best = dist[i][j];
                neighbour = static_cast<int>(j);
            }
        }
        delta[i] = best;
        nneigh[i] = neighbour;
    }
}

void ROI_Segment::sort(std::vector<float>& values, std::vector<int>& order, int n) {
    n = std::max(0, std::min<int>(n, static_cast<int>(values.size())));
    order.resize(std::max<size_t>(order.size(), static_cast<size_t>(n)));
    for (int i = 0; i < n; ++i) order[i] = i;
    const bool ordered =
        std::none_of(values.begin(), values.begin() + n, [](float v) { return std::isnan(v); });
    if (ordered) {
        // Descending with equal values in index order: what the bubble sort below gives, in
        // n log n.
        std::stable_sort(order.begin(), order.begin() + n,
                         [&values](int a, int b) { return values[a] > values[b]; });
        std::vector<float> sorted(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) sorted[i] = values[order[i]];
        std::copy(sorted.begin(), sorted.end(), values.begin());
        return;
    }
    // A bubble sort that swaps only on a strict increase keeps equal values in index order.
    for (int i = 0; i < n - 1; ++i) {
        for (int j = n - 1; j > i; --j) {
            if (values[j] > values[j - 1]) {
                std::swap(values[j], values[j - 1]);
                std::swap(order[j], order[j - 1]);
            }
        }
    }
}

int ROI_Segment::assignment(float* rho, float* delta, int* nneigh, int* labels, int n, float sumRho,
                            float sumDelta) {
    if (rho == nullptr || delta == nullptr || nneigh == nullptr || labels == nullptr || n <= 0)
        return 0;
    std::vector<float> sorted(rho, rho + n);
    std::vector<int> order;
    sort(sorted, order, n);

    const float avgRho = sumRho / n;
    const float avgDelta = sumDelta / n;
    const float sparseRho = static_cast<float>(avgRho / 1.6);

    int clusters = 0;
    for (int i = 0; i < n; ++i) {
        const bool peak = delta[i] > 4.0 * avgDelta && rho[i] > avgRho;
        // A lone sparse point gets a cluster of its own so the code never absorbs it.
        const bool outlier = !peak && delta[i] > 2.5 * avgDelta && rho[i] < sparseRho;
        if (peak || outlier) labels[i] = clusters++;
    }
    for (int s = 0; s < n; ++s) {
        const int i = order[s];
        if (labels[i] != -1 || !(rho[i] > 8.0)) continue;
        const int nb = nneigh[i];
        // The neighbour test is nb > n as it always was; nb == n is also skipped, being one
        // past the arrays.
        if (nb < 0 || nb >= n) continue;
        labels[i] = labels[nb];
    }
    return clusters;
}

int ROI_Segment::cluster_dp(float* data, int n, int dim, float dc, float* rho, float* delta,
                            int* nneigh) {
    if (data == nullptr || rho == nullptr || delta == nullptr || nneigh == nullptr || n <= 0 ||
        dim <= 0)
        return 0;
    const auto rows = data_transform(data, n, dim);
    std::vector<std::vector<float>> dist(n, std::vector<float>(n, 0.f));
    std::vector<float> rhoV(rho, rho + n);
    const float maxDist = getLocalDensity2(rows, dc, rhoV, dist);
    std::vector<float> deltaV(n, 0.f);
    std::vector<int> neighV(n, -1);
    getDistanceToHigherDensity(rows, dist, rhoV, deltaV, neighV, maxDist);
    std::copy(rhoV.begin(), rhoV.end(), rho);
    std::copy(deltaV.begin(), deltaV.end(), delta);
    std::copy(neighV.begin(), neighV.end(), nneigh);
    return 0;
}

int ROI_Segment::cluster_densityPeaks(float* data, int n, int dim, float dc, float* rho,
                                      float* delta, int* nneigh, int* labels) {
    if (data == nullptr || rho == nullptr || delta == nullptr || nneigh == nullptr ||
        labels == nullptr || n <= 0 || dim <= 0)
        return 0;
    cluster_dp(data, n, dim, dc, rho, delta, nneigh);
    float sumRho = 0.f, sumDelta = 0.f;
    for (int i = 0; i < n; ++i) {
        sumRho += rho[i];
        sumDelta += delta[i];
    }
    return assignment(rho, delta, nneigh, labels, n, sumRho, sumDelta);
}

int ROI_Segment::find_correct_cluster_label(int* labels, int n, int numClusters) {
    const int bins = std::max(1, numClusters);
    std::vector<int> counts(bins, 0);
    for (int i = 0; labels != nullptr && i < n; ++i)
        if (labels[i] >= 0 && labels[i] < bins) ++counts[labels[i]];
    int best = 0;
    for (int c = 1; c < bins; ++c)
        if (counts[c] > counts[best]) best = c;
    return best;
}

cv::Rect ROI_Segment::cal_ROI(float* points, int* labels, int numClusters) {
    if (points == nullptr || labels == nullptr || dataNum <= 0 || dataDim < 2) return cv::Rect();
    const int label = find_correct_cluster_label(labels, dataNum, numClusters);
    std::vector<float> xs, ys;
    for (int i = 0; i < dataNum; ++i) {
        if (labels[i] != label) continue;
        xs.push_back(points[static_cast<size_t>(i) * dataDim]);
        ys.push_back(points[static_cast<size_t>(i) * dataDim + 1]);
    }
    if (xs.size() < 8) return cv::Rect();
    const int minX = truncToInt(*std::min_element(xs.begin(), xs.end()));
    const int maxX = truncToInt(*std::max_element(xs.begin(), xs.end()));
    const int minY = truncToInt(*std::min_element(ys.begin(), ys.end()));
    const int maxY = truncToInt(*std::max_element(ys.begin(), ys.end()));
    const int m = imgRows / 9;
    const int x = std::max(minX - m, 0);
    const int y = std::max(minY - m, 0);
    const int right = std::min(imgCols - 1, maxX + m);
    const int bottom = std::min(imgRows - 1, maxY + m);
    return cv::Rect(x, y, std::abs(right - x), std::abs(bottom - y));
}

namespace {

// exp(x) for x <= 0, 0 below -87 and for NaN: the Cephes reduction and polynomial, in operations
// that round alike in scalar and vector lanes on every architecture (no fused multiply-add).
const float kLog2e = 1.44269504088896341f, kLn2Hi = 0.693359375f, kLn2Lo = -2.12194440e-4f;
const float kExpPoly[6] = {1.9875691500e-4f, 1.3981999507e-3f, 8.3334519073e-3f,
                           4.1665795894e-2f, 1.6666665459e-1f, 5.0000001201e-1f};

float expNonPositive(float x) {
    if (!(x >= -87.f)) return 0.f;
    const float k = std::floor(x * kLog2e + 0.5f);
    const float r = (x - k * kLn2Hi) - k * kLn2Lo;
    float p = kExpPoly[0];
    for (int c = 1; c < 6; ++c) p = p * r + kExpPoly[c];
    const float y = (p * (r * r) + r) + 1.f;
    const int bits = (static_cast<int>(k) + 127) << 23;
    float scale;
    std::memcpy(&scale, &bits, sizeof scale);
    return y * scale;
}

}  // namespace

float ROI_Segment::densityRow(float xi, float yi, const float* data, size_t from, size_t to,
                              float invDenom, float* dist, float* weight, bool lanes) {
    size_t j = from;
    float farthest = 0.f;
    // 32-bit ARM NEON flushes denormals, unlike its scalar unit: lanes only elsewhere.
#if CV_SIMD && (!defined(__arm__) || defined(__aarch64__))
    if (lanes) {
        using namespace cv;
        const int n = v_float32::nlanes;
        const v_float32 vx = vx_setall_f32(xi), vy = vx_setall_f32(yi),
                        inv = vx_setall_f32(invDenom), zero = vx_setzero_f32(),
                        floorX = vx_setall_f32(-87.f), log2e = vx_setall_f32(kLog2e),
                        half = vx_setall_f32(0.5f), one = vx_setall_f32(1.f),
                        hi = vx_setall_f32(kLn2Hi), lo = vx_setall_f32(kLn2Lo);
        v_float32 far = zero;
        for (; j + n <= to; j += n) {
            v_float32 xs, ys;
            v_load_deinterleave(data + 2 * j, xs, ys);
            const v_float32 dx = vx - xs, dy = vy - ys;
            const v_float32 d2 = dx * dx + dy * dy;
            const v_float32 d = v_sqrt(d2);
            v_store(dist + j, d);
            // A select, not v_max: NaN never wins, on every architecture.
            far = v_select(d > far, d, far);
            if (weight == nullptr) continue;
            const v_float32 x = zero - d2 * inv;
            const v_float32 inRange = x >= floorX;
            const v_float32 xc = v_select(inRange, x, zero);
            const v_int32 ki = v_floor(xc * log2e + half);
            const v_float32 k = v_cvt_f32(ki);
            const v_float32 r = (xc - k * hi) - k * lo;
            v_float32 p = vx_setall_f32(kExpPoly[0]);
            for (int c = 1; c < 6; ++c) p = p * r + vx_setall_f32(kExpPoly[c]);
            const v_float32 y = (p * (r * r) + r) + one;
            const v_float32 scale = v_reinterpret_as_f32(v_shl<23>(ki + vx_setall_s32(127)));
            v_store(weight + j, v_select(inRange, y * scale, zero));
        }
        float lane[v_float32::nlanes];
        v_store(lane, far);
        for (const float d : lane) farthest = d > farthest ? d : farthest;
    }
#else
    (void)lanes;
#endif
    for (; j < to; ++j) {
        const float dx = xi - data[2 * j], dy = yi - data[2 * j + 1];
        const float d2 = dx * dx + dy * dy;
        dist[j] = std::sqrt(d2);
        farthest = dist[j] > farthest ? dist[j] : farthest;
        if (weight != nullptr) weight[j] = expNonPositive(0.f - d2 * invDenom);
    }
    return farthest;
}

int ROI_Segment::cluster_densityPeaksM2(const float* data, int n, float dc, float* rho,
                                        float* delta, int* nneigh, int* labels) {
    if (data == nullptr || rho == nullptr || delta == nullptr || nneigh == nullptr ||
        labels == nullptr || n <= 0)
        return 0;
    const size_t m = static_cast<size_t>(n);
    std::vector<float> dist(m), weight(m);
    const float invDenom = 1.f / ((dc + dc) * dc);
    float maxDist = 0.f;
    // Each pair once; every density sums its terms in the order of the other point's index.
    for (size_t i = 0; i < m; ++i) {
        const float farthest = densityRow(data[2 * i], data[2 * i + 1], data, i + 1, m, invDenom,
                                          dist.data(), weight.data());
        maxDist = farthest > maxDist ? farthest : maxDist;
        float own = rho[i];
        for (size_t j = i + 1; j < m; ++j) own += weight[j];
        rho[i] = own;
        size_t j = i + 1;
#if CV_SIMD
        for (; j + cv::v_float32::nlanes <= m; j += cv::v_float32::nlanes)
            cv::v_store(rho + j, cv::vx_load(rho + j) + cv::vx_load(&weight[j]));
#endif
        for (; j < m; ++j) rho[j] += weight[j];
    }
    // The nearest denser point: the denser points are a prefix of the points by falling
    // density, so each point measures only those. Equal distances go to the higher index, as a
    // scan in index order keeping the last nearest would have it; a NaN density is never denser.
    std::vector<int> order;
    order.reserve(m);
    for (int i = 0; i < n; ++i)
        if (!std::isnan(rho[i])) order.push_back(i);
    std::stable_sort(order.begin(), order.end(), [rho](int a, int b) { return rho[a] > rho[b]; });
    std::vector<float> sorted(2 * order.size());
    for (size_t p = 0; p < order.size(); ++p) {
        sorted[2 * p] = data[2 * order[p]];
        sorted[2 * p + 1] = data[2 * order[p] + 1];
    }
    for (size_t i = 0; i < m; ++i) {
        float best = maxDist;
        int neighbour = -1;
        const float own = rho[i];
        const size_t denser =
            std::isnan(own) ? 0
                            : static_cast<size_t>(
                                  std::partition_point(order.begin(), order.end(),
                                                       [rho, own](int j) { return rho[j] > own; }) -
                                  order.begin());
        densityRow(data[2 * i], data[2 * i + 1], sorted.data(), 0, denser, invDenom, dist.data(),
                   nullptr);
        for (size_t p = 0; p < denser; ++p) {
            const float d = dist[p];
            if (d < best || (d == best && order[p] > neighbour)) {
                best = d;
                neighbour = order[p];
            }
        }
        delta[i] = best;
        nneigh[i] = neighbour;
    }
    float sumRho = 0.f, sumDelta = 0.f;
    for (int i = 0; i < n; ++i) {
        sumRho += rho[i];
        sumDelta += delta[i];
    }
    return assignment(rho, delta, nneigh, labels, n, sumRho, sumDelta);
}
