// Diagnostics of a recognition run: console lines, windows, image files and matrix dumps, all
// decided by the parameter file and emitted at stage boundaries.
#pragma once

#include <ctime>
#include <memory>
#include <string>

#include <opencv2/core.hpp>

class SystemPara;
class WriteData;

class DebugSink {
public:
    // writer is the driver's dump writer, created on first use.
    DebugSink(const SystemPara& para, std::string imgName, std::unique_ptr<WriteData>& writer);

    void preprocessFailed(int status) const;
    void preprocessed(const cv::Mat& input, const cv::Mat& processed, const cv::Mat& binary,
                      clock_t start0) const;
    void regionFailed() const;
    void regionCropped(const cv::Mat& binRoi, clock_t start1) const;
    void legacyAngleTables(const cv::Mat& scores, const cv::Mat& peaks);
    void uprightTurned(const cv::Mat& procRot, const cv::Mat& binRot, int angle, clock_t start2,
                       clock_t start2b) const;
    void spacingMeasured(int angle, float gap) const;
    void recalibrated(int angle) const;
    void centreFound(float gap, cv::Point centre, const cv::Mat& procRot, clock_t start25) const;
    void decoded(const cv::Mat& bits, clock_t start3);
    void overlay(const cv::Mat& procRot, const cv::Mat& binRot, const cv::Mat& boxes,
                 const cv::Mat& bits) const;

    // Boxes of 1-bits green with a dot and their index, of 0-bits red.
    static void drawOverlay(cv::Mat& overlay, cv::Mat& overlayBin, const cv::Mat& boxes,
                            const cv::Mat& values);

private:
    void timing(const char* label, clock_t since) const;
    void dump(const std::string& name, const cv::Mat& m);

    int debug, isShowImg, isWriteImg, isWriteData, imwriteOverlay, opencv10Rot;
    std::string savePath, imgName;
    std::unique_ptr<WriteData>& writer;
};
