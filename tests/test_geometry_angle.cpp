// Image rotation, projection peaks, the angle search and the dot spacing derived from it.
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "ImageRotation.h"
#include "PatternRotationCalculation.h"
#include "SystemPara.h"
#include "gapCalculation.h"
#include "rotationAngleCal_C.h"
#include "test_geometry_support.h"
#include "test_support.h"

using geomtest::periodDiff;

namespace {

cv::Mat randomBinary(int rows, int cols, unsigned seed) {
    cv::Mat m(rows, cols, CV_8U);
    std::mt19937 rng(seed);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) m.at<unsigned char>(r, c) = (rng() % 3 == 0) ? 255 : 0;
    return m;
}

// The nearest-neighbour rotation written out plainly, one row at a time, reading from a copy
// with zeros appended so that the reads the bounds test lets through past the end see 0.
cv::Mat plainRotation(const cv::Mat& src, float angle) {
    const int H = src.rows, W = src.cols;
    std::vector<unsigned char> padded(src.total() + 2 * W + 2, 0);
    std::copy(src.datastart, src.dataend, padded.begin());
    const float a = angle * 0.017453333f;
    const float cosa = std::cos(a), sina = std::sin(a), s = std::sin(-a);
    const int newH = static_cast<int>(std::round(H * std::fabs(cosa) + W * std::fabs(sina)));
    const int newW = static_cast<int>(std::round(H * std::fabs(sina) + W * std::fabs(cosa)));
    const float cx =
        static_cast<float>(static_cast<int>(float(newW / 2) - float((newW - W) / 2) + 0.5));
    const float cy =
        static_cast<float>(static_cast<int>(float(newH / 2) - float((newH - H) / 2) + 0.5));
    float x0 = (W >> 1) - (cosa * cx + s * cy), y0 = (H >> 1) - (-s * cx + cosa * cy);
    cv::Mat out(H, W, CV_8U);
    for (int r = 0; r < H; ++r) {
        float x = x0, y = y0;
        for (int c = 0; c < W; ++c) {
            unsigned char v = 0;
            if (x >= 0 && y >= 0 && x < W && y < H)
                v = padded[W * int(double(y) + 0.5) + int(double(x) + 0.5)];
            out.at<unsigned char>(r, c) = v;
            x += cosa;
            y -= s;
        }
        x0 += s;
        y0 += cosa;
    }
    return out;
}

// One symmetric peak of height v whose slope crossing lies at start + 2.5.
void addPeak(cv::Mat& proj, int start, float v) {
    const float shape[6] = {v / 4, v / 2, v, v, v / 2, v / 4};
    for (int i = 0; i < 6; ++i) proj.at<float>(0, start + i) = shape[i];
}

}  // namespace

// ---- Rotation ----

class Rotation : public ::testing::TestWithParam<cv::Size> {
protected:
    ImageRotation rot;
};

TEST_P(Rotation, AngleZeroIsTheIdentityForBothRoutes) {
    const cv::Mat src = randomBinary(GetParam().height, GetParam().width, 3);
    cv::Mat fast = cv::Mat::zeros(src.size(), CV_8U), warped;
    rot.fast_rotate(src, fast, 0.f);
    EXPECT_EQ(cv::countNonZero(fast != src), 0);
    cv::Mat copy = src.clone();
    rot.rotate(copy, warped, 0.f);
    EXPECT_EQ(cv::countNonZero(warped != src), 0);
}

// Every angle, exact: the four-row walk against the plain walk, and the fused column sums
// against the turned image reduced by OpenCV. The source is an exact-size buffer so that the
// sanitizer sees any read past its end.
TEST_P(Rotation, FastRoutesMatchThePlainWalkAndEachOther) {
    const cv::Mat img = randomBinary(GetParam().height, GetParam().width, 7);
    std::vector<unsigned char> src(img.datastart, img.dataend);
    const auto H = static_cast<unsigned short>(img.rows), W = static_cast<unsigned short>(img.cols);
    std::vector<unsigned char> out(src.size());
    std::vector<float> sums(W);
    PeakDetector projector;
    for (float angle = -7.5f; angle < 360.f; angle += 3.25f) {
        rot.fast_rotate_image(out.data(), src.data(), H, W, angle);
        const cv::Mat turned(H, W, CV_8U, out.data());
        ASSERT_EQ(cv::countNonZero(turned != plainRotation(img, angle)), 0) << angle;
        rot.fast_rotate_project(sums.data(), src.data(), H, W, angle);
        cv::Mat turnedCopy = turned.clone(), proj;
        projector.imageProject(turnedCopy, proj, 0);
        for (int c = 0; c < W; ++c) ASSERT_EQ(sums[c], proj.at<float>(0, c)) << angle << " " << c;
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, Rotation,
                         ::testing::Values(cv::Size(1, 1), cv::Size(7, 1), cv::Size(1, 6),
                                           cv::Size(4, 5), cv::Size(65, 64), cv::Size(131, 97)));

// The driver turns images in place; the angle search may hand over views.
TEST(RotationBuffers, InPlaceViewsAndMissingDestinations) {
    cv::Mat img = randomBinary(50, 70, 5), separate;
    ImageRotation rot;
    rot.rotate(img, separate, 30.f);
    rot.rotate(img, img, 30.f);
    EXPECT_EQ(cv::countNonZero(img != separate), 0);

    const cv::Mat view = randomBinary(40, 50, 11)(cv::Rect(5, 3, 31, 29));  // not continuous
    cv::Mat expected = cv::Mat::zeros(view.size(), CV_8U), unallocated, same = view.clone();
    rot.fast_rotate(view.clone(), expected, 37.f);
    rot.fast_rotate(view, unallocated, 37.f);
    EXPECT_EQ(cv::countNonZero(unallocated != expected), 0);
    rot.fast_rotate(same, same, 37.f);
    EXPECT_EQ(cv::countNonZero(same != expected), 0);
}

// ---- Peak finder ----

TEST(FindPeaks, HeightMustExceedTheThresholdStrictly) {
    cv::Mat proj = cv::Mat::zeros(1, 30, CV_32F);
    addPeak(proj, 12, 1200.f);
    cv::Mat peaks = cv::Mat::zeros(20, 4, CV_32F);
    EXPECT_EQ(findPeaks(proj, peaks, 1200.f, 4), 0);
    ASSERT_EQ(findPeaks(proj, peaks, 1199.f, 4), 1);
    EXPECT_FLOAT_EQ(peaks.at<float>(0, 0), 0.f);
    EXPECT_FLOAT_EQ(peaks.at<float>(0, 1), 14.5f);
    EXPECT_FLOAT_EQ(peaks.at<float>(0, 2), 1200.f);
    EXPECT_FLOAT_EQ(peaks.at<float>(0, 3), 4.f);
}

TEST(FindPeaks, KeepsOnlyTheTwentyLeftmost) {
    cv::Mat proj = cv::Mat::zeros(1, 270, CV_32F);
    for (int i = 0; i < 25; ++i) addPeak(proj, 5 + 10 * i, 2000.f + i);
    cv::Mat peaks = cv::Mat::zeros(180, 4, CV_32F);
    ASSERT_EQ(findPeaks(proj, peaks, 1200.f, 4), 20);
    EXPECT_FLOAT_EQ(peaks.at<float>(19, 1), 5 + 190 + 2.5f);
    EXPECT_FLOAT_EQ(peaks.at<float>(20, 1), 0.f);
}

TEST(FindPeaks, ACrossingWithoutASteeperPointToItsLeftIsNoPeak) {
    // Width 1: the slope at j is src[j-1] - src[j+1]. A concave rise from column 0 never
    // steepens to the left of the top; a rise that starts flat does.
    cv::Mat concave = (cv::Mat_<float>(1, 16) << 0, 100, 190, 270, 340, 400, 450, 490, 520, 540,
                       550, 550, 540, 520, 490, 450);
    cv::Mat convex = (cv::Mat_<float>(1, 16) << 0, 0, 10, 40, 100, 200, 350, 500, 550, 550, 500,
                      350, 200, 100, 40, 10);
    cv::Mat peaks = cv::Mat::zeros(20, 4, CV_32F);
    EXPECT_EQ(findPeaks(concave, peaks, 0.f, 1), 0);
    EXPECT_EQ(findPeaks(convex, peaks, 0.f, 1), 1);
}

TEST(FindPeaks, ShortOrDegenerateInputsFindNothing) {
    cv::Mat peaks = cv::Mat::zeros(20, 4, CV_32F);
    for (int n : {0, 1, 3, 9}) {
        cv::Mat proj = cv::Mat(1, n, CV_32F, cv::Scalar(5000.f));
        EXPECT_EQ(findPeaks(proj, peaks, 0.f, 4), 0) << n;
    }
    cv::Mat proj = cv::Mat::zeros(1, 30, CV_32F);
    addPeak(proj, 12, 5000.f);
    EXPECT_EQ(findPeaks(proj, peaks, 0.f, 0), 0);
    cv::Mat fewRows = cv::Mat::zeros(2, 4, CV_32F);
    cv::Mat many = cv::Mat::zeros(1, 270, CV_32F);
    for (int i = 0; i < 25; ++i) addPeak(many, 5 + 10 * i, 2000.f);
    EXPECT_EQ(findPeaks(many, fewRows, 0.f, 4), 2);
}

TEST(PeakDetectorScore, SumsTheThreeHighestPeaksAndRecordsAllPositions) {
    cv::Mat proj = cv::Mat::zeros(1, 60, CV_32F);
    addPeak(proj, 5, 2000.f);
    addPeak(proj, 17, 3000.f);
    addPeak(proj, 29, 2500.f);
    addPeak(proj, 41, 1500.f);
    cv::Mat scores = cv::Mat::zeros(1, 180, CV_32F), table = cv::Mat::zeros(180, 20, CV_32F);
    PeakDetector det;
    det.setParas(1200.f, 1, 4);
    det.peakDetector(proj, scores, table, 10);
    EXPECT_FLOAT_EQ(scores.at<float>(0, 10), 7500.f);
    EXPECT_FLOAT_EQ(table.at<float>(10, 0), 7.5f);
    EXPECT_FLOAT_EQ(table.at<float>(10, 3), 43.5f);
    EXPECT_FLOAT_EQ(table.at<float>(10, 4), 0.f);
    EXPECT_EQ(cv::countNonZero(scores), 1);
}

// ---- Angle search ----

TEST(AngleSearch, TiesGoToTheSmallestAngleAndEmptyImagesScoreNothing) {
    PatternRotationCalculation search;
    cv::Mat scores = cv::Mat::zeros(1, 180, CV_32F), table = cv::Mat::zeros(180, 20, CV_32F);
    for (cv::Mat img :
         {cv::Mat(), cv::Mat(1, 1, CV_8U, cv::Scalar(255)), cv::Mat(3, 3, CV_32F, cv::Scalar(1))}) {
        EXPECT_EQ(search.rotationAngleCal(img, scores, table), 0);
        EXPECT_EQ(cv::countNonZero(scores), 0);
    }
    scores.at<float>(0, 64) = 5.f;
    scores.at<float>(0, 4) = 5.f;
    EXPECT_EQ(search.rotated_angle(scores), 4);
}

// A rendered code at rotation phi comes back as phi modulo the grid's 60-degree period, and its
// spacing within 3 %.
class AngleOfRenderedCode : public ::testing::TestWithParam<double> {};

TEST_P(AngleOfRenderedCode, IsFoundAndTurnsTheGridUpright) {
    const double phi = GetParam(), spacing = 13.0;
    cv::Mat bin = geomtest::renderBinary(geomtest::style(phi, spacing, cv::Size(180, 180)));
    cv::Mat scores = cv::Mat::zeros(1, 180, CV_32F), table = cv::Mat::zeros(180, 20, CV_32F);
    PatternRotationCalculation search;
    const int theta = search.rotationAngleCal(bin, scores, table);
    EXPECT_LE(std::fabs(periodDiff(phi, theta)), 2.0) << theta;
    gapCalculation gaps;
    EXPECT_NEAR(gaps.gap_cal_M2(scores, table), spacing, 0.03 * spacing);
    EXPECT_NEAR(gaps.gap_cal(scores, table), spacing, 0.03 * spacing);

    // Turned by the angle found, the grid is upright: a second search finds 0.
    ImageRotation rot;
    cv::Mat upright;
    rot.rotate(bin, upright, static_cast<float>(theta));
    cv::Mat s2 = cv::Mat::zeros(1, 180, CV_32F), t2 = cv::Mat::zeros(180, 20, CV_32F);
    EXPECT_LE(std::fabs(periodDiff(search.rotationAngleCal(upright, s2, t2), 0)), 2.0);
}

INSTANTIATE_TEST_SUITE_P(Rotations, AngleOfRenderedCode,
                         ::testing::Values(0.0, 7.0, 13.5, 22.0, 31.0, 45.0, 58.0, 77.0, 104.0,
                                           151.0, 179.0));

// ---- Legacy-matrix variant on the smoothed grey crop ----

class AngleOnGreyCrop : public ::testing::Test {
protected:
    SystemPara para{QBCODE_DEFAULT_PARAMS};
    cv::Mat m1 = cv::Mat::zeros(1, 180, CV_32F), m2 = cv::Mat::zeros(180, 20, CV_32F);
};

TEST_F(AngleOnGreyCrop, FindsTheAngleAndFeedsTheSpacing) {
    for (double phi : {0.0, 17.0, 41.0, 95.0, 143.0}) {
        cv::Mat grey = geomtest::renderGrey(geomtest::style(phi, 14.0, cv::Size(190, 190)));
        cv::GaussianBlur(grey, grey, cv::Size(3, 3), 0, 0);
        m1.setTo(0);
        m2.setTo(0);
        const int theta = rotationAngleCal_C(grey, m1, m2, &para);
        ASSERT_GE(theta, 0) << phi;
        EXPECT_LE(std::fabs(periodDiff(phi, theta)), 2.0) << phi << " " << theta;
        EXPECT_NEAR(gapCalculation().gap_cal_M2(m1, m2), 14.0, 0.03 * 14.0) << phi;
    }
}

TEST_F(AngleOnGreyCrop, ReportsUnreadableSectionEmptyImageAndNoScore) {
    cv::Mat empty;
    EXPECT_EQ(rotationAngleCal_C(empty, m1, m2, &para), -100);
    cv::Mat grey(50, 50, CV_8U, cv::Scalar(40));
    EXPECT_EQ(rotationAngleCal_C(grey, m1, m2, nullptr), -100);
    SystemPara partial(testsupport::writeFile(
        "geom_no_coarse_fine.yml", testsupport::paramsWithout("PatternRotation", "coarse_fine")));
    EXPECT_EQ(rotationAngleCal_C(grey, m1, m2, &partial), -100);
    EXPECT_EQ(rotationAngleCal_C(grey, m1, m2, &para), -301);
}

// ---- Spacing ----

class Spacing : public ::testing::Test {
protected:
    cv::Mat scores = cv::Mat::zeros(1, 180, CV_32F);
    cv::Mat table = cv::Mat::zeros(180, 20, CV_32F);
    gapCalculation gaps;

    void fillRow(int row, float step, int count) {
        for (int i = 0; i < count; ++i) table.at<float>(row, i) = 10.f + step * i;
    }
};

// The companions of the best angle are the rows 60 and 120 degrees away, kept in 0..179. Every
// other row holds a different spacing with more peaks, so one wrong row moves the median.
class SpacingCompanions : public Spacing, public ::testing::WithParamInterface<std::vector<int>> {};

TEST_P(SpacingCompanions, ReadTheRightRows) {
    const std::vector<int> rows = GetParam();
    for (int r = 0; r < 180; ++r) fillRow(r, 20.f, 15);
    for (int r : rows) {
        table.row(r).setTo(0);
        fillRow(r, 12.f, 5);
    }
    scores.at<float>(0, rows[0]) = 1.f;
    EXPECT_FLOAT_EQ(gaps.gap_cal_M2(scores, table), static_cast<float>(12.0 * 1.1547));
}

INSTANTIATE_TEST_SUITE_P(BestAngles, SpacingCompanions,
                         ::testing::Values(std::vector<int>{10, 70, 130},
                                           std::vector<int>{60, 0, 120},
                                           std::vector<int>{119, 59, 179},
                                           std::vector<int>{120, 60, 0},
                                           std::vector<int>{150, 90, 30}));

TEST_F(Spacing, UsesTheMedianOfTheCandidatesNearTheFirstMedian) {
    // Gaps 9.5, 10, 14, 14.5, 30: first median 14, band keeps 14 and 14.5.
    const float pos[] = {10.f, 19.5f, 29.5f, 43.5f, 58.f, 88.f};
    for (int i = 0; i < 6; ++i) table.at<float>(0, i) = pos[i];
    scores.at<float>(0, 0) = 1.f;
    EXPECT_FLOAT_EQ(gaps.gap_cal_M2(scores, table), static_cast<float>(14.25 * 1.1547));
}

TEST_F(Spacing, ErrorValues) {
    EXPECT_FLOAT_EQ(gaps.gap_cal_M2(scores, table), -313.f);  // no peaks anywhere
    EXPECT_FLOAT_EQ(gaps.gap_cal_M2(cv::Mat::zeros(2, 179, CV_32F), table), -311.f);
    EXPECT_FLOAT_EQ(gaps.gap_cal_M2(scores, cv::Mat::zeros(179, 19, CV_32F)), -312.f);
    EXPECT_FLOAT_EQ(gaps.gap_cal_M2(cv::Mat(), table), -311.f);
    // Either dimension matching passes the shape checks.
    EXPECT_FLOAT_EQ(gaps.gap_cal_M2(cv::Mat::zeros(2, 180, CV_32F), table), -313.f);
    EXPECT_FLOAT_EQ(gaps.gap_cal_M2(scores, cv::Mat::zeros(180, 3, CV_32F)), -313.f);
    // A single peak per row gives no candidate.
    for (int r = 0; r < 180; ++r) table.at<float>(r, 0) = 50.f;
    EXPECT_FLOAT_EQ(gaps.gap_cal_M2(scores, table), -313.f);
    EXPECT_FLOAT_EQ(gaps.gap_cal(scores, table), -313.f);
}

TEST_F(Spacing, CandidatesSkipEmptyEntriesButNotWhatFollows) {
    const float row[] = {5.f, 17.f, 0.f, 40.f, 52.f};
    for (int i = 0; i < 5; ++i) table.at<float>(3, i) = row[i];
    std::vector<float> out;
    gaps.get_gap_candidates(out, table, 3);
    EXPECT_EQ(out, (std::vector<float>{12.f, 40.f, 12.f}));
    gaps.get_gap_candidates(out, table, 180);
    gaps.get_gap_candidates(out, table, -1);
    EXPECT_EQ(out.size(), 3u);
}

TEST_F(Spacing, MedianAndLossyMean) {
    std::vector<float> v = {4.f, 1.f, 3.f, 2.f}, none;
    EXPECT_FLOAT_EQ(gaps.gap_median_cal(v), 2.5f);
    EXPECT_EQ(v, (std::vector<float>{1.f, 2.f, 3.f, 4.f}));
    EXPECT_FLOAT_EQ(gaps.gap_median_cal(none), -1.f);
    std::vector<float> w = {1.9f, 1.9f, 1.9f};
    EXPECT_FLOAT_EQ(gaps.gap_mean_cal(w), 1.f);  // 0+1.9 -> 1, 1+1.9 -> 2, 2+1.9 -> 3
    EXPECT_TRUE(std::isnan(gaps.gap_mean_cal(none)));
}
