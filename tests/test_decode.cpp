// Whole recognition calls on rendered 640 x 480 camera-like codes.

#include "qbcode_hexagon_recognition.h"
#include "qbcode_render.h"
#include "test_support.h"

using namespace testsupport;

namespace {

struct Decoded {
    int status = 1;
    std::vector<int> bits = std::vector<int>(91, -1);
    int box[4] = {0, 0, 0, 0};
};

Decoded decode(const cv::Mat& img) {
    Decoded d;
    d.status = quelbor_hexagon_recognition(img.data, img.rows, img.cols, 0, QBCODE_DEFAULT_PARAMS,
                                           d.bits.data(), 91, d.box, 4);
    return d;
}

// Codes with all 73 free bits in use and about three quarters of them printed: the reader
// takes an image with fewer than 40 blobs to show no code at all.
std::vector<int> codeFor(double angle) {
    return qbrender::randomBits(static_cast<uint64_t>(angle * 10.0) + 101);
}

// (x0, y0, x1, y1) of `outer` holds that of `inner`.
bool holds(const cv::Vec4d& outer, const cv::Vec4d& inner) {
    return outer[0] <= inner[0] && outer[1] <= inner[1] && outer[2] >= inner[2] &&
           outer[3] >= inner[3];
}

// Decodes the code drawn in `style` (through the camera unless seed is 0) and checks its bits
// and a box around every printed dot, dot edges included, inside the image; with nothing else
// in view the box is at most about a spacing wider on each side.
void expectRead(const std::vector<int>& bits, const qbrender::CodeStyle& style, uint64_t seed) {
    const Decoded d =
        decode(seed ? qbrender::renderCamera(bits, style, qbrender::typicalCamera(seed))
                    : qbrender::renderCode(bits, style));
    ASSERT_EQ(d.status, 0);
    EXPECT_EQ(d.bits, bits);
    const auto offsets = qbrender::gridOffsets(5, style.spacing, style.rotationDeg);
    cv::Vec4d dots(1e9, 1e9, -1e9, -1e9);
    for (size_t i = 0; i < bits.size(); ++i) {
        if (!bits[i]) continue;
        const double x = style.centre.x + offsets[i].y, y = style.centre.y + offsets[i].x;
        dots = cv::Vec4d(std::min(dots[0], x), std::min(dots[1], y), std::max(dots[2], x),
                         std::max(dots[3], y));
    }
    const cv::Vec4d box(d.box[0], d.box[1], d.box[0] + d.box[2], d.box[1] + d.box[3]);
    const double edge = style.dotDiameter / 2 - 1, slack = style.spacing * 1.5;
    EXPECT_TRUE(holds(box, dots + cv::Vec4d(-edge, -edge, edge, edge))) << box << dots;
    EXPECT_TRUE(holds(cv::Vec4d(0, 0, style.size.width, style.size.height), box)) << box;
    EXPECT_TRUE(seed || holds(dots + cv::Vec4d(-slack, -slack, slack, slack), box)) << box;
}

}  // namespace

// Random turns of every condition are the accuracy suite's and the reference reads'; here the
// turns at and near the grid's symmetries, clean and through the camera.
struct StyleCase {
    double angle, spacing;
    uint64_t seed;  // 0: the clean rendering, whose box must hug the code
};
class Decode : public ::testing::TestWithParam<StyleCase> {};

TEST_P(Decode, ReturnsTheCodesOwnBitsAndABoxAroundIt) {
    const StyleCase& c = GetParam();
    qbrender::CodeStyle style;
    style.rotationDeg = c.angle;
    style.spacing = c.spacing;
    style.dotDiameter = 0.6 * c.spacing;
    style.centre = cv::Point2d(300 + std::fmod(c.angle, 40.0), 250 - std::fmod(c.angle, 30.0));
    expectRead(codeFor(c.angle + c.spacing / 100), style, c.seed);
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
