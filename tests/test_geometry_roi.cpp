// Region of interest: density-peak clustering of dot centroids and the widened box.

#include "ROI_Segment.h"
#include "qbcode_render.h"
#include "test_support.h"

using namespace testsupport;

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
