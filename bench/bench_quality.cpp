// Print-quality stages on a rendered five-ring code (640 x 480, spacing 22 px).
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include "BlobAnalysis.h"
#include "PrintingScoreCal.h"
#include "SystemPara.h"
#include "bwlabel1.h"
#include "qbcode_print_quality.hpp"
#include "qbcode_render.h"

namespace {

struct Code {
    cv::Mat grey, binary, points;
    Code() {
        qbrender::CodeStyle style;
        qbrender::CameraOptions camera;
        camera.noiseSigma = 2.0;
        grey = qbrender::renderCamera(qbrender::payloadBits(0x5A5AF0F0FFFF3C3Cull), style, camera);
        cv::threshold(grey, binary, 125, 255, cv::THRESH_BINARY);
        const auto offsets = qbrender::gridOffsets(5, style.spacing, 0.0);
        points.create(static_cast<int>(offsets.size()), 2, CV_64F);
        for (int i = 0; i < points.rows; ++i) {
            points.at<double>(i, 0) = 320 + offsets[i].y;
            points.at<double>(i, 1) = 240 + offsets[i].x;
        }
    }
};

const Code& code() {
    static const Code c;
    return c;
}

void BM_Bwlabel1(benchmark::State& state) {
    cv::Mat dst;
    for (auto _ : state) benchmark::DoNotOptimize(bwlabel1(code().binary, dst, 255.0));
}
BENCHMARK(BM_Bwlabel1)->Unit(benchmark::kMicrosecond);

// Includes reading the "BlobAnalysis" section, as every analysis does.
void BM_BlobAnalysis(benchmark::State& state) {
    SystemPara para(QBCODE_DEFAULT_PARAMS);
    std::vector<DotAttribute> records(91);
    std::vector<DotAttribute*> slots;
    for (auto& r : records) slots.push_back(&r);
    for (auto _ : state) {
        BlobAnalysis blobs(&para, "bench");
        benchmark::DoNotOptimize(
            blobs.blob_analysis(code().binary, code().grey, code().points, slots));
    }
}
BENCHMARK(BM_BlobAnalysis)->Unit(benchmark::kMicrosecond);

void BM_PrintScore(benchmark::State& state) {
    SystemPara para(QBCODE_DEFAULT_PARAMS);
    PrintingScoreCal score(&para);
    score.gap = 22.0;
    cv::Mat table = cv::Mat::zeros(91, 8, CV_64F);
    for (int i = 0; i < table.rows; ++i) {
        double* r = table.ptr<double>(i);
        r[0] = 130.0;
        r[1] = 200.0;
        r[2] = 0.9;
        r[4] = r[5] = 12.0;
        r[7] = i;
    }
    std::vector<double> parts;
    for (auto _ : state) benchmark::DoNotOptimize(score.run(table, parts));
}
BENCHMARK(BM_PrintScore)->Unit(benchmark::kMicrosecond);

// Reading the code and grading it.
void BM_Grade(benchmark::State& state) {
    const cv::Mat img = code().grey.clone();
    qbcode::GradeResult g;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            qbcode::grade(img.data, img.rows, img.cols, QBCODE_DEFAULT_PARAMS, g));
    state.counters["status"] = g.status;
}
BENCHMARK(BM_Grade)->Unit(benchmark::kMillisecond);

}  // namespace
