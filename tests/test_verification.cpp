// The verification refuses grids that do not sit on the printed dots and accepts those that do.

#include "Grid_verification.h"
#include "qbcode_render.h"
#include "test_support.h"

namespace {

const double kSpacing = 20.0;
const cv::Point2d kCentre(160, 150);

// Positions (x, y) of a five-ring grid turned by rotationDeg and moved by shift.
std::vector<cv::Point2d> gridAt(double rotationDeg, cv::Point2d shift = {0, 0}) {
    std::vector<cv::Point2d> out;
    for (const cv::Point2d& o : qbrender::gridOffsets(5, kSpacing, rotationDeg))
        out.push_back(kCentre + shift + cv::Point2d(o.y, o.x));
    return out;
}

struct Case {
    const char* name;
    double turn;            // of the decoded grid against the print, degrees
    int shiftSteps;         // along the first axis
    double keptWidth;       // of the frame the upright turn read from
    bool strayDot;          // a speck inside a blank box
    int status;             // 0, a status, or 1 for "any refusal"
    double frameWidth = 0;  // of the camera's frame from the kept area's left edge; 0: no check
    int beside = 0;         // dots of something else just outside a printed outer-ring dot
    double besideAt = 0.9;  // their distance from that dot, spacings
    double pull = 0.0;      // that dot's centroid moved out towards them, spacings
    int faint = 0;          // a printed dot seen only as a small blob: 1 on it, 2 beside a dot
    int smallDots = 1;
};

void PrintTo(const Case& c, std::ostream* os) {
    *os << c.name;
}

class Verification : public ::testing::TestWithParam<Case> {};

// The print is rasterised; the decoded grid samples it as the tracker does, so its bits are
// what a reader with that grid would have returned.
TEST_P(Verification, RefusesGridsOffThePrint) {
    const Case& c = GetParam();
    const std::vector<int> truth = qbrender::randomBits(11);
    const std::vector<cv::Point2d> printed = gridAt(0);
    cv::Mat bin = cv::Mat::zeros(300, 320, CV_8U);
    std::vector<cv::Point2d> dots;
    for (size_t i = 0; i < truth.size(); ++i) {
        if (!truth[i]) continue;
        dots.push_back(printed[i]);
        cv::circle(bin, cv::Point(cvRound(printed[i].x * 16), cvRound(printed[i].y * 16)),
                   cvRound(0.3 * kSpacing * 16), cv::Scalar(255), cv::FILLED, cv::LINE_8, 4);
    }
    if (c.strayDot) {
        int blank = 40;  // a free position the payload leaves blank
        while (truth[blank]) ++blank;
        cv::circle(bin, cv::Point(cvRound(printed[blank].x), cvRound(printed[blank].y)), 2,
                   cv::Scalar(255), cv::FILLED);
    }

    Grid_verification::Input in;
    in.grid = gridAt(c.turn, c.shiftSteps * (printed[1] - printed[0]));
    const int r = static_cast<int>(std::ceil(kSpacing / 3.0));
    in.boxSide = 2 * r + 1;
    in.fillThreshold = 0.1 * in.boxSide * in.boxSide;
    in.spacing = kSpacing;
    for (const cv::Point2d& p : in.grid) {
        const cv::Rect box(cvRound(p.x) - r, cvRound(p.y) - r, 2 * r, 2 * r);
        const int fill = cv::countNonZero(bin(box & cv::Rect(0, 0, bin.cols, bin.rows)));
        in.fill.push_back(fill);
        in.bits.push_back(fill > in.fillThreshold ? 1 : 0);
    }
    in.keptSize = cv::Size(static_cast<int>(c.keptWidth), bin.rows);
    in.frame = cv::Rect2d(0, 0, c.frameWidth, bin.rows);
    in.frameMargin = c.frameWidth > 0 ? 0.6 : 0.0;
    in.centroids = dots;
    int outer = 61;  // the first printed position of the outer ring
    while (!truth[outer]) ++outer;
    const cv::Point2d out = (printed[outer] - kCentre) * (1.0 / cv::norm(printed[outer] - kCentre));
    const cv::Point2d along(-out.y, out.x);
    const cv::Point2d pulled = printed[outer] + out * (c.pull * kSpacing);
    std::replace(in.centroids.begin(), in.centroids.end(), printed[outer], pulled);
    for (int k = 0; k < c.beside; ++k)
        in.centroids.push_back(pulled + out * (c.besideAt * kSpacing) + along * (k * kSpacing));
    if (c.faint) {
        int third = 19;  // a printed position of the third ring
        while (!truth[third]) ++third;
        in.centroids.erase(std::find(in.centroids.begin(), in.centroids.end(), printed[third]));
        const cv::Point2d towards =
            (kCentre - printed[third]) * (1.0 / cv::norm(kCentre - printed[third]));
        in.smallBlobs.push_back(printed[third] + towards * (0.1 * kSpacing));
        if (c.faint == 2) in.centroids.push_back(printed[third] + towards * (0.6 * kSpacing));
    }

    Grid_verification verification(nullptr);
    verification.enabled = 1;
    verification.maxCrowded = 0;
    verification.smallDots = c.smallDots;
    Grid_verification::Checks checks;
    const int status = verification.Run(in, checks);
    EXPECT_TRUE(c.status == 1 ? status < 0 : status == c.status)
        << status << ": blank " << checks.blankFill << " outside " << checks.outside << " markers "
        << checks.markersMatched << " missing " << checks.dotsMissing << " residual "
        << checks.residual;

    // Off, the same checks are measured and nothing is refused.
    verification.enabled = 0;
    EXPECT_EQ(verification.Run(in, checks), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Grids, Verification,
    ::testing::Values(Case{"RightGrid", 0, 0, 320, false, 0},
                      Case{"ShiftedOneStep", 0, 1, 320, false, 1},
                      Case{"TurnedSixDegrees", 6, 0, 320, false, 1},
                      Case{"CutByTheFrameEdge", 0, 0, 240, false, -511},
                      Case{"StrayDotInABlankBox", 0, 0, 320, true, -510},
                      Case{"WithinTheFramesMargin", 0, 0, 320, false, 0, 280},
                      Case{"NearTheFramesEdge", 0, 0, 320, false, -511, 255},
                      Case{"ACodeBesideTheOuterRing", 0, 0, 320, false, -515, 0, 2},
                      Case{"ASpeckBesideTheOuterRing", 0, 0, 320, false, 0, 0, 1},
                      Case{"ACodeFartherOut", 0, 0, 320, false, 0, 0, 2, 1.15},
                      Case{"ACodePullingARingDot", 0, 0, 320, false, -515, 0, 2, 1.15, 0.27},
                      Case{"AFaintDot", 0, 0, 320, false, 0, 0, 0, 0.9, 0, 1},
                      Case{"AFaintDotWithoutTheKey", 0, 0, 320, false, -513, 0, 0, 0.9, 0, 1, 0},
                      Case{"APieceOfADot", 0, 0, 320, false, -513, 0, 0, 0.9, 0, 2}),
    [](const ::testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

}  // namespace

namespace {

// What lies on the code, drawn over a clean print of it.
enum class Over { Nothing, Gradient, ShadowEdge, Highlight, GreyOnADot, DarkOnADot, SpeckOnAGap };

struct LevelCase {
    const char* name;
    Over over;
    int status;  // with minConfidence -0.7: 0, -516, -517, or 1 for either refusal
    double smoothLight = 0.0;
};

void PrintTo(const LevelCase& c, std::ostream* os) {
    *os << c.name;
}

class Confidence : public ::testing::TestWithParam<LevelCase> {};

// The bits are the truth, except where an object hides a dot: there they are what the binary
// image shows (blank). Only the grey levels can tell.
TEST_P(Confidence, FlagsWhatIsNeitherDotNorBackground) {
    const LevelCase& c = GetParam();
    qbrender::CodeStyle style;
    style.size = cv::Size(320, 300);
    style.spacing = kSpacing;
    style.dotDiameter = 0.6 * kSpacing;
    style.centre = kCentre;
    qbrender::CameraOptions camera;
    camera.blurSigma = 0.8;
    camera.noiseSigma = 3.0;
    confidence::Input in;
    in.bits = qbrender::randomBits(11);
    in.grey = qbrender::renderCamera(in.bits, style, camera);
    in.points = gridAt(0);
    in.spacing = kSpacing;
    in.smoothLight = c.smoothLight;
    int dot = 30;  // a printed position of the third ring
    while (!in.bits[dot]) ++dot;
    const cv::Point at(in.points[dot]);
    switch (c.over) {
        case Over::Nothing:
            break;
        case Over::Gradient:
        case Over::ShadowEdge: {
            // Light falling off across the frame, or 40 % of it beyond a soft edge through the
            // code's middle.
            cv::Mat ramp(in.grey.size(), CV_32F);
            for (int x = 0; x < ramp.cols; ++x)
                ramp.col(x).setTo(c.over == Over::Gradient
                                      ? 0.5 + 0.5 * x / ramp.cols
                                      : 0.4 + 0.6 / (1.0 + std::exp((kCentre.x - x) / kSpacing)));
            cv::Mat f;
            in.grey.convertTo(f, CV_32F);
            cv::multiply(f, ramp, f);
            f.convertTo(in.grey, CV_8U);
            break;
        }
        case Over::Highlight: {
            // A glossy print's soft highlight two spacings off the centre: light added to dots
            // and paper alike, a bump that bends within a plane's reach.
            cv::Mat light = cv::Mat::zeros(in.grey.size(), CV_32F), f;
            cv::circle(light, cv::Point(kCentre) + cv::Point(2 * kSpacing, 0),
                       static_cast<int>(1.5 * kSpacing), cv::Scalar(130), cv::FILLED);
            cv::GaussianBlur(light, light, cv::Size(), 1.5 * kSpacing);
            in.grey.convertTo(f, CV_32F);
            f += light;
            f.convertTo(in.grey, CV_8U);
            break;
        }
        case Over::GreyOnADot:
            cv::circle(in.grey, at, static_cast<int>(0.45 * kSpacing), cv::Scalar(125), cv::FILLED);
            in.bits[dot] = 0;
            break;
        case Over::DarkOnADot:
            cv::circle(in.grey, at, static_cast<int>(0.7 * kSpacing), cv::Scalar(0), cv::FILLED);
            in.bits[dot] = 0;
            break;
        case Over::SpeckOnAGap: {
            const cv::Point2d gap = (in.points[0] + in.points[1] + in.points[2]) / 3.0;
            cv::circle(in.grey, cv::Point(gap), 3, cv::Scalar(220), cv::FILLED);
            break;
        }
    }
    const confidence::Output out = confidence::measure(in);
    ASSERT_EQ(out.positions.size(), in.bits.size());

    Grid_verification verification(nullptr);
    verification.enabled = 1;
    verification.minConfidence = -0.7f;
    const int status = verification.Judge(out);
    EXPECT_TRUE(c.status == 1 ? status < 0 : status == c.status)
        << status << ", margin " << out.margin << " at " << out.weakest;
    // What is read has room to spare.
    if (c.status == 0) {
        EXPECT_GT(out.margin, -0.4);
    }
    // Without the key, or with the section off, nothing is refused.
    verification.minConfidence = -2.0f;
    EXPECT_EQ(verification.Judge(out), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Prints, Confidence,
    ::testing::Values(LevelCase{"Clean", Over::Nothing, 0},
                      LevelCase{"LightFallingOff", Over::Gradient, 0},
                      LevelCase{"ShadowEdge", Over::ShadowEdge, 1},
                      LevelCase{"ShadowEdgeFollowed", Over::ShadowEdge, 0, 3},
                      LevelCase{"Highlight", Over::Highlight, 1},
                      LevelCase{"HighlightFollowed", Over::Highlight, 0, 3},
                      LevelCase{"GreyObjectOnADot", Over::GreyOnADot, -516},
                      LevelCase{"GreyObjectWhereLightIsFollowed", Over::GreyOnADot, -516, 3},
                      LevelCase{"DarkObjectOverADot", Over::DarkOnADot, 1},
                      LevelCase{"SpeckOnAGap", Over::SpeckOnAGap, -517}),
    [](const ::testing::TestParamInfo<LevelCase>& info) { return std::string(info.param.name); });

}  // namespace
