#include "AlgPipeline.h"

#include <cmath>
#include <ctime>
#include <limits>
#include <iostream>

#include <opencv2/imgproc.hpp>

#include "DebugImage.h"
#include "Hexagon_Dots_tracking.h"
#include "ImageProcessPipeline.h"
#include "ImageRotation.h"
#include "PatternRotationCalculation.h"
#include "ROI_Segment.h"
#include "WriteData.h"
#include "qbcode_hexagon_recognition.h"
#include "gapCalculation.h"
#include "rotationAngleCal_C.h"
#include "startPoint_cal.h"

namespace {

int truncToInt(float v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483648.0f) return std::numeric_limits<int>::max();
    if (v <= -2147483648.0f) return std::numeric_limits<int>::min();
    return static_cast<int>(v);
}

}  // namespace

AlgPipeline::AlgPipeline(std::string path) : paramPath(std::move(path)) {}

AlgPipeline::~AlgPipeline() = default;

int AlgPipeline::Initialize() {
    if (paramPath.empty()) paramPath = "../../SystemParameter/Config/algorithm_parameters_v01.yml";
    para = std::make_unique<SystemPara>(paramPath);
    if (para->readPara("AlgPipeline") < 0) return -600;
    debug = para->debug;
    isShowImg = para->isShowImg;
    isWriteImg = para->isWriteImg;
    opencv10Imgproc = para->opencv10Imgproc;
    opencv10Rot = para->opencv10Rot;
    savePath = para->savePath;
    imwriteOverlay = para->imwriteOverlay;
    ctpointFlag = para->ctpointFlag;
    doQualityCheck = para->doQualityCheck;
    isWriteData = para->isWriteData;
    isOnlineReg = para->isOnlineReg;
    dc = para->dc;
    layer = para->layer;
    dotsNum = get_dots_num(layer);
    return 0;
}

void AlgPipeline::toInputBox(const cv::Rect& rect, double dnRatio, int* box) {
    const float scale = static_cast<float>(dnRatio);
    box[0] = truncToInt(static_cast<float>(rect.x + 22) / scale);
    box[1] = truncToInt(static_cast<float>(rect.y + 22) / scale);
    box[2] = truncToInt(static_cast<float>(rect.width - 44) / scale);
    box[3] = truncToInt(static_cast<float>(rect.height - 44) / scale);
}

void AlgPipeline::timing(const char* label, clock_t since) const {
    if (debug) std::cout << label << static_cast<long>(clock() - since) << " ms" << std::endl;
}

void AlgPipeline::assign_coordinates(std::vector<cv::Point2f>& points, float* out, int count) {
    if (out == nullptr) return;
    const int n = std::min<int>(count / 2, static_cast<int>(points.size()));
    for (int i = 0; i < n; ++i) {
        out[2 * i] = points[i].x;
        out[2 * i + 1] = points[i].y;
    }
}

int AlgPipeline::assign_patArr(cv::Mat& patArr, int* bits, int count) {
    if (count <= 0) return 0;
    if (bits == nullptr || patArr.empty() || patArr.total() < static_cast<size_t>(count))
        return -502;
    cv::Mat values;
    patArr.reshape(1, 1).convertTo(values, CV_64F);
    for (int i = 0; i < count; ++i) bits[i] = static_cast<int>(values.at<double>(0, i));
    return 0;
}

int AlgPipeline::Pipeline(unsigned char* image, int rows, int cols, int* bits, int count,
                          std::string imgName, cv::Rect& roi) {
    const clock_t start0 = clock();
    timings = Timings();
    lastOrientation = -1;
    lastInputUpright.release();
    const int init = Initialize();
    if (init < 0) return init;

    // A missing buffer or a non-positive size is an empty image to the pre-processing.
    cv::Mat input;
    if (image != nullptr && rows > 0 && cols > 0)
        input = cv::Mat(rows, cols, CV_8UC1, image, static_cast<size_t>(cols));
    return runStages(input, bits, count, imgName, roi, start0);
}

int AlgPipeline::runStages(cv::Mat& input, int* bits, int count, const std::string& imgName,
                           cv::Rect& roi, clock_t start0) {
    // 1. Pre-processing.
    preprocess = std::make_unique<ImageProcessPipeline>(para.get());
    preprocess->imgName = imgName;
    cv::Mat processed, binary;
    std::vector<cv::Point2f> centroids;
    int r = preprocess->process(input, processed, binary, centroids);
    timings.preprocess = static_cast<long>(clock() - start0);
    if (r < 0) {
        if (debug) std::cout << "image processing error:" << r << std::endl;
        return r;
    }
    if (isShowImg) {
        debugShow("original", input);
        debugShow("Proc", processed);
        debugShow("Bin", binary);
        debugWait(0);
    }
    if (debug) std::cout << "-----------------------" << std::endl;
    timing("----------img processing times: ", start0);

    // 2. Region of interest.
    const clock_t start1 = clock();
    cv::Mat procRoi, binRoi;
    try {
        const int n = static_cast<int>(centroids.size());
        roiCoords.assign(2 * static_cast<size_t>(n), 0.f);
        assign_coordinates(centroids, roiCoords.data(), 2 * n);
        roiRho.assign(n, 0.f);
        roiDelta.assign(n, 0.f);
        roiNearest.assign(n, 0);
        roiLabel.assign(n, -1);
        ROI_Segment segment(processed.rows, processed.cols, dc, n, 2);
        const int k =
            segment.cluster_densityPeaks(roiCoords.data(), n, 2, dc, roiRho.data(), roiDelta.data(),
                                         roiNearest.data(), roiLabel.data());
        cv::Rect region;
        if (k < 1) {
            region = cv::Rect(0, 0, processed.cols, processed.rows);
        } else {
            region = segment.cal_ROI(roiCoords.data(), roiLabel.data(), k);
            if (region.area() <= 0) return -200;
            if (region.x + region.width >= processed.cols ||
                region.y + region.height >= processed.rows)
                return -201;
        }
        roi = region;
        if (keepImages) {
            // The input as the stages saw it (after any crop), at the processed size.
            cv::Mat reduced;
            preprocess->noiseRemover.ImgDnSample(input, reduced);
            if (reduced.size() == processed.size()) lastInputUpright = reduced(region).clone();
        }
        // The angle search needs continuous buffers.
        procRoi = cv::Mat(processed, region).clone();
        binRoi = cv::Mat(binary, region).clone();
        if (isShowImg) {
            debugShow("Bin_roi", binRoi);
            debugWait(0);
        }
        if (isWriteImg) debugWrite(savePath + "Bin_roi_" + imgName + ".jpg", binRoi);
        timing("----------ROI time: ", start1);
    } catch (...) {
        std::cout << "ROI Error happened:" << std::endl;
        return -200;
    }
    timings.roi = static_cast<long>(clock() - start1);

    // 3. Rotation angle, then both crops upright.
    const clock_t start2 = clock();
    cv::Mat scores = cv::Mat::zeros(1, 180, CV_32F);
    cv::Mat peakTable = cv::Mat::zeros(180, 20, CV_32F);
    int angle = 0;
    if (opencv10Rot) {
        cv::GaussianBlur(procRoi, procRoi, cv::Size(3, 3), 0, 0);
        angle = rotationAngleCal_C(procRoi, scores, peakTable, para.get());
        if (isOnlineReg == 1) angle = 90;
        if (isWriteData) {
            writer = std::make_unique<WriteData>();
            writer->saveAsText(savePath + "R" + imgName + ".txt", scores);
            writer->saveAsText(savePath + "P_pos_" + imgName + ".txt", peakTable);
        }
        if (angle < 0) return angle;
    } else {
        PatternRotationCalculation angleSearch;
        angle = angleSearch.rotationAngleCal(binRoi, scores, peakTable);
    }
    const clock_t start2b = clock();
    rotation = std::make_unique<ImageRotation>();
    cv::Mat procRot, binRot;
    rotation->rotate(procRoi, procRot, static_cast<float>(angle));
    rotation->rotate(binRoi, binRot, static_cast<float>(angle));
    if (!lastInputUpright.empty())
        rotation->rotate(lastInputUpright, lastInputUpright, static_cast<float>(angle));
    if (isShowImg) {
        debugShow("rotProc", procRot);
        debugShow("rotBin", binRot);
        debugWait(0);
    }
    if (isWriteImg) {
        debugWrite(savePath + "binImg_rot_" + imgName + ".jpg", binRot);
        debugWrite(savePath + "procImg_rot_" + imgName + ".jpg", procRot);
    }
    const clock_t start2c = clock();
    if (debug) {
        std::cout << (opencv10Rot == 1 ? "Opencv1.0 rotation: " : "fast rotation: ") << std::endl;
        std::cout << "Angle is: " << angle << std::endl;
        std::cout << "Angle cal time1: " << static_cast<long>(start2b - start2) << " ms"
                  << std::endl;
        std::cout << "Angle cal time2: " << static_cast<long>(start2c - start2b) << " ms"
                  << std::endl;
        std::cout << "----------Angle cal time: " << static_cast<long>(start2c - start2) << " ms"
                  << std::endl;
    }
    timings.angle = static_cast<long>(start2c - start2);

    // 4. Dot spacing; a non-positive spacing never reaches the template search.
    gapCalculation spacing;
    float gap = spacing.gap_cal_M2(scores, peakTable);
    if (debug) {
        std::cout << "original calculated angle: " << angle << std::endl;
        std::cout << "original calculated gap: " << gap << std::endl;
    }
    if (!(gap > 0.f)) {
        const int code = static_cast<int>(gap);
        return (code == -311 || code == -312 || code == -313) ? code : -313;
    }

    // 5. Centre of the code, with at most one re-calibration by 30 degrees.
    const clock_t start25 = clock();
    startPoint = std::make_unique<startPoint_cal>(para.get());
    cv::Mat templ;
    cv::Point centre(0, 0);
    r = startPoint->findStartPoint_NCC(gap, binRot, templ, centre, 0.0);
    if (r < 0) return r;
    if (centre == cv::Point(0, 0) && ctpointFlag == 1) {
        rotation->rotate(procRot, procRot, 30.0f);
        rotation->rotate(binRot, binRot, 30.0f);
        if (!lastInputUpright.empty()) rotation->rotate(lastInputUpright, lastInputUpright, 30.0f);
        angle += 30;
        if (debug) std::cout << "----------Angle re-calibrated to: " << angle << std::endl;
        r = startPoint->findStartPoint_NCC(gap, binRot, templ, centre, 0.0);
        if (r < 0) return r;
    }
    if (centre == cv::Point(0, 0)) return -322;
    lastAngle = angle;
    lastGap = gap;
    lastCentre = centre;
    if (debug) {
        std::cout << "re-calculated gap: " << gap << std::endl;
        std::cout << "centerpoint: [" << centre.x << ", " << centre.y << "]" << std::endl;
    }
    timing("----------gap and centerpoint cal time: ", start25);
    timings.centre = static_cast<long>(clock() - start25);
    if (isWriteImg) {
        cv::Mat marked;
        cv::cvtColor(procRot, marked, cv::COLOR_GRAY2BGR);
        cv::circle(marked, centre, 3, cv::Scalar(0, 0, 255), 1, 8);
        debugWrite(savePath + "_centerpoint_" + imgName + ".jpg", marked);
    }

    // 6. Tracking and decoding.
    const clock_t start3 = clock();
    Hexagon_Dots_tracking tracker(para.get(), static_cast<double>(gap), centre.x, centre.y, layer,
                                  255.0);
    tracker.imgName = imgName;
    cv::Mat patArr, boxes;
    if (keepImages) {
        lastGrey = procRot.clone();
        lastBinary = binRot;
    }
    r = tracker.Run(procRot, binRot, patArr, boxes, doQualityCheck != 0);
    if (r < 0) return r;
    lastOrientation = r;
    if (keepImages) {
        lastBoxes = boxes;
        lastBits = patArr;
    }
    r = assign_patArr(patArr, bits, count);
    if (r < 0) return r;
    timing("----------bit Array cal time: ", start3);
    timings.decode = static_cast<long>(clock() - start3);
    if (isWriteData) {
        if (!writer) writer = std::make_unique<WriteData>();
        writer->saveAsText(savePath + "bits_array_" + imgName + ".txt", patArr);
    }

    // 7. Result overlays.
    if (imwriteOverlay) {
        cv::Mat overlay, overlayBin;
        cv::cvtColor(procRot, overlay, cv::COLOR_GRAY2BGR);
        cv::cvtColor(binRot, overlayBin, cv::COLOR_GRAY2BGR);
        putonOverlay(overlay, overlayBin, boxes, patArr, 3.0);
        debugWrite(savePath + "_ori_" + imgName + ".jpg", overlay);
        debugWrite(savePath + "_bin_" + imgName + ".jpg", overlayBin);
    }
    return 0;
}

void AlgPipeline::putonOverlay(cv::Mat& overlay, cv::Mat& overlayBin, const cv::Mat& boxes,
                               const cv::Mat& values, double /*scale*/) {
    if (overlay.empty() || boxes.empty() || values.empty()) return;
    cv::Mat b, v;
    boxes.convertTo(b, CV_64F);
    values.convertTo(v, CV_64F);
    const int n = std::max(b.rows, b.cols);
    const bool byRow = v.cols < v.rows;
    const int available = byRow ? v.rows : v.cols;
    for (int i = 0; i < n && i < b.rows && b.cols >= 4 && i < available; ++i) {
        const double* bx = b.ptr<double>(i);
        const int x1 = static_cast<int>(bx[0] + 0.5), y1 = static_cast<int>(bx[1] + 0.5);
        const int x2 = static_cast<int>(bx[2] + 0.5), y2 = static_cast<int>(bx[3] + 0.5);
        const int cx = (x1 + x2) / 2, cy = (y1 + y2) / 2;
        const std::string label = std::to_string(i);
        const double value = byRow ? v.at<double>(i, 0) : v.at<double>(0, i);
        if (value > 0) {
            if (!overlayBin.empty())
                cv::rectangle(overlayBin, cv::Point(x1, y1), cv::Point(x2, y2),
                              cv::Scalar(255, 0, 0), 1, 8, 0);
            cv::rectangle(overlay, cv::Point(x1, y1), cv::Point(x2, y2), cv::Scalar(50, 200, 50), 2,
                          8, 0);
            cv::putText(overlay, label, cv::Point(cx - 3, cy + 3), 1, 1.5,
                        cv::Scalar(200, 200, 200), 1, 8, false);
            cv::circle(overlay, cv::Point(cx, cy), 2, cv::Scalar(0, 255, 20), 2, 8, 0);
        } else {
            cv::rectangle(overlay, cv::Point(x1, y1), cv::Point(x2, y2), cv::Scalar(50, 50, 200), 2,
                          8, 0);
            cv::putText(overlay, label, cv::Point(cx - 3, cy + 3), 1, 1.5, cv::Scalar(255, 30, 30),
                        1, 8, false);
        }
    }
}
