#include "Grid_verification.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "CodeFormat.h"
#include "GridMatch.h"
#include "SystemPara.h"

using gridmatch::apply;
using gridmatch::dist2;
using gridmatch::nearestOf;

int Grid_verification::Initiate() {
    enabled = 0;
    if (sysPara == nullptr) return 0;
    if (sysPara->readPara("Verification") < 0) return 0;
    enabled = sysPara->verify_enabled;
    blankFill = sysPara->verify_blankFill;
    inside = sysPara->verify_inside;
    edgeMargin = sysPara->verify_edgeMargin;
    markers = sysPara->verify_markers;
    matchRadius = sysPara->verify_matchRadius;
    maxMissing = sysPara->verify_maxMissing;
    smallDots = sysPara->verify_smallDots;
    smoothLight = sysPara->verify_smoothLight;
    maxResidual = sysPara->verify_maxResidual;
    maxCrowded = sysPara->verify_maxCrowded;
    maxUnexplained = sysPara->verify_maxUnexplained;
    minConfidence = sysPara->verify_minConfidence;
    return 1;
}

int Grid_verification::Run(const Input& in, Checks& out) const {
    out = Checks();
    const int n = static_cast<int>(std::min(in.grid.size(), in.bits.size()));
    auto area = [&](int i) {
        const int side = i >= 0 && i < static_cast<int>(in.sides.size()) ? in.sides[i] : in.boxSide;
        return static_cast<double>(side) * side;
    };
    // The decision threshold scales with the box: fillThreshold is the one of boxSide (area(-1)).
    const double ratio = area(-1) > 0.0 ? in.fillThreshold / area(-1) : 0.0;

    out.markersMatched = qbcode::markersMatched(in.bits, n);

    out.margin = std::numeric_limits<double>::infinity();
    for (int i = 0; i < n && i < static_cast<int>(in.fill.size()); ++i) {
        if (in.bits[i] == 0 && area(i) > 0.0)
            out.blankFill = std::max(out.blankFill, in.fill[i] / area(i));
        const double threshold = in.sides.empty() ? in.fillThreshold : ratio * area(i);
        if (threshold > 0.0)
            out.margin = std::min(out.margin, std::fabs(in.fill[i] - threshold) / threshold);
    }
    if (!std::isfinite(out.margin)) out.margin = 0.0;

    // Every printed position should own a detected dot, and the dots should sit on one grid. The
    // grid's spacing and centre are a little off at the outer rings, so the match is repeated on
    // the grid as fitted to the dots matched so far.
    const double radius = matchRadius * in.spacing;
    const double clear2 = 0.75 * 0.75 * in.spacing * in.spacing;
    std::vector<cv::Point2d> predicted = in.grid, from, to;
    for (int pass = 0; pass < 3; ++pass) {
        from.clear();
        to.clear();
        out.dotsMatched = out.dotsMissing = 0;
        for (int i = 0; i < n; ++i) {
            if (in.bits[i] != 1) continue;
            const int j = gridmatch::mutualNearest(predicted, i, in.centroids, radius);
            if (j < 0) {
                // A faint dot, centred on its position and clear of every dot: printed, though
                // too small to fit on. A piece of a larger blob lies within that blob's reach.
                const int k =
                    smallDots ? gridmatch::mutualNearest(predicted, i, in.smallBlobs, radius) : -1;
                bool faint = k >= 0;
                for (size_t c = 0; faint && c < in.centroids.size(); ++c)
                    faint = dist2(in.centroids[c], in.smallBlobs[static_cast<size_t>(k)]) >= clear2;
                if (faint)
                    ++out.dotsMatched;
                else
                    ++out.dotsMissing;
                continue;
            }
            ++out.dotsMatched;
            from.push_back(in.grid[i]);
            to.push_back(in.centroids[j]);
        }
        cv::Matx23d fit;
        if (!gridmatch::fitAffine(from, to, fit)) break;
        out.fit = fit;
        out.fitted = true;
        for (size_t i = 0; i < predicted.size(); ++i) predicted[i] = apply(fit, in.grid[i]);
        if (out.dotsMissing == 0) break;
    }
    // Bits read from padding or from beyond the frame were never printed, and a dot centred
    // close to the crop's edge is cut: it may vanish and read as blank. The positions are the
    // grid's as fitted to the dots, where the dots allowed a fit.
    const double edge = edgeMargin * in.spacing;
    for (int i = 0; i < n; ++i) {
        const cv::Point2d p = apply(in.toKept, predicted[i]);
        const double border = in.frameMargin * in.spacing;
        const bool nearFrame =
            border > 0.0 &&
            !(p.x >= in.frame.x + border && p.y >= in.frame.y + border &&
              p.x <= in.frame.br().x - 1.0 - border && p.y <= in.frame.br().y - 1.0 - border);
        if (nearFrame || !(p.x >= edge && p.y >= edge && p.x <= in.keptSize.width - 1.0 - edge &&
                           p.y <= in.keptSize.height - 1.0 - edge))
            ++out.outside;
    }

    // A dot on a position the grid calls blank: the grid or its bits are wrong there.
    if (out.fitted)
        for (const cv::Point2d& c : in.centroids) {
            const int i = nearestOf(c, predicted);
            if (i >= 0 && i < n && in.bits[i] == 0 && dist2(c, predicted[i]) <= radius * radius)
                ++out.dotsUnexplained;
        }
    if (out.fitted && in.spacing > 0.0) {
        double sum = 0.0;
        for (size_t k = 0; k < from.size(); ++k) sum += dist2(apply(out.fit, from[k]), to[k]);
        out.residual =
            from.empty() ? 0.0 : std::sqrt(sum / static_cast<double>(from.size())) / in.spacing;
    }

    if (out.fitted && n > 7) {
        // The outer ring: positions farther from the centre than ring k - 1 reaches.
        const double s2 = in.spacing * in.spacing;
        double inner = 0.0;
        for (int i = 0; i < n; ++i) inner = std::max(inner, dist2(predicted[i], predicted[0]));
        inner = std::sqrt(inner) - 0.75 * in.spacing;
        const size_t m = in.centroids.size();
        std::vector<char> off(m, 1);
        std::vector<int> ringDots, ringPos;  // matched centroid, position
        for (int i = 0; i < n; ++i) {
            if (in.bits[i] != 1) continue;
            const int j = gridmatch::mutualNearest(predicted, i, in.centroids, radius);
            if (j < 0) continue;
            off[static_cast<size_t>(j)] = 0;
            if (std::sqrt(dist2(predicted[i], predicted[0])) > inner) {
                ringDots.push_back(j);
                ringPos.push_back(i);
            }
        }
        for (size_t c = 0; c < m; ++c) {
            const int i = off[c] ? nearestOf(in.centroids[c], predicted) : -1;
            off[c] = i >= 0 && dist2(in.centroids[c], predicted[i]) > radius * radius;
        }
        // A dot of something else: off every position and beside another such dot (a speck
        // or a blob of the scene stands alone).
        auto foreign = [&](size_t c) {
            for (size_t d = 0; d < m; ++d)
                if (d != c && off[d] && dist2(in.centroids[c], in.centroids[d]) <= 1.69 * s2)
                    return true;
            return false;
        };
        for (size_t r = 0; r < ringDots.size(); ++r) {
            const int j = ringDots[r];
            // A dot pulled off its position towards the outside is pulled by what lies there:
            // the reach grows with the pull.
            const double pull =
                std::sqrt(dist2(in.centroids[j], predicted[ringPos[r]])) / in.spacing;
            const double reach = 1.1 + std::max(0.0, pull - 0.1);
            for (size_t c = 0; c < m; ++c)
                if (off[c] && dist2(in.centroids[c], in.centroids[j]) <= reach * reach * s2 &&
                    dist2(in.centroids[c], predicted[0]) > dist2(in.centroids[j], predicted[0]) &&
                    foreign(c)) {
                    ++out.crowded;
                    break;
                }
        }
    }
    if (!enabled) return 0;
    if (inside && out.outside > 0) return -511;
    if (markers && out.markersMatched < qbcode::markerCount()) return -512;
    if (out.blankFill > blankFill) return -510;
    if (out.dotsMissing > maxMissing || !out.fitted) return -513;
    if (out.dotsUnexplained > maxUnexplained) return -515;
    if (out.residual > maxResidual) return -514;
    if (maxCrowded >= 0 && out.crowded > maxCrowded) return -515;
    return 0;
}

int Grid_verification::Judge(const confidence::Output& levels) const {
    if (!enabled || !(levels.margin < minConfidence)) return 0;
    return levels.weakestByGap ? -517 : -516;
}
