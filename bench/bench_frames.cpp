// Frames shared by the benchmarks and the instruction-count tool.
#include "bench_frames.h"

#include <algorithm>
#include <cstring>
#include <string>

#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include "../tests/accuracy/conditions.h"
#include "qbcode_render.h"

#ifdef QBCODE_BENCH_ZXING
#include <ZXing/BitMatrix.h>
#include <ZXing/MultiFormatWriter.h>
#endif

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

std::vector<cv::Mat> suiteFrames(const std::vector<std::string>& names, int each) {
#ifdef QBCODE_PHOTOS_DIR
    const std::vector<accuracy::Condition> all =
        accuracy::buildConditions(accuracy::loadPhotos(QBCODE_PHOTOS_DIR));
#else
    const std::vector<accuracy::Condition> all = accuracy::buildConditions({});
#endif
    std::vector<cv::Mat> out;
    for (const accuracy::Condition& c : all)
        if (std::find(names.begin(), names.end(), c.name) != names.end())
            for (const accuracy::Sample& f : accuracy::framesOf(c, each)) out.push_back(f.image);
    return out;
}

StreamFrames streamFrames() {
    return {suiteFrames({"nominal"}, 24),
            suiteFrames({"photographs", "textures", "noise", "fake hex fields"}, 12), threeCodes()};
}

// Without stray blobs: one render's blobs, kept clear of its own code, would land on the others.
cv::Mat threeCodes() {
    cv::Mat frame(480, 640, CV_8U, cv::Scalar(0));
    const cv::Point2d centres[3] = {{130.0, 130.0}, {510.0, 130.0}, {320.0, 370.0}};
    for (int k = 0; k < 3; ++k) {
        qbrender::CodeStyle style;
        style.spacing = 17.0;
        style.dotDiameter = 10.2;
        style.rotationDeg = 20.0 + 35.0 * k;
        style.centre = centres[k];
        qbrender::CameraOptions camera = qbrender::typicalCamera(900 + k);
        camera.clutterBlobs = 0;
        cv::max(frame, qbrender::renderCamera(qbrender::randomBits(800 + k), style, camera), frame);
    }
    return frame;
}

cv::Mat anchorView(const cv::Mat& symbol, int side) {
    cv::Mat big;
    cv::resize(symbol, big, cv::Size(side, side), 0, 0, cv::INTER_NEAREST);
    cv::Mat frame(480, 640, CV_8U, cv::Scalar(200));
    big.copyTo(frame(cv::Rect((640 - side) / 2, (480 - side) / 2, side, side)));
    const cv::Mat turn = cv::getRotationMatrix2D(cv::Point2f(320.f, 240.f), 23.0, 1.0);
    cv::warpAffine(frame, frame, turn, frame.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                   cv::Scalar(200));
    cv::GaussianBlur(frame, frame, cv::Size(0, 0), 0.8);
    cv::Mat noise(frame.size(), CV_16S);
    cv::RNG rng(7);
    rng.fill(noise, cv::RNG::NORMAL, 0, 3);
    cv::Mat grey;
    frame.convertTo(grey, CV_16S);
    grey += noise;
    grey.convertTo(frame, CV_8U);
    return frame;
}

#ifdef QBCODE_BENCH_ZXING
cv::Mat qrFrame() {
    const ZXing::BitMatrix bits = ZXing::MultiFormatWriter(ZXing::BarcodeFormat::QRCode)
                                      .setMargin(4)
                                      .encode(std::string("https://example.org/qbcode/0042"), 0, 0);
    const ZXing::Matrix<uint8_t> modules = ZXing::ToMatrix<uint8_t>(bits);
    cv::Mat symbol(modules.height(), modules.width(), CV_8U);
    std::memcpy(symbol.data, modules.data(), symbol.total());
    return anchorView(symbol, 240);
}
#endif

}  // namespace qbbench
