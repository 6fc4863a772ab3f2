// Result overlay drawing and the driver's debug files.
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "AlgPipeline.h"
#include "qbcode_render.h"
#include "test_support.h"

using testsupport::tmpPath;
using testsupport::writeFile;

namespace {

const cv::Vec3b kBlack(0, 0, 0);
const cv::Vec3b kRedFrame(50, 50, 200);
const cv::Vec3b kGreenFrame(50, 200, 50);
const cv::Vec3b kBlueFrame(255, 0, 0);
const cv::Vec3b kRedLabel(255, 30, 30);
const cv::Vec3b kCentreMark(0, 255, 20);

int countColour(const cv::Mat& img, cv::Vec3b colour) {
    int n = 0;
    for (int r = 0; r < img.rows; ++r)
        for (int c = 0; c < img.cols; ++c) n += img.at<cv::Vec3b>(r, c) == colour;
    return n;
}

}  // namespace

class Overlay : public ::testing::Test {
protected:
    AlgPipeline pipeline;
    cv::Mat overlay = cv::Mat::zeros(60, 60, CV_8UC3);
    cv::Mat overlayBin = cv::Mat::zeros(60, 60, CV_8UC3);

    void draw(const cv::Mat& boxes, const cv::Mat& values, double scale = 3.0) {
        pipeline.putonOverlay(overlay, overlayBin, boxes, values, scale);
    }
};

class OverlayValue : public Overlay, public ::testing::WithParamInterface<double> {};

TEST_P(OverlayValue, ZeroNegativeAndNanAreFramedRed) {
    draw((cv::Mat_<double>(1, 4) << 10, 10, 40, 40), (cv::Mat_<double>(1, 1) << GetParam()));
    EXPECT_EQ(overlay.at<cv::Vec3b>(25, 10), kRedFrame);
    EXPECT_GT(countColour(overlay, kRedLabel), 0);
    EXPECT_EQ(countColour(overlay, kGreenFrame), 0);
    EXPECT_EQ(countColour(overlay, kCentreMark), 0);
    EXPECT_EQ(cv::countNonZero(overlayBin.reshape(1)), 0);
}

INSTANTIATE_TEST_SUITE_P(Values, OverlayValue,
                         ::testing::Values(0.0, -1.0, std::numeric_limits<double>::quiet_NaN()));

TEST_F(Overlay, PositiveDotsAreFramedGreenWithABlueFrameOnTheBinary) {
    draw((cv::Mat_<double>(1, 4) << 10, 10, 40, 40), (cv::Mat_<double>(1, 1) << 1.0));
    EXPECT_EQ(overlay.at<cv::Vec3b>(25, 10), kGreenFrame);
    EXPECT_EQ(overlay.at<cv::Vec3b>(25, 27), kCentreMark);  // centre (25, 25), radius 2
    EXPECT_EQ(overlayBin.at<cv::Vec3b>(25, 10), kBlueFrame);
    EXPECT_EQ(overlayBin.at<cv::Vec3b>(25, 11), kBlack);  // thin frame only
    EXPECT_EQ(countColour(overlay, kRedFrame), 0);
}

TEST_F(Overlay, CoordinatesRoundHalfUp) {
    // 10.4 -> 10 and 10.5 -> 11, 40.4 -> 40 and 40.5 -> 41.
    draw((cv::Mat_<double>(1, 4) << 10.4, 10.5, 40.4, 40.5), (cv::Mat_<double>(1, 1) << 1.0));
    EXPECT_EQ(overlayBin.at<cv::Vec3b>(25, 10), kBlueFrame);  // left edge, column 10
    EXPECT_EQ(overlayBin.at<cv::Vec3b>(25, 9), kBlack);
    EXPECT_EQ(overlayBin.at<cv::Vec3b>(11, 25), kBlueFrame);  // top edge, row 11
    EXPECT_EQ(overlayBin.at<cv::Vec3b>(10, 25), kBlack);
    EXPECT_EQ(overlayBin.at<cv::Vec3b>(25, 40), kBlueFrame);
    EXPECT_EQ(overlayBin.at<cv::Vec3b>(25, 41), kBlack);
    EXPECT_EQ(overlayBin.at<cv::Vec3b>(41, 25), kBlueFrame);
    EXPECT_EQ(overlayBin.at<cv::Vec3b>(42, 25), kBlack);
}

TEST_F(Overlay, EmptyBoxesDrawNothing) {
    draw(cv::Mat(), (cv::Mat_<double>(1, 2) << 1.0, 1.0));
    draw(cv::Mat(0, 4, CV_64F), (cv::Mat_<double>(1, 2) << 1.0, 1.0));
    EXPECT_EQ(cv::countNonZero(overlay.reshape(1)), 0);
    EXPECT_EQ(cv::countNonZero(overlayBin.reshape(1)), 0);
}

TEST_F(Overlay, ValuesMayBeARowOrAColumnAndScaleIsIgnored) {
    const cv::Mat boxes = (cv::Mat_<double>(2, 4) << 5, 5, 20, 20, 35, 35, 55, 55);
    draw(boxes, (cv::Mat_<double>(2, 1) << 0.0, 1.0));
    EXPECT_EQ(overlay.at<cv::Vec3b>(12, 5), kRedFrame);
    EXPECT_EQ(overlay.at<cv::Vec3b>(45, 35), kGreenFrame);
    const cv::Mat first = overlay.clone();

    overlay.setTo(0);
    overlayBin.setTo(0);
    draw(boxes, (cv::Mat_<double>(1, 2) << 0.0, 1.0), 0.0);
    EXPECT_EQ(cv::norm(first, overlay, cv::NORM_INF), 0.0);
}

// ---- debug files of a whole run ----

class DriverFiles : public ::testing::Test {
protected:
    std::string prefix = tmpPath("dbg_");
    const std::vector<std::string> files = {
        "Bin_roi_result.bmp.jpg",      "binImg_rot_result.bmp.jpg", "procImg_rot_result.bmp.jpg",
        "_centerpoint_result.bmp.jpg", "_ori_result.bmp.jpg",       "_bin_result.bmp.jpg",
        "bits_array_result.bmp.txt"};

    void SetUp() override {
        for (const auto& f : files) std::remove((prefix + f).c_str());
    }

    std::string params(const std::vector<std::pair<std::string, std::string>>& keys) {
        std::string text = testsupport::defaultParams();
        for (const auto& kv : keys) {
            const size_t section = text.find("AlgPipeline:");
            size_t at = text.find(" " + kv.first + ":", section);
            at = text.rfind('\n', at) + 1;
            const size_t end = text.find('\n', at);
            text.replace(at, end - at, "   " + kv.first + ": " + kv.second);
        }
        return writeFile("driver_files.yml", text);
    }

    int run(const std::string& paramPath) {
        qbrender::CodeStyle style;
        style.rotationDeg = 21.0;
        cv::Mat img = qbrender::renderCode(qbrender::randomBits(5), style);
        std::vector<int> bits(91, 0);
        cv::Rect roi;
        AlgPipeline pipeline(paramPath);
        return pipeline.Pipeline(img.data, img.rows, img.cols, bits.data(), 91, "result.bmp", roi);
    }

    bool exists(const std::string& name) { return !testsupport::readFile(prefix + name).empty(); }
};

TEST_F(DriverFiles, WrittenUnderTheirNamesWhenAsked) {
    const std::string p = params({{"isWriteImg", "1"},
                                  {"imwriteOverlay", "1"},
                                  {"isWriteData", "1"},
                                  {"savePath", "\"" + prefix + "\""}});
    ASSERT_EQ(run(p), 0);
    for (const auto& f : files) EXPECT_TRUE(exists(f)) << f;
    const cv::Mat ori = cv::imread(prefix + "_ori_result.bmp.jpg", cv::IMREAD_COLOR);
    ASSERT_FALSE(ori.empty());
    const cv::Mat bin = cv::imread(prefix + "Bin_roi_result.bmp.jpg", cv::IMREAD_UNCHANGED);
    EXPECT_EQ(bin.channels(), 1);
}

TEST_F(DriverFiles, OnlyTheChosenGroupsAreWritten) {
    ASSERT_EQ(run(params({{"imwriteOverlay", "1"}, {"savePath", "\"" + prefix + "\""}})), 0);
    EXPECT_TRUE(exists("_ori_result.bmp.jpg"));
    EXPECT_TRUE(exists("_bin_result.bmp.jpg"));
    EXPECT_FALSE(exists("Bin_roi_result.bmp.jpg"));
    EXPECT_FALSE(exists("_centerpoint_result.bmp.jpg"));
    EXPECT_FALSE(exists("bits_array_result.bmp.txt"));
}

TEST_F(DriverFiles, ShowingWithoutADisplayIsSkipped) {
    if (testsupport::hasDisplay()) GTEST_SKIP() << "a display would open windows and wait";
    EXPECT_EQ(run(params({{"isShowImg", "1"}})), 0);
}

TEST_F(DriverFiles, AnUnwritableFolderDoesNotFailTheRun) {
    testing::internal::CaptureStdout();
    const int status = run(
        params({{"isWriteImg", "1"}, {"imwriteOverlay", "1"}, {"savePath", "\"/nonexistent/\""}}));
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(status, 0);
    EXPECT_NE(out.find("cannot write /nonexistent/_ori_result.bmp.jpg"), std::string::npos);
}
