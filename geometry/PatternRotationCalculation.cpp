#include "PatternRotationCalculation.h"

int findPeaks(cv::Mat&, cv::Mat&, float, int) { return 0; }
PatternRotationCalculation::PatternRotationCalculation()
    : imgRotation(new ImageRotation), peakDetector(new PeakDetector) {}
int PatternRotationCalculation::rotationAngleCal(cv::Mat&, cv::Mat&, cv::Mat) { return 0; }
