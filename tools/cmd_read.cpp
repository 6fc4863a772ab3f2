// qbcode read: decodes image files and prints status, bits and box per image.
#include <sys/stat.h>
#include <unistd.h>

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

#include "commands.h"
#include "qbcode_reader.hpp"

namespace readcmd {

const char kUsage[] =
    "usage: qbcode read IMAGE... [--params FILE] [--json] [--debug]\n"
    "  --params FILE  parameter file (default ./algorithm_parameters_v01.yml if present,\n"
    "                 else the installed default)\n"
    "  --json         one JSON array with an object per image\n"
    "  --debug        also report the stage timings\n"
    "exit status: 0 when every image was read, 1 when one was not, 2 for bad arguments\n";

struct Result {
    std::string image;
    bool loaded = false;
    qbcode::Result read;
    double ms = 0.0;  // wall time of the recognition call
};

// The free positions of a decoded code as hex bytes, first byte first.
std::string payloadHex(const std::vector<int>& bits) {
    std::ostringstream o;
    for (uint8_t b : qbcode::payloadBytes(bits))
        o << std::hex << std::setw(2) << std::setfill('0') << static_cast<int>(b);
    return o.str();
}

// A regular file we may read; opening a FIFO to find out would block.
bool readable(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(path.c_str(), R_OK) == 0;
}

std::string defaultParams() {
    const std::string local = "./algorithm_parameters_v01.yml";
    return readable(local) ? local : std::string(QBCODE_DEFAULT_PARAMS);
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

void printText(const Result& r, bool timed) {
    if (!r.loaded) {
        std::cout << r.image << ": cannot read image" << std::endl;
        return;
    }
    const qbcode::Result& q = r.read;
    std::cout << r.image << ": " << q.status << ' ' << q.statusName() << std::endl;
    if (q.valid()) {
        std::cout << "  bits: " << bitString(q.bits) << std::endl;
        std::cout << "  payload: " << payloadHex(q.bits) << std::endl;
        std::cout << "  box: " << q.box[0] << ' ' << q.box[1] << ' ' << q.box[2] << ' ' << q.box[3]
                  << std::endl;
    }
    std::cout << "  time: " << r.ms << " ms" << std::endl;
    if (timed) {
        const qbcode::Timings& t = q.timings;
        std::cout << "  timings ms: preprocess " << t.preprocess << ", roi " << t.region
                  << ", angle " << t.angle << ", spacing " << t.spacing << ", centre " << t.centre
                  << ", decode " << t.decode << std::endl;
    }
}

void printJson(const Result& r, bool timed, bool last) {
    std::cout << "  {\"image\": " << jsonString(r.image);
    if (!r.loaded) {
        std::cout << ", \"error\": \"cannot read image\"}" << (last ? "" : ",") << std::endl;
        return;
    }
    const qbcode::Result& q = r.read;
    std::cout << ", \"status\": " << q.status << ", \"name\": " << jsonString(q.statusName());
    if (q.valid()) {
        std::cout << ", \"bits\": \"" << bitString(q.bits) << "\", \"payload\": \""
                  << payloadHex(q.bits) << "\", \"box\": [" << q.box[0] << ", " << q.box[1] << ", "
                  << q.box[2] << ", " << q.box[3] << "]";
    }
    std::cout << ", \"ms\": " << r.ms;
    if (timed) {
        const qbcode::Timings& t = q.timings;
        std::cout << ", \"timings_ms\": {\"preprocess\": " << t.preprocess
                  << ", \"roi\": " << t.region << ", \"angle\": " << t.angle
                  << ", \"spacing\": " << t.spacing << ", \"centre\": " << t.centre
                  << ", \"decode\": " << t.decode << "}";
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
    bool json = false, debug = false;
    for (int i = 2; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--params") {
            if (i + 1 >= argc) return usageError("--params needs a file");
            params = argv[++i];
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
        params = defaultParams();
    } else if (!readable(params)) {
        std::cerr << "qbcode read: cannot read parameter file " << params << std::endl;
        return 2;
    }

    const qbcode::ReaderOptions options = qbcode::ReaderOptions::fromFile(params);
    if (options.layers() > 1000) {
        std::cerr << "qbcode read: layer " << options.layers() << " in " << params
                  << " is out of range" << std::endl;
        return 2;
    }

    // Unreadable files are reported per image below; OpenCV's own warning would repeat it.
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_ERROR);
    bool allRead = true;
    if (json) std::cout << "[" << std::endl;
    for (size_t k = 0; k < images.size(); ++k) {
        Result r;
        r.image = images[k];
        cv::Mat img;
        try {
            img = cv::imread(r.image, cv::IMREAD_GRAYSCALE);
        } catch (const cv::Exception&) {
            img.release();
        }
        r.loaded = !img.empty();
        if (r.loaded) {
            const auto t0 = std::chrono::steady_clock::now();
            r.read =
                qbcode::read(qbcode::ImageView(img.data, img.rows, img.cols, img.step), options);
            r.ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0)
                       .count();
        }
        allRead = allRead && r.loaded && r.read.valid();
        if (json)
            printJson(r, debug, k + 1 == images.size());
        else
            printText(r, debug);
    }
    if (json) std::cout << "]" << std::endl;
    return allRead ? 0 : 1;
}
