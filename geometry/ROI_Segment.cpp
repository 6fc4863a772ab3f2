#include "ROI_Segment.h"

int ROI_Segment::cluster_densityPeaks(float*, int, int, float, float*, float*, int*, int*) {
    return 0;
}
cv::Rect ROI_Segment::cal_ROI(float*, int*, int) { return cv::Rect(); }
