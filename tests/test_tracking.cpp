// Bit sampling and orientation choice of the dot tracker.

#include "BlobAnalysis.h"
#include "Dots_tracking.h"
#include "Hexagon_Dots_tracking.h"
#include "SystemPara.h"
#include "qbcode_hexagon_recognition.h"
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

    cv::Mat render(double rotation, double spacing = 22.0) {
        return qbrender::renderCode(code,
                                    geomtest::style(rotation, spacing, {640, 480}, {320, 240}));
    }
};

// Images the tracker cannot read are the hostile-input table's (status -500).
TEST_F(Tracking, MissingSectionFailsRunAndTouchesNothing) {
    SystemPara broken(writeFile("no_boxratio.yml", paramsWithout("DotsTracking", "boxRatio")));
    Hexagon_Dots_tracking t(&broken, 22.0, 320, 240, 5);
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

// The row of the orientation whose printed markers outnumber the blank ones seen at least two
// to one, the best such ratio winning; the row is copied out.
TEST_F(Tracking, MarkerRulePicksTheBestRatioOfAtLeastTwo) {
    using Rows = std::vector<std::pair<int, int>>;  // (printed markers seen, blank markers seen)
    const std::pair<Rows, int> cases[] = {
        {{{2, 0}}, 0},                                           // 2 / 1 = 2.0 is enough
        {{{3, 2}}, -1},                                          // 1.5 is not
        {{{1, 0}, {4, 2}, {0, 0}}, 1},                           // 2.0 exactly
        {{{5, 0}, {3, 1}, {2, 0}}, 0},                           // a later weaker row loses
        {{{6, 0}, {6, 1}}, 1},                                   // tie: later
        {{{0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}}, -1},  // nothing seen
        {{}, -1}};                                               // no rows
    for (const auto& [rows, expected] : cases) {
        bits = cv::Mat::zeros(1, 91, CV_64F);
        const int idx = tracker.hexagon_outputD(rows.empty() ? cv::Mat() : markerRows(rows), bits);
        EXPECT_EQ(idx, expected) << rows.size() << " rows";
        EXPECT_EQ(bits.at<double>(0, 90), idx >= 0 ? 10.0 + idx : 0.0);
    }
}

// Each turn of the code by 60 degrees is undone; the box radius is ceil(spacing / 3), or
// spacing / 3.5 below 16. Fewer rings read the inner part of the code.
struct TurnCase {
    int turns;
    double spacing, r;  // r: half the box
    int rings;
};
class TrackTurned : public Tracking, public ::testing::WithParamInterface<TurnCase> {};

TEST_P(TrackTurned, UndoesTheTurnOfTheCode) {
    const TurnCase& c = GetParam();
    Hexagon_Dots_tracking t(&para, c.spacing, 320, 240, c.rings);
    cv::Mat img = render(60.0 * c.turns, c.spacing);
    EXPECT_EQ(t.Run(img, cv::Mat(), bits, boxes, false), c.turns);
    const int n = get_dots_num(c.rings);
    EXPECT_EQ(std::vector<int>(bits.begin<double>(), bits.end<double>()),
              std::vector<int>(code.begin(), code.begin() + n));
    ASSERT_EQ(boxes.size(), cv::Size(4, n));
    const cv::Mat centre = (cv::Mat_<double>(1, 4) << 320 - c.r, 240 - c.r, 320 + c.r, 240 + c.r);
    EXPECT_LE(cv::norm(boxes.row(0), centre, cv::NORM_INF), 1e-9);
}

INSTANTIATE_TEST_SUITE_P(
    Orientations, TrackTurned,
    ::testing::Values(TurnCase{0, 22, 8, 5}, TurnCase{1, 22, 8, 5}, TurnCase{2, 22, 8, 5},
                      TurnCase{3, 22, 8, 5}, TurnCase{4, 22, 8, 5}, TurnCase{5, 22, 8, 5},
                      TurnCase{0, 14, 4, 5}, TurnCase{0, 22, 8, 2}, TurnCase{2, 22, 8, 1}),
    [](const auto& i) {
        return label("turns_%d_spacing_%g_rings_%d", i.param.turns, i.param.spacing, i.param.rings);
    });

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
