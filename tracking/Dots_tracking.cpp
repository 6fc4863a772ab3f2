#include "Dots_tracking.h"

int Dots_tracking::Run(const cv::Mat&, const cv::Mat&, cv::Mat&, cv::Mat&, bool) { return -501; }
