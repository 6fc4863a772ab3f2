// The fast forms of the stages against their direct computation on small inputs: the separable
// LoG (and its buffer-reusing form), the stamped (and windowed) centre search, the projection cut
// to the non-zero shape, and the clustering's density rows in vector lanes.
#include <algorithm>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "ImageRotation.h"
#include "LogFilter.h"
#include "ROI_Segment.h"
#include "TemplateSearch.h"
#include "test_support.h"

namespace {

// Bright blobs on black: sparse like the binary crops the stages see.
cv::Mat blobs(cv::Size size, int count, uint64_t seed, cv::Rect area = cv::Rect()) {
    cv::Mat m = cv::Mat::zeros(size, CV_8U);
    if (area.empty()) area = cv::Rect(cv::Point(), size);
    cv::RNG rng(seed);
    for (int i = 0; i < count; ++i)
        cv::circle(m, {rng.uniform(area.x, area.br().x), rng.uniform(area.y, area.br().y)},
                   rng.uniform(1, 5), cv::Scalar(rng.uniform(128, 256)), cv::FILLED);
    return m;
}

struct LogCase {
    float sigma;
    cv::Size size;
};

class SeparableLoG : public ::testing::TestWithParam<LogCase> {};

// Two separable passes equal the dense kernel within float rounding of the response's range.
TEST_P(SeparableLoG, MatchesTheDenseKernel) {
    const LogCase c = GetParam();
    cv::Mat src;
    blobs(c.size, 12, 5).convertTo(src, CV_32F);
    LogFilter filter;
    filter.setSigma({c.sigma});
    cv::Mat fast, kernel, dense;
    ASSERT_EQ(filter.process(src, fast), 0);
    filter.createLoGKernel(kernel, c.sigma);
    cv::filter2D(src, dense, -1, kernel, cv::Point(-1, -1), 0, cv::BORDER_DEFAULT);
    const float s2 = c.sigma * c.sigma;
    dense = cv::max(dense * s2, 0.0);
    double top = 0.0;
    cv::minMaxLoc(dense, nullptr, &top);
    ASSERT_GT(top, 0.0);
    EXPECT_LE(cv::norm(fast, dense, cv::NORM_INF), 1e-5 * top);
}

INSTANTIATE_TEST_SUITE_P(Sigmas, SeparableLoG,
                         ::testing::Values(LogCase{1.0f, {23, 17}}, LogCase{2.0f, {64, 48}},
                                           LogCase{3.0f, {60, 70}}, LogCase{2.6f, {40, 40}}),
                         [](const auto& i) {
                             return testsupport::label("sigma_%g_%dx%d", i.param.sigma,
                                                       i.param.size.width, i.param.size.height);
                         });

// Images kept between frames change no bit, whatever the scales (one, several, and one rounded
// to 0 that only the dense kernel takes) and whatever the kept images held before: another
// frame's output, one of another size, or nothing.
TEST(SeparableLoG, KeptImagesGiveTheSameBits) {
    cv::Mat src, other;
    blobs({96, 72}, 30, 9).convertTo(src, CV_32F);
    blobs({120, 90}, 40, 4).convertTo(other, CV_32F);
    for (const std::vector<float>& scales :
         {std::vector<float>{2.0f}, {2.0f, 3.0f}, {3.0f, 1.0f, 2.0f}, {0.3f, 2.0f}}) {
        LogFilter filter;
        filter.setSigma(scales);
        cv::Mat plain, dst, pass, input = src.clone();
        ASSERT_EQ(filter.process(input, plain), 0);
        EXPECT_EQ(cv::norm(input, src, cv::NORM_INF), 0.0) << "the plain form keeps its source";
        for (const cv::Mat& before : {cv::Mat(), other, src}) {
            cv::Mat earlier = before.clone();
            if (!earlier.empty()) {
                ASSERT_EQ(filter.process(earlier, dst, pass), 0);
            }
            input = src.clone();
            ASSERT_EQ(filter.process(input, dst, pass), 0);
            EXPECT_EQ(cv::norm(plain, dst, cv::NORM_INF), 0.0) << scales.size() << " scales";
        }
    }
}

struct StampCase {
    int dotSide;  // side of the square dot before the blur
    int stamps;
    uint64_t seed;
};

// A template drawn as the centre search draws it: squares, opened and blurred.
tsearch::Stamped stampedTemplate(const StampCase& c, cv::Mat& templ) {
    const int side = 31;
    cv::Mat drawn = cv::Mat::zeros(side, side, CV_8U);
    cv::Mat dot = cv::Mat::zeros(c.dotSide + 4, c.dotSide + 4, CV_8U);
    dot(cv::Rect(2, 2, c.dotSide, c.dotSide)).setTo(255);
    cv::GaussianBlur(dot, dot, cv::Size(3, 3), 1.0);
    tsearch::Stamped s;
    s.dot = dot;
    s.size = drawn.size();
    // Apart from one another, as the grid's dots are.
    cv::RNG rng(c.seed);
    for (int tries = 0; static_cast<int>(s.at.size()) < c.stamps && tries < 1000; ++tries) {
        const cv::Rect r({rng.uniform(0, side - dot.cols + 1), rng.uniform(0, side - dot.rows + 1)},
                         dot.size());
        bool apart = true;
        for (const cv::Point& a : s.at) apart = apart && (r & cv::Rect(a, dot.size())).empty();
        if (apart) s.at.push_back(r.tl());
    }
    cv::Mat sum = cv::Mat::zeros(drawn.size(), CV_32S), dot32;
    dot.convertTo(dot32, CV_32S);
    for (const cv::Point& a : s.at) sum(cv::Rect(a, dot.size())) += dot32;
    sum.convertTo(templ, CV_8U);  // saturates where stamps overlap too much
    return s;
}

class StampedSearch : public ::testing::TestWithParam<StampCase> {};

// The stamped search returns the maximum of the direct correlation over every place, the first
// in row order, and the same place and number from a window that contains it.
TEST_P(StampedSearch, EqualsTheDirectMaximum) {
    cv::Mat templ;
    const tsearch::Stamped s = stampedTemplate(GetParam(), templ);
    const cv::Mat image = blobs(cv::Size(75, 61), 40, GetParam().seed + 1);
    ASSERT_TRUE(tsearch::sameTemplate(s, templ));
    double want = -2.0;
    cv::Point wantAt;
    const cv::Rect all = tsearch::allPlaces(image, templ.size());
    for (int y = 0; y < all.height; ++y)
        for (int x = 0; x < all.width; ++x) {
            const double v = tsearch::correlation(image, templ, {x, y});
            if (v > want) want = v, wantAt = {x, y};
        }
    cv::Point at;
    double got = 0.0;
    ASSERT_TRUE(tsearch::bestPlace(image, s, all, at, got));
    EXPECT_EQ(got, want);
    EXPECT_EQ(at, wantAt);
    const cv::Rect window = cv::Rect(wantAt - cv::Point(5, 4), cv::Size(11, 9)) & all;
    ASSERT_TRUE(tsearch::bestPlace(image, s, window, at, got));
    EXPECT_EQ(got, want);
    EXPECT_EQ(at, wantAt);
}

INSTANTIATE_TEST_SUITE_P(Templates, StampedSearch,
                         ::testing::Values(StampCase{3, 5, 1}, StampCase{5, 9, 2},
                                           StampCase{7, 4, 3}, StampCase{4, 12, 4}),
                         [](const auto& i) {
                             return testsupport::label("dot_%d_stamps_%d", i.param.dotSide,
                                                       i.param.stamps);
                         });

TEST(StampedSearchShape, RefusesTemplatesThatAreNotTheStampsSummed) {
    cv::Mat templ;
    tsearch::Stamped s = stampedTemplate({5, 6, 9}, templ);
    ASSERT_TRUE(tsearch::sameTemplate(s, templ));
    templ.at<uchar>(0, 0) ^= 1;
    EXPECT_FALSE(tsearch::sameTemplate(s, templ));
    templ.at<uchar>(0, 0) ^= 1;
    s.at.push_back({templ.cols - 2, 0});  // a stamp over the edge
    EXPECT_FALSE(tsearch::sameTemplate(s, templ));
}

struct ProjectionCase {
    cv::Size size;
    cv::Rect area;  // where the blobs lie; empty: everywhere
    uint64_t seed;
};

class ShapeProjection : public ::testing::TestWithParam<ProjectionCase> {};

// Cutting the walk to the bands of the non-zero shape gives the same column sums at every
// angle the search uses, and at a few others.
TEST_P(ShapeProjection, SameSumsAsTheWholeWalk) {
    const ProjectionCase c = GetParam();
    const cv::Mat img = blobs(c.size, 30, c.seed, c.area);
    const NonZeroShape shape = NonZeroShape::of(img);
    ImageRotation rot;
    std::vector<float> whole(img.cols), cut(img.cols);
    std::vector<float> angles;
    for (int a = 0; a < 180; a += 2) angles.push_back(static_cast<float>(a));
    for (float a : {-37.5f, 181.0f, 359.0f, 0.25f}) angles.push_back(a);
    for (float a : angles) {
        const auto h = static_cast<unsigned short>(img.rows),
                   w = static_cast<unsigned short>(img.cols);
        rot.fast_rotate_project(whole.data(), img.data, h, w, a);
        rot.fast_rotate_project(cut.data(), img.data, h, w, a, shape);
        ASSERT_EQ(whole, cut) << "angle " << a;
    }
}

INSTANTIATE_TEST_SUITE_P(Images, ShapeProjection,
                         ::testing::Values(ProjectionCase{{120, 90}, {30, 20, 60, 50}, 1},
                                           ProjectionCase{{97, 131}, {0, 40, 50, 60}, 2},
                                           ProjectionCase{{150, 150}, {}, 3},
                                           ProjectionCase{{64, 200}, {40, 0, 24, 30}, 4},
                                           ProjectionCase{{211, 77}, {150, 50, 61, 27}, 5}),
                         [](const auto& i) {
                             return testsupport::label("%dx%d_seed_%d", i.param.size.width,
                                                       i.param.size.height,
                                                       static_cast<int>(i.param.seed));
                         });

// Lanes give the scalar form's bits (every tail length, far and coincident points), and the
// weights are the exponential of the same float argument to a few units of float rounding.
TEST(DensityRow, LanesEqualTheScalarFormAndTheExponential) {
    cv::RNG rng(3);
    std::vector<float> pts;
    for (int i = 0; i < 45; ++i)
        pts.insert(pts.end(), {rng.uniform(0.f, 900.f), rng.uniform(0.f, 700.f)});
    pts.insert(pts.end(), {pts[0], pts[1]});
    const size_t n = pts.size() / 2;
    const float invDenom = 1.f / (2.f * 72.f * 72.f);
    for (size_t from = 0; from < 9; ++from) {
        std::vector<float> d(n), w(n), d2(n), w2(n);
        const float far = ROI_Segment::densityRow(pts[0], pts[1], pts.data(), from, n, invDenom,
                                                  d.data(), w.data(), true);
        const float far2 = ROI_Segment::densityRow(pts[0], pts[1], pts.data(), from, n, invDenom,
                                                   d2.data(), w2.data(), false);
        EXPECT_EQ(far, far2);
        for (size_t j = from; j < n; ++j) {
            ASSERT_EQ(d[j], d2[j]) << j;
            ASSERT_EQ(w[j], w2[j]) << j;
            const float dx = pts[0] - pts[2 * j], dy = pts[1] - pts[2 * j + 1];
            const double e = std::exp(static_cast<double>(0.f - (dx * dx + dy * dy) * invDenom));
            EXPECT_NEAR(w[j], e, 3e-7 * e) << j;
        }
    }
}

}  // namespace
