// Centre of the code by template correlation, and the geometry stages run end to end.
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "AlgPipeline.h"
#include "SystemPara.h"
#include "startPoint_cal.h"
#include "test_geometry_support.h"
#include "test_support.h"

using testsupport::paramsWith;
using testsupport::paramsWithout;
using testsupport::writeFile;

class StartPoint : public ::testing::Test {
protected:
    std::unique_ptr<SystemPara> para = std::make_unique<SystemPara>(QBCODE_DEFAULT_PARAMS);
    cv::Mat templ;
    cv::Point centre{-7, -7};

    void useParams(const std::string& name, const std::string& text) {
        para = std::make_unique<SystemPara>(writeFile(name, text));
    }
    int search(float& gap, const cv::Mat& img) {
        startPoint_cal stage(para.get());
        return stage.findStartPoint_NCC(gap, img, templ, centre, 0.0);
    }
};

// Padding off: the match is shifted by half the template. Padding on: the match location is
// taken as the centre, one pixel past it on each axis.
class StartPointPadding : public StartPoint, public ::testing::WithParamInterface<int> {};

TEST_P(StartPointPadding, LandsOnTheCentreDot) {
    useParams("geom_padding.yml",
              paramsWith("PatternFeatures", "img_padding", std::to_string(GetParam())));
    const cv::Mat img =
        geomtest::renderBinary(geomtest::style(0.0, 13.0, cv::Size(230, 210), {113, 104}));
    float gap = 13.0f;
    EXPECT_GE(search(gap, img), 0);
    EXPECT_LE(std::abs(centre.x - 113), 1);
    EXPECT_LE(std::abs(centre.y - 104), 1);
    EXPECT_EQ(gap, 13.0f);
}

INSTANTIATE_TEST_SUITE_P(Modes, StartPointPadding, ::testing::Values(0, 1));

TEST_F(StartPoint, PicksTheNeighbouringSpacingThatFitsBetter) {
    const cv::Mat img =
        geomtest::renderBinary(geomtest::style(0.0, 14.0, cv::Size(240, 240), {120, 118}));
    float gap = 13.5f;
    EXPECT_GE(search(gap, img), 0);
    EXPECT_EQ(gap, 14.0f);
    gap = 14.5f;
    EXPECT_GE(search(gap, img), 0);
    EXPECT_EQ(gap, 14.0f);
}

TEST_F(StartPoint, TemplateNotSmallerThanTheImageFails) {
    // Five rings at 13 px: half = 72, a 145-pixel template.
    float gap = 13.0f;
    EXPECT_EQ(search(gap, cv::Mat::zeros(145, 300, CV_8U)), -321);
    EXPECT_EQ(search(gap, cv::Mat::zeros(300, 145, CV_8U)), -321);
    EXPECT_EQ(search(gap, cv::Mat()), -321);
    EXPECT_EQ(search(gap, cv::Mat::ones(1, 1, CV_8U)), -321);
    for (float bad : {0.f, -4.f, std::numeric_limits<float>::quiet_NaN(), 1e30f}) {
        gap = bad;
        EXPECT_EQ(search(gap, cv::Mat::zeros(200, 200, CV_8U)), -321) << bad;
    }
    useParams("geom_many_rings.yml", paramsWith("AlgPipeline", "layer", "1000"));
    gap = 13.0f;
    EXPECT_EQ(search(gap, cv::Mat::zeros(200, 200, CV_8U)), -321);
}

TEST_F(StartPoint, WeakMatchResetsTheCentre) {
    float gap = 13.0f;
    EXPECT_EQ(search(gap, cv::Mat::zeros(200, 200, CV_8U)), -314);
    EXPECT_EQ(centre, cv::Point(0, 0));
    EXPECT_EQ(gap, 13.0f);
}

TEST_F(StartPoint, UnreadableSectionsFail) {
    float gap = 13.0f;
    const cv::Mat img = cv::Mat::zeros(200, 200, CV_8U);
    useParams("geom_no_gapdelta.yml", paramsWithout("PatternFeatures", "gapDelta"));
    EXPECT_EQ(search(gap, img), -320);
    useParams("geom_no_layer.yml", paramsWithout("AlgPipeline", "layer"));
    EXPECT_EQ(search(gap, img), -320);
    startPoint_cal orphan(nullptr);
    EXPECT_EQ(orphan.findStartPoint_NCC(gap, img, templ, centre, 0.0), -320);
}

// The driver re-calibrates only when the search succeeds with the centre at (0, 0): with
// padding, a code whose centre dot sits just outside the top-left corner.
TEST_F(StartPoint, CodeCentreOffTheCornerGivesTheOriginWithSuccess) {
    // Only a quarter of the code is in view; this payload still correlates above 0.3 there.
    const auto bits = qbrender::payloadBits(0x36fbefaa6fb125e3ull);
    const cv::Mat full =
        geomtest::renderBinary(geomtest::style(0.0, 12.0, cv::Size(320, 320), {100, 100}), bits);
    const cv::Mat img = full(cv::Rect(101, 101, 219, 219)).clone();  // centre at (-1, -1)
    float gap = 12.0f;
    EXPECT_GE(search(gap, img), 0);
    EXPECT_EQ(centre, cv::Point(0, 0));
}

TEST_F(StartPoint, TemplateRowsFollowTheFirstCoordinate) {
    startPoint_cal stage(para.get());
    ASSERT_GE(stage.initialize(), 0);
    stage.generate_pattern_simImg(0.0, 13.f, templ);
    ASSERT_EQ(templ.size(), cv::Size(145, 145));
    ASSERT_EQ(templ.type(), CV_8U);
    const int h = 72;
    EXPECT_GT(templ.at<unsigned char>(h, h), 200);
    EXPECT_GT(templ.at<unsigned char>(h + 13, h), 200);  // first ring point: 13 rows down
    EXPECT_EQ(templ.at<unsigned char>(h, h + 13), 0);    // between two dots
}

TEST_F(StartPoint, DebugLinesAndImages) {
    const std::string prefix = testsupport::tmpPath("geom_dbg_");
    std::string text = paramsWith("PatternFeatures", "Debug", "1");
    const std::string key = "   savePath: \"./\"";
    const size_t at = text.find(key, text.find("PatternFeatures:"));
    text.replace(at, key.size(), "   savePath: \"" + prefix + "\"");
    text.replace(text.find("   writeImg: 0", text.find("PatternFeatures:")), 14, "   writeImg: 1");
    useParams("geom_debug.yml", text);
    for (const char* f : {"source1", "template1", "rst1", "template2", "rst2", "template3", "rst3"})
        std::remove((prefix + f + ".bmp").c_str());

    const cv::Mat img =
        geomtest::renderBinary(geomtest::style(0.0, 13.0, cv::Size(230, 210), {113, 104}));
    float gap = 13.0f;
    testing::internal::CaptureStdout();
    EXPECT_GE(search(gap, img), 0);
    const std::string out = testing::internal::GetCapturedStdout();
    size_t maxLines = 0, centreLines = 0;
    for (size_t p = 0; (p = out.find("start point NCC max: ", p)) != std::string::npos; ++p)
        ++maxLines;
    for (size_t p = 0; (p = out.find("\ncenter point:", p)) != std::string::npos; ++p)
        ++centreLines;
    EXPECT_EQ(maxLines, 3u);
    EXPECT_EQ(centreLines, 3u);
    for (const char* f : {"source1", "template1", "rst1", "template2", "rst2", "template3", "rst3"})
        EXPECT_FALSE(testsupport::readFile(prefix + f + ".bmp").empty()) << f;
}

// A recognition run on a camera-like image reaches the centre through both angle searches and
// reports angle, spacing and centre on its debug lines.
class RecognitionGeometry : public ::testing::TestWithParam<int> {};

TEST_P(RecognitionGeometry, ReportsAngleGapAndCentre) {
    std::string text = paramsWith("AlgPipeline", "debug", "1");
    const std::string key = "opencv10Rot: 0";
    text.replace(text.find(key), key.size(), "opencv10Rot: " + std::to_string(GetParam()));
    const std::string path = writeFile("geom_recognition.yml", text);

    qbrender::CodeStyle s;
    s.rotationDeg = 23.0;
    qbrender::CameraOptions cam;
    cam.blurSigma = 1.0;
    cam.noiseSigma = 3.0;
    cam.clutterBlobs = 4;
    const std::vector<int> bits = geomtest::denseBits();
    cv::Mat img = qbrender::renderCamera(bits, s, cam);

    AlgPipeline pipe(path);
    std::vector<int> out(91, -1);
    cv::Rect roi;
    testing::internal::CaptureStdout();
    const int status = pipe.Pipeline(img.data, img.rows, img.cols, out.data(), 91, "geom", roi);
    const std::string log = testing::internal::GetCapturedStdout();
    ASSERT_EQ(status, 0) << log;
    EXPECT_EQ(out, bits);
    EXPECT_LE(std::fabs(geomtest::periodDiff(23.0, pipe.lastAngle)), 2.0);
    const double spacing = s.spacing * 0.6;  // the default downsampling
    EXPECT_NEAR(pipe.lastGap, spacing, 0.03 * spacing);
    EXPECT_NE(log.find("Angle is: " + std::to_string(pipe.lastAngle) + "\n"), std::string::npos);
    EXPECT_NE(log.find("original calculated gap: "), std::string::npos);
    EXPECT_NE(log.find("centerpoint: [" + std::to_string(pipe.lastCentre.x) + ", " +
                       std::to_string(pipe.lastCentre.y) + "]\n"),
              std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(AngleSearches, RecognitionGeometry, ::testing::Values(0, 1));
