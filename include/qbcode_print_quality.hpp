// Print-quality grade of a hexagonal dot code: reads the code, measures every printed dot and
// scores the print against the "PrintScoreCalculate" section of the parameter file.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

namespace qbcode {

// Measurements of one grid position, in pixels of the image the dots were measured in
// (for a grade from a camera image: the downsampled, upright crop of the code).
struct DotGrade {
    int position = 0;        // index in the code's bit order
    int bit = -1;            // decoded bit, -1 when grading a grid without decoding
    double x = 0.0;          // grid position, column
    double y = 0.0;          // grid position, row
    bool found = false;      // a blob covers the position
    double area = 0.0;       // 0 when no blob was found
    double intensity = 0.0;  // mean of the brightest 70 % of the blob's grey levels
    double roundness = 0.0;  // 1 for a perfect disc
    double offset = 0.0;     // centroid distance from the grid position
    double boxLength = 0.0;  // longer side of the fitted ellipse's box
    double boxWidth = 0.0;   // shorter side
    int label = -1;          // blob index; positions sharing one are merged dots
};

struct GradeResult {
    int status = 0;  // 0, or a negative code (docs/status-codes.md)
    std::vector<int> bits;
    int orientation = -1;
    double gap = 0.0;  // dot spacing the grade was computed for

    // Partial scores; each is at most its configured maximum below.
    double area = 0.0;
    double intensity = 0.0;
    double roundness = 0.0;
    double centroid = 0.0;
    double rotatedBox = 0.0;
    double separation = 0.0;
    double total = 0.0;

    double maxArea = 0.0;
    double maxIntensity = 0.0;
    double maxRoundness = 0.0;
    double maxCentroid = 0.0;
    double maxRotatedBox = 0.0;
    double maxSeparation = 0.0;
    double maxTotal = 0.0;

    int dotsFound = 0;       // positions with a measured blob
    int connectedPairs = 0;  // pairs of positions sharing one blob
    std::vector<DotGrade> dots;
};

// Reads the code in an 8-bit grey image (rows x cols, stride cols) and grades its print.
// paramPath "" searches as ReaderOptions::fromDefaultSearch does; imageName labels debug images.
// Returns out.status. Never throws.
int grade(const unsigned char* image, int rows, int cols, const std::string& paramPath,
          GradeResult& out, const std::string& imageName = "grade");

// Grades dots whose grid is already known: binary (dots non-zero) and grey images of one size,
// points one row (x, y) per position in bit order, gap the dot spacing. Never throws.
int gradeGrid(const cv::Mat& binary, const cv::Mat& grey, const cv::Mat& points, double gap,
              const std::string& paramPath, GradeResult& out,
              const std::string& imageName = "grade");

// Short name of a status code ("ok", "too-few-dots", ...).
const char* gradeStatusName(int status);

// Word for a total as a share of the maximum: "excellent", "good", "fair", "poor".
const char* gradeRating(double total, double maximum);

}  // namespace qbcode

QBCODE_VISIBLE_END
