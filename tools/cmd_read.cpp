// qbcode read: decodes image files and prints status, bits and box per image.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <chrono>
#include <cstdint>
#include <iomanip>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "cli_input.h"
#include "commands.h"
#include "qbcode_reader.hpp"

namespace readcmd {

const char kUsage[] =
    "usage: qbcode read IMAGE... [--params FILE] [--all [N]] [--json] [--debug] [--overlay PATH]\n"
    "  IMAGE           an image file; - reads one from standard input\n"
    "  --params FILE   parameter file (default: ./algorithm_parameters_v01.yml if present,\n"
    "                  else the installed one, else the defaults built in)\n"
    "  --all [N]       every code in the image, largest cluster first, at most N (default 16)\n"
    "  --json          one JSON array with an object per image\n"
    "  --debug         also report the stage timings\n"
    "  --overlay PATH  write the input image with the code's box, centre and corners marked\n"
    "                  (with several images, PATH gets the image's index before its extension)\n"
    "exit status: 0 when every image was read (with --all: had a code), 1 when one was not,\n"
    "2 for bad arguments\n";

struct Result {
    std::string image;
    bool loaded = false;
    std::vector<qbcode::Result> reads;  // one, or with --all every code found
    double ms = 0.0;                    // wall time of the recognition call
};

// The free positions of a decoded code as hex bytes, first byte first. The last byte of 73 free
// bits holds one bit; it is printed only when that bit is set, so that the 9 bytes given to
// render --payload-hex come back as they were written.
std::string payloadHex(const std::vector<int>& bits) {
    std::vector<uint8_t> bytes = qbcode::payloadBytes(bits);
    const size_t free =
        bits.size() - qbcode::markerOnPositions().size() - qbcode::markerOffPositions().size();
    if (free % 8 != 0 && !bytes.empty() && bytes.back() == 0) bytes.pop_back();
    std::ostringstream o;
    for (uint8_t b : bytes)
        o << std::hex << std::setw(2) << std::setfill('0') << static_cast<int>(b);
    return o.str();
}

std::string bitString(const std::vector<int>& bits) {
    std::string s;
    for (int b : bits) s += b ? '1' : '0';
    return s;
}

std::string jsonString(const std::string& s) {
    std::ostringstream o;
    o << '"';
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            o << '\\' << c;
        } else if (c < 0x20) {
            const char hex[] = "0123456789abcdef";
            o << "\\u00" << hex[c >> 4] << hex[c & 15];
        } else {
            o << c;
        }
    }
    o << '"';
    return o.str();
}

std::string pointJson(const qbcode::Point& p) {
    std::ostringstream o;
    o << "[" << p.x << ", " << p.y << "]";
    return o.str();
}

// The input in colour with the box, the centre and the corner dots of each read code.
bool writeOverlay(const std::string& path, const cv::Mat& grey,
                  const std::vector<qbcode::Result>& reads) {
    cv::Mat out;
    cv::cvtColor(grey, out, cv::COLOR_GRAY2BGR);
    for (const qbcode::Result& q : reads) {
        if (!q.valid()) continue;
        cv::rectangle(out, cv::Rect(q.box[0], q.box[1], q.box[2], q.box[3]),
                      cv::Scalar(0, 200, 255), 1);
        const int shift = 4;  // sub-pixel drawing
        auto at = [](const qbcode::Point& p) {
            return cv::Point(cvRound(p.x * 16), cvRound(p.y * 16));
        };
        const int r = std::max(3, cvRound(q.spacing / 4)) * 16;
        cv::circle(out, at(q.centre), r, cv::Scalar(0, 0, 255), 2, cv::LINE_AA, shift);
        for (size_t j = 0; j < q.corners.size(); ++j) {
            cv::circle(out, at(q.corners[j]), r, cv::Scalar(0, 255, 0), 2, cv::LINE_AA, shift);
            cv::line(out, at(q.corners[j]), at(q.corners[(j + 1) % q.corners.size()]),
                     cv::Scalar(0, 160, 0), 1, cv::LINE_AA, shift);
        }
    }
    try {
        return cv::imwrite(path, out);
    } catch (const cv::Exception&) {
        return false;
    }
}

std::string indexedPath(const std::string& path, size_t index, size_t count) {
    if (count <= 1) return path;
    const size_t dot = path.rfind('.');
    const size_t slash = path.rfind('/');
    const size_t at =
        dot == std::string::npos || (slash != std::string::npos && dot < slash) ? path.size() : dot;
    return path.substr(0, at) + "_" + std::to_string(index) + path.substr(at);
}

// One code's lines; the call's time, when given, before the stage timings.
void printCode(const std::string& label, const qbcode::Result& q, bool timed, const double* ms) {
    std::cout << label << ": " << q.status << ' ' << q.statusName() << std::endl;
    if (q.valid()) {
        std::cout << "  bits: " << bitString(q.bits) << std::endl;
        std::cout << "  payload: " << payloadHex(q.bits) << std::endl;
        std::cout << "  box: " << q.box[0] << ' ' << q.box[1] << ' ' << q.box[2] << ' ' << q.box[3]
                  << std::endl;
        std::cout << "  centre: " << q.centre.x << ' ' << q.centre.y << "  angle: " << q.angle
                  << "  spacing: " << q.spacing << std::endl;
        std::cout << "  margin: " << q.margin << std::endl;
    }
    if (ms != nullptr) std::cout << "  time: " << *ms << " ms" << std::endl;
    if (timed) {
        const qbcode::Timings& t = q.timings;
        std::cout << "  timings ms: preprocess " << t.preprocess << ", roi " << t.region
                  << ", angle " << t.angle << ", spacing " << t.spacing << ", centre " << t.centre
                  << ", decode " << t.decode << std::endl;
    }
}

void printText(const Result& r, bool all, bool timed) {
    if (!r.loaded) {
        std::cout << r.image << ": cannot read image" << std::endl;
        return;
    }
    if (!all) {
        printCode(r.image, r.reads.front(), timed, &r.ms);
        return;
    }
    std::cout << r.image << ": " << r.reads.size() << " code(s) in " << r.ms << " ms" << std::endl;
    for (size_t k = 0; k < r.reads.size(); ++k)
        printCode(r.image + " [" + std::to_string(k) + "]", r.reads[k], timed, nullptr);
}

// The fields of one code, after the opening brace's first field; the call's time, when given,
// before the stage timings.
void printCodeJson(const qbcode::Result& q, bool timed, const double* ms) {
    std::cout << ", \"status\": " << q.status << ", \"name\": " << jsonString(q.statusName());
    if (q.valid()) {
        std::cout << ", \"bits\": \"" << bitString(q.bits) << "\", \"payload\": \""
                  << payloadHex(q.bits) << "\", \"box\": [" << q.box[0] << ", " << q.box[1] << ", "
                  << q.box[2] << ", " << q.box[3] << "]";
        std::cout << ", \"orientation\": " << q.orientation << ", \"angle\": " << q.angle
                  << ", \"spacing\": " << q.spacing << ", \"centre\": " << pointJson(q.centre)
                  << ", \"corners\": [";
        for (size_t j = 0; j < q.corners.size(); ++j)
            std::cout << (j ? ", " : "") << pointJson(q.corners[j]);
        std::cout << "], \"margin\": " << q.margin;
    }
    const qbcode::Checks& c = q.checks;
    std::cout << ", \"checks\": {\"verified\": " << (c.verified ? "true" : "false")
              << ", \"blank_fill\": " << c.blankFill << ", \"outside\": " << c.outside
              << ", \"markers_matched\": " << c.markersMatched
              << ", \"dots_matched\": " << c.dotsMatched << ", \"dots_missing\": " << c.dotsMissing
              << ", \"dots_unexplained\": " << c.dotsUnexplained << ", \"residual\": " << c.residual
              << ", \"correlation\": " << q.evidence.correlation
              << ", \"marker_ratio\": " << q.evidence.markerRatio << "}";
    std::cout << ", \"how\": {\"tries\": " << q.evidence.tries
              << ", \"candidates\": " << q.evidence.candidates
              << ", \"decisions\": " << q.evidence.decisions << ", \"ratio\": " << q.evidence.ratio
              << ", \"dark_dots\": " << (q.evidence.darkDots ? "true" : "false")
              << ", \"refined\": " << (q.evidence.refined ? "true" : "false") << "}";
    if (ms != nullptr) std::cout << ", \"ms\": " << *ms;
    if (timed) {
        const qbcode::Timings& t = q.timings;
        std::cout << ", \"timings_ms\": {\"preprocess\": " << t.preprocess
                  << ", \"roi\": " << t.region << ", \"angle\": " << t.angle
                  << ", \"spacing\": " << t.spacing << ", \"centre\": " << t.centre
                  << ", \"decode\": " << t.decode << "}";
    }
}

void printJson(const Result& r, bool all, bool timed, bool last) {
    std::cout << "  {\"image\": " << jsonString(r.image);
    if (!r.loaded) {
        std::cout << ", \"error\": \"cannot read image\"}" << (last ? "" : ",") << std::endl;
        return;
    }
    if (all) {
        std::cout << ", \"codes\": [";
        for (size_t k = 0; k < r.reads.size(); ++k) {
            std::cout << (k ? ", {" : "{") << "\"index\": " << k;
            printCodeJson(r.reads[k], timed, nullptr);
            std::cout << "}";
        }
        std::cout << "], \"ms\": " << r.ms;
    } else {
        printCodeJson(r.reads.front(), timed, &r.ms);
    }
    std::cout << "}" << (last ? "" : ",") << std::endl;
}

int usageError(const std::string& message) {
    if (!message.empty()) std::cerr << "qbcode read: " << message << std::endl;
    std::cerr << kUsage;
    return 2;
}

}  // namespace readcmd

int cmdRead(int argc, char** argv) {
    using namespace readcmd;
    std::vector<std::string> images;
    std::string params;
    bool json = false, debug = false, all = false;
    int most = 16;
    std::string overlay;
    for (int i = 2; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--params") {
            if (i + 1 >= argc) return usageError("--params needs a file");
            params = argv[++i];
        } else if (a == "--overlay") {
            if (i + 1 >= argc) return usageError("--overlay needs a path");
            overlay = argv[++i];
        } else if (a == "--all") {
            all = true;
            if (i + 1 < argc && std::isdigit(static_cast<unsigned char>(argv[i + 1][0]))) {
                most = std::atoi(argv[++i]);
                if (most < 1 || most > 1000) return usageError("--all takes 1 to 1000 codes");
            }
        } else if (a == "--json") {
            json = true;
        } else if (a == "--debug") {
            debug = true;
        } else if (a == "-h" || a == "--help") {
            std::cout << kUsage;
            return 0;
        } else if (a.size() > 1 && a[0] == '-') {
            return usageError("unknown option " + a);
        } else {
            images.push_back(a);
        }
    }
    if (images.empty()) return usageError("no image given");
    if (params.empty()) {
        params = qbcode::defaultParamsPath();
        if (params.empty()) params = "the built-in defaults";
    } else if (!cli::readableFile(params)) {
        std::cerr << "qbcode read: cannot read parameter file " << params << std::endl;
        return 2;
    }

    const qbcode::ReaderOptions options = cli::readableFile(params)
                                              ? qbcode::ReaderOptions::fromFile(params)
                                              : qbcode::ReaderOptions();
    if (options.layers() > 1000) {
        std::cerr << "qbcode read: layer " << options.layers() << " in " << params
                  << " is out of range" << std::endl;
        return 2;
    }

    // Unreadable files are reported per image below; OpenCV's own warning would repeat it.
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_ERROR);
    bool allRead = true;
    qbcode::Reader reader(options);
    if (json) std::cout << "[" << std::endl;
    for (size_t k = 0; k < images.size(); ++k) {
        Result r;
        r.image = images[k];
        const cv::Mat img = cli::loadGrey(r.image);
        r.loaded = !img.empty();
        if (r.loaded) {
            const auto t0 = std::chrono::steady_clock::now();
            const qbcode::ImageView view(img.data, img.rows, img.cols, img.step);
            if (all)
                r.reads = reader.readAll(view, most);
            else
                r.reads.push_back(reader.read(view));
            r.ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0)
                       .count();
        }
        if (r.loaded && !overlay.empty()) {
            const std::string path = indexedPath(overlay, k, images.size());
            if (!writeOverlay(path, img, r.reads))
                std::cerr << "qbcode read: cannot write " << path << std::endl;
        }
        allRead = allRead && r.loaded && !r.reads.empty() && r.reads.front().valid();
        if (json)
            printJson(r, all, debug, k + 1 == images.size());
        else
            printText(r, all, debug);
    }
    if (json) std::cout << "]" << std::endl;
    return allRead ? 0 : 1;
}
