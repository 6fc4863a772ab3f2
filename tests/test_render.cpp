// The code renderer: bit order against the reader's generator, payloads, print and camera images.
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "Point_Generation.h"
#include "qbcode_render.h"
#include "test_support.h"

using testsupport::readFile;
using testsupport::tmpPath;

// ---- bit order ----

class RenderOrder : public ::testing::TestWithParam<std::tuple<int, double>> {};

TEST_P(RenderOrder, MatchesTheHexagonGenerator) {
    const int layers = std::get<0>(GetParam());
    const double angle = std::get<1>(GetParam());
    Generate_Hexagon_points gen(cv::Point2d(0, 0), nullptr, 17.5, layers);
    gen.angle = angle;
    cv::Mat pts;
    const int n = gen.Run(pts);
    const auto offsets = qbrender::gridOffsets(layers, 17.5, angle);
    ASSERT_EQ(n, static_cast<int>(offsets.size()));
    ASSERT_EQ(pts.rows, n);
    for (int i = 0; i < n; ++i) {
        EXPECT_NEAR(offsets[i].x, pts.at<double>(i, 0), 1e-6) << "position " << i;
        EXPECT_NEAR(offsets[i].y, pts.at<double>(i, 1), 1e-6) << "position " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(RingsAndAngles, RenderOrder,
                         ::testing::Combine(::testing::Values(0, 1, 2, 5, 7),
                                            ::testing::Values(0.0, 23.5, 60.0, 137.0, 300.0,
                                                              -45.0)));

TEST(Render, DrawsEveryOneAndNoZero) {
    const auto bits = qbrender::payloadBits(0xfedcba9876543210ULL);
    qbrender::CodeStyle style;
    style.rotationDeg = 33.0;
    const cv::Mat img = qbrender::renderCode(bits, style);
    const auto offsets = qbrender::gridOffsets(5, style.spacing, style.rotationDeg);
    for (size_t i = 0; i < bits.size(); ++i) {
        const int row = cvRound(240 + offsets[i].x), col = cvRound(320 + offsets[i].y);
        EXPECT_EQ(img.at<uchar>(row, col) > 128, bits[i] == 1) << "position " << i;
    }
}

TEST(Render, BadSizesAndLengthsDrawNothing) {
    qbrender::CodeStyle style;
    style.size = cv::Size(0, 10);
    EXPECT_TRUE(qbrender::renderCamera(std::vector<int>(91, 1), style, {}).empty());
    style.size = cv::Size(64, 48);
    style.centre = cv::Point2d(1e12, 1e12);  // far away: nothing drawn, nothing overflows
    EXPECT_EQ(cv::countNonZero(qbrender::renderCode(std::vector<int>(91, 1), style) != 30), 0);
    style.centre = cv::Point2d(-1, -1);  // 90 is no hexagon
    EXPECT_EQ(cv::countNonZero(qbrender::renderCode(std::vector<int>(90, 1), style) != 30), 0);
}

// ---- payloads ----

class PayloadNumber : public ::testing::TestWithParam<uint64_t> {};

TEST_P(PayloadNumber, RoundTripsAndKeepsTheMarkers) {
    const auto bits = qbrender::payloadBits(GetParam());
    ASSERT_EQ(bits.size(), 91u);
    for (int i : qbrender::markerOnPositions()) EXPECT_EQ(bits[i], 1) << i;
    for (int i : qbrender::markerOffPositions()) EXPECT_EQ(bits[i], 0) << i;
    const auto bytes = qbrender::payloadBytes(bits);
    ASSERT_EQ(bytes.size(), 10u);  // 73 free bits
    uint64_t back = 0;
    for (int k = 0; k < 8; ++k) back |= static_cast<uint64_t>(bytes[k]) << (8 * k);
    EXPECT_EQ(back, GetParam());
    EXPECT_EQ(bytes[8], 0);
    EXPECT_EQ(bytes[9], 0);
}

INSTANTIATE_TEST_SUITE_P(Numbers, PayloadNumber,
                         ::testing::Values(0ULL, 1ULL, 0x8000000000000000ULL, 0x0123456789abcdefULL,
                                           ~0ULL));

TEST(Payload, BytesFillFreePositionsInOrder) {
    std::vector<uint8_t> in{0x01, 0, 0, 0, 0, 0, 0, 0, 0, 0xff};
    const auto bits = qbrender::payloadBits(in);
    EXPECT_EQ(bits[0], 1);  // the centre is the first free position
    const auto out = qbrender::payloadBytes(bits);
    EXPECT_EQ(out[0], 0x01);
    EXPECT_EQ(out[9], 0x01);  // only bit 72 exists
    EXPECT_EQ(bits[90], 1);

    // Three rings: 37 positions, 19 free.
    const auto small = qbrender::payloadBits(0x7ffffULL, 3);
    ASSERT_EQ(small.size(), 37u);
    int ones = 0;
    for (int b : small) ones += b;
    EXPECT_EQ(ones, 37 - 12);
    // One ring keeps the markers that exist.
    const auto tiny = qbrender::payloadBits(1ULL, 1);
    EXPECT_EQ(tiny, (std::vector<int>{1, 1, 1, 0, 0, 0, 0}));
}

TEST(Payload, RandomCodesUseEveryFreePosition) {
    const auto a = qbrender::randomBits(9);
    EXPECT_EQ(a, qbrender::randomBits(9));
    for (int i : qbrender::markerOnPositions()) EXPECT_EQ(a[i], 1);
    for (int i : qbrender::markerOffPositions()) EXPECT_EQ(a[i], 0);
    int tail = 0;
    for (size_t i = 82; i < 91; ++i) tail += a[i];  // what a number payload leaves blank
    EXPECT_GT(tail, 0);
}

// ---- camera-like images ----

TEST(RenderCamera, IsDeterministicPerSeed) {
    const auto bits = qbrender::payloadBits(42);
    qbrender::CodeStyle style;
    qbrender::CameraOptions cam;
    cam.blurSigma = 1.0;
    cam.noiseSigma = 6.0;
    cam.lightingGradient = 0.3;
    cam.vignette = 0.2;
    cam.jpegQuality = 80;
    cam.tiltDeg = 8.0;
    cam.clutterBlobs = 10;
    cam.textureAmplitude = 8.0;
    const cv::Mat a = qbrender::renderCamera(bits, style, cam);
    const cv::Mat b = qbrender::renderCamera(bits, style, cam);
    ASSERT_EQ(a.size(), cv::Size(640, 480));
    ASSERT_EQ(a.type(), CV_8UC1);
    EXPECT_EQ(cv::norm(a, b, cv::NORM_INF), 0.0);
    cam.seed = 2;
    EXPECT_GT(cv::norm(a, qbrender::renderCamera(bits, style, cam), cv::NORM_INF), 0.0);
}

TEST(RenderCamera, ClutterStaysOffTheCode) {
    const auto bits = qbrender::payloadBits(7);
    qbrender::CodeStyle style;
    qbrender::CameraOptions cam;
    cam.clutterBlobs = 40;
    const cv::Mat clean = qbrender::renderCode(bits, style);
    const cv::Mat busy = qbrender::renderCamera(bits, style, cam);
    cv::Mat codeArea = cv::Mat::zeros(clean.size(), CV_8U);
    cv::circle(codeArea, cv::Point(320, 240), static_cast<int>(6.5 * style.spacing) - 14,
               cv::Scalar(255), -1);
    EXPECT_EQ(cv::norm(clean, busy, cv::NORM_INF, codeArea), 0.0);
    EXPECT_GT(cv::countNonZero(busy != clean), 40);
}

TEST(RenderCamera, ContrastScalesAboutTheMidLevel) {
    const auto bits = qbrender::payloadBits(7);
    qbrender::CodeStyle style;
    qbrender::CameraOptions cam;
    cam.contrast = 0.6;
    const cv::Mat img = qbrender::renderCamera(bits, style, cam);
    EXPECT_EQ(img.at<uchar>(0, 0), 68);            // 125 + (30 - 125) * 0.6
    EXPECT_EQ(img.at<uchar>(240 + 22, 320), 182);  // marker dot: 125 + (220 - 125) * 0.6
}

// ---- print files ----

namespace {

uint32_t be32(const std::string& s, size_t at) {
    return (static_cast<uint32_t>(static_cast<unsigned char>(s[at])) << 24) |
           (static_cast<uint32_t>(static_cast<unsigned char>(s[at + 1])) << 16) |
           (static_cast<uint32_t>(static_cast<unsigned char>(s[at + 2])) << 8) |
           static_cast<uint32_t>(static_cast<unsigned char>(s[at + 3]));
}

}  // namespace

TEST(RenderPrint, PngCarriesItsResolution) {
    const auto bits = qbrender::payloadBits(0x1234);
    const std::string path = tmpPath("print600.png");
    ASSERT_TRUE(qbrender::writePrintPng(path, bits, 1.0, 0.6, 600));
    const std::string png = readFile(path);
    ASSERT_GT(png.size(), 60u);
    EXPECT_EQ(png.substr(1, 3), "PNG");
    EXPECT_EQ(png.substr(12, 4), "IHDR");
    const size_t at = png.find("pHYs");
    ASSERT_EQ(at, 37u);  // right after the header chunk
    EXPECT_EQ(png.find("pHYs", at + 1), std::string::npos);
    EXPECT_EQ(be32(png, at - 4), 9u);
    EXPECT_EQ(be32(png, at + 4), 23622u);  // 600 dots per inch in dots per metre
    EXPECT_EQ(be32(png, at + 8), 23622u);
    EXPECT_EQ(png[at + 12], 1);

    const cv::Mat img = cv::imread(path, cv::IMREAD_GRAYSCALE);
    ASSERT_FALSE(img.empty());
    EXPECT_EQ(img.size(), cv::Size(308, 308));  // 13 spacings of 23.62 px
    EXPECT_EQ(img.at<uchar>(0, 0), 255);
    EXPECT_EQ(img.at<uchar>(154 + 24, 154), 0);  // marker dot 1, black on white
}

TEST(RenderPrint, SvgHasOneCirclePerPrintedDot) {
    const auto bits = qbrender::payloadBits(0xff00ff);
    int ones = 0;
    for (int b : bits) ones += b;
    const std::string path = tmpPath("print.svg");
    ASSERT_TRUE(qbrender::writePrintSvg(path, bits, 1.0, 0.6));
    const std::string svg = readFile(path);
    int circles = 0;
    for (size_t at = svg.find("<circle"); at != std::string::npos; at = svg.find("<circle", at + 1))
        ++circles;
    EXPECT_EQ(circles, ones);
    EXPECT_NE(svg.find("width=\"13mm\""), std::string::npos);
    EXPECT_NE(svg.find("cx=\"6.5\" cy=\"7.5\" r=\"0.3\""), std::string::npos);  // marker dot 1
}

TEST(RenderPrint, RefusesWhatItCannotDraw) {
    const auto bits = qbrender::payloadBits(1);
    EXPECT_FALSE(qbrender::writePrintPng(tmpPath("x.png"), std::vector<int>(90, 1), 1.0, 0.6, 600));
    EXPECT_FALSE(qbrender::writePrintPng(tmpPath("x.png"), bits, 1e6, 0.6, 600));  // too large
    EXPECT_FALSE(qbrender::writePrintPng("/nonexistent/dir/x.png", bits, 1.0, 0.6, 600));
    EXPECT_FALSE(qbrender::writePrintSvg("/nonexistent/dir/x.svg", bits, 1.0, 0.6));
}
