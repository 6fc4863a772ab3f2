#include "overlay.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "qbcode_render.h"
#include "result_format.h"

namespace cli {
namespace {

constexpr int kShift = 4;  // sub-pixel drawing
cv::Point at(const cv::Point2d& p) {
    return cv::Point(cvRound(p.x * (1 << kShift)), cvRound(p.y * (1 << kShift)));
}
cv::Point2d pt(const qbcode::Point& p) {
    return {p.x, p.y};
}

// From red at 0 to `sure` at 1.
cv::Scalar blend(double confidence, const cv::Scalar& sure) {
    const cv::Scalar red(40, 40, 235);
    const double c = std::clamp(confidence, 0.0, 1.0);
    return red * (1.0 - c) + sure * c;
}

void label(cv::Mat& bgr, const std::string& text, cv::Point origin, const cv::Scalar& colour) {
    int base = 0;
    const double scale = 0.45;
    const cv::Size size = cv::getTextSize(text, cv::FONT_HERSHEY_SIMPLEX, scale, 1, &base);
    origin.x = std::clamp(origin.x, 0, std::max(0, bgr.cols - size.width));
    origin.y = std::clamp(origin.y, size.height + 2, std::max(size.height + 2, bgr.rows - base));
    cv::rectangle(bgr, origin + cv::Point(-1, base),
                  origin + cv::Point(size.width, -size.height - 2), cv::Scalar(0, 0, 0),
                  cv::FILLED);
    cv::putText(bgr, text, origin, cv::FONT_HERSHEY_SIMPLEX, scale, colour, 1, cv::LINE_AA);
}

}  // namespace

std::vector<cv::Point2d> gridPositions(const qbcode::Result& q) {
    const int layers = qbrender::layersForPositions(q.bits.size());
    if (layers < 1 || q.spacing <= 0) return {};
    // The renderer's offsets are (row, column); the read's upright turn is angle plus the
    // orientation's sixths.
    const std::vector<cv::Point2d> off =
        qbrender::gridOffsets(layers, 1.0, q.angle + 60.0 * q.orientation);
    std::vector<cv::Point2d> from{{0, 0}}, to{{q.centre.x, q.centre.y}};
    for (const qbcode::Point& corner : q.corners) {
        // The outer-ring offset that, scaled by the spacing, lands nearest this corner.
        size_t best = 0;
        double bestDist = 1e300;
        for (size_t i = 0; i < off.size(); ++i) {
            const double dx = q.centre.x + off[i].y * q.spacing - corner.x;
            const double dy = q.centre.y + off[i].x * q.spacing - corner.y;
            if (dx * dx + dy * dy < bestDist) bestDist = dx * dx + dy * dy, best = i;
        }
        from.emplace_back(off[best].y, off[best].x);
        to.emplace_back(corner.x, corner.y);
    }
    // Least squares over the centre and the corners: [x y 1] * M = image point.
    cv::Mat x(static_cast<int>(from.size()), 3, CV_64F), y(x.rows, 2, CV_64F), m;
    for (int i = 0; i < x.rows; ++i) {
        x.at<double>(i, 0) = from[i].x, x.at<double>(i, 1) = from[i].y, x.at<double>(i, 2) = 1;
        y.at<double>(i, 0) = to[i].x, y.at<double>(i, 1) = to[i].y;
    }
    cv::Mat affine = cv::solve(x, y, m, cv::DECOMP_SVD) ? cv::Mat(m.t())
                                                        : (cv::Mat_<double>(2, 3) << q.spacing, 0,
                                                           q.centre.x, 0, q.spacing, q.centre.y);
    std::vector<cv::Point2d> in, out;
    for (const cv::Point2d& o : off) in.emplace_back(o.y, o.x);
    cv::transform(in, out, affine);
    return out;
}

// The read's own confidence per position where it has one; else the box fill against the
// decision threshold.
std::vector<double> positionConfidence(const qbcode::Result& q) {
    if (q.confidence.size() == q.bits.size()) {
        std::vector<double> c;
        for (double v : q.confidence) c.push_back(std::clamp(v, 0.0, 1.0));
        return c;
    }
    const qbcode::Evidence& e = q.evidence;
    std::vector<double> c(q.bits.size(), 1.0);
    if (e.fill.size() != q.bits.size() || e.fillThreshold <= 0) return c;
    for (size_t i = 0; i < c.size(); ++i)
        c[i] = std::min(1.0, std::abs(e.fill[i] - e.fillThreshold) / e.fillThreshold);
    return c;
}

void drawReads(cv::Mat& bgr, const std::vector<qbcode::Result>& reads) {
    bool any = false;
    for (const qbcode::Result& q : reads) {
        if (!q.valid()) continue;
        any = true;
        cv::rectangle(bgr, cv::Rect(q.box[0], q.box[1], q.box[2], q.box[3]),
                      cv::Scalar(0, 200, 255), 1);
        const std::vector<cv::Point2d> grid = gridPositions(q);
        const std::vector<double> sure = positionConfidence(q);
        const int r = std::max(2, cvRound(q.spacing / 4)) << kShift;
        for (size_t i = 0; i < grid.size(); ++i) {
            const bool one = q.bits[i] != 0;
            const cv::Scalar colour =
                blend(sure[i], one ? cv::Scalar(60, 220, 60) : cv::Scalar(235, 150, 40));
            cv::circle(bgr, at(grid[i]), r, colour, one ? cv::FILLED : 1, cv::LINE_AA, kShift);
        }
        const cv::Point2d centre = pt(q.centre);
        cv::circle(bgr, at(centre), r + (2 << kShift), cv::Scalar(0, 0, 255), 2, cv::LINE_AA,
                   kShift);
        if (grid.size() > 1)
            cv::arrowedLine(bgr, at(centre), at(grid[1]), cv::Scalar(0, 255, 255), 2, cv::LINE_AA,
                            kShift, 0.3);
        char text[96];
        std::snprintf(text, sizeof text, "ok %s  o%d %.0f deg", payloadHex(q.bits).c_str(),
                      q.orientation, q.angle);
        label(bgr, text, cv::Point(q.box[0], q.box[1] - 4), cv::Scalar(255, 255, 255));
    }
    if (!any) {
        const std::string why = reads.empty() ? std::string()
                                              : ": " + std::to_string(reads.front().status) + " " +
                                                    reads.front().statusName();
        label(bgr, "no code" + why, cv::Point(4, 16), cv::Scalar(80, 80, 255));
    }
}

void drawGrade(cv::Mat& bgr, const qbcode::GradeResult& g, const qbcode::Result& read) {
    const bool placed = read.valid() && read.bits == g.bits;
    const std::vector<cv::Point2d> grid = placed ? gridPositions(read) : std::vector<cv::Point2d>();
    const double gap = read.spacing;
    const int r = std::max(3, cvRound(gap / 3)) << kShift;
    std::vector<int> shared;
    for (const qbcode::DotGrade& d : g.dots)
        if (d.label >= 0) shared.push_back(d.label);
    std::sort(shared.begin(), shared.end());
    for (const qbcode::DotGrade& d : g.dots) {
        if (d.position < 0 || static_cast<size_t>(d.position) >= grid.size()) continue;
        const cv::Point2d p = grid[static_cast<size_t>(d.position)];
        if (!d.found) {
            if (d.bit == 0) continue;  // a blank position is as it should be
            const double s = gap / 5;
            cv::line(bgr, at(p + cv::Point2d(-s, -s)), at(p + cv::Point2d(s, s)),
                     cv::Scalar(40, 40, 235), 2, cv::LINE_AA, kShift);
            cv::line(bgr, at(p + cv::Point2d(-s, s)), at(p + cv::Point2d(s, -s)),
                     cv::Scalar(40, 40, 235), 2, cv::LINE_AA, kShift);
            continue;
        }
        const bool merged = std::count(shared.begin(), shared.end(), d.label) > 1;
        const double centred = g.gap > 0 ? 1.0 - std::min(1.0, 2.0 * d.offset / g.gap) : 1.0;
        const cv::Scalar colour = merged ? cv::Scalar(220, 60, 220)
                                         : blend(d.roundness * centred, cv::Scalar(60, 220, 60));
        cv::circle(bgr, at(p), r, colour, 2, cv::LINE_AA, kShift);
    }
    char text[96];
    if (g.status == 0)
        std::snprintf(text, sizeof text, "%.1f / %.0f %s", g.total, g.maxTotal,
                      qbcode::gradeRating(g.total, g.maxTotal));
    else
        std::snprintf(text, sizeof text, "not graded: %d %s", g.status,
                      qbcode::gradeStatusName(g.status));
    label(bgr, text, cv::Point(4, 16), cv::Scalar(255, 255, 255));
}

cv::Mat colourCopy(const cv::Mat& grey) {
    cv::Mat out;
    cv::cvtColor(grey, out, cv::COLOR_GRAY2BGR);
    return out;
}

bool writePicture(const std::string& path, const cv::Mat& bgr) {
    try {
        return cv::imwrite(path, bgr);
    } catch (const cv::Exception&) {
        return false;
    }
}

}  // namespace cli
