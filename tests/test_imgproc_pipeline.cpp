// The whole pre-processing chain: size policy, thresholds and centroids.

#include "ImageProcessPipeline.h"
#include "SystemPara.h"
#include "qbcode_render.h"
#include "test_support.h"

namespace {

// The default file with some "ImageProcess" keys replaced, written under a unique name.
std::string imageParams(const std::string& name, const std::map<std::string, std::string>& keys) {
    std::string text = defaultParams();
    for (const auto& [key, value] : keys) text = setKey(text, "ImageProcess", key, value.c_str());
    return writeFile("imgproc_" + name + ".yml", text);
}

cv::Mat dotFrame(const qbrender::CodeStyle& style = {}) {
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

// Each sensitivity picks a fixed threshold whatever the file says; Otsu may only lower it.
TEST(PreprocessChain, SensitivityPicksTheFixedThreshold) {
    for (const auto& [sensitivity, threshold] :
         std::vector<std::pair<int, int>>{{0, 24}, {1, 15}, {2, 8}, {-1, 8}}) {
        const std::string params = imageParams(
            "sens", {{"Sensitivity", std::to_string(sensitivity)}, {"Threshold", "99"}});
        ImageProcessPipeline p;
        ChainRun r = runChain(dotFrame(), params, &p);
        ASSERT_EQ(r.status, 0);
        EXPECT_EQ(p.imgBinary.getPars().second, threshold) << sensitivity;
        EXPECT_LE(p.Threshold, threshold);
        cv::Mat want;
        cv::threshold(r.processed, want, threshold, 255, cv::THRESH_BINARY);
        EXPECT_EQ(cv::countNonZero(r.binary > want), 0);  // small blobs erased, nothing added
    }
}

TEST(PreprocessSize, RestrictionFixedCropMissingSectionAndRatios) {
    // A landscape frame under the restriction is the hostile table's; a portrait one passes.
    const std::string strict = imageParams("strict", {{"imgSizeRestrict", "1"}});
    EXPECT_NE(runChain(cv::Mat(640, 480, CV_8U, cv::Scalar(0)), strict).status, -102);

    const std::string crop = imageParams("crop", {{"imgPreROI", "1"}});
    cv::Mat big(960, 1280, CV_8U, cv::Scalar(0));
    dotFrame().copyTo(big(cv::Rect(320, 240, 640, 480)));
    ChainRun r = runChain(big, crop);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.input.data, big.ptr(240, 320));  // a view of the caller's pixels
    EXPECT_EQ(r.input.size(), cv::Size(640, 480));
    EXPECT_EQ(r.centroids.size(), 91u);
    EXPECT_EQ(runChain(big.colRange(0, 1279), crop).input.size(), cv::Size(1279, 960));

    const std::string params =
        writeFile("imgproc_nosection.yml", "%YAML:1.0\n---\nAlgPipeline:\n   debug: 0\n");
    EXPECT_EQ(runChain(dotFrame(), params).status, -2);
    // Sizes and contents of every kind are the hostile-input table's; here a ratio it leaves out.
    EXPECT_EQ(runChain(dotFrame(), imageParams("ratio", {{"DnRatio", "0.001"}})).status, -112);
    r = runChain(dotFrame(), imageParams("ratio", {{"DnRatio", "0.55"}}));
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.processed.size(), cv::Size(352, 264));  // 640 x 0.55 = 352, 480 x 0.55 = 264
}
