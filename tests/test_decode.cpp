// Whole recognition calls on rendered 640 x 480 camera-like codes.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "qbcode_hexagon_recognition.h"
#include "qbcode_render.h"
#include "test_support.h"

namespace {

struct Decoded {
    int status = 1;
    std::vector<int> bits = std::vector<int>(91, -1);
    int box[4] = {0, 0, 0, 0};
};

Decoded decode(cv::Mat img, const std::string& params = QBCODE_DEFAULT_PARAMS) {
    Decoded d;
    d.status = quelbor_hexagon_recognition(img.data, img.rows, img.cols, 0, params.c_str(),
                                           d.bits.data(), 91, d.box, 4);
    return d;
}

// A camera a little worse than a good one: soft focus, sensor noise, uneven light, JPEG,
// a slight tilt and some stray blobs and texture around the code.
qbrender::CameraOptions camera(uint64_t seed) {
    qbrender::CameraOptions cam;
    cam.blurSigma = 1.0;
    cam.noiseSigma = 4.0;
    cam.lightingGradient = 0.25;
    cam.vignette = 0.15;
    cam.jpegQuality = 85;
    cam.tiltDeg = 4.0;
    cam.tiltAxisDeg = static_cast<double>(seed % 180);
    cam.clutterBlobs = 6;
    // Blobs within the clustering reach of the code join its region, which then sits
    // off-centre in a crop whose rotation (same size) can cut off outer-ring dots.
    cam.clutterClearance = 240.0;
    cam.textureAmplitude = 6.0;
    cam.seed = seed;
    return cam;
}

// Codes with all 73 free bits in use and about three quarters of them printed: the reader
// takes an image with fewer than 40 blobs to show no code at all.
std::vector<int> codeFor(double angle) {
    return qbrender::randomBits(static_cast<uint64_t>(angle * 10.0) + 101);
}

// Centres of the printed dots: the box must hold them all.
cv::Rect2d printedExtent(const std::vector<int>& bits, const qbrender::CodeStyle& style) {
    const auto offsets = qbrender::gridOffsets(5, style.spacing, style.rotationDeg);
    double x0 = 1e9, x1 = -1e9, y0 = 1e9, y1 = -1e9;
    for (size_t i = 0; i < bits.size(); ++i) {
        if (!bits[i]) continue;
        x0 = std::min(x0, style.centre.x + offsets[i].y);
        x1 = std::max(x1, style.centre.x + offsets[i].y);
        y0 = std::min(y0, style.centre.y + offsets[i].x);
        y1 = std::max(y1, style.centre.y + offsets[i].x);
    }
    return cv::Rect2d(x0, y0, x1 - x0, y1 - y0);
}

// Box (x, y, width, height) around every printed dot, dot edges included, inside the image;
// with nothing else in view at most about a spacing wider on each side.
void expectBoxAround(const Decoded& d, const std::vector<int>& bits,
                     const qbrender::CodeStyle& style, bool tight) {
    const cv::Rect2d dots = printedExtent(bits, style);
    const double edge = style.dotDiameter / 2 - 1;
    EXPECT_LE(d.box[0], dots.x - edge);
    EXPECT_LE(d.box[1], dots.y - edge);
    EXPECT_GE(d.box[0] + d.box[2], dots.x + dots.width + edge);
    EXPECT_GE(d.box[1] + d.box[3], dots.y + dots.height + edge);
    EXPECT_GE(d.box[0], 0);
    EXPECT_GE(d.box[1], 0);
    EXPECT_LE(d.box[0] + d.box[2], style.size.width);
    EXPECT_LE(d.box[1] + d.box[3], style.size.height);
    if (tight) {
        EXPECT_GE(d.box[0], dots.x - style.spacing * 1.5);
        EXPECT_GE(d.box[1], dots.y - style.spacing * 1.5);
        EXPECT_LE(d.box[0] + d.box[2], dots.x + dots.width + style.spacing * 1.5);
        EXPECT_LE(d.box[1] + d.box[3], dots.y + dots.height + style.spacing * 1.5);
    }
}

}  // namespace

class DecodeRotated : public ::testing::TestWithParam<double> {};

TEST_P(DecodeRotated, ReturnsTheCodesOwnBits) {
    const double angle = GetParam();
    const std::vector<int> bits = codeFor(angle);
    qbrender::CodeStyle style;
    style.rotationDeg = angle;
    style.centre = cv::Point2d(300 + std::fmod(angle, 40.0), 250 - std::fmod(angle, 30.0));
    const cv::Mat img =
        qbrender::renderCamera(bits, style, camera(static_cast<uint64_t>(angle * 10.0) + 3));

    const Decoded d = decode(img);
    ASSERT_EQ(d.status, 0) << "rotation " << angle;
    EXPECT_EQ(d.bits, bits) << "rotation " << angle;
    expectBoxAround(d, bits, style, false);
}

std::vector<double> decodeAngles() {
    std::vector<double> a;
    for (int d = 0; d < 360; d += 7) a.push_back(d);
    for (int k = 1; k < 6; ++k) a.push_back(60.0 * k);
    for (double odd : {13.3, 29.5, 30.0, 89.9, 90.0, 150.5, 211.1, 269.75, 330.0, 359.4})
        a.push_back(odd);
    return a;
}

INSTANTIATE_TEST_SUITE_P(Angles, DecodeRotated, ::testing::ValuesIn(decodeAngles()),
                         [](const ::testing::TestParamInfo<double>& info) {
                             std::string s = std::to_string(info.param);
                             for (char& c : s)
                                 if (c == '.') c = '_';
                             return "deg_" + s.substr(0, s.find('_') + 2);
                         });

class DecodeClean : public ::testing::TestWithParam<double> {};

TEST_P(DecodeClean, BoxHugsTheCode) {
    const std::vector<int> bits = codeFor(GetParam() + 0.05);
    qbrender::CodeStyle style;
    style.rotationDeg = GetParam();
    style.centre = cv::Point2d(330, 230);
    const Decoded d = decode(qbrender::renderCode(bits, style));
    ASSERT_EQ(d.status, 0);
    EXPECT_EQ(d.bits, bits);
    expectBoxAround(d, bits, style, true);
}

INSTANTIATE_TEST_SUITE_P(Angles, DecodeClean, ::testing::Values(0.0, 45.0, 90.0, 240.0, 333.0));

class DecodeSpacing : public ::testing::TestWithParam<double> {};

TEST_P(DecodeSpacing, ReadsOtherDotSizes) {
    const std::vector<int> bits = codeFor(GetParam());
    qbrender::CodeStyle style;
    style.spacing = GetParam();
    style.dotDiameter = 0.6 * GetParam();
    style.centre = cv::Point2d(320, 240);
    style.rotationDeg = 17.0;
    const Decoded d = decode(qbrender::renderCamera(bits, style, camera(11)));
    ASSERT_EQ(d.status, 0) << "spacing " << GetParam();
    EXPECT_EQ(d.bits, bits);
    expectBoxAround(d, bits, style, false);
}

INSTANTIATE_TEST_SUITE_P(Spacings, DecodeSpacing, ::testing::Values(18.0, 22.0, 26.0));

TEST(Decode, NoCodeIsAFailureNotACrash) {
    qbrender::CodeStyle style;
    qbrender::CameraOptions cam = camera(5);
    cam.clutterBlobs = 0;
    const Decoded blank = decode(qbrender::renderCamera({}, style, cam));
    EXPECT_LT(blank.status, 0);
    cv::Mat black = cv::Mat::zeros(480, 640, CV_8UC1);
    EXPECT_LT(decode(black).status, 0);
}
