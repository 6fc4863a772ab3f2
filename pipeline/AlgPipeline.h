// One recognition run: pre-processing, region of interest, angle, spacing, centre, decoding.
#pragma once

#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "FrameChain.h"
#include "ImageProcessPipeline.h"
#include "Stages.h"
#include "SystemPara.h"
#include "qbcode_reader.hpp"

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class DebugSink;
struct ReadPlan;
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

// A frame prepared once for one polarity and downsampling ratio; every candidate of it reads
// from here.
struct FrameView {
    int status = 0;
    bool dark = false;
    double ratio = 0.0;
    stages::Preprocessed pre;
    FrameChain frames;    // input, pre-crop, downsampled
    int downsampled = 0;  // index of the downsampled frame in `frames`
    cv::Point crop;       // where the view's part of the frame starts
    stages::Clusters clusters;
    double preprocessMs = 0.0;
};

// One candidate decided: the host's result (status inside), the region it was cut from and, on
// request, its upright images.
struct Decision {
    qbcode::Result result;
    cv::Rect region;  // in the view's downsampled frame
    bool regionFound = false;
    double ratio = 0.0;  // the view's downsampling ratio, for the host's box
    UprightView upright;
    int status() const { return result.status; }
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
    void assign_coordinates(std::vector<cv::Point2f>& points, float* out, int count);
    // -502 when the bit matrix holds fewer than count values or bits is null.
    int assign_patArr(cv::Mat& patArr, int* bits, int count);
    // The host's box from the driver's rectangle: 22 pixels in on every side, then scaled back
    // by the downsampling ratio (truncated; a broken ratio saturates instead of overflowing).
    static void toInputBox(const cv::Rect& rect, double dnRatio, int* box);
    void putonOverlay(cv::Mat& overlay, cv::Mat& overlayBin, const cv::Mat& boxes,
                      const cv::Mat& values, double scale);

    // The stages after Initialize, for the read policy (Detector.h): pre-processing and
    // clustering of one view, then the decision of one region cut from it. A view of part of
    // the frame is prepared from `image(crop)`; an empty crop is the whole frame.
    FrameView prepare(const cv::Mat& image, bool dark, double ratio, const std::string& imgName,
                      clock_t start0, bool fastClusters = false, cv::Rect crop = cv::Rect());
    Decision decide(const FrameView& view, stages::Region reg, const ReadPlan& plan,
                    const std::string& imgName, bool keepUpright, int* bits, int count);

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
    // Kept between the views and frames of a reader from its second frame on: a call that reads
    // one frame does not hold them through its decisions.
    ImageProcessPipeline::Buffers prepBuffers;
    cv::Mat invertedFrame;
    int frames = 0;  // frames this engine has begun to read
    std::unique_ptr<ImageRotation> rotation;
    std::unique_ptr<startPoint_cal> startPoint;
    std::unique_ptr<WriteData> writer;
    std::vector<float> roiCoords;
    std::vector<float> roiRho;
    std::vector<float> roiDelta;
    std::vector<int> roiNearest;
    std::vector<int> roiLabel;

private:
    struct Work;
    int cutRegion(Work& w, const ReadPlan& plan, bool keepUpright, DebugSink& sink, Decision& out);
    int turnUpright(Work& w, DebugSink& sink, Decision& out);
    void turn(Work& w, int degrees, DebugSink& sink, Decision& out, clock_t started);
    std::vector<cv::Point2f> uprightDots(const Work& w) const;
    int fastPath(const Work& w, const ReadPlan& plan, const std::string& imgName, int* bits,
                 int count, DebugSink& sink, Decision& out);
    int findCentre(Work& w, const ReadPlan& plan, DebugSink& sink, Decision& out);
    int readBits(Work& w, const ReadPlan& plan, const std::string& imgName, int* bits, int count,
                 DebugSink& sink, Decision& out);

    std::unique_ptr<SystemPara> record;  // given at construction; copied into para per run
};

QBCODE_VISIBLE_END
