// The C++ reader: frames back to input pixels, options from a file, from text and from code,
// every code of a frame, and the extended C call. Full results on rendered codes are the decode
// tests'.

#include "FrameChain.h"
#include "LatticeCheck.h"
#include "ImageRotation.h"
#include "SystemPara.h"
#include "qbcode_hexagon_recognition.h"
#include "qbcode_reader.hpp"
#include "qbcode_render.h"
#include "test_geometry_support.h"
#include "test_support.h"

namespace {

cv::Point2d centroidOf(const cv::Mat& img) {
    const cv::Moments m = cv::moments(img);
    return cv::Point2d(m.m10 / m.m00, m.m01 / m.m00);
}

qbcode::Result readMat(const cv::Mat& img, const qbcode::ReaderOptions& options) {
    return qbcode::read(qbcode::ImageView(img.data, img.rows, img.cols, img.step), options);
}

double distance(const qbcode::Point& a, const cv::Point2d& b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

}  // namespace

// Every step the driver takes, done to an image with one bright spot: the chain must put the
// spot where the pixels put it, and bring it back to where it started.
TEST(FrameChain, FollowsThePixelsThroughEveryFrameAndBack) {
    cv::Mat input = cv::Mat::zeros(960, 1280, CV_32F);
    const cv::Point2d spot(700.3, 520.6);
    cv::circle(input, cv::Point(cvRound(spot.x * 16), cvRound(spot.y * 16)), 6 * 16,
               cv::Scalar(200), cv::FILLED, cv::LINE_AA, 4);
    cv::GaussianBlur(input, input, cv::Size(0, 0), 3);
    cv::Mat img;
    input.convertTo(img, CV_8U);

    FrameChain chain;
    cv::Mat frame = img(cv::Rect(320, 240, 640, 480));
    int f = chain.crop(cv::Point2d(320, 240));
    cv::Mat reduced;
    cv::resize(frame, reduced, cv::Size(384, 288), 0, 0, cv::INTER_LINEAR);
    f = chain.resize(frame.size(), reduced.size());
    const cv::Rect roi(60, 50, 230, 200);
    cv::Mat crop = reduced(roi).clone();
    f = chain.crop(roi.tl());
    ImageRotation turn;
    cv::Mat up;
    turn.rotate(crop, up, 23.0f);
    f = chain.turn(up.size(), 23.0);
    turn.rotate(up, up, 30.0f);
    f = chain.turn(up.size(), 30.0);

    const cv::Point2d seen = centroidOf(up);
    EXPECT_LT(cv::norm(seen - chain.fromInput(spot, f)), 0.35);
    EXPECT_LT(cv::norm(chain.toInput(seen, f) - spot), 0.7);
    const cv::Point2d p(11.5, -7.25);
    for (int k = 0; k <= f; ++k) EXPECT_LT(cv::norm(chain.map(chain.map(p, f, k), k, f) - p), 1e-9);
    EXPECT_NEAR(chain.scaleToInput(f), 640.0 / 384.0, 1e-12);
}

TEST(ReaderOptions, TextFileAndDefaultsAgreeAndCodeCanChangeThem) {
    const qbcode::ReaderOptions fromFile = qbcode::ReaderOptions::fromFile(QBCODE_DEFAULT_PARAMS);
    const qbcode::ReaderOptions fromText = qbcode::ReaderOptions::fromYaml(defaultParams());
    const qbcode::ReaderOptions shipped;
    const cv::Mat img =
        qbrender::renderCode(qbrender::randomBits(3), geomtest::style(15, 22, cv::Size(640, 480)));
    const qbcode::Result a = readMat(img, fromFile);
    ASSERT_EQ(a.status, 0);
    for (const qbcode::Result& b : {readMat(img, fromText), readMat(img, shipped)})
        EXPECT_TRUE(a.bits == b.bits && a.box == b.box);

    // Set in code: the stages take the record as it stands and read no file.
    qbcode::ReaderOptions three = fromText;
    three.params().layer = 3;
    EXPECT_EQ(three.bitCount(), 37);
    EXPECT_EQ(fromText.bitCount(), 91);
    three.params().DnRatio = 0.0;
    EXPECT_EQ(readMat(img, three).status, QBCODE_IMAGE_TOO_SMALL);
}

TEST(ReaderOptions, BrokenSourcesFailTheReadLikeTheFileWould) {
    const cv::Mat img(480, 640, CV_8U, cv::Scalar(0));
    EXPECT_EQ(readMat(img, qbcode::ReaderOptions::fromYaml("%YAML:1.0\n---\nx: [1, 2\n")).status,
              QBCODE_CONFIG);
    EXPECT_EQ(readMat(img, qbcode::ReaderOptions::fromFile("/nonexistent/params.yml")).status,
              QBCODE_CONFIG);
    const std::string noImageSection = paramsWithout("ImageProcess", "DnRatio");
    EXPECT_EQ(readMat(img, qbcode::ReaderOptions::fromYaml(noImageSection)).status,
              QBCODE_IMAGE_PARAMS_MISSING);
    EXPECT_EQ(qbcode::read(qbcode::ImageView(img.data, 480, 640, 100)).status,
              QBCODE_EMPTY_IMAGE);  // a stride shorter than a row
}

// Two codes side by side both come back, each with its own bits and geometry.
TEST(ReadAll, EveryCodeInTheFrame) {
    const std::vector<int> left = qbrender::randomBits(5), right = qbrender::randomBits(6);
    cv::Mat img =
        qbrender::renderCode(left, geomtest::style(40, 20, cv::Size(1280, 480), {300, 240}));
    cv::max(img,
            qbrender::renderCode(right, geomtest::style(75, 22, cv::Size(1280, 480), {950, 250})),
            img);
    const qbcode::ImageView view(img.data, img.rows, img.cols);
    const std::vector<qbcode::Result> found = qbcode::readAll(view);
    ASSERT_EQ(found.size(), 2u);
    const bool leftFirst = found[0].centre.x < found[1].centre.x;
    const qbcode::Result& a = found[leftFirst ? 0 : 1];
    const qbcode::Result& b = found[leftFirst ? 1 : 0];
    EXPECT_EQ(a.bits, left);
    EXPECT_EQ(b.bits, right);
    EXPECT_LT(distance(a.centre, {300, 240}), 1.0);
    EXPECT_LT(distance(b.centre, {950, 250}), 1.0);
    EXPECT_EQ(qbcode::readAll(view, qbcode::ReaderOptions(), 1).size(), 1u);
    qbcode_result results[4];
    EXPECT_EQ(qbcode_read_all(img.data, img.rows, img.cols, 0, QBCODE_DEFAULT_PARAMS, results, 4),
              2);
    const cv::Mat blank(480, 640, CV_8U, cv::Scalar(0));
    EXPECT_TRUE(qbcode::readAll(qbcode::ImageView(blank.data, 480, 640)).empty());
}

// Two codes printed close together make one cluster; the dots off the first code read are a
// candidate of their own, and both codes come back.
TEST(ReadAll, CodesPrintedCloseTogether) {
    const std::vector<int> left = qbrender::randomBits(7), right = qbrender::randomBits(8);
    cv::Mat img =
        qbrender::renderCode(left, geomtest::style(10, 14, cv::Size(640, 480), {235, 240}));
    cv::max(img,
            qbrender::renderCode(right, geomtest::style(47, 14, cv::Size(640, 480), {400, 245})),
            img);
    const std::vector<qbcode::Result> found =
        qbcode::readAll(qbcode::ImageView(img.data, 480, 640));
    ASSERT_EQ(found.size(), 2u);
    const bool leftFirst = found[0].centre.x < found[1].centre.x;
    EXPECT_EQ(found[leftFirst ? 0 : 1].bits, left);
    EXPECT_EQ(found[leftFirst ? 1 : 0].bits, right);
}

// The extended C call gives what the original one gives, and the rest, on any row stride.
TEST(ExtendedCall, AgreesWithTheOriginalCallOnAnyStride) {
    const std::vector<int> bits = qbrender::randomBits(9);
    const cv::Mat img =
        qbrender::renderCode(bits, geomtest::style(52, 24, cv::Size(640, 480), {330, 230}));
    std::vector<int> legacyBits(91, 0);
    int legacyBox[4] = {0, 0, 0, 0};
    ASSERT_EQ(quelbor_hexagon_recognition(img.data, img.rows, img.cols, 0, QBCODE_DEFAULT_PARAMS,
                                          legacyBits.data(), 91, legacyBox, 4),
              0);
    cv::Mat padded(img.rows, img.cols + 13, CV_8U, cv::Scalar(255));
    img.copyTo(padded(cv::Rect(0, 0, img.cols, img.rows)));
    for (int stride : {0, img.cols + 13}) {
        const cv::Mat& src = stride ? padded : img;
        qbcode_result r;
        ASSERT_EQ(qbcode_read(src.data, img.rows, img.cols, stride, QBCODE_DEFAULT_PARAMS, &r), 0);
        EXPECT_EQ(r.bit_count, 91);
        EXPECT_EQ(std::vector<int>(r.bits, r.bits + 91), legacyBits);
        EXPECT_EQ(std::vector<int>(r.box, r.box + 4), std::vector<int>(legacyBox, legacyBox + 4));
        EXPECT_LT(std::hypot(r.centre.x - 330, r.centre.y - 230), 1.0);
        EXPECT_EQ(r.checks.verified, 1);
        EXPECT_EQ(r.checks.markers_matched, 18);
        EXPECT_GT(r.margin, 0.0);
        // A clean print: every position plainly what its bit says.
        EXPECT_GT(r.decision_margin, 0.5);
        EXPECT_EQ(*std::min_element(r.confidence, r.confidence + 91), r.decision_margin);
        EXPECT_GT(r.timings.total, 0.0);
    }
    EXPECT_EQ(qbcode_read(img.data, img.rows, img.cols, 0, QBCODE_DEFAULT_PARAMS, nullptr),
              QBCODE_NO_RESULT);
    qbcode_result r;
    EXPECT_EQ(qbcode_read(nullptr, 0, 0, 0, nullptr, &r), r.status);
    EXPECT_LT(r.status, 0);
}

namespace {

// Dot centres of a five-ring code's printed positions, turned and squeezed along one axis as a
// tilted plane shows them.
std::vector<cv::Point2f> codeDots(uint64_t seed, double spacing, double turn, double squeeze) {
    const std::vector<int> bits = qbrender::randomBits(seed, 0.6);
    const std::vector<cv::Point2d> at = qbrender::gridOffsets(5, spacing, turn);
    std::vector<cv::Point2f> dots;
    for (size_t i = 0; i < bits.size(); ++i)
        if (bits[i]) dots.emplace_back(200 + at[i].y * squeeze, 150 + at[i].x);
    return dots;
}

std::vector<cv::Point2f> scattered(int n, uint64_t seed) {
    cv::RNG rng(seed);
    std::vector<cv::Point2f> dots;
    for (int i = 0; i < n; ++i) dots.emplace_back(rng.uniform(0.f, 300.f), rng.uniform(0.f, 300.f));
    return dots;
}

std::vector<cv::Point2f> squareGrid(int side, float step) {
    std::vector<cv::Point2f> dots;
    for (int i = 0; i < side * side; ++i) dots.emplace_back(step * (i % side), step * (i / side));
    return dots;
}

// The gaps between the dots of a full code: the centres of its triangles, a honeycomb.
std::vector<cv::Point2f> gapsOfACode(double spacing) {
    const std::vector<cv::Point2d> at = qbrender::gridOffsets(4, spacing, 0);
    std::vector<cv::Point2f> gaps;
    const double r = spacing / std::sqrt(3.0);
    for (const cv::Point2d& p : at)
        for (int k = 0; k < 2; ++k) {
            const double a = CV_PI / 6 + k * CV_PI / 3;
            gaps.emplace_back(200 + p.y + r * std::cos(a), 150 + p.x + r * std::sin(a));
        }
    return gaps;
}

std::vector<cv::Point2f> head(std::vector<cv::Point2f> dots, size_t n) {
    dots.resize(std::min(n, dots.size()));
    return dots;
}

struct LatticeCase {
    const char* name;
    std::vector<cv::Point2f> dots;
    bool lattice;
};

class LatticeCheck : public ::testing::TestWithParam<LatticeCase> {};

TEST_P(LatticeCheck, TellsCodesFromOtherBlobSets) {
    const LatticeStats s = latticeOf(GetParam().dots);
    EXPECT_EQ(s.passes(LatticeLimits()), GetParam().lattice)
        << "dots " << s.dots << " agree " << s.agree << " symmetry " << s.symmetry;
}

// The photograph's blobs: centroids of the bright spots of a textured frame, as the
// pre-processing would find them.
std::vector<cv::Point2f> textureBlobs() {
    cv::Mat grey = qbrender::noiseFrame(cv::Size(320, 240), 3.0, 11), bin;
    cv::threshold(grey, bin, 170, 255, cv::THRESH_BINARY);
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(bin, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    std::vector<cv::Point2f> dots;
    for (const auto& c : contours) {
        const cv::Moments m = cv::moments(c);
        if (m.m00 > 0) dots.emplace_back(m.m10 / m.m00, m.m01 / m.m00);
    }
    return dots;
}

INSTANTIATE_TEST_SUITE_P(
    BlobSets, LatticeCheck,
    ::testing::Values(LatticeCase{"code", codeDots(1, 12, 17, 1.0), true},
                      LatticeCase{"code_tilted_35", codeDots(2, 14, 71, std::cos(0.61)), true},
                      LatticeCase{"code_sparse", codeDots(3, 9, 133, 1.0), true},
                      LatticeCase{"texture_blobs", textureBlobs(), false},
                      LatticeCase{"random_field", scattered(120, 5), false},
                      LatticeCase{"square_grid", squareGrid(10, 12.f), false},
                      LatticeCase{"gaps_of_a_code", gapsOfACode(14), false},
                      LatticeCase{"too_few", head(codeDots(4, 12, 0, 1.0), 8), false}),
    [](const ::testing::TestParamInfo<LatticeCase>& i) { return std::string(i.param.name); });

// One reader over a stream: codes of both polarities, a frame without a code between them, and
// the first of readAll equal to read.
TEST(ReaderHandle, ReadsAStreamAndAgreesWithReadAll) {
    qbcode::Reader reader(qbcode::ReaderOptions::fromFile(QBCODE_DEFAULT_PARAMS));
    ASSERT_EQ(reader.status(), 0);
    const std::vector<int> bits = qbrender::randomBits(21);
    const cv::Mat code = qbrender::renderCamera(
        bits, geomtest::style(33, 20, cv::Size(640, 480), {300, 250}), qbrender::typicalCamera(4));
    const cv::Mat inverted = 255 - code;
    const cv::Mat blank = qbrender::noiseFrame(cv::Size(640, 480), 4.0, 3);
    for (const cv::Mat* f : {&code, &blank, &inverted, &blank, &code}) {
        const qbcode::ImageView view(f->data, f->rows, f->cols);
        const qbcode::Result one = reader.read(view);
        const std::vector<qbcode::Result> all = reader.readAll(view);
        if (f == &blank) {
            EXPECT_LT(one.status, 0);
            EXPECT_TRUE(all.empty());
            continue;
        }
        ASSERT_EQ(one.status, 0);
        EXPECT_EQ(one.bits, bits);
        EXPECT_EQ(one.evidence.darkDots, f == &inverted);
        ASSERT_FALSE(all.empty());
        EXPECT_TRUE(all[0].bits == one.bits && all[0].box == one.box);
    }
    // The caller's frame is read, never written.
    EXPECT_EQ(cv::norm(inverted, 255 - code, cv::NORM_INF), 0.0);
}

TEST(ReaderHandle, CHandleRefusesNullAndFreedHandles) {
    const cv::Mat img =
        qbrender::renderCode(qbrender::randomBits(8), geomtest::style(10, 22, cv::Size(640, 480)));
    qbcode_reader* reader = qbcode_reader_new(QBCODE_DEFAULT_PARAMS);
    ASSERT_NE(reader, nullptr);
    qbcode_result r, all[2];
    EXPECT_EQ(qbcode_reader_read(reader, img.data, img.rows, img.cols, 0, &r), 0);
    EXPECT_EQ(qbcode_reader_read_all(reader, img.data, img.rows, img.cols, 0, all, 2), 1);
    EXPECT_EQ(std::vector<int>(all[0].bits, all[0].bits + 91),
              std::vector<int>(r.bits, r.bits + 91));
    EXPECT_EQ(qbcode_reader_read(reader, img.data, img.rows, img.cols, img.cols - 1, &r),
              QBCODE_EMPTY_IMAGE);
    qbcode_reader_free(reader);
    EXPECT_EQ(qbcode_reader_status(nullptr), QBCODE_BAD_HANDLE);
    EXPECT_EQ(qbcode_reader_read(nullptr, img.data, img.rows, img.cols, 0, &r), QBCODE_BAD_HANDLE);
    EXPECT_EQ(qbcode_reader_read_all(nullptr, img.data, 1, 1, 0, all, 2), QBCODE_BAD_HANDLE);
    qbcode_reader_free(nullptr);

    qbcode_reader* broken = qbcode_reader_new_from_yaml("%YAML:1.0\n---\nAlgPipeline: [1\n");
    ASSERT_NE(broken, nullptr);
    EXPECT_EQ(qbcode_reader_status(broken), QBCODE_CONFIG);
    EXPECT_EQ(qbcode_reader_read(broken, img.data, img.rows, img.cols, 0, &r), QBCODE_CONFIG);
    qbcode_reader_free(broken);
    EXPECT_EQ(qbcode_reader_new_from_yaml(nullptr), nullptr);
}

}  // namespace

// A dark-dot label on a frame that is mostly dark: the frame's polarity guess is wrong, and the
// tiles that look the other way ask for the other polarity's view.
TEST(ReaderHandle, ALabelOfTheOtherPolarityOnADarkerSceneIsRead) {
    const std::vector<int> bits = qbrender::randomBits(31);
    qbrender::CodeStyle style = geomtest::style(12, 15, cv::Size(640, 480), {520, 240});
    style.background = 210;
    style.foreground = 40;
    cv::Mat frame = qbrender::renderCamera(bits, style, qbrender::typicalCamera(6));
    frame(cv::Rect(0, 0, 380, 480)).setTo(10);
    qbcode::Reader reader(qbcode::ReaderOptions::fromFile(QBCODE_DEFAULT_PARAMS));
    const qbcode::Result r = reader.read(qbcode::ImageView(frame.data, frame.rows, frame.cols));
    ASSERT_EQ(r.status, 0) << r.statusName();
    EXPECT_EQ(r.bits, bits);
    EXPECT_TRUE(r.evidence.darkDots);
    EXPECT_EQ(r.evidence.tries, 2);
}
