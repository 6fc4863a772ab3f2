// Fuzz target: hostile parameter values on a readable code image.
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "qbcode_hexagon_recognition.h"
#include "qbcode_render.h"

namespace {

struct Key {
    const char* section;
    const char* key;
};

const Key kKeys[] = {
    {"AlgPipeline", "dc"},
    {"AlgPipeline", "layer"},
    {"AlgPipeline", "ctpointFlag"},
    {"AlgPipeline", "opencv10Rot"},
    {"ImageProcess", "DnRatio"},
    {"ImageProcess", "HessianScale"},
    {"ImageProcess", "LogScale"},
    {"ImageProcess", "Sensitivity"},
    {"ImageProcess", "imgPreROI"},
    {"ImageProcess", "imgSizeRestrict"},
    {"PatternFeatures", "gapDelta"},
    {"PatternFeatures", "img_padding"},
    {"DotsTracking", "boxRatio"},
    {"PatternRotation", "RotationNum"},
    {"PatternRotation", "filterWidth"},
    {"PatternRotation", "PeakThresh"},
};

const char* const kValues[] = {
    "0",     "-1",           "1",     "2",          "3",
    "5",     "0.5",          "1e-30", "1e30",       "-0.6",
    ".nan",  ".inf",         "-.inf", "2147483647", "-2147483648",
    "0.01",  "4.0",          "[]",    "[0.0]",      "[-2.0, 3.0]",
    "[8.0]", "[0.4, 100.0]", "[1e9]", "\"text\"",   "[2.0, 3.0]",
    "0.6",
};

std::string sectionText(const std::string& yaml, const std::string& section, const std::string& key,
                        const std::string& value) {
    std::string text = yaml;
    size_t at = text.find(section + ":");
    if (at == std::string::npos) return text;
    at = text.find(" " + key + ":", at);
    if (at == std::string::npos) return text;
    at = text.rfind('\n', at) + 1;
    const size_t end = text.find('\n', at);
    return text.replace(at, end - at, "   " + key + ": " + value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static std::string base;
    static std::vector<unsigned char> image;
    if (base.empty()) {
        std::ifstream in(QBCODE_DEFAULT_PARAMS);
        base.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        qbrender::CodeStyle style;
        style.rotationDeg = 17.0;
        cv::Mat img = qbrender::renderCamera(qbrender::payloadBits(0x5eedULL), style,
                                             qbrender::CameraOptions{});
        image.assign(img.data, img.data + img.total());
    }
    std::string yaml = base;
    for (size_t i = 0; i + 1 < size; i += 2) {
        const Key& k = kKeys[data[i] % (sizeof kKeys / sizeof kKeys[0])];
        const char* v = kValues[data[i + 1] % (sizeof kValues / sizeof kValues[0])];
        yaml = sectionText(yaml, k.section, k.key, v);
    }
    const std::string path = "fuzz_params_" + std::to_string(getpid()) + ".yml";
    std::ofstream(path) << yaml;
    std::vector<int> bits(91);
    int box[4];
    for (int len : {91, 1, 7, 19, 37, 61}) {
        if (quelbor_hexagon_recognition(image.data(), 480, 640, 0, path.c_str(), bits.data(), len,
                                        box, 4) != -3)
            break;
    }
    unlink(path.c_str());
    return 0;
}
