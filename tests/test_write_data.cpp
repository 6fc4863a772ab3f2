// Layout of the matrix text dump, which debug runs write beside their images.

#include "WriteData.h"
#include "test_support.h"

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

// Tab after every value, newline after every row; channels joined by commas; 8-bit values
// written as raw bytes; a view walks its own row step. The rest is the stream's own formatting.
TEST(Dump, LayoutOfValuesChannelsBytesAndViews) {
    cv::Mat big(3, 4, CV_32S), bytes(3, 4, CV_8UC2, cv::Scalar(0x41, 0x42));
    for (int i = 0; i < 12; ++i) big.at<int>(i) = i + 1;
    EXPECT_EQ(dump(cv::Mat(2, 2, CV_32F, cv::Scalar(0.5))), "0.5\t0.5\t\n0.5\t0.5\t\n");
    EXPECT_EQ(dump(cv::Mat(1, 2, CV_32SC3, cv::Scalar(1, 2, 3))), "1,2,3\t1,2,3\t\n");
    EXPECT_EQ(dump((cv::Mat_<uchar>(1, 3) << 0, 1, 65)), std::string("\x00\t\x01\tA\t\n", 7));
    EXPECT_EQ(dump(big(cv::Rect(1, 1, 2, 2))), "6\t7\t\n10\t11\t\n");
    EXPECT_EQ(dump(bytes(cv::Rect(2, 2, 2, 1))), "A,B\tA,B\t\n");
}

// A file that cannot be opened is reported, not thrown; the matrices the driver dumps are never
// empty.
TEST(Dump, UnopenableFileIsReported) {
    testing::internal::CaptureStdout();
    WriteData().saveAsText("/nonexistent/dir/x.txt", cv::Mat::ones(1, 1, CV_32F));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Fail to open file (/nonexistent/dir/x.txt)\n");
}
