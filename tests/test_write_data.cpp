// Layout of the matrix text dump, which debug runs write beside their images.

#include "WriteData.h"
#include "test_support.h"

using namespace testsupport;

namespace {

// One file per test: ctest runs them side by side.
std::string dumpPath() {
    return tmpPath(std::string("dump_") +
                   ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".txt");
}

std::string dump(const cv::Mat& m) {
    WriteData().saveAsText(dumpPath(), m);
    return readFile(dumpPath());
}

}  // namespace

// Tab after every value, newline after every row; channels joined by commas; bytes written raw;
// a view walks its own row step.
TEST(Dump, EveryDepthAndViews) {
    cv::Mat c3(1, 2, CV_32SC3, cv::Scalar(1, 2, 3)), big(3, 4, CV_32S), bytes(3, 4, CV_8UC2);
    for (int i = 0; i < 12; ++i) big.at<int>(i) = i + 1;
    bytes.setTo(cv::Scalar(0x41, 0x42));
    const std::pair<cv::Mat, std::string> cases[] = {
        {cv::Mat(2, 3, CV_32F, cv::Scalar(0.5)), "0.5\t0.5\t0.5\t\n0.5\t0.5\t0.5\t\n"},
        {(cv::Mat_<double>(1, 3) << 1.0 / 3.0, 1e-7, 1234567.0),
         "0.333333\t1e-07\t1.23457e+06\t\n"},
        {c3, "1,2,3\t1,2,3\t\n"},
        {(cv::Mat_<uchar>(1, 3) << 0, 1, 65), std::string("\x00\t\x01\tA\t\n", 7)},
        {(cv::Mat_<schar>(1, 2) << -1, 66), "\xff\tB\t\n"},
        {(cv::Mat_<ushort>(1, 2) << 65535, 7), "65535\t7\t\n"},
        {(cv::Mat_<short>(2, 1) << -3, 4), "-3\t\n4\t\n"},
        {big(cv::Rect(1, 1, 2, 2)), "6\t7\t\n10\t11\t\n"},
        {bytes(cv::Rect(2, 2, 2, 1)), "A,B\tA,B\t\n"}};
    for (const auto& [m, text] : cases) EXPECT_EQ(dump(m), text) << m;
}

// A file that cannot be opened is reported, not thrown; the matrices the driver dumps are never
// empty.
TEST(Dump, UnopenableFileIsReported) {
    testing::internal::CaptureStdout();
    WriteData().saveAsText("/nonexistent/dir/x.txt", cv::Mat::ones(1, 1, CV_32F));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Fail to open file (/nonexistent/dir/x.txt)\n");
}
