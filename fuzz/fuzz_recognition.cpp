// Fuzz target: arbitrary image sizes and pixels through the whole recognition call.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "qbcode_hexagon_recognition.h"

#ifndef QBCODE_DEFAULT_PARAMS
#define QBCODE_DEFAULT_PARAMS "./algorithm_parameters_v01.yml"
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    // Sizes up to 1023 x 1023; the pixels repeat the rest of the input.
    const int rows = ((data[0] << 8) | data[1]) & 0x3ff;
    const int cols = ((data[2] << 8) | data[3]) & 0x3ff;
    std::vector<unsigned char> image(static_cast<size_t>(rows) * cols + 1);
    const size_t payload = size - 4;
    for (size_t i = 0; i + 1 < image.size(); ++i) image[i] = payload ? data[4 + i % payload] : 0;
    std::vector<int> bits(91);
    int box[4];
    quelbor_hexagon_recognition(image.data(), rows, cols, 0, QBCODE_DEFAULT_PARAMS, bits.data(), 91,
                                box, 4);
    return 0;
}
