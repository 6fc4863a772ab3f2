// One recognition run: pre-processing, region of interest, angle, spacing, centre, decoding.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "SystemPara.h"

class ImageProcessPipeline;
class ImageRotation;
class startPoint_cal;
class WriteData;

class AlgPipeline {
public:
    explicit AlgPipeline(std::string path = std::string());
    ~AlgPipeline();
    AlgPipeline(const AlgPipeline&) = delete;
    AlgPipeline& operator=(const AlgPipeline&) = delete;

    // -600 when the "AlgPipeline" section cannot be read completely.
    int Initialize();
    // roi receives the code's region in the coordinates of the downsampled image.
    int Pipeline(unsigned char* image, int rows, int cols, int* bits, int dotsNum,
                 std::string imgName, cv::Rect& roi);
    void assign_coordinates(std::vector<cv::Point2f>& points, float* out, int count);
    // -502 when the bit matrix holds fewer than count values or bits is null.
    int assign_patArr(cv::Mat& patArr, int* bits, int count);
    // The host's box from the driver's rectangle: 22 pixels in on every side, then scaled back
    // by the downsampling ratio (truncated; a broken ratio saturates instead of overflowing).
    static void toInputBox(const cv::Rect& rect, double dnRatio, int* box);
    void putonOverlay(cv::Mat& overlay, cv::Mat& overlayBin, const cv::Mat& boxes,
                      const cv::Mat& values, double scale);

    std::string paramPath;
    int debug = 0;
    int isShowImg = 0;
    int isWriteImg = 0;
    int opencv10Imgproc = 0;
    int opencv10Rot = 0;
    std::string savePath;
    int imwriteOverlay = 0;
    int ctpointFlag = 0;
    int doQualityCheck = 0;
    int isWriteData = 0;
    int isOnlineReg = 0;
    float dc = 0.f;
    int layer = 0;
    int dotsNum = 1;
    std::unique_ptr<SystemPara> para;
    std::unique_ptr<ImageProcessPipeline> preprocess;
    std::unique_ptr<ImageRotation> rotation;
    std::unique_ptr<startPoint_cal> startPoint;
    std::unique_ptr<WriteData> writer;
    std::vector<float> roiCoords;
    std::vector<float> roiRho;
    std::vector<float> roiDelta;
    std::vector<int> roiNearest;
    std::vector<int> roiLabel;

    // Stage timings of the last run, in clock() ticks, for tools that report them.
    struct Timings {
        long preprocess = 0;
        long roi = 0;
        long angle = 0;
        long centre = 0;
        long decode = 0;
    } timings;
    // Angle, spacing and centre of the last run (rotated, downsampled frame).
    int lastAngle = 0;
    float lastGap = 0.f;
    cv::Point lastCentre;
    int lastOrientation = -1;
    // When set, a successful run keeps the upright images and its grid for the print grade.
    bool keepImages = false;
    cv::Mat lastGrey;          // upright processed crop, before the tracker binarises it
    cv::Mat lastBinary;        // upright binary crop
    cv::Mat lastBoxes;         // sampling box per dot (x1, y1, x2, y2) in the upright crop
    cv::Mat lastBits;          // 1 x dotsNum, CV_64F
    cv::Mat lastInputUpright;  // the camera's grey levels, reduced, cropped and turned likewise

private:
    int runStages(cv::Mat& input, int* bits, int count, const std::string& imgName, cv::Rect& roi,
                  clock_t start0);
    void timing(const char* label, clock_t since) const;
};
