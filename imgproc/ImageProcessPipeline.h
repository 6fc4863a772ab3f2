// From the caller's grey image to the processed image, the binary dot image and the centroids.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "Dots_HessianProcess.h"
#include "ImgBinary.h"
#include "LogFilter.h"
#include "NoiseRemover.h"

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class SystemPara;

class ImageProcessPipeline {
public:
    explicit ImageProcessPipeline(SystemPara* para = nullptr) : sysPara(para) {}

    // Reads the "ImageProcess" section; its negative status as is, -1 without a record.
    int initialize();
    // input may be replaced by its cropped view. 0 or a negative status.
    int process(cv::Mat& input, cv::Mat& processed, cv::Mat& binary,
                std::vector<cv::Point2f>& centroids);
    // Sets +-infinity of a CV_32FC1 matrix to 0.
    void clear_inf(cv::Mat& m);
    // The same, downsampling by `ratio` instead of the file's "DnRatio" (a reader tries other
    // ratios on one frame; the record it shares stays as loaded). 0: the file's.
    int process(cv::Mat& input, cv::Mat& processed, cv::Mat& binary,
                std::vector<cv::Point2f>& centroids, double ratio);

    // The chain's float images, kept by a reader between frames: a fresh image of a frame's
    // size is mapped anew and costs a page fault per 4 KB.
    struct Buffers {
        bool keep = true;  // false: released once the LoG's output is normalised
        cv::Mat smooth, response, blur;
        void release() {
            smooth.release();
            response.release();
            blur.release();
        }
    };
    Buffers* buffers = nullptr;  // none: every image is the chain's own

    Dots_HessianProcess hessianProc;
    NoiseRemover noiseRemover;
    LogFilter logFilter;
    ImgBinary imgBinary;
    // Blobs too small to count as dots, erased from the binary image: a faint dot still shows
    // as one of them.
    std::vector<cv::Point2f> smallBlobs;
    // The boxes of the blobs when they were too few to count (-143): a code too small for the
    // downsampling merges its dots into a few larger blobs.
    std::vector<cv::Rect> fewBlobs;
    SystemPara* sysPara;
    int Sensitivity = 0;
    bool imgSizeRestrict = false;
    double DnRatio = 0.0;
    std::vector<float> HessianScale;
    std::vector<float> LogScale;
    double Threshold = 0.0;
    std::string SavePath;
    bool showImg = false;
    bool writeImg = false;
    bool Debug = false;
    int imgPreROI = 0;
    std::string imgName = "im.jpg";
};

QBCODE_VISIBLE_END
