// The fits recover the map that made the points and refuse points that fix none; a dot is
// matched to one position at most.
#include "GridMatch.h"
#include "test_support.h"

namespace {

struct FitCase {
    const char* name;
    std::vector<cv::Point2d> from;
    bool fixes;  // the points fix an affine map (and, with four or more, a homography)
};

void PrintTo(const FitCase& c, std::ostream* os) {
    *os << c.name;
}

class GridMatchFit : public ::testing::TestWithParam<FitCase> {};

TEST_P(GridMatchFit, RecoversTheMapOrRefuses) {
    const FitCase& c = GetParam();
    const cv::Matx23d affine(0.9, -0.3, 12, 0.25, 1.1, -7);
    const cv::Matx33d view(1.0, 0.08, 3, -0.05, 0.93, 5, 0.0007, -0.0004, 1);
    std::vector<cv::Point2d> byAffine, byView;
    for (const cv::Point2d& p : c.from) {
        byAffine.push_back(gridmatch::apply(affine, p));
        byView.push_back(gridmatch::apply(view, p));
    }
    cv::Matx23d a;
    cv::Matx33d h;
    ASSERT_EQ(gridmatch::fitAffine(c.from, byAffine, a), c.fixes);
    ASSERT_EQ(gridmatch::fitHomography(c.from, byView, h), c.fixes && c.from.size() >= 4);
    if (!c.fixes) return;
    EXPECT_LT(cv::norm(a - affine, cv::NORM_INF), 1e-9);
    if (c.from.size() < 4) return;
    EXPECT_LT(cv::norm(h * (1.0 / h(2, 2)) - view, cv::NORM_INF), 1e-9);
}

INSTANTIATE_TEST_SUITE_P(
    Points, GridMatchFit,
    ::testing::Values(FitCase{"Triangle", {{0, 0}, {40, 0}, {0, 30}}, true},
                      FitCase{
                          "Hexagon",
                          {{0, 0}, {20, 0}, {10, 17}, {-10, 17}, {-20, 0}, {-10, -17}, {10, -17}},
                          true},
                      FitCase{"TwoPoints", {{0, 0}, {40, 0}}, false},
                      FitCase{"OnALine", {{0, 0}, {10, 10}, {20, 20}, {30, 30}, {40, 40}}, false}),
    [](const auto& info) { return std::string(info.param.name); });

// Positions 20 apart; which of them takes the dot at x.
TEST(GridMatch, MutualNearestLeavesADotToTheNearerPosition) {
    const std::vector<cv::Point2d> positions{{0, 0}, {20, 0}};
    auto matchOf = [&](int i, double x, double radius) {
        return gridmatch::mutualNearest(positions, i, {{x, 0}}, radius);
    };
    EXPECT_EQ(matchOf(0, 4, 6), 0);
    EXPECT_EQ(matchOf(0, 12, 15), -1);  // within the radius, but nearer to position 1
    EXPECT_EQ(matchOf(1, 12, 15), 0);
    EXPECT_EQ(matchOf(0, 7, 6), -1);
    EXPECT_EQ(matchOf(0, 4, std::nan("")), -1);
}

}  // namespace

namespace {

// The index gives the scan's match on dots on a lattice (ties between equidistant dots), in a
// heap, far apart and none, for queries anywhere, radii of every size, negative and NaN.
TEST(GridMatchIndex, MatchesTheScan) {
    cv::RNG rng(5);
    std::vector<std::vector<cv::Point2d>> sets(4);
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 12; ++x) sets[0].emplace_back(20.0 * x + 10.0 * (y % 2), 17.0 * y);
    for (int i = 0; i < 300; ++i)
        sets[1].emplace_back(rng.uniform(0.0, 60.0), rng.uniform(0.0, 9.0));
    sets[2] = {{-500.0, 3.0}, {7.0, 7.0}, {7.0, 7.0}, {1e6, -1e6}};
    for (const std::vector<cv::Point2d>& dots : sets) {
        const gridmatch::DotIndex index(dots, 20.0);
        // Halfway between two dots of a row, and on one of them.
        std::vector<cv::Point2d> positions = {{30.0, 0.0}, {110.0, 0.0}, {7.0, 7.0}};
        for (int i = 0; i < 400; ++i)
            positions.emplace_back(rng.uniform(-60.0, 300.0), rng.uniform(-60.0, 250.0));
        for (double radius : {0.0, 3.0, 10.0, 25.0, 90.0, 1e9, -10.0, std::nan("")})
            for (int i = 0; i < static_cast<int>(positions.size()); ++i)
                ASSERT_EQ(gridmatch::mutualNearest(positions, i, index, radius),
                          gridmatch::mutualNearest(positions, i, dots, radius))
                    << "position " << i << " radius " << radius;
    }
}

}  // namespace
