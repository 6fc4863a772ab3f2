// Anchors: how long readers of other codes take on frames of the same size (480 x 640, one
// thread, a symbol turned by 23 degrees, soft focus and sensor noise). Built only when the
// libraries are found (Debian libzxing-dev, libapriltag-dev).
#include <cstdlib>
#include <cstring>
#include <string>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "bench_frames.h"

#ifdef QBCODE_BENCH_ZXING
#include <ZXing/ReadBarcode.h>
#endif
#ifdef QBCODE_BENCH_APRILTAG
#include <apriltag/apriltag.h>
#include <apriltag/tag36h11.h>
#endif

namespace {

#ifdef QBCODE_BENCH_ZXING
void BM_Anchor_ZXingQR(benchmark::State& state) {
    const qbbench::SingleThread single;
    const cv::Mat frame = qbbench::qrFrame();
    const ZXing::ImageView view(frame.data, frame.cols, frame.rows, ZXing::ImageFormat::Lum);
    const ZXing::DecodeHints hints = ZXing::DecodeHints().setFormats(ZXing::BarcodeFormat::QRCode);
    for (auto _ : state) {
        const ZXing::Result r = ZXing::ReadBarcode(view, hints);
        if (!r.isValid()) state.SkipWithError("zxing-cpp did not read the QR frame");
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_Anchor_ZXingQR)->Unit(benchmark::kMillisecond);
#endif

#ifdef QBCODE_BENCH_APRILTAG
void BM_Anchor_AprilTag36h11(benchmark::State& state) {
    apriltag_family_t* family = tag36h11_create();
    image_u8_t* tag = apriltag_to_image(family, 42);
    // The family's image has its white ring outermost; a further white ring keeps it clear.
    cv::Mat symbol(tag->height + 2, tag->width + 2, CV_8U, cv::Scalar(255));
    for (int y = 0; y < tag->height; ++y)
        std::memcpy(symbol.ptr(y + 1) + 1, tag->buf + y * tag->stride, tag->width);
    // The library exports no image_u8_destroy; its images are two calloc'd blocks.
    free(tag->buf);
    free(tag);
    const cv::Mat frame = qbbench::anchorView(symbol, 240);

    apriltag_detector_t* detector = apriltag_detector_create();
    apriltag_detector_add_family(detector, family);
    detector->quad_decimate = 2.0f;
    detector->nthreads = 1;
    image_u8_t im{frame.cols, frame.rows, static_cast<int32_t>(frame.step[0]),
                  const_cast<uint8_t*>(frame.data)};
    for (auto _ : state) {
        zarray_t* found = apriltag_detector_detect(detector, &im);
        if (zarray_size(found) != 1) state.SkipWithError("AprilTag did not find the tag");
        apriltag_detections_destroy(found);
    }
    apriltag_detector_destroy(detector);
    tag36h11_destroy(family);
}
BENCHMARK(BM_Anchor_AprilTag36h11)->Unit(benchmark::kMillisecond);
#endif

}  // namespace
