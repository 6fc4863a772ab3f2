// Region of interest: density-peak clustering of dot centroids and the widened box.
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "ROI_Segment.h"
#include "qbcode_render.h"

namespace {

struct Clustering {
    std::vector<float> rho, delta;
    std::vector<int> nneigh, labels;
    int clusters = 0;
};

Clustering cluster(ROI_Segment& seg, std::vector<float>& pts) {
    const int n = static_cast<int>(pts.size() / 2);
    Clustering c;
    c.rho.assign(n, 0.f);
    c.delta.assign(n, 0.f);
    c.nneigh.assign(n, 0);
    c.labels.assign(n, -1);
    c.clusters = seg.cluster_densityPeaks(pts.data(), n, 2, seg.dc, c.rho.data(), c.delta.data(),
                                          c.nneigh.data(), c.labels.data());
    return c;
}

}  // namespace

class RoiSegment : public ::testing::Test {
protected:
    // A five-ring code of 91 dots around (row 150, col 200) in a 288 x 384 image.
    std::vector<float> codePoints() const {
        std::vector<float> pts;
        for (const auto& o : qbrender::gridOffsets(5, 13.0, 20.0)) {
            pts.push_back(static_cast<float>(200 + o.y));
            pts.push_back(static_cast<float>(150 + o.x));
        }
        return pts;
    }
    ROI_Segment seg{288, 384, 72.f, 0, 2};
};

TEST_F(RoiSegment, DenseCodeWinsOverScatteredClutter) {
    std::vector<float> pts = codePoints();
    const int codeCount = static_cast<int>(pts.size() / 2);
    // Clutter in the corners, far from the code and from each other.
    const float clutter[][2] = {{5, 5},    {380, 3},  {370, 280}, {10, 270},  {60, 20},
                                {330, 40}, {20, 140}, {378, 150}, {340, 260}, {100, 282}};
    for (const auto& p : clutter) {
        pts.push_back(p[0]);
        pts.push_back(p[1]);
    }
    seg.dataNum = static_cast<int>(pts.size() / 2);
    Clustering c = cluster(seg, pts);
    ASSERT_GE(c.clusters, 1);
    const int label = seg.find_correct_cluster_label(c.labels.data(), seg.dataNum, c.clusters);
    for (int i = 0; i < codeCount; ++i) EXPECT_EQ(c.labels[i], label) << "code dot " << i;
    for (int i = codeCount; i < seg.dataNum; ++i) EXPECT_NE(c.labels[i], label) << "clutter " << i;

    const cv::Rect roi = seg.cal_ROI(pts.data(), c.labels.data(), c.clusters);
    float minX = 1e9f, maxX = -1e9f, minY = 1e9f, maxY = -1e9f;
    for (int i = 0; i < codeCount; ++i) {
        minX = std::min(minX, pts[2 * i]);
        maxX = std::max(maxX, pts[2 * i]);
        minY = std::min(minY, pts[2 * i + 1]);
        maxY = std::max(maxY, pts[2 * i + 1]);
    }
    const int m = 288 / 9;
    EXPECT_EQ(roi.x, static_cast<int>(minX) - m);
    EXPECT_EQ(roi.y, static_cast<int>(minY) - m);
    EXPECT_EQ(roi.x + roi.width, static_cast<int>(maxX) + m);
    EXPECT_EQ(roi.y + roi.height, static_cast<int>(maxY) + m);
}

// Too few points, or points all equally dense, give no cluster.
class RoiNoCluster : public RoiSegment, public ::testing::WithParamInterface<std::vector<float>> {};

TEST_P(RoiNoCluster, ReturnsZeroClusters) {
    std::vector<float> pts = GetParam();
    seg.dataNum = static_cast<int>(pts.size() / 2);
    Clustering c = cluster(seg, pts);
    EXPECT_EQ(c.clusters, 0);
    for (int l : c.labels) EXPECT_EQ(l, -1);
    for (int nb : c.nneigh) EXPECT_EQ(nb, -1);
}

INSTANTIATE_TEST_SUITE_P(Degenerate, RoiNoCluster,
                         ::testing::Values(std::vector<float>{}, std::vector<float>{3, 4},
                                           std::vector<float>{0, 0, 10, 0}));

// The region needs eight members; it is widened by rows / 9 and clipped short of the last
// row and column.
TEST_F(RoiSegment, SevenMembersGiveNothingEightGiveAClippedBox) {
    std::vector<float> pts;
    for (int i = 0; i < 8; ++i) {
        pts.push_back(370.f + (i % 4));  // x near the right border
        pts.push_back(2.5f + i);         // y near the top
    }
    std::vector<int> labels(8, 0);
    labels[7] = -1;
    seg.dataNum = 8;
    EXPECT_EQ(seg.cal_ROI(pts.data(), labels.data(), 1), cv::Rect());
    labels[7] = 0;
    const cv::Rect roi = seg.cal_ROI(pts.data(), labels.data(), 1);
    EXPECT_EQ(roi.x, 370 - 32);
    EXPECT_EQ(roi.y, 0);
    EXPECT_EQ(roi.width, 383 - roi.x);  // right clamps at cols - 1, width is right - x
    EXPECT_EQ(roi.height, 9 + 32);
}

TEST_F(RoiSegment, LargestClusterWinsAndTiesGoToTheLowerLabel) {
    const std::vector<int> labels = {2, 1, 1, 2, -1, 0, 7, 2, 1};
    std::vector<int> l = labels;
    EXPECT_EQ(seg.find_correct_cluster_label(l.data(), 9, 3), 1);  // labels 1 and 2 tie at 3
    l[0] = 0;
    l[3] = 0;
    EXPECT_EQ(seg.find_correct_cluster_label(l.data(), 9, 3), 0);  // 0 and 1 tie
    EXPECT_EQ(seg.find_correct_cluster_label(l.data(), 9, 0), 0);
}

TEST_F(RoiSegment, SortIsDescendingAndKeepsEqualValuesInIndexOrder) {
    std::vector<float> v = {1.f, 3.f, 2.f, 3.f, 1.f};
    std::vector<int> order;
    seg.sort(v, order, 5);
    EXPECT_EQ(v, (std::vector<float>{3.f, 3.f, 2.f, 1.f, 1.f}));
    EXPECT_EQ(order, (std::vector<int>{1, 3, 2, 0, 4}));
}

// Thresholds are strict: rho of exactly 8 does not join, and a sparse far point gets its own
// label.
TEST_F(RoiSegment, AssignmentThresholds) {
    // 0: centre; 1: rho exactly 8; 2: rho just above 8, joins through 4; 3: sparse and far;
    // 4: dense, joins the centre; 5..9: too sparse to join anything.
    std::vector<float> rho = {20.f, 8.0f, 8.001f, 0.5f, 9.f, 5.f, 5.f, 5.f, 5.f, 5.f};
    std::vector<float> delta = {100.f, 1.f, 1.f, 50.f, 1.f, 1.f, 1.f, 1.f, 1.f, 1.f};
    std::vector<int> nneigh = {-1, 0, 4, 0, 0, 0, 0, 0, 0, 0};
    std::vector<int> labels(10, -1);
    float sumRho = 0, sumDelta = 0;
    for (int i = 0; i < 10; ++i) {
        sumRho += rho[i];
        sumDelta += delta[i];
    }
    const int k = seg.assignment(rho.data(), delta.data(), nneigh.data(), labels.data(), 10, sumRho,
                                 sumDelta);
    EXPECT_EQ(k, 2);
    EXPECT_EQ(labels, (std::vector<int>{0, -1, 0, 1, 0, -1, -1, -1, -1, -1}));
}

TEST_F(RoiSegment, EquallyNearDenserNeighboursResolveToTheHighestIndex) {
    // Point 0 in the middle, 1 and 2 equally far on either side, both denser.
    const std::vector<std::vector<float>> rows = {{0, 0}, {-1, 0}, {1, 0}};
    const std::vector<std::vector<float>> dist = {{0, 1, 1}, {1, 0, 2}, {1, 2, 0}};
    const std::vector<float> rho = {1.f, 2.f, 2.f};
    std::vector<float> delta(3);
    std::vector<int> nneigh(3);
    seg.getDistanceToHigherDensity(rows, dist, rho, delta, nneigh, 2.f);
    EXPECT_EQ(nneigh, (std::vector<int>{2, -1, -1}));
    EXPECT_EQ(delta, (std::vector<float>{1.f, 2.f, 2.f}));
}

TEST_F(RoiSegment, NullArraysAndFarOutCoordinatesAreHarmless) {
    EXPECT_EQ(seg.cluster_densityPeaks(nullptr, 5, 2, 72.f, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(seg.cal_ROI(nullptr, nullptr, 3), cv::Rect());
    std::vector<float> pts;
    for (int i = 0; i < 8; ++i) {
        pts.push_back(i % 2 ? 1e30f : -1e30f);
        pts.push_back(i % 3 ? 3e9f : -3e9f);
    }
    std::vector<int> labels(8, 0);
    seg.dataNum = 8;
    const cv::Rect roi = seg.cal_ROI(pts.data(), labels.data(), 1);
    EXPECT_EQ(roi, cv::Rect(0, 0, 383, 287));
}
