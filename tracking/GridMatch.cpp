#include "GridMatch.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace gridmatch {

double dist2(const cv::Point2d& a, const cv::Point2d& b) {
    const cv::Point2d d = a - b;
    return d.x * d.x + d.y * d.y;
}

int nearestOf(const cv::Point2d& p, const std::vector<cv::Point2d>& set) {
    int best = -1;
    double bestD = std::numeric_limits<double>::infinity();
    for (size_t i = 0; i < set.size(); ++i) {
        const double d = dist2(p, set[i]);
        if (d < bestD) {
            bestD = d;
            best = static_cast<int>(i);
        }
    }
    return best;
}

int mutualNearest(const std::vector<cv::Point2d>& positions, int i,
                  const std::vector<cv::Point2d>& dots, double radius) {
    const int j = nearestOf(positions[i], dots);
    if (j < 0 || !(dist2(positions[i], dots[j]) <= radius * radius)) return -1;
    return nearestOf(dots[j], positions) == i ? j : -1;
}

DotIndex::DotIndex(const std::vector<cv::Point2d>& d, double size) : dots(d) {
    cv::Point2d lo(std::numeric_limits<double>::infinity(),
                   std::numeric_limits<double>::infinity());
    cv::Point2d hi = -lo;
    for (const cv::Point2d& p : dots)
        if (std::isfinite(p.x) && std::isfinite(p.y)) {
            lo = cv::Point2d(std::min(lo.x, p.x), std::min(lo.y, p.y));
            hi = cv::Point2d(std::max(hi.x, p.x), std::max(hi.y, p.y));
        }
    if (!(lo.x <= hi.x) || !(size > 0.0) || !std::isfinite(size)) return;  // every query scans
    // A few thousand cells at the most, whatever the spread of the dots.
    const double span = std::max(hi.x - lo.x, hi.y - lo.y);
    if (!std::isfinite(span)) return;
    cell = std::max(size, span / 64.0);
    origin = lo;
    cols = static_cast<int>((hi.x - lo.x) / cell) + 1;
    rows = static_cast<int>((hi.y - lo.y) / cell) + 1;
    std::vector<int> at(dots.size(), -1);
    first.assign(static_cast<size_t>(cols) * rows + 1, 0);
    for (size_t i = 0; i < dots.size(); ++i) {
        const cv::Point2d& p = dots[i];
        if (!(std::isfinite(p.x) && std::isfinite(p.y))) continue;
        const int cx = std::min(cols - 1, static_cast<int>((p.x - origin.x) / cell));
        const int cy = std::min(rows - 1, static_cast<int>((p.y - origin.y) / cell));
        at[i] = cy * cols + cx;
        ++first[static_cast<size_t>(at[i]) + 1];
    }
    for (size_t k = 1; k < first.size(); ++k) first[k] += first[k - 1];
    members.resize(static_cast<size_t>(first.back()));
    std::vector<int> fill(first.begin(), first.end() - 1);
    for (size_t i = 0; i < dots.size(); ++i)
        if (at[i] >= 0)
            members[static_cast<size_t>(fill[static_cast<size_t>(at[i])]++)] = static_cast<int>(i);
}

int DotIndex::nearestWithin(const cv::Point2d& p, double radius) const {
    const double r2 = radius * radius;
    // A little wider than the radius: a dot whose squared distance rounds to within it counts.
    const double reach = std::fabs(radius) * (1.0 + 1e-9) + 1e-9;
    const bool scan = cols == 0 || !std::isfinite(p.x) || !std::isfinite(p.y) ||
                      !std::isfinite(reach) || reach > 16.0 * cell;
    if (scan) {
        const int j = nearestOf(p, dots);
        return j >= 0 && dist2(p, dots[static_cast<size_t>(j)]) <= r2 ? j : -1;
    }
    const auto cellOf = [this](double v, double o, int n) {
        return std::clamp(static_cast<int>(std::floor((v - o) / cell)), 0, n - 1);
    };
    if (p.x + reach < origin.x || p.y + reach < origin.y || p.x - reach > origin.x + cols * cell ||
        p.y - reach > origin.y + rows * cell)
        return -1;
    const int x0 = cellOf(p.x - reach, origin.x, cols), x1 = cellOf(p.x + reach, origin.x, cols);
    const int y0 = cellOf(p.y - reach, origin.y, rows), y1 = cellOf(p.y + reach, origin.y, rows);
    // The first of equals, as nearestOf picks it.
    int best = -1;
    double bestD = std::numeric_limits<double>::infinity();
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x) {
            const size_t k = static_cast<size_t>(y) * cols + x;
            for (int m = first[k]; m < first[k + 1]; ++m) {
                const int i = members[static_cast<size_t>(m)];
                const double d = dist2(p, dots[static_cast<size_t>(i)]);
                if (d < bestD || (d == bestD && i < best)) {
                    bestD = d;
                    best = i;
                }
            }
        }
    return best >= 0 && bestD <= r2 ? best : -1;
}

int mutualNearest(const std::vector<cv::Point2d>& positions, int i, const DotIndex& dots,
                  double radius) {
    const int j = dots.nearestWithin(positions[i], radius);
    if (j < 0) return -1;
    return nearestOf(dots.points()[static_cast<size_t>(j)], positions) == i ? j : -1;
}

cv::Point2d apply(const cv::Matx23d& m, const cv::Point2d& p) {
    return cv::Point2d(m(0, 0) * p.x + m(0, 1) * p.y + m(0, 2),
                       m(1, 0) * p.x + m(1, 1) * p.y + m(1, 2));
}

cv::Point2d apply(const cv::Matx33d& h, const cv::Point2d& p) {
    const double w = h(2, 0) * p.x + h(2, 1) * p.y + h(2, 2);
    return cv::Point2d((h(0, 0) * p.x + h(0, 1) * p.y + h(0, 2)) / w,
                       (h(1, 0) * p.x + h(1, 1) * p.y + h(1, 2)) / w);
}

cv::Matx33d fromAffine(const cv::Matx23d& a) {
    return cv::Matx33d(a(0, 0), a(0, 1), a(0, 2), a(1, 0), a(1, 1), a(1, 2), 0, 0, 1);
}

bool fitAffine(const std::vector<cv::Point2d>& from, const std::vector<cv::Point2d>& to,
               cv::Matx23d& fit) {
    const int n = static_cast<int>(from.size());
    if (n < 3) return false;
    cv::Mat a(n, 3, CV_64F), b(n, 2, CV_64F);
    for (int i = 0; i < n; ++i) {
        a.at<double>(i, 0) = from[i].x;
        a.at<double>(i, 1) = from[i].y;
        a.at<double>(i, 2) = 1.0;
        b.at<double>(i, 0) = to[i].x;
        b.at<double>(i, 1) = to[i].y;
    }
    cv::Mat x;
    if (!cv::solve(a, b, x, cv::DECOMP_SVD) || cv::countNonZero(x != x) > 0) return false;
    fit = cv::Matx23d(x.at<double>(0, 0), x.at<double>(1, 0), x.at<double>(2, 0),
                      x.at<double>(0, 1), x.at<double>(1, 1), x.at<double>(2, 1));
    const double det = fit(0, 0) * fit(1, 1) - fit(0, 1) * fit(1, 0);
    return std::isfinite(det) && std::fabs(det) > 1e-9;
}

bool fitHomography(const std::vector<cv::Point2d>& from, const std::vector<cv::Point2d>& to,
                   cv::Matx33d& h) {
    const int n = static_cast<int>(std::min(from.size(), to.size()));
    if (n < 4) return false;
    // Centred and scaled coordinates keep the system well conditioned.
    cv::Point2d mf(0, 0), mt(0, 0);
    for (int i = 0; i < n; ++i) {
        mf += from[i];
        mt += to[i];
    }
    mf *= 1.0 / n;
    mt *= 1.0 / n;
    double sf = 0.0, st = 0.0;
    for (int i = 0; i < n; ++i) {
        sf += std::sqrt(dist2(from[i], mf));
        st += std::sqrt(dist2(to[i], mt));
    }
    if (!(sf > 0.0 && st > 0.0)) return false;
    sf = n / sf;
    st = n / st;
    cv::Mat a(2 * n, 8, CV_64F), b(2 * n, 1, CV_64F);
    for (int i = 0; i < n; ++i) {
        const double x = (from[i].x - mf.x) * sf, y = (from[i].y - mf.y) * sf;
        const double u = (to[i].x - mt.x) * st, v = (to[i].y - mt.y) * st;
        const double r0[8] = {x, y, 1, 0, 0, 0, -u * x, -u * y};
        const double r1[8] = {0, 0, 0, x, y, 1, -v * x, -v * y};
        for (int k = 0; k < 8; ++k) {
            a.at<double>(2 * i, k) = r0[k];
            a.at<double>(2 * i + 1, k) = r1[k];
        }
        b.at<double>(2 * i) = u;
        b.at<double>(2 * i + 1) = v;
    }
    cv::Mat x;
    if (!cv::solve(a, b, x, cv::DECOMP_SVD)) return false;
    const cv::Matx33d hn(x.at<double>(0), x.at<double>(1), x.at<double>(2), x.at<double>(3),
                         x.at<double>(4), x.at<double>(5), x.at<double>(6), x.at<double>(7), 1.0);
    const cv::Matx33d tf(sf, 0, -sf * mf.x, 0, sf, -sf * mf.y, 0, 0, 1);
    const cv::Matx33d tt(1 / st, 0, mt.x, 0, 1 / st, mt.y, 0, 0, 1);
    h = tt * hn * tf;
    for (int i = 0; i < 9; ++i)
        if (!std::isfinite(h.val[i])) return false;
    const double det = cv::determinant(h);
    return std::isfinite(det) && std::fabs(det) > 1e-12 && std::fabs(h(2, 2)) > 1e-12;
}

}  // namespace gridmatch
