#include "Grid_confidence.h"

#include <algorithm>
#include <cmath>

#include "GridMatch.h"

namespace confidence {

using gridmatch::dist2;

namespace {

// Grey level of a disc: small enough to stay on the smallest printed dot, large enough to
// average the sensor's noise. The mean, or the median where the blur of a dot nearby reaches
// into one side of it. Pixels outside the image do not count; none at all gives -1.
double discLevel(const cv::Mat& grey, cv::Point2d p, double radius, bool median) {
    // A fitted grid can put a position anywhere, or nowhere: only discs that touch the image
    // are sampled, and no disc is larger than the image.
    radius = std::min(radius, static_cast<double>(std::max(grey.rows, grey.cols)));
    if (!(radius >= 0.0) || !(p.x > -radius - 1.0 && p.x < grey.cols + radius + 1.0) ||
        !(p.y > -radius - 1.0 && p.y < grey.rows + radius + 1.0))
        return -1.0;
    const int cx = static_cast<int>(std::floor(p.x + 0.5)),
              cy = static_cast<int>(std::floor(p.y + 0.5));
    const int r = static_cast<int>(radius);
    const int r2 = static_cast<int>(radius * radius);
    // Sum and histogram, not a list of the pixels: a read samples some two hundred discs.
    int histogram[256] = {0};
    long sum = 0, count = 0;
    for (int y = std::max(0, cy - r); y <= std::min(grey.rows - 1, cy + r); ++y) {
        const int dy = y - cy;
        const uchar* row = grey.ptr<uchar>(y);
        for (int x = std::max(0, cx - r); x <= std::min(grey.cols - 1, cx + r); ++x) {
            const int dx = x - cx;
            if (dx * dx + dy * dy > r2) continue;
            sum += row[x];
            ++count;
            ++histogram[row[x]];
        }
    }
    if (count == 0) return -1.0;
    if (!median) return static_cast<double>(sum) / static_cast<double>(count);
    // The value at sorted index count / 2.
    long seen = 0;
    for (int v = 0; v < 256; ++v)
        if ((seen += histogram[v]) > count / 2) return v;
    return 255;
}

// Gaussian elimination with partial pivoting of the n x (n + 1) system a, in this file's own
// arithmetic so that every platform fits the same surface; false when it is singular.
bool solve(double a[6][7], int n, double* x) {
    for (int c = 0; c < n; ++c) {
        int pivot = c;
        for (int r = c + 1; r < n; ++r)
            if (std::fabs(a[r][c]) > std::fabs(a[pivot][c])) pivot = r;
        if (!(std::fabs(a[pivot][c]) > 1e-9)) return false;
        if (pivot != c)
            for (int k = 0; k <= n; ++k) std::swap(a[c][k], a[pivot][k]);
        for (int r = c + 1; r < n; ++r) {
            const double f = a[r][c] / a[c][c];
            for (int k = c; k <= n; ++k) a[r][k] -= f * a[c][k];
        }
    }
    for (int r = n - 1; r >= 0; --r) {
        double sum = a[r][n];
        for (int k = r + 1; k < n; ++k) sum -= a[r][k] * x[k];
        x[r] = sum / a[r][r];
    }
    return true;
}

double median(std::vector<double>& v) {
    if (v.empty()) return -1.0;
    const size_t mid = v.size() / 2;
    std::nth_element(v.begin(), v.begin() + static_cast<long>(mid), v.end());
    return v[mid];
}

}  // namespace

Output measure(const Input& in) {
    Output out;
    const int n = static_cast<int>(std::min(in.points.size(), in.bits.size()));
    if (n == 0 || in.grey.empty() || in.grey.type() != CV_8UC1 || !(in.spacing > 0.0)) return out;
    const double s = in.spacing;
    // Neighbours one step apart, and the gaps: centres of three mutual neighbours.
    const double step2 = 1.3 * 1.3 * s * s;
    std::vector<std::vector<int>> next(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i)
        for (int j = i + 1; j < n; ++j)
            if (dist2(in.points[i], in.points[j]) < step2) {
                next[i].push_back(j);
                next[j].push_back(i);
            }
    // Samples small enough for the smallest printed dot and the narrowest gap: a tilted print
    // squeezes the grid along one direction, so the radius follows each position's nearest
    // neighbour.
    std::vector<double> radius(static_cast<size_t>(n), 0.15 * s);
    for (int i = 0; i < n; ++i)
        for (int j : next[i])
            radius[i] = std::min(radius[i], 0.15 * std::sqrt(dist2(in.points[i], in.points[j])));
    std::vector<double> level(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i)
        level[i] = discLevel(in.grey, in.points[i], std::max(0.75, radius[i]), false);

    struct Gap {
        cv::Point2d at;
        int corner[3];
    };
    std::vector<Gap> gaps;
    for (int i = 0; i < n; ++i)
        for (int j : next[i])
            for (int k : next[j])
                if (i < j && j < k && std::find(next[i].begin(), next[i].end(), k) != next[i].end())
                    gaps.push_back({(in.points[i] + in.points[j] + in.points[k]) / 3.0, {i, j, k}});

    // Every sample: the positions, then the gaps. Kinds: 0 background, 1 dot, 2 + k a gap with
    // k printed corners (a gap between printed dots catches their blur).
    struct Sample {
        cv::Point2d at;
        double level;
        int kind;
    };
    std::vector<Sample> samples;
    for (int i = 0; i < n; ++i) samples.push_back({in.points[i], level[i], in.bits[i] ? 1 : 0});
    // A tilt squeezes some gaps until the blur of their printed corners fills them: gaps much
    // closer to a printed corner than gaps usually are stay out.
    auto clearance = [&](const Gap& g) {
        double d = 1e300;
        for (int corner : g.corner)
            if (in.bits[corner]) d = std::min(d, dist2(g.at, in.points[corner]));
        return d;
    };
    std::vector<double> clearances;
    for (const Gap& g : gaps) clearances.push_back(std::min(clearance(g), 0.34 * s * s));
    const double usual = median(clearances);
    gaps.erase(std::remove_if(gaps.begin(), gaps.end(),
                              [&](const Gap& g) { return clearance(g) < 0.64 * usual; }),
               gaps.end());
    for (const Gap& g : gaps) {
        int printed = 0;
        for (int corner : g.corner) printed += in.bits[corner] ? 1 : 0;
        const double r =
            0.8 * std::min({radius[g.corner[0]], radius[g.corner[1]], radius[g.corner[2]]});
        samples.push_back({g.at, discLevel(in.grey, g.at, std::max(0.75, r), true), 2 + printed});
    }
    // The level a sample's kind has around it: the median of the code's own samples of that kind
    // within reach, or of the nearest seven where fewer lie near. A median shrugs off the few
    // samples an object covers; shadows and gradients move it along.
    const double reach2 = 2.2 * 2.2 * s * s;
    std::vector<const Sample*> ofKind[6];
    for (const Sample& o : samples)
        if (o.level >= 0.0) ofKind[o.kind].push_back(&o);
    std::vector<std::pair<double, double>> byDistance;  // (squared distance, level)
    std::vector<double> near;
    // The smooth surface of a kind's levels about p, where every sample within reach lies on it:
    // an object on the code breaks the surface where it covers a sample, and the median decides.
    std::vector<const Sample*> within;
    double codeContrast = 0.0;
    if (in.smoothLight > 0.0 && !ofKind[0].empty() && !ofKind[1].empty()) {
        std::vector<double> dot, ground;
        for (const Sample* o : ofKind[1]) dot.push_back(o->level);
        for (const Sample* o : ofKind[0]) ground.push_back(o->level);
        codeContrast = median(dot) - median(ground);
    }
    const double planeReach2 = in.smoothLight * in.smoothLight * s * s;
    auto onSurface = [&](cv::Point2d p, int kind, double& level) {
        if (kind > 1 || !(codeContrast > 8.0)) return false;
        within.clear();
        for (const Sample* o : ofKind[kind])
            if (dist2(o->at, p) <= planeReach2) within.push_back(o);
        if (within.size() < 9) return false;
        auto basis = [&](const Sample* o, double* v) {
            const double x = (o->at.x - p.x) / s, y = (o->at.y - p.y) / s;
            v[0] = 1.0, v[1] = x, v[2] = y, v[3] = x * x, v[4] = x * y, v[5] = y * y;
        };
        double v[6];
        // A plane, then where the light bends within reach (a highlight, a shadow's soft edge)
        // and enough samples hold the bend, a quadratic surface: every sample on it either way.
        for (const int terms : {3, 6}) {
            if (terms == 6 && within.size() < 15) return false;
            double a[6][7] = {};
            for (const Sample* o : within) {
                basis(o, v);
                for (int r = 0; r < terms; ++r) {
                    for (int c = 0; c < terms; ++c) a[r][c] += v[r] * v[c];
                    a[r][terms] += v[r] * o->level;
                }
            }
            double coef[6];
            if (!solve(a, terms, coef)) continue;
            bool on = true;
            for (const Sample* o : within) {
                basis(o, v);
                double fit = 0.0;
                for (int r = 0; r < terms; ++r) fit += coef[r] * v[r];
                on = on && std::fabs(o->level - fit) <= 0.15 * codeContrast;
            }
            if (!on) continue;
            level = coef[0];
            return true;
        }
        return false;
    };
    // The seven nearest and every one within reach: those within reach alone when they are seven
    // or more, else the seven nearest (ties by level, so the set does not depend on the order).
    // smooth, when given, tells whether the level came from a surface.
    auto levelNear = [&](cv::Point2d p, int kind, bool* smooth = nullptr) {
        double level = 0.0;
        const bool onIt = in.smoothLight > 0.0 && onSurface(p, kind, level);
        if (smooth != nullptr) *smooth = onIt;
        if (onIt) return level;
        near.clear();
        for (const Sample* o : ofKind[kind])
            if (dist2(o->at, p) <= reach2) near.push_back(o->level);
        if (near.size() < 7 && near.size() < ofKind[kind].size()) {
            byDistance.clear();
            for (const Sample* o : ofKind[kind]) byDistance.emplace_back(dist2(o->at, p), o->level);
            const size_t nearest = std::min<size_t>(7, byDistance.size());
            std::partial_sort(byDistance.begin(), byDistance.begin() + static_cast<long>(nearest),
                              byDistance.end());
            near.clear();
            for (size_t k = 0; k < nearest; ++k) near.push_back(byDistance[k].second);
        }
        return median(near);
    };
    const size_t total = samples.size();
    std::vector<double> expected(total), contrast(total), residual[3];
    std::vector<double> groundAt(total);
    std::vector<bool> smoothAt(total);
    for (size_t k = 0; k < total; ++k) {
        const Sample& o = samples[k];
        bool smoothDots = false, smoothGround = false;
        const double dots = levelNear(o.at, 1, &smoothDots),
                     ground = levelNear(o.at, 0, &smoothGround);
        smoothAt[k] = smoothDots && smoothGround;
        expected[k] = o.kind == 1 ? dots : o.kind == 0 ? ground : levelNear(o.at, o.kind);
        contrast[k] = dots - ground;
        groundAt[k] = ground;
    }
    // Under smooth light a gap also lies where its kind lies between the background and the
    // dots around it: the light moves gaps as it moves the background (a highlight, a shadow's
    // edge). Only where both lie on their surfaces, and as a second level the gap may match: an
    // object breaks the surfaces, and the gaps' own median tells it apart as before. The spread
    // stays that of the medians.
    std::vector<double> alternative(total, -1.0);
    if (in.smoothLight > 0.0) {
        for (int kind = 2; kind < 6; ++kind) {
            std::vector<double> share;
            for (size_t k = 0; k < total; ++k)
                if (samples[k].kind == kind && samples[k].level >= 0.0 && contrast[k] > 4.0)
                    share.push_back((samples[k].level - groundAt[k]) / contrast[k]);
            if (share.size() < 7) continue;
            const double f = median(share);
            for (size_t k = 0; k < total; ++k)
                if (samples[k].kind == kind && contrast[k] > 4.0 && smoothAt[k])
                    alternative[k] = groundAt[k] + f * contrast[k];
        }
    }
    for (size_t k = 0; k < total; ++k)
        if (samples[k].level >= 0.0 && expected[k] >= 0.0)
            residual[std::min(samples[k].kind, 2)].push_back(
                std::fabs(samples[k].level - expected[k]));
    // How far samples of a kind stray from their level over the whole code: noise, texture and
    // print. One that strays several times further is something else.
    double spread[3];
    for (int g = 0; g < 3; ++g) spread[g] = 1.4826 * std::max(0.0, median(residual[g]));
    // 1 at the expected level, 0 five spreads away (at least 8 %, at most half of the contrast),
    // -1 twice that. No contrast, no confidence.
    auto sureOf = [&](size_t k, double level) {
        const Sample& o = samples[k];
        const double c = contrast[k];
        if (o.level < 0.0 || level < 0.0 || !(c > 4.0)) return 0.0;
        // Gaps sit close to the dots' blur: their floor is higher. Beyond the level of its kind,
        // away from the other (darker than the background, brighter than the dots), nothing of
        // the print can take a sample: the floor is lower. A few grey levels always.
        const bool beyond = o.kind == 1 ? o.level > level : o.level < level;
        const double floor = std::max(3.0, (beyond ? 0.04 : o.kind >= 2 ? 0.12 : 0.08) * c);
        const double tolerance = std::clamp(5.0 * spread[std::min(o.kind, 2)], floor, 0.5 * c);
        return std::clamp(1.0 - std::fabs(o.level - level) / tolerance, -1.0, 1.0);
    };
    auto sure = [&](size_t k) {
        const double c = sureOf(k, expected[k]);
        return alternative[k] < 0.0 ? c : std::max(c, sureOf(k, alternative[k]));
    };

    out.positions.assign(static_cast<size_t>(n), 0.0);
    std::vector<bool> byGap(static_cast<size_t>(n), false);
    for (int i = 0; i < n; ++i) out.positions[i] = sure(static_cast<size_t>(i));
    for (size_t g = 0; g < gaps.size(); ++g) {
        const double c = sure(static_cast<size_t>(n) + g);
        for (int corner : gaps[g].corner)
            if (c < out.positions[corner]) {
                out.positions[corner] = c;
                byGap[corner] = true;
            }
    }
    out.weakest = static_cast<int>(std::min_element(out.positions.begin(), out.positions.end()) -
                                   out.positions.begin());
    out.margin = out.positions[out.weakest];
    out.weakestByGap = byGap[out.weakest];
    return out;
}

}  // namespace confidence
