// The grid fit recovers a code seen under perspective from a start that is turned and a few steps
// off, and finds nothing where no code is.
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "GridMatch.h"
#include "Grid_refinement.h"
#include "Hexagon_Dots_tracking.h"
#include "qbcode_render.h"

namespace {

const double kSpacing = 20.0;
const cv::Point2d kCentre(200, 200);

std::vector<cv::Point2d> gridAt(cv::Point2d centre, double rotationDeg) {
    std::vector<cv::Point2d> out;
    for (const cv::Point2d& o : qbrender::gridOffsets(5, kSpacing, rotationDeg))
        out.push_back(centre + cv::Point2d(o.y, o.x));
    return out;
}

struct Case {
    const char* name;
    cv::Matx33d view;  // print -> image
    int stepsOff;      // of the start along the first lattice axis
    double startTurn;  // of the start against the print, degrees
    bool code;         // false: the same dots without their markers
};

void PrintTo(const Case& c, std::ostream* os) {
    *os << c.name;
}

class Refinement : public ::testing::TestWithParam<Case> {};

TEST_P(Refinement, FitsTheDotsOfAPerspectiveView) {
    const Case& c = GetParam();
    std::vector<int> bits = qbrender::randomBits(5);
    if (!c.code)
        for (int i : qbrender::markerOffPositions()) bits[i] = 1;
    const std::vector<cv::Point2d> print = gridAt(kCentre, 0.0);
    Grid_refinement::Input in;
    in.layer = 5;
    in.spacing = kSpacing;
    in.binary = cv::Mat::zeros(420, 420, CV_8U);
    std::vector<cv::Point2d> truth;
    for (size_t i = 0; i < print.size(); ++i) {
        truth.push_back(gridmatch::apply(c.view, print[i]));
        if (!bits[i]) continue;
        in.centroids.push_back(truth.back());
        cv::circle(in.binary, cv::Point(cvRound(truth.back().x), cvRound(truth.back().y)),
                   static_cast<int>(kSpacing * 0.3), cv::Scalar(255), cv::FILLED);
    }
    const cv::Point2d start =
        gridmatch::apply(c.view, kCentre) + (print[1] - print[0]) * c.stepsOff;
    for (int k = 0; k < 6; ++k) in.grids[k] = gridAt(start, 60.0 * k + c.startTurn);

    Hexagon_Dots_tracking sampler(nullptr, kSpacing, 0, 0, 5);
    Grid_refinement::Output out;
    const bool found = Grid_refinement().Run(in, sampler, out);
    ASSERT_EQ(found, c.code);
    if (!c.code) return;
    EXPECT_EQ(out.bits, bits);
    // The fitted positions are the printed ones wherever they are, dot or blank.
    const std::vector<cv::Point2d> ideal = gridAt(start, 60.0 * out.orientation + c.startTurn);
    double worst = 0.0;
    for (size_t i = 0; i < truth.size(); ++i)
        worst = std::max(worst, cv::norm(gridmatch::apply(out.fit, ideal[i]) - truth[i]));
    EXPECT_LT(worst, 0.05 * kSpacing);
}

const cv::Matx33d kFlat(1, 0, 0, 0, 1, 0, 0, 0, 1);
// About 35 degrees of tilt seen from a focal length of four code widths, about the code's centre:
// the far side is a sixth smaller than the near one.
const cv::Matx33d kTilted = cv::Matx33d(1, 0, 200, 0, 1, 200, 0, 0, 1) *
                            cv::Matx33d(1.0, 0.08, 0, -0.05, 0.93, 0, 0.0007, -0.0004, 1) *
                            cv::Matx33d(1, 0, -200, 0, 1, -200, 0, 0, 1);

INSTANTIATE_TEST_SUITE_P(Views, Refinement,
                         ::testing::Values(Case{"flat_centred", kFlat, 0, 0.0, true},
                                           Case{"tilted_two_steps_off", kTilted, 2, 4.0, true},
                                           Case{"tilted_turned_start", kTilted, 0, 63.0, true},
                                           Case{"no_markers", kTilted, 1, 0.0, false}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
