// Fuzz target: rendered codes with damage, and raw images of any size, through one of the C
// calls (the input's first byte chooses: one call a run keeps the runs fast).
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_image.h"
#include "fuzz_report.h"
#include "qbcode_hexagon_recognition.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzzimage::Image img = fuzzimage::fromBytes(data, size);
    std::vector<int> bits(91);
    int box[4];
    unsigned char* pixels = img.pixels.empty() ? nullptr : img.pixels.data;
    qbcode_result all[3];
    switch (size ? (data[0] >> 2) % 3 : 0) {
        case 0:
            fuzzreport::read(quelbor_hexagon_recognition(
                pixels, img.rows, img.cols, 0, QBCODE_DEFAULT_PARAMS, bits.data(), 91, box, 4));
            break;
        case 1:
            fuzzreport::read(
                qbcode_read(pixels, img.rows, img.cols, 0, QBCODE_DEFAULT_PARAMS, all));
            break;
        default:
            fuzzreport::read(
                qbcode_read_all(pixels, img.rows, img.cols, 0, QBCODE_DEFAULT_PARAMS, all, 3),
                true);
    }
    return 0;
}
