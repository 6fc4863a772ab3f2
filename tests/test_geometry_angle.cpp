// Image rotation, the angle search and the dot spacing derived from it. Turns in place and the
// spacing of codes at every angle are held by the frame-chain test and the reference reads.

#include "ImageRotation.h"
#include "LatticeCheck.h"
#include "PatternRotationCalculation.h"
#include "SystemPara.h"
#include "gapCalculation.h"
#include "rotationAngleCal_C.h"
#include "test_geometry_support.h"
#include "test_support.h"

using geomtest::periodDiff;

namespace {

cv::Mat randomBinary(int rows, int cols, uint64_t seed) {
    cv::Mat m(rows, cols, CV_8U);
    cv::RNG(seed).fill(m, cv::RNG::UNIFORM, 0, 3);
    return m == 0;
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
    // The centre the rotation turns about, with the same integer steps as the code.
    auto mid = [](int n, int old) { return float(int(float(n / 2) - float((n - old) / 2) + 0.5)); };
    const float cx = mid(newW, W), cy = mid(newH, H);
    float x0 = (W >> 1) - (cosa * cx + s * cy), y0 = (H >> 1) - (-s * cx + cosa * cy);
    cv::Mat out(H, W, CV_8U);
    for (int r = 0; r < H; ++r, x0 += s, y0 += cosa) {
        float x = x0, y = y0;
        for (int c = 0; c < W; ++c, x += cosa, y -= s)
            out.at<unsigned char>(r, c) =
                (x >= 0 && y >= 0 && x < W && y < H)
                    ? padded[W * int(double(y) + 0.5) + int(double(x) + 0.5)]
                    : 0;
    }
    return out;
}

cv::Mat scoreRow() {
    return cv::Mat::zeros(1, 180, CV_32F);
}
cv::Mat peakTable() {
    return cv::Mat::zeros(180, 20, CV_32F);
}

}  // namespace

// Every angle, exact: the four-row walk against the plain walk, and the fused column sums
// against the turned image reduced by OpenCV. The source is an exact-size buffer so that the
// sanitizer sees any read past its end. Angle 0 is the identity.
TEST(Rotation, FastRoutesMatchThePlainWalkAndEachOther) {
    for (cv::Size size :
         {cv::Size(1, 1), cv::Size(7, 1), cv::Size(1, 6), cv::Size(65, 64), cv::Size(131, 97)}) {
        const cv::Mat img = randomBinary(size.height, size.width, 7);
        ImageRotation rot;
        cv::Mat fast;
        rot.fast_rotate(img, fast, 0.f);
        EXPECT_TRUE(geomtest::sameMat(fast, img)) << size;
        std::vector<unsigned char> src(img.datastart, img.dataend), out(src.size());
        const auto H = static_cast<unsigned short>(img.rows),
                   W = static_cast<unsigned short>(img.cols);
        std::vector<float> sums(W);
        for (float angle = -7.5f; angle < 360.f; angle += 3.25f) {
            rot.fast_rotate_image(out.data(), src.data(), H, W, angle);
            const cv::Mat turned(H, W, CV_8U, out.data());
            ASSERT_EQ(cv::countNonZero(turned != plainRotation(img, angle)), 0) << size << angle;
            rot.fast_rotate_project(sums.data(), src.data(), H, W, angle);
            cv::Mat turnedCopy = turned.clone(), proj;
            PeakDetector().imageProject(turnedCopy, proj, 0);
            for (int c = 0; c < W; ++c) ASSERT_EQ(sums[c], proj.at<float>(0, c)) << size << angle;
        }
    }
}

// A rendered code at rotation phi comes back as phi modulo the grid's 60-degree period, its
// spacing within 3 %, and turned by the angle found a second search finds 0.
TEST(AngleOfRenderedCode, IsFoundAndTurnsTheGridUpright) {
    const double spacing = 13.0;
    for (double phi : {0.0, 7.0, 31.0, 58.0, 104.0, 151.0, 179.0}) {
        cv::Mat bin = geomtest::renderBinary(geomtest::style(phi, spacing, cv::Size(180, 180)));
        cv::Mat scores = scoreRow(), table = peakTable(), s2 = scoreRow(), t2 = peakTable(), up;
        PatternRotationCalculation search;
        const int theta = search.rotationAngleCal(bin, scores, table);
        EXPECT_LE(std::fabs(periodDiff(phi, theta)), 2.0) << phi << " found as " << theta;
        EXPECT_NEAR(gapCalculation().gap_cal_M2(scores, table), spacing, 0.03 * spacing) << phi;
        EXPECT_NEAR(gapCalculation().gap_cal(scores, table), spacing, 0.03 * spacing) << phi;
        ImageRotation().rotate(bin, up, static_cast<float>(theta));
        EXPECT_LE(std::fabs(periodDiff(search.rotationAngleCal(up, s2, t2), 0)), 2.0) << phi;
    }
}

// The window about the dots' own lattice rows finds the whole search's angle and spacing; a
// window whose best lies at its edge leaves the angle to the whole search.
TEST(AngleOfRenderedCode, WindowAboutTheLatticeRowsFindsTheSameAngle) {
    const double spacing = 13.0;
    for (double phi : {0.0, 7.0, 31.0, 58.0, 104.0, 151.0, 179.0}) {
        cv::Mat bin = geomtest::renderBinary(geomtest::style(phi, spacing, cv::Size(180, 180)));
        cv::Mat labels, stats, centres;
        const int n = cv::connectedComponentsWithStats(bin, labels, stats, centres);
        std::vector<cv::Point2f> dots;
        for (int i = 1; i < n; ++i)
            dots.emplace_back(centres.at<double>(i, 0), centres.at<double>(i, 1));
        const double upright = latticeOf(dots).rows + 30.0;
        cv::Mat scores = scoreRow(), table = peakTable(), s2 = scoreRow(), t2 = peakTable();
        PatternRotationCalculation search;
        const int theta = search.rotationAngleCal(bin, scores, table);
        EXPECT_EQ(search.rotationAngleNear(bin, s2, t2, upright, 6.0), theta) << phi;
        EXPECT_EQ(gapCalculation().gap_cal_M2(s2, t2), gapCalculation().gap_cal_M2(scores, table))
            << phi;
        cv::Mat s3 = scoreRow(), t3 = peakTable();
        EXPECT_EQ(search.rotationAngleNear(bin, s3, t3, theta + 5.0, 6.0), -1) << phi;
    }
}

// The legacy-matrix variant's angle and spacing are checked end to end by the recognition run;
// the thresholds of the peaks by the rendered codes above.
TEST(AngleAndSpacing, StatusCodes) {
    SystemPara para{QBCODE_DEFAULT_PARAMS};
    SystemPara partial(
        writeFile("geom_no_coarse_fine.yml", paramsWithout("PatternRotation", "coarse_fine")));
    cv::Mat m1 = scoreRow(), m2 = peakTable(), empty, grey(50, 50, CV_8U, cv::Scalar(40));
    EXPECT_EQ(rotationAngleCal_C(empty, m1, m2, &para), -100);
    EXPECT_EQ(rotationAngleCal_C(grey, m1, m2, nullptr), -100);
    EXPECT_EQ(rotationAngleCal_C(grey, m1, m2, &partial), -100);
    EXPECT_EQ(rotationAngleCal_C(grey, m1, m2, &para), -301);  // no score
    gapCalculation gaps;
    cv::Mat scores = scoreRow(), table = peakTable();
    EXPECT_FLOAT_EQ(gaps.gap_cal_M2(scores, table), -313.f);  // no peaks anywhere
    EXPECT_FLOAT_EQ(gaps.gap_cal_M2(cv::Mat(), table), -311.f);
    EXPECT_FLOAT_EQ(gaps.gap_cal_M2(scores, cv::Mat::zeros(179, 19, CV_32F)), -312.f);
    table.col(0).setTo(50.f);  // a single peak per row gives no candidate
    EXPECT_FLOAT_EQ(gaps.gap_cal(scores, table), -313.f);
    std::vector<float> w = {1.9f, 1.9f, 1.9f};
    EXPECT_FLOAT_EQ(gaps.gap_mean_cal(w), 1.f);  // lossy: 0+1.9 -> 1, 1+1.9 -> 2, 2+1.9 -> 3
}
