// One recognition run: pre-processing, region of interest, angle, spacing, centre, decoding.
#pragma once

#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "FrameChain.h"
#include "SystemPara.h"
#include "qbcode_reader.hpp"

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class ImageProcessPipeline;
class ImageRotation;
class startPoint_cal;
class WriteData;

// The upright frame of a finished run, for services that measure the printed dots.
struct UprightView {
    cv::Mat grey;    // processed crop turned upright, before the tracker binarised it
    cv::Mat binary;  // binary crop turned upright
    cv::Mat input;   // the caller's grey levels reduced, cropped and turned likewise (on request)
    cv::Mat boxes;   // sampling box per position (x1, y1, x2, y2)
    cv::Mat bits;    // 1 x dotsNum, CV_64F
    float gap = 0.f;
};

class AlgPipeline {
public:
    explicit AlgPipeline(std::string path = std::string());
    // A record already loaded (SystemPara::loadAll) or set in code: no file is read.
    explicit AlgPipeline(const SystemPara& record);
    ~AlgPipeline();
    AlgPipeline(const AlgPipeline&) = delete;
    AlgPipeline& operator=(const AlgPipeline&) = delete;

    // -600 when the "AlgPipeline" section cannot be read completely.
    int Initialize();
    // roi receives the code's region in the coordinates of the downsampled image.
    int Pipeline(unsigned char* image, int rows, int cols, int* bits, int dotsNum,
                 std::string imgName, cv::Rect& roi);
    // The same run on an image of any row stride; fills `result`. keepUpright also keeps the
    // upright grey images (the processed crop and the caller's grey levels) in `upright`.
    int Run(const cv::Mat& image, const std::string& imgName, bool keepUpright = false);
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

    // The last run: everything the host gets, the frames it passed through, the region in the
    // downsampled frame, and its upright images.
    qbcode::Result result;
    FrameChain frames;
    cv::Rect region;
    double dnRatio = 0.0;  // the downsampling ratio of the read that region belongs to
    int clusterRank = 0;   // which cluster to read: 0 the largest, 1 the next, ...
    UprightView upright;

private:
    int runPolicy(const cv::Mat& input, const std::string& imgName, bool keepUpright, int* bits,
                  int count, clock_t start0);
    int runStages(const cv::Mat& input, const std::string& imgName, bool keepUpright, int* bits,
                  int count, clock_t start0);
    bool regionFound = false;
    // The size rule: while armed, a read whose dots are spaced outside the Camera section's
    // range stops after pre-processing and names the ratio that brings them inside.
    bool sizeRuleArmed = false;
    double resizeTo = 0.0;
    std::unique_ptr<SystemPara> record;  // given at construction; copied into para per run
};

QBCODE_VISIBLE_END
