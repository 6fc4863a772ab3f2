// The read that the C entry point, the C++ API and the grade share.
#pragma once

#include <string>

#include <opencv2/core.hpp>

#include "qbcode_reader.hpp"

struct Decision;

namespace qbcode {
namespace detail {

// The caller's pixels without a copy; empty for a null buffer, a non-positive size or a stride
// shorter than a row, which the pre-processing refuses as an empty image.
cv::Mat wrap(const ImageView& image);

// The first code of the image as the C entry point reads it, with the upright images on request;
// exceptions of the stages pass through.
Decision readFirst(const ReaderOptions& options, const cv::Mat& image, const std::string& imgName,
                   bool keepUpright);
// The host's result of a decision: the box from its region and downsampling ratio.
Result hostResult(const Decision& d);

}  // namespace detail
}  // namespace qbcode
