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
