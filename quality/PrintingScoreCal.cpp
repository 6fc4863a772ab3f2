#include "PrintingScoreCal.h"

#include <cmath>

#include "SystemPara.h"

namespace {

const int kNoSection = -801;

// The table as CV_64F with at least eight columns, or empty when it cannot be one.
cv::Mat asTable(const cv::Mat& table) {
    if (table.empty() || table.dims != 2 || table.channels() != 1 || table.cols < 8)
        return cv::Mat();
    if (table.type() == CV_64FC1) return table;
    cv::Mat out;
    table.convertTo(out, CV_64F);
    return out;
}

}  // namespace

int PrintingScoreCal::Initialize() {
    if (sysPara == nullptr || sysPara->readPara("PrintScoreCalculate") < 0) return kNoSection;
    totalAreaScore = sysPara->totalAreaScore;
    totalIntenScore = sysPara->totalIntenScore;
    totalRoundScore = sysPara->totalRoundScore;
    totalCentScore = sysPara->totalCentScore;
    totalRotBoxScore = sysPara->totalRotBoxScore;
    totalLabelScore = sysPara->totalLabelScore;
    punishPointConnecting = sysPara->punishPointConnecting;
    punishPointMissing = sysPara->punishPointMissing;
    refIntensity = 80.0;
    roundThreshold = 0.8;
    areaScore = intenScore = roundScore = centScore = rotBoxScore = labelScore = 0.0;
    connectCount = 0.0;
    dotCount = 0;
    return 0;
}

double PrintingScoreCal::area_scoreCal(double area) {
    const double n = static_cast<double>(dotCount);
    const double expected = 3.1415 * (0.3 * gap) * (0.3 * gap);
    const double x = std::fabs(area - expected) / (gap / 0.4);
    // The exponent grows with the spacing: large codes are graded more sharply.
    return (totalAreaScore / n) * 1.0 / (std::pow(x, gap / 4) + 1.0);
}

double PrintingScoreCal::intensity_scoreCal(double intensity) {
    const double n = static_cast<double>(dotCount);
    return (totalIntenScore / n) * 1.0 / (std::exp(-0.03 * (intensity - 70.0)) + 1.0);
}

double PrintingScoreCal::centroid_scoreCal(double offset) {
    const double n = static_cast<double>(dotCount);
    const double s = 0.5 * std::sqrt(gap / 3.0);
    return (totalCentScore / n) * std::exp(-(offset * offset) / (2.0 * s * s));
}

double PrintingScoreCal::rotBox_scoreCal(double ratio) {
    const double n = static_cast<double>(dotCount);
    const double x = (ratio - 1.0) / 0.4;
    return (totalRotBoxScore / n) * (1.0 / (std::pow(x, 4.0) + 0.5) - 1.0);
}

void PrintingScoreCal::connectiveness_scoreCalM1(const cv::Mat& table) {
    const cv::Mat t = asTable(table);
    for (int i = 0; i < t.rows; ++i) {
        const double label = t.at<double>(i, 7);
        if (label == -1) continue;
        for (int j = i + 1; j < t.rows; ++j)
            if (t.at<double>(j, 7) == label) connectCount += 1.0;
    }
}

double PrintingScoreCal::connectiveness_scoreCalM2(const cv::Mat& table) {
    const cv::Mat t = asTable(table);
    double score = 0.0;
    for (int i = 0; i < t.rows; ++i) {
        const double label = t.at<double>(i, 7);
        if (label == -1) continue;
        for (int j = i + 1; j < t.rows; ++j) {
            if (t.at<double>(j, 7) == label) {
                score -= punishPointConnecting;
                connectCount += 1.0;
            }
        }
    }
    return totalLabelScore + score;
}

double PrintingScoreCal::run(cv::Mat table, std::vector<double>& scores) {
    // A failed read keeps the previous settings.
    Initialize();
    if (table.rows == 0) return 0.0;
    if (gap < 0) return -1.0;
    // Not a usable table (fewer than eight columns, several channels): nothing to grade.
    const cv::Mat t = asTable(table);
    if (t.empty()) return 0.0;

    dotCount = 0;
    for (int i = 0; i < t.rows; ++i)
        if (t.at<double>(i, 0) > 0) ++dotCount;
    if (dotCount <= 34) return 0.0;

    for (int i = 0; i < t.rows; ++i) {
        const double* row = t.ptr<double>(i);
        if (row[0] == 0) continue;
        areaScore += area_scoreCal(row[0]);
        intenScore += intensity_scoreCal(row[1]);
        if (row[2] > roundThreshold) roundScore += totalRoundScore / dotCount;
        centScore += centroid_scoreCal(row[3]);
        const double width = row[5] < 0.01 ? 0.01 : row[5];
        // An oversized box earns nothing.
        if (row[4] <= 2 * gap / 3) rotBoxScore += rotBox_scoreCal(row[4] / width);
    }
    labelScore = connectiveness_scoreCalM2(t);
    scores.assign({areaScore, intenScore, roundScore, centScore, rotBoxScore, labelScore});
    return areaScore + intenScore + roundScore + centScore + rotBoxScore + labelScore;
}
