#include "ROI_Segment.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>

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

int ROI_Segment::cluster_densityPeaksM2(const float* data, int n, float dc, float* rho,
                                        float* delta, int* nneigh, int* labels) {
    if (data == nullptr || rho == nullptr || delta == nullptr || nneigh == nullptr ||
        labels == nullptr || n <= 0)
        return 0;
    const size_t m = static_cast<size_t>(n);
    std::vector<float> dist(m * m, 0.f);
    const float denom = (dc + dc) * dc;
    float maxDist = 0.f;
    for (size_t i = 0; i < m; ++i) {
        for (size_t j = i + 1; j < m; ++j) {
            // The original's sum: each square in double, the total kept in float.
            const float dx = data[2 * i] - data[2 * j], dy = data[2 * i + 1] - data[2 * j + 1];
            float sum = 0.f;
            sum += static_cast<double>(dx) * dx;
            sum += static_cast<double>(dy) * dy;
            const float d = std::sqrt(sum);
            dist[i * m + j] = dist[j * m + i] = d;
            const float w = expf(-(d * d) / denom);
            rho[i] += w;
            rho[j] += w;
            if (d > maxDist) maxDist = d;
        }
    }
    for (size_t i = 0; i < m; ++i) {
        float best = maxDist;
        int neighbour = -1;
        const float* row = &dist[i * m];
        for (size_t j = 0; j < m; ++j) {
            if (j == i) continue;
            if (rho[i] < rho[j] && row[j] <= best) {
                best = row[j];
                neighbour = static_cast<int>(j);
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
