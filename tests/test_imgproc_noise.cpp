// Downsampling, opening, smoothing and reconstruction.
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "ImgBinary.h"
#include "NoiseRemover.h"

TEST(NoiseRemoverResize, TargetIsWidthByHeight) {
    NoiseRemover n;
    cv::Mat src(480, 640, CV_8U, cv::Scalar(9)), dst;
    n.ImgDnSample(src, dst);
    EXPECT_EQ(dst.size(), cv::Size(480, 360));
    n.setDnsample_size(cv::Point(0, 10));
    n.ImgDnSample(src, dst);
    EXPECT_TRUE(dst.empty());
}

TEST(NoiseRemoverOpen, RemovesSpecklesKeepsBlocksAndEdges) {
    NoiseRemover n;
    cv::Mat img = cv::Mat::zeros(20, 20, CV_8U);
    img.at<uchar>(2, 2) = 200;               // isolated pixel
    img.row(6).colRange(1, 15).setTo(200);   // one-pixel line
    img(cv::Rect(10, 12, 3, 3)).setTo(150);  // 3x3 block
    img(cv::Rect(17, 17, 3, 3)).setTo(90);   // block in the corner
    cv::Mat want = cv::Mat::zeros(20, 20, CV_8U);
    want(cv::Rect(10, 12, 3, 3)).setTo(150);
    want(cv::Rect(17, 17, 3, 3)).setTo(90);
    n.imopen(img, img);
    EXPECT_EQ(cv::norm(img, want, cv::NORM_INF), 0);
}

class OpeningProperties : public ::testing::TestWithParam<int> {};

TEST_P(OpeningProperties, IdempotentAntiExtensiveAndKernelOverload) {
    cv::Mat img(37, 53, CV_8U), once, twice, viaKernel;
    cv::RNG(GetParam()).fill(img, cv::RNG::UNIFORM, 0, 256);
    NoiseRemover n;
    n.imopen(img, once);
    n.imopen(once, twice);
    n.imopen(img, viaKernel, cv::Mat::ones(3, 3, CV_8U));
    EXPECT_EQ(cv::norm(once, twice, cv::NORM_INF), 0);
    EXPECT_EQ(cv::countNonZero(once > img), 0);
    EXPECT_EQ(cv::norm(once, viaKernel, cv::NORM_INF), 0);
    cv::Mat cross = cv::getStructuringElement(cv::MORPH_CROSS, {3, 3}), a, b;
    n.setMorphology_kernel(cross);
    n.imopen(img, a);
    n.imopen(img, b, cross);
    EXPECT_EQ(cv::norm(a, b, cv::NORM_INF), 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, OpeningProperties, ::testing::Values(1, 2, 3));

TEST(NoiseRemoverSmooth, NegativeSigmaIsFlippedInTheMember) {
    NoiseRemover n;
    cv::Mat img(30, 30, CV_8U), dst, want;
    cv::RNG(4).fill(img, cv::RNG::UNIFORM, 0, 256);
    n.setGaussFilter_ksize({5, 5});
    n.setGaussFilter_sigma(-2.0);
    n.gaussfilt2(img, dst);
    EXPECT_EQ(n.getGaussFilter_sigma(), 2.0);
    cv::GaussianBlur(img, want, {5, 5}, 2.0);
    EXPECT_EQ(cv::norm(dst, want, cv::NORM_INF), 0);
}

TEST(Reconstruction, GrowsOnlyIntoConnectedMask) {
    cv::Mat mask = cv::Mat::zeros(20, 20, CV_8U), marker = cv::Mat::zeros(20, 20, CV_8U), out;
    mask(cv::Rect(1, 1, 6, 10)).setTo(200);
    mask(cv::Rect(10, 1, 6, 6)).setTo(120);
    marker.at<uchar>(5, 3) = 255;  // clipped to the mask's 200
    for (int which = 0; which < 2; ++which) {
        const int r = which == 0 ? NoiseRemover().imreconstruct(marker, mask, out)
                                 : ImgBinary().imreconstruct(marker, mask, out);
        ASSERT_EQ(r, 0);
        cv::Mat want = cv::Mat::zeros(20, 20, CV_8U);
        want(cv::Rect(1, 1, 6, 10)).setTo(200);
        EXPECT_EQ(cv::norm(out, want, cv::NORM_INF), 0);
    }
    NoiseRemover n;
    ASSERT_EQ(n.imreconstruct(mask, mask, out), 0);
    EXPECT_EQ(cv::norm(out, mask, cv::NORM_INF), 0);
    cv::Mat empty, small(3, 3, CV_8U), nanMask(8, 8, CV_32F, cv::Scalar(NAN));
    EXPECT_EQ(n.imreconstruct(empty, mask, out), -113);
    EXPECT_EQ(n.imreconstruct(mask, empty, out), -113);
    EXPECT_EQ(n.imreconstruct(small, mask, out), -113);
    EXPECT_EQ(n.imreconstruct(nanMask, nanMask, out), 0);  // ends although NaN never compares
}
