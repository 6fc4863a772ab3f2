#include "DebugSink.h"

#include <iostream>

#include <opencv2/imgproc.hpp>

#include "DebugImage.h"
#include "SystemPara.h"
#include "WriteData.h"

DebugSink::DebugSink(const SystemPara& para, std::string name, std::unique_ptr<WriteData>& w)
    : debug(para.debug),
      isShowImg(para.isShowImg),
      isWriteImg(para.isWriteImg),
      isWriteData(para.isWriteData),
      imwriteOverlay(para.imwriteOverlay),
      opencv10Rot(para.opencv10Rot),
      savePath(para.savePath),
      imgName(std::move(name)),
      writer(w) {}

void DebugSink::timing(const char* label, clock_t since) const {
    if (debug) std::cout << label << static_cast<long>(clock() - since) << " ms" << std::endl;
}

void DebugSink::dump(const std::string& name, const cv::Mat& m) {
    if (!writer) writer = std::make_unique<WriteData>();
    writer->saveAsText(savePath + name + imgName + ".txt", m);
}

void DebugSink::preprocessFailed(int status) const {
    if (debug) std::cout << "image processing error:" << status << std::endl;
}

void DebugSink::preprocessed(const cv::Mat& input, const cv::Mat& processed, const cv::Mat& binary,
                             clock_t start0) const {
    if (isShowImg) {
        debugShow("original", input);
        debugShow("Proc", processed);
        debugShow("Bin", binary);
        debugWait(0);
    }
    if (debug) std::cout << "-----------------------" << std::endl;
    timing("----------img processing times: ", start0);
}

void DebugSink::regionFailed() const {
    std::cout << "ROI Error happened:" << std::endl;
}

void DebugSink::regionCropped(const cv::Mat& binRoi, clock_t start1) const {
    if (isShowImg) {
        debugShow("Bin_roi", binRoi);
        debugWait(0);
    }
    if (isWriteImg) debugWrite(savePath + "Bin_roi_" + imgName + ".jpg", binRoi);
    timing("----------ROI time: ", start1);
}

void DebugSink::legacyAngleTables(const cv::Mat& scores, const cv::Mat& peaks) {
    if (!isWriteData) return;
    dump("R", scores);
    dump("P_pos_", peaks);
}

void DebugSink::uprightTurned(const cv::Mat& procRot, const cv::Mat& binRot, int angle,
                              clock_t start2, clock_t start2b) const {
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
    if (!debug) return;
    std::cout << (opencv10Rot == 1 ? "Opencv1.0 rotation: " : "fast rotation: ") << std::endl;
    std::cout << "Angle is: " << angle << std::endl;
    std::cout << "Angle cal time1: " << static_cast<long>(start2b - start2) << " ms" << std::endl;
    std::cout << "Angle cal time2: " << static_cast<long>(start2c - start2b) << " ms" << std::endl;
    std::cout << "----------Angle cal time: " << static_cast<long>(start2c - start2) << " ms"
              << std::endl;
}

void DebugSink::spacingMeasured(int angle, float gap) const {
    if (!debug) return;
    std::cout << "original calculated angle: " << angle << std::endl;
    std::cout << "original calculated gap: " << gap << std::endl;
}

void DebugSink::recalibrated(int angle) const {
    if (debug) std::cout << "----------Angle re-calibrated to: " << angle << std::endl;
}

void DebugSink::centreFound(float gap, cv::Point centre, const cv::Mat& procRot,
                            clock_t start25) const {
    if (debug) {
        std::cout << "re-calculated gap: " << gap << std::endl;
        std::cout << "centerpoint: [" << centre.x << ", " << centre.y << "]" << std::endl;
    }
    timing("----------gap and centerpoint cal time: ", start25);
    if (isWriteImg) {
        cv::Mat marked;
        cv::cvtColor(procRot, marked, cv::COLOR_GRAY2BGR);
        cv::circle(marked, centre, 3, cv::Scalar(0, 0, 255), 1, 8);
        debugWrite(savePath + "_centerpoint_" + imgName + ".jpg", marked);
    }
}

void DebugSink::decoded(const cv::Mat& bits, clock_t start3) {
    timing("----------bit Array cal time: ", start3);
    if (isWriteData) dump("bits_array_", bits);
}

void DebugSink::overlay(const cv::Mat& procRot, const cv::Mat& binRot, const cv::Mat& boxes,
                        const cv::Mat& bits) const {
    if (!imwriteOverlay) return;
    cv::Mat grey, bin;
    cv::cvtColor(procRot, grey, cv::COLOR_GRAY2BGR);
    cv::cvtColor(binRot, bin, cv::COLOR_GRAY2BGR);
    drawOverlay(grey, bin, boxes, bits);
    debugWrite(savePath + "_ori_" + imgName + ".jpg", grey);
    debugWrite(savePath + "_bin_" + imgName + ".jpg", bin);
}

void DebugSink::drawOverlay(cv::Mat& overlay, cv::Mat& overlayBin, const cv::Mat& boxes,
                            const cv::Mat& values) {
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
