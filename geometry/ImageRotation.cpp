#include "ImageRotation.h"

void ImageRotation::rotate(cv::Mat& src, cv::Mat& dst, float) { dst = src.clone(); }
void ImageRotation::fast_rotate(cv::Mat, cv::Mat&, float) {}
void ImageRotation::fast_rotate_image(unsigned char*, const unsigned char*, unsigned short,
                                      unsigned short, float) {}
