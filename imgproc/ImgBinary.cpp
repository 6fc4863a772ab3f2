#include "ImgBinary.h"

#include <climits>

#include <opencv2/imgproc.hpp>

#include "NoiseRemover.h"

namespace {

// The binarisations work on 8 bits; anything else is brought there first (saturating).
void to8U(cv::Mat& src) {
    if (src.type() != CV_8UC1) src.convertTo(src, CV_8U, 1, 0);
}

}  // namespace

int ImgBinary::grayimg_normal(cv::Mat& img) {
    if (img.empty()) return -100;
    if (img.dims > 2) return -100;
    double max = 0.0;
    // Over all channels at once; minMaxLoc itself wants a single channel.
    cv::minMaxLoc(img.reshape(1), nullptr, &max);
    if (static_cast<float>(max) < 12.0f) return -141;
    img = img * (maxValue / max) * 1.2;
    if (img.type() != CV_8UC1) img.convertTo(img, CV_8U, 1, 0);
    return 0;
}

void ImgBinary::image_binary(cv::Mat& src, cv::Mat& dst) {
    if (src.empty() || src.dims > 2) {
        if (&src != &dst) dst.release();
        return;
    }
    to8U(src);
    cv::threshold(src, dst, threshold, 255.0, cv::THRESH_BINARY);
}

double ImgBinary::image_otsu_binary(cv::Mat& src, cv::Mat& dst) {
    // Otsu needs one 8-bit channel; other input has no threshold.
    if (src.empty() || src.dims > 2 || src.channels() != 1) {
        if (&src != &dst) dst.release();
        return 0.0;
    }
    to8U(src);
    return cv::threshold(src, dst, 0, 255.0, cv::THRESH_OTSU);
}

void ImgBinary::image_AdapMean_binary(cv::Mat& src, cv::Mat& dst) {
    if (src.empty() || src.dims > 2 || src.channels() != 1) {
        if (&src != &dst) dst.release();
        return;
    }
    to8U(src);
    cv::adaptiveThreshold(src, dst, 255.0, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY, 7, 0.0);
}

void ImgBinary::image_AdapGauss_binary(cv::Mat& src, cv::Mat& dst) {
    if (src.empty() || src.dims > 2 || src.channels() != 1) {
        if (&src != &dst) dst.release();
        return;
    }
    to8U(src);
    cv::adaptiveThreshold(src, dst, 255.0, cv::ADAPTIVE_THRESH_GAUSSIAN_C, cv::THRESH_BINARY, 7,
                          0.0);
}

void ImgBinary::remove_board(cv::Mat& img) {
    if (img.rows <= 0 || img.dims > 2 || img.type() != CV_8UC1) return;
    // A single row or column is scanned once instead of stepping by zero for ever.
    const int rowStep = img.rows > 1 ? img.rows - 1 : 1;
    const int colStep = img.cols > 1 ? img.cols - 1 : 1;
    auto clearFrom = [&img](int row, int col) {
        if (img.at<uchar>(row, col) == 255)
            cv::floodFill(img, cv::Point(col, row), cv::Scalar(0), nullptr, cv::Scalar(0),
                          cv::Scalar(200), 4);
    };
    for (int row = 0; row < img.rows; row += rowStep)
        for (int col = 0; col < img.cols; ++col) clearFrom(row, col);
    for (int row = 0; row < img.rows; ++row)
        for (int col = 0; col < img.cols; col += colStep) clearFrom(row, col);
}

int ImgBinary::imreconstruct(cv::Mat& marker, cv::Mat& mask, cv::Mat& result) {
    NoiseRemover remover;
    return remover.imreconstruct(marker, mask, result);
}

int ImgBinary::blob_centroid(const cv::Mat& bin, std::vector<cv::Point2f>& centroids) {
    if (bin.empty()) return -100;
    // Contours exist only for 8-bit single-channel images.
    if (bin.dims > 2 || bin.type() != CV_8UC1) return -100;
    cv::Mat work = bin.clone();
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(work, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE, cv::Point(0, 0));
    if (contours.size() < 40 && tooFew != nullptr)
        for (const std::vector<cv::Point>& c : contours) tooFew->push_back(cv::boundingRect(c));
    if (contours.size() < 40 || contours.size() > 500) return -143;

    // Small blobs are erased in the caller's pixels: the header is const, the data is not.
    cv::Mat shared = bin;
    // Each small blob is drawn from a list of its own: drawContours sets up every contour of the
    // list it is given, which made a frame of hundreds of blobs quadratic.
    std::vector<std::vector<cv::Point>> one(1);
    for (size_t i = 0; i < contours.size(); ++i) {
        const cv::Moments mo = cv::moments(contours[i], false);
        if (mo.m00 > 8.0) {
            centroids.emplace_back(static_cast<float>(mo.m10 / mo.m00),
                                   static_cast<float>(mo.m01 / mo.m00));
        } else {
            if (erased != nullptr) {
                cv::Point2f sum(0.f, 0.f);
                for (const cv::Point& p : contours[i]) sum += cv::Point2f(p);
                erased->push_back(sum / static_cast<float>(contours[i].size()));
            }
            one[0].swap(contours[i]);
            cv::drawContours(shared, one, 0, cv::Scalar(0, 0, 0, 0), cv::FILLED, cv::LINE_8,
                             cv::noArray(), INT_MAX, cv::Point(0, 0));
            one[0].swap(contours[i]);
        }
    }
    return centroids.empty() ? -142 : 0;
}
