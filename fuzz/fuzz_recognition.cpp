// Fuzz target: rendered codes with damage, and raw images of any size, through every C call.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_image.h"
#include "qbcode_hexagon_recognition.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzzimage::Image img = fuzzimage::fromBytes(data, size);
    std::vector<int> bits(91);
    int box[4];
    unsigned char* pixels = img.pixels.empty() ? nullptr : img.pixels.data;
    quelbor_hexagon_recognition(pixels, img.rows, img.cols, 0, QBCODE_DEFAULT_PARAMS, bits.data(),
                                91, box, 4);
    qbcode_result full;
    qbcode_read(pixels, img.rows, img.cols, 0, QBCODE_DEFAULT_PARAMS, &full);
    qbcode_result all[3];
    qbcode_read_all(pixels, img.rows, img.cols, 0, QBCODE_DEFAULT_PARAMS, all, 3);
    return 0;
}
