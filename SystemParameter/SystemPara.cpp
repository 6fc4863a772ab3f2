#include "SystemPara.h"

#include <exception>
#include <functional>
#include <utility>

#include <opencv2/core.hpp>

#include "ParamFile.h"
#include "qbcode_status.h"

namespace {

using Reader = std::function<bool(const cv::FileNode&)>;
using KeyList = std::vector<std::pair<const char*, Reader>>;

// A key of the wrong YAML type is refused instead of read as OpenCV's INT_MAX or FLT_MAX.
bool isNumber(const cv::FileNode& n) {
    return n.isInt() || n.isReal();
}
bool isInteger(const cv::FileNode& n) {
    if (n.isInt()) return true;
    if (!n.isReal()) return false;
    const double v = n.real();
    return v >= -2147483648.0 && v < 2147483647.5;  // cvRound of a finite value in int range
}

Reader intKey(int& field) {
    return [&field](const cv::FileNode& n) {
        if (!isInteger(n)) return false;
        cv::read(n, field, 0);
        return true;
    };
}
Reader floatKey(float& field) {
    return [&field](const cv::FileNode& n) {
        if (!isNumber(n)) return false;
        cv::read(n, field, 0.f);
        return true;
    };
}
Reader doubleKey(double& field) {
    return [&field](const cv::FileNode& n) {
        if (!isNumber(n)) return false;
        cv::read(n, field, 0.0);
        return true;
    };
}
Reader stringKey(std::string& field) {
    return [&field](const cv::FileNode& n) {
        if (!n.isString()) return false;
        cv::String s;
        cv::read(n, s, "");
        field = s;
        return true;
    };
}
// The pre-processing switches live in the file as integers.
Reader boolKey(bool& field) {
    return [&field](const cv::FileNode& n) {
        if (!isInteger(n)) return false;
        int v = 0;
        cv::read(n, v, 0);
        field = v > 0;
        return true;
    };
}
Reader floatSeqKey(std::vector<float>& field) {
    return [&field](const cv::FileNode& n) {
        if (isNumber(n)) {
            field.assign(1, 0.f);
            cv::read(n, field[0], 0.f);
            return true;
        }
        if (!n.isSeq()) return false;
        // One pass with the iterator: indexing a sequence walks it from the start each time.
        std::vector<float> values;
        values.reserve(n.size());
        for (const cv::FileNode& e : n) {
            if (!isNumber(e)) return false;
            values.push_back(0.f);
            cv::read(e, values.back(), 0.f);
        }
        field = std::move(values);
        return true;
    };
}

}  // namespace

SystemPara::SystemPara(std::string path) : paramPath(std::move(path)) {}

const std::vector<std::string>& SystemPara::sectionNames() {
    static const std::vector<std::string> names = {
        "LoadImages",      "AlgPipeline",         "PrintAnalPipeline", "ImageProcess",
        "PatternRotation", "PatternFeatures",     "DotsTracking",      "GeneratePoints",
        "BlobAnalysis",    "PrintScoreCalculate", "Verification",      "Camera",
        "Detection"};
    return names;
}

namespace {

// 0 when fs is open, else -1 or the refusal status of the file. The text is checked before the
// parser sees it; parsing may still throw on malformed YAML, which callers take as unreadable.
int openSource(cv::FileStorage& fs, const std::string& path, const std::string& text) {
    std::string fileText;
    const std::string* source = &text;
    if (text.empty()) {
        const int r = qbcode::paramfile::readFile(path, fileText);
        if (r < 0) return r;
        source = &fileText;
    }
    const int r = qbcode::paramfile::checkText(*source);
    if (r < 0) return r;
    if (source->empty()) return -1;
    fs.open(*source, cv::FileStorage::READ | cv::FileStorage::MEMORY);
    return fs.isOpened() ? 0 : -1;
}

int readKeys(const cv::FileStorage& fs, const std::string& section, KeyList& keys,
             std::string& badKey) {
    if (keys.empty()) return -1;
    cv::FileNode node = fs[section];
    if (node.empty()) return -2;
    if (!node.isMap()) {
        if (badKey.empty()) badKey = section;
        return QBCODE_PARAM_TYPE;
    }
    for (auto& key : keys) {
        // A name starting with '?' is a key added later: a file without it keeps its meaning.
        const bool optional = key.first[0] == '?';
        const char* name = key.first + (optional ? 1 : 0);
        cv::FileNode value = node[name];
        if (value.empty()) {
            if (optional) continue;
            return -2;
        }
        if (!key.second(value)) {
            if (badKey.empty()) badKey = section + "." + name;
            return QBCODE_PARAM_TYPE;
        }
    }
    return 1;
}

}  // namespace

void SystemPara::loadAll() {
    std::map<std::string, int> results;
    loaded.clear();
    badKey.clear();
    try {
        cv::FileStorage fs;
        const int open = openSource(fs, paramPath, paramText);
        for (const std::string& section : sectionNames()) {
            KeyList keys = keysFor(section);
            results[section] = open == 0 ? readKeys(fs, section, keys, badKey) : open;
        }
    } catch (const std::exception&) {
        for (const std::string& section : sectionNames()) results[section] = -1;
    }
    loaded = std::move(results);
}

int SystemPara::readPara(std::string section) {
    if (!loaded.empty()) {
        const auto it = loaded.find(section);
        return it == loaded.end() ? -1 : it->second;
    }
    KeyList keys = keysFor(section);
    // A malformed file makes OpenCV throw (its own errors, and std::length_error for some
    // broken strings); the host sees it as unreadable.
    try {
        cv::FileStorage fs;
        const int open = openSource(fs, paramPath, paramText);
        if (open < 0) return open;
        return readKeys(fs, section, keys, badKey);
    } catch (const std::exception&) {
        return -1;
    }
}

KeyList SystemPara::keysFor(const std::string& section) {
    KeyList keys;
    if (section == "LoadImages") {
        keys = {{"single_multiple_txt", intKey(single_multiple_txt)}};
    } else if (section == "AlgPipeline") {
        keys = {{"debug", intKey(debug)},
                {"isShowImg", intKey(isShowImg)},
                {"isWriteImg", intKey(isWriteImg)},
                {"opencv10Imgproc", intKey(opencv10Imgproc)},
                {"opencv10Rot", intKey(opencv10Rot)},
                {"dc", floatKey(dc)},
                {"savePath", stringKey(savePath)},
                {"imwriteOverlay", intKey(imwriteOverlay)},
                {"ctpointFlag", intKey(ctpointFlag)},
                {"doQualityCheck", intKey(doQualityCheck)},
                {"isWriteData", intKey(isWriteData)},
                {"isOnlineReg", intKey(isOnlineReg)},
                {"layer", intKey(layer)}};
    } else if (section == "PrintAnalPipeline") {
        keys = {{"debug", intKey(print_debug)},
                {"isWriteImg", intKey(print_isWriteImg)},
                {"isWriteOverlay", intKey(print_isWriteOverlay)},
                {"savePath", stringKey(print_savePath)},
                {"angle", doubleKey(print_angle)},
                {"layer", intKey(print_layer)},
                {"isWriteData", intKey(print_isWriteData)}};
    } else if (section == "ImageProcess") {
        keys = {{"imgPreROI", intKey(imgPreROI)},
                {"DnRatio", doubleKey(DnRatio)},
                {"HessianScale", floatSeqKey(HessianScale)},
                {"LogScale", floatSeqKey(LogScale)},
                {"Threshold", doubleKey(Threshold)},
                {"ThImrect", doubleKey(ThImrect)},
                {"SavePath", stringKey(SavePath)},
                {"showImg", boolKey(showImg)},
                {"writeImg", boolKey(writeImg)},
                {"writeImg_plugin", boolKey(writeImg_plugin)},
                {"Debug", boolKey(Debug)},
                {"imgSizeRestrict", boolKey(imgSizeRestrict)},
                {"Sensitivity", intKey(Sensitivity)},
                {"pluginProc_method", intKey(pluginProc_method)}};
    } else if (section == "PatternRotation") {
        keys = {{"PeakThresh", floatKey(PeakThresh)}, {"ProjDirect", intKey(ProjDirect)},
                {"filterWidth", intKey(filterWidth)}, {"RotationFlag", intKey(RotationFlag)},
                {"RotationNum", intKey(RotationNum)}, {"coarse_fine", intKey(coarse_fine)}};
    } else if (section == "PatternFeatures") {
        keys = {{"writeImg", intKey(feat_writeImg)},
                {"savePath", stringKey(feat_savePath)},
                {"Debug", intKey(feat_Debug)},
                {"gapDelta", floatKey(gapDelta)},
                {"img_padding", floatKey(img_padding)}};
    } else if (section == "DotsTracking") {
        keys = {{"boxRatio", floatKey(boxRatio)}, {"Debug", intKey(track_Debug)}};
    } else if (section == "GeneratePoints") {
        keys = {{"PatternType", stringKey(PatternType)}};
    } else if (section == "BlobAnalysis") {
        keys = {{"isWriteImg", intKey(blob_isWriteImg)}, {"savePath", stringKey(blob_savePath)}};
    } else if (section == "PrintScoreCalculate") {
        keys = {{"totalAreaScore", doubleKey(totalAreaScore)},
                {"totalIntenScore", doubleKey(totalIntenScore)},
                {"totalRoundScore", doubleKey(totalRoundScore)},
                {"totalCentScore", doubleKey(totalCentScore)},
                {"totalRotBoxScore", doubleKey(totalRotBoxScore)},
                {"totalLabelScore", doubleKey(totalLabelScore)},
                {"punishPointConnecting", doubleKey(punishPointConnecting)},
                {"punishPointMissing", doubleKey(punishPointMissing)}};
    } else if (section == "Verification") {
        keys = {{"enabled", intKey(verify_enabled)},
                {"blankFill", floatKey(verify_blankFill)},
                {"inside", intKey(verify_inside)},
                {"edgeMargin", floatKey(verify_edgeMargin)},
                {"markers", intKey(verify_markers)},
                {"matchRadius", floatKey(verify_matchRadius)},
                {"maxMissing", intKey(verify_maxMissing)},
                {"maxResidual", floatKey(verify_maxResidual)},
                {"?maxCrowded", intKey(verify_maxCrowded)},
                {"?smallDots", intKey(verify_smallDots)},
                {"?smoothLight", floatKey(verify_smoothLight)},
                {"maxUnexplained", intKey(verify_maxUnexplained)},
                {"?minConfidence", floatKey(verify_minConfidence)}};
    } else if (section == "Camera") {
        keys = {{"polarity", intKey(cam_polarity)},
                {"retryPolarity", intKey(cam_retryPolarity)},
                {"retryRatios", floatSeqKey(cam_retryRatios)},
                {"padCrop", intKey(cam_padCrop)},
                {"refineGrid", intKey(cam_refineGrid)},
                {"spacingRange", floatSeqKey(cam_spacingRange)},
                {"frameMargin", floatKey(cam_frameMargin)}};
    } else if (section == "Detection") {
        keys = {{"minDots", intKey(det_minDots)},
                {"agree", floatKey(det_agree)},
                {"symmetry", floatKey(det_symmetry)},
                {"inversion", floatKey(det_inversion)},
                {"maxViews", intKey(det_maxViews)},
                {"maxCandidates", intKey(det_maxCandidates)},
                {"maxRefused", intKey(det_maxRefused)},
                {"?angleWindow", floatKey(det_angleWindow)},
                {"?centreFromDots", intKey(det_centreFromDots)},
                {"?smallCodes", intKey(det_smallCodes)},
                {"?fastPath", intKey(det_fastPath)}};
    }

    return keys;
}
