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
#include "qbcode_render.h"
#include "test_support.h"

namespace {

const uint64_t kPayload = 0x5A5AF0F0FFFF3C3Cull;
const int kPrinted = 6 + __builtin_popcountll(kPayload);

struct Print {
    const char* name;
    double dot = 13.0, ink = 220.0, blur = 0.0;
    int smear = 0;    // horizontal motion blur, px
    int bridges = 0;  // neighbouring dot pairs joined by ink
    double rotation = 0.0;
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
    style.dotDiameter = p.dot;
    style.foreground = p.ink;
    style.rotationDeg = p.rotation;
    qbrender::CameraOptions camera;
    camera.blurSigma = p.blur;
    camera.noiseSigma = 2.0;
    const std::vector<int> bits = qbrender::payloadBits(kPayload);
    cv::Mat grey = qbrender::renderCamera(bits, style, camera);
    if (p.smear > 1) cv::blur(grey, grey, cv::Size(p.smear, 1));
    const cv::Mat pts = grid(style);
    std::vector<bool> used(bits.size(), false);
    for (int i = 0, joined = 0; i < pts.rows && joined < p.bridges; ++i)
        for (int j = i + 1; j < pts.rows && joined < p.bridges; ++j) {
            const cv::Point2d a = pts.at<cv::Point2d>(i), b = pts.at<cv::Point2d>(j);
            if (!bits[i] || !bits[j] || used[i] || used[j] || cv::norm(a - b) > style.spacing + 1)
                continue;
            cv::line(grey, a, b, p.ink, 5);
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
    cv::threshold(grey, binary, (style.background + p.ink) / 2, 255, cv::THRESH_BINARY);
    qbcode::GradeResult g;
    qbcode::gradeGrid(binary, grey, grid(style), style.spacing, QBCODE_DEFAULT_PARAMS, g);
    return g;
}

TEST(GradeRendering, CleanPrintScoresNearTheMaximum) {
    for (double rotation : {0.0, 17.0}) {
        const qbcode::GradeResult g = gradeRendering({"clean", 13, 220, 0, 0, 0, rotation});
        ASSERT_EQ(g.status, 0);
        EXPECT_EQ(g.dotsFound, kPrinted);
        EXPECT_EQ(g.connectedPairs, 0);
        EXPECT_GT(g.total, 0.95 * g.maxTotal);
        EXPECT_STREQ(qbcode::gradeRating(g.total, g.maxTotal), "excellent");
        ASSERT_EQ(g.dots.size(), 91u);
    }
}

enum Part { kArea, kIntensity, kRoundness, kRotatedBox, kSeparation };

double share(const qbcode::GradeResult& g, Part p) {
    const double got[] = {g.area, g.intensity, g.roundness, g.rotatedBox, g.separation};
    const double max[] = {g.maxArea, g.maxIntensity, g.maxRoundness, g.maxRotatedBox,
                          g.maxSeparation};
    return got[p] / max[p];
}

struct Fault {
    Print print;
    std::vector<Part> lowered;
};

class GradeFault : public ::testing::TestWithParam<Fault> {};

TEST_P(GradeFault, LowersThePartialScoreItAffects) {
    const qbcode::GradeResult clean = gradeRendering({"clean"});
    const qbcode::GradeResult g = gradeRendering(GetParam().print);
    ASSERT_EQ(g.status, 0);
    for (Part p : GetParam().lowered) EXPECT_LT(share(g, p), share(clean, p) - 0.1) << "part " << p;
    EXPECT_LT(g.total, clean.total - 5.0);
    if (GetParam().print.bridges > 0) {
        EXPECT_EQ(g.connectedPairs, GetParam().print.bridges);
        EXPECT_DOUBLE_EQ(g.separation, g.maxSeparation - GetParam().print.bridges);
    }
}

// Fields: name, dot diameter, ink level, blur sigma, smear, bridges.
INSTANTIATE_TEST_SUITE_P(
    Prints, GradeFault,
    ::testing::Values(Fault{{"blurred", 13, 220, 3.0}, {kArea}}, Fault{{"undersized", 9}, {kArea}},
                      Fault{{"oversized", 17}, {kArea, kRotatedBox}},
                      Fault{{"smeared", 13, 220, 0, 21}, {kRoundness, kRotatedBox}},
                      Fault{{"merged", 13, 220, 0, 0, 3}, {kSeparation}},
                      Fault{{"weakink", 13, 95}, {kIntensity}}),
    [](const ::testing::TestParamInfo<Fault>& info) { return std::string(info.param.print.name); });

TEST(GradeInput, RefusalsHaveTheirOwnStatus) {
    qbcode::GradeResult g;
    const cv::Mat img = cv::Mat::zeros(480, 640, CV_8U), points = grid(qbrender::CodeStyle());
    EXPECT_EQ(qbcode::grade(nullptr, 10, 10, QBCODE_DEFAULT_PARAMS, g), -802);
    EXPECT_EQ(qbcode::grade(img.data, 0, 100, QBCODE_DEFAULT_PARAMS, g), -802);
    EXPECT_EQ(qbcode::gradeGrid(img, img, points, 0.0, QBCODE_DEFAULT_PARAMS, g), -802);
    const std::string noScore = testsupport::writeFile(
        "grade_no_score.yml", testsupport::paramsWithout("PrintScoreCalculate", "totalAreaScore"));
    EXPECT_EQ(qbcode::gradeGrid(img, img, points, 22.0, noScore, g), -801);
    // Fewer than 35 measured dots: not graded, but the positions are still reported.
    EXPECT_EQ(qbcode::gradeGrid(img, img, points, 22.0, QBCODE_DEFAULT_PARAMS, g), -804);
    EXPECT_EQ(g.dots.size(), 91u);
    EXPECT_EQ(g.dots[5].label, -1);
}

int runGrade(std::vector<std::string> args, std::string& out) {
    args.insert(args.begin(), {"qbcode", "grade"});
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(&a[0]);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = cmdGrade(static_cast<int>(argv.size()), argv.data());
    out = testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    return status;
}

// Through the reader, the library call and the command: needs a reader that decodes the
// rendering, skipped until it does.
TEST(GradeEndToEnd, ReadsAndGradesACameraImage) {
    std::string out;
    EXPECT_EQ(runGrade({}, out), 2);
    EXPECT_EQ(runGrade({"x.png", "--params", "/nonexistent.yml"}, out), 2);
    EXPECT_EQ(runGrade({testsupport::tmpPath("missing.png"), "--json"}, out), 1);
    EXPECT_NE(out.find("\"error\":\"cannot read the image\""), std::string::npos) << out;

    qbrender::CameraOptions camera;
    camera.noiseSigma = 2.0;
    camera.blurSigma = 0.8;
    const cv::Mat img =
        qbrender::renderCamera(qbrender::payloadBits(kPayload), qbrender::CodeStyle(), camera);
    qbcode::GradeResult g;
    const int r = qbcode::grade(img.data, img.rows, img.cols, QBCODE_DEFAULT_PARAMS, g);
    if (r != 0) GTEST_SKIP() << "the reader does not decode this rendering yet (" << r << ")";
    EXPECT_EQ(g.bits, qbrender::payloadBits(kPayload));
    EXPECT_GT(g.dotsFound, kPrinted - 3);
    EXPECT_GT(g.total, 0.75 * g.maxTotal);
    for (const qbcode::DotGrade& d : g.dots)
        EXPECT_TRUE(!d.found || d.bit == 1) << "position " << d.position;

    const std::string file = testsupport::tmpPath("grade_clean.png");
    cv::imwrite(file, img);
    ASSERT_EQ(runGrade({file, "--params", QBCODE_DEFAULT_PARAMS}, out), 0) << out;
    EXPECT_NE(out.find("  separation       15.0 / 15"), std::string::npos) << out;
    ASSERT_EQ(runGrade({file, "--json", "--params", QBCODE_DEFAULT_PARAMS}, out), 0);
    EXPECT_EQ(out.rfind("{\"image\":", 0), 0u);
    EXPECT_NE(out.find("\"statusName\":\"ok\""), std::string::npos) << out;
}

}  // namespace
