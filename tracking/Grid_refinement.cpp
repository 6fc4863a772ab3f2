#include "Grid_refinement.h"

#include <algorithm>
#include <cmath>

#include "CodeFormat.h"
#include "Dots_tracking.h"
#include "GridMatch.h"

using gridmatch::apply;
using gridmatch::dist2;
using gridmatch::fromAffine;
using gridmatch::nearestOf;

namespace {

// Positions [0, count) of `pred` paired with the detected dots: mutual nearest neighbours within
// the radius, scaled by each position's local scale. A dot nearer to a position outside the
// range is left to that position.
void match(const std::vector<cv::Point2d>& pred, const std::vector<double>& scale, int count,
           const gridmatch::DotIndex& dots, double radius, std::vector<int>& positions,
           std::vector<cv::Point2d>& matched) {
    positions.clear();
    matched.clear();
    for (int i = 0; i < count; ++i) {
        const int j = gridmatch::mutualNearest(pred, i, dots, radius * scale[i]);
        if (j < 0) continue;
        positions.push_back(i);
        matched.push_back(dots.points()[static_cast<size_t>(j)]);
    }
}

// The translation most inner positions agree on, from each one's nearest dot within 0.6
// spacings: a grid a lattice step off agrees too, so the neighbours are tried after it.
cv::Point2d voteTranslation(const std::vector<cv::Point2d>& grid, int count,
                            const std::vector<cv::Point2d>& dots, double spacing) {
    std::vector<cv::Point2d> offsets;
    for (int i = 0; i < count; ++i) {
        const int j = nearestOf(grid[i], dots);
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
    const cv::Point2d p = apply(fit, g);
    const cv::Point2d ex = apply(fit, g + cv::Point2d(1, 0)) - p;
    const cv::Point2d ey = apply(fit, g + cv::Point2d(0, 1)) - p;
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
            points[i] = apply(fit, g);
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
        if (qbcode::markersMatched(bits, n) < qbcode::markerCount()) continue;
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
        grid, std::min(n, qbcode::positionsFor(std::min(in.layer, 2))), in.centroids, in.spacing);
    cv::Matx33d fit(1, 0, voted.x, 0, 1, voted.y, 0, 0, 1);
    // Every grid below is matched to the same dots, about a hundred times for the centre alone.
    const gridmatch::DotIndex dots(in.centroids, in.spacing);
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
                match(pred, scale, std::min(n, qbcode::positionsFor(rings)), dots,
                      innerRadius * in.spacing, positions, matched);
                from.clear();
                for (int i : positions) from.push_back(grid[i]);
                cv::Matx23d affine;
                cv::Matx33d h;
                if (rings >= 3 && from.size() >= 8 && gridmatch::fitHomography(from, matched, h))
                    fit = h;
                else if (from.size() >= 4 && gridmatch::fitAffine(from, matched, affine))
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
                match(pred, scale, n, dots, r * in.spacing, positions, matched);
                if (positions.size() <= last) break;
                last = positions.size();
                from.clear();
                for (int i : positions) from.push_back(grid[i]);
                cv::Matx33d h;
                if (from.size() < 8 || !gridmatch::fitHomography(from, matched, h)) return;
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
                match(pred, scale, n, dots, radii.back() * in.spacing, positions, matched);
                shifts.emplace_back(static_cast<int>(positions.size()), shift);
            }
        std::stable_sort(shifts.begin(), shifts.end(),
                         [](const auto& l, const auto& r) { return l.first > r.first; });
    };
    bool settled = false;  // the last scores are those of the final fit
    for (int round = 0; round < 3 && !settled; ++round) {
        score(round == 0 ? std::max(centreReach, 2) : 2);
        const cv::Point2d best = shifts.front().second;
        settled = round > 0 && best == cv::Point2d(0, 0);
        if (settled) break;
        fit = fit * cv::Matx33d(1, 0, best.x, 0, 1, best.y, 0, 0, 1);
        predict(fit, {0, 0});
        grow();
        refit();
    }
    if (!settled) score(2);

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
