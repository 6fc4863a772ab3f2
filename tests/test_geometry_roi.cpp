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
