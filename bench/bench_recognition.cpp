// Whole calls on a fixed set of camera-like 480 x 640 frames, one OpenCV thread, one frame per
// iteration in turn. The extended call also reports its stage timings (ms per call) as counters.
// Builds are compared in one interleaved run with scripts/bench_compare.py.
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include "bench_frames.h"
#include "qbcode_hexagon_recognition.h"
#include "qbcode_reader.hpp"
#include "qbcode_render.h"

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
