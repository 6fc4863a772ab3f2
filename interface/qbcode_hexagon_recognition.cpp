#include "qbcode_hexagon_recognition.h"

#include <cstring>
#include <exception>
#include <iostream>
#include <string>

#include "AlgPipeline.h"
#include "SystemPara.h"

namespace {

const char kBanner[] = "Quelbor Recognition Algorithm 0.3.10";
const int kBannerLength = 35;

// Codes of the entry point itself.
const int kWrongBitsLength = -3;
const int kWrongBoxLength = -4;
const int kInternalError = -5;

std::string pathFrom(const char* param_path) {
    // A null path must surface as the standard library's own logic_error.
    if (param_path == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
    return std::string(param_path);
}

}  // namespace

extern "C" int get_dots_num(int layers) {
    if (layers < 0) return 1;
    // From 26755 rings on the count no longer fits an int; it saturates.
    if (layers > 26754) return 0x7fffffff;
    return static_cast<int>(1 + 3LL * layers * (layers + 1));
}

extern "C" void get_version(char* buffer, int length) {
    if (buffer == nullptr || length <= 0) return;
    std::memcpy(buffer, kBanner,
                static_cast<size_t>(length < kBannerLength ? length : kBannerLength));
}

extern "C" int quelbor_hexagon_recognition(unsigned char* image, int rows, int cols,
                                           int /*reserved*/, const char* param_path, int* bits,
                                           int bits_len, int* box, int box_len) {
    std::string path = pathFrom(param_path);
    if (path == "") path = "./algorithm_parameters_v01.yml";

    SystemPara sysPara(path);
    sysPara.readPara("AlgPipeline");
    const int expected = get_dots_num(sysPara.layer);
    sysPara.readPara("ImageProcess");

    if (expected != bits_len || bits == nullptr) {
        std::cout << "dot number" << expected << std::endl;
        std::cout << "bits array len should be " << expected << std::endl;
        return kWrongBitsLength;
    }
    if (box_len != 4 || box == nullptr) {
        std::cout << "bounding box's length have to be 4!" << std::endl;
        return kWrongBoxLength;
    }

    int status;
    cv::Rect rect(0, 0, 0, 0);
    try {
        AlgPipeline pipeline(path);
        status = pipeline.Pipeline(image, rows, cols, bits, expected, "result.bmp", rect);
    } catch (const std::exception& e) {
        std::cout << "recognition error: " << e.what() << std::endl;
        status = kInternalError;
    }

    AlgPipeline::toInputBox(rect, sysPara.DnRatio, box);
    return status;
}
