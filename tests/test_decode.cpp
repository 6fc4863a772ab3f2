// Whole recognition calls on rendered 640 x 480 codes, clean and camera-like.

#include "qbcode_hexagon_recognition.h"
#include "qbcode_render.h"
#include "test_support.h"

using namespace testsupport;

namespace {

// Random turns of every condition are the accuracy suite's and the reference reads'; here the
// turns at and near the grid's symmetries, clean and through the camera.
struct StyleCase {
    double angle, spacing;
    uint64_t seed;  // 0: the clean rendering, whose box must hug the code
};
class Decode : public ::testing::TestWithParam<StyleCase> {};

// The bits, and a box around every printed dot, dot edges included, inside the image; with
// nothing else in view the box is at most about a spacing wider on each side.
TEST_P(Decode, ReturnsTheCodesOwnBitsAndABoxAroundIt) {
    const StyleCase& c = GetParam();
    qbrender::CodeStyle style;
    style.rotationDeg = c.angle;
    style.spacing = c.spacing;
    style.dotDiameter = 0.6 * c.spacing;
    style.centre = cv::Point2d(300 + std::fmod(c.angle, 40.0), 250 - std::fmod(c.angle, 30.0));
    // All 73 free bits in use and about three quarters of them printed.
    const std::vector<int> bits =
        qbrender::randomBits(uint64_t(c.angle * 10 + c.spacing / 10) + 101);
    const cv::Mat img = c.seed
                            ? qbrender::renderCamera(bits, style, qbrender::typicalCamera(c.seed))
                            : qbrender::renderCode(bits, style);
    std::vector<int> read(91, -1);
    int b[4] = {0, 0, 0, 0};
    ASSERT_EQ(quelbor_hexagon_recognition(img.data, img.rows, img.cols, 0, QBCODE_DEFAULT_PARAMS,
                                          read.data(), 91, b, 4),
              0);
    EXPECT_EQ(read, bits);
    std::vector<cv::Point2d> dots;
    const auto offsets = qbrender::gridOffsets(5, style.spacing, style.rotationDeg);
    for (size_t i = 0; i < bits.size(); ++i)
        if (bits[i]) dots.push_back(style.centre + cv::Point2d(offsets[i].y, offsets[i].x));
    cv::Mat xy = cv::Mat(dots).reshape(1);
    double x0, x1, y0, y1;
    cv::minMaxIdx(xy.col(0), &x0, &x1);
    cv::minMaxIdx(xy.col(1), &y0, &y1);
    const double e = style.dotDiameter / 2 - 1, slack = e + style.spacing * 1.5;
    const cv::Rect2d box(b[0], b[1], b[2], b[3]), frame(0, 0, img.cols, img.rows);
    const cv::Rect2d printed(x0 - e, y0 - e, x1 - x0 + 2 * e, y1 - y0 + 2 * e);
    const cv::Rect2d near(x0 - slack, y0 - slack, x1 - x0 + 2 * slack, y1 - y0 + 2 * slack);
    EXPECT_EQ(box & printed, printed) << box << printed;
    EXPECT_EQ(box & frame, box) << box;
    EXPECT_TRUE(c.seed || (box & near) == box) << box << near;
}

INSTANTIATE_TEST_SUITE_P(Cases, Decode,
                         ::testing::Values(StyleCase{0, 22, 0}, StyleCase{45, 22, 0},
                                           StyleCase{90, 22, 0}, StyleCase{240, 22, 0},
                                           StyleCase{333, 22, 0}, StyleCase{29.5, 22, 3},
                                           StyleCase{30, 22, 4}, StyleCase{60, 22, 5},
                                           StyleCase{359.4, 22, 6}, StyleCase{17, 18, 11},
                                           StyleCase{17, 26, 11}),
                         [](const auto& i) {
                             return label("deg_%g_spacing_%g_seed_%d", i.param.angle,
                                          i.param.spacing, static_cast<int>(i.param.seed));
                         });

}  // namespace
