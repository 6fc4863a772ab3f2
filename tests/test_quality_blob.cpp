// Blob analysis: refusals, intensity and degenerate blobs. What it measures of real dots, and how
// touching dots share a blob, is held by the print-grade tests.

#include "BlobAnalysis.h"
#include "SystemPara.h"
#include "test_support.h"

namespace {

class Blobs : public ::testing::Test {
protected:
    SystemPara para{QBCODE_DEFAULT_PARAMS};
    BlobAnalysis blobs{&para, "blobs"};
    std::vector<DotAttribute> records;

    // Grid along one row, spacing 15: search radius 5, a match needs more than 15 pixels.
    static cv::Mat row(int n, double y = 20.0) {
        cv::Mat p(n, 2, CV_64F);
        for (int i = 0; i < n; ++i) p.at<double>(i, 0) = 20.0 + 15.0 * i;
        p.col(1).setTo(y);
        return p;
    }

    int analyse(const cv::Mat& binary, const cv::Mat& points, const cv::Mat& grey = cv::Mat()) {
        records.assign(static_cast<size_t>(points.rows), DotAttribute());
        std::vector<DotAttribute*> slots;
        for (auto& r : records) slots.push_back(&r);
        return blobs.blob_analysis(binary, grey.empty() ? binary : grey, points, slots);
    }
};

TEST_F(Blobs, RefusesMissingConfigurationAndUnusableInput) {
    EXPECT_EQ(BlobAnalysis(nullptr).Initialize(), -603);
    SystemPara missing(writeFile("no_blob.yml", paramsWithout("BlobAnalysis", "savePath")));
    EXPECT_EQ(BlobAnalysis(&missing).blob_analysis(cv::Mat(), cv::Mat(), cv::Mat(), {}), -602);

    const cv::Mat bin = cv::Mat::zeros(40, 80, CV_8U);
    cv::Mat negative = cv::Mat::zeros(40, 80, CV_32F);
    negative.at<float>(3, 3) = -1.f;
    EXPECT_EQ(analyse(bin, row(3), negative), -505);
    EXPECT_EQ(analyse(bin, row(3), cv::Mat::zeros(40, 81, CV_8U)), -505);
    EXPECT_EQ(analyse(bin, row(1)), -505);
    EXPECT_EQ(analyse(bin, cv::Mat::zeros(3, 3, CV_64F)), -505);
    // Positions far outside the image, or not numbers, are skipped.
    cv::Mat far = row(3);
    far.at<double>(1, 0) = 1e300;
    far.at<double>(2, 1) = NAN;
    EXPECT_EQ(analyse(bin, far), 0);
}

// The mean of the seven brightest pixels of a label; a one-pixel label has none.
TEST_F(Blobs, IntensityOfTheBrightestPixels) {
    cv::Mat dots = cv::Mat::zeros(2, 10, CV_32F), grey(2, 10, CV_8U);
    for (int i = 0; i < 10; ++i) grey.at<uchar>(0, i) = static_cast<uchar>(i + 1);
    dots.row(0).setTo(4);
    dots.at<float>(1, 3) = 5;
    EXPECT_DOUBLE_EQ(blobs.dotIntensityCal(dots, grey, 4), (10 + 9 + 8 + 7 + 6 + 5 + 4) / 7.0);
    EXPECT_TRUE(std::isnan(blobs.dotIntensityCal(dots, grey, 5)));
}

// Specks, lines and 2 x 2 squares: no ellipse fit, no NaN box. A second run keeps the records
// the first run handed out.
TEST_F(Blobs, DegenerateBlobsAndRepeatedRuns) {
    cv::Mat bin = cv::Mat::zeros(40, 60, CV_8U);
    for (int k = 0; k < 10; ++k) {
        bin.at<uchar>(5, 3 + 5 * k) = 255;
        bin(cv::Rect(3 + 5 * k, 30, 2, 2)).setTo(255);
        bin(cv::Rect(3 + 5 * k, 15, 1, 4)).setTo(255);
    }
    ASSERT_GE(analyse(bin, row(2, 31)), 0);
    const cv::Point2d* first = blobs.dots.back()->centroid;
    for (const DotAttribute* d : blobs.dots)
        EXPECT_TRUE(d->area == 0 || d->rotBox->size.area() > 0.f) << d->area;
    ASSERT_GE(analyse(bin, row(2, 31)), 0);
    EXPECT_NE(blobs.dots.back()->centroid, first);
    EXPECT_EQ(*first, *blobs.dots.back()->centroid);  // still readable
}

}  // namespace
