// Region of interest: density-peak clustering of dot centroids and the widened box.
#include <numeric>
#include <vector>

#include <gtest/gtest.h>

#include "ROI_Segment.h"
#include "qbcode_render.h"
#include "test_support.h"

class RoiSegment : public ::testing::Test {
protected:
    ROI_Segment seg{288, 384, 72.f, 0, 2};
    std::vector<float> rho, delta;
    std::vector<int> nneigh, labels;

    int cluster(std::vector<float>& pts) {
        const int n = seg.dataNum = static_cast<int>(pts.size() / 2);
        rho.assign(n, 0.f);
        delta.assign(n, 0.f);
        nneigh.assign(n, 0);
        labels.assign(n, -1);
        return seg.cluster_densityPeaks(pts.data(), n, 2, seg.dc, rho.data(), delta.data(),
                                        nneigh.data(), labels.data());
    }
};

TEST_F(RoiSegment, DenseCodeWinsOverScatteredClutter) {
    // A five-ring code of 91 dots around (row 150, col 200), clutter in the corners far from
    // the code and from each other.
    std::vector<float> pts;
    for (const auto& o : qbrender::gridOffsets(5, 13.0, 20.0)) {
        pts.push_back(static_cast<float>(200 + o.y));
        pts.push_back(static_cast<float>(150 + o.x));
    }
    const int codeCount = static_cast<int>(pts.size() / 2);
    double lo[2], hi[2];
    for (int k = 0; k < 2; ++k)
        cv::minMaxIdx(cv::Mat(codeCount, 2, CV_32F, pts.data()).col(k), &lo[k], &hi[k]);
    pts.insert(pts.end(), {5,   5,  380, 3,   370, 280, 10,  270, 60,  20,
                           330, 40, 20,  140, 378, 150, 340, 260, 100, 282});
    const int clusters = cluster(pts);
    ASSERT_GE(clusters, 1);
    const int label = seg.find_correct_cluster_label(labels.data(), seg.dataNum, clusters);
    for (int i = 0; i < seg.dataNum; ++i) EXPECT_EQ(labels[i] == label, i < codeCount) << i;

    const cv::Rect roi = seg.cal_ROI(pts.data(), labels.data(), clusters);
    const int m = 288 / 9;
    EXPECT_EQ(roi.tl(), cv::Point(int(lo[0]) - m, int(lo[1]) - m));
    EXPECT_EQ(roi.br(), cv::Point(int(hi[0]) + m, int(hi[1]) + m));
}

// Too few points, or points all equally dense, give no cluster.
class RoiNoCluster : public RoiSegment, public ::testing::WithParamInterface<std::vector<float>> {};

TEST_P(RoiNoCluster, ReturnsZeroClusters) {
    std::vector<float> pts = GetParam();
    EXPECT_EQ(cluster(pts), 0);
    for (int l : labels) EXPECT_EQ(l, -1);
    for (int nb : nneigh) EXPECT_EQ(nb, -1);
}

INSTANTIATE_TEST_SUITE_P(Degenerate, RoiNoCluster,
                         ::testing::Values(std::vector<float>{}, std::vector<float>{3, 4},
                                           std::vector<float>{0, 0, 10, 0}),
                         [](const auto& i) {
                             return testsupport::label("points_%d",
                                                       static_cast<int>(i.param.size() / 2));
                         });

// The region needs eight members; it is widened by rows / 9 and clipped short of the last
// row and column. Null arrays and far-out coordinates are harmless.
TEST_F(RoiSegment, SevenMembersGiveNothingEightGiveAClippedBox) {
    std::vector<float> pts, far;
    for (int i = 0; i < 8; ++i) {
        pts.insert(pts.end(), {370.f + (i % 4), 2.5f + i});  // near the top right corner
        far.insert(far.end(), {i % 2 ? 1e30f : -1e30f, i % 3 ? 3e9f : -3e9f});
    }
    labels.assign(8, 0);
    labels[7] = -1;
    seg.dataNum = 8;
    EXPECT_EQ(seg.cal_ROI(pts.data(), labels.data(), 1), cv::Rect());
    labels[7] = 0;
    // Right clamps at cols - 1, width is right - x.
    EXPECT_EQ(seg.cal_ROI(pts.data(), labels.data(), 1), cv::Rect(370 - 32, 0, 383 - 338, 9 + 32));
    EXPECT_EQ(seg.cal_ROI(far.data(), labels.data(), 1), cv::Rect(0, 0, 383, 287));
    EXPECT_EQ(seg.cluster_densityPeaks(nullptr, 5, 2, 72.f, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(seg.cal_ROI(nullptr, nullptr, 3), cv::Rect());
}

// Ties: the largest cluster with the lower label, the equally near denser neighbour with the
// highest index.
TEST_F(RoiSegment, TieBreaks) {
    labels = {2, 1, 1, 2, -1, 0, 7, 2, 1};
    EXPECT_EQ(seg.find_correct_cluster_label(labels.data(), 9, 3), 1);  // 1 and 2 tie at 3
    labels[0] = labels[3] = 0;
    EXPECT_EQ(seg.find_correct_cluster_label(labels.data(), 9, 3), 0);  // 0 and 1 tie
    EXPECT_EQ(seg.find_correct_cluster_label(labels.data(), 9, 0), 0);

    // Point 0 in the middle, 1 and 2 equally far on either side, both denser.
    const std::vector<std::vector<float>> rows = {{0, 0}, {-1, 0}, {1, 0}};
    const std::vector<std::vector<float>> dist = {{0, 1, 1}, {1, 0, 2}, {1, 2, 0}};
    delta.resize(3);
    nneigh.resize(3);
    seg.getDistanceToHigherDensity(rows, dist, {1.f, 2.f, 2.f}, delta, nneigh, 2.f);
    EXPECT_EQ(nneigh, (std::vector<int>{2, -1, -1}));
    EXPECT_EQ(delta, (std::vector<float>{1.f, 2.f, 2.f}));
}

// Thresholds are strict: rho of exactly 8 does not join, and a sparse far point gets its own
// label.
TEST_F(RoiSegment, AssignmentThresholds) {
    // 0: centre; 1: rho exactly 8; 2: rho just above 8, joins through 4; 3: sparse and far;
    // 4: dense, joins the centre; 5..9: too sparse to join anything.
    rho = {20.f, 8.0f, 8.001f, 0.5f, 9.f, 5.f, 5.f, 5.f, 5.f, 5.f};
    delta = {100.f, 1.f, 1.f, 50.f, 1.f, 1.f, 1.f, 1.f, 1.f, 1.f};
    nneigh = {-1, 0, 4, 0, 0, 0, 0, 0, 0, 0};
    labels.assign(10, -1);
    const float sumRho = std::accumulate(rho.begin(), rho.end(), 0.f);
    const float sumDelta = std::accumulate(delta.begin(), delta.end(), 0.f);
    EXPECT_EQ(seg.assignment(rho.data(), delta.data(), nneigh.data(), labels.data(), 10, sumRho,
                             sumDelta),
              2);
    EXPECT_EQ(labels, (std::vector<int>{0, -1, 0, 1, 0, -1, -1, -1, -1, -1}));
}
