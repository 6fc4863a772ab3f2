// Many threads and many calls: the same results as one thread at any OpenCV thread count, no
// leak, flat memory.
#include <unistd.h>

#include <atomic>
#include <thread>

#include "qbcode_hexagon_recognition.h"
#include "qbcode_reader.hpp"
#include "qbcode_render.h"
#include "../test_support.h"

namespace {

// A small frame keeps the sanitizer builds quick.
cv::Mat frame(uint64_t payload, double rotation) {
    // Spacing, dot diameter, turn, centre (the middle) and size.
    const qbrender::CodeStyle style{20.0, 12.0, rotation, {-1, -1}, {360, 320}};
    qbrender::CameraOptions camera = qbrender::typicalCamera(payload);
    camera.jpegQuality = 0;  // the codecs' GDAL plugin is no part of the reader
    return qbrender::renderCamera(qbrender::randomBits(payload), style, camera);
}

long residentKb() {
    std::ifstream in("/proc/self/statm");
    long pages = 0, resident = 0;
    in >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

// Valid and invalid calls mixed: LeakSanitizer checks the exit in the sanitizer build, the
// resident size is checked here.
TEST(Stress, ThousandMixedCallsKeepMemoryFlat) {
    const cv::Mat good = frame(0xBEEF, 23.0);
    const cv::Mat flat(320, 360, CV_8UC1, cv::Scalar(0));
    const std::vector<std::string> params = {
        QBCODE_DEFAULT_PARAMS,
        "/nonexistent.yml",
        writeFile("stress_deep.yml", "%YAML:1.0\n---\na: " + std::string(5000, '[')),
        writeFile("stress_type.yml", paramsWith("AlgPipeline", "layer", "\"five\"")),
        writeFile("stress_big.yml", defaultParams() + "#" + std::string(70000, 'x')),
        "/dev/zero",
    };
    std::vector<int> bits(91);
    int box[4];
    long warm = 0;
    int ok = 0;
    testing::internal::CaptureStdout();  // the length refusals print their expected count
    for (int i = 0; i < 1000; ++i) {
        if (i == 100) warm = residentKb();
        const bool valid = i % 25 == 0;
        const cv::Mat& img = valid ? good : flat;
        const std::string& p = valid ? params[0] : params[static_cast<size_t>(i) % params.size()];
        // A third of the invalid calls lie about the size or pass no pixels at all.
        const int rows = !valid && i % 3 == 1 ? 100000 : img.rows;
        unsigned char* data = !valid && i % 3 == 2 ? nullptr : img.data;
        const int s = quelbor_hexagon_recognition(data, rows, img.cols, 0, p.c_str(), bits.data(),
                                                  91, box, 4);
        ok += s == 0;
        qbcode_result full;
        ok += qbcode_read(data, rows, img.cols, 0, p.c_str(), &full) == 0;
    }
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(ok, 80);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(residentKb() - warm, 8 * 1024);
#else
    (void)warm;
#endif
}

namespace {

// Frames that go past the first try: blur, noise, steep tilt, uneven light, dark dots, codes cut
// by the frame and frames without a code, so that the retry, size-rule and refinement paths run.
std::vector<cv::Mat> hardFrames(int count) {
    std::vector<cv::Mat> out;
    cv::RNG rng(20261124);
    for (int i = 0; i < count; ++i) {
        qbrender::CodeStyle style;
        style.size = cv::Size(480, 360);
        style.spacing = rng.uniform(12.0, 22.0);
        style.dotDiameter = style.spacing * rng.uniform(0.45, 0.75);
        style.rotationDeg = rng.uniform(0.0, 360.0);
        style.centre = cv::Point2d(240 + rng.uniform(-60.0, 60.0), 180 + rng.uniform(-40.0, 40.0));
        if (i % 6 == 5) style.centre.x = 30;  // cut by the frame
        qbrender::CameraOptions cam;
        cam.blurSigma = rng.uniform(0.5, 2.6);
        cam.noiseSigma = rng.uniform(2.0, 16.0);
        cam.tiltDeg = rng.uniform(0.0, 35.0);
        cam.tiltAxisDeg = rng.uniform(0.0, 180.0);
        cam.lightingGradient = rng.uniform(0.0, 0.5);
        cam.textureAmplitude = rng.uniform(0.0, 25.0);
        cam.seed = static_cast<uint64_t>(i) + 1;
        cv::Mat f = qbrender::renderCamera(qbrender::randomBits(500 + i), style, cam);
        if (i % 4 == 3) f = 255 - f;
        if (i % 8 == 7) f = qbrender::noiseFrame(style.size, 2.0 + i % 5, i);
        out.push_back(f);
    }
    return out;
}

std::string line(int status, const std::vector<int>& bits, const int* box) {
    std::ostringstream out;
    out << status << ' ';
    for (int b : bits) out << b;
    out << ' ' << box[0] << ' ' << box[1] << ' ' << box[2] << ' ' << box[3];
    return out.str();
}

// The same frame through the C calls, a one-off read and a reader kept by the caller.
std::string readThrice(const cv::Mat& f, qbcode::Reader& reader, const std::string& params) {
    std::vector<int> bits(91, 0);
    int box[4] = {0, 0, 0, 0};
    const int s = quelbor_hexagon_recognition(f.data, f.rows, f.cols, 0, params.c_str(),
                                              bits.data(), 91, box, 4);
    const qbcode::ImageView view(f.data, f.rows, f.cols);
    const qbcode::Result once = qbcode::read(view, reader.options());
    const qbcode::Result kept = reader.read(view);
    qbcode_result full, all[2];
    const int extended = qbcode_read(f.data, f.rows, f.cols, 0, params.c_str(), &full);
    const int every = qbcode_read_all(f.data, f.rows, f.cols, 0, params.c_str(), all, 2);
    return line(s, bits, box) + " | " + line(once.status, once.bits, once.box.data()) + " | " +
           line(kept.status, kept.bits, kept.box.data()) + " | " + std::to_string(extended) + " " +
           std::to_string(every);
}

// The shipped file, and the same without its "Detection" section: every try in turn, the
// polarity retry after every failure.
std::string paramsNamed(const std::string& name) {
    if (name == "shipped") return QBCODE_DEFAULT_PARAMS;
    const std::string text = defaultParams();
    return writeFile("every_try.yml", text.substr(0, text.find("\nDetection:") + 1));
}

class Determinism : public ::testing::TestWithParam<std::string> {};

}  // namespace

// A result must not depend on OpenCV's thread count, on other reads running at the same time or
// on the order threads run in. QBCODE_DETERMINISM_FRAMES sets a longer run.
TEST_P(Determinism, HardFramesReadAlikeAtAnyThreadCountAndConcurrency) {
    const char* env = std::getenv("QBCODE_DETERMINISM_FRAMES");
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__) || defined(QBCODE_TEST_EMULATED)
    // The sanitizers' interest is the races, not the frames; an emulator is slow.
    const int standard = 3;
    const std::vector<int> cvThreadCounts = {2};
#else
    const int standard = 24;
    const std::vector<int> cvThreadCounts = {1, 2, 8};
#endif
    const std::vector<cv::Mat> frames = hardFrames(env ? std::atoi(env) : standard);
    const std::string params = paramsNamed(GetParam());
    const qbcode::ReaderOptions options = qbcode::ReaderOptions::fromFile(params);
    const int saved = cv::getNumThreads();
    std::vector<std::string> expected;
    cv::setNumThreads(1);
    {
        qbcode::Reader reader(options);
        for (const cv::Mat& f : frames) expected.push_back(readThrice(f, reader, params));
    }
    int read = 0;
    for (const std::string& e : expected) read += e.rfind("0 ", 0) == 0;
    EXPECT_GE(read, static_cast<int>(frames.size()) / 3);
    for (int cvThreads : cvThreadCounts) {
        cv::setNumThreads(cvThreads);
        std::atomic<int> differ{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t)
            threads.emplace_back([&, t] {
                qbcode::Reader reader(options);
                for (size_t k = 0; k < frames.size(); ++k) {
                    const size_t i = (k * 5 + static_cast<size_t>(t) * 3) % frames.size();
                    if (readThrice(frames[i], reader, params) != expected[i]) ++differ;
                }
            });
        for (std::thread& th : threads) th.join();
        EXPECT_EQ(differ.load(), 0) << "OpenCV threads: " << cvThreads;
    }
    cv::setNumThreads(saved);
}

INSTANTIATE_TEST_SUITE_P(Files, Determinism, ::testing::Values("shipped", "every_try"),
                         [](const ::testing::TestParamInfo<std::string>& i) { return i.param; });
