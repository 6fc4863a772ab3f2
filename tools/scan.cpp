#include "scan.h"

#include <chrono>
#include <cstdio>
#include <vector>

#include <opencv2/highgui.hpp>
#include <opencv2/videoio.hpp>

#include "code_cache.h"
#include "display.h"
#include "overlay.h"
#include "result_format.h"

namespace cli {
namespace {

const char kWindow[] = "qbcode scan";

std::string sizeText(cv::Size s) {
    return std::to_string(s.width) + "x" + std::to_string(s.height);
}

std::string fixed(double v, int digits) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.*f", digits, v);
    return buf;
}

void printCode(std::ostream& out, bool json, long frame, double seconds, const qbcode::Result& q) {
    if (json) {
        out << "{\"frame\": " << frame << ", \"time\": " << fixed(seconds, 3) << ", \"payload\": \""
            << payloadHex(q.bits) << "\", \"bits\": \"" << bitString(q.bits)
            << "\", \"centre\": " << pointJson(q.centre) << ", \"angle\": " << fixed(q.angle, 2)
            << ", \"orientation\": " << q.orientation << ", \"spacing\": " << fixed(q.spacing, 2)
            << ", \"box\": [" << q.box[0] << ", " << q.box[1] << ", " << q.box[2] << ", "
            << q.box[3] << "], \"margin\": " << fixed(q.margin, 3) << "}" << std::endl;
        return;
    }
    out << "frame " << frame << " at " << fixed(seconds, 3) << " s: " << payloadHex(q.bits)
        << "  centre " << fixed(q.centre.x, 1) << " " << fixed(q.centre.y, 1) << "  angle "
        << fixed(q.angle, 1) << std::endl;
}

const char* endName(FrameEnd e) {
    switch (e) {
        case FrameEnd::Truncated:
            return "truncated";
        case FrameEnd::SizeChange:
            return "size-change";
        case FrameEnd::BadFrame:
            return "bad-frame";
        default:
            return "end";
    }
}

void printSummary(std::ostream& out, bool json, const ScanSummary& s, const CostSummary& c) {
    const double fps = s.seconds > 0 ? s.frames / s.seconds : 0.0;
    if (json) {
        out << "{\"summary\": {\"frames\": " << s.frames
            << ", \"frames_with_code\": " << s.framesWithCode << ", \"reported\": " << s.reported
            << ", \"fps\": " << fixed(fps, 1) << ", \"ms_median\": " << fixed(c.median, 2)
            << ", \"ms_p95\": " << fixed(c.p95, 2) << ", \"ms_worst\": " << fixed(c.worst, 2)
            << ", \"end\": \"" << endName(s.end) << "\"}}" << std::endl;
        return;
    }
    out << "frames: " << s.frames << " read, " << s.framesWithCode << " with a code, " << s.reported
        << " code(s) reported" << std::endl;
    out << "speed: " << fixed(fps, 1) << " frames/s; read per frame ms: median "
        << fixed(c.median, 2) << ", p95 " << fixed(c.p95, 2) << ", worst " << fixed(c.worst, 2)
        << std::endl;
}

}  // namespace

ScanSummary scan(FrameSource& source, qbcode::Reader& reader, const ScanOptions& options,
                 std::ostream& out, std::ostream& err) {
    ScanSummary s;
    CodeCache cache(options.everyFrame ? 0 : options.forget);
    std::vector<double> costs;
    cv::VideoWriter writer;
    bool show = options.show && displayReachable();
    if (options.show && !show) err << "qbcode scan: no display reachable, no window shown\n";
    const auto t0 = std::chrono::steady_clock::now();
    cv::Mat grey;
    cv::Size first;
    std::string problem;
    while (options.maxFrames <= 0 || s.frames < options.maxFrames) {
        if (options.stop != nullptr && options.stop->load()) break;
        s.end = source.next(grey);
        if (s.end != FrameEnd::More) {
            problem = source.problem();
            break;
        }
        // A camera that renegotiates its format would also break the overlay video.
        if (s.frames == 0) first = grey.size();
        if (grey.size() != first) {
            s.end = FrameEnd::SizeChange;
            problem = "frame " + std::to_string(s.frames) + " is " + sizeText(grey.size()) +
                      ", the stream's first was " + sizeText(first);
            break;
        }
        const long frame = s.frames++;
        const auto r0 = std::chrono::steady_clock::now();
        const std::vector<qbcode::Result> reads = reader.readAll(
            qbcode::ImageView(grey.data, grey.rows, grey.cols, grey.step), options.maxCodes);
        costs.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - r0)
                .count());
        bool any = false;
        for (const qbcode::Result& q : reads) {
            if (!q.valid()) continue;
            any = true;
            if (cache.seen(bitString(q.bits), frame)) {
                ++s.reported;
                printCode(out, options.json, frame, source.seconds(), q);
            }
        }
        s.framesWithCode += any;
        if (options.overlay.empty() && !show) continue;
        cv::Mat picture = colourCopy(grey);
        drawReads(picture, reads);
        if (!options.overlay.empty()) {
            if (!writer.isOpened()) {
                const double fps = source.fps() > 0 ? source.fps() : 30.0;
                try {
                    writer.open(options.overlay, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), fps,
                                picture.size());
                } catch (const cv::Exception&) {
                }
                if (!writer.isOpened()) {
                    err << "qbcode scan: cannot write " << options.overlay << std::endl;
                    s.overlayFailed = true;
                    return s;
                }
            }
            writer.write(picture);
        }
        if (show) {
            cv::imshow(kWindow, picture);
            const int key = cv::waitKey(1);
            if (key == 'q' || key == 27) break;
        }
    }
    s.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (s.end != FrameEnd::More && s.end != FrameEnd::End)
        err << "qbcode scan: " << problem << std::endl;
    if (show) cv::destroyWindow(kWindow);
    printSummary(out, options.json, s, summarise(costs));
    return s;
}

int scanStatus(const ScanSummary& s) {
    if (s.overlayFailed) return kScanUsage;
    if (s.end != FrameEnd::More && s.end != FrameEnd::End) return kScanBroken;
    return s.framesWithCode > 0 ? kScanFound : kScanNothing;
}

}  // namespace cli
