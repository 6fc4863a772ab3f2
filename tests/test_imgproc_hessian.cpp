// Hessian dot enhancement and its circular shift.

#include "Dots_HessianProcess.h"
#include "test_support.h"

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

}  // namespace

// The fast path must equal the plain shifts bit for bit.
TEST(HessianResponse, FastPathEqualsLiteralShiftsBitForBit) {
    for (cv::Size size : {cv::Size(50, 50), cv::Size(173, 61)}) {
        cv::Mat blurred, dst;
        cv::GaussianBlur(randomImage(size.height, size.width, CV_8U, 7), blurred, {5, 5}, 1.5);
        Dots_HessianProcess h;
        cv::Mat src = blurred.clone(), want = literalResponse(blurred, {2.0f, 3.0f});
        ASSERT_EQ(h.process(src, dst), 0);
        h.resetBoundaryPixels(want);
        EXPECT_EQ(cv::norm(dst, want, cv::NORM_INF), 0) << size;
        EXPECT_GT(cv::countNonZero(dst), 0);
        // Images kept from a frame of another size, or of this one, change nothing.
        cv::Mat kept, blur;
        for (const cv::Mat& before : {randomImage(80, 90, CV_32F, 3), want.clone()}) {
            cv::Mat earlier = before.clone(), input = blurred.clone();
            ASSERT_EQ(h.process(earlier, kept, blur), 0);
            ASSERT_EQ(h.process(input, kept, blur), 0);
            EXPECT_EQ(cv::norm(kept, want, cv::NORM_INF), 0) << size << " kept images";
        }
    }
}

TEST(HessianResponse, StatusForSizesAndScales) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const struct {
        cv::Size size;
        std::vector<float> scales;
        int status;
    } cases[] = {{{0, 0}, {2}, -100},      {{200, 49}, {2}, -112}, {{50, 50}, {2}, 0},
                 {{60, 60}, {8.0f}, -121}, {{60, 60}, {7.8f}, 0},  {{60, 60}, {0}, -122},
                 {{60, 60}, {nan}, -122}};
    for (const auto& c : cases) {
        Dots_HessianProcess h;
        h.setScale(c.scales);
        cv::Mat src = randomImage(c.size.height, c.size.width, CV_8U, 1), dst;
        EXPECT_EQ(h.process(src, dst), c.status) << c.size << " scale " << c.scales[0];
    }
    // The frame reset needs more than five pixels on each side. The shifts themselves are held
    // by the plain response above, which is made of them.
    Dots_HessianProcess h;
    cv::Mat empty;
    EXPECT_EQ(h.circshift(empty, empty, 1, 1), -100);
    cv::Mat thin(5, 100, CV_32F, cv::Scalar(1)), six(6, 12, CV_32F, cv::Scalar(1));
    EXPECT_EQ(h.resetBoundaryPixels(thin), -112);
    EXPECT_EQ(cv::countNonZero(thin), 500);
    ASSERT_EQ(h.resetBoundaryPixels(six), 0);
    EXPECT_EQ(cv::countNonZero(six), 0);
}
