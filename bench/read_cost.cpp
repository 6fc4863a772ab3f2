// Instructions per read, a cost figure that does not depend on the machine's load: run under
// valgrind's callgrind (scripts/read_cost.sh), every read is counted on its own (a dump per
// read, named after its frame class). Without valgrind it reads the same frames once each.
// "--stream N" instead reads the no-code and nominal frames in turn N times through one reader
// and prints the heap in use every N/10 frames: it must not grow. "--write-frames DIR" saves
// those frames; "--stream N DIR" reads them from there, so that under massif the heap's peak
// is a read's and not the drawing's.
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

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

// The no-code and nominal frames read in turn, `frames` reads in all; the heap in use every
// tenth of the way.
void stream(qbcode::Reader& reader, const std::vector<cv::Mat>& empty,
            const std::vector<cv::Mat>& nominal, long frames) {
    for (long k = 0; k < frames; ++k) {
        const std::vector<cv::Mat>& set = k % 2 ? nominal : empty;
        reader.read(qbbench::viewOf(set[static_cast<size_t>(k / 2) % set.size()]));
        if ((k + 1) % (frames / 10) == 0)
            std::printf("frame %ld: heap in use %zu bytes\n", k + 1, mallinfo2().uordblks);
    }
}

std::string frameFile(const std::string& dir, const char* kind, size_t i) {
    return dir + "/" + kind + std::to_string(i) + ".png";
}

std::vector<cv::Mat> loadFrames(const std::string& dir, const char* kind) {
    std::vector<cv::Mat> out;
    for (size_t i = 0;; ++i) {
        cv::Mat f = cv::imread(frameFile(dir, kind, i), cv::IMREAD_GRAYSCALE);
        if (f.empty()) return out;
        out.push_back(f);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const qbbench::SingleThread single;
    if (argc == 4 && std::strcmp(argv[1], "--stream") == 0) {
        const std::vector<cv::Mat> empty = loadFrames(argv[3], "empty"),
                                   nominal = loadFrames(argv[3], "nominal");
        if (empty.empty() || nominal.empty()) return 1;
        qbcode::Reader reader(qbcode::ReaderOptions::fromFile(QBCODE_DEFAULT_PARAMS));
        stream(reader, empty, nominal, std::max(10L, std::atol(argv[2])));
        // No teardown: the heap's last snapshots stay those between reads.
        std::fflush(stdout);
        std::_Exit(0);
    }
    const qbbench::StreamFrames frames = qbbench::streamFrames();
    const std::vector<cv::Mat>&nominal = frames.nominal, &empty = frames.empty;
    const cv::Mat& three = frames.three;
    if (argc == 3 && std::strcmp(argv[1], "--write-frames") == 0) {
        bool ok = true;
        for (size_t i = 0; i < empty.size(); ++i)
            ok = ok && cv::imwrite(frameFile(argv[2], "empty", i), empty[i]);
        for (size_t i = 0; i < nominal.size(); ++i)
            ok = ok && cv::imwrite(frameFile(argv[2], "nominal", i), nominal[i]);
        return ok ? 0 : 1;
    }
    qbcode::Reader reader(qbcode::ReaderOptions::fromFile(QBCODE_DEFAULT_PARAMS));

    if (argc == 3 && std::strcmp(argv[1], "--stream") == 0) {
        stream(reader, empty, nominal, std::max(10L, std::atol(argv[2])));
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
