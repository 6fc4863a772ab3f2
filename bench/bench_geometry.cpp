// Cost of the geometry stages: the angle search and its rotation + projection core, the
// clustering, the template search, and the whole stage from centroids to centre.
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include "ImageRotation.h"
#include "PatternRotationCalculation.h"
#include "ROI_Segment.h"
#include "SystemPara.h"
#include "gapCalculation.h"
#include "qbcode_render.h"
#include "startPoint_cal.h"

namespace {

const std::vector<int>& codeBits() {
    static const std::vector<int> bits = qbrender::payloadBits(0xf7b3ed5fbe6fd7bdULL);
    return bits;
}

qbrender::CodeStyle codeStyle(double rotationDeg, double spacing, cv::Size size) {
    qbrender::CodeStyle s;
    s.rotationDeg = rotationDeg;
    s.spacing = spacing;
    s.dotDiameter = 0.6 * spacing;
    s.size = size;
    return s;
}

cv::Mat binaryOf(const cv::Mat& grey) {
    cv::Mat bin;
    cv::threshold(grey, bin, 128, 255, cv::THRESH_BINARY);
    return bin;
}

// A 180 x 180 binary crop of a code turned by 23 degrees, as the angle search sees it.
const cv::Mat& angleCrop() {
    static const cv::Mat crop =
        binaryOf(qbrender::renderCode(codeBits(), codeStyle(23.0, 13.0, cv::Size(180, 180))));
    return crop;
}

// Restores OpenCV's thread count after a single-threaded run.
struct ThreadScope {
    int saved = cv::getNumThreads();
    explicit ThreadScope(bool single) {
        if (single) cv::setNumThreads(1);
    }
    ~ThreadScope() { cv::setNumThreads(saved); }
};

// ---- The 90 rotations and projections of one angle search ----

void BM_RotateProject_Fused(benchmark::State& state) {
    const cv::Mat& src = angleCrop();
    ImageRotation rot;
    std::vector<float> sums(src.cols);
    for (auto _ : state) {
        for (int theta = 0; theta < 180; theta += 2)
            rot.fast_rotate_project(sums.data(), src.data, static_cast<unsigned short>(src.rows),
                                    static_cast<unsigned short>(src.cols),
                                    static_cast<float>(theta));
        benchmark::DoNotOptimize(sums.data());
    }
}
BENCHMARK(BM_RotateProject_Fused)->Unit(benchmark::kMicrosecond);

void BM_RotateProject_FastThenReduce(benchmark::State& state) {
    const cv::Mat& src = angleCrop();
    ImageRotation rot;
    cv::Mat turned = cv::Mat::zeros(src.size(), CV_8U), proj;
    for (auto _ : state) {
        for (int theta = 0; theta < 180; theta += 2) {
            rot.fast_rotate(src, turned, static_cast<float>(theta));
            cv::reduce(turned, proj, 0, cv::REDUCE_SUM, CV_32F);
        }
        benchmark::DoNotOptimize(proj.data);
    }
}
BENCHMARK(BM_RotateProject_FastThenReduce)->Unit(benchmark::kMicrosecond);

// The plain OpenCV route for one angle: an affine warp, then a reduction.
void warpProject(const cv::Mat& src, int theta, cv::Mat& turned, cv::Mat& proj) {
    const cv::Point2f centre(src.cols * 0.5f, src.rows * 0.5f);
    const cv::Mat M = cv::getRotationMatrix2D(centre, theta, 1.0);
    cv::warpAffine(src, turned, M, src.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                   cv::Scalar(0));
    cv::reduce(turned, proj, 0, cv::REDUCE_SUM, CV_32F);
}

// Arg 1 = one thread.
void BM_RotateProject_WarpAffine(benchmark::State& state) {
    const ThreadScope threads(state.range(0) == 1);
    const cv::Mat& src = angleCrop();
    for (auto _ : state) {
        cv::Mat turned, proj;
        for (int theta = 0; theta < 180; theta += 2) {
            warpProject(src, theta, turned, proj);
        }
        benchmark::DoNotOptimize(proj.data);
    }
}
BENCHMARK(BM_RotateProject_WarpAffine)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// ---- Whole angle search, peaks and scores included ----

void BM_AngleSearch(benchmark::State& state) {
    cv::Mat src = angleCrop().clone();
    cv::Mat scores = cv::Mat::zeros(1, 180, CV_32F), table = cv::Mat::zeros(180, 20, CV_32F);
    PatternRotationCalculation search;
    for (auto _ : state) {
        const int angle = search.rotationAngleCal(src, scores, table);
        benchmark::DoNotOptimize(angle);
    }
}
BENCHMARK(BM_AngleSearch)->Unit(benchmark::kMicrosecond);

void BM_AngleSearch_WarpAffine(benchmark::State& state) {
    const ThreadScope threads(state.range(0) == 1);
    const cv::Mat& src = angleCrop();
    cv::Mat scores = cv::Mat::zeros(1, 180, CV_32F), table = cv::Mat::zeros(180, 20, CV_32F);
    PeakDetector peaks;
    peaks.setParas(1200.f, 1, 4);
    PatternRotationCalculation pick;
    for (auto _ : state) {
        cv::Mat turned, proj;
        for (int theta = 0; theta < 180; theta += 2) {
            warpProject(src, theta, turned, proj);
            peaks.peakDetector(proj, scores, table, theta);
        }
        benchmark::DoNotOptimize(pick.rotated_angle(scores));
    }
}
BENCHMARK(BM_AngleSearch_WarpAffine)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// ---- Clustering of 100 centroids: a 91-dot code and 9 stray dots ----

void BM_Clustering100(benchmark::State& state) {
    std::vector<float> pts;
    for (const auto& o : qbrender::gridOffsets(5, 13.0, 23.0)) {
        pts.push_back(static_cast<float>(200 + o.y));
        pts.push_back(static_cast<float>(150 + o.x));
    }
    const float stray[9][2] = {{5, 5},    {380, 3},  {370, 280}, {10, 270}, {60, 20},
                               {330, 40}, {20, 140}, {378, 150}, {340, 260}};
    for (const auto& p : stray) {
        pts.push_back(p[0]);
        pts.push_back(p[1]);
    }
    const int n = static_cast<int>(pts.size() / 2);
    std::vector<float> rho(n), delta(n);
    std::vector<int> nneigh(n), labels(n);
    for (auto _ : state) {
        std::fill(rho.begin(), rho.end(), 0.f);
        std::fill(delta.begin(), delta.end(), 0.f);
        std::fill(nneigh.begin(), nneigh.end(), 0);
        std::fill(labels.begin(), labels.end(), -1);
        ROI_Segment seg(288, 384, 72.f, n, 2);
        const int k = seg.cluster_densityPeaks(pts.data(), n, 2, 72.f, rho.data(), delta.data(),
                                               nneigh.data(), labels.data());
        benchmark::DoNotOptimize(seg.cal_ROI(pts.data(), labels.data(), k));
    }
}
BENCHMARK(BM_Clustering100)->Unit(benchmark::kMicrosecond);

// ---- Template search on an upright binary crop ----

void BM_TemplateSearch(benchmark::State& state) {
    const cv::Mat bin =
        binaryOf(qbrender::renderCode(codeBits(), codeStyle(0.0, 13.0, cv::Size(200, 200))));
    SystemPara para(QBCODE_DEFAULT_PARAMS);
    startPoint_cal stage(&para);
    cv::Mat templ;
    cv::Point centre;
    for (auto _ : state) {
        float gap = 13.f;
        const int r = stage.findStartPoint_NCC(gap, bin, templ, centre, 0.0);
        if (r < 0) state.SkipWithError("no start point in the rendered code");
        benchmark::DoNotOptimize(centre);
    }
}
BENCHMARK(BM_TemplateSearch)->Unit(benchmark::kMillisecond);

// ---- The whole stage: ROI, angle, rotation, spacing and start point ----

void BM_GeometryStage(benchmark::State& state) {
    qbrender::CodeStyle s = codeStyle(23.0, 13.0, cv::Size(384, 288));
    s.centre = cv::Point2d(190, 150);
    const cv::Mat grey = qbrender::renderCode(codeBits(), s), bin = binaryOf(grey);
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(bin.clone(), contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    std::vector<float> centroids;
    for (const auto& c : contours) {
        const cv::Moments m = cv::moments(c);
        centroids.push_back(static_cast<float>(m.m10 / m.m00));
        centroids.push_back(static_cast<float>(m.m01 / m.m00));
    }
    const int n = static_cast<int>(centroids.size() / 2);
    SystemPara para(QBCODE_DEFAULT_PARAMS);
    for (auto _ : state) {
        std::vector<float> pts = centroids, rho(n, 0.f), delta(n, 0.f);
        std::vector<int> nneigh(n, 0), labels(n, -1);
        ROI_Segment seg(bin.rows, bin.cols, 72.f, n, 2);
        const int k = seg.cluster_densityPeaks(pts.data(), n, 2, 72.f, rho.data(), delta.data(),
                                               nneigh.data(), labels.data());
        const cv::Rect roi =
            k < 1 ? cv::Rect(0, 0, bin.cols, bin.rows) : seg.cal_ROI(pts.data(), labels.data(), k);
        cv::Mat procRoi = cv::Mat(grey, roi).clone(), binRoi = cv::Mat(bin, roi).clone();
        cv::Mat scores = cv::Mat::zeros(1, 180, CV_32F), table = cv::Mat::zeros(180, 20, CV_32F);
        const int angle = PatternRotationCalculation().rotationAngleCal(binRoi, scores, table);
        ImageRotation rot;
        cv::Mat procRot, binRot;
        rot.rotate(procRoi, procRot, static_cast<float>(angle));
        rot.rotate(binRoi, binRot, static_cast<float>(angle));
        float gap = gapCalculation().gap_cal_M2(scores, table);
        startPoint_cal stage(&para);
        cv::Mat templ;
        cv::Point centre;
        if (stage.findStartPoint_NCC(gap, binRot, templ, centre, 0.0) < 0)
            state.SkipWithError("geometry stage found no start point");
        benchmark::DoNotOptimize(centre);
    }
}
BENCHMARK(BM_GeometryStage)->Unit(benchmark::kMillisecond);

}  // namespace
