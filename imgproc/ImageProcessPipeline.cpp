#include "ImageProcessPipeline.h"

#include "SystemPara.h"

int ImageProcessPipeline::initialize() { return sysPara ? sysPara->readPara("ImageProcess") : -1; }
int ImageProcessPipeline::process(cv::Mat&, cv::Mat&, cv::Mat&, std::vector<cv::Point2f>&) {
    return -100;
}
void ImageProcessPipeline::clear_inf(cv::Mat&) {}
