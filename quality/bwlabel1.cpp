#include "bwlabel1.h"

#include <deque>
#include <iostream>
#include <new>
#include <utility>

namespace {

// Depth-first fill of one region from (row, col) with the 8-bit label.
void fillRegion(cv::Mat& dst, int row, int col, double value, uchar label) {
    // When the label byte equals the value, labelled pixels match again and the plain fill
    // would never end; only then remember what this fill has written.
    cv::Mat seen;
    if (static_cast<double>(label) == value) seen = cv::Mat::zeros(dst.size(), CV_8UC1);
    std::deque<std::pair<int, int>> stack;
    stack.emplace_back(row, col);
    while (!stack.empty()) {
        const std::pair<int, int> p = stack.back();
        stack.pop_back();
        dst.at<uchar>(p.first, p.second) = label;
        if (!seen.empty()) seen.at<uchar>(p.first, p.second) = 1;
        const int next[4][2] = {{p.first, p.second - 1},
                                {p.first, p.second + 1},
                                {p.first - 1, p.second},
                                {p.first + 1, p.second}};
        for (const auto& n : next) {
            if (n[0] < 0 || n[0] >= dst.rows || n[1] < 0 || n[1] >= dst.cols) continue;
            if (static_cast<double>(dst.at<uchar>(n[0], n[1])) != value) continue;
            if (!seen.empty() && seen.at<uchar>(n[0], n[1])) continue;
            stack.emplace_back(n[0], n[1]);
        }
    }
}

}  // namespace

int bwlabel1(const cv::Mat& src, cv::Mat& dst, double value) {
    if (src.data == nullptr || src.total() == 0) return -1;
    if (src.type() != CV_8UC1) return -1;
    const cv::Mat in = src;  // keeps the pixels alive when dst is src
    dst.release();
    in.copyTo(dst);
    if (in.rows < 4) return 0;

    int label = 0;
    for (int i = 1; i <= dst.rows - 3; ++i) {
        if (dst.cols < 4) continue;
        for (int j = 1; j <= dst.cols - 3; ++j) {
            if (static_cast<double>(dst.at<uchar>(i, j)) != value) continue;
            ++label;
            try {
                fillRegion(dst, i, j, value, static_cast<uchar>(label));
            } catch (const std::bad_alloc& e) {
                std::cerr << "bad allocation caught: " << e.what() << '\n';
                std::cout << "i: " << i << "; j:" << j << std::endl;
            }
        }
    }
    return label;
}
