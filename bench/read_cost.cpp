// Instructions per read, a cost figure that does not depend on the machine's load: run under
// valgrind's callgrind (scripts/read_cost.sh), every read is counted on its own (a dump per
// read, named after its frame class). Without valgrind it reads the same frames once each.
// "--stream N" instead reads the no-code and nominal frames in turn N times through one reader
// and prints the heap in use every N/10 frames: it must not grow.
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "bench_frames.h"
#include "qbcode_reader.hpp"

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_STOP_INSTRUMENTATION
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(name) (void)(name)
#endif

#ifdef QBCODE_BENCH_ZXING
#include <ZXing/ReadBarcode.h>
#endif

namespace {

// One read between a zeroed counter and a dump named after its class.
template <class F>
void counted(const char* name, F&& read) {
    CALLGRIND_ZERO_STATS;
    read();
    CALLGRIND_DUMP_STATS_AT(name);
}

}  // namespace

int main(int argc, char** argv) {
    const qbbench::SingleThread single;
    const qbbench::StreamFrames frames = qbbench::streamFrames();
    const std::vector<cv::Mat>&nominal = frames.nominal, &empty = frames.empty;
    const cv::Mat& three = frames.three;
    qbcode::Reader reader(qbcode::ReaderOptions::fromFile(QBCODE_DEFAULT_PARAMS));

    if (argc == 3 && std::strcmp(argv[1], "--stream") == 0) {
        const long frames = std::max(10L, std::atol(argv[2]));
        for (long k = 0; k < frames; ++k) {
            const std::vector<cv::Mat>& set = k % 2 ? nominal : empty;
            reader.read(qbbench::viewOf(set[static_cast<size_t>(k / 2) % set.size()]));
            if ((k + 1) % (frames / 10) == 0)
                std::printf("frame %ld: heap in use %zu bytes\n", k + 1, mallinfo2().uordblks);
        }
        return 0;
    }

    // A first read of each kind outside the count: OpenCV's lazy set-up is no cost of a read.
    reader.read(qbbench::viewOf(nominal[0]));
    reader.readAll(qbbench::viewOf(three));
    CALLGRIND_START_INSTRUMENTATION;
    for (const cv::Mat& f : nominal) counted("nominal", [&] { reader.read(qbbench::viewOf(f)); });
    for (const cv::Mat& f : empty) counted("nocode", [&] { reader.read(qbbench::viewOf(f)); });
    for (int k = 0; k < 3; ++k) {
        counted("three-read", [&] { reader.read(qbbench::viewOf(three)); });
        counted("three-readall", [&] { reader.readAll(qbbench::viewOf(three)); });
    }
#ifdef QBCODE_BENCH_ZXING
    const cv::Mat qr = qbbench::qrFrame();
    const ZXing::DecodeHints hints = ZXing::DecodeHints().setFormats(ZXing::BarcodeFormat::QRCode);
    auto zxing = [&](const cv::Mat& f) {
        const ZXing::ImageView view(f.data, f.cols, f.rows, ZXing::ImageFormat::Lum);
        if (ZXing::ReadBarcode(view, hints).isValid()) std::fputs("", stdout);
    };
    for (int k = 0; k < 3; ++k) counted("zxing-qr", [&] { zxing(qr); });
    for (const cv::Mat& f : empty) counted("zxing-nocode", [&] { zxing(f); });
#endif
    CALLGRIND_STOP_INSTRUMENTATION;
    return 0;
}
