#include "startPoint_cal.h"

#include <cmath>
#include <iostream>

#include <opencv2/imgproc.hpp>

#include "DebugImage.h"
#include "Point_Generation.h"
#include "SystemPara.h"
#include "TemplateSearch.h"

namespace {

// Templates wider than this exceed every image the 16-bit rotation can handle anyway.
const double kMaxHalf = 32767.0;

// Half the template side for a spacing, or false when the spacing gives no template.
bool templateHalf(int layer, float gap, int& half) {
    const double halfD = (layer + 0.5) * gap + 0.5;
    if (!(halfD >= 0.0 && halfD <= kMaxHalf) || !(gap > 0.f)) return false;
    half = static_cast<int>(halfD);
    return true;
}

// Weakest correlation that still counts as the code's centre.
const double kMinCorrelation = 0.3;

// matchTemplate's float map differs in its last bits between architectures (its DFT and SIMD
// paths round differently), and a symmetric hexagon often fits exactly as well at two places.
// Places this close to the top are scored again from integer sums; the count bounds the work.
const float kTieMargin = 1e-3f;
const int kMaxRescored = 4096;

// Best place on the correlation map of `templ` over `image`. Ties go to the first place in
// row order, whatever the CPU; maps too weak to pass keep matchTemplate's own pick.
double bestPlace(const cv::Mat& result, const cv::Mat& image, const cv::Mat& templ, cv::Point& at) {
    double top = 0.0;
    cv::minMaxLoc(result, nullptr, &top, nullptr, &at);
    if (!(top >= kMinCorrelation - kTieMargin)) return top;
    const float floor = static_cast<float>(top) - kTieMargin;
    double best = -2.0;
    int scored = 0;
    for (int y = 0; y < result.rows && scored < kMaxRescored; ++y) {
        const float* row = result.ptr<float>(y);
        for (int x = 0; x < result.cols && scored < kMaxRescored; ++x) {
            if (!(row[x] >= floor)) continue;
            ++scored;
            const double s = tsearch::correlation(image, templ, cv::Point(x, y));
            if (s > best) {
                best = s;
                at = cv::Point(x, y);
            }
        }
    }
    return best;
}

// Opens and blurs a drawn template or dot; both must see exactly the same operations.
void finishDrawing(cv::Mat& m) {
    const cv::Mat element = cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(5, 5));
    cv::morphologyEx(m, m, cv::MORPH_OPEN, element, cv::Point(-1, -1), 1, cv::BORDER_CONSTANT);
    cv::GaussianBlur(m, m, cv::Size(3, 3), 1.0);
}

// What one square of half-side k becomes when drawn alone, cut to its non-zero box; offset is
// that box's corner relative to the square's centre.
cv::Mat dotShape(int k, cv::Point& offset) {
    const int margin = 6, side = 2 * k + 1 + 2 * margin;
    cv::Mat canvas = cv::Mat::zeros(side, side, CV_8U);
    canvas(cv::Rect(margin, margin, 2 * k + 1, 2 * k + 1)).setTo(255);
    finishDrawing(canvas);
    const cv::Rect box = cv::boundingRect(canvas);
    offset = box.tl() - cv::Point(margin + k, margin + k);
    return box.area() > 0 ? canvas(box).clone() : cv::Mat();
}

// Half-side of the first search window around the centroid, in spacings.
const double kWindowSpacings = 3.0;

int floatToIntFlag(float v) {
    if (v != v) return 0;
    if (v >= 2147483648.f) return 1;
    if (v < -2147483648.f) return -1;
    return static_cast<int>(v);
}

}  // namespace

int startPoint_cal::initialize() {
    if (sysPara == nullptr) return -1;
    const int features = sysPara->readPara("PatternFeatures");
    if (features < 0) return features;
    gapDelta = sysPara->gapDelta;
    isDebug = sysPara->feat_Debug;
    isWriteImg = sysPara->feat_writeImg;
    savePath = sysPara->feat_savePath;
    imgPadding = floatToIntFlag(sysPara->img_padding);
    const int pipeline = sysPara->readPara("AlgPipeline");
    if (pipeline < 0) return pipeline;
    layer = sysPara->layer;
    return features;
}

namespace {

// The template of a spacing, and with `stamped` the dot shape and the corner of each of its
// stamps (the template equals their sum unless dots touch or reach its edge).
void drawTemplate(SystemPara* para, int layer, double angle, float gap, cv::Mat& templ,
                  tsearch::Stamped* stamped) {
    int half = 0;
    // No finite, positive spacing: no template (the search then reports -321).
    if (!templateHalf(layer, gap, half)) {
        templ.release();
        return;
    }
    const int side = 2 * half + 1;
    templ = cv::Mat::zeros(side, side, CV_8U);

    Generate_Hexagon_points generator(cv::Point2d(half, half), para, gap, layer);
    generator.angle = angle;
    cv::Mat pts;
    generator.Run(pts);

    const float k = std::ceil(gap / 5.0f);
    cv::Point offset;
    if (stamped) {
        stamped->dot = dotShape(static_cast<int>(k), offset);
        stamped->at.clear();
        stamped->size = templ.size();
    }
    for (int i = 0; i < pts.rows; ++i) {
        const double p0 = pts.at<double>(i, 0), p1 = pts.at<double>(i, 1);
        // Points that fall outside the square (a large angle with a large layer count cannot,
        // but garbage can) are skipped rather than cast.
        if (!(p0 > -side && p0 < 2.0 * side && p1 > -side && p1 < 2.0 * side)) continue;
        const int r0 = static_cast<int>(p0 + 0.5), c0 = static_cast<int>(p1 + 0.5);
        if (stamped) stamped->at.push_back(cv::Point(c0, r0) + offset);
        for (int r = static_cast<int>(r0 - k); r < r0 + k + 1; ++r) {
            if (r < 0 || r >= side) continue;
            unsigned char* row = templ.ptr<unsigned char>(r);
            for (int c = static_cast<int>(c0 - k); c < c0 + k + 1; ++c)
                if (c >= 0 && c < side) row[c] = 255;
        }
    }
    finishDrawing(templ);
}

}  // namespace

void startPoint_cal::generate_pattern_simImg(double angle, float gap, cv::Mat& templ) {
    drawTemplate(sysPara, layer, angle, gap, templ, nullptr);
}

int startPoint_cal::configured(float gap) {
    if (initialize() < 0) return -320;
    int half = 0;
    for (const float g : {gap, gap - gapDelta, gap + gapDelta})
        if (!templateHalf(layer, g, half)) return -321;
    return 0;
}

int startPoint_cal::findStartPoint_NCC(float& gap, const cv::Mat& image, cv::Mat& templ,
                                       cv::Point& centre, double angle) {
    const int init = initialize();
    if (init < 0) return -320;

    cv::Mat grey = image;
    if (!image.empty() && image.type() != CV_8UC1) {
        cv::Mat first;
        cv::extractChannel(image, first, 0);
        first.convertTo(grey, CV_8U);
    }

    bestCorrelation = 0.0;
    weakCentre = cv::Point(0, 0);
    const cv::Moments moments = cv::moments(grey, false);
    const double mass = moments.m00;
    const cv::Point2d centroid =
        mass > 0.0 ? cv::Point2d(moments.m10 / mass, moments.m01 / mass) : cv::Point2d();
    const float g0 = gap;
    const float spacings[3] = {g0, g0 - gapDelta, g0 + gapDelta};
    double best = 0.0;
    for (int t = 0; t < 3; ++t) {
        const float g = spacings[t];
        // The size is known before drawing: a template that cannot fit is never allocated.
        int half = 0;
        if (!templateHalf(layer, g, half) || 2 * half + 1 >= grey.rows || 2 * half + 1 >= grey.cols)
            return -321;
        tsearch::Stamped stamped;
        drawTemplate(sysPara, layer, angle, g, templ, &stamped);
        if (templ.empty() || templ.rows >= grey.rows || templ.cols >= grey.cols) return -321;

        // Exact sums over the stamps give the maximum the rescored map would give; the map
        // itself is only made when it is written or the template is not a sum of stamps.
        const bool stampedSearch = isWriteImg == 0 && tsearch::sameTemplate(stamped, templ);
        cv::Mat result;
        double m = 0.0;
        cv::Point at, candidate;
        auto search = [&](const cv::Mat& img, cv::Point shift) {
            if (stampedSearch) {
                // First around the centroid, a few spacings each way; the whole image when the
                // best place there lies on the window's edge or is too weak to be the centre.
                const cv::Rect all = tsearch::allPlaces(img, templ.size());
                if (mass > 0.0) {
                    const int reach = static_cast<int>(std::ceil(kWindowSpacings * g));
                    const cv::Point c(cvRound(centroid.x) - shift.x, cvRound(centroid.y) - shift.y);
                    const cv::Rect window =
                        cv::Rect(c.x - reach, c.y - reach, 2 * reach + 1, 2 * reach + 1) & all;
                    if (!window.empty() && window != all &&
                        tsearch::bestPlace(img, stamped, window, at, m)) {
                        const bool edge =
                            (at.x == window.x && window.x > all.x) ||
                            (at.y == window.y && window.y > all.y) ||
                            (at.x == window.br().x - 1 && window.br().x < all.br().x) ||
                            (at.y == window.br().y - 1 && window.br().y < all.br().y);
                        if (!edge && m >= kMinCorrelation) return;
                    }
                }
                if (tsearch::bestPlace(img, stamped, all, at, m)) return;
            }
            cv::matchTemplate(img, templ, result, cv::TM_CCOEFF_NORMED);
            m = bestPlace(result, img, templ, at);
        };
        if (imgPadding == 0) {
            search(grey, cv::Point(templ.rows / 2, templ.rows / 2));
            candidate = at + cv::Point(templ.rows / 2, templ.rows / 2);
        } else {
            const int pad = static_cast<int>(templ.rows * 0.5 + 0.5);
            cv::Mat padded;
            cv::copyMakeBorder(grey, padded, pad, pad, pad, pad, cv::BORDER_CONSTANT,
                               cv::Scalar(0));
            search(padded, cv::Point(0, 0));
            candidate = at;
        }
        if (isDebug == 1) {
            std::cout << "start point NCC max: " << m << std::endl;
            std::cout << "center point:" << candidate.x << ", " << candidate.y << std::endl;
        }
        if (isWriteImg != 0) {
            const std::string n = std::to_string(t + 1);
            if (t == 0) {
                cv::Mat marked;
                cv::cvtColor(grey, marked, cv::COLOR_GRAY2BGR);
                cv::circle(marked, candidate, 1, cv::Scalar(0, 0, 255));
                debugWrite(savePath + "source1.bmp", marked);
            }
            cv::Mat scaled;
            result.convertTo(scaled, CV_8U, 100.0);
            debugWrite(savePath + "template" + n + ".bmp", templ);
            debugWrite(savePath + "rst" + n + ".bmp", scaled);
        }
        if (m > best) {
            centre = candidate;
            gap = g;
            best = m;
        }
    }
    bestCorrelation = best;
    if (best >= kMinCorrelation) return init;
    weakCentre = centre;
    centre = cv::Point(0, 0);
    return -314;
}
