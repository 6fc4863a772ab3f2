#include "gapCalculation.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

cv::Mat asFloat(const cv::Mat& m) {
    if (m.type() == CV_32F || m.empty()) return m;
    cv::Mat out;
    if (m.channels() == 1) m.convertTo(out, CV_32F);
    return out;
}

// Angles in order of decreasing score into idx; 0, or the error value for unusable inputs.
float anglesByScore(const cv::Mat& scores, const cv::Mat& peakTable, cv::Mat& idx) {
    // Each shape check passes when either dimension matches.
    if (!(scores.rows == 1 || scores.cols == 180)) return -311.0f;
    if (!(peakTable.rows == 180 || peakTable.cols == 20)) return -312.0f;
    const cv::Mat s = asFloat(scores);
    if (s.empty() || s.channels() != 1) return -313.0f;
    cv::sortIdx(s, idx, cv::SORT_EVERY_ROW | cv::SORT_DESCENDING);
    return 0.f;
}

// Median of all candidates, the band of 3 pixels around it, median of the band, times 2/sqrt(3).
float spacingFromCandidates(gapCalculation& calc, std::vector<float>& candidates) {
    const float g = calc.gap_median_cal(candidates);
    if (g <= 0.f) return -313.0f;
    std::vector<float> kept;
    for (float c : candidates)
        if (std::fabs(c - g) < 3.0) kept.push_back(c);
    return static_cast<float>(calc.gap_median_cal(kept) * 1.1547);
}

}  // namespace

void gapCalculation::get_gap_candidates(std::vector<float>& out, const cv::Mat& peakTable,
                                        int row) {
    if (row < 0 || row >= peakTable.rows || peakTable.channels() != 1) return;
    const cv::Mat table = asFloat(peakTable);
    const float* p = table.ptr<float>(row);
    for (int i = 0; i + 1 < table.cols; ++i)
        if (p[i + 1] > 0) out.push_back(std::fabs(p[i] - p[i + 1]));
}

float gapCalculation::gap_median_cal(std::vector<float>& v) {
    if (v.empty()) return -1.0f;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    if (n % 2 == 1) return v[n / 2];
    return static_cast<float>((v[n / 2 - 1] + v[n / 2]) * 0.5);
}

float gapCalculation::gap_mean_cal(std::vector<float>& v) {
    if (v.empty()) return std::numeric_limits<float>::quiet_NaN();
    // The running sum is truncated to int after every element; the loss is part of the result.
    int sum = 0;
    for (float x : v) {
        const float s = static_cast<float>(sum) + x;
        if (s != s)
            sum = 0;
        else if (s >= 2147483648.f)
            sum = std::numeric_limits<int>::max();
        else if (s < -2147483648.f)
            sum = std::numeric_limits<int>::min();
        else
            sum = static_cast<int>(s);
    }
    return static_cast<float>(sum) / static_cast<float>(v.size());
}

float gapCalculation::gap_cal_M2(cv::Mat scores, cv::Mat peakTable) {
    cv::Mat idx;
    const float error = anglesByScore(scores, peakTable, idx);
    if (error < 0.f) return error;
    const int t1 = idx.at<int>(0, 0);
    int t2, t3;
    if (t1 < 60) {
        t2 = t1 + 60;
        t3 = t1 + 120;
    } else if (t1 < 120) {
        t2 = t1 - 60;
        t3 = t1 + 60;
    } else {
        t2 = t1 - 60;
        t3 = t1 - 120;
    }
    std::vector<float> candidates;
    get_gap_candidates(candidates, peakTable, t1);
    get_gap_candidates(candidates, peakTable, t2);
    get_gap_candidates(candidates, peakTable, t3);
    return spacingFromCandidates(*this, candidates);
}

float gapCalculation::gap_cal(cv::Mat scores, cv::Mat peakTable) {
    cv::Mat idx;
    const float error = anglesByScore(scores, peakTable, idx);
    if (error < 0.f) return error;
    // Up to four angles, each more than 25 degrees (as directions, modulo 180) from those
    // already picked; fewer when the row runs out.
    std::vector<int> picked;
    for (int i = 0; i < idx.cols && picked.size() < 4; ++i) {
        const int t = idx.at<int>(0, i);
        bool apart = true;
        for (int p : picked) {
            const int d = std::abs(t - p) % 180;
            if (std::min(d, 180 - d) <= 25) apart = false;
        }
        if (apart) picked.push_back(t);
    }
    std::vector<float> candidates;
    for (int t : picked) get_gap_candidates(candidates, peakTable, t);
    return spacingFromCandidates(*this, candidates);
}
