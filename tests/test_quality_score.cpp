// Printing score: per-dot shares, floors, separation pairs and the total.

#include "PrintingScoreCal.h"
#include "SystemPara.h"
#include "test_support.h"

namespace {

const double kGap = 20.0;
const double kPerfectArea = 3.1415 * (0.3 * kGap) * (0.3 * kGap);

class PrintScore : public ::testing::Test {
protected:
    SystemPara para{QBCODE_DEFAULT_PARAMS};
    PrintingScoreCal score{&para};
    std::vector<double> parts;

    PrintScore() { score.gap = kGap; }

    // n perfect dots: expected area, intensity 70, round, centred, square box, own label.
    static cv::Mat perfect(int n) {
        cv::Mat t =
            cv::repeat((cv::Mat_<double>(1, 8) << kPerfectArea, 70, 1, 0, 10, 10, 0, 0), n, 1);
        for (int i = 0; i < n; ++i) t.at<double>(i, 7) = i;
        return t;
    }
};

// The totals come from their section; a missing section is the print-grade tests'.
TEST_F(PrintScore, PerfectTableEarnsEveryTotalButHalfTheIntensity) {
    EXPECT_NEAR(score.run(perfect(91), parts), 90.0, 1e-9);
    const std::vector<double> want{20.0, 10.0, 15.0, 15.0, 15.0, 15.0};
    ASSERT_EQ(parts.size(), 6u);
    for (size_t i = 0; i < 6; ++i) EXPECT_NEAR(parts[i], want[i], 1e-9) << "part " << i;
    SystemPara custom(
        writeFile("score40.yml", paramsWith("PrintScoreCalculate", "totalAreaScore", "40")));
    PrintingScoreCal weighted(&custom);
    weighted.gap = kGap;
    EXPECT_NEAR(weighted.run(perfect(91), parts), 110.0, 1e-9);
    EXPECT_EQ(PrintingScoreCal(nullptr).Initialize(), -801);
}

TEST_F(PrintScore, SharedLabelsArePairsAndMissingDotsStillCount) {
    cv::Mat t = perfect(40);
    t.at<double>(9, 7) = t.at<double>(20, 7) = 3;  // rows 3, 9, 20: three pairs
    t.at<double>(30, 0) = 0.0;                     // not a dot, but its label still pairs
    t.at<double>(30, 7) = 31;
    t.at<double>(35, 7) = t.at<double>(36, 7) = -1;  // -1 never pairs
    score.run(t, parts);
    EXPECT_EQ(score.dotCount, 39);
    EXPECT_EQ(score.connectCount, 4.0);
    EXPECT_NEAR(parts[5], 15.0 - 4.0, 1e-12);
    score.connectCount = 0;  // the pairwise method agrees
    score.connectiveness_scoreCalM1(t);
    EXPECT_EQ(score.connectCount, 4.0);
}

TEST_F(PrintScore, FloorsAndRefusals) {
    parts = {-7.0};
    for (const cv::Mat& t : {perfect(34), cv::Mat(), perfect(91).colRange(0, 7)})
        EXPECT_EQ(score.run(t, parts), 0.0);
    EXPECT_EQ(parts, std::vector<double>{-7.0});
    EXPECT_GT(score.run(perfect(35), parts), 0.0);
    score.gap = -1.0;
    EXPECT_EQ(score.run(perfect(91), parts), -1.0);
}

}  // namespace
