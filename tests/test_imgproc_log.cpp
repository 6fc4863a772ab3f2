// Laplacian-of-Gaussian kernel and multi-scale filter.

#include "LogFilter.h"
#include "test_support.h"

using namespace testsupport;

// The kernel follows the formula; what matters is its size, its rounding of sigma and its
// refusals.
TEST(LoGKernel, SizeRoundingAndRefusals) {
    LogFilter f;
    cv::Mat k(2, 2, CV_8U), a, b;  // replaced whatever it was
    f.createLoGKernel(k, 3.0f);
    ASSERT_EQ(k.size(), cv::Size(19, 19));
    ASSERT_EQ(k.type(), CV_32FC1);
    f.createLoGKernel(a, 1.4f), f.createLoGKernel(b, 1.0f);
    EXPECT_EQ(cv::norm(a, b, cv::NORM_INF), 0);  // sigma is rounded
    f.createLoGKernel(a, 2.5f);                  // halves round away from zero
    EXPECT_EQ(a.size(), cv::Size(19, 19));
    for (float bad : {-1.0f, NAN, 1e9f}) {
        f.createLoGKernel(a, bad);
        EXPECT_TRUE(a.empty()) << bad;
    }
}

TEST(LoGFilter, RefusalsAndTheMaximumOverScales) {
    LogFilter f;
    cv::Mat empty, flat(20, 20, CV_32F, cv::Scalar(1)), dst;
    EXPECT_EQ(f.process(empty, dst), -100);
    f.setSigma({2.0f, -3.0f});
    EXPECT_EQ(f.process(flat, dst), -100);
    f.setSigma({});
    ASSERT_EQ(f.process(flat, dst), 0);
    EXPECT_EQ(cv::countNonZero(dst), 0);
    cv::Mat img(60, 60, CV_32F, cv::Scalar(0)), d2, d3, both;
    cv::circle(img, {20, 30}, 2, 200, -1), cv::circle(img, {42, 30}, 5, 200, -1);
    f.setSigma({2.0f}), f.process(img, d2);
    f.setSigma({3.0f}), f.process(img, d3);
    f.setSigma({2.0f, 3.0f});
    ASSERT_EQ(f.process(img, both), 0);
    EXPECT_EQ(cv::norm(both, cv::max(d2, d3), cv::NORM_INF), 0);
    EXPECT_GT(d2.at<float>(30, 20), d3.at<float>(30, 20));  // each dot prefers its own scale
    EXPECT_GT(d3.at<float>(30, 42), d2.at<float>(30, 42));
}
