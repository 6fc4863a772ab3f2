// Pre-processing stages on a 480 x 640 camera-like frame with bright dots 22 px apart.
// Run with --benchmark_repetitions=5 --benchmark_report_aggregates_only=true.
#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include "ImageProcessPipeline.h"
#include "SystemPara.h"
#include "qbcode_render.h"

namespace {

// The intermediate images of one pass of the chain with the default parameters.
struct Frames {
    cv::Mat input, dn, smooth, hessian, log, normal, binary;

    Frames() {
        qbrender::CodeStyle style;
        style.rotationDeg = 12.0;
        qbrender::CameraOptions cam;
        cam.blurSigma = 0.8;
        cam.noiseSigma = 2.0;
        input = qbrender::renderCamera(qbrender::randomBits(7), style, cam);
        NoiseRemover nr;
        nr.setDnsample_size(cv::Point(384, 288));
        nr.ImgDnSample(input, dn);
        dn.copyTo(smooth);
        nr.imopen(smooth, smooth);
        cv::Mat s = smooth.clone();
        Dots_HessianProcess h;
        h.process(s, hessian);
        LogFilter l;
        l.setSigma({2.0f, 3.0f});
        l.process(hessian, log);
        normal = log.clone();
        ImgBinary b;
        b.setPars(255.0f, 24.0);
        b.grayimg_normal(normal);
        b.image_binary(normal, binary);
    }
};

const Frames& frames() {
    static const Frames f;
    return f;
}

void BM_Downsample(benchmark::State& state) {
    NoiseRemover nr;
    nr.setDnsample_size(cv::Point(384, 288));
    cv::Mat src = frames().input, dst;
    for (auto _ : state) nr.ImgDnSample(src, dst);
}
BENCHMARK(BM_Downsample)->Unit(benchmark::kMicrosecond);

void BM_Opening(benchmark::State& state) {
    NoiseRemover nr;
    cv::Mat src = frames().dn, dst;
    for (auto _ : state) nr.imopen(src, dst);
}
BENCHMARK(BM_Opening)->Unit(benchmark::kMicrosecond);

void BM_Hessian(benchmark::State& state) {
    Dots_HessianProcess h;
    cv::Mat src, dst;
    frames().smooth.convertTo(src, CV_32F);
    for (auto _ : state) benchmark::DoNotOptimize(h.process(src, dst));
}
BENCHMARK(BM_Hessian)->Unit(benchmark::kMicrosecond);

void BM_ClearInf(benchmark::State& state) {
    ImageProcessPipeline p;
    cv::Mat m = frames().hessian.clone();
    for (auto _ : state) p.clear_inf(m);
}
BENCHMARK(BM_ClearInf)->Unit(benchmark::kMicrosecond);

void BM_LoG(benchmark::State& state) {
    LogFilter l;
    l.setSigma({2.0f, 3.0f});
    cv::Mat src = frames().hessian, dst;
    for (auto _ : state) benchmark::DoNotOptimize(l.process(src, dst));
}
BENCHMARK(BM_LoG)->Unit(benchmark::kMicrosecond);

void BM_Normalise(benchmark::State& state) {
    ImgBinary b;
    cv::Mat img;
    for (auto _ : state) {
        frames().log.copyTo(img);
        benchmark::DoNotOptimize(b.grayimg_normal(img));
    }
}
BENCHMARK(BM_Normalise)->Unit(benchmark::kMicrosecond);

void BM_Binarise(benchmark::State& state) {
    ImgBinary b;
    b.setPars(255.0f, 24.0);
    cv::Mat src = frames().normal, otsu, dst;
    for (auto _ : state) {
        benchmark::DoNotOptimize(b.image_otsu_binary(src, otsu));
        b.image_binary(src, dst);
    }
}
BENCHMARK(BM_Binarise)->Unit(benchmark::kMicrosecond);

void BM_BlobCentroid(benchmark::State& state) {
    ImgBinary b;
    cv::Mat bin;
    std::vector<cv::Point2f> c;
    for (auto _ : state) {
        frames().binary.copyTo(bin);
        c.clear();
        benchmark::DoNotOptimize(b.blob_centroid(bin, c));
    }
}
BENCHMARK(BM_BlobCentroid)->Unit(benchmark::kMicrosecond);

void BM_Process(benchmark::State& state) {
    SystemPara para(QBCODE_DEFAULT_PARAMS);
    ImageProcessPipeline p(&para);
    cv::Mat processed, binary;
    std::vector<cv::Point2f> c;
    for (auto _ : state) {
        cv::Mat input = frames().input;
        c.clear();
        if (p.process(input, processed, binary, c) != 0) state.SkipWithError("chain failed");
    }
}
BENCHMARK(BM_Process)->Unit(benchmark::kMicrosecond);

}  // namespace
