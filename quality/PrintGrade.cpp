#include "PrintGrade.h"

#include <algorithm>
#include <cmath>
#include <exception>

#include "AlgPipeline.h"
#include "Reader.h"
#include "PrintingScoreCal.h"
#include "SystemPara.h"
#include "qbcode_reader.hpp"

namespace qbcode {

namespace {

// No path: the reader's search, ending with the defaults built in.
ReaderOptions optionsFor(const std::string& path) {
    return path.empty() ? ReaderOptions::fromDefaultSearch() : ReaderOptions::fromFile(path);
}

int positionsOf(const cv::Mat& points) {
    if (points.dims != 2 || points.channels() != 1) return 0;
    if (points.cols == 2) return points.rows;
    return points.rows == 2 ? points.cols : 0;
}

cv::Point2d pointAt(const cv::Mat& grid, int i) {
    return grid.cols == 2 ? cv::Point2d(grid.at<double>(i, 0), grid.at<double>(i, 1))
                          : cv::Point2d(grid.at<double>(0, i), grid.at<double>(1, i));
}

// Blob analysis, table and score; fills out without clearing what the caller already set.
int gradeDots(const cv::Mat& binary, const cv::Mat& grey, const cv::Mat& points, double gap,
              const SystemPara& loaded, GradeResult& out, const std::string& imageName) {
    if (!(gap > 0.0) || !std::isfinite(gap)) return kGradeBadInput;
    const int n = positionsOf(points);
    if (n < 2) return kGradeBadInput;
    out.gap = gap;

    SystemPara para(loaded);
    PrintingScoreCal score(&para);
    const int init = score.Initialize();
    if (init < 0) return init;
    out.maxArea = score.totalAreaScore;
    out.maxIntensity = score.totalIntenScore;
    out.maxRoundness = score.totalRoundScore;
    out.maxCentroid = score.totalCentScore;
    out.maxRotatedBox = score.totalRotBoxScore;
    out.maxSeparation = score.totalLabelScore;
    out.maxTotal = out.maxArea + out.maxIntensity + out.maxRoundness + out.maxCentroid +
                   out.maxRotatedBox + out.maxSeparation;

    std::vector<DotAttribute> records(static_cast<size_t>(n));
    std::vector<DotAttribute*> slots;
    for (DotAttribute& r : records) {
        r.label = -1;
        slots.push_back(&r);
    }
    cv::Mat table;
    {
        // The records point into the analysis: read them before it goes.
        BlobAnalysis blobs(&para, imageName);
        const int r = blobs.blob_analysis(binary, grey, points, slots);
        if (r < 0) return r;
        table = attributeTable(records);
    }

    cv::Mat grid;
    points.convertTo(grid, CV_64F);
    out.dots.assign(static_cast<size_t>(n), DotGrade());
    out.dotsFound = 0;
    for (int i = 0; i < n; ++i) {
        const double* row = table.ptr<double>(i);
        DotGrade& g = out.dots[i];
        g.position = i;
        g.bit = i < static_cast<int>(out.bits.size()) ? out.bits[i] : -1;
        g.x = pointAt(grid, i).x;
        g.y = pointAt(grid, i).y;
        g.found = records[i].found != 0;
        g.area = row[0];
        g.intensity = row[1];
        g.roundness = row[2];
        g.offset = row[3];
        g.boxLength = row[4];
        g.boxWidth = row[5];
        g.label = static_cast<int>(row[7]);
        if (row[0] > 0) ++out.dotsFound;
    }

    score.gap = gap;
    std::vector<double> parts;
    const double total = score.run(table, parts);
    if (parts.size() != 6) {
        // Too few dots to grade; still say how many positions share a blob.
        score.connectCount = 0.0;
        score.connectiveness_scoreCalM1(table);
        out.connectedPairs = static_cast<int>(score.connectCount);
        return kGradeTooFewDots;
    }
    out.connectedPairs = static_cast<int>(score.connectCount);
    out.area = parts[0];
    out.intensity = parts[1];
    out.roundness = parts[2];
    out.centroid = parts[3];
    out.rotatedBox = parts[4];
    out.separation = parts[5];
    out.total = total;
    return 0;
}

int gradeImage(const unsigned char* image, int rows, int cols, const std::string& paramPath,
               GradeResult& out, const std::string& imageName) {
    if (image == nullptr || rows <= 0 || cols <= 0) return kGradeBadInput;
    const ReaderOptions options = optionsFor(paramPath);
    const cv::Mat view(rows, cols, CV_8UC1, const_cast<unsigned char*>(image));
    const Decision read = qbcode::detail::readFirst(options, view, imageName, true);
    if (read.status() < 0) return read.status();
    out.bits = read.result.bits;
    out.orientation = read.result.orientation;

    const UprightView& up = read.upright;
    cv::Mat boxes;
    up.boxes.convertTo(boxes, CV_64F);
    if (boxes.cols < 4 || boxes.rows < 2 || boxes.channels() != 1) return kGradeInternal;
    cv::Mat points(boxes.rows, 2, CV_64F);
    for (int i = 0; i < boxes.rows; ++i) {
        const double* b = boxes.ptr<double>(i);
        points.at<double>(i, 0) = (b[0] + b[2]) / 2.0;
        points.at<double>(i, 1) = (b[1] + b[3]) / 2.0;
    }
    // The camera's grey levels: the reader's own crop is normalised, so every dot looks equally
    // bright there.
    const bool rawUsable = up.input.size() == up.grey.size();
    return gradeDots(up.binary, rawUsable ? up.input : up.grey, points, up.gap, options.params(),
                     out, imageName);
}

}  // namespace

cv::Mat attributeTable(const std::vector<DotAttribute>& records) {
    cv::Mat table = cv::Mat::zeros(static_cast<int>(records.size()), 8, CV_64F);
    for (int i = 0; i < table.rows; ++i) {
        const DotAttribute& r = records[i];
        double* row = table.ptr<double>(i);
        if (!r.found) {
            row[7] = -1.0;
            continue;
        }
        row[0] = r.area;
        // A blob too small to measure counts as unlit rather than poisoning the sum.
        row[1] = std::isnan(r.intensity) ? 0.0 : r.intensity;
        row[2] = r.roundness;
        row[3] = r.distance;
        if (r.rotBox != nullptr) {
            row[4] = std::max(r.rotBox->size.width, r.rotBox->size.height);
            row[5] = std::min(r.rotBox->size.width, r.rotBox->size.height);
        }
        row[7] = r.label;
    }
    return table;
}

int grade(const unsigned char* image, int rows, int cols, const std::string& paramPath,
          GradeResult& out, const std::string& imageName) {
    out = GradeResult();
    try {
        out.status = gradeImage(image, rows, cols, paramPath, out, imageName);
    } catch (...) {
        out = GradeResult();
        out.status = kGradeInternal;
    }
    return out.status;
}

int gradeGrid(const cv::Mat& binary, const cv::Mat& grey, const cv::Mat& points, double gap,
              const std::string& paramPath, GradeResult& out, const std::string& imageName) {
    out = GradeResult();
    try {
        out.status =
            gradeDots(binary, grey, points, gap, optionsFor(paramPath).params(), out, imageName);
    } catch (...) {
        out = GradeResult();
        out.status = kGradeInternal;
    }
    return out.status;
}

const char* gradeStatusName(int status) {
    return qbcode_status_name(status);
}

const char* gradeRating(double total, double maximum) {
    if (!(maximum > 0.0) || !std::isfinite(total)) return "poor";
    const double share = total / maximum;
    if (share >= 0.9) return "excellent";
    if (share >= 0.75) return "good";
    if (share >= 0.5) return "fair";
    return "poor";
}

}  // namespace qbcode
