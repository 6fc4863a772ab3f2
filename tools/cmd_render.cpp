// qbcode render: draws a code from bits or a payload, clean or camera-like, and print files.
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>

#include "commands.h"
#include "qbcode_render.h"

namespace rendercmd {

const char kUsage[] =
    "usage: qbcode render (--bits 0101... | --payload N | --payload-hex HEX) [options]\n"
    "  --rings L          rings of a payload code (default 5)\n"
    "  --spacing PX       dot spacing (default 22)     --dot PX      dot diameter (default 13)\n"
    "  --rotation DEG     rotation (default 0)         --size WxH    image size (default 640x480)\n"
    "  --camera           camera-like defaults for the options below\n"
    "  --blur S  --noise S  --lighting F  --contrast F  --jpeg Q  --tilt DEG\n"
    "  --clutter N  --texture A  --seed N\n"
    "  -o FILE            the code image (any format by extension)\n"
    "  --print-png FILE   black-on-white print image  [--dpi 600 --spacing-mm 1.0 --dot-mm 0.6]\n"
    "  --svg FILE         the same as SVG\n"
    "exit status: 0 when every file was written, 1 when one was not, 2 for bad arguments\n";

struct Options {
    std::string bitsText, payloadText, payloadHex;
    int sources = 0;
    int rings = 5;
    bool ringsGiven = false;
    qbrender::CodeStyle style;
    qbrender::CameraOptions camera;
    bool cameraMode = false;
    // Camera options given explicitly; --camera fills the others.
    bool blurSet = false, noiseSet = false, lightingSet = false, jpegSet = false, tiltSet = false,
         clutterSet = false, textureSet = false;
    std::string out, printPng, svg;
    int dpi = 600;
    double spacingMm = 1.0, dotMm = 0.6;
};

int usageError(const std::string& message) {
    std::cerr << "qbcode render: " << message << std::endl << kUsage;
    return 2;
}

bool toDouble(const std::string& s, double& v) {
    char* end = nullptr;
    errno = 0;
    v = std::strtod(s.c_str(), &end);
    return !s.empty() && end && *end == '\0' && errno == 0 && std::isfinite(v);
}

bool toInt(const std::string& s, long long lo, long long hi, int& v) {
    char* end = nullptr;
    errno = 0;
    const long long x = std::strtoll(s.c_str(), &end, 10);
    if (s.empty() || !end || *end != '\0' || errno != 0 || x < lo || x > hi) return false;
    v = static_cast<int>(x);
    return true;
}

bool toU64(const std::string& s, uint64_t& v) {
    if (s.empty() || s[0] == '-' || s[0] == '+') return false;
    const bool hex = s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
    char* end = nullptr;
    errno = 0;
    const unsigned long long x = std::strtoull(s.c_str(), &end, hex ? 16 : 10);
    if (!end || *end != '\0' || errno != 0) return false;
    v = x;
    return true;
}

bool parseSize(const std::string& s, cv::Size& size) {
    const size_t x = s.find_first_of("xX");
    int w = 0, h = 0;
    if (x == std::string::npos || !toInt(s.substr(0, x), 1, 20000, w) ||
        !toInt(s.substr(x + 1), 1, 20000, h))
        return false;
    size = cv::Size(w, h);
    return true;
}

bool parseHex(const std::string& s, std::vector<uint8_t>& bytes) {
    std::string h = s;
    if (h.size() >= 2 && h[0] == '0' && (h[1] == 'x' || h[1] == 'X')) h = h.substr(2);
    if (h.empty() || h.size() % 2) return false;
    auto nibble = [](char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    for (size_t i = 0; i < h.size(); i += 2) {
        const int hi = nibble(h[i]), lo = nibble(h[i + 1]);
        if (hi < 0 || lo < 0) return false;
        bytes.push_back(static_cast<uint8_t>(hi * 16 + lo));
    }
    return true;
}

// Fills the bits from whichever source was given; an empty string means success.
std::string buildBits(const Options& o, std::vector<int>& bits) {
    if (!o.bitsText.empty()) {
        for (char c : o.bitsText) {
            if (c != '0' && c != '1') return "--bits takes only 0 and 1";
            bits.push_back(c == '1');
        }
        const int layers = qbrender::layersForPositions(bits.size());
        if (layers < 0) return "--bits needs 1 + 3L(L+1) bits (91 for five rings)";
        if (o.ringsGiven && layers != o.rings) return "--bits does not hold --rings rings";
        return "";
    }
    const int free = qbrender::freePositions(o.rings);
    if (!o.payloadHex.empty()) {
        std::vector<uint8_t> bytes;
        if (!parseHex(o.payloadHex, bytes)) return "--payload-hex takes pairs of hex digits";
        for (size_t i = 0; i < bytes.size(); ++i) {
            for (int b = 0; b < 8; ++b)
                if ((bytes[i] >> b) & 1 && static_cast<int>(8 * i + b) >= free)
                    return "payload does not fit in " + std::to_string(free) + " free bits";
        }
        bits = qbrender::payloadBits(bytes, o.rings);
        return "";
    }
    uint64_t number = 0;
    if (!toU64(o.payloadText, number)) return "--payload takes a non-negative number";
    if (free < 64 && (number >> free) != 0)
        return "payload does not fit in " + std::to_string(free) + " free bits";
    bits = qbrender::payloadBits(number, o.rings);
    return "";
}

void applyCameraDefaults(Options& o) {
    if (!o.cameraMode) return;
    qbrender::CameraOptions& c = o.camera;
    if (!o.blurSet) c.blurSigma = 1.2;
    if (!o.noiseSet) c.noiseSigma = 5.0;
    if (!o.lightingSet) {
        c.lightingGradient = 0.3;
        c.vignette = 0.2;
    }
    if (!o.jpegSet) c.jpegQuality = 85;
    if (!o.tiltSet) c.tiltDeg = 6.0;
    if (!o.clutterSet) c.clutterBlobs = 8;
    if (!o.textureSet) c.textureAmplitude = 8.0;
}

std::string bitString(const std::vector<int>& bits) {
    std::string s;
    for (int b : bits) s += b ? '1' : '0';
    return s;
}

}  // namespace rendercmd

int cmdRender(int argc, char** argv) {
    using namespace rendercmd;
    Options o;
    for (int i = 2; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "-h" || a == "--help") {
            std::cout << kUsage;
            return 0;
        }
        if (a == "--camera") {
            o.cameraMode = true;
            continue;
        }
        if (i + 1 >= argc)
            return usageError(a.rfind("-", 0) == 0 ? a + " needs a value" : "unexpected " + a);
        const std::string v = argv[++i];
        double d = 0.0;
        bool ok = true;
        if (a == "--bits") {
            o.bitsText = v;
            ++o.sources;
        } else if (a == "--payload") {
            o.payloadText = v;
            ++o.sources;
        } else if (a == "--payload-hex") {
            o.payloadHex = v;
            ++o.sources;
        } else if (a == "--rings") {
            ok = toInt(v, 0, 40, o.rings);
            o.ringsGiven = true;
        } else if (a == "--spacing") {
            ok = toDouble(v, d) && d > 0;
            o.style.spacing = d;
        } else if (a == "--dot") {
            ok = toDouble(v, d) && d > 0;
            o.style.dotDiameter = d;
        } else if (a == "--rotation") {
            ok = toDouble(v, d);
            o.style.rotationDeg = d;
        } else if (a == "--size") {
            ok = parseSize(v, o.style.size);
        } else if (a == "--blur") {
            ok = toDouble(v, d) && d >= 0 && d <= 100;
            o.camera.blurSigma = d;
            o.blurSet = true;
        } else if (a == "--noise") {
            ok = toDouble(v, d) && d >= 0;
            o.camera.noiseSigma = d;
            o.noiseSet = true;
        } else if (a == "--lighting") {
            ok = toDouble(v, d) && d >= 0 && d <= 1;
            o.camera.lightingGradient = d;
            o.camera.vignette = d * 0.6;
            o.lightingSet = true;
        } else if (a == "--contrast") {
            ok = toDouble(v, d) && d >= 0;
            o.camera.contrast = d;
        } else if (a == "--jpeg") {
            ok = toInt(v, 0, 100, o.camera.jpegQuality);
            o.jpegSet = true;
        } else if (a == "--tilt") {
            ok = toDouble(v, d) && std::fabs(d) <= 60;
            o.camera.tiltDeg = d;
            o.tiltSet = true;
        } else if (a == "--clutter") {
            ok = toInt(v, 0, 10000, o.camera.clutterBlobs);
            o.clutterSet = true;
        } else if (a == "--texture") {
            ok = toDouble(v, d) && d >= 0;
            o.camera.textureAmplitude = d;
            o.textureSet = true;
        } else if (a == "--seed") {
            uint64_t seed = 0;
            ok = toU64(v, seed);
            o.camera.seed = seed;
        } else if (a == "-o") {
            o.out = v;
        } else if (a == "--print-png") {
            o.printPng = v;
        } else if (a == "--svg") {
            o.svg = v;
        } else if (a == "--dpi") {
            ok = toInt(v, 1, 10000, o.dpi);
        } else if (a == "--spacing-mm") {
            ok = toDouble(v, d) && d > 0;
            o.spacingMm = d;
        } else if (a == "--dot-mm") {
            ok = toDouble(v, d) && d > 0;
            o.dotMm = d;
        } else {
            return usageError("unknown option " + a);
        }
        if (!ok) return usageError("bad value for " + a + ": " + v);
    }
    if (o.sources != 1) return usageError("give exactly one of --bits, --payload, --payload-hex");
    if (o.out.empty() && o.printPng.empty() && o.svg.empty())
        return usageError("nothing to write: give -o, --print-png or --svg");

    std::vector<int> bits;
    const std::string problem = buildBits(o, bits);
    if (!problem.empty()) return usageError(problem);
    applyCameraDefaults(o);
    const bool camera = o.cameraMode || o.blurSet || o.noiseSet || o.lightingSet || o.jpegSet ||
                        o.tiltSet || o.clutterSet || o.textureSet || o.camera.contrast != 1.0;

    int status = 0;
    if (!o.out.empty()) {
        const cv::Mat img = camera ? qbrender::renderCamera(bits, o.style, o.camera)
                                   : qbrender::renderCode(bits, o.style);
        bool written = false;
        try {
            written = !img.empty() && cv::imwrite(o.out, img);
        } catch (const cv::Exception&) {
            written = false;
        }
        if (!written) {
            std::cerr << "qbcode render: cannot write " << o.out << std::endl;
            status = 1;
        }
    }
    if (!o.printPng.empty() &&
        !qbrender::writePrintPng(o.printPng, bits, o.spacingMm, o.dotMm, o.dpi)) {
        std::cerr << "qbcode render: cannot write " << o.printPng << std::endl;
        status = 1;
    }
    if (!o.svg.empty() && !qbrender::writePrintSvg(o.svg, bits, o.spacingMm, o.dotMm)) {
        std::cerr << "qbcode render: cannot write " << o.svg << std::endl;
        status = 1;
    }
    std::cout << "bits: " << bitString(bits) << std::endl;
    int dots = 0;
    for (int bit : bits) dots += bit;
    if (dots < 40)
        std::cerr << "qbcode render: note: " << dots
                  << " dots; the reader takes fewer than 40 blobs in view for no code" << std::endl;
    return status;
}
