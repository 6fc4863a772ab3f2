// Blob analysis: configuration, probes and the grid matching. The histogram and intensity
// are formulas, held by the print-grade tests.

#include "BlobAnalysis.h"
#include "SystemPara.h"
#include "test_support.h"

using namespace testsupport;

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

// Discs under the first two positions, a speck (under 60 % of d squared) under the third,
// nothing under the fourth, a bar that barely reaches the fifth and covers the next two. Then
// ring-shaped dots: a small hole is bridged by the probes two pixels away, a large one is not
// (the blob is still matched, but never measured).
TEST_F(Blobs, PositionsTakeTheDominantBlob) {
    cv::Mat bin = cv::Mat::zeros(40, 160, CV_8U);
    cv::circle(bin, cv::Point(20, 20), 4, 255, cv::FILLED);
    cv::circle(bin, cv::Point(36, 21), 4, 255, cv::FILLED);
    cv::rectangle(bin, cv::Rect(49, 19, 3, 3), 255, cv::FILLED);
    cv::rectangle(bin, cv::Rect(84, 16, 30, 9), 255, cv::FILLED);
    for (int k = 0; k < 2; ++k) {
        cv::circle(bin, cv::Point(125 + 15 * k, 20), 6, 255, cv::FILLED);
        cv::circle(bin, cv::Point(125 + 15 * k, 20), 1 + 2 * k, 0, cv::FILLED);
    }
    ASSERT_EQ(analyse(bin, row(9)), 6);
    EXPECT_NEAR(records[0].distance, 0.0, 1e-9);
    EXPECT_NEAR(records[1].distance, std::hypot(1.0, 1.0), 1e-6);
    EXPECT_NEAR(records[1].rotBox->size.width, records[1].rotBox->size.height, 1.0);
    EXPECT_DOUBLE_EQ(records[1].intensity, 255.0);
    for (int i : {2, 3, 4}) EXPECT_EQ(records[i].found, 0) << i;
    EXPECT_EQ(records[5].label, records[6].label);
    // Copies share the blocks of the blob their label names.
    EXPECT_EQ(records[0].centroid, blobs.dots[records[0].label]->centroid);
    EXPECT_EQ(records[5].rotBox, blobs.dots[records[5].label]->rotBox);
    const cv::Size2f box = records[6].rotBox->size;
    EXPECT_GT(std::max(box.width, box.height), 2.5f * std::min(box.width, box.height));
    EXPECT_GT(records[7].area, 80.0);
    EXPECT_EQ(records[8].area, 0.0);
    EXPECT_EQ(records[8].rotBox->size.width, 0.f);
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
