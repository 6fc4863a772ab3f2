#include "ImgBinary.h"

int ImgBinary::grayimg_normal(cv::Mat&) { return -100; }
void ImgBinary::image_binary(cv::Mat&, cv::Mat&) {}
double ImgBinary::image_otsu_binary(cv::Mat&, cv::Mat&) { return 0.0; }
void ImgBinary::image_AdapMean_binary(cv::Mat&, cv::Mat&) {}
void ImgBinary::image_AdapGauss_binary(cv::Mat&, cv::Mat&) {}
void ImgBinary::remove_board(cv::Mat&) {}
int ImgBinary::imreconstruct(cv::Mat&, cv::Mat&, cv::Mat&) { return -113; }
int ImgBinary::blob_centroid(const cv::Mat&, std::vector<cv::Point2f>&) { return -100; }
