// Print grade of rendered codes: clean prints score near the maximum, each print fault lowers
// the partial score it affects.
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

// The command runs in-process, under the same checks as the library.
#include "../tools/cmd_grade.cpp"

#include "PrintGrade.h"
#include "qbcode_hexagon_recognition.h"
#include "qbcode_print_quality.hpp"
#include "qbcode_render.h"
#include "test_support.h"

namespace {

const uint64_t kPayload = 0x5A5AF0F0FFFF3C3Cull;  // 40 of the 64 payload bits set
const int kPrinted = 6 + __builtin_popcountll(kPayload);

struct Print {
    const char* name;
    double dotDiameter = 13.0;
    double foreground = 220.0;
    double blurSigma = 0.0;
    int smear = 0;    // horizontal motion blur, px
    int bridges = 0;  // neighbouring dot pairs joined by ink
    double rotationDeg = 0.0;
};

cv::Mat grid(const qbrender::CodeStyle& style) {
    const auto offsets = qbrender::gridOffsets(5, style.spacing, style.rotationDeg);
    cv::Mat points(static_cast<int>(offsets.size()), 2, CV_64F);
    for (int i = 0; i < points.rows; ++i) {
        points.at<double>(i, 0) = style.size.width / 2.0 + offsets[i].y;
        points.at<double>(i, 1) = style.size.height / 2.0 + offsets[i].x;
    }
    return points;
}

cv::Mat render(const Print& p, qbrender::CodeStyle& style) {
    style.dotDiameter = p.dotDiameter;
    style.foreground = p.foreground;
    style.rotationDeg = p.rotationDeg;
    qbrender::CameraOptions camera;
    camera.blurSigma = p.blurSigma;
    camera.noiseSigma = 2.0;
    const std::vector<int> bits = qbrender::payloadBits(kPayload);
    cv::Mat grey = qbrender::renderCamera(bits, style, camera);
    if (p.smear > 1)
        cv::blur(grey, grey, cv::Size(p.smear, 1), cv::Point(-1, -1), cv::BORDER_REPLICATE);
    const cv::Mat points = grid(style);
    std::vector<bool> used(bits.size(), false);
    for (int i = 0, joined = 0; i < points.rows && joined < p.bridges; ++i)
        for (int j = i + 1; j < points.rows && joined < p.bridges; ++j) {
            const cv::Point2d a(points.at<double>(i, 0), points.at<double>(i, 1));
            const cv::Point2d b(points.at<double>(j, 0), points.at<double>(j, 1));
            if (!bits[i] || !bits[j] || used[i] || used[j] || cv::norm(a - b) > style.spacing + 1)
                continue;
            cv::line(grey, a, b, style.foreground, 5);
            used[i] = used[j] = true;
            ++joined;
        }
    return grey;
}

// The grid comes from the renderer's own geometry, so no decoding is involved.
qbcode::GradeResult gradeRendering(const Print& p) {
    qbrender::CodeStyle style;
    const cv::Mat grey = render(p, style);
    cv::Mat binary;
    cv::threshold(grey, binary, (style.background + style.foreground) / 2, 255, cv::THRESH_BINARY);
    qbcode::GradeResult g;
    qbcode::gradeGrid(binary, grey, grid(style), style.spacing, QBCODE_DEFAULT_PARAMS, g);
    return g;
}

TEST(GradeRendering, CleanPrintScoresNearTheMaximum) {
    for (double rotation : {0.0, 17.0}) {
        Print p{"clean"};
        p.rotationDeg = rotation;
        const qbcode::GradeResult g = gradeRendering(p);
        ASSERT_EQ(g.status, 0);
        EXPECT_EQ(g.dotsFound, kPrinted);
        EXPECT_EQ(g.connectedPairs, 0);
        EXPECT_GT(g.total, 0.95 * g.maxTotal);
        EXPECT_STREQ(qbcode::gradeRating(g.total, g.maxTotal), "excellent");
        ASSERT_EQ(g.dots.size(), 91u);
        EXPECT_EQ(g.dots[1].label == -1, !g.dots[1].found);
    }
}

enum Part { kArea, kIntensity, kRoundness, kRotatedBox, kSeparation };

double share(const qbcode::GradeResult& g, Part p) {
    switch (p) {
        case kArea:
            return g.area / g.maxArea;
        case kIntensity:
            return g.intensity / g.maxIntensity;
        case kRoundness:
            return g.roundness / g.maxRoundness;
        case kRotatedBox:
            return g.rotatedBox / g.maxRotatedBox;
        default:
            return g.separation / g.maxSeparation;
    }
}

struct Fault {
    Print print;
    std::vector<Part> lowered;
};

class GradeFault : public ::testing::TestWithParam<Fault> {};

TEST_P(GradeFault, LowersThePartialScoreItAffects) {
    const qbcode::GradeResult clean = gradeRendering(Print{"clean"});
    const qbcode::GradeResult g = gradeRendering(GetParam().print);
    ASSERT_EQ(g.status, 0);
    for (Part p : GetParam().lowered) EXPECT_LT(share(g, p), share(clean, p) - 0.1) << "part " << p;
    EXPECT_LT(g.total, clean.total - 5.0);
}

Print with(const char* name, double Print::*field, double value) {
    Print p{name};
    p.*field = value;
    return p;
}

Print withInt(const char* name, int Print::*field, int value) {
    Print p{name};
    p.*field = value;
    return p;
}

INSTANTIATE_TEST_SUITE_P(
    Prints, GradeFault,
    ::testing::Values(Fault{with("blurred", &Print::blurSigma, 3.0), {kArea}},
                      Fault{with("undersized", &Print::dotDiameter, 9.0), {kArea}},
                      Fault{with("oversized", &Print::dotDiameter, 17.0), {kArea, kRotatedBox}},
                      Fault{withInt("smeared", &Print::smear, 21), {kRoundness, kRotatedBox}},
                      Fault{withInt("merged", &Print::bridges, 3), {kSeparation}},
                      Fault{with("weakink", &Print::foreground, 95.0), {kIntensity}}),
    [](const ::testing::TestParamInfo<Fault>& info) { return std::string(info.param.print.name); });

TEST(GradeRendering, MergedPairsAreCounted) {
    const qbcode::GradeResult g = gradeRendering(withInt("merged", &Print::bridges, 3));
    EXPECT_EQ(g.connectedPairs, 3);
    EXPECT_DOUBLE_EQ(g.separation, g.maxSeparation - 3.0);
}

TEST(GradeInput, RefusalsHaveTheirOwnStatus) {
    qbcode::GradeResult g;
    const cv::Mat img = cv::Mat::zeros(100, 100, CV_8U);
    EXPECT_EQ(qbcode::grade(nullptr, 10, 10, QBCODE_DEFAULT_PARAMS, g), -802);
    EXPECT_EQ(qbcode::grade(img.data, 0, 100, QBCODE_DEFAULT_PARAMS, g), -802);
    EXPECT_EQ(qbcode::grade(img.data, 100, 100, "/nonexistent.yml", g), -600);
    EXPECT_EQ(
        qbcode::gradeGrid(img, img, grid(qbrender::CodeStyle()), 0.0, QBCODE_DEFAULT_PARAMS, g),
        -802);
    const std::string noScore = testsupport::writeFile(
        "grade_no_score.yml", testsupport::paramsWithout("PrintScoreCalculate", "totalAreaScore"));
    EXPECT_EQ(qbcode::gradeGrid(img, img, grid(qbrender::CodeStyle()), 22.0, noScore, g), -801);
    // Fewer than 35 measured dots: not graded, but the dots are still reported.
    EXPECT_EQ(
        qbcode::gradeGrid(img, img, grid(qbrender::CodeStyle()), 22.0, QBCODE_DEFAULT_PARAMS, g),
        -804);
    EXPECT_EQ(g.dots.size(), 91u);
    EXPECT_EQ(g.total, 0.0);
    EXPECT_STREQ(qbcode::gradeStatusName(-804), "too-few-dots");
}

// Through the reader: runs once the reader decodes these renderings.
TEST(GradeEndToEnd, CleanCameraImageIsReadAndGraded) {
    qbrender::CodeStyle style;
    qbrender::CameraOptions camera;
    camera.noiseSigma = 2.0;
    camera.blurSigma = 0.8;
    const std::vector<int> bits = qbrender::payloadBits(kPayload);
    cv::Mat img = qbrender::renderCamera(bits, style, camera);
    std::vector<int> read(91, 0);
    int box[4];
    cv::Mat copy = img.clone();
    testing::internal::CaptureStdout();
    const int r = quelbor_hexagon_recognition(copy.data, copy.rows, copy.cols, 0,
                                              QBCODE_DEFAULT_PARAMS, read.data(), 91, box, 4);
    testing::internal::GetCapturedStdout();
    if (r != 0) GTEST_SKIP() << "the reader does not decode this rendering yet (" << r << ")";

    qbcode::GradeResult g;
    ASSERT_EQ(qbcode::grade(img.data, img.rows, img.cols, QBCODE_DEFAULT_PARAMS, g), 0);
    EXPECT_EQ(g.bits, read);
    EXPECT_GT(g.dotsFound, kPrinted - 3);
    EXPECT_GT(g.total, 0.75 * g.maxTotal);
    for (const qbcode::DotGrade& d : g.dots)
        EXPECT_TRUE(!d.found || d.bit == 1) << "position " << d.position;

    const cv::Mat faint = qbrender::renderCamera(bits, style, camera) * 0.45;
    qbcode::GradeResult weak;
    if (qbcode::grade(faint.data, faint.rows, faint.cols, QBCODE_DEFAULT_PARAMS, weak) == 0) {
        EXPECT_LT(weak.total, g.total);
    }
}

struct Command {
    int status;
    std::string out;
};

Command gradeCmd(std::vector<std::string> args) {
    args.insert(args.begin(), {"qbcode", "grade"});
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(&a[0]);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Command c{cmdGrade(static_cast<int>(argv.size()), argv.data()), ""};
    c.out = testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    return c;
}

TEST(GradeCommand, ReportsEveryImageAndFailsForAnyUngraded) {
    EXPECT_EQ(gradeCmd({}).status, 2);
    EXPECT_EQ(gradeCmd({"x.png", "--bogus"}).status, 2);
    EXPECT_EQ(gradeCmd({"x.png", "--params", "/nonexistent.yml"}).status, 2);
    const std::string blank = testsupport::tmpPath("grade_blank.png");
    cv::imwrite(blank, cv::Mat::zeros(120, 160, CV_8U));
    const Command c = gradeCmd(
        {blank, testsupport::tmpPath("missing.png"), "--json", "--params", QBCODE_DEFAULT_PARAMS});
    EXPECT_EQ(c.status, 1);
    EXPECT_NE(c.out.find("\"statusName\":\"not-read\""), std::string::npos) << c.out;
    EXPECT_NE(c.out.find("\"error\":\"cannot read the image\""), std::string::npos) << c.out;

    qbrender::CameraOptions camera;
    camera.noiseSigma = 2.0;
    const std::string clean = testsupport::tmpPath("grade_clean.png");
    cv::imwrite(clean, qbrender::renderCamera(qbrender::payloadBits(kPayload),
                                              qbrender::CodeStyle(), camera));
    const Command text = gradeCmd({clean, "--params", QBCODE_DEFAULT_PARAMS});
    if (text.status != 0) GTEST_SKIP() << "the reader does not decode this rendering yet";
    EXPECT_NE(text.out.find("/ 100 ("), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("  separation       15.0 / 15"), std::string::npos) << text.out;
}

}  // namespace
