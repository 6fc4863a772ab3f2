// The read that the C entry point, the C++ API and the grade share.
#pragma once

#include <opencv2/core.hpp>

#include "qbcode_reader.hpp"

class AlgPipeline;

namespace qbcode {
namespace detail {

// The caller's pixels without a copy; empty for a null buffer, a non-positive size or a stride
// shorter than a row, which the pre-processing refuses as an empty image.
cv::Mat wrap(const ImageView& image);

// One run of the driver on the image; out receives the full result, the box included.
// Exceptions of the stages pass through.
void readWith(AlgPipeline& pipeline, const cv::Mat& image, const ReaderOptions& options,
              Result& out, bool keepUpright = false);

}  // namespace detail
}  // namespace qbcode
