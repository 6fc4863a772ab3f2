// Whole calls on a fixed set of camera-like 480 x 640 frames, one OpenCV thread, one frame per
// iteration in turn. The extended call also reports its stage timings (ms per call) as counters.
// Builds are compared in one interleaved run with scripts/bench_compare.py.
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>

#include "bench_frames.h"
#include "qbcode_hexagon_recognition.h"
#include "qbcode_reader.hpp"
#include "qbcode_render.h"

namespace qbbench {

const std::vector<cv::Mat>& cameraFrames() {
    static const std::vector<cv::Mat> frames = [] {
        // Rotations across the whole turn and spacings across the usual camera range; every
        // frame reads with the shipped parameter file.
        const double rotations[8] = {0.0, 12.0, 23.0, 37.0, 52.0, 75.0, 118.0, 161.0};
        const double spacings[8] = {18.0, 20.0, 22.0, 24.0, 20.0, 22.0, 18.0, 24.0};
        std::vector<cv::Mat> out;
        for (int i = 0; i < 8; ++i) {
            qbrender::CodeStyle style;
            style.rotationDeg = rotations[i];
            style.spacing = spacings[i];
            style.dotDiameter = 0.6 * spacings[i];
            style.size = cv::Size(640, 480);
            out.push_back(qbrender::renderCamera(qbrender::randomBits(100 + i), style,
                                                 qbrender::typicalCamera(1 + i)));
        }
        return out;
    }();
    return frames;
}

SingleThread::SingleThread() : saved(cv::getNumThreads()) {
    cv::setNumThreads(1);
}

SingleThread::~SingleThread() {
    cv::setNumThreads(saved);
}

}  // namespace qbbench

namespace {

void BM_WholeCall_C(benchmark::State& state) {
    const qbbench::SingleThread single;
    std::vector<cv::Mat> frames;
    for (const cv::Mat& f : qbbench::cameraFrames()) frames.push_back(f.clone());
    std::vector<int> bits(91);
    int box[4];
    size_t k = 0;
    for (auto _ : state) {
        cv::Mat& img = frames[k++ % frames.size()];
        const int status = quelbor_hexagon_recognition(
            img.data, img.rows, img.cols, 0, QBCODE_DEFAULT_PARAMS, bits.data(), 91, box, 4);
        benchmark::DoNotOptimize(status);
        if (status != 0) state.SkipWithError("a frame of the set did not read");
    }
}
BENCHMARK(BM_WholeCall_C)->Unit(benchmark::kMillisecond);

void BM_WholeCall_Read(benchmark::State& state) {
    const qbbench::SingleThread single;
    const std::vector<cv::Mat>& frames = qbbench::cameraFrames();
    const qbcode::ReaderOptions options;
    qbcode::Timings sum;
    size_t k = 0;
    for (auto _ : state) {
        const cv::Mat& img = frames[k++ % frames.size()];
        const qbcode::Result r =
            qbcode::read(qbcode::ImageView(img.data, img.rows, img.cols), options);
        if (r.status != 0) state.SkipWithError("a frame of the set did not read");
        sum.preprocess += r.timings.preprocess;
        sum.region += r.timings.region;
        sum.angle += r.timings.angle;
        sum.spacing += r.timings.spacing;
        sum.centre += r.timings.centre;
        sum.decode += r.timings.decode;
        sum.verify += r.timings.verify;
    }
    const auto perCall = benchmark::Counter::kAvgIterations;
    state.counters["pre"] = benchmark::Counter(sum.preprocess, perCall);
    state.counters["region"] = benchmark::Counter(sum.region, perCall);
    state.counters["angle"] = benchmark::Counter(sum.angle, perCall);
    state.counters["spacing"] = benchmark::Counter(sum.spacing, perCall);
    state.counters["centre"] = benchmark::Counter(sum.centre, perCall);
    state.counters["decode"] = benchmark::Counter(sum.decode, perCall);
    state.counters["verify"] = benchmark::Counter(sum.verify, perCall);
}
BENCHMARK(BM_WholeCall_Read)->Unit(benchmark::kMillisecond);

}  // namespace
