// Normalisation, blob centroids and the clearing of blobs on the frame edge.

#include "ImgBinary.h"
#include "test_support.h"

namespace {

// n square blobs of side `side` on a grid with 7 px pitch, 255 on 0.
cv::Mat blobGrid(int n, int side, std::vector<cv::Point2f>* centres = nullptr) {
    cv::Mat img = cv::Mat::zeros(7 * ((n + 29) / 30) + 7, 7 * 30 + 7, CV_8U);
    for (int i = 0; i < n; ++i) {
        const int x = 7 * (i % 30) + 3, y = 7 * (i / 30) + 3;
        img(cv::Rect(x, y, side, side)).setTo(255);
        if (centres) centres->emplace_back(x + (side - 1) / 2.0f, y + (side - 1) / 2.0f);
    }
    return img;
}

}  // namespace

// Too dim a frame (peak under 12) has no dots; the rest is a scaling to bytes.
TEST(ImgBinaryNormal, DimAndEmptyFramesAreRefused) {
    ImgBinary b;
    cv::Mat dim(4, 4, CV_32F, cv::Scalar(11.9)), edge(4, 4, CV_32F, cv::Scalar(12.0)), empty;
    EXPECT_EQ(b.grayimg_normal(dim), -141);
    EXPECT_EQ(b.grayimg_normal(edge), 0);
    EXPECT_EQ(edge.type(), CV_8UC1);
    EXPECT_EQ(b.grayimg_normal(empty), -100);
}

// Accepted counts run from 40 to 500; blobs of area 4 or less are erased from the input.
TEST(BlobCentroid, CountsAndPositions) {
    const struct {
        int count, side, status, centroids;
    } cases[] = {{39, 5, -143, 0},
                 {40, 5, 0, 40},
                 {500, 4, 0, 500},
                 {501, 4, -143, 0},
                 {45, 3, -142, 0}};  // side 3: contour area (3-1)^2 = 4
    for (const auto& p : cases) {
        std::vector<cv::Point2f> want, got, small;
        cv::Mat bin = blobGrid(p.count, p.side, &want);
        const int before = cv::countNonZero(bin);
        ImgBinary binary;
        binary.erased = &small;
        EXPECT_EQ(binary.blob_centroid(bin, got), p.status) << p.count;
        ASSERT_EQ(static_cast<int>(got.size()), p.centroids);
        const bool erased = p.status != -143 && p.side <= 3;
        // The erased blobs are reported by their centres.
        ASSERT_EQ(small.size(), erased ? want.size() : 0u);
        got.insert(got.end(), small.begin(), small.end());
        for (const cv::Point2f& g : got)
            EXPECT_TRUE(std::any_of(want.begin(), want.end(), [&](cv::Point2f w) {
                return std::abs(w.x - g.x) < 1e-4 && std::abs(w.y - g.y) < 1e-4;
            })) << g;
        EXPECT_EQ(cv::countNonZero(bin), erased ? 0 : before) << p.count;
    }
}

TEST(ImgBinaryBorder, ClearsBlobsTouchingTheFrame) {
    cv::Mat img = cv::Mat::zeros(20, 30, CV_8U), thin(1, 9, CV_8U, cv::Scalar(255));
    img(cv::Rect(0, 5, 3, 3)).setTo(255);    // left edge
    img(cv::Rect(27, 17, 3, 3)).setTo(255);  // bottom-right corner
    img(cv::Rect(12, 8, 4, 4)).setTo(255);   // inside
    ImgBinary().remove_board(img);
    EXPECT_EQ(cv::countNonZero(img), 16);
    EXPECT_EQ(cv::countNonZero(img(cv::Rect(12, 8, 4, 4))), 16);
    ImgBinary().remove_board(thin);
    EXPECT_EQ(cv::countNonZero(thin), 0);
}
