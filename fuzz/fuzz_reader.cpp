// Fuzz target: a stream of frames on one reader handle. Each frame takes a two-byte header
// (the row padding of its buffer, and which read: one code, or every code up to a cap of 0-3)
// and a slice of the input that fuzz_image.h turns into a code or raw pixels, so sizes, strides
// and contents change from frame to frame on the same reader.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "fuzz_image.h"
#include "fuzz_report.h"
#include "qbcode_hexagon_recognition.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    qbcode_reader* reader = qbcode_reader_new(QBCODE_DEFAULT_PARAMS);
    size_t at = 0;
    for (int frame = 0; frame < 3 && at + 11 <= size; ++frame) {
        const size_t slice = std::min(size - at - 2, 9 + static_cast<size_t>(data[at]) * 4);
        const int pad = data[at + 1] % 16, call = (data[at + 1] >> 4) % 5;
        const fuzzimage::Image img = fuzzimage::fromBytes(data + at + 2, slice);
        at += 2 + slice;
        // The frame copied into rows `pad` bytes longer than it is wide; a stride shorter than a
        // row (pad 15 on a frame given no buffer) must be refused, not read past.
        cv::Mat buffer;
        const unsigned char* pixels = nullptr;
        int stride = img.cols + pad;
        if (!img.pixels.empty()) {
            buffer.create(img.pixels.rows, img.pixels.cols + pad, CV_8UC1);
            buffer.setTo(0);
            img.pixels.copyTo(buffer(cv::Rect(0, 0, img.pixels.cols, img.pixels.rows)));
            pixels = buffer.data;
            stride = static_cast<int>(buffer.step);
        } else if (pad == 15) {
            stride = img.cols - 1;
        }
        qbcode_result all[3];
        if (call == 0)
            fuzzreport::read(qbcode_reader_read(reader, pixels, img.rows, img.cols, stride, all));
        else
            fuzzreport::read(
                qbcode_reader_read_all(reader, pixels, img.rows, img.cols, stride, all, call - 1),
                true);
    }
    qbcode_reader_free(reader);
    return 0;
}
