// Laplacian-of-Gaussian kernel and multi-scale filter.

#include "LogFilter.h"
#include "test_support.h"

// The kernel follows the formula; scales it refuses are the hostile-input table's.
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
