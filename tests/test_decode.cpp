// Whole recognition calls on rendered 640 x 480 camera-like codes.
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
    cam.textureAmplitude = 6.0;
    cam.seed = seed;
    return cam;
}

uint64_t payloadFor(double angle) {
    return 0x9e3779b97f4a7c15ULL * (static_cast<uint64_t>(angle * 10.0) + 1);
}

}  // namespace

class DecodeRotated : public ::testing::TestWithParam<double> {};

TEST_P(DecodeRotated, ReturnsTheCodesOwnBits) {
    const double angle = GetParam();
    const std::vector<int> bits = qbrender::payloadBits(payloadFor(angle));
    qbrender::CodeStyle style;
    style.rotationDeg = angle;
    style.centre = cv::Point2d(300 + std::fmod(angle, 40.0), 250 - std::fmod(angle, 30.0));
    const cv::Mat img =
        qbrender::renderCamera(bits, style, camera(static_cast<uint64_t>(angle * 10.0) + 3));

    const Decoded d = decode(img);
    ASSERT_EQ(d.status, 0) << "rotation " << angle;
    EXPECT_EQ(d.bits, bits) << "rotation " << angle;

    // The box (x, y, width, height) holds the whole code and not much more.
    const double reach = 5 * style.spacing + style.dotDiameter / 2;
    EXPECT_LE(d.box[0], style.centre.x - reach + 4);
    EXPECT_LE(d.box[1], style.centre.y - reach + 4);
    EXPECT_GE(d.box[0] + d.box[2], style.centre.x + reach - 4);
    EXPECT_GE(d.box[1] + d.box[3], style.centre.y + reach - 4);
    EXPECT_LT(d.box[2], 2 * reach + 4 * style.spacing);
    EXPECT_LT(d.box[3], 2 * reach + 4 * style.spacing);
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

TEST(Decode, CleanUprightCode) {
    const std::vector<int> bits = qbrender::payloadBits(0x0123456789abcdefULL);
    const Decoded d = decode(qbrender::renderCode(bits, qbrender::CodeStyle()));
    ASSERT_EQ(d.status, 0);
    EXPECT_EQ(d.bits, bits);
}

class DecodeSpacing : public ::testing::TestWithParam<double> {};

TEST_P(DecodeSpacing, ReadsOtherDotSizes) {
    const std::vector<int> bits = qbrender::payloadBits(0xdeadbeefcafeULL);
    qbrender::CodeStyle style;
    style.spacing = GetParam();
    style.dotDiameter = 0.6 * GetParam();
    style.rotationDeg = 17.0;
    const Decoded d = decode(qbrender::renderCamera(bits, style, camera(11)));
    ASSERT_EQ(d.status, 0) << "spacing " << GetParam();
    EXPECT_EQ(d.bits, bits);
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
