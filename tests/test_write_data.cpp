// Byte-exact layout of the matrix text dump.
#include <string>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "WriteData.h"
#include "test_support.h"

using testsupport::readFile;
using testsupport::tmpPath;

class Dump : public ::testing::Test {
protected:
    WriteData writer;
    std::string dump(const cv::Mat& m, const std::string& name) {
        const std::string path = tmpPath(name);
        writer.saveAsText(path, m);
        return readFile(path);
    }
};

TEST_F(Dump, FloatValuesUseDefaultFormatting) {
    EXPECT_EQ(dump(cv::Mat(2, 3, CV_32F, cv::Scalar(0.5)), "f32.txt"),
              "0.5\t0.5\t0.5\t\n0.5\t0.5\t0.5\t\n");
    cv::Mat d = (cv::Mat_<double>(1, 3) << 1.0 / 3.0, 1e-7, 1234567.0);
    EXPECT_EQ(dump(d, "f64.txt"), "0.333333\t1e-07\t1.23457e+06\t\n");
    cv::Mat f = (cv::Mat_<float>(1, 1) << 0.1f);
    EXPECT_EQ(dump(f, "f32b.txt"), "0.1\t\n");
}

TEST_F(Dump, MultiChannelPixelsAreCommaSeparated) {
    cv::Mat m(1, 2, CV_32SC3);
    m.at<cv::Vec3i>(0, 0) = cv::Vec3i(1, 2, 3);
    m.at<cv::Vec3i>(0, 1) = cv::Vec3i(4, 5, 6);
    EXPECT_EQ(dump(m, "c3.txt"), "1,2,3\t4,5,6\t\n");
}

TEST_F(Dump, EightBitValuesAreRawBytes) {
    cv::Mat u = (cv::Mat_<uchar>(1, 3) << 0, 1, 65);
    EXPECT_EQ(dump(u, "u8.txt"), std::string("\x00\t\x01\tA\t\n", 7));
    cv::Mat s = (cv::Mat_<schar>(1, 2) << -1, 66);
    EXPECT_EQ(dump(s, "s8.txt"), std::string("\xff\tB\t\n", 5));
}

TEST_F(Dump, IntegerDepths) {
    EXPECT_EQ(dump((cv::Mat_<ushort>(1, 2) << 65535, 7), "u16.txt"), "65535\t7\t\n");
    EXPECT_EQ(dump((cv::Mat_<short>(2, 1) << -3, 4), "s16.txt"), "-3\t\n4\t\n");
    EXPECT_EQ(dump((cv::Mat_<int>(1, 1) << -2147483647), "s32.txt"), "-2147483647\t\n");
}

TEST_F(Dump, SubMatrixUsesItsOwnRowStep) {
    cv::Mat big = (cv::Mat_<int>(3, 4) << 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12);
    EXPECT_EQ(dump(big(cv::Rect(1, 1, 2, 2)), "roi.txt"), "6\t7\t\n10\t11\t\n");
    cv::Mat bytes(3, 4, CV_8UC2, cv::Scalar(0x41, 0x42));
    EXPECT_EQ(dump(bytes(cv::Rect(2, 2, 2, 1)), "roi8.txt"), "A,B\tA,B\t\n");
}

TEST_F(Dump, EmptyMatrixRaisesAssertionAndLeavesAnEmptyFile) {
    try {
        dump(cv::Mat(), "empty.txt");
        FAIL() << "no exception";
    } catch (const cv::Exception& e) {
        EXPECT_EQ(e.code, -215);
        EXPECT_EQ(e.err, "src.empty() == false");
        EXPECT_EQ(e.func, "saveAsText");
        EXPECT_EQ(e.line, 46);
    }
    EXPECT_EQ(readFile(tmpPath("empty.txt")), "");
}

TEST_F(Dump, UnsupportedDepthRaisesFormatError) {
    try {
        dump(cv::Mat(2, 2, CV_16F, cv::Scalar(1)), "f16.txt");
        FAIL() << "no exception";
    } catch (const cv::Exception& e) {
        EXPECT_EQ(e.code, -210);
        EXPECT_EQ(e.err, "Unsupported Format");
        EXPECT_EQ(e.line, 80);
    }
}

TEST_F(Dump, UnopenableFileIsReportedAndSkipped) {
    testing::internal::CaptureStdout();
    writer.saveAsText("/nonexistent/dir/x.txt", cv::Mat::ones(1, 1, CV_32F));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Fail to open file (/nonexistent/dir/x.txt)\n");
}
