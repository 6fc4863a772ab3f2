// Whole reads of rendered codes, clean and camera-like: bits, box and geometry in input pixels.

#include "SystemPara.h"
#include "qbcode_reader.hpp"
#include "qbcode_render.h"
#include "test_geometry_support.h"
#include "test_support.h"

namespace {

// Random turns of every condition are the accuracy suite's and the reference reads'; here the
// turns at and near the grid's symmetries, other spacings, and the fixed pre-crop.
struct Placement {
    const char* name;
    double rotation, spacing;
    cv::Point2d centre;
    uint64_t seed = 0;  // of the camera; 0: the clean rendering
    cv::Size size = {640, 480};
    bool preCrop = false;
};

class Decode : public ::testing::TestWithParam<Placement> {};

// The bits, and a box around every printed dot, dot edges included, inside the image. Of a clean
// rendering with nothing else in view, the box is at most about a spacing wider on each side,
// and the centre, the spacing, the turn and the six corners of the outer ring land on the
// printed dots, whatever the downsampling and the pre-crop did.
TEST_P(Decode, BitsBoxAndGeometryInInputPixels) {
    const Placement& p = GetParam();
    const qbrender::CodeStyle style = geomtest::style(p.rotation, p.spacing, p.size, p.centre);
    const std::vector<int> bits = qbrender::randomBits(uint64_t(p.rotation * 10 + p.spacing) + 7);
    const cv::Mat img = p.seed
                            ? qbrender::renderCamera(bits, style, qbrender::typicalCamera(p.seed))
                            : qbrender::renderCode(bits, style);
    qbcode::ReaderOptions options = qbcode::ReaderOptions::fromFile(QBCODE_DEFAULT_PARAMS);
    options.params().imgPreROI = p.preCrop ? 1 : 0;
    const qbcode::Result r =
        qbcode::read(qbcode::ImageView(img.data, img.rows, img.cols, img.step), options);
    ASSERT_EQ(r.status, 0) << r.statusName();
    EXPECT_EQ(r.bits, bits);

    const auto offsets = qbrender::gridOffsets(5, p.spacing, p.rotation);
    std::vector<cv::Point2d> dots;
    for (size_t i = 0; i < bits.size(); ++i)
        if (bits[i]) dots.push_back(p.centre + cv::Point2d(offsets[i].y, offsets[i].x));
    const cv::Mat xy = cv::Mat(dots).reshape(1);
    double x0, x1, y0, y1;
    cv::minMaxIdx(xy.col(0), &x0, &x1);
    cv::minMaxIdx(xy.col(1), &y0, &y1);
    const double e = style.dotDiameter / 2 - 1, slack = e + p.spacing * 1.5;
    const cv::Rect2d box(r.box[0], r.box[1], r.box[2], r.box[3]), frame(0, 0, img.cols, img.rows);
    const cv::Rect2d printed(x0 - e, y0 - e, x1 - x0 + 2 * e, y1 - y0 + 2 * e);
    const cv::Rect2d near(x0 - slack, y0 - slack, x1 - x0 + 2 * slack, y1 - y0 + 2 * slack);
    // The legacy box keeps its own formula, which leaves out the pre-crop.
    EXPECT_TRUE(p.preCrop || (box & printed) == printed) << box << printed;
    EXPECT_EQ(box & frame, box) << box;
    if (p.seed) return;
    EXPECT_TRUE(p.preCrop || (box & near) == box) << box << near;
    // The grid fitted to the detected dots places them to a fraction of a pixel.
    EXPECT_LT(cv::norm(cv::Point2d(r.centre.x, r.centre.y) - p.centre), 1.0);
    EXPECT_NEAR(r.spacing, p.spacing, 0.01 * p.spacing);
    EXPECT_LE(std::fabs(geomtest::periodDiff(r.angle, p.rotation)), 0.5);
    for (const qbcode::Point& corner : r.corners) {
        double nearest = 1e9;
        for (int j = 61; j < 91; j += 5) {
            const cv::Point2d dot = p.centre + cv::Point2d(offsets[j].y, offsets[j].x);
            nearest = std::min(nearest, cv::norm(cv::Point2d(corner.x, corner.y) - dot));
        }
        EXPECT_LT(nearest, 1.0) << corner.x << ", " << corner.y;
    }
    // Read from the dots alone: no template was matched.
    EXPECT_TRUE(r.evidence.fastPath);
    EXPECT_EQ(r.evidence.correlation, 0.0);
    EXPECT_EQ(r.evidence.fill.size(), bits.size());
    EXPECT_GE(r.evidence.markerRatio, 2.0);
}

INSTANTIATE_TEST_SUITE_P(
    Placements, Decode,
    ::testing::Values(
        Placement{"Upright", 0, 22, {320, 240}}, Placement{"Turned37", 37, 24, {300, 250}},
        Placement{"Turned45", 45, 22, {305, 235}}, Placement{"Turned90", 90, 22, {310, 250}},
        Placement{"Turned113Wide", 113, 30, {330, 236}},
        Placement{"Turned240", 240, 22, {300, 250}}, Placement{"Turned333", 333, 22, {313, 247}},
        Placement{"HalfPeriodCamera", 29.5, 22, {329, 250}, 3},
        Placement{"ThirtyCamera", 30, 22, {330, 250}, 4},
        Placement{"SixtyCamera", 60, 22, {320, 250}, 5},
        Placement{"AlmostFullTurnCamera", 359.4, 22, {339, 240}, 6},
        Placement{"Spacing18Camera", 17, 18, {317, 233}, 11},
        Placement{"Spacing26Camera", 17, 26, {317, 233}, 11},
        Placement{"PreCropOf1280x960", 71, 20, {640, 480}, 0, {1280, 960}, true}),
    [](const ::testing::TestParamInfo<Placement>& info) { return std::string(info.param.name); });

}  // namespace
