// Laplacian-of-Gaussian kernel and multi-scale filter.
#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "LogFilter.h"

TEST(LoGKernel, SigmaThreeShapeRoundingAndRefusals) {
    LogFilter f;
    cv::Mat k(2, 2, CV_8U), a, b;  // replaced whatever it was
    f.createLoGKernel(k, 3.0f);
    ASSERT_EQ(k.size(), cv::Size(19, 19));
    ASSERT_EQ(k.type(), CV_32FC1);
    EXPECT_NEAR(k.at<float>(9, 9), 0.0039298f, 1e-7);
    // r^2 = 18 = 2 s^2: the factor (1 - r^2 / 2s^2) vanishes exactly.
    for (cv::Point p : {cv::Point(6, 6), cv::Point(12, 6), cv::Point(6, 12), cv::Point(12, 12)})
        EXPECT_EQ(k.at<float>(p), 0.0f) << p;
    EXPECT_LT(k.at<float>(9, 16), 0.0f);  // negative ring
    f.createLoGKernel(a, 1.4f), f.createLoGKernel(b, 1.0f);
    EXPECT_EQ(cv::norm(a, b, cv::NORM_INF), 0);  // sigma is rounded
    f.createLoGKernel(a, 2.5f);                  // halves round away from zero
    EXPECT_EQ(a.size(), cv::Size(19, 19));
    f.createLoGKernel(a, 0.4f);
    ASSERT_EQ(a.size(), cv::Size(1, 1));
    EXPECT_FALSE(std::isfinite(a.at<float>(0, 0)));
    for (float bad : {-1.0f, NAN, 1e9f}) {
        f.createLoGKernel(a, bad);
        EXPECT_TRUE(a.empty()) << bad;
    }
}

TEST(LoGFilter, RefusalsAndTheMaximumOverScales) {
    LogFilter f;
    cv::Mat empty, flat(20, 20, CV_32F, cv::Scalar(1)), dst, kernel;
    f.createLoGKernel(kernel, 2.0f);
    EXPECT_EQ(f.process(empty, dst), -100);
    f.setSigma({2.0f, -3.0f});
    EXPECT_EQ(f.process(flat, dst), -100);
    f.setSigma({});
    ASSERT_EQ(f.process(flat, dst), 0);
    EXPECT_EQ(cv::countNonZero(dst), 0);
    // Flat input: kernel sum times 4 for bright levels, clipped to 0 for dark ones.
    f.setSigma({2.0f});
    for (float level : {50.0f, -50.0f}) {
        ASSERT_EQ(f.process(flat = cv::Mat(30, 40, CV_32F, cv::Scalar(level)), dst), 0);
        const double want = std::max(0.0, level * cv::sum(kernel)[0] * 4.0);
        EXPECT_NEAR(dst.at<float>(0, 0), want, 1e-4);
        EXPECT_NEAR(dst.at<float>(15, 20), want, 1e-4);
    }

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
