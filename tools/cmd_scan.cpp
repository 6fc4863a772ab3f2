// qbcode scan: reads a video file or a camera frame by frame and reports each code once.
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>

#include "cli_input.h"
#include "commands.h"
#include "frame_source.h"
#include "scan.h"

namespace {

const char kScanUsage[] =
    "usage: qbcode scan SOURCE [--params FILE] [--json] [--every-frame] [--forget N]\n"
    "                          [--frames N] [--overlay OUT.avi] [--show]\n"
    "  SOURCE          a video file, a camera device (/dev/video0) or a camera index (0)\n"
    "  --params FILE   parameter file (default as for qbcode read)\n"
    "  --json          one JSON object per line: a code as it comes into view, then a summary\n"
    "  --every-frame   report a code in every frame it is read in\n"
    "  --forget N      a code unread for more than N frames is reported again when it comes\n"
    "                  back (default 15)\n"
    "  --frames N      stop after N frames (a camera runs until interrupted or q is pressed)\n"
    "  --overlay PATH  write the frames with the codes drawn in as a Motion JPEG video\n"
    "  --show          show the frames with the codes drawn in, when a display is reachable\n"
    "exit status: 0 when a code was read, 1 when none was, 2 for bad arguments, 3 when the\n"
    "source cannot be opened, 4 when the stream broke off (truncated, a frame of another size)\n";

std::atomic<bool> interrupted{false};

void onInterrupt(int) {
    interrupted = true;
}

int scanUsage(const std::string& message) {
    std::cerr << "qbcode scan: " << message << "\n" << kScanUsage;
    return cli::kScanUsage;
}

bool count(const char* text, long& value) {
    char* end = nullptr;
    value = std::strtol(text, &end, 10);
    return end != text && *end == '\0' && value >= 0;
}

}  // namespace

int cmdScan(int argc, char** argv) {
    std::string source, params;
    cli::ScanOptions options;
    for (int i = 2; i < argc; ++i) {
        const std::string a = argv[i];
        long n = 0;
        if (a == "-h" || a == "--help") {
            std::cout << kScanUsage;
            return 0;
        } else if (a == "--json") {
            options.json = true;
        } else if (a == "--every-frame") {
            options.everyFrame = true;
        } else if (a == "--show") {
            options.show = true;
        } else if (a == "--params" || a == "--overlay") {
            if (i + 1 >= argc) return scanUsage(a + " needs a path");
            (a == "--params" ? params : options.overlay) = argv[++i];
        } else if (a == "--forget" || a == "--frames") {
            if (i + 1 >= argc || !count(argv[++i], n) || n > 1000000000)
                return scanUsage(a + " needs a number of frames");
            if (a == "--forget")
                options.forget = static_cast<int>(n);
            else
                options.maxFrames = n;
        } else if (a.size() > 1 && a[0] == '-') {
            return scanUsage("unknown option " + a);
        } else if (!source.empty()) {
            return scanUsage("one source at a time");
        } else {
            source = a;
        }
    }
    if (source.empty()) return scanUsage("no source given");
    qbcode::ReaderOptions readerOptions;
    if (!cli::readerOptions("scan", params, readerOptions)) return cli::kScanUsage;
    std::string error;
    std::unique_ptr<cli::FrameSource> frames = cli::openFrames(source, error);
    if (!frames) {
        std::cerr << "qbcode scan: " << error << std::endl;
        return cli::kScanNoSource;
    }
    qbcode::Reader reader(readerOptions);
    if (reader.status() != 0) {
        std::cerr << "qbcode scan: the parameters fail every read with " << reader.status() << " "
                  << qbcode_status_name(reader.status()) << std::endl;
        return cli::kScanUsage;
    }
    // Ctrl-C ends a camera stream with its summary.
    interrupted = false;
    options.stop = &interrupted;
    void (*previous)(int) = std::signal(SIGINT, onInterrupt);
    const cli::ScanSummary summary = cli::scan(*frames, reader, options, std::cout, std::cerr);
    std::signal(SIGINT, previous);
    return cli::scanStatus(summary);
}
