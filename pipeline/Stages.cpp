#include "Stages.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <opencv2/imgproc.hpp>

#include "CodeFormat.h"
#include "FrameChain.h"
#include "GridMatch.h"
#include "Grid_refinement.h"
#include "Hexagon_Dots_tracking.h"
#include "LatticeCheck.h"
#include "ImageProcessPipeline.h"
#include "PatternRotationCalculation.h"
#include "Point_Generation.h"
#include "ROI_Segment.h"
#include "SystemPara.h"
#include "gapCalculation.h"
#include "rotationAngleCal_C.h"
#include "startPoint_cal.h"

namespace stages {

namespace {

// int(v) for grid positions; what an int cannot hold saturates (the box then counts nothing).
int truncSaturated(double v) {
    if (!(v > -2147483648.0)) return std::numeric_limits<int>::min();
    if (v >= 2147483647.0) return std::numeric_limits<int>::max();
    return static_cast<int>(v);
}

}  // namespace

namespace {

// The 1st, 50th and 99th percentiles of the grey levels of an area, every fourth pixel of every
// fourth row.
struct Levels {
    int low = 0, median = 0, high = 0;
    bool dark() const { return median > 0.5 * (low + high); }
};

Levels levelsOf(const cv::Mat& image, const cv::Rect& area) {
    int histogram[256] = {0};
    int n = 0;
    for (int y = area.y; y < area.y + area.height; y += 4) {
        const uchar* row = image.ptr<uchar>(y);
        for (int x = area.x; x < area.x + area.width; x += 4, ++n) ++histogram[row[x]];
    }
    auto percentile = [&](double share) {
        const double want = share * n;
        int seen = 0;
        for (int v = 0; v < 256; ++v)
            if ((seen += histogram[v]) >= want) return v;
        return 255;
    };
    return Levels{percentile(0.01), percentile(0.5), percentile(0.99)};
}

}  // namespace

bool looksDark(const cv::Mat& image) {
    if (image.empty() || image.type() != CV_8UC1) return false;
    return levelsOf(image, cv::Rect(0, 0, image.cols, image.rows)).dark();
}

bool mixedPolarity(const cv::Mat& image, bool dark) {
    if (image.empty() || image.type() != CV_8UC1) return false;
    const int across = 6, down = 4;
    if (image.cols < 4 * across || image.rows < 4 * down) return false;
    for (int ty = 0; ty < down; ++ty)
        for (int tx = 0; tx < across; ++tx) {
            const cv::Rect tile(tx * image.cols / across, ty * image.rows / down,
                                image.cols / across, image.rows / down);
            // A decisive tile only: most of it on one side of its midpoint, as paper with
            // dots is; noise and texture sit about the middle either way.
            const Levels l = levelsOf(image, tile);
            const double mid = 0.5 * (l.low + l.high), range = l.high - l.low;
            if (range >= 40 && std::fabs(l.median - mid) >= 0.25 * range && l.dark() != dark)
                return true;
        }
    return false;
}

double blobSpacing(const std::vector<cv::Point2f>& centroids) {
    const size_t n = centroids.size();
    if (n < 2) return 0.0;
    std::vector<double> nearest = nearestDistances(centroids);
    std::nth_element(nearest.begin(), nearest.begin() + n / 2, nearest.end());
    return nearest[n / 2];
}

cv::Point padForTurn(const Region& region) {
    const cv::Size crop = region.rect.size();
    const cv::Point2f centre(crop.width * 0.5f, crop.height * 0.5f);
    std::vector<cv::Point2f> dots;
    double reach = 0.0;
    for (size_t i = 0; i < region.labels.size() && 2 * i + 1 < region.coords.size(); ++i) {
        if (region.label >= 0 && region.labels[i] != region.label) continue;
        const cv::Point2f p(region.coords[2 * i] - static_cast<float>(region.rect.x),
                            region.coords[2 * i + 1] - static_cast<float>(region.rect.y));
        dots.push_back(p);
        reach = std::max<double>(reach, std::hypot(p.x - centre.x, p.y - centre.y));
    }
    reach += blobSpacing(dots);
    return cv::Point(std::max(0, static_cast<int>(std::ceil(reach - centre.x))),
                     std::max(0, static_cast<int>(std::ceil(reach - centre.y))));
}

Preprocessed preprocess(ImageProcessPipeline& chain, const cv::Mat& image, double ratio) {
    Preprocessed out;
    out.input = image;
    out.status = chain.process(out.input, out.processed, out.binary, out.centroids, ratio);
    out.smallBlobs = std::move(chain.smallBlobs);
    out.fewBlobs = std::move(chain.fewBlobs);
    // The chain may hand back a view of a fixed crop of the image.
    if (!image.empty() && out.input.data != image.data) {
        cv::Size whole;
        cv::Point offset;
        out.input.locateROI(whole, offset);
        cv::Size wholeImage;
        cv::Point imageOffset;
        image.locateROI(wholeImage, imageOffset);
        out.preCrop = cv::Point2d(offset - imageOffset);
    }
    return out;
}

namespace {

// The k-th largest cluster's box, widened as ROI_Segment::cal_ROI widens the largest one.
cv::Rect rankedRegion(const Region& r, int clusters, int rank, int rows, int cols, int& label) {
    std::vector<std::pair<int, int>> sizes;  // (-count, label): largest first, then by label
    for (int l = 0; l < clusters; ++l)
        sizes.emplace_back(-static_cast<int>(std::count(r.labels.begin(), r.labels.end(), l)), l);
    std::sort(sizes.begin(), sizes.end());
    if (rank >= static_cast<int>(sizes.size()) || -sizes[rank].first < 8) return cv::Rect();
    label = sizes[rank].second;
    float minX = 1e30f, maxX = -1e30f, minY = 1e30f, maxY = -1e30f;
    for (size_t i = 0; i < r.labels.size(); ++i) {
        if (r.labels[i] != label) continue;
        minX = std::min(minX, r.coords[2 * i]);
        maxX = std::max(maxX, r.coords[2 * i]);
        minY = std::min(minY, r.coords[2 * i + 1]);
        maxY = std::max(maxY, r.coords[2 * i + 1]);
    }
    const int m = rows / 9;
    const int x = std::max(static_cast<int>(minX) - m, 0);
    const int y = std::max(static_cast<int>(minY) - m, 0);
    const int right = std::min(cols - 1, static_cast<int>(maxX) + m);
    const int bottom = std::min(rows - 1, static_cast<int>(maxY) + m);
    return cv::Rect(x, y, std::abs(right - x), std::abs(bottom - y));
}

}  // namespace

Clusters cluster(const Preprocessed& pre, float dc, bool fast) {
    Clusters out;
    try {
        const int n = static_cast<int>(pre.centroids.size());
        out.coords.assign(2 * static_cast<size_t>(n), 0.f);
        for (int i = 0; i < n; ++i) {
            out.coords[2 * i] = pre.centroids[i].x;
            out.coords[2 * i + 1] = pre.centroids[i].y;
        }
        out.rho.assign(n, 0.f);
        out.delta.assign(n, 0.f);
        out.nearest.assign(n, 0);
        out.labels.assign(n, -1);
        ROI_Segment segment(pre.processed.rows, pre.processed.cols, dc, n, 2);
        const int k = fast ? segment.cluster_densityPeaksM2(out.coords.data(), n, dc,
                                                            out.rho.data(), out.delta.data(),
                                                            out.nearest.data(), out.labels.data())
                           : segment.cluster_densityPeaks(out.coords.data(), n, 2, dc,
                                                          out.rho.data(), out.delta.data(),
                                                          out.nearest.data(), out.labels.data());
        out.count = std::max(k, 0);
    } catch (...) {
        out.status = -200;
        out.threw = true;
    }
    return out;
}

Region region(const Preprocessed& pre, const Clusters& clusters, int rank) {
    Region out;
    out.status = clusters.status;
    out.threw = clusters.threw;
    if (clusters.status < 0) return out;
    try {
        out.coords = clusters.coords;
        out.rho = clusters.rho;
        out.delta = clusters.delta;
        out.nearest = clusters.nearest;
        out.labels = clusters.labels;
        const int n = static_cast<int>(out.labels.size());
        const int k = clusters.count;
        out.clusters = k;
        ROI_Segment segment(pre.processed.rows, pre.processed.cols, 0.f, n, 2);
        if (k < 1) {
            out.rect = cv::Rect(0, 0, pre.processed.cols, pre.processed.rows);
            out.dots = n;
        } else if (rank > 0) {
            int label = -1;
            out.rect = rankedRegion(out, k, rank, pre.processed.rows, pre.processed.cols, label);
            if (out.rect.area() <= 0) {
                out.status = -200;
                return out;
            }
            for (int l : out.labels) out.dots += l == label ? 1 : 0;
            out.label = label;
        } else {
            out.rect = segment.cal_ROI(out.coords.data(), out.labels.data(), k);
            if (out.rect.area() <= 0) {
                out.status = -200;
                return out;
            }
            if (out.rect.x + out.rect.width >= pre.processed.cols ||
                out.rect.y + out.rect.height >= pre.processed.rows) {
                out.status = -201;
                return out;
            }
            const int label = segment.find_correct_cluster_label(out.labels.data(), n, k);
            out.label = label;
            for (int l : out.labels) out.dots += l == label ? 1 : 0;
        }
        // The angle search needs continuous buffers.
        out.grey = cv::Mat(pre.processed, out.rect).clone();
        out.binary = cv::Mat(pre.binary, out.rect).clone();
    } catch (...) {
        out.status = -200;
        out.threw = true;
    }
    return out;
}

Region region(const Preprocessed& pre, float dc, int rank) {
    return region(pre, cluster(pre, dc), rank);
}

int rankLabel(const Clusters& clusters, int rank) {
    if (clusters.count < 1) return rank == 0 ? -1 : -2;
    std::vector<std::pair<int, int>> sizes;  // (-count, label): largest first, then by label
    std::vector<int> counts(clusters.count, 0);
    for (int l : clusters.labels)
        if (l >= 0 && l < clusters.count) ++counts[l];
    for (int l = 0; l < clusters.count; ++l) sizes.emplace_back(-counts[l], l);
    std::sort(sizes.begin(), sizes.end());
    if (rank >= static_cast<int>(sizes.size()) || (rank > 0 && -sizes[rank].first < 8)) return -2;
    return sizes[rank].second;
}

std::vector<cv::Point2f> clusterDots(const Clusters& clusters, int label) {
    std::vector<cv::Point2f> dots;
    for (size_t i = 0; i < clusters.labels.size() && 2 * i + 1 < clusters.coords.size(); ++i)
        if (label == -1 || clusters.labels[i] == label)
            dots.emplace_back(clusters.coords[2 * i], clusters.coords[2 * i + 1]);
    return dots;
}

Angle angle(Region& region, bool legacy, bool onlineReg, SystemPara* para) {
    Angle out;
    out.scores = cv::Mat::zeros(1, 180, CV_32F);
    out.peaks = cv::Mat::zeros(180, 20, CV_32F);
    if (legacy) {
        cv::GaussianBlur(region.grey, region.grey, cv::Size(3, 3), 0, 0);
        out.degrees = rotationAngleCal_C(region.grey, out.scores, out.peaks, para);
        if (onlineReg) out.degrees = 90;
        if (out.degrees < 0) out.status = out.degrees;
    } else {
        PatternRotationCalculation search;
        const int near = region.window > 0.0
                             ? search.rotationAngleNear(region.binary, out.scores, out.peaks,
                                                        region.upright, region.window)
                             : -1;
        if (near >= 0) {
            out.degrees = near;
        } else {
            out.scores.setTo(0);
            out.peaks.setTo(0);
            out.degrees = search.rotationAngleCal(region.binary, out.scores, out.peaks);
        }
    }
    if (out.status == 0 && out.degrees >= 0 && out.degrees < out.scores.cols)
        out.score = out.scores.at<float>(0, out.degrees);
    return out;
}

Spacing spacing(const Angle& angle) {
    Spacing out;
    gapCalculation calc;
    out.gap = calc.gap_cal_M2(angle.scores, angle.peaks);
    if (!(out.gap > 0.f)) {
        const int code = static_cast<int>(out.gap);
        out.status = (code == -311 || code == -312 || code == -313) ? code : -313;
    }
    return out;
}

Centre centre(startPoint_cal& finder, float gap, const cv::Mat& binaryUpright) {
    Centre out;
    out.gap = gap;
    cv::Mat templ;
    const int r = finder.findStartPoint_NCC(out.gap, binaryUpright, templ, out.point, 0.0);
    out.correlation = finder.bestCorrelation;
    if (r == -314 && out.correlation > 0.0) out.weak = finder.weakCentre;
    if (r < 0) out.status = r;
    return out;
}

Decoded decode(cv::Mat& greyUpright, const cv::Mat& binaryUpright, float gap, cv::Point centre,
               int layer, bool quality, SystemPara* para, const std::string& imgName) {
    Decoded out;
    Hexagon_Dots_tracking tracker(para, static_cast<double>(gap), centre.x, centre.y, layer, 255.0);
    tracker.imgName = imgName;
    const int r = tracker.Run(greyUpright, binaryUpright, out.bits, out.boxes, quality);
    if (r < 0) {
        out.status = r;
        return out;
    }
    out.orientation = r;

    // The evidence behind each bit: how much of its box the (now binary) image fills.
    const int radius = static_cast<int>(tracker.setBoxRadius(tracker.gap));
    out.boxSide = 2 * radius + 1;
    out.fillThreshold = static_cast<double>(out.boxSide) * out.boxSide * tracker.boxRatio;
    cv::Mat grid;
    tracker.pointGenerator->angle = 60.0 * r;
    tracker.pointGenerator->Run(grid);
    const int n = std::min(grid.rows, out.bits.cols);
    for (int i = 0; i < n; ++i) {
        const double row = grid.at<double>(i, 0), col = grid.at<double>(i, 1);
        out.points.emplace_back(col, row);
        out.ideal.emplace_back(col, row);
        out.fill.push_back(static_cast<int>(std::min<long long>(
            tracker.countForeground(greyUpright, truncSaturated(row), truncSaturated(col), radius),
            0x7fffffff)));
    }
    double on = 0.0, off = 0.0;
    for (int i : qbcode::markerOnPositions())
        on += i < out.bits.cols ? out.bits.at<double>(0, i) : 0.0;
    for (int i : qbcode::markerOffPositions())
        off += i < out.bits.cols ? out.bits.at<double>(0, i) : 0.0;
    out.markerRatio = on / (off == 0.0 ? 1.0 : off);
    return out;
}

std::vector<cv::Point2d> centroidsIn(const Preprocessed& pre, const FrameChain& frames,
                                     int downsampled, int frame) {
    std::vector<cv::Point2d> out;
    out.reserve(pre.centroids.size());
    for (const cv::Point2f& c : pre.centroids)
        out.push_back(frames.map(cv::Point2d(c.x, c.y), downsampled, frame));
    return out;
}

cv::Rect mergedDots(const Preprocessed& pre) {
    const std::vector<cv::Rect>& boxes = pre.fewBlobs;
    const size_t n = boxes.size();
    if (n < 8 || pre.processed.empty() || pre.input.empty()) return cv::Rect();
    std::vector<double> sizes;
    for (const cv::Rect& b : boxes) sizes.push_back(std::max(b.width, b.height));
    // Merged dots of one code lie within a few blob sizes of each other (the upper quartile
    // passes over specks); where few survive the filter, within a few of the smallest
    // spacing's dots.
    std::nth_element(sizes.begin(), sizes.begin() + 3 * n / 4, sizes.end());
    const double size = std::max(sizes[3 * n / 4], 2.0), reach = std::max(3.0 * size, 16.0);
    std::vector<int> group(n, -1);
    int best = -1;
    size_t bestSize = 0;
    for (size_t s = 0; s < n; ++s) {
        if (group[s] >= 0) continue;
        std::vector<size_t> todo{s};
        group[s] = static_cast<int>(s);
        size_t members = 0;
        while (!todo.empty()) {
            const size_t i = todo.back();
            todo.pop_back();
            ++members;
            const cv::Point2d a = (boxes[i].tl() + boxes[i].br()) * 0.5;
            for (size_t j = 0; j < n; ++j) {
                if (group[j] >= 0) continue;
                const cv::Point2d b = (boxes[j].tl() + boxes[j].br()) * 0.5;
                if (cv::norm(a - b) <= reach) {
                    group[j] = static_cast<int>(s);
                    todo.push_back(j);
                }
            }
        }
        if (members > bestSize) {
            bestSize = members;
            best = static_cast<int>(s);
        }
    }
    if (bestSize < 8) return cv::Rect();
    cv::Rect all;
    for (size_t i = 0; i < n; ++i)
        if (group[i] == best) all = all.empty() ? boxes[i] : (all | boxes[i]);
    const double sx = static_cast<double>(pre.input.cols) / pre.processed.cols;
    const double sy = static_cast<double>(pre.input.rows) / pre.processed.rows;
    // Room for the region's own margin about the dots (22 px at full resolution) and a dot.
    const double margin = 32.0;
    const cv::Point2d tl((all.x - size) * sx - margin, (all.y - size) * sy - margin);
    const cv::Point2d br((all.br().x + size) * sx + margin, (all.br().y + size) * sy + margin);
    cv::Rect out(cv::Point(cvFloor(tl.x + pre.preCrop.x), cvFloor(tl.y + pre.preCrop.y)),
                 cv::Point(cvCeil(br.x + pre.preCrop.x), cvCeil(br.y + pre.preCrop.y)));
    out &= cv::Rect(cv::Point(cvRound(pre.preCrop.x), cvRound(pre.preCrop.y)), pre.input.size());
    if (4.0 * out.area() > static_cast<double>(pre.input.total())) return cv::Rect();
    return out;
}

std::vector<cv::Point2f> centresOfDots(const std::vector<cv::Point2f>& dots, double spacing,
                                       size_t count) {
    if (dots.size() < 7 || !(spacing > 0.0)) return {};
    std::vector<cv::Point2f> hull;
    cv::convexHull(dots, hull);
    const cv::Moments m = cv::moments(hull);
    // A five-ring hexagon of centres spans 65 spacings squared; a tilt stretches it along the
    // direction the nearest-neighbour spacing does not measure. Larger: more than one code.
    if (!(m.m00 > 0.0) || m.m00 > 1.6 * 65.0 * spacing * spacing) return {};
    const cv::Point2f middle(static_cast<float>(m.m10 / m.m00), static_cast<float>(m.m01 / m.m00));
    std::vector<cv::Point2f> out = dots;
    // Ties by position, so that the order does not depend on the dots' order.
    std::sort(out.begin(), out.end(), [&](const cv::Point2f& a, const cv::Point2f& b) {
        const double da = cv::norm(a - middle), db = cv::norm(b - middle);
        return da != db ? da < db : a.x != b.x ? a.x < b.x : a.y < b.y;
    });
    out.resize(std::min(count, out.size()));
    return out;
}

Decoded refine(const cv::Mat& greyUpright, const std::vector<cv::Point2d>& centroids, float gap,
               cv::Point centre, int layer, SystemPara* para, int reach) {
    Decoded out;
    out.status = -500;
    Hexagon_Dots_tracking tracker(para, static_cast<double>(gap), centre.x, centre.y, layer, 255.0);
    if (tracker.Dots_tracking::Initiate() < 0) return out;
    tracker.Initiate();
    Grid_refinement::Input in;
    for (int k = 0; k < 6; ++k) {
        cv::Mat grid;
        tracker.pointGenerator->angle = 60.0 * k;
        tracker.pointGenerator->Run(grid);
        if (grid.type() != CV_64FC1 || grid.cols < 2) return out;
        for (int i = 0; i < grid.rows; ++i)
            in.grids[k].emplace_back(grid.at<double>(i, 1), grid.at<double>(i, 0));
    }
    in.layer = layer;
    in.spacing = gap;
    in.centroids = centroids;
    // The tracker's binarisation, on a copy: the caller's image may already be binary.
    if (!greyUpright.empty() && greyUpright.type() == CV_8UC1)
        cv::threshold(greyUpright, in.binary, 60.0, 255.0, cv::THRESH_BINARY);
    Grid_refinement refinement;
    refinement.centreReach = reach;
    Grid_refinement::Output fitted;
    if (!refinement.Run(in, tracker, fitted)) return out;

    const int n = static_cast<int>(fitted.points.size());
    out.status = 0;
    out.orientation = fitted.orientation;
    out.bits = cv::Mat::zeros(1, n, CV_64F);
    out.boxes = cv::Mat::zeros(n, 4, CV_64F);
    for (int i = 0; i < n; ++i) {
        out.bits.at<double>(0, i) = fitted.bits[i];
        const cv::Point2d& p = fitted.points[i];
        const double r = (fitted.sides[i] - 1) / 2.0;
        double* b = out.boxes.ptr<double>(i);
        b[0] = p.x - r;
        b[1] = p.y - r;
        b[2] = p.x + r;
        b[3] = p.y + r;
    }
    out.points = fitted.points;
    out.ideal = in.grids[fitted.orientation];
    out.fill = fitted.fill;
    out.sides = fitted.sides;
    out.boxSide = n > 0 ? fitted.sides[0] : 0;
    out.fillThreshold = static_cast<double>(out.boxSide) * out.boxSide * tracker.boxRatio;
    out.markerRatio = 6.0;  // every marker fits, or no fit is returned
    return out;
}

namespace {

// The positions as fitted to the detected dots, each moved further by the mean offset of the
// detected dots around it from their positions: a tilted print bends the grid where one affine
// fit cannot follow.
std::vector<cv::Point2d> followDots(const std::vector<cv::Point2d>& grid,
                                    const std::vector<int>& bits,
                                    const std::vector<cv::Point2d>& centroids,
                                    const Grid_verification::Checks& checks, double gap) {
    const cv::Matx23d fit = checks.fitted ? checks.fit : cv::Matx23d(1, 0, 0, 0, 1, 0);
    std::vector<cv::Point2d> placed;
    for (const cv::Point2d& p : grid) placed.push_back(gridmatch::apply(fit, p));
    // Matched from where the last pass put the positions, so a bend larger than the match
    // radius is followed step by step.
    const double match2 = 0.33 * 0.33 * gap * gap, reach2 = 1.6 * 1.6 * gap * gap;
    std::vector<cv::Point2d> out = placed;
    for (int pass = 0; pass < 3; ++pass) {
        std::vector<std::pair<cv::Point2d, cv::Point2d>> offsets;  // (position, dot - position)
        for (size_t i = 0; i < placed.size() && i < bits.size(); ++i) {
            if (!bits[i]) continue;
            const int j = gridmatch::nearestOf(out[i], centroids);
            if (j >= 0 && gridmatch::dist2(centroids[j], out[i]) <= match2)
                offsets.emplace_back(placed[i], centroids[j] - placed[i]);
        }
        for (size_t i = 0; i < placed.size(); ++i) {
            cv::Point2d sum(0, 0);
            int count = 0;
            for (const auto& [at, offset] : offsets)
                if (gridmatch::dist2(at, placed[i]) <= reach2) {
                    sum += offset;
                    ++count;
                }
            out[i] = count > 0 ? placed[i] + sum / count : placed[i];
        }
    }
    return out;
}

}  // namespace

Verified verify(const Decoded& decoded, const Preprocessed& pre, const FrameChain& frames,
                int downsampled, int regionFrame, int uprightFrame, cv::Size regionSize, float gap,
                bool camera, float frameMargin, const Grid_verification& verification) {
    Verified out;
    Grid_verification::Input in;
    in.grid = decoded.points;
    in.bits.reserve(static_cast<size_t>(decoded.bits.cols));
    for (int i = 0; i < decoded.bits.cols; ++i)
        in.bits.push_back(decoded.bits.at<double>(0, i) > 0.5 ? 1 : 0);
    in.fill = decoded.fill;
    in.boxSide = decoded.boxSide;
    in.sides = decoded.sides;
    in.fillThreshold = decoded.fillThreshold;
    in.spacing = gap;
    in.keptSize = regionSize;
    if (camera) {
        const cv::Rect2d whole = pre.whole.empty()
                                     ? cv::Rect2d(0, 0, pre.processed.cols, pre.processed.rows)
                                     : pre.whole;
        const cv::Point2d o = frames.map(whole.tl(), downsampled, regionFrame);
        in.frame = cv::Rect2d(o.x, o.y, whole.width, whole.height);
        in.frameMargin = frameMargin;
    }
    // The turn is affine: three points fix it.
    const cv::Point2d o = frames.map({0, 0}, uprightFrame, regionFrame);
    const cv::Point2d ex = frames.map({1, 0}, uprightFrame, regionFrame) - o;
    const cv::Point2d ey = frames.map({0, 1}, uprightFrame, regionFrame) - o;
    in.toKept = cv::Matx23d(ex.x, ey.x, o.x, ex.y, ey.y, o.y);
    in.centroids = centroidsIn(pre, frames, downsampled, uprightFrame);
    for (const cv::Point2f& c : pre.smallBlobs)
        in.smallBlobs.push_back(frames.map(cv::Point2d(c.x, c.y), downsampled, uprightFrame));
    out.status = verification.Run(in, out.checks);
    // Grey levels from the frame the chain read (frame 1, after the fixed pre-crop), at full
    // resolution (the downsampled frame has lost the levels of small dots), at the positions as
    // fitted to the detected dots.
    confidence::Input levels;
    levels.grey = pre.input;
    levels.bits = in.bits;
    levels.spacing = gap * frames.scaleToInput(uprightFrame);
    levels.smoothLight = verification.smoothLight;
    for (const cv::Point2d& p : followDots(decoded.points, in.bits, in.centroids, out.checks, gap))
        levels.points.push_back(frames.map(p, uprightFrame, 1));
    out.confidence = confidence::measure(levels);
    if (out.status == 0) out.status = verification.Judge(out.confidence);
    out.enabled = verification.enabled != 0;
    return out;
}

}  // namespace stages
