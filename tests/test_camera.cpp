// What the shipped "Camera" section does with what ordinary cameras show: either polarity, large
// dots and tilted prints are read in one try where they can be, and exactly.
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "SystemPara.h"
#include "qbcode_reader.hpp"
#include "qbcode_render.h"
#include "test_support.h"

namespace {

struct Case {
    const char* name;
    double spacing;
    cv::Size size;
    double tiltDeg;
    bool dark;     // dark dots on a light ground
    bool smaller;  // read at a ratio below the configured one (the size rule)
    bool fast;     // read by the fast path, from the dots alone
};

void PrintTo(const Case& c, std::ostream* os) {
    *os << c.name;
}

class Camera : public ::testing::TestWithParam<Case> {};

TEST_P(Camera, ReadsInOneTryWithTheRightPolarityRatioAndGrid) {
    const Case& c = GetParam();
    const std::vector<int> bits = qbrender::randomBits(17);
    qbrender::CodeStyle style;
    style.spacing = c.spacing;
    style.dotDiameter = 0.6 * c.spacing;
    style.rotationDeg = 23.0;
    style.size = c.size;
    qbrender::CameraOptions camera;
    camera.tiltDeg = c.tiltDeg;
    camera.tiltAxisDeg = 30.0;
    camera.blurSigma = 0.8;
    camera.noiseSigma = 3.0;
    cv::Mat img = qbrender::renderCamera(bits, style, camera);
    if (c.dark) img = 255 - img;

    const qbcode::ReaderOptions options;
    const qbcode::Result r = qbcode::read(qbcode::ImageView(img.data, img.rows, img.cols), options);
    ASSERT_EQ(r.status, 0) << r.statusName();
    EXPECT_EQ(r.bits, bits);
    EXPECT_EQ(r.evidence.tries, 1);
    EXPECT_EQ(r.evidence.darkDots, c.dark);
    EXPECT_EQ(r.evidence.ratio < options.params().DnRatio, c.smaller);
    EXPECT_EQ(r.evidence.fastPath, c.fast);
    EXPECT_TRUE(r.evidence.refined);  // the fast path fits the grid; so does a steep view
}

INSTANTIATE_TEST_SUITE_P(
    Views, Camera,
    ::testing::Values(Case{"bright_dots", 22, {640, 480}, 0, false, false, true},
                      Case{"dark_dots", 22, {640, 480}, 0, true, false, true},
                      Case{"large_dots_1280x960", 56, {1280, 960}, 0, false, true, true},
                      Case{"tilted_35deg_dark", 20, {640, 480}, 35, true, false, true}),
    [](const auto& info) { return std::string(info.param.name); });

// Dots 9 px apart merge at the configured ratio: the part of the frame they lie in is read at
// full resolution, and the box and centre come back in the whole frame.
TEST(SmallCodes, ReadFromPartOfTheFrameAtFullResolution) {
    const std::vector<int> bits = qbrender::randomBits(29);
    qbrender::CodeStyle style;
    style.spacing = 9.0;
    style.dotDiameter = 5.4;
    style.rotationDeg = 11.0;
    style.centre = cv::Point2d(470, 140);
    qbrender::CameraOptions camera;
    camera.blurSigma = 0.6;
    camera.noiseSigma = 3.0;
    const cv::Mat img = qbrender::renderCamera(bits, style, camera);
    const qbcode::ImageView view(img.data, img.rows, img.cols);

    const qbcode::Result r = qbcode::read(view, qbcode::ReaderOptions());
    ASSERT_EQ(r.status, 0) << r.statusName();
    EXPECT_EQ(r.bits, bits);
    EXPECT_EQ(r.evidence.ratio, 1.0);
    EXPECT_NEAR(r.centre.x, 470, 4.5);
    EXPECT_NEAR(r.centre.y, 140, 4.5);
    EXPECT_NEAR(r.box[0] + 0.5 * r.box[2], 470, 9.0);
    EXPECT_NEAR(r.box[1] + 0.5 * r.box[3], 140, 9.0);

    const auto without =
        qbcode::ReaderOptions::fromYaml(testsupport::paramsWith("Detection", "smallCodes", "0"));
    EXPECT_EQ(qbcode::read(view, without).status, QBCODE_BLOB_COUNT);
}

// The fast path reads what the full chain reads: the same bits and box, and the centre and
// corners within a fraction of a spacing, over turns, tilts and both polarities.
TEST(FastPath, ReadsWhatTheFullChainReads) {
    const auto full =
        qbcode::ReaderOptions::fromYaml(testsupport::paramsWith("Detection", "fastPath", "0"));
    const qbcode::ReaderOptions fast;
    int fastReads = 0;
    for (int k = 0; k < 8; ++k) {
        const std::vector<int> bits = qbrender::randomBits(40 + k);
        qbrender::CodeStyle style;
        style.spacing = 18.0 + k;
        style.dotDiameter = 0.6 * style.spacing;
        style.rotationDeg = 17.0 + 41.0 * k;
        qbrender::CameraOptions camera;
        camera.tiltDeg = 6.0 * (k % 4);
        camera.tiltAxisDeg = 20.0 * k;
        camera.blurSigma = 0.8;
        camera.noiseSigma = 3.0;
        cv::Mat img = qbrender::renderCamera(bits, style, camera);
        if (k % 2) img = 255 - img;
        const qbcode::ImageView view(img.data, img.rows, img.cols);
        const qbcode::Result a = qbcode::read(view, full), b = qbcode::read(view, fast);
        ASSERT_EQ(a.status, 0) << k << " " << a.statusName();
        ASSERT_EQ(b.status, 0) << k << " " << b.statusName();
        EXPECT_FALSE(a.evidence.fastPath);
        fastReads += b.evidence.fastPath;
        EXPECT_EQ(b.bits, a.bits) << k;
        EXPECT_EQ(b.box, a.box) << k;
        EXPECT_LT(std::hypot(b.centre.x - a.centre.x, b.centre.y - a.centre.y), 0.25 * a.spacing);
    }
    EXPECT_GE(fastReads, 6);
}

}  // namespace
