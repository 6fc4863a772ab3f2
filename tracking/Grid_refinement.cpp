#include "Grid_refinement.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "CodeFormat.h"
#include "Dots_tracking.h"
#include "Grid_verification.h"

namespace {

double dist2(const cv::Point2d& a, const cv::Point2d& b) {
    const cv::Point2d d = a - b;
    return d.x * d.x + d.y * d.y;
}

int nearestOf(const cv::Point2d& p, const std::vector<cv::Point2d>& set, int limit) {
    int best = -1;
    double bestD = std::numeric_limits<double>::infinity();
    for (int i = 0; i < limit; ++i) {
        const double d = dist2(p, set[i]);
        if (d < bestD) {
            bestD = d;
            best = i;
        }
    }
    return best;
}

// Positions [0, count) of `pred` paired with the detected dots: mutual nearest neighbours within
// the radius, scaled by each position's local scale. A dot nearer to a position outside the
// range is left to that position.
void match(const std::vector<cv::Point2d>& pred, const std::vector<double>& scale, int count,
           const std::vector<cv::Point2d>& dots, double radius, std::vector<int>& positions,
           std::vector<cv::Point2d>& matched) {
    positions.clear();
    matched.clear();
    const int all = static_cast<int>(pred.size());
    for (int i = 0; i < count; ++i) {
        const int j = nearestOf(pred[i], dots, static_cast<int>(dots.size()));
        const double r = radius * scale[i];
        if (j < 0 || dist2(pred[i], dots[j]) > r * r) continue;
        if (nearestOf(dots[j], pred, all) != i) continue;
        positions.push_back(i);
        matched.push_back(dots[j]);
    }
}

cv::Matx33d fromAffine(const cv::Matx23d& a) {
    return cv::Matx33d(a(0, 0), a(0, 1), a(0, 2), a(1, 0), a(1, 1), a(1, 2), 0, 0, 1);
}

int positionsWithin(int rings) {
    return 1 + 3 * rings * (rings + 1);
}

// The translation most inner positions agree on, from each one's nearest dot within 0.6
// spacings: a grid a lattice step off agrees too, so the neighbours are tried after it.
cv::Point2d voteTranslation(const std::vector<cv::Point2d>& grid, int count,
                            const std::vector<cv::Point2d>& dots, double spacing) {
    std::vector<cv::Point2d> offsets;
    for (int i = 0; i < count; ++i) {
        const int j = nearestOf(grid[i], dots, static_cast<int>(dots.size()));
        if (j >= 0 && dist2(dots[j], grid[i]) <= 0.36 * spacing * spacing)
            offsets.push_back(dots[j] - grid[i]);
    }
    const double near = 0.2 * spacing;
    int bestSupport = 0;
    cv::Point2d best(0, 0);
    for (const cv::Point2d& o : offsets) {
        int support = 0;
        cv::Point2d sum(0, 0);
        for (const cv::Point2d& p : offsets)
            if (dist2(o, p) <= near * near) {
                ++support;
                sum += p;
            }
        if (support > bestSupport) {
            bestSupport = support;
            best = sum * (1.0 / support);
        }
    }
    return best;
}

// How much the fit enlarges lengths at g: the square root of its Jacobian's determinant.
double localScale(const cv::Matx33d& fit, const cv::Point2d& g) {
    const cv::Point2d p = Grid_refinement::apply(fit, g);
    const cv::Point2d ex = Grid_refinement::apply(fit, g + cv::Point2d(1, 0)) - p;
    const cv::Point2d ey = Grid_refinement::apply(fit, g + cv::Point2d(0, 1)) - p;
    return std::sqrt(std::fabs(ex.x * ey.y - ex.y * ey.x));
}

// The bits of every orientation at the fitted grid moved by `shift` (ideal-grid pixels), each
// box sized to the local spacing. True when the markers fit at exactly one orientation.
bool sample(const Grid_refinement::Input& in, const cv::Matx33d& fit, const cv::Point2d& shift,
            Dots_tracking& sampler, Grid_refinement::Output& out) {
    const int n = static_cast<int>(in.grids[0].size());
    int fits = 0;
    for (int k = 0; k < 6; ++k) {
        std::vector<cv::Point2d> points(n);
        std::vector<int> bits(n), fill(n), sides(n);
        for (int i = 0; i < n; ++i) {
            const cv::Point2d g = in.grids[k][i] + shift;
            points[i] = Grid_refinement::apply(fit, g);
            const int r = static_cast<int>(sampler.setBoxRadius(in.spacing * localScale(fit, g)));
            const bool inRange = std::fabs(points[i].x) < 1e6 && std::fabs(points[i].y) < 1e6;
            const long long count =
                inRange
                    ? sampler.countForeground(in.binary, static_cast<int>(std::lround(points[i].y)),
                                              static_cast<int>(std::lround(points[i].x)), r)
                    : 0;
            sides[i] = 2 * r + 1;
            fill[i] = static_cast<int>(std::min<long long>(count, 0x7fffffff));
            bits[i] = static_cast<double>(sides[i]) * sides[i] * sampler.boxRatio <
                      static_cast<double>(count);
        }
        bool markers = true;
        for (int i : qbcode::markerOnPositions()) markers = markers && i < n && bits[i] == 1;
        for (int i : qbcode::markerOffPositions()) markers = markers && i < n && bits[i] == 0;
        if (!markers) continue;
        ++fits;
        out.orientation = k;
        out.points = std::move(points);
        out.bits = std::move(bits);
        out.fill = std::move(fill);
        out.sides = std::move(sides);
    }
    out.fit = fit * cv::Matx33d(1, 0, shift.x, 0, 1, shift.y, 0, 0, 1);
    return fits == 1;
}

}  // namespace

cv::Point2d Grid_refinement::apply(const cv::Matx33d& h, const cv::Point2d& p) {
    const double w = h(2, 0) * p.x + h(2, 1) * p.y + h(2, 2);
    return cv::Point2d((h(0, 0) * p.x + h(0, 1) * p.y + h(0, 2)) / w,
                       (h(1, 0) * p.x + h(1, 1) * p.y + h(1, 2)) / w);
}

bool Grid_refinement::fitHomography(const std::vector<cv::Point2d>& from,
                                    const std::vector<cv::Point2d>& to, cv::Matx33d& h) {
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

bool Grid_refinement::Run(const Input& in, Dots_tracking& sampler, Output& out) const {
    const std::vector<cv::Point2d>& grid = in.grids[0];
    const int n = static_cast<int>(grid.size());
    // The matching costs grow with the square of the positions: codes of more rings than any
    // printed one are left to the upright grid.
    if (n < 7 || in.layer > kMaxLayer || in.centroids.empty() || !(in.spacing > 0.0) ||
        in.binary.empty())
        return false;
    for (const auto& g : in.grids)
        if (static_cast<int>(g.size()) != n) return false;

    // The lattice first: an affine fit on the inner rings, a homography from the third ring on,
    // widened ring by ring, then refitted on all positions while the tolerance tightens.
    const cv::Point2d voted = voteTranslation(
        grid, std::min(n, positionsWithin(std::min(in.layer, 2))), in.centroids, in.spacing);
    cv::Matx33d fit(1, 0, voted.x, 0, 1, voted.y, 0, 0, 1);
    std::vector<int> positions;
    std::vector<cv::Point2d> matched, from, pred(n);
    std::vector<double> scale(n, 1.0);
    auto predict = [&](const cv::Matx33d& h, const cv::Point2d& shift) {
        for (int i = 0; i < n; ++i) {
            pred[i] = apply(h, grid[i] + shift);
            scale[i] = localScale(h, grid[i] + shift);
        }
    };
    predict(fit, {0, 0});
    auto grow = [&] {
        bool lost = false;
        for (int rings = 2; rings <= std::max(in.layer, 2) && !lost; ++rings)
            for (int pass = 0; pass < 2 && !lost; ++pass) {
                match(pred, scale, std::min(n, positionsWithin(rings)), in.centroids,
                      innerRadius * in.spacing, positions, matched);
                from.clear();
                for (int i : positions) from.push_back(grid[i]);
                cv::Matx23d affine;
                cv::Matx33d h;
                if (rings >= 3 && from.size() >= 8 && fitHomography(from, matched, h))
                    fit = h;
                else if (from.size() >= 4 && Grid_verification::fitAffine(from, matched, affine))
                    fit = fromAffine(affine);
                else
                    lost = true;
                predict(fit, {0, 0});
            }
    };
    grow();
    auto refit = [&] {
        for (double r : radii)
            for (size_t last = 0, pass = 0; pass < 3; ++pass) {
                match(pred, scale, n, in.centroids, r * in.spacing, positions, matched);
                if (positions.size() <= last) break;
                last = positions.size();
                from.clear();
                for (int i : positions) from.push_back(grid[i]);
                cv::Matx33d h;
                if (from.size() < 8 || !fitHomography(from, matched, h)) return;
                fit = h;
                predict(fit, {0, 0});
            }
    };
    refit();

    // The fit knows the lattice, not which of its points is the centre, and a weak start can be
    // several steps off. Centres within a few steps are scored by the dots their grid covers;
    // the grid moves to the best and is fitted again, which brings in the dots it now covers.
    const cv::Point2d a = grid[1] - grid[0], b = grid[2] - grid[0];
    std::vector<std::pair<int, cv::Point2d>> shifts;
    auto score = [&](int steps) {
        shifts.clear();
        const double limit = (steps + 0.2) * (steps + 0.2) * a.dot(a);
        for (int i = -steps; i <= steps; ++i)
            for (int j = -steps; j <= steps; ++j) {
                const cv::Point2d shift = a * i + b * j;
                if (shift.dot(shift) > limit) continue;
                predict(fit, shift);
                match(pred, scale, n, in.centroids, radii.back() * in.spacing, positions, matched);
                shifts.emplace_back(static_cast<int>(positions.size()), shift);
            }
        std::stable_sort(shifts.begin(), shifts.end(),
                         [](const auto& l, const auto& r) { return l.first > r.first; });
    };
    for (int round = 0; round < 3; ++round) {
        score(round == 0 ? 5 : 2);
        const cv::Point2d best = shifts.front().second;
        if (round > 0 && best == cv::Point2d(0, 0)) break;
        fit = fit * cv::Matx33d(1, 0, best.x, 0, 1, best.y, 0, 0, 1);
        predict(fit, {0, 0});
        grow();
        refit();
    }
    score(2);

    // The best-covering centres are read until one has its markers at one orientation; two such
    // centres covering as many dots leave it open.
    bool found = false, tie = false;
    for (const auto& [covered, shift] : shifts) {
        if (covered < shifts.front().first) break;
        Output candidate;
        if (!sample(in, fit, shift, sampler, candidate)) continue;
        if (found) {
            tie = true;
            break;
        }
        candidate.covered = covered;
        out = std::move(candidate);
        found = true;
    }
    return found && !tie;
}
