// Fuzz target: the print grade. grade() reads and scores the image fuzz_image.h describes; then
// gradeGrid() scores that image against a grid the input bends: positions moved, dropped or
// pushed outside the frame, a spacing of any size, a binary image that disagrees with the grey.
#include <cstddef>
#include <cstdint>

#include <opencv2/imgproc.hpp>

#include "fuzz_image.h"
#include "fuzz_report.h"
#include "qbcode_print_quality.hpp"

namespace {

cv::Mat bentGrid(const fuzzimage::Image& img, const uint8_t* data, size_t size) {
    const double spacing = 8.0 + data[3] % 10;
    const auto offsets = qbrender::gridOffsets(5, spacing, data[5] * (360.0 / 256.0));
    // Fewer rows than a code has, or more, now and then.
    const int rows = data[1] % 7 == 0 ? data[2] % 100 : static_cast<int>(offsets.size());
    cv::Mat points(rows, 2, CV_64F);
    for (int i = 0; i < rows; ++i) {
        const cv::Point2d o = offsets[static_cast<size_t>(i) % offsets.size()];
        const uint8_t jitter = data[9 + static_cast<size_t>(i) % (size - 9)];
        points.at<cv::Point2d>(i) = cv::Point2d(
            img.cols / 2.0 + static_cast<int8_t>(data[6]) / 2 + o.y + (jitter & 15) - 8,
            img.rows / 2.0 + static_cast<int8_t>(data[7]) / 2 + o.x + (jitter >> 4) - 8);
    }
    return points;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzzimage::Image img = fuzzimage::fromBytes(data, size);
    qbcode::GradeResult out;
    fuzzreport::read(qbcode::grade(img.pixels.empty() ? nullptr : img.pixels.data, img.rows,
                                   img.cols, QBCODE_DEFAULT_PARAMS, out));
    if (img.pixels.empty() || size < 10) return 0;
    cv::Mat binary;
    cv::threshold(img.pixels, binary, data[8], 255,
                  (data[0] & 4) ? cv::THRESH_BINARY_INV : cv::THRESH_BINARY);
    const double gap = (data[4] & 0x80) ? (data[4] & 0x7f) - 8.0 : 8.0 + data[3] % 10;
    qbcode::gradeGrid(binary, img.pixels, bentGrid(img, data, size), gap, QBCODE_DEFAULT_PARAMS,
                      out);
    return 0;
}
