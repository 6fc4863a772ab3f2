// Parameter record of one recognition run, filled section by section from the YAML file.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

namespace cv {
class FileNode;
}

class SystemPara {
public:
    explicit SystemPara(std::string path = std::string());

    // 1 when the whole section was read, -1 for an unreadable file or an unknown
    // section, -2 when the section or one of its keys is missing (keys before it stay).
    // A file refused before parsing gives its status (-700 to -702, ParamFile.h); a key of
    // the wrong type ends the section like a missing one with -703 and is named in badKey.
    int readPara(std::string section);
    // Reads every section once and keeps each one's result; readPara then answers from the
    // record without reading again, so fields set in code after loading stay as set.
    void loadAll();
    bool isLoaded() const { return !loaded.empty(); }

    // LoadImages
    int single_multiple_txt = 0;
    // AlgPipeline
    int debug = 0;
    int isShowImg = 0;
    int isWriteImg = 0;
    int opencv10Imgproc = 0;
    float dc = 0.f;
    int opencv10Rot = 0;
    int imwriteOverlay = 0;
    std::string savePath;
    int ctpointFlag = 0;
    int doQualityCheck = 0;
    int isWriteData = 0;
    int isOnlineReg = 0;
    int layer = 0;
    // PrintAnalPipeline
    int print_debug = 0;
    int print_isWriteImg = 0;
    int print_isWriteOverlay = 0;
    std::string print_savePath;
    double print_angle = 0.0;
    int print_layer = 0;
    int print_isWriteData = 0;
    // ImageProcess
    int Sensitivity = 0;
    bool imgSizeRestrict = false;
    int imgPreROI = 0;
    double DnRatio = 0.0;
    std::vector<float> HessianScale;
    std::vector<float> LogScale;
    double Threshold = 0.0;
    double ThImrect = 0.0;
    bool writeImg = false;
    bool writeImg_plugin = false;
    std::string SavePath;
    bool showImg = false;
    bool Debug = false;
    int pluginProc_method = 0;
    // PatternRotation
    float PeakThresh = 0.f;
    int ProjDirect = 0;
    int filterWidth = 0;
    int RotationFlag = 0;
    int RotationNum = 0;
    int coarse_fine = 0;
    // PatternFeatures
    int feat_Debug = 0;
    float gapDelta = 0.5f;
    int feat_writeImg = 0;
    std::string feat_savePath;
    float img_padding = 0.f;
    // DotsTracking
    float boxRatio = 0.2f;
    int track_Debug = 0;
    // GeneratePoints
    std::string PatternType;
    // BlobAnalysis
    int blob_isWriteImg = 0;
    std::string blob_savePath;
    // PrintScoreCalculate
    double totalAreaScore = 0.0;
    double totalIntenScore = 0.0;
    double totalRoundScore = 0.0;
    double totalCentScore = 0.0;
    double totalRotBoxScore = 0.0;
    double totalLabelScore = 0.0;
    double punishPointConnecting = 0.0;
    double punishPointMissing = 0.0;
    // Verification (absent from older files: nothing is refused then)
    int verify_enabled = 0;
    float verify_blankFill = 0.05f;
    int verify_inside = 1;
    float verify_edgeMargin = 0.2f;
    int verify_markers = 1;
    float verify_matchRadius = 0.33f;
    int verify_maxMissing = 0;
    float verify_maxResidual = 0.15f;
    int verify_maxCrowded = -1;
    int verify_smallDots = 0;
    float verify_smoothLight = 0.f;  // spacings; 0: the levels nearby are medians only
    int verify_maxUnexplained = 0;
    // Weakest position confidence a read may have; below -1 (a file without the key) no read is
    // refused for it.
    float verify_minConfidence = -2.0f;
    // Camera (absent from older files: one read, bright dots, the crop as cut)
    int cam_polarity = 0;  // 0 bright dots, 1 dark dots, 2 decided per frame
    int cam_retryPolarity = 0;
    std::vector<float> cam_retryRatios;
    int cam_padCrop = 0;
    int cam_refineGrid = 0;
    std::vector<float> cam_spacingRange;  // downsampled px; empty: no size rule
    float cam_frameMargin = 0.f;          // spacings from the frame's edge; 0: no check
    // Detection (absent from older files: the region the clustering names, read at every try)
    int det_minDots = 12;
    float det_agree = 0.5f;
    float det_symmetry = 0.3f;
    float det_inversion = 0.2f;
    int det_maxViews = 4;
    int det_maxCandidates = 8;
    int det_maxRefused = 1;
    float det_angleWindow = 0.f;
    int det_centreFromDots = 0;
    int det_smallCodes = 0;
    int det_fastPath = 0;

    std::string paramPath;
    // YAML text held in memory; when not empty it is read instead of the file at paramPath.
    std::string paramText;
    // readPara's result per section once loadAll has run.
    std::map<std::string, int> loaded;
    // "Section.key" (or "Section") of the first value of the wrong YAML type; empty when none.
    std::string badKey;

    static const std::vector<std::string>& sectionNames();

private:
    using KeyList = std::vector<std::pair<const char*, std::function<bool(const cv::FileNode&)>>>;
    // The keys of a section in file order, each bound to its field; empty for an unknown name.
    KeyList keysFor(const std::string& section);
};

QBCODE_VISIBLE_END
