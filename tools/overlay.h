// Pictures of a read and of a grade, drawn on a colour copy of the frame.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_print_quality.hpp"
#include "qbcode_reader.hpp"

namespace cli {

// Where each position of a read code lies in the frame, in bit order: the upright grid turned
// by the read's angle and orientation, fitted to the six corner dots (so a tilt bends it too).
std::vector<cv::Point2d> gridPositions(const qbcode::Result& q);

// How sure the read is of each position, 0..1: its fill's distance from the decision threshold
// relative to the threshold, capped at 1. Without fills, 1 for every position.
std::vector<double> positionConfidence(const qbcode::Result& q);

// Each read code: the box, the fitted grid with 1-positions filled and 0-positions as rings, each
// coloured from red (unsure) to green or blue (sure), the centre, an arrow to the first
// position of the first ring (the code's orientation), and a label with status and payload.
// Without a code, the status of the first failure in the top left corner.
void drawReads(cv::Mat& bgr, const std::vector<qbcode::Result>& reads);

// Each graded dot, at its place in the read of the same frame: found dots ringed from red to
// green by roundness and centring, merged dots in magenta, missing dots crossed in red; the
// total and rating in the top left corner. The grade measures in its own upright crop, so dots
// are drawn only when the read found the same bits.
void drawGrade(cv::Mat& bgr, const qbcode::GradeResult& g, const qbcode::Result& read);

// The grey frame in colour, for drawing on.
cv::Mat colourCopy(const cv::Mat& grey);

// Writes the picture; false when the file cannot be written.
bool writePicture(const std::string& path, const cv::Mat& bgr);

}  // namespace cli
