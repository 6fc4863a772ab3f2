// Four-connected labelling with 8-bit labels. Labelling of ordinary dots is held by the
// print-grade tests; here the wrap of the byte, where a fill could run forever.

#include "bwlabel1.h"
#include "test_support.h"

namespace {

// Labels wrap modulo 256: the 255th region looks unlabelled and the 256th becomes 0. A larger
// region labelled 255 keeps matching the value, so its fill must still end; its lower pixel
// is then seeded again as label 256 (0).
TEST(Bwlabel1Input, RefusesNonByteImagesAndLabelsWrapAtTheByte) {
    cv::Mat img = cv::Mat::zeros(49, 52, CV_8UC1);
    std::vector<cv::Point> seeds;
    for (int r = 1; r <= img.rows - 3; r += 3)
        for (int c = 1; c <= img.cols - 3; c += 3) seeds.emplace_back(c, r);
    for (const cv::Point& p : seeds) img.at<uchar>(p) = 255;
    cv::Mat dst;
    EXPECT_EQ(bwlabel1(cv::Mat(), dst, 255.0), -1);
    EXPECT_EQ(bwlabel1(cv::Mat::zeros(8, 8, CV_32F), dst, 255.0), -1);
    EXPECT_EQ(bwlabel1(img, dst, 255.0), static_cast<int>(seeds.size()));
    EXPECT_EQ(dst.at<uchar>(seeds[253]), 254);
    EXPECT_EQ(dst.at<uchar>(seeds[254]), 255);
    EXPECT_EQ(dst.at<uchar>(seeds[255]), 0);
    EXPECT_EQ(dst.at<uchar>(seeds[256]), 1);

    img.at<uchar>(seeds[254] + cv::Point(0, 1)) = 255;
    EXPECT_EQ(bwlabel1(img, img, 255.0), static_cast<int>(seeds.size()) + 1);  // in place
    EXPECT_EQ(img.at<uchar>(seeds[254]), 0);
    EXPECT_EQ(img.at<uchar>(seeds[254] + cv::Point(0, 1)), 0);
    EXPECT_EQ(img.at<uchar>(seeds[255]), 1);
}

}  // namespace
