// The code renderer: bit order against the reader's generator, payloads and print files.
// Camera renderings are held read for read by the reference-reads table.

#include "Point_Generation.h"
#include "qbcode_render.h"
#include "test_support.h"

// The renderer draws bit i at gridOffsets()[i] as (row, col); the reader samples bit i at row i
// of the generator with column 0 as the image row. Both must agree for any angle and centre.
TEST(RenderOrder, MatchesTheHexagonGenerator) {
    const cv::Point2d centre(123.25, 87.5);
    for (int layers : {0, 1, 5, 7})
        for (double angle : {0.0, 23.5, 300.0, -45.0}) {
            Generate_Hexagon_points gen(centre, nullptr, 17.5, layers);
            gen.angle = angle;
            cv::Mat pts;
            const auto offsets = qbrender::gridOffsets(layers, 17.5, angle);
            ASSERT_EQ(gen.Run(pts), static_cast<int>(offsets.size()));
            for (int i = 0; i < pts.rows; ++i)
                EXPECT_LE(cv::norm(centre + offsets[i] - pts.ptr<cv::Point2d>(i)[0]), 1e-6)
                    << layers << " rings, " << angle << " deg, position " << i;
        }
}

// Where each bit lands is held by the order above and by every read of a rendering; here the
// inputs that draw nothing.
TEST(Render, NothingForBadInput) {
    qbrender::CodeStyle style;
    style.size = cv::Size(0, 10);
    EXPECT_TRUE(qbrender::renderCamera(std::vector<int>(91, 1), style, {}).empty());
    style.size = cv::Size(64, 48);
    style.centre = cv::Point2d(1e12, 1e12);  // far away: nothing drawn, nothing overflows
    EXPECT_EQ(cv::countNonZero(qbrender::renderCode(std::vector<int>(91, 1), style) != 30), 0);
    style.centre = cv::Point2d(-1, -1);  // 90 is no hexagon
    EXPECT_EQ(cv::countNonZero(qbrender::renderCode(std::vector<int>(90, 1), style) != 30), 0);
}

// Numbers round-trip little-endian through the 73 free bits and keep the markers.
TEST(Payload, NumbersBytesAndSmallCodesKeepTheirMarkers) {
    for (uint64_t n : {0ULL, 1ULL, 0x8000000000000000ULL, 0x0123456789abcdefULL, ~0ULL}) {
        const auto bits = qbrender::payloadBits(n);
        for (int i : qbrender::markerOnPositions()) EXPECT_EQ(bits[i], 1) << i;
        for (int i : qbrender::markerOffPositions()) EXPECT_EQ(bits[i], 0) << i;
        const auto bytes = qbrender::payloadBytes(bits);
        ASSERT_EQ(bytes.size(), 10u);
        uint64_t back = 0;
        for (int k = 0; k < 8; ++k) back |= static_cast<uint64_t>(bytes[k]) << (8 * k);
        EXPECT_EQ(back, n);
        EXPECT_EQ(bytes[8] | bytes[9], 0);
    }
    const auto bits = qbrender::payloadBits(std::vector<uint8_t>{1, 0, 0, 0, 0, 0, 0, 0, 0, 0xff});
    EXPECT_EQ(bits[0], 1);  // the centre is the first free position
    EXPECT_EQ(bits[90], 1);
    const auto out = qbrender::payloadBytes(bits);
    EXPECT_EQ(out[0], 0x01);
    EXPECT_EQ(out[9], 0x01);  // only bit 72 exists
    // Three rings: 37 positions, 19 free; one ring keeps the markers that exist.
    const auto small = qbrender::payloadBits(0x7ffffULL, 3);
    ASSERT_EQ(small.size(), 37u);
    EXPECT_EQ(cv::sum(small)[0], 37 - 12);
    EXPECT_EQ(qbrender::payloadBits(1ULL, 1), (std::vector<int>{1, 1, 1, 0, 0, 0, 0}));
    // Random codes are repeatable, keep the markers and fill what a number leaves blank.
    const auto a = qbrender::randomBits(9);
    EXPECT_EQ(a, qbrender::randomBits(9));
    EXPECT_EQ(qbrender::payloadBits(qbrender::payloadBytes(a)), a);
    EXPECT_GT(cv::sum(std::vector<int>(a.begin() + 82, a.end()))[0], 0);
}

TEST(RenderPrint, PngCarriesItsResolutionSvgOneCirclePerDot) {
    const auto bits = qbrender::payloadBits(0xff00ff);
    const std::string path = tmpPath("print600.png");
    ASSERT_TRUE(qbrender::writePrintPng(path, bits, 1.0, 0.6, 600));
    const std::string png = readFile(path);
    const size_t at = png.find("pHYs");
    ASSERT_EQ(at, 37u);  // right after the header chunk of a PNG
    EXPECT_EQ(png.find("pHYs", at + 1), std::string::npos);
    // Length 9, then 600 dots per inch in dots per metre on both axes, unit metre.
    EXPECT_EQ(png.substr(at - 4, 4) + png.substr(at + 4, 9),
              std::string("\0\0\0\x09\0\0\x5c\x46\0\0\x5c\x46\x01", 13));
    const cv::Mat img = cv::imread(path, cv::IMREAD_GRAYSCALE);
    ASSERT_EQ(img.size(), cv::Size(308, 308));  // 13 spacings of 23.62 px
    EXPECT_EQ(img.at<uchar>(0, 0), 255);
    EXPECT_EQ(img.at<uchar>(154 + 24, 154), 0);  // marker dot 1, black on white

    ASSERT_TRUE(qbrender::writePrintSvg(tmpPath("print.svg"), bits, 1.0, 0.6));
    const std::string svg = readFile(tmpPath("print.svg"));
    int circles = 0;
    for (size_t at = svg.find("<circle"); at != std::string::npos; at = svg.find("<circle", at + 1))
        ++circles;
    EXPECT_EQ(circles, cv::sum(bits)[0]);
    EXPECT_NE(svg.find("width=\"13mm\""), std::string::npos);
    EXPECT_NE(svg.find("cx=\"6.5\" cy=\"7.5\" r=\"0.3\""), std::string::npos);  // marker dot 1

    EXPECT_FALSE(qbrender::writePrintPng(tmpPath("x.png"), std::vector<int>(90, 1), 1.0, 0.6, 600));
    EXPECT_FALSE(qbrender::writePrintPng(tmpPath("x.png"), bits, 1e6, 0.6, 600));  // too large
    EXPECT_FALSE(qbrender::writePrintPng("/nonexistent/dir/x.png", bits, 1.0, 0.6, 600));
    EXPECT_FALSE(qbrender::writePrintSvg("/nonexistent/dir/x.svg", bits, 1.0, 0.6));
}
