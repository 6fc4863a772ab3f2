#include "ImageProcessPipeline.h"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <ctime>
#include <iostream>

#include <opencv2/core/hal/intrin.hpp>
#include <opencv2/imgproc.hpp>

#include "DebugImage.h"
#include "ParamFile.h"
#include "qbcode_status.h"
#include "SystemPara.h"

int ImageProcessPipeline::initialize() {
    if (sysPara == nullptr) return -1;  // as for an unreadable file
    const int r = sysPara->readPara("ImageProcess");
    if (r < 0) return r;
    Sensitivity = sysPara->Sensitivity;
    imgSizeRestrict = sysPara->imgSizeRestrict;
    DnRatio = sysPara->DnRatio;
    HessianScale = sysPara->HessianScale;
    LogScale = sysPara->LogScale;
    Threshold = sysPara->Threshold;
    SavePath = sysPara->SavePath;
    showImg = sysPara->showImg;
    writeImg = sysPara->writeImg;
    Debug = sysPara->Debug;
    imgPreROI = sysPara->imgPreROI;
    return r;
}

int ImageProcessPipeline::process(cv::Mat& input, cv::Mat& processed, cv::Mat& binary,
                                  std::vector<cv::Point2f>& centroids) {
    return process(input, processed, binary, centroids, 0.0);
}

int ImageProcessPipeline::process(cv::Mat& input, cv::Mat& processed, cv::Mat& binary,
                                  std::vector<cv::Point2f>& centroids, double ratio) {
    if (input.empty() || input.dims > 2) return -100;
    int r = initialize();
    if (r < 0) return r;
    if (ratio != 0.0) DnRatio = ratio;
    const clock_t t0 = clock();

    if (imgSizeRestrict) {
        if (input.rows != 640 || input.cols != 480) return -102;
    } else if (imgPreROI != 0 && input.rows >= 960 && input.cols >= 1280) {
        input = input(cv::Rect(320, 240, 640, 480));
    }
    // Every cost limit is checked before the first pixel is touched: the caller's size may be
    // larger than its buffer, and each scale costs a pass over the whole image.
    if (qbcode::limits::imageTooLarge(input.rows, input.cols)) return QBCODE_IMAGE_TOO_LARGE;
    if (HessianScale.size() > qbcode::limits::kMaxScales ||
        LogScale.size() > qbcode::limits::kMaxScales)
        return QBCODE_TOO_MANY_SCALES;

    // The resize cannot make a zero, negative or unrepresentable size.
    if (!(DnRatio > 0.0) || !std::isfinite(DnRatio)) return -112;
    const double rowsD = std::trunc(input.rows * DnRatio);
    const double colsD = std::trunc(input.cols * DnRatio);
    if (rowsD > INT_MAX || colsD > INT_MAX || rowsD * colsD > INT_MAX) return -112;
    if (DnRatio > qbcode::limits::kMaxDnRatio) return QBCODE_DNRATIO_RANGE;
    if (qbcode::limits::imageTooLarge(static_cast<int>(rowsD), static_cast<int>(colsD)))
        return QBCODE_IMAGE_TOO_LARGE;
    const int newRows = static_cast<int>(rowsD), newCols = static_cast<int>(colsD);
    if (Debug) {
        std::cout << "image original size: " << input.rows << "x" << input.cols << std::endl;
        std::cout << "image resized to: " << newRows << "x" << newCols << std::endl;
    }
    if (newRows <= 0 || newCols <= 0) return -112;

    cv::Mat dnImg, smoothImg, hessianImg, logImg;
    noiseRemover.setDnsample_size(cv::Point(newCols, newRows));
    noiseRemover.ImgDnSample(input, dnImg);
    if (dnImg.empty()) return -100;  // a pixel type the resize does not take
    const clock_t t1 = clock();
    if (showImg) {
        debugShow("downsampling img", dnImg, 1);
        std::cout << "test downsampling... " << std::endl;
    }

    dnImg.copyTo(smoothImg);
    noiseRemover.imopen(smoothImg, smoothImg);
    if (smoothImg.empty()) return -100;
    if (!writeImg) dnImg.release();  // only written later; the filters below need the room
    const clock_t t2 = clock();
    if (showImg) {
        debugShow("denoised img", smoothImg, 0);
        std::cout << "denoise... " << std::endl;
    }

    // The float images share three buffers (the reader's, or the chain's own for this frame)
    // unless they are written out later, which needs each of them apart.
    Buffers own;
    own.keep = false;
    Buffers* shared = writeImg ? nullptr : buffers != nullptr ? buffers : &own;
    hessianProc.setScale(HessianScale);
    if (shared != nullptr) {
        smoothImg.convertTo(shared->smooth, CV_32F);
        smoothImg.release();
        r = hessianProc.process(shared->smooth, shared->response, shared->blur);
        hessianImg = shared->response;
    } else {
        r = hessianProc.process(smoothImg, hessianImg);
    }
    if (r < 0) return r;
    clear_inf(hessianImg);
    const clock_t t3 = clock();
    if (showImg) debugShow("Hessian img", hessianImg, 0);

    logFilter.setSigma(LogScale);
    if (shared != nullptr) {
        // The smoothed image and the blur are done with: they take the LoG's passes.
        hessianImg.release();
        r = logFilter.process(shared->response, shared->smooth, shared->blur);
        logImg = shared->smooth;
    } else {
        r = logFilter.process(hessianImg, logImg);
    }
    if (showImg) debugShow("Log img", logImg, 0);
    if (r < 0) return -130;
    const clock_t t4 = clock();
    if (writeImg) {
        cv::Mat log8;
        logImg.convertTo(log8, CV_8U, 1, 0);
        debugWrite(SavePath + "logImg_" + imgName + ".bmp", log8);
    }

    Threshold = Sensitivity == 0 ? 24.0 : Sensitivity == 1 ? 15.0 : 8.0;
    imgBinary.setPars(255.0f, Threshold);
    r = imgBinary.grayimg_normal(logImg);
    // Buffers not shared for another frame go before the blobs are traced.
    if (shared != nullptr && !shared->keep) shared->release();
    if (r < 0) return r;
    logImg.copyTo(processed);

    // Only the member learns the Otsu level; the fixed threshold below decides the pixels.
    const double otsu = imgBinary.image_otsu_binary(processed, binary);
    Threshold = std::min(otsu, Threshold);
    imgBinary.image_binary(processed, binary);
    const clock_t t5 = clock();
    if (showImg) debugShow("bin1", binary, 0);

    smallBlobs.clear();
    fewBlobs.clear();
    imgBinary.erased = &smallBlobs;
    imgBinary.tooFew = &fewBlobs;
    r = imgBinary.blob_centroid(binary, centroids);
    imgBinary.erased = nullptr;  // a copy of this chain must not write here
    imgBinary.tooFew = nullptr;
    if (r < 0) return r;
    const clock_t t6 = clock();

    if (writeImg) {
        const std::string suffix = imgName + ".bmp";
        debugWrite(SavePath + "oriImg_" + suffix, input);
        debugWrite(SavePath + "dnImg_" + suffix, dnImg);
        debugWrite(SavePath + "smoothImg_" + suffix, smoothImg);
        debugWrite(SavePath + "hessianImg_" + suffix, hessianImg * 3.0);
        debugWrite(SavePath + "normalImg_" + suffix, logImg);
        debugWrite(SavePath + "binImg_" + suffix, binary);
        cv::Mat circles = cv::Mat::zeros(binary.size(), CV_8UC1);
        for (const cv::Point2f& c : centroids)
            cv::circle(circles, cv::Point(lrintf(c.x), lrintf(c.y)), 2, cv::Scalar(128, 128, 128),
                       1, cv::LINE_8);
        debugWrite(SavePath + "blob_circle" + suffix, circles);
    }

    if (Debug) {
        std::cout << "image downsampling time: " << static_cast<long>(t1 - t0) << std::endl;
        std::cout << "image smooth time: " << static_cast<long>(t2 - t1) << std::endl;
        std::cout << "image hessian proc time: " << static_cast<long>(t3 - t2) << std::endl;
        std::cout << "image LoG proc time: " << static_cast<long>(t4 - t3) << std::endl;
        std::cout << "image binary time: " << static_cast<long>(t5 - t4) << std::endl;
        std::cout << "blob centroid cal time: " << static_cast<long>(t6 - t5) << std::endl;
    }
    return r;
}

void ImageProcessPipeline::clear_inf(cv::Mat& m) {
    if (m.data == nullptr || m.total() == 0 || m.type() != CV_32FC1) return;
    for (int y = 0; y < m.rows; ++y) {
        float* row = m.ptr<float>(y);
        int x = 0;
#if CV_SIMD && (!defined(__arm__) || defined(__aarch64__))
        const cv::v_float32 big = cv::vx_setall_f32(FLT_MAX), zero = cv::vx_setzero_f32();
        for (; x + cv::v_float32::nlanes <= m.cols; x += cv::v_float32::nlanes) {
            const cv::v_float32 v = cv::vx_load(row + x);
            cv::v_store(row + x, cv::v_select(cv::v_abs(v) > big, zero, v));
        }
#endif
        for (; x < m.cols; ++x)
            if (std::fabs(row[x]) > FLT_MAX) row[x] = 0.0f;
    }
}
