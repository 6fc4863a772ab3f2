// Reconstruction by dilation, and how the filters refuse. What they compute is OpenCV's, held by
// the golden reads; the driver refuses frames too small for them before any stage runs.

#include "ImgBinary.h"
#include "NoiseRemover.h"
#include "test_support.h"

TEST(Reconstruction, GrowsOnlyIntoConnectedMask) {
    cv::Mat mask = cv::Mat::zeros(20, 20, CV_8U), marker = cv::Mat::zeros(20, 20, CV_8U), out;
    mask(cv::Rect(1, 1, 6, 10)).setTo(200);
    mask(cv::Rect(10, 1, 6, 6)).setTo(120);
    marker.at<uchar>(5, 3) = 255;  // clipped to the mask's 200
    cv::Mat want = cv::Mat::zeros(20, 20, CV_8U);
    want(cv::Rect(1, 1, 6, 10)).setTo(200);
    ASSERT_EQ(NoiseRemover().imreconstruct(marker, mask, out), 0);
    EXPECT_EQ(cv::norm(out, want, cv::NORM_INF), 0);
    ASSERT_EQ(ImgBinary().imreconstruct(marker, mask, out), 0);
    EXPECT_EQ(cv::norm(out, want, cv::NORM_INF), 0);
    NoiseRemover n;
    cv::Mat empty, small(3, 3, CV_8U), nanMask(8, 8, CV_32F, cv::Scalar(NAN));
    EXPECT_EQ(n.imreconstruct(empty, mask, out), -113);
    EXPECT_EQ(n.imreconstruct(small, mask, out), -113);
    EXPECT_EQ(n.imreconstruct(nanMask, nanMask, out), 0);  // ends although NaN never compares
}

// Where OpenCV cannot run a filter, dst is left empty rather than an exception thrown; a negative
// sigma is taken as its negation, in the member too.
TEST(NoiseRemover, FiltersRefuseQuietlyAndFlipANegativeSigma) {
    NoiseRemover n;
    cv::Mat img(30, 30, CV_8U, cv::Scalar(7)), dst, empty;
    n.setGaussFilter_ksize({5, 5});
    n.setGaussFilter_sigma(-2.0);
    n.gaussfilt2(img, dst);
    EXPECT_EQ(n.getGaussFilter_sigma(), 2.0);
    EXPECT_EQ(cv::norm(dst, img, cv::NORM_INF), 0);  // flat stays flat
    n.setGaussFilter_ksize({4, 4});
    n.gaussfilt2(img, dst);
    EXPECT_TRUE(dst.empty());
    n.setMedfilterSize(4);
    n.medfilt2(img, dst);
    EXPECT_TRUE(dst.empty());
    n.setMedfilterSize(3);
    n.medfilt2(empty, dst);
    EXPECT_TRUE(dst.empty());
}
