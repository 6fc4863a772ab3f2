#include "rotationAngleCal_C.h"

int rotationAngleCal_C(cv::Mat&, cv::Mat&, cv::Mat&, SystemPara*) { return -301; }
