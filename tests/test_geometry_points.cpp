// The ideal hexagon grid: layout, the three generators, and the shared point operations.
#include <stdexcept>

#include "Point_Generation.h"
#include "test_geometry_support.h"
#include "test_support.h"

using geomtest::sameMat;

TEST(HexagonPoints, FirstRingStartsOnTheXAxisAndRunsCounterClockwise) {
    const double h = 0.866025403784;  // sin 60
    const cv::Mat expected =
        (cv::Mat_<double>(7, 2) << 0, 0, 1, 0, 0.5, h, -0.5, h, -1, 0, -0.5, -h, 0.5, -h);
    Generate_Hexagon_points gen(cv::Point2d(0, 0), nullptr, 1.0, 1);
    cv::Mat pts;
    ASSERT_EQ(gen.points_coordinates_generate(pts), 7);
    EXPECT_LE(cv::norm(pts, expected, cv::NORM_INF), 1e-9);
    // Zero or negative rings give the centre only; an implausible count gives nothing.
    for (int layer : {0, -3}) {
        EXPECT_EQ(Generate_Hexagon_points(cv::Point2d(4, 5), nullptr, 10.0, layer).Run(pts), 1);
        EXPECT_TRUE(sameMat(pts, cv::Mat((cv::Mat_<double>(1, 2) << 4.0, 5.0))));
    }
    EXPECT_EQ(Generate_Hexagon_pointsM3(cv::Point2d(1, 1), nullptr, 10.0, 1001).Run(pts), 0);
    EXPECT_EQ(pts.rows, 0);
}

// Methods 2 and 3 enumerate the same grid their own way and must give method 1's rows.
TEST(HexagonPoints, GeneratorsAgreeRowForRow) {
    const double g = 9.75;
    for (auto [layer, count] : {std::pair{0, 1}, {1, 7}, {5, 91}, {9, 271}}) {
        Generate_Hexagon_points m1(cv::Point2d(3, -2), nullptr, g, layer);
        Generate_Hexagon_pointsM2 m2(cv::Point2d(3, -2), nullptr, g, layer);
        Generate_Hexagon_pointsM3 m3(cv::Point2d(3, -2), nullptr, g, layer);
        m1.angle = m2.angle = m3.angle = 33.0;
        cv::Mat a, b, c;
        ASSERT_EQ(m1.Run(a), count);
        ASSERT_EQ(m2.Run(b), a.rows);
        ASSERT_EQ(m3.Run(c), a.rows);
        EXPECT_LE(cv::norm(a, b, cv::NORM_INF), 1e-7 * g * (layer + 1)) << layer;
        EXPECT_LE(cv::norm(a, c, cv::NORM_INF), 1e-7 * g * (layer + 1)) << layer;
    }
}
