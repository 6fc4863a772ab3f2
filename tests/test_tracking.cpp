// Bit sampling and orientation choice of the dot tracker.
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "BlobAnalysis.h"
#include "Dots_tracking.h"
#include "Hexagon_Dots_tracking.h"
#include "SystemPara.h"
#include "qbcode_render.h"
#include "test_geometry_support.h"
#include "test_support.h"

namespace {

// A 6 x n matrix whose row k has `on` of the printed markers and `off` of the blank ones set.
cv::Mat markerRows(const std::vector<std::pair<int, int>>& rows, int n = 91) {
    cv::Mat D = cv::Mat::zeros(static_cast<int>(rows.size()), n, CV_64F);
    for (int k = 0; k < D.rows; ++k) {
        for (int j = 0; j < rows[k].first; ++j)
            D.at<double>(k, qbrender::markerOnPositions()[j]) = 1;
        for (int j = 0; j < rows[k].second; ++j)
            D.at<double>(k, qbrender::markerOffPositions()[j]) = 1;
        D.at<double>(k, n - 1) = 10.0 + k;  // tells the copied row apart
    }
    return D;
}

}  // namespace

class Tracking : public ::testing::Test {
protected:
    SystemPara para{QBCODE_DEFAULT_PARAMS};
    Hexagon_Dots_tracking tracker{&para, 22.0, 320, 240, 5};
    std::vector<int> code = qbrender::payloadBits(0x5a17c3e9b2d4f086ULL);
    cv::Mat bits, boxes;

    static std::vector<int> rowBits(const cv::Mat& m) {
        std::vector<int> v;
        m.convertTo(v, CV_32S);
        return v;
    }

    cv::Mat render(double rotation, double spacing = 22.0) {
        return qbrender::renderCode(code,
                                    geomtest::style(rotation, spacing, {640, 480}, {320, 240}));
    }
};

// ---- box radius and sampling window ----

class BoxRadius : public Tracking,
                  public ::testing::WithParamInterface<std::pair<double, double>> {};

TEST_P(BoxRadius, SmallSpacingsDivideLargeOnesRoundUp) {
    EXPECT_DOUBLE_EQ(tracker.setBoxRadius(GetParam().first), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(Branches, BoxRadius,
                         ::testing::Values(std::make_pair(16.0, 16.0 / 3.5),
                                           std::make_pair(16.5, 6.0), std::make_pair(18.0, 6.0),
                                           std::make_pair(18.1, 7.0)),
                         [](const auto& i) {
                             return testsupport::label("spacing_%g", i.param.first);
                         });

struct WindowCase {
    cv::Point pixel;  // (x = column, y = row)
    int row, col, r, expected;
};
class SamplingWindow : public Tracking, public ::testing::WithParamInterface<WindowCase> {};

TEST_P(SamplingWindow, IsHalfOpenAndSkipsRowAndColumnZero) {
    const WindowCase& c = GetParam();
    cv::Mat img = cv::Mat::zeros(20, 20, CV_8UC1);
    img.at<uchar>(c.pixel) = 255;
    tracker.boxRatio = 0.0f;  // any counted pixel makes the bit 1
    EXPECT_EQ(tracker.calculateBitValue(img, c.row, c.col, c.r), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Pixels, SamplingWindow,
    ::testing::Values(WindowCase{{7, 7}, 10, 10, 3, 1},     // first row and column inside
                      WindowCase{{12, 12}, 10, 10, 3, 1},   // last row and column inside
                      WindowCase{{10, 13}, 10, 10, 3, 0},   // row + r is outside
                      WindowCase{{13, 10}, 10, 10, 3, 0},   // col + r is outside
                      WindowCase{{5, 0}, 1, 5, 3, 0},       // row 0 never counts
                      WindowCase{{0, 5}, 5, 1, 3, 0},       // column 0 never counts
                      WindowCase{{5, 1}, 1, 5, 3, 1},       // row 1 does
                      WindowCase{{10, 10}, 40, 40, 5, 0}),  // box fully outside
    [](const auto& i) {
        return testsupport::label("pixel_%d_%d_box_%d_%d", i.param.pixel.x, i.param.pixel.y,
                                  i.param.row, i.param.col);
    });

TEST_F(Tracking, ThresholdUsesTheOddBoxAreaAndIsStrict) {
    // r = 3, ratio 0.5: threshold 49 * 0.5 = 24.5 against a 6 x 6 window.
    tracker.boxRatio = 0.5f;
    for (int filled : {24, 25}) {
        cv::Mat img = cv::Mat::zeros(20, 20, CV_8UC1);
        for (int k = 0; k < filled; ++k) img.at<uchar>(7 + k / 6, 7 + k % 6) = 1;
        EXPECT_EQ(tracker.calculateBitValue(img, 10, 10, 3), filled >= 25 ? 1 : 0) << filled;
    }
    // A white image fills 36 pixels of a 6 x 6 window, not the 49 of the threshold's box.
    cv::Mat white(20, 20, CV_8UC1, cv::Scalar(255));
    tracker.boxRatio = 0.75f;  // 36.75
    EXPECT_EQ(tracker.calculateBitValue(white, 10, 10, 3), 0);
    tracker.boxRatio = 0.7f;  // 34.3
    EXPECT_EQ(tracker.calculateBitValue(white, 10, 10, 3), 1);
    // Only grey bytes and floats are counted.
    tracker.boxRatio = 0.0f;
    EXPECT_EQ(tracker.calculateBitValue(cv::Mat(20, 20, CV_8UC3, cv::Scalar::all(255)), 10, 10, 3),
              0);
    EXPECT_EQ(tracker.calculateBitValue(cv::Mat(20, 20, CV_16UC1, cv::Scalar(65535)), 10, 10, 3),
              0);
    EXPECT_EQ(tracker.calculateBitValue(cv::Mat(20, 20, CV_32FC1, cv::Scalar(0.25)), 10, 10, 3), 1);
    EXPECT_EQ(tracker.calculateBitValue(cv::Mat(20, 20, CV_32FC1, cv::Scalar(-1.0)), 10, 10, 3), 0);
    EXPECT_EQ(tracker.calculateBitValue(cv::Mat(), 10, 10, 3), 0);
}

// ---- configuration and box centres ----

TEST_F(Tracking, MissingSectionFailsRunAndTouchesNothing) {
    SystemPara broken(testsupport::writeFile(
        "no_boxratio.yml", testsupport::paramsWithout("DotsTracking", "boxRatio")));
    Hexagon_Dots_tracking t(&broken, 22.0, 320, 240, 5);
    t.boxRatio = 0.7f;
    EXPECT_LT(t.Dots_tracking::Initiate(), 0);
    EXPECT_FLOAT_EQ(t.boxRatio, 0.7f);
    cv::Mat img(480, 640, CV_8UC1, cv::Scalar(100));
    bits = cv::Mat(1, 3, CV_64F, cv::Scalar(7));
    boxes = cv::Mat(2, 4, CV_64F, cv::Scalar(9));
    EXPECT_EQ(t.Run(img, img, bits, boxes, true), -501);
    EXPECT_EQ(bits.cols, 3);
    EXPECT_EQ(boxes.at<double>(1, 3), 9.0);
    EXPECT_EQ(img.at<uchar>(0, 0), 100);  // not binarised either
    Hexagon_Dots_tracking orphan(nullptr, 22.0, 320, 240, 5);
    EXPECT_EQ(orphan.Run(img, img, bits, boxes, false), -501);
}

TEST_F(Tracking, BoxCentresRejectOnlyWhenWidthAndTypeAreBothWrong) {
    cv::Mat centres(1, 1, CV_8U, cv::Scalar(3));
    EXPECT_EQ(tracker.boundingBox_centroidPoint(cv::Mat::zeros(2, 3, CV_32F), centres), -1);
    EXPECT_EQ(centres.at<uchar>(0, 0), 3);
    EXPECT_GE(tracker.boundingBox_centroidPoint(cv::Mat::zeros(2, 3, CV_64F), centres), 0);
    EXPECT_GE(
        tracker.boundingBox_centroidPoint((cv::Mat_<double>(1, 4) << 5.5, 1, 6.5, 2), centres), 0);
    EXPECT_EQ(centres.at<double>(0, 0), 6.0);
    EXPECT_EQ(centres.at<double>(0, 1), 1.5);
}

// ---- orientation choice ----

struct MarkerCase {
    std::vector<std::pair<int, int>> rows;  // (printed markers seen, blank markers seen)
    int expected;
};
class MarkerRule : public Tracking, public ::testing::WithParamInterface<MarkerCase> {};

TEST_P(MarkerRule, PicksTheBestRatioOfAtLeastTwo) {
    bits = cv::Mat::zeros(1, 91, CV_64F);
    const int idx = tracker.hexagon_outputD(markerRows(GetParam().rows), bits);
    EXPECT_EQ(idx, GetParam().expected);
    EXPECT_EQ(bits.at<double>(0, 90), idx >= 0 ? 10.0 + idx : 0.0);
}

INSTANTIATE_TEST_SUITE_P(
    Ratios, MarkerRule,
    ::testing::Values(MarkerCase{{{2, 0}}, 0},                  // 2 / 1 = 2.0 is enough
                      MarkerCase{{{3, 2}}, -1},                 // 1.5 is not
                      MarkerCase{{{1, 0}, {4, 2}, {0, 0}}, 1},  // 2.0 exactly
                      MarkerCase{{{5, 0}, {3, 1}, {2, 0}}, 0},  // a later weaker row loses
                      MarkerCase{{{6, 0}, {6, 1}}, 1},          // tie: later
                      MarkerCase{{{0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}}, -1}),
    [](const auto& i) {
        return testsupport::label("rows_%d_case_%d", static_cast<int>(i.param.rows.size()),
                                  static_cast<int>(i.index));
    });

TEST_F(Tracking, NoRowsIsMinusOne) {
    EXPECT_EQ(tracker.hexagon_outputD(cv::Mat(), bits), -1);
}

// ---- the whole tracker on rendered codes ----

struct TurnCase {
    int turns;
    double spacing, r;  // r: half the box, ceil(spacing / 3) or spacing / 3.5 below 16
};
class TrackTurned : public Tracking, public ::testing::WithParamInterface<TurnCase> {};

TEST_P(TrackTurned, UndoesTheTurnOfTheCode) {
    const TurnCase& c = GetParam();
    Hexagon_Dots_tracking t(&para, c.spacing, 320, 240, 5);
    cv::Mat img = render(60.0 * c.turns, c.spacing);
    EXPECT_EQ(t.Run(img, cv::Mat(), bits, boxes, false), c.turns);
    EXPECT_EQ(rowBits(bits), code);
    ASSERT_EQ(boxes.size(), cv::Size(4, 91));
    const cv::Mat centre = (cv::Mat_<double>(1, 4) << 320 - c.r, 240 - c.r, 320 + c.r, 240 + c.r);
    EXPECT_LE(cv::norm(boxes.row(0), centre, cv::NORM_INF), 1e-9);
}

INSTANTIATE_TEST_SUITE_P(SixOrientations, TrackTurned,
                         ::testing::Values(TurnCase{0, 22, 8}, TurnCase{1, 22, 8},
                                           TurnCase{2, 22, 8}, TurnCase{3, 22, 8},
                                           TurnCase{4, 22, 8}, TurnCase{5, 22, 8},
                                           TurnCase{0, 14, 4}),
                         [](const auto& i) {
                             return testsupport::label("turns_%d_spacing_%g", i.param.turns,
                                                       i.param.spacing);
                         });

TEST_F(Tracking, BinarisesTheCallersImageAtSixty) {
    cv::Mat img = render(0.0);
    img.at<uchar>(5, 5) = 60;
    img.at<uchar>(5, 6) = 61;
    EXPECT_EQ(tracker.Run(img, cv::Mat(), bits, boxes, false), 0);
    EXPECT_EQ(img.at<uchar>(5, 5), 0);
    EXPECT_EQ(img.at<uchar>(5, 6), 255);
    Hexagon_Dots_tracking unit(&para, 22.0, 320, 240, 5, 1.0);
    img = render(0.0);
    EXPECT_EQ(unit.Run(img, cv::Mat(), bits, boxes, false), 0);
    EXPECT_EQ(img.at<uchar>(262, 320), 1);  // marker dot 1, one step down
}

TEST_F(Tracking, UnreadableInputsGiveMinus500AndZeroBits) {
    boxes = cv::Mat(1, 1, CV_64F, cv::Scalar(4));
    cv::Mat empty, colour, wide, ints, grey = render(0.0);
    EXPECT_EQ(tracker.Run(empty, cv::Mat(), bits, boxes, false), -500);
    ASSERT_EQ(bits.size(), cv::Size(91, 1));
    EXPECT_EQ(cv::countNonZero(bits), 0);
    cv::merge(std::vector<cv::Mat>{grey, grey, grey}, colour);
    grey.convertTo(wide, CV_16U, 256.0);
    grey.convertTo(ints, CV_32S);  // the threshold cannot take it; nothing is counted
    for (cv::Mat* m : {&colour, &wide, &ints})
        EXPECT_EQ(tracker.Run(*m, cv::Mat(), bits, boxes, false), -500);
    EXPECT_EQ(boxes.at<double>(0, 0), 4.0);
    // A centre far outside or a broken spacing reads nothing.
    Hexagon_Dots_tracking away(&para, 22.0, -100000, 2000000000, 5);
    EXPECT_EQ(away.Run(grey, cv::Mat(), bits, boxes, false), -500);
    Hexagon_Dots_tracking broken(&para, std::nan(""), 320, 240, 5);
    grey = render(0.0);
    EXPECT_EQ(broken.Run(grey, cv::Mat(), bits, boxes, false), -500);
}

TEST_F(Tracking, FewerRingsStayInsideTheirRow) {
    for (int rings : {0, 1, 2}) {
        Hexagon_Dots_tracking t(&para, 22.0, 320, 240, rings);
        cv::Mat blank = cv::Mat::zeros(480, 640, CV_8UC1);
        EXPECT_EQ(t.Run(blank, cv::Mat(), bits, boxes, false), -500) << rings;
        EXPECT_EQ(bits.cols, rings == 0 ? 1 : 1 + 3 * rings * (rings + 1));
    }
    Hexagon_Dots_tracking two(&para, 22.0, 320, 240, 2);
    cv::Mat img = render(0.0);
    EXPECT_EQ(two.Run(img, cv::Mat(), bits, boxes, false), 0);
    EXPECT_EQ(rowBits(bits), std::vector<int>(code.begin(), code.begin() + 19));
}

TEST_F(Tracking, QualityAnalysisMeasuresTheDecodedGrid) {
    cv::Mat grey = render(0.0), bin = grey.clone(), centres;
    ASSERT_EQ(tracker.Run(bin, cv::Mat(), bits, boxes, false), 0);
    ASSERT_GE(tracker.boundingBox_centroidPoint(boxes, centres), 0);
    std::vector<DotAttribute> records(91);
    std::vector<DotAttribute*> dots;
    for (auto& r : records) dots.push_back(&r);
    tracker.imgName = "q.bmp";
    EXPECT_GE(tracker.print_qualityAnalysis(bin, grey, centres, dots), 0);
    EXPECT_EQ(records[1].found, 1);                    // a marker dot, always printed
    EXPECT_EQ(records[3].found, 0);                    // a blank marker
    const cv::Point2d* earlier = records[1].centroid;  // points into the first analysis
    cv::Mat negative(grey.size(), CV_32F, cv::Scalar(-1.0));
    EXPECT_EQ(tracker.print_qualityAnalysis(bin, negative, centres, dots), -503);
    ASSERT_NE(earlier, nullptr);
    EXPECT_GT(earlier->x, 0.0);  // still alive after the second call
    EXPECT_EQ(tracker.blobAnalysis->imgName, "q.bmp");
    Hexagon_Dots_tracking orphan(nullptr, 22.0, 320, 240, 5);  // no configuration record
    EXPECT_EQ(orphan.print_qualityAnalysis(bin, grey, centres, dots), -503);
}
