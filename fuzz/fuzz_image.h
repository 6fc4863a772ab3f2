// The image a recognition or grade fuzz input describes: a rendered code with painted patches
// (even first byte), or raw pixels of any size (odd first byte).
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <opencv2/imgproc.hpp>

#include "qbcode_render.h"

namespace fuzzimage {

struct Image {
    cv::Mat pixels;  // empty: a null buffer
    int rows = 0;
    int cols = 0;
};

inline Image fromBytes(const uint8_t* data, size_t size) {
    Image out;
    if (size < 9) return out;
    if ((data[0] & 1) == 0) {
        // A code the reader can read: 45 to 85 % of its positions printed, either polarity,
        // small enough a frame for fifty runs a second.
        qbrender::CodeStyle style;
        style.size = cv::Size(256, 192);
        style.spacing = 8.0 + data[3] % 10;
        style.dotDiameter = style.spacing * (0.3 + (data[4] % 8) * 0.06);
        style.rotationDeg = data[5] * (360.0 / 256.0);
        style.centre = cv::Point2d(128 + static_cast<int8_t>(data[6]) / 4,
                                   96 + static_cast<int8_t>(data[7]) / 4);
        qbrender::CameraOptions cam;
        cam.blurSigma = (data[8] % 4) * 0.5;
        cam.noiseSigma = (data[8] >> 2) % 16;
        cam.tiltDeg = (data[8] & 0x80) ? 25.0 : 0.0;
        cam.tiltAxisDeg = data[5];
        const uint64_t seed = (static_cast<uint64_t>(data[1]) << 8) | data[2];
        const double density = 0.45 + 0.4 * (data[4] >> 3) / 31.0;
        out.pixels = qbrender::renderCamera(qbrender::randomBits(seed, density), style, cam);
        if (data[8] & 0x40) out.pixels = 255 - out.pixels;
        // The rest paints rectangles over the code: x, y, size, grey.
        for (size_t i = 9; i + 3 < size; i += 4) {
            const cv::Rect r(data[i] * out.pixels.cols / 256, data[i + 1] * out.pixels.rows / 256,
                             1 + data[i + 2] % 32, 1 + data[i + 2] / 8);
            out.pixels(r & cv::Rect(0, 0, out.pixels.cols, out.pixels.rows)).setTo(data[i + 3]);
        }
        out.rows = out.pixels.rows;
        out.cols = out.pixels.cols;
        return out;
    }
    // Sizes up to 255 x 255 (larger frames only slow the runs); the pixels repeat the rest of
    // the input.
    out.rows = data[2];
    out.cols = data[4];
    out.pixels.create(std::max(out.rows, 1), std::max(out.cols, 1), CV_8UC1);
    const size_t payload = size - 5;
    size_t i = 0;
    for (auto it = out.pixels.begin<uchar>(); it != out.pixels.end<uchar>(); ++it, ++i)
        *it = payload ? data[5 + i % payload] : 0;
    if (data[0] & 2) out.pixels.release();  // told a size, given no buffer
    return out;
}

}  // namespace fuzzimage
