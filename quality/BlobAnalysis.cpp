#include "BlobAnalysis.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <limits>
#include <memory>

#include <opencv2/imgproc.hpp>

#include "DebugImage.h"
#include "SystemPara.h"
#include "bwlabel1.h"

namespace {

const int kNoRecord = -603;
const int kNoSection = -602;
const int kBadInput = -505;
const double kFourPi = 12.566370614359172;

// Record of one blob with its centroid and box blocks; nothing leaks if an allocation fails.
DotAttribute* newRecord() {
    auto record = std::make_unique<DotAttribute>();
    auto centroid = std::make_unique<cv::Point2d>(0.0, 0.0);
    auto box = std::make_unique<cv::RotatedRect>();
    record->label = -1;
    record->centroid = centroid.release();
    record->rotBox = box.release();
    return record.release();
}

void deleteRecord(DotAttribute* record) {
    if (record == nullptr) return;
    delete record->centroid;
    delete record->rotBox;
    delete record;
}

// Single-channel 8-bit view of an image; values outside 0..255 saturate.
cv::Mat asBytes(const cv::Mat& img) {
    if (img.type() == CV_8UC1) return img;
    cv::Mat out;
    img.convertTo(out, CV_8U, 1.0, 0.0);
    return out;
}

double intensityIn(const cv::Mat& labels, const cv::Mat& grey, int label, const cv::Rect& area) {
    std::vector<uchar> values;
    for (int r = area.y; r < area.y + area.height; ++r) {
        const uchar* l = labels.ptr<uchar>(r);
        const uchar* g = grey.ptr<uchar>(r);
        for (int c = area.x; c < area.x + area.width; ++c)
            if (l[c] == label) values.push_back(g[c]);
    }
    const size_t k = static_cast<size_t>(static_cast<double>(values.size()) * 0.7);
    if (k == 0) return std::numeric_limits<double>::quiet_NaN();
    std::sort(values.begin(), values.end(), std::greater<uchar>());
    double sum = 0.0;
    for (size_t i = 0; i < k; ++i) sum += values[i];
    return sum / static_cast<double>(k);
}

int clampIndex(int v, int last) {
    return std::max(0, std::min(v, last));
}

// Rounds to the nearest pixel the way the window arithmetic does, without overflowing.
int toPixel(double v) {
    const double limit = 1.0e9;
    return static_cast<int>(std::max(-limit, std::min(limit, v)));
}

bool finiteBox(const cv::RotatedRect& b) {
    return std::isfinite(b.center.x) && std::isfinite(b.center.y) && std::isfinite(b.size.width) &&
           std::isfinite(b.size.height) && std::isfinite(b.angle);
}

// An ellipse needs five points; fewer, or a fit that fails, falls back to the minimal box.
cv::RotatedRect boxOf(const std::vector<cv::Point>& contour) {
    if (contour.size() >= 5) {
        try {
            const cv::RotatedRect e = cv::fitEllipse(contour);
            if (finiteBox(e)) return e;
        } catch (const cv::Exception&) {
        }
    }
    return cv::minAreaRect(contour);
}

}  // namespace

BlobAnalysis::~BlobAnalysis() {
    releaseRecords();
    for (DotAttribute* r : retired_) deleteRecord(r);
}

void BlobAnalysis::releaseRecords() {
    for (DotAttribute* r : dots) deleteRecord(r);
    dots.clear();
}

int BlobAnalysis::Initialize() {
    if (sysPara == nullptr) return kNoRecord;
    if (sysPara->readPara("BlobAnalysis") < 0) return kNoSection;
    isWriteImg = sysPara->blob_isWriteImg;
    savePath = sysPara->blob_savePath;
    maxValue = 255.0;
    return 0;
}

cv::Mat BlobAnalysis::histc(cv::Mat_<int> labels) {
    cv::Mat hist = cv::Mat::zeros(254, 1, CV_32S);
    int* bins = hist.ptr<int>();
    auto count = [bins](int v) {
        if (v > 0) ++bins[v > 253 ? 253 : v];
    };
    if (labels.dims == 2) {
        for (int r = 0; r < labels.rows; ++r) {
            const int* p = labels[r];
            for (int c = 0; c < labels.cols; ++c) count(p[c]);
        }
    } else if (labels.isContinuous()) {
        const int* p = labels.ptr<int>();
        for (size_t i = 0; i < labels.total(); ++i) count(p[i]);
    }
    return hist;
}

double BlobAnalysis::dotIntensityCal(const cv::Mat& labels, const cv::Mat& grey, int label) {
    if (labels.dims != 2 || grey.dims != 2 || labels.channels() != 1 || grey.channels() != 1)
        return std::numeric_limits<double>::quiet_NaN();
    const cv::Mat l = asBytes(labels), g = asBytes(grey);
    const cv::Rect common(0, 0, std::min(l.cols, g.cols), std::min(l.rows, g.rows));
    return intensityIn(l, g, label, common);
}

int BlobAnalysis::bwlabel1(const cv::Mat& src, cv::Mat& dst, double value) {
    return ::bwlabel1(src, dst, value);
}

int BlobAnalysis::blob_analysis(const cv::Mat& binary, const cv::Mat& grey, const cv::Mat& points,
                                std::vector<DotAttribute*> out) {
    const int init = Initialize();
    if (init < 0) return init;
    try {
        return analyse(binary, grey, points, out);
    } catch (const std::exception&) {
        // Memory exhausted or an OpenCV failure the checks did not foresee.
        return kBadInput;
    }
}

int BlobAnalysis::analyse(const cv::Mat& binary, const cv::Mat& grey, const cv::Mat& points,
                          std::vector<DotAttribute*>& out) {
    if (binary.empty() || binary.dims != 2 || binary.channels() != 1) return kBadInput;
    if (grey.empty() || grey.dims != 2 || grey.channels() != 1 || grey.size() != binary.size())
        return kBadInput;
    double lowest = 0.0;
    cv::minMaxLoc(binary, &lowest, nullptr);
    if (lowest < 0.0) return kBadInput;
    cv::minMaxLoc(grey, &lowest, nullptr);
    if (lowest < 0.0) return kBadInput;

    // Grid: (x, y) per row, or per column when the matrix lies the other way.
    if (points.empty() || points.dims != 2 || points.channels() != 1) return kBadInput;
    cv::Mat grid;
    points.convertTo(grid, CV_64F);
    const bool byRow = grid.cols == 2;
    if (!byRow && grid.rows != 2) return kBadInput;
    const int positions = byRow ? grid.rows : grid.cols;
    if (positions < 2) return kBadInput;
    auto pointAt = [&grid, byRow](int i) {
        return byRow ? cv::Point2d(grid.at<double>(i, 0), grid.at<double>(i, 1))
                     : cv::Point2d(grid.at<double>(0, i), grid.at<double>(1, i));
    };

    // A second run keeps the first run's records alive for the copies that point into them.
    retired_.insert(retired_.end(), dots.begin(), dots.end());
    dots.clear();

    const cv::Mat bin = asBytes(binary);
    const cv::Mat grey8 = asBytes(grey);
    cv::Mat labels32, stats, centres;
    const int count = cv::connectedComponentsWithStats(bin, labels32, stats, centres, 8, CV_32S);
    labels32.convertTo(labelImg, CV_8U, 1.0, 0.0);
    cv::Mat debugImg;
    if (isWriteImg == 1) {
        cv::Mat colour;
        cv::cvtColor(grey8, colour, cv::COLOR_GRAY2BGR);
        // Drawn at twice the size so that the annotations stay readable.
        cv::resize(colour, debugImg, cv::Size(), 2.0, 2.0, cv::INTER_NEAREST);
    }
    dots.reserve(count > 1 ? static_cast<size_t>(count - 1) : 0);
    for (int i = 1; i < count; ++i) dots.push_back(newRecord());

    measureBlobs(bin, grey8, stats, debugImg);

    const cv::Point2d p0 = pointAt(0), p1 = pointAt(1);
    const double d = std::hypot(p0.x - p1.x, p0.y - p1.y) / 3.0;
    const int lastCol = labelImg.cols - 1, lastRow = labelImg.rows - 1;
    int matched = 0;
    for (int i = 0; i < positions; ++i) {
        const cv::Point2d p = pointAt(i);
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(d)) continue;
        int x1 = toPixel(p.x - d + 0.5), x2 = toPixel(p.x + d + 0.5);
        int y1 = toPixel(p.y - d + 0.5), y2 = toPixel(p.y + d + 0.5);
        x1 = std::max(x1, 0);
        y1 = std::max(y1, 0);
        x2 = std::min(x2, lastCol);
        y2 = std::min(y2, lastRow);
        if (!(x1 < x2 && y1 < y2)) continue;
        const cv::Rect window(x1, y1, x2 - x1, y2 - y1);
        if (!debugImg.empty())
            cv::rectangle(debugImg, cv::Rect(2 * x1, 2 * y1, 2 * window.width, 2 * window.height),
                          cv::Scalar(0, 0, 255), 1);

        const cv::Mat hist = histc(labelImg(window));
        double best = 0.0;
        cv::Point bin;
        cv::minMaxLoc(hist, nullptr, &best, nullptr, &bin);
        const int L = bin.y - 1;
        const bool hit =
            best != 0.0 && bin.y > 0 && best > 0.6 * d * d && L < static_cast<int>(dots.size());
        if (hit) {
            DotAttribute* blob = dots[L];
            const double cx = blob->centroid->x, cy = blob->centroid->y;
            blob->distance = (cx > 0 && cy > 0)
                                 ? std::sqrt((p.x - cx) * (p.x - cx) + (p.y - cy) * (p.y - cy))
                                 : 0.0;
            blob->label = L;
            if (i < static_cast<int>(out.size()) && out[i] != nullptr) {
                *out[i] = *blob;
                out[i]->found = 1;
            }
            ++matched;
        }
        if (!debugImg.empty()) {
            if (hit) {
                cv::Point2f corners[4];
                dots[L]->rotBox->points(corners);
                for (int k = 0; k < 4; ++k) {
                    const cv::Point2f& a = corners[k];
                    const cv::Point2f& b = corners[(k + 1) % 4];
                    cv::line(debugImg, cv::Point(lrintf(2 * a.x), lrintf(2 * a.y)),
                             cv::Point(lrintf(2 * b.x), lrintf(2 * b.y)), cv::Scalar(0, 0, 255));
                }
            }
            const cv::Point at(toPixel(2 * p.x + 0.5), toPixel(2 * p.y + 0.5));
            cv::circle(debugImg, at, 2, cv::Scalar(0, 255, 0), 1);
            char number[16];
            std::snprintf(number, sizeof(number), "%d", i);
            cv::putText(debugImg, number, at + cv::Point(3, -3), cv::FONT_HERSHEY_PLAIN, 0.8,
                        cv::Scalar(255, 200, 0), 1);
        }
    }
    if (!debugImg.empty()) debugWrite(savePath + "printQaullity_" + imgName + ".jpg", debugImg);
    return matched;
}

void BlobAnalysis::measureBlobs(const cv::Mat& bin, const cv::Mat& grey8, const cv::Mat& stats,
                                cv::Mat& debugImg) {
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(bin, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    const int lastCol = labelImg.cols - 1, lastRow = labelImg.rows - 1;
    // The 8-bit label of a blob is unique below 255, so its bounding box holds all its pixels;
    // 255 stands for every label from 255 up and needs the whole image. Cached per label.
    std::vector<double> intensity(256, 0.0);
    std::vector<bool> known(256, false);
    auto intensityOf = [&](int label) {
        if (!known[label]) {
            cv::Rect area(0, 0, labelImg.cols, labelImg.rows);
            if (label < 255 && label < stats.rows)
                area = cv::Rect(stats.at<int>(label, cv::CC_STAT_LEFT),
                                stats.at<int>(label, cv::CC_STAT_TOP),
                                stats.at<int>(label, cv::CC_STAT_WIDTH),
                                stats.at<int>(label, cv::CC_STAT_HEIGHT));
            intensity[label] = intensityIn(labelImg, grey8, label, area);
            known[label] = true;
        }
        return intensity[label];
    };

    for (const auto& contour : contours) {
        const cv::Moments m = cv::moments(contour);
        if (m.m00 == 0) continue;
        const double cx = m.m10 / m.m00, cy = m.m01 / m.m00;
        const int col = clampIndex(toPixel(cx + 0.5), lastCol);
        const int row = clampIndex(toPixel(cy + 0.5), lastRow);
        // A centroid in a hole (a ring-shaped dot) is retried two pixels away.
        const cv::Point probes[5] = {
            {col, row}, {col - 2, row}, {col + 2, row}, {col, row - 2}, {col, row + 2}};
        int label = 0;
        for (const cv::Point& q : probes) {
            label = labelImg.at<uchar>(clampIndex(q.y, lastRow), clampIndex(q.x, lastCol));
            if (label != 0) break;
        }
        if (label == 0 || label - 1 >= static_cast<int>(dots.size())) continue;

        DotAttribute* rec = dots[label - 1];
        *rec->centroid = cv::Point2d(cx, cy);
        rec->area = m.m00;
        const double perimeter = cv::arcLength(contour, true);
        rec->roundness = kFourPi * rec->area / (perimeter * perimeter);
        rec->intensity = intensityOf(label);
        *rec->rotBox = boxOf(contour);

        if (!debugImg.empty()) {
            const cv::Scalar colour(rand() % 256, rand() % 256, rand() % 256);
            std::vector<std::vector<cv::Point>> twice(1, contour);
            for (cv::Point& q : twice[0]) q *= 2;
            cv::drawContours(debugImg, twice, 0, colour, 1);
            cv::circle(debugImg, cv::Point(toPixel(2 * cx + 0.5), toPixel(2 * cy + 0.5)), 1, colour,
                       1);
        }
    }
}
