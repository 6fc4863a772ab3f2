// Downsampling, opening, smoothing and reconstruction.
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "Dots_HessianProcess.h"
#include "ImgBinary.h"
#include "LogFilter.h"
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

// Every operation, odd sizes, types and parameters: a result or an empty output, never a throw.
TEST(ImgprocRobust, OperationsNeverThrow) {
    const float nan = NAN;
    for (cv::Size size : {cv::Size(0, 0), cv::Size(1, 1), cv::Size(9, 1), cv::Size(1, 9),
                          cv::Size(200, 49), cv::Size(50, 50)})
        for (int type : {CV_8UC1, CV_8UC3, CV_8SC1, CV_16UC1, CV_32SC1, CV_32FC1, CV_64FC2}) {
            cv::Mat img(size, type, cv::Scalar::all(0)), out;
            if (!img.empty()) cv::RNG(type).fill(img, cv::RNG::UNIFORM, 0, 256);
            auto fresh = [&] { return img.clone(); };
            NoiseRemover n;
            ImgBinary b;
            Dots_HessianProcess h;
            LogFilter l;
            auto exercise = [&] {
                for (int k : {-1, 1, 3, 4, 7, 301}) n.setMedfilterSize(k), n.medfilt2(img, out);
                for (cv::Size k : {cv::Size(0, 0), cv::Size(4, 4), cv::Size(3, 3)})
                    for (double s : {0.0, -2.0, double(nan), 1e9})
                        n.setGaussFilter_ksize(k), n.setGaussFilter_sigma(s),
                            n.gaussfilt2(img, out);
                for (cv::Mat k : {cv::Mat(), cv::Mat(cv::Mat::ones(3, 3, CV_8UC3)),
                                  cv::Mat(cv::Mat::ones(301, 301, CV_8U))})
                    n.imopen(img, out, k);
                for (cv::Point p : {cv::Point(0, 5), cv::Point(-3, 2), cv::Point(7, 3)})
                    n.setDnsample_size(p), n.ImgDnSample(img, out);
                n.imreconstruct(img, img, out);
                cv::Mat m = fresh();
                b.grayimg_normal(m);
                for (auto op : {&ImgBinary::image_binary, &ImgBinary::image_AdapMean_binary,
                                &ImgBinary::image_AdapGauss_binary}) {
                    m = fresh();
                    (b.*op)(m, out);
                }
                m = fresh();
                b.image_otsu_binary(m, out);
                m = fresh();
                b.remove_board(m);
                std::vector<cv::Point2f> c;
                b.blob_centroid(img, c);
                m = fresh();
                h.circshift(m, out, 3, -1000);
                h.resetBoundaryPixels(m);
                h.process(m, out);
                m = fresh();
                l.setSigma({0.4f, 2.0f});
                l.process(m, out);
            };
            EXPECT_NO_THROW(exercise()) << size << " type " << type;
        }
}
