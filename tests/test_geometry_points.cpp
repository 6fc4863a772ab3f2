// The ideal hexagon grid: layout, the three generators, and the shared point operations.
#include <cmath>
#include <memory>
#include <stdexcept>

#include <gtest/gtest.h>

#include "Point_Generation.h"
#include "qbcode_render.h"

namespace {

const double kStep = 0.866025403784;  // sin 60

}  // namespace

class HexagonPoints : public ::testing::Test {
protected:
    cv::Mat pts;
};

TEST_F(HexagonPoints, FirstRingStartsOnTheXAxisAndRunsCounterClockwise) {
    Generate_Hexagon_points gen(cv::Point2d(0, 0), nullptr, 1.0, 1);
    ASSERT_EQ(gen.points_coordinates_generate(pts), 7);
    const double expected[7][2] = {{0, 0},  {1, 0},         {0.5, kStep}, {-0.5, kStep},
                                   {-1, 0}, {-0.5, -kStep}, {0.5, -kStep}};
    for (int i = 0; i < 7; ++i) {
        EXPECT_NEAR(pts.at<double>(i, 0), expected[i][0], 1e-9) << i;
        EXPECT_NEAR(pts.at<double>(i, 1), expected[i][1], 1e-9) << i;
    }
}

TEST_F(HexagonPoints, EveryRingClosesOneStepShortOfItsStart) {
    const double g = 17.5;
    Generate_Hexagon_points gen(cv::Point2d(0, 0), nullptr, g, 6);
    ASSERT_EQ(gen.points_coordinates_generate(pts), 1 + 3 * 6 * 7);
    int first = 1;
    for (int k = 1; k <= 6; ++k) {
        const int last = first + 6 * k - 1;
        EXPECT_NEAR(pts.at<double>(first, 0), k * g, 1e-12);
        EXPECT_NEAR(pts.at<double>(last, 0) + g * 0.5, pts.at<double>(first, 0), 1e-7) << k;
        EXPECT_NEAR(pts.at<double>(last, 1) + g * kStep, pts.at<double>(first, 1), 1e-7) << k;
        for (int i = first; i < last + 1; ++i)
            EXPECT_NEAR(std::hypot(pts.at<double>(i, 0), pts.at<double>(i, 1)) / g, k, 0.14 * k)
                << "ring " << k;
        first = last + 1;
    }
}

TEST_F(HexagonPoints, ZeroOrNegativeLayersGiveTheCentreOnly) {
    for (int layer : {0, -3}) {
        Generate_Hexagon_points gen(cv::Point2d(4, 5), nullptr, 10.0, layer);
        EXPECT_EQ(gen.Run(pts), 1);
        ASSERT_EQ(pts.rows, 1);
        EXPECT_EQ(pts.at<double>(0, 0), 4.0);
        EXPECT_EQ(pts.at<double>(0, 1), 5.0);
    }
}

// The renderer draws bit i at gridOffsets()[i] as (row, col); the reader samples bit i at row i
// of the generator with column 0 as the image row. Both must agree for any angle and centre.
class GridMatchesRenderer : public ::testing::TestWithParam<double> {};

TEST_P(GridMatchesRenderer, ForAnyRotationAndCentre) {
    const double angle = GetParam(), g = 21.3;
    const cv::Point2d centre(123.25, 87.5);
    Generate_Hexagon_points gen(centre, nullptr, g, 5);
    gen.angle = angle;
    cv::Mat pts;
    ASSERT_EQ(gen.Run(pts), 91);
    const auto offsets = qbrender::gridOffsets(5, g, angle);
    ASSERT_EQ(offsets.size(), 91u);
    for (int i = 0; i < 91; ++i) {
        EXPECT_NEAR(pts.at<double>(i, 0), centre.x + offsets[i].x, 1e-6) << i;
        EXPECT_NEAR(pts.at<double>(i, 1), centre.y + offsets[i].y, 1e-6) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Angles, GridMatchesRenderer,
                         ::testing::Values(0.0, 17.0, 45.0, 60.0, 123.4, -30.0, 300.0));

// Methods 2 and 3 enumerate the same grid their own way and must give method 1's rows.
class GeneratorsAgree : public ::testing::TestWithParam<int> {};

TEST_P(GeneratorsAgree, RowForRow) {
    const int layer = GetParam();
    const double g = 9.75;
    Generate_Hexagon_points m1(cv::Point2d(3, -2), nullptr, g, layer);
    Generate_Hexagon_pointsM2 m2(cv::Point2d(3, -2), nullptr, g, layer);
    Generate_Hexagon_pointsM3 m3(cv::Point2d(3, -2), nullptr, g, layer);
    for (Point_Generation* p :
         {static_cast<Point_Generation*>(&m2), static_cast<Point_Generation*>(&m3)})
        p->angle = 33.0;
    m1.angle = 33.0;
    cv::Mat a, b, c;
    const int n = m1.Run(a);
    ASSERT_EQ(m2.Run(b), n);
    ASSERT_EQ(m3.Run(c), n);
    EXPECT_LE(cv::norm(a, b, cv::NORM_INF), 1e-7 * g * (layer + 1));
    EXPECT_LE(cv::norm(a, c, cv::NORM_INF), 1e-7 * g * (layer + 1));
}

INSTANTIATE_TEST_SUITE_P(Layers, GeneratorsAgree, ::testing::Values(0, 1, 2, 5, 9));

TEST_F(HexagonPoints, RotateTouchesOnlyTwoColumnMatrices) {
    cv::Mat three = (cv::Mat_<double>(1, 3) << 1, 2, 3), before = three.clone();
    Generate_Hexagon_points gen(cv::Point2d(0, 0), nullptr, 1.0, 1);
    gen.rotate(three, 90.0);
    EXPECT_EQ(cv::norm(three, before, cv::NORM_INF), 0.0);
    cv::Mat two = (cv::Mat_<double>(1, 2) << 1, 0);
    gen.rotate(two, 90.0);  // x' = x cos + y sin, y' = -x sin + y cos
    EXPECT_NEAR(two.at<double>(0, 0), 0.0, 1e-9);
    EXPECT_NEAR(two.at<double>(0, 1), -1.0, 1e-9);
}

TEST_F(HexagonPoints, RoundIsHalfUpThenTowardZero) {
    cv::Mat v = (cv::Mat_<double>(1, 6) << 2.5, -2.5, -1.3, 1.49, -0.5, 1e300);
    Generate_Hexagon_points gen(cv::Point2d(0, 0), nullptr, 1.0, 1);
    gen.round(v);
    EXPECT_EQ(v.at<double>(0, 0), 3.0);
    EXPECT_EQ(v.at<double>(0, 1), -2.0);
    EXPECT_EQ(v.at<double>(0, 2), 0.0);
    EXPECT_EQ(v.at<double>(0, 3), 1.0);
    EXPECT_EQ(v.at<double>(0, 4), 0.0);
    EXPECT_EQ(v.at<double>(0, 5), 1e300);
}

TEST_F(HexagonPoints, TranslationNeedsTwoShiftsAndFailsAfterTheFirstX) {
    Generate_Hexagon_points gen(cv::Point2d(10, 20), nullptr, 1.0, 1);
    cv::Mat p = (cv::Mat_<double>(2, 2) << 1, 2, 3, 4);
    gen.translation(p);
    EXPECT_EQ(p.at<double>(1, 0), 13.0);
    EXPECT_EQ(p.at<double>(1, 1), 24.0);
    gen.shiftXY = {5.0};
    EXPECT_THROW(gen.translation(p), std::out_of_range);
    EXPECT_EQ(p.at<double>(0, 0), 16.0);
    EXPECT_EQ(p.at<double>(0, 1), 22.0);
    EXPECT_EQ(p.at<double>(1, 0), 13.0);
    gen.shiftXY.clear();
    EXPECT_THROW(gen.translation(p), std::out_of_range);
}

TEST_F(HexagonPoints, ImplausibleRingCountsGiveNoPoints) {
    Generate_Hexagon_pointsM3 gen(cv::Point2d(1, 1), nullptr, 10.0, 1001);
    EXPECT_EQ(gen.Run(pts), 0);
    EXPECT_EQ(pts.rows, 0);
}
