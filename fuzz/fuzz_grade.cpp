// Fuzz target: the print grade on rendered codes with damage and on raw images.
#include <cstddef>
#include <cstdint>

#include "fuzz_image.h"
#include "qbcode_print_quality.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzzimage::Image img = fuzzimage::fromBytes(data, size);
    qbcode::GradeResult out;
    qbcode::grade(img.pixels.empty() ? nullptr : img.pixels.data, img.rows, img.cols,
                  QBCODE_DEFAULT_PARAMS, out);
    return 0;
}
