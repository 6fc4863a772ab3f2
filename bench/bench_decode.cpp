// Cost of reading a code: the tracker alone (the whole call is bench_recognition.cpp).
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include "Hexagon_Dots_tracking.h"
#include "SystemPara.h"
#include "qbcode_render.h"

namespace {

const std::vector<int>& benchBits() {
    static const std::vector<int> bits = qbrender::randomBits(31);
    return bits;
}

cv::Mat cameraCode() {
    qbrender::CodeStyle style;
    style.rotationDeg = 23.0;
    return qbrender::renderCamera(benchBits(), style, qbrender::typicalCamera());
}

void BM_TrackUpright(benchmark::State& state) {
    qbrender::CodeStyle style;
    style.centre = cv::Point2d(320, 240);
    const cv::Mat code = qbrender::renderCode(benchBits(), style);
    SystemPara para(QBCODE_DEFAULT_PARAMS);
    Hexagon_Dots_tracking tracker(&para, style.spacing, 320, 240, 5);
    cv::Mat img, bits, boxes;
    for (auto _ : state) {
        code.copyTo(img);  // the tracker binarises its input
        const int idx = tracker.Run(img, cv::Mat(), bits, boxes, false);
        benchmark::DoNotOptimize(idx);
        if (idx != 0) state.SkipWithError("tracker did not read the upright code");
    }
}
BENCHMARK(BM_TrackUpright)->Unit(benchmark::kMicrosecond);

void BM_RenderCamera(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(cameraCode());
}
BENCHMARK(BM_RenderCamera)->Unit(benchmark::kMillisecond);

}  // namespace
