#include "SystemPara.h"

#include <functional>
#include <utility>

#include <opencv2/core.hpp>

namespace {

using Reader = std::function<void(const cv::FileNode&)>;
using KeyList = std::vector<std::pair<const char*, Reader>>;

Reader intKey(int& field) {
    return [&field](const cv::FileNode& n) { cv::read(n, field, 0); };
}
Reader floatKey(float& field) {
    return [&field](const cv::FileNode& n) { cv::read(n, field, 0.f); };
}
Reader doubleKey(double& field) {
    return [&field](const cv::FileNode& n) { cv::read(n, field, 0.0); };
}
Reader stringKey(std::string& field) {
    return [&field](const cv::FileNode& n) {
        cv::String s;
        cv::read(n, s, "");
        field = s;
    };
}
// The pre-processing switches live in the file as integers.
Reader boolKey(bool& field) {
    return [&field](const cv::FileNode& n) {
        int v = 0;
        cv::read(n, v, 0);
        field = v > 0;
    };
}
Reader floatSeqKey(std::vector<float>& field) {
    return [&field](const cv::FileNode& n) {
        if (n.isSeq()) {
            field.resize(n.size());
            for (size_t i = 0; i < field.size(); ++i)
                cv::read(n[static_cast<int>(i)], field[i], 0.f);
        } else if (n.isInt() || n.isReal()) {
            field.assign(1, 0.f);
            cv::read(n, field[0], 0.f);
        } else {
            field.clear();
        }
    };
}

}  // namespace

SystemPara::SystemPara(std::string path) : paramPath(std::move(path)) {}

const std::vector<std::string>& SystemPara::sectionNames() {
    static const std::vector<std::string> names = {
        "LoadImages",      "AlgPipeline",        "PrintAnalPipeline", "ImageProcess",
        "PatternRotation", "PatternFeatures",    "DotsTracking",      "GeneratePoints",
        "BlobAnalysis",    "PrintScoreCalculate"};
    return names;
}

namespace {

// Parsing may throw on malformed YAML; the caller treats that as an unreadable file.
bool openSource(cv::FileStorage& fs, const std::string& path, const std::string& text) {
    if (text.empty())
        fs.open(path, cv::FileStorage::READ);
    else
        fs.open(text, cv::FileStorage::READ | cv::FileStorage::MEMORY);
    return fs.isOpened();
}

int readKeys(const cv::FileStorage& fs, const std::string& section, KeyList& keys) {
    if (keys.empty()) return -1;
    cv::FileNode node = fs[section];
    if (node.empty()) return -2;
    for (auto& key : keys) {
        cv::FileNode value = node[key.first];
        if (value.empty()) return -2;
        key.second(value);
    }
    return 1;
}

}  // namespace

void SystemPara::loadAll() {
    std::map<std::string, int> results;
    loaded.clear();
    try {
        cv::FileStorage fs;
        const bool open = openSource(fs, paramPath, paramText);
        for (const std::string& section : sectionNames()) {
            KeyList keys = keysFor(section);
            results[section] = open ? readKeys(fs, section, keys) : -1;
        }
    } catch (const cv::Exception&) {
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
    // A malformed file makes OpenCV throw; the host sees it as unreadable.
    try {
        cv::FileStorage fs;
        if (!openSource(fs, paramPath, paramText)) return -1;
        return readKeys(fs, section, keys);
    } catch (const cv::Exception&) {
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
    }

    return keys;
}
