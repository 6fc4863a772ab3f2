// Print grade of rendered codes: clean prints score near the maximum, each print fault lowers
// the partial score it affects.

// The command runs in-process, under the same checks as the library.
#include "commands.h"
#include "PrintGrade.h"
#include "qbcode_hexagon_recognition.h"
#include "qbcode_render.h"
#include "test_support.h"

namespace {

const uint64_t kPayload = 0x5A5AF0F0FFFF3C3Cull;
const int kPrinted = 6 + __builtin_popcountll(kPayload);

struct Print {
    const char* name;
    double dot = 13.0, ink = 220.0;
    int smear = 0;    // horizontal motion blur, px
    int bridges = 0;  // neighbouring dot pairs joined by ink
    double rotation = 0.0;
};

cv::Mat grid(const qbrender::CodeStyle& style) {
    const auto offsets = qbrender::gridOffsets(5, style.spacing, style.rotationDeg);
    cv::Mat points(static_cast<int>(offsets.size()), 2, CV_64F);
    for (int i = 0; i < points.rows; ++i)
        points.at<cv::Point2d>(i) = cv::Point2d(style.size.width / 2.0 + offsets[i].y,
                                                style.size.height / 2.0 + offsets[i].x);
    return points;
}

// The grid comes from the renderer's own geometry, so no decoding is involved.
qbcode::GradeResult gradeRendering(const Print& p) {
    qbrender::CodeStyle style;
    style.dotDiameter = p.dot;
    style.foreground = p.ink;
    style.rotationDeg = p.rotation;
    qbrender::CameraOptions camera;
    camera.noiseSigma = 2.0;
    const std::vector<int> bits = qbrender::payloadBits(kPayload);
    cv::Mat grey = qbrender::renderCamera(bits, style, camera), binary;
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
    cv::threshold(grey, binary, (style.background + p.ink) / 2, 255, cv::THRESH_BINARY);
    qbcode::GradeResult g;
    qbcode::gradeGrid(binary, grey, pts, style.spacing, QBCODE_DEFAULT_PARAMS, g);
    return g;
}

enum Part { kArea, kIntensity, kRoundness, kRotatedBox, kSeparation };

double share(const qbcode::GradeResult& g, Part p) {
    const double got[] = {g.area, g.intensity, g.roundness, g.rotatedBox, g.separation};
    const double max[] = {g.maxArea, g.maxIntensity, g.maxRoundness, g.maxRotatedBox,
                          g.maxSeparation};
    return got[p] / max[p];
}

// A clean print scores near the maximum; each print fault lowers the partial score it affects.
TEST(GradeRendering, CleanPrintNearTheMaximumAndFaultsLowerTheirPart) {
    const qbcode::GradeResult clean = gradeRendering({"clean", 13, 220, 0, 0, 17.0});
    ASSERT_EQ(clean.status, 0);
    EXPECT_EQ(clean.dotsFound, kPrinted);
    EXPECT_EQ(clean.connectedPairs, 0);
    EXPECT_GT(clean.total, 0.95 * clean.maxTotal);
    EXPECT_STREQ(qbcode::gradeRating(clean.total, clean.maxTotal), "excellent");
    ASSERT_EQ(clean.dots.size(), 91u);
    // Fields: name, dot diameter, ink level, smear, bridges.
    const std::pair<Print, std::vector<Part>> faults[] = {
        {{"oversized", 17}, {kArea, kRotatedBox}},
        {{"smeared", 13, 220, 21}, {kRoundness, kRotatedBox}},
        {{"merged", 13, 220, 0, 3}, {kSeparation}},
        {{"weakink", 13, 95}, {kIntensity}}};
    for (const auto& [print, lowered] : faults) {
        const qbcode::GradeResult g = gradeRendering(print);
        ASSERT_EQ(g.status, 0) << print.name;
        for (Part p : lowered) EXPECT_LT(share(g, p), share(clean, p) - 0.1) << print.name << p;
        EXPECT_LT(g.total, clean.total - 5.0) << print.name;
        if (print.bridges > 0) {
            EXPECT_EQ(g.connectedPairs, print.bridges);
            EXPECT_DOUBLE_EQ(g.separation, g.maxSeparation - print.bridges);
        }
    }
}

TEST(GradeInput, RefusalsHaveTheirOwnStatus) {
    qbcode::GradeResult g;
    const cv::Mat img = cv::Mat::zeros(480, 640, CV_8U), points = grid(qbrender::CodeStyle());
    EXPECT_EQ(qbcode::grade(nullptr, 10, 10, QBCODE_DEFAULT_PARAMS, g), -802);
    EXPECT_EQ(qbcode::gradeGrid(img, img, points, 0.0, QBCODE_DEFAULT_PARAMS, g), -802);
    const std::string noScore =
        writeFile("grade_no_score.yml", paramsWithout("PrintScoreCalculate", "totalAreaScore"));
    EXPECT_EQ(qbcode::gradeGrid(img, img, points, 22.0, noScore, g), -801);
    // Fewer than 35 measured dots: not graded, but the positions are still reported.
    EXPECT_EQ(qbcode::gradeGrid(img, img, points, 22.0, QBCODE_DEFAULT_PARAMS, g), -804);
    EXPECT_EQ(g.dots.size(), 91u);
    EXPECT_EQ(g.dots[5].label, -1);
}

Command runGrade(std::vector<std::string> args) {
    args.insert(args.begin(), {"qbcode", "grade"});
    return runCommand(cmdGrade, args);
}

// Through the reader, the library call and the command.
TEST(GradeEndToEnd, ReadsAndGradesACameraImage) {
    EXPECT_EQ(runGrade({}).status, 2);
    Command c = runGrade({tmpPath("missing.png"), "--json"});
    EXPECT_EQ(c.status, 1);
    EXPECT_NE(c.out.find("\"error\":\"cannot read the image\""), std::string::npos) << c.out;

    qbrender::CameraOptions camera;
    camera.noiseSigma = 2.0;
    camera.blurSigma = 0.8;
    const cv::Mat img =
        qbrender::renderCamera(qbrender::payloadBits(kPayload), qbrender::CodeStyle(), camera);
    qbcode::GradeResult g;
    ASSERT_EQ(qbcode::grade(img.data, img.rows, img.cols, QBCODE_DEFAULT_PARAMS, g), 0);
    EXPECT_EQ(g.bits, qbrender::payloadBits(kPayload));
    EXPECT_GT(g.dotsFound, kPrinted - 3);
    EXPECT_GT(g.total, 0.75 * g.maxTotal);
    for (const qbcode::DotGrade& d : g.dots)
        EXPECT_TRUE(!d.found || d.bit == 1) << "position " << d.position;

    const std::string file = tmpPath("grade_clean.png");
    cv::imwrite(file, img);
    c = runGrade({file, "--json", "--params", QBCODE_DEFAULT_PARAMS});
    ASSERT_EQ(c.status, 0);
    EXPECT_NE(c.out.find("\"statusName\":\"ok\""), std::string::npos) << c.out;
}

}  // namespace
