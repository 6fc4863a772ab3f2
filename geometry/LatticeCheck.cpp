#include "LatticeCheck.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

bool byX(const cv::Point2f& a, const cv::Point2f& b) {
    return a.x < b.x || (a.x == b.x && a.y < b.y);
}

double distance(const cv::Point2f& a, const cv::Point2f& b) {
    return std::hypot(b.x - a.x, b.y - a.y);
}

// Nearest distances of dots already sorted by x: a search stops once x alone is farther.
std::vector<double> nearestSorted(const std::vector<cv::Point2f>& p) {
    const size_t n = p.size();
    std::vector<double> nearest(n, std::numeric_limits<double>::infinity());
    for (size_t i = 0; i < n; ++i) {
        double& best = nearest[i];
        for (size_t j = i + 1; j < n && p[j].x - p[i].x < best; ++j)
            best = std::min(best, distance(p[i], p[j]));
        for (size_t j = i; j-- > 0 && p[i].x - p[j].x < best;)
            best = std::min(best, distance(p[i], p[j]));
    }
    return nearest;
}

}  // namespace

std::vector<double> nearestDistances(const std::vector<cv::Point2f>& dots) {
    std::vector<size_t> order(dots.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(),
              [&](size_t a, size_t b) { return byX(dots[a], dots[b]); });
    std::vector<cv::Point2f> p;
    p.reserve(dots.size());
    for (size_t i : order) p.push_back(dots[i]);
    const std::vector<double> sorted = nearestSorted(p);
    std::vector<double> out(dots.size());
    for (size_t k = 0; k < order.size(); ++k) out[order[k]] = sorted[k];
    return out;
}

namespace {

LatticeStats statsOf(const std::vector<cv::Point2f>& dots) {
    LatticeStats out;
    const size_t n = dots.size();
    out.dots = static_cast<int>(n);
    if (n < 3) return out;
    std::vector<cv::Point2f> p = dots;
    std::sort(p.begin(), p.end(), byX);
    const std::vector<double> nearest = nearestSorted(p);
    std::vector<double> sorted = nearest;
    std::nth_element(sorted.begin(), sorted.begin() + n / 2, sorted.end());
    out.spacing = sorted[n / 2];
    if (!(out.spacing > 0.0) || !std::isfinite(out.spacing)) return out;

    int agreeing = 0;
    for (double d : nearest) agreeing += std::fabs(d - out.spacing) <= 0.3 * out.spacing;
    out.agree = static_cast<double>(agreeing) / static_cast<double>(n);

    // Is there a dot within a quarter spacing of q? Binary search on x, then a short scan.
    const double tol = 0.25 * out.spacing;
    auto dotNear = [&](double qx, double qy) {
        auto it = std::lower_bound(p.begin(), p.end(), qx - tol,
                                   [](const cv::Point2f& a, double x) { return a.x < x; });
        for (; it != p.end() && it->x <= qx + tol; ++it)
            if ((it->x - qx) * (it->x - qx) + (it->y - qy) * (it->y - qy) <= tol * tol) return true;
        return false;
    };
    // Each pair once (j > i); a direction and its opposite are the same modulo 60 degrees.
    const double reach = 1.3 * out.spacing;
    double c = 0.0, s = 0.0;
    int steps = 0, continued = 0;
    for (size_t i = 0; i < n; ++i)
        for (size_t j = i + 1; j < n && p[j].x - p[i].x < reach; ++j) {
            const double dx = double(p[j].x) - p[i].x, dy = double(p[j].y) - p[i].y;
            const double r2 = dx * dx + dy * dy;
            if (r2 >= reach * reach || !(r2 > 0.0)) continue;
            // (dx + i dy)^6 / r^6 by products only: the same bits on every CPU, unlike libm.
            const double x2 = (dx * dx - dy * dy) / r2, y2 = 2.0 * dx * dy / r2;
            const double x4 = x2 * x2 - y2 * y2, y4 = 2.0 * x2 * y2;
            c += x4 * x2 - y4 * y2;
            s += x4 * y2 + y4 * x2;
            ++out.pairs;
            continued += dotNear(p[i].x - dx, p[i].y - dy);
            continued += dotNear(p[j].x + dx, p[j].y + dy);
            steps += 2;
        }
    if (out.pairs > 0) {
        out.symmetry = std::sqrt(c * c + s * s) / out.pairs;
        out.rows = std::atan2(s, c) * 30.0 / CV_PI;
        if (out.rows < 0.0) out.rows += 60.0;
    }
    if (steps > 0) out.inversion = static_cast<double>(continued) / steps;
    return out;
}

// The dots within reach of the dot with the most neighbours at the median spacing: a code among
// clutter that the clustering joined to it. Neighbours are counted in a window of x.
std::vector<cv::Point2f> around(const std::vector<cv::Point2f>& dots, double spacing,
                                double reach) {
    const double r2 = 1.69 * spacing * spacing, window = 1.3 * spacing + 1.0;
    std::vector<cv::Point2f> p = dots;
    std::sort(p.begin(), p.end(), byX);
    size_t seed = 0;
    int most = -1;
    for (size_t i = 0; i < dots.size(); ++i) {
        int near = 0;
        auto it = std::lower_bound(p.begin(), p.end(), dots[i].x - window,
                                   [](const cv::Point2f& a, double x) { return a.x < x; });
        for (; it != p.end() && it->x <= dots[i].x + window; ++it) {
            const double dx = it->x - dots[i].x, dy = it->y - dots[i].y;
            near += dx * dx + dy * dy < r2;
        }
        if (near > most) {
            most = near;
            seed = i;
        }
    }
    std::vector<cv::Point2f> out;
    for (const cv::Point2f& q : dots) {
        const double dx = q.x - dots[seed].x, dy = q.y - dots[seed].y;
        if (dx * dx + dy * dy <= reach * reach) out.push_back(q);
    }
    return out;
}

}  // namespace

std::vector<cv::Point2f> codeAround(const std::vector<cv::Point2f>& dots, double spacing) {
    if (dots.empty() || !(spacing > 0.0)) return dots;
    // Within no reach of the seed: the seed alone.
    const std::vector<cv::Point2f> seed = around(dots, spacing, 0.0);
    if (seed.empty()) return dots;
    cv::Point2d centre(seed.front().x, seed.front().y);
    const double reach2 = 5.6 * 5.6 * spacing * spacing;
    std::vector<cv::Point2f> out, kept;
    for (int round = 0; round < 4; ++round) {
        kept.clear();
        cv::Point2d sum(0, 0);
        for (const cv::Point2f& p : dots) {
            const double dx = p.x - centre.x, dy = p.y - centre.y;
            if (dx * dx + dy * dy > reach2) continue;
            kept.push_back(p);
            sum += cv::Point2d(p.x, p.y);
        }
        if (kept.empty()) break;
        out.swap(kept);
        centre = sum * (1.0 / static_cast<double>(out.size()));
    }
    return out.empty() ? dots : out;
}

LatticeStats latticeOf(const std::vector<cv::Point2f>& dots, const LatticeLimits& limits) {
    const LatticeStats whole = statsOf(dots);
    if (whole.passes(limits) || !(whole.spacing > 0.0) || dots.size() > 2000) return whole;
    // Six spacings reach past the outer ring of a five-ring code seen at an angle.
    const LatticeStats focused = statsOf(around(dots, whole.spacing, 6.5 * whole.spacing));
    return focused.passes(limits) ? focused : whole;
}
