// What the commands share: images from files or standard input.
#pragma once

#include <string>

#include <opencv2/core.hpp>

namespace cli {

// The image at path as 8-bit grey; "-" reads an encoded image from standard input. Empty when
// it cannot be read or decoded.
cv::Mat loadGrey(const std::string& path);

// A regular file we may read; opening a FIFO to find out would block.
bool readableFile(const std::string& path);

}  // namespace cli
