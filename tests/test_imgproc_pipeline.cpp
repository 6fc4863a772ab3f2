// The whole pre-processing chain: size policy, thresholds, centroids, debug output, robustness.
#include <cfloat>
#include <cmath>
#include <functional>
#include <map>
#include <set>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "ImageProcessPipeline.h"
#include "SystemPara.h"
#include "qbcode_render.h"
#include "test_support.h"

namespace {

// The default file with some "ImageProcess" keys replaced, written under a unique name.
std::string imageParams(const std::string& name, const std::map<std::string, std::string>& keys) {
    std::string text = testsupport::defaultParams();
    const size_t section = text.find("ImageProcess:");
    for (const auto& kv : keys) {
        const size_t at = text.find(" " + kv.first + ":", section) + 1;
        text.replace(at, text.find('\n', at) - at, kv.first + ": " + kv.second);
    }
    return testsupport::writeFile("imgproc_" + name + ".yml", text);
}

cv::Mat dotFrame(const qbrender::CodeStyle& style) {
    qbrender::CameraOptions cam;
    cam.blurSigma = 0.8;
    cam.noiseSigma = 2.0;
    return qbrender::renderCamera(std::vector<int>(91, 1), style, cam);
}

struct ChainRun {
    int status;
    cv::Mat input, processed, binary;
    std::vector<cv::Point2f> centroids;
};

ChainRun runChain(cv::Mat input, const std::string& params, ImageProcessPipeline* keep = nullptr) {
    SystemPara para(params);
    ImageProcessPipeline local(&para);
    ImageProcessPipeline& p = keep ? *keep : local;
    p.sysPara = &para;
    ChainRun r;
    r.status = p.process(input, r.processed, r.binary, r.centroids);
    r.input = input;
    return r;
}

}  // namespace

TEST(PreprocessChain, OneCentroidPerDotInDownsampledPixels) {
    qbrender::CodeStyle style;
    style.rotationDeg = 17.0;
    ChainRun r = runChain(dotFrame(style), QBCODE_DEFAULT_PARAMS);
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.processed.size(), cv::Size(384, 288));
    EXPECT_EQ(r.binary.type(), CV_8UC1);
    ASSERT_EQ(r.centroids.size(), 91u);
    std::set<size_t> matched;
    for (const cv::Point2d& off : qbrender::gridOffsets(5, style.spacing, style.rotationDeg)) {
        // The resize maps pixel centres: out = (in + 0.5) * ratio - 0.5.
        const cv::Point2f want((320 + off.y + 0.5) * 0.6 - 0.5, (240 + off.x + 0.5) * 0.6 - 0.5);
        size_t best = 0;
        for (size_t i = 1; i < r.centroids.size(); ++i)
            if (cv::norm(r.centroids[i] - want) < cv::norm(r.centroids[best] - want)) best = i;
        EXPECT_LT(cv::norm(r.centroids[best] - want), 0.5) << want;
        matched.insert(best);
    }
    EXPECT_EQ(matched.size(), 91u);
}

class Sensitivity : public ::testing::TestWithParam<std::pair<int, int>> {};

TEST_P(Sensitivity, PicksTheFixedThresholdWhateverTheFileSays) {
    const auto [sensitivity, threshold] = GetParam();
    const std::string params =
        imageParams("sens" + std::to_string(sensitivity + 1),
                    {{"Sensitivity", std::to_string(sensitivity)}, {"Threshold", "99"}});
    ImageProcessPipeline p;
    ChainRun r = runChain(dotFrame({}), params, &p);
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(p.imgBinary.getPars().second, threshold);
    EXPECT_LE(p.Threshold, threshold);  // lowered by Otsu at most
    cv::Mat want;
    cv::threshold(r.processed, want, threshold, 255, cv::THRESH_BINARY);
    EXPECT_EQ(cv::countNonZero(r.binary > want), 0);  // fixed threshold, small blobs erased
}

INSTANTIATE_TEST_SUITE_P(Values, Sensitivity,
                         ::testing::Values(std::make_pair(0, 24), std::make_pair(1, 15),
                                           std::make_pair(2, 8), std::make_pair(-1, 8)));

TEST(PreprocessSize, RestrictionAndFixedCrop) {
    const std::string strict = imageParams("strict", {{"imgSizeRestrict", "1"}});
    EXPECT_EQ(runChain(cv::Mat(480, 640, CV_8U, cv::Scalar(0)), strict).status, -102);
    EXPECT_NE(runChain(cv::Mat(640, 480, CV_8U, cv::Scalar(0)), strict).status, -102);

    const std::string crop = imageParams("crop", {{"imgPreROI", "1"}});
    cv::Mat big(960, 1280, CV_8U, cv::Scalar(0));
    dotFrame({}).copyTo(big(cv::Rect(320, 240, 640, 480)));
    ChainRun r = runChain(big, crop);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.input.size(), cv::Size(640, 480));
    EXPECT_EQ(r.input.data, big.ptr(240, 320));  // a view of the caller's pixels
    EXPECT_EQ(r.centroids.size(), 91u);
    EXPECT_EQ(runChain(big.colRange(0, 1279), crop).input.size(), cv::Size(1279, 960));
}

class DnRatio : public ::testing::TestWithParam<std::pair<std::string, int>> {};

TEST_P(DnRatio, UnusableRatiosAreRefused) {
    const std::string params =
        imageParams("ratio" + std::to_string(std::hash<std::string>{}(GetParam().first)),
                    {{"DnRatio", GetParam().first}});
    EXPECT_EQ(runChain(dotFrame({}), params).status, GetParam().second) << GetParam().first;
}

INSTANTIATE_TEST_SUITE_P(Values, DnRatio,
                         ::testing::Values(std::make_pair("0", -112), std::make_pair("-0.6", -112),
                                           std::make_pair(".nan", -112),
                                           std::make_pair(".inf", -112),
                                           std::make_pair("0.001", -112),
                                           std::make_pair("1.0e+7", -112),
                                           std::make_pair("0.6", 0)));

TEST(PreprocessDebug, PrintsSizesAndTimingsAndWritesEveryImage) {
    const std::string dir = testsupport::tmpPath("imgproc_dbg_");
    const std::string params = imageParams(
        "debug",
        {{"DnRatio", "0.55"}, {"Debug", "1"}, {"writeImg", "1"}, {"SavePath", '"' + dir + '"'}});
    ImageProcessPipeline p;
    p.imgName = "frame";
    testing::internal::CaptureStdout();
    ChainRun r = runChain(dotFrame({}), params, &p);
    const std::string out = testing::internal::GetCapturedStdout();
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.processed.size(), cv::Size(352, 264));  // 640 x 0.55 = 352, 480 x 0.55 = 264
    EXPECT_EQ(out.find("image original size: 480x640\nimage resized to: 264x352\n"), 0u) << out;
    for (const char* label :
         {"image downsampling time: ", "image smooth time: ", "image hessian proc time: ",
          "image LoG proc time: ", "image binary time: ", "blob centroid cal time: "})
        EXPECT_NE(out.find(label), std::string::npos) << label;
    for (const char* prefix : {"logImg_", "oriImg_", "dnImg_", "smoothImg_", "hessianImg_",
                               "normalImg_", "binImg_", "blob_circle"})
        EXPECT_FALSE(testsupport::readFile(dir + prefix + "frame.bmp").empty()) << prefix;
}

TEST(PreprocessConfig, MissingSectionAndInfinities) {
    const std::string params = testsupport::writeFile(
        "imgproc_nosection.yml", "%YAML:1.0\n---\nAlgPipeline:\n   debug: 0\n");
    EXPECT_EQ(runChain(dotFrame({}), params).status, -2);

    cv::Mat f = (cv::Mat_<float>(1, 4) << INFINITY, -INFINITY, NAN, -FLT_MAX), d = f.clone();
    ImageProcessPipeline().clear_inf(f);
    EXPECT_EQ(cv::countNonZero(f.colRange(0, 2)), 0);
    EXPECT_TRUE(std::isnan(f.at<float>(2)));
    EXPECT_EQ(f.at<float>(3), -FLT_MAX);
    d.convertTo(d, CV_64F);
    ImageProcessPipeline().clear_inf(d);
    EXPECT_EQ(d.at<double>(0), HUGE_VAL);  // float images only
}

// Any size and content gets a status or a result; run under the sanitizer build.
class PreprocessRobust : public ::testing::TestWithParam<std::pair<cv::Size, int>> {};

TEST_P(PreprocessRobust, AnySizeAnyContent) {
    const auto [size, flatStatus] = GetParam();
    for (int content = 0; content < 3; ++content) {
        cv::Mat img(size, CV_8U, cv::Scalar(content == 1 ? 255 : 0));
        if (content == 2 && !img.empty()) cv::RNG(size.area()).fill(img, cv::RNG::UNIFORM, 0, 256);
        const int status = runChain(img, QBCODE_DEFAULT_PARAMS).status;
        if (content < 2 || flatStatus != -141)
            EXPECT_EQ(status, flatStatus) << size << " content " << content;
        else
            EXPECT_TRUE(status == -141 || status == -142 || status == -143) << size << status;
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, PreprocessRobust,
                         ::testing::Values(std::make_pair(cv::Size(0, 0), -100),
                                           std::make_pair(cv::Size(1, 1), -112),
                                           std::make_pair(cv::Size(200, 49), -112),
                                           std::make_pair(cv::Size(50, 50), -112),
                                           std::make_pair(cv::Size(4000, 1), -112),
                                           std::make_pair(cv::Size(1, 4000), -112),
                                           std::make_pair(cv::Size(84, 84), -141),
                                           std::make_pair(cv::Size(641, 479), -141),
                                           std::make_pair(cv::Size(1500, 1100), -141)));

TEST(PreprocessRobustLarge, FourThousandSquareNoise) {
    cv::Mat img(4000, 4000, CV_8U);
    cv::RNG(9).fill(img, cv::RNG::UNIFORM, 0, 256);
    EXPECT_EQ(runChain(img, QBCODE_DEFAULT_PARAMS).status, -143);  // far too many blobs
}
