// Centre of the code by template correlation. Both angle searches run end to end in the
// hostile-input table ("legacy_rotation") and the golden reads.

#include "Stages.h"
#include "SystemPara.h"
#include "qbcode_render.h"
#include "startPoint_cal.h"
#include "test_geometry_support.h"
#include "test_support.h"

class StartPoint : public ::testing::Test {
protected:
    std::unique_ptr<SystemPara> para = std::make_unique<SystemPara>(QBCODE_DEFAULT_PARAMS);
    cv::Mat templ;
    cv::Point centre{-7, -7};
    // A 13-pixel code whose centre dot is at (113, 104).
    const cv::Mat code =
        geomtest::renderBinary(geomtest::style(0.0, 13.0, cv::Size(230, 210), {113, 104}));

    void useParams(const std::string& name, const std::string& text) {
        para = std::make_unique<SystemPara>(writeFile(name, text));
    }
    int search(float& gap, const cv::Mat& img) {
        return startPoint_cal(para.get()).findStartPoint_NCC(gap, img, templ, centre, 0.0);
    }
};

// Padding off: the match is shifted by half the template. Padding on: the match location is
// taken as the centre, one pixel past it on each axis.
TEST_F(StartPoint, EitherPaddingLandsOnTheCentreDot) {
    for (const char* padding : {"0", "1"}) {
        useParams("geom_padding.yml", paramsWith("PatternFeatures", "img_padding", padding));
        float gap = 13.0f;
        EXPECT_GE(search(gap, code), 0) << padding;
        EXPECT_LE(cv::norm(centre - cv::Point(113, 104)), 1.5) << centre;
        EXPECT_EQ(gap, 13.0f);
    }
}

TEST_F(StartPoint, StatusCodes) {
    // Five rings at 13 px: half = 72, a 145-pixel template must be smaller than the image.
    float gap = 13.0f;
    const cv::Mat blank = cv::Mat::zeros(200, 200, CV_8U);
    EXPECT_EQ(search(gap, cv::Mat::zeros(145, 300, CV_8U)), -321);
    EXPECT_EQ(search(gap, cv::Mat::zeros(300, 145, CV_8U)), -321);
    EXPECT_EQ(search(gap, cv::Mat()), -321);
    EXPECT_EQ(search(gap, blank), -314);  // weak match resets the centre
    EXPECT_EQ(centre, cv::Point(0, 0));
    for (float bad : {0.f, -4.f, std::numeric_limits<float>::quiet_NaN(), 1e30f}) {
        gap = bad;
        EXPECT_EQ(search(gap, blank), -321) << bad;
    }
    gap = 13.0f;
    EXPECT_EQ(startPoint_cal(nullptr).findStartPoint_NCC(gap, blank, templ, centre, 0.0), -320);
    useParams("geom_many_rings.yml", paramsWith("AlgPipeline", "layer", "1000"));
    EXPECT_EQ(search(gap, blank), -321);
    useParams("geom_no_gapdelta.yml", paramsWithout("PatternFeatures", "gapDelta"));
    EXPECT_EQ(search(gap, blank), -320);
    useParams("geom_no_layer.yml", paramsWithout("AlgPipeline", "layer"));
    EXPECT_EQ(search(gap, blank), -320);
}

// The centre from the dots alone, for views the upright template matches weakly: the dots amid
// the outline of a code's printed dots, the centre dot first however the code is seen; nothing
// from an outline too large for one code.
TEST(CentresOfDots, TheCentreDotComesFirstUnderPerspective) {
    const cv::Matx33d views[] = {cv::Matx33d::eye(),
                                 // foreshortened to 0.6 along x and sheared
                                 cv::Matx33d(0.6, 0.2, 0, 0, 1, 0, 0, 0, 1),
                                 // a perspective that grows the far side by a sixth
                                 cv::Matx33d(1, 0, 0, 0, 1, 0, 0.0013, 0, 1)};
    const double spacing = 12.0;
    for (uint64_t seed : {1, 2, 3})
        for (const cv::Matx33d& h : views) {
            std::vector<int> bits = qbrender::randomBits(seed, 0.5);
            bits[0] = 1;  // the centre is a marker, always printed
            std::vector<cv::Point2f> dots, twoCodes;
            cv::Point2f truth;
            const std::vector<cv::Point2d> grid = qbrender::gridOffsets(5, spacing, 17.0 * seed);
            for (size_t i = 0; i < grid.size(); ++i) {
                const cv::Vec3d p = h * cv::Vec3d(grid[i].x, grid[i].y, 1.0);
                const cv::Point2f at(static_cast<float>(200 + p[0] / p[2]),
                                     static_cast<float>(150 + p[1] / p[2]));
                if (i == 0) truth = at;
                if (!bits[i]) continue;
                dots.push_back(at);
                twoCodes.push_back(at);
                twoCodes.push_back(at + cv::Point2f(11.0f * static_cast<float>(spacing), 0.0f));
            }
            const std::vector<cv::Point2f> found = stages::centresOfDots(dots, spacing, 7);
            ASSERT_EQ(found.size(), 7u);
            EXPECT_EQ(found[0], truth) << "seed " << seed;
            EXPECT_TRUE(stages::centresOfDots(twoCodes, spacing, 7).empty());
        }
    EXPECT_TRUE(stages::centresOfDots(std::vector<cv::Point2f>(6, {1, 1}), spacing, 7).empty());
}
