// Result overlay drawing and the driver's debug files.

#include "AlgPipeline.h"
#include "qbcode_render.h"
#include "test_support.h"

namespace {

const cv::Vec3b kRedFrame(50, 50, 200), kGreenFrame(50, 200, 50);

// A whole run with some keys of the "AlgPipeline" section replaced.
int runWith(const std::vector<std::pair<std::string, std::string>>& keys) {
    std::string text = defaultParams();
    for (const auto& [key, value] : keys) text = setKey(text, "AlgPipeline", key, value.c_str());
    qbrender::CodeStyle style;
    style.rotationDeg = 21.0;
    cv::Mat img = qbrender::renderCode(qbrender::randomBits(5), style);
    std::vector<int> bits(91, 0);
    cv::Rect roi;
    AlgPipeline pipeline(writeFile("dbg_driver.yml", text));
    return pipeline.Pipeline(img.data, img.rows, img.cols, bits.data(), 91, "result.bmp", roi);
}

}  // namespace

// Only a dot read as 1 is framed green and framed on the binary image; NaN is not a 1.
TEST(Overlay, OnlyPositiveDotsAreFramedGreenAndOnTheBinary) {
    for (double value : {1.0, 0.0, std::numeric_limits<double>::quiet_NaN()}) {
        cv::Mat overlay = cv::Mat::zeros(60, 60, CV_8UC3), overlayBin = overlay.clone();
        AlgPipeline().putonOverlay(overlay, overlayBin, (cv::Mat_<double>(1, 4) << 10, 10, 40, 40),
                                   (cv::Mat_<double>(1, 1) << value), 3.0);
        const bool read = value > 0;
        EXPECT_EQ(overlay.at<cv::Vec3b>(25, 10), read ? kGreenFrame : kRedFrame) << value;
        // A one-pixel frame of the 31 x 31 box, nothing else.
        EXPECT_EQ(cv::countNonZero(overlayBin.reshape(1)), read ? 120 : 0) << value;
    }
}

// Only the chosen groups of debug files are written, under their names; a folder that cannot be
// written to does not fail the run. Showing windows without a display is the hostile tests'.
TEST(DriverFiles, OnlyTheChosenGroupsAreWrittenUnderTheirNames) {
    const std::string prefix = tmpPath("dbg_"), savePath = "\"" + prefix + "\"";
    const std::vector<std::string> files = {
        "Bin_roi_result.bmp.jpg",      "binImg_rot_result.bmp.jpg", "procImg_rot_result.bmp.jpg",
        "_centerpoint_result.bmp.jpg", "_ori_result.bmp.jpg",       "_bin_result.bmp.jpg",
        "bits_array_result.bmp.txt"};
    for (const auto& f : files) std::remove((prefix + f).c_str());
    ASSERT_EQ(runWith({{"imwriteOverlay", "1"}, {"savePath", savePath}}), 0);
    for (const auto& f : files)
        EXPECT_EQ(!readFile(prefix + f).empty(),
                  f == "_ori_result.bmp.jpg" || f == "_bin_result.bmp.jpg")
            << f;
    ASSERT_EQ(runWith({{"isWriteImg", "1"},
                       {"imwriteOverlay", "1"},
                       {"isWriteData", "1"},
                       {"savePath", savePath}}),
              0);
    for (const auto& f : files) EXPECT_FALSE(readFile(prefix + f).empty()) << f;
    EXPECT_EQ(cv::imread(prefix + "Bin_roi_result.bmp.jpg", cv::IMREAD_UNCHANGED).channels(), 1);
    testing::internal::CaptureStdout();
    const int status =
        runWith({{"isWriteImg", "1"}, {"imwriteOverlay", "1"}, {"savePath", "\"/nonexistent/\""}});
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(status, 0);
    EXPECT_NE(out.find("cannot write /nonexistent/_ori_result.bmp.jpg"), std::string::npos);
}
