// Print grade of a code: blob analysis on the decoded grid, attribute table, printing score.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "BlobAnalysis.h"
#include "qbcode_print_quality.hpp"

namespace qbcode {

// Status codes of the grade itself.
const int kGradeBadInput = -802;
const int kGradeInternal = -803;
const int kGradeTooFewDots = -804;

// One row per grid position for PrintingScoreCal::run: area, intensity, roundness, distance,
// box length (longer side), box width, unused, label; area 0 and label -1 where no blob was found.
cv::Mat attributeTable(const std::vector<DotAttribute>& records);

}  // namespace qbcode
