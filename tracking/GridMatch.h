// Matching a hexagon grid to detected dots and fitting the map between them; the verification
// and the refinement judge and move grids with the same tools, so they agree on what a match is.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace gridmatch {

double dist2(const cv::Point2d& a, const cv::Point2d& b);

// Index of the point of `set` nearest to p (the first of equals), or -1 for an empty set or one
// with no finite distance.
int nearestOf(const cv::Point2d& p, const std::vector<cv::Point2d>& set);

// The dot matched to positions[i]: its nearest dot when that lies within the radius and has no
// position nearer than positions[i]; -1 otherwise.
int mutualNearest(const std::vector<cv::Point2d>& positions, int i,
                  const std::vector<cv::Point2d>& dots, double radius);

// The dots bucketed in square cells, for a refinement that matches many grids to one set of dots:
// the nearest dot within a radius without a scan of every dot.
class DotIndex {
public:
    // The dots must outlive the index.
    DotIndex(const std::vector<cv::Point2d>& dots, double cell);
    // nearestOf(p, dots) when that dot lies within the radius (dist2 <= radius * radius), else -1.
    int nearestWithin(const cv::Point2d& p, double radius) const;
    const std::vector<cv::Point2d>& points() const { return dots; }

private:
    const std::vector<cv::Point2d>& dots;
    double cell = 0.0;
    cv::Point2d origin;
    int cols = 0, rows = 0;
    std::vector<int> first, members;  // cell k holds members[first[k] .. first[k + 1])
};

// mutualNearest with the dots of an index: the same match.
int mutualNearest(const std::vector<cv::Point2d>& positions, int i, const DotIndex& dots,
                  double radius);

cv::Point2d apply(const cv::Matx23d& m, const cv::Point2d& p);
cv::Point2d apply(const cv::Matx33d& h, const cv::Point2d& p);
cv::Matx33d fromAffine(const cv::Matx23d& a);

// Least-squares affine map from -> to; false when the points do not fix one.
bool fitAffine(const std::vector<cv::Point2d>& from, const std::vector<cv::Point2d>& to,
               cv::Matx23d& fit);
// Least-squares homography from -> to (at least four points); false when degenerate.
bool fitHomography(const std::vector<cv::Point2d>& from, const std::vector<cv::Point2d>& to,
                   cv::Matx33d& h);

}  // namespace gridmatch
