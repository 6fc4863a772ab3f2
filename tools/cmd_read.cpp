// qbcode read: decodes image files and prints status, bits and box per image.
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <opencv2/core/utils/logger.hpp>

#include "cli_input.h"
#include "commands.h"
#include "ordered_pool.h"
#include "overlay.h"
#include "progress.h"
#include "qbcode_reader.hpp"
#include "result_format.h"

namespace readcmd {

using cli::bitString;
using cli::jsonString;
using cli::payloadHex;
using cli::pointJson;

const char kUsage[] =
    "usage: qbcode read IMAGE... [--params FILE] [--all [N]] [--json | --csv] [--debug]\n"
    "                  [--overlay PATH] [--jobs N]\n"
    "  IMAGE           an image file, a folder (its images), or a quoted pattern such as\n"
    "                  'shots/*.png'; - reads one from standard input. Videos: qbcode scan\n"
    "  --params FILE   parameter file (default: ./algorithm_parameters_v01.yml if present,\n"
    "                  else the installed one, else the defaults built in)\n"
    "  --all [N]       every code in the image, largest cluster first, at most N (default 16)\n"
    "  --json          one JSON array with an object per image, one image a line\n"
    "  --csv           one CSV row per image (with --all per code), with a header row\n"
    "  --debug         also report the stage timings\n"
    "  --overlay PATH  write the image with each code's fitted grid (positions coloured by how\n"
    "                  sure the read is of them), centre, orientation and status drawn in\n"
    "                  (with several images, PATH gets the image's index before its extension)\n"
    "  --jobs N        images read at once (default: the number of cores); results keep the\n"
    "                  input order. Several images: a progress bar on standard error when it is\n"
    "                  a terminal, and a summary there at the end\n"
    "exit status: 0 when every image was read (with --all: had a code), 1 when one was not,\n"
    "2 for bad arguments\n";

struct Result {
    std::string image;
    bool loaded = false;
    std::vector<qbcode::Result> reads;  // one, or with --all every code found
    double ms = 0.0;                    // wall time of the recognition call
};

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
        std::cout << "  margin: " << q.margin << "  decision margin: " << q.decisionMargin
                  << std::endl;
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
        std::cout << "], \"margin\": " << q.margin << ", \"decision_margin\": " << q.decisionMargin
                  << ", \"confidence\": [";
        for (size_t i = 0; i < q.confidence.size(); ++i)
            std::cout << (i ? ", " : "") << q.confidence[i];
        std::cout << "]";
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
              << ", \"refined\": " << (q.evidence.refined ? "true" : "false")
              << ", \"fast_path\": " << (q.evidence.fastPath ? "true" : "false") << "}";
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

const char kCsvHeader[] =
    "image,index,status,name,payload,bits,x,y,width,height,centre_x,centre_y,angle,orientation,"
    "spacing,margin,ms";

void printCsvRow(const std::string& image, int index, const qbcode::Result* q, const char* name,
                 double ms) {
    std::cout << cli::csvCell(image) << ',';
    if (index >= 0) std::cout << index;
    std::cout << ',';
    if (q == nullptr) {
        std::cout << ',' << name << ",,,,,,,,,,,," << ms << std::endl;
        return;
    }
    std::cout << q->status << ',' << q->statusName() << ',';
    if (q->valid())
        std::cout << payloadHex(q->bits) << ',' << bitString(q->bits) << ',' << q->box[0] << ','
                  << q->box[1] << ',' << q->box[2] << ',' << q->box[3] << ',' << q->centre.x << ','
                  << q->centre.y << ',' << q->angle << ',' << q->orientation << ',' << q->spacing
                  << ',' << q->margin;
    else
        std::cout << ",,,,,,,,,,,";
    std::cout << ',' << ms << std::endl;
}

void printCsv(const Result& r, bool all) {
    if (!r.loaded) return printCsvRow(r.image, -1, nullptr, "cannot-read-image", 0.0);
    if (all && r.reads.empty()) return printCsvRow(r.image, -1, nullptr, "no-code", r.ms);
    for (size_t k = 0; k < r.reads.size(); ++k)
        printCsvRow(r.image, static_cast<int>(k), &r.reads[k], nullptr, r.ms);
}

// What a batch came to, on standard error: read, refused by status, failed to open.
struct Tally {
    size_t read = 0, unopened = 0;
    std::map<int, size_t> refused;  // status of the first read -> images

    void add(const Result& r) {
        if (!r.loaded)
            ++unopened;
        else if (!r.reads.empty() && r.reads.front().valid())
            ++read;
        else
            ++refused[r.reads.empty() ? QBCODE_NO_RESULT : r.reads.front().status];
    }
    void print(size_t images, double seconds, int jobs) const {
        size_t refusals = 0;
        std::string why;
        for (const auto& [status, n] : refused) {
            refusals += n;
            why += (why.empty() ? " (" : ", ") + std::to_string(n) + " " +
                   qbcode_status_name(status) + " " + std::to_string(status);
        }
        if (!why.empty()) why += ")";
        std::cerr << "qbcode read: " << images << " images: " << read << " read, " << refusals
                  << " refused" << why << ", " << unopened << " failed to open; "
                  << static_cast<long>(seconds > 0 ? images / seconds + 0.5 : 0.0)
                  << " images/s on " << jobs << " job(s)" << std::endl;
    }
};

int usageError(const std::string& message) {
    if (!message.empty()) std::cerr << "qbcode read: " << message << std::endl;
    std::cerr << kUsage;
    return 2;
}

}  // namespace readcmd

int cmdRead(int argc, char** argv) {
    using namespace readcmd;
    std::vector<std::string> args;
    std::string params;
    bool json = false, csv = false, debug = false, all = false;
    int most = 16;
    int jobs = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
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
        } else if (a == "--jobs") {
            jobs = i + 1 < argc ? std::atoi(argv[++i]) : 0;
            if (jobs < 1 || jobs > 256) return usageError("--jobs takes 1 to 256");
        } else if (a == "--json") {
            json = true;
        } else if (a == "--csv") {
            csv = true;
        } else if (a == "--debug") {
            debug = true;
        } else if (a == "-h" || a == "--help") {
            std::cout << kUsage;
            return 0;
        } else if (a.size() > 1 && a[0] == '-') {
            return usageError("unknown option " + a);
        } else {
            args.push_back(a);
        }
    }
    if (args.empty()) return usageError("no image given");
    if (json && csv) return usageError("--json or --csv, not both");
    qbcode::ReaderOptions options;
    if (!cli::readerOptions("read", params, options)) return 2;
    const std::vector<std::string> images = cli::expandInputs(args);
    if (images.empty()) {
        std::cerr << "qbcode read: no images in the folders given" << std::endl;
        return 1;
    }

    // Unreadable files are reported per image below; OpenCV's own warning would repeat it.
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_ERROR);
    // Images are the unit of work: OpenCV's own threads would only compete with the workers.
    const int cvThreads = cv::getNumThreads();
    jobs = std::min<int>(jobs, static_cast<int>(images.size()));
    if (jobs > 1) cv::setNumThreads(1);
    std::vector<std::unique_ptr<qbcode::Reader>> readers;
    for (int j = 0; j < jobs; ++j) readers.push_back(std::make_unique<qbcode::Reader>(options));

    const std::function<Result(size_t, int)> work = [&](size_t k, int worker) {
        Result r;
        r.image = images[k];
        const cv::Mat img = cli::loadGrey(r.image);
        r.loaded = !img.empty();
        if (!r.loaded) return r;
        const auto t0 = std::chrono::steady_clock::now();
        const qbcode::ImageView view(img.data, img.rows, img.cols, img.step);
        qbcode::Reader& reader = *readers[static_cast<size_t>(worker)];
        if (all)
            r.reads = reader.readAll(view, most);
        else
            r.reads.push_back(reader.read(view));
        r.ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0)
                   .count();
        if (!overlay.empty()) {
            cv::Mat picture = cli::colourCopy(img);
            cli::drawReads(picture, r.reads);
            const std::string path = cli::indexedPath(overlay, k, images.size());
            if (!cli::writePicture(path, picture))
                std::cerr << "qbcode read: cannot write " << path << std::endl;
        }
        return r;
    };

    const bool batch = images.size() > 1;
    cli::Progress progress(images.size(), batch && cli::stderrIsTerminal(), std::cerr);
    Tally tally;
    const auto t0 = std::chrono::steady_clock::now();
    if (json) std::cout << "[" << std::endl;
    if (csv) std::cout << kCsvHeader << std::endl;
    const std::function<void(size_t, Result&)> emit = [&](size_t k, Result& r) {
        progress.clear();
        if (json)
            printJson(r, all, debug, k + 1 == images.size());
        else if (csv)
            printCsv(r, all);
        else
            printText(r, all, debug);
        tally.add(r);
        progress.update(k + 1);
    };
    cli::orderedPool(images.size(), jobs, work, emit);
    if (json) std::cout << "]" << std::endl;
    progress.clear();
    if (jobs > 1) cv::setNumThreads(cvThreads);
    if (batch)
        tally.print(images.size(),
                    std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(),
                    jobs);
    return tally.read == images.size() ? 0 : 1;
}
