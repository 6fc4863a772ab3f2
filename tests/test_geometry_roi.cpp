// Region of interest: the box around the chosen cluster. Which cluster wins over clutter is
// held by the reference reads and the golden frame with clutter.

#include "ROI_Segment.h"
#include "test_support.h"

// The region needs eight members; it is widened by rows / 9 and clipped short of the last
// row and column. Null arrays and far-out coordinates are harmless.
TEST(RoiSegment, SevenMembersGiveNothingEightGiveAClippedBox) {
    ROI_Segment seg{288, 384, 72.f, 0, 2};
    std::vector<float> pts, far;
    std::vector<int> labels(8, 0);
    for (int i = 0; i < 8; ++i) {
        pts.insert(pts.end(), {370.f + (i % 4), 2.5f + i});  // near the top right corner
        far.insert(far.end(), {i % 2 ? 1e30f : -1e30f, i % 3 ? 3e9f : -3e9f});
    }
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

// The flat-table form against the original on point sets like a frame's: a code's lattice, a
// second code, scattered clutter and a dense texture. Same clusters and labels; the densities
// agree to float rounding.
TEST(RoiSegment, FlatTableClusteringMatchesTheOriginal) {
    cv::RNG rng(9);
    for (int trial = 0; trial < 12; ++trial) {
        std::vector<float> pts;
        for (int k = 0; k < 1 + trial % 3; ++k) {
            const float cx = rng.uniform(60.f, 320.f), cy = rng.uniform(50.f, 230.f);
            for (int r = -5; r <= 5; ++r)
                for (int c = -5; c <= 5; ++c)
                    if (std::abs(r + c) <= 5 && rng.uniform(0, 100) < 60)
                        pts.insert(pts.end(), {cx + 11.f * (c + 0.5f * r), cy + 9.5f * r});
        }
        for (int i = 0; i < 20 * trial; ++i)
            pts.insert(pts.end(), {rng.uniform(0.f, 384.f), rng.uniform(0.f, 288.f)});
        const int n = static_cast<int>(pts.size() / 2);
        std::vector<float> rho(n, 0.f), delta(n, 0.f), rho2(n, 0.f), delta2(n, 0.f);
        std::vector<int> near(n, 0), labels(n, -1), near2(n, 0), labels2(n, -1);
        ROI_Segment seg{288, 384, 72.f, n, 2};
        const int k = seg.cluster_densityPeaks(pts.data(), n, 2, 72.f, rho.data(), delta.data(),
                                               near.data(), labels.data());
        const int k2 = seg.cluster_densityPeaksM2(pts.data(), n, 72.f, rho2.data(), delta2.data(),
                                                  near2.data(), labels2.data());
        ASSERT_EQ(k, k2) << "trial " << trial;
        EXPECT_EQ(labels, labels2) << "trial " << trial;
        EXPECT_EQ(near, near2) << "trial " << trial;
        for (int i = 0; i < n; ++i) EXPECT_NEAR(rho[i], rho2[i], 1e-4f * (1.f + rho[i]));
    }
}
