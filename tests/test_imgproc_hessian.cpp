// Hessian dot enhancement and its circular shift.
#include <cmath>
#include <limits>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "Dots_HessianProcess.h"

namespace {

cv::Mat randomImage(int rows, int cols, int type, uint64_t seed) {
    cv::Mat m(rows, cols, type);
    if (!m.empty()) cv::RNG(seed).fill(m, cv::RNG::UNIFORM, 0, 256);
    return m;
}

// Straight from the definition: eight shifted copies, whole-image arithmetic, no reset.
cv::Mat literalResponse(const cv::Mat& src8, const std::vector<float>& scales) {
    Dots_HessianProcess shifter;
    cv::Mat src, out = cv::Mat::zeros(src8.size(), CV_32F);
    src8.convertTo(src, CV_32F);
    for (float sigma : scales) {
        const int r = static_cast<int>((3.0f * sigma + 1.0f) + 0.5);
        cv::Mat g(1, 2 * r + 1, CV_32F), S, A, B, C, D, E, F, G, H, p1, p2, mm, q;
        const float norm = 1.0f / (sigma * std::sqrt(2.0f * static_cast<float>(CV_PI)));
        for (int i = -r; i <= r; ++i)
            g.at<float>(0, i + r) =
                norm * std::exp(-static_cast<float>(i * i) / (2.0f * sigma * sigma));
        cv::sepFilter2D(src, S, CV_32F, g, g.t());
        shifter.circshift(S, A, 1, 0), shifter.circshift(S, B, -1, 0);
        shifter.circshift(S, C, 0, 1), shifter.circshift(S, D, 0, -1);
        shifter.circshift(A, E, 0, 1), shifter.circshift(A, F, 0, -1);
        shifter.circshift(B, G, 0, 1), shifter.circshift(B, H, 0, -1);
        cv::Mat Dxx = A + B - 2 * S, Dyy = C + D - 2 * S, Dxy = (E + H - F - G) / 4;
        cv::Mat m = (Dxx + Dyy) / 2;
        cv::multiply(Dxx, Dyy, p1), cv::multiply(Dxy, Dxy, p2), cv::multiply(m, m, mm);
        cv::sqrt(mm - (p1 - p2), q);
        cv::Mat l1 = m + q, l2 = m - q, R = cv::Mat::zeros(S.size(), CV_32F);
        for (int i = 0; i < static_cast<int>(R.total()); ++i) {
            float a = l1.at<float>(i), b = l2.at<float>(i);
            if (!(a < 0 && b < 0)) continue;
            if (std::fabs(a) > std::fabs(b)) std::swap(a, b);
            R.at<float>(i) = a * a / std::fabs(b) * (sigma * sigma) * 10.0f;
        }
        cv::max(out, R, out);
    }
    return out;
}

cv::Mat spotImage(int size, cv::Point2f at, float sigma, float contrast) {
    cv::Mat img(size, size, CV_32F);
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            const float d2 = (x - at.x) * (x - at.x) + (y - at.y) * (y - at.y);
            img.at<float>(y, x) = contrast * std::exp(-d2 / (2 * sigma * sigma));
        }
    return img;
}

double maxOf(const cv::Mat& m) {
    double mx = 0;
    cv::minMaxLoc(m, nullptr, &mx);
    return mx;
}

}  // namespace

class CircShift : public ::testing::TestWithParam<cv::Point> {};

TEST_P(CircShift, MatchesModularIndexAndInverts) {
    const int dx = GetParam().x, dy = GetParam().y;
    Dots_HessianProcess h;
    cv::Mat src = randomImage(7, 11, CV_32S, 3), dst, back;
    ASSERT_EQ(h.circshift(src, dst, dx, dy), 0);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 11; ++x)
            ASSERT_EQ(dst.at<int>(y, x),
                      src.at<int>(((y + dy) % 7 + 7) % 7, ((x + dx) % 11 + 11) % 11))
                << y << "," << x;
    ASSERT_EQ(h.circshift(dst, back, -dx, -dy), 0);
    EXPECT_EQ(cv::norm(back, src, cv::NORM_INF), 0);
}

INSTANTIATE_TEST_SUITE_P(Shifts, CircShift,
                         ::testing::Values(cv::Point(0, 0), cv::Point(1, 0), cv::Point(0, 1),
                                           cv::Point(-1, -1), cv::Point(11, 7), cv::Point(-11, 7),
                                           cv::Point(12, -8), cv::Point(25, 100),
                                           cv::Point(-23, -15), cv::Point(10, 6)));

TEST(CircShiftEdge, InPlaceAndEmpty) {
    Dots_HessianProcess h;
    cv::Mat m = (cv::Mat_<float>(1, 3) << 1, 2, 3), empty;
    ASSERT_EQ(h.circshift(m, m, 1, 0), 0);  // dst(y, x) = src(y, x + 1)
    EXPECT_EQ(m.at<float>(0, 0), 2.0f);
    EXPECT_EQ(h.circshift(empty, m, 1, 1), -100);
}

TEST(HessianResponse, FastPathEqualsLiteralShiftsBitForBit) {
    for (cv::Size size : {cv::Size(50, 50), cv::Size(173, 61)}) {
        cv::Mat img = randomImage(size.height, size.width, CV_8U, 7), blurred, dst;
        cv::GaussianBlur(img, blurred, cv::Size(5, 5), 1.5);
        Dots_HessianProcess h;
        cv::Mat src = blurred.clone();
        ASSERT_EQ(h.process(src, dst), 0);
        cv::Mat want = literalResponse(blurred, {2.0f, 3.0f});
        Dots_HessianProcess frame;
        frame.resetBoundaryPixels(want);
        EXPECT_EQ(cv::norm(dst, want, cv::NORM_INF), 0) << size;
        EXPECT_GT(maxOf(dst), 0);
        EXPECT_EQ(src.type(), CV_32FC1);  // converted in place
    }
}

TEST(HessianResponse, SpotOutscoresLineAndDarkDotsGiveNothing) {
    Dots_HessianProcess h;
    cv::Mat spot = spotImage(80, {40, 40}, 2, 100), line(80, 80, CV_32F), dst;
    for (int x = 0; x < 80; ++x) spotImage(80, {40, 40}, 2, 100).col(40).copyTo(line.col(x));
    ASSERT_EQ(h.process(spot, dst), 0);
    cv::Point peak;
    double spotMax = 0;
    cv::minMaxLoc(dst, nullptr, &spotMax, nullptr, &peak);
    EXPECT_EQ(peak, cv::Point(40, 40));
    EXPECT_EQ(dst.at<float>(10, 10), 0.0f);  // flat background
    ASSERT_EQ(h.process(line, dst), 0);
    EXPECT_LT(maxOf(dst), spotMax / 10);
    // Dark dots: nothing at the dot; elsewhere only float rounding of the flat background.
    cv::Mat dark = 200 - spotImage(80, {40, 40}, 2, 100);
    ASSERT_EQ(h.process(dark, dst), 0);
    EXPECT_EQ(maxOf(dst(cv::Rect(35, 35, 11, 11))), 0);
    EXPECT_LT(maxOf(dst), spotMax * 1e-4);
    // The outer 5 pixels are always cleared, even under a bright spot.
    cv::Mat corner = spotImage(60, {6, 6}, 2, 100);
    ASSERT_EQ(h.process(corner, dst), 0);
    EXPECT_EQ(maxOf(dst(cv::Rect(0, 0, 5, 60))), 0);
    EXPECT_GT(maxOf(dst(cv::Rect(5, 5, 10, 10))), 0);
}

struct HessianStatus {
    cv::Size size;
    std::vector<float> scales;
    int status;
};

class HessianStatusTest : public ::testing::TestWithParam<HessianStatus> {};

TEST_P(HessianStatusTest, Status) {
    const HessianStatus& p = GetParam();
    Dots_HessianProcess h;
    h.setScale(p.scales);
    cv::Mat src = randomImage(p.size.height, p.size.width, CV_8U, 1), dst;
    EXPECT_EQ(h.process(src, dst), p.status);
}

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();
INSTANTIATE_TEST_SUITE_P(
    Cases, HessianStatusTest,
    ::testing::Values(HessianStatus{{0, 0}, {2}, -100}, HessianStatus{{200, 49}, {2}, -112},
                      HessianStatus{{49, 200}, {2}, -112}, HessianStatus{{50, 50}, {2}, 0},
                      HessianStatus{{60, 60}, {8.0f}, -121}, HessianStatus{{60, 60}, {7.8f}, 0},
                      HessianStatus{{60, 60}, {kInf}, -121}, HessianStatus{{60, 60}, {0}, -122},
                      HessianStatus{{60, 60}, {-2}, -122}, HessianStatus{{60, 60}, {kNaN}, -122},
                      HessianStatus{{60, 60}, {}, 0}));

TEST(HessianResponse, FailureKeepsEarlierScalesWithoutFrameReset) {
    cv::Mat img = randomImage(60, 70, CV_8U, 5), blurred, dst;
    cv::GaussianBlur(img, blurred, cv::Size(5, 5), 1.5);
    Dots_HessianProcess h;
    h.setScale({2.0f, 8.0f});
    cv::Mat src = blurred.clone();
    ASSERT_EQ(h.process(src, dst), -121);
    EXPECT_EQ(cv::norm(dst, literalResponse(blurred, {2.0f}), cv::NORM_INF), 0);
}

TEST(HessianFrame, ResetNeedsMoreThanFivePixels) {
    Dots_HessianProcess h;
    cv::Mat thin(5, 100, CV_32F, cv::Scalar(1)), six(6, 12, CV_32F, cv::Scalar(1));
    EXPECT_EQ(h.resetBoundaryPixels(thin), -112);
    EXPECT_EQ(cv::countNonZero(thin), 500);
    ASSERT_EQ(h.resetBoundaryPixels(six), 0);
    EXPECT_EQ(cv::countNonZero(six), 0);
}
