#include "Point_Generation.h"

#include <algorithm>
#include <cmath>

#include "qbcode_hexagon_recognition.h"

namespace {

// The program's own value of pi for point rotation.
const double kPi = 3.141592654;
// Beyond this many rings the matrix would no longer fit in memory sensibly.
const int kMaxLayers = 1000;

bool usable(const cv::Mat& pts) {
    return pts.type() == CV_64F && pts.cols >= 2;
}

}  // namespace

void Point_Generation::convertTo_imgCoord(cv::Mat& pts) {
    if (!usable(pts)) return;
    for (int i = 0; i < pts.rows; ++i) pts.at<double>(i, 1) *= -1.0;
}

int Point_Generation::Run(cv::Mat& pts) {
    const int n = points_coordinates_generate(pts);
    rotate(pts, angle);
    translation(pts);
    return n;
}

void Point_Generation::rotate(cv::Mat& pts, double angleDeg) {
    if (pts.cols != 2 || pts.rows == 0 || (pts.type() != CV_64F && pts.type() != CV_32F)) return;
    const double a = angleDeg / 180.0 * kPi;
    const double s = std::sin(a), c = std::cos(a);
    const cv::Mat R = (cv::Mat_<double>(2, 2) << c, -s, s, c);
    if (pts.type() == CV_64F) {
        pts = pts * R;
    } else {
        cv::Mat d;
        pts.convertTo(d, CV_64F);
        cv::Mat(d * R).convertTo(pts, CV_32F);
    }
}

void Point_Generation::translation(cv::Mat& pts) {
    if (!usable(pts)) return;
    // .at() on purpose: a short shift vector throws instead of reading past its end.
    for (int i = 0; i < pts.rows; ++i) {
        pts.at<double>(i, 0) += shiftXY.at(0);
        pts.at<double>(i, 1) += shiftXY.at(1);
    }
}

void Point_Generation::round(cv::Mat& pts) {
    if (pts.type() != CV_64F) return;
    for (int i = 0; i < pts.rows; ++i) {
        double* p = pts.ptr<double>(i);
        for (int j = 0; j < pts.cols; ++j) {
            const double v = p[j] + 0.5;
            // Values beyond long long (and NaN) have no integer to go to; they stay.
            if (!(std::fabs(v) < 9.2e18)) continue;
            p[j] = static_cast<double>(static_cast<long long>(v));
        }
    }
}

void Point_Generation::disturbance(cv::Mat&, double) {}

Generate_Hexagon_points::Generate_Hexagon_points(cv::Point2d centre, SystemPara* para, double gap,
                                                 int layer)
    : sysPara(para), gap(gap), layer(layer) {
    shiftXY = {centre.x, centre.y};
}

int Generate_Hexagon_points::points_coordinates_generate(cv::Mat& pts) {
    if (layer > kMaxLayers) {
        pts = cv::Mat::zeros(0, 2, CV_64F);
        return 0;
    }
    const int n = get_dots_num(layer);
    pts = cv::Mat::zeros(n, 2, CV_64F);
    const double g = gap;
    int row = 1;
    for (int k = 1; k <= layer; ++k) {
        double x = k * g, y = 0.0;
        pts.at<double>(row, 0) = x;
        pts.at<double>(row, 1) = y;
        ++row;
        // Walk 6k - 1 steps: k at 120, 180, 240, 300, 360 degrees and k - 1 at 420.
        for (int leg = 0; leg < 6; ++leg) {
            double dx, dy;
            if (leg == 0) {
                dx = -0.500000000236833;
                dy = 0.866025403647703;
            } else {
                const double phi = 120.0 + 60.0 * leg;
                dx = std::cos(phi / 180 * kPi);
                dy = std::sin(phi / 180 * kPi);
            }
            const int steps = leg == 5 ? k - 1 : k;
            for (int s = 0; s < steps; ++s) {
                x += g * dx;
                y += g * dy;
                pts.at<double>(row, 0) = x;
                pts.at<double>(row, 1) = y;
                ++row;
            }
        }
    }
    return n;
}

// Axial hex coordinates: position = q * e0 + r * e60. Each ring holds the cells at hex distance k,
// ordered by polar angle from the +x axis counter-clockwise, which is method 1's walk order.
int Generate_Hexagon_pointsM2::points_coordinates_generate(cv::Mat& pts) {
    if (layer > kMaxLayers) {
        pts = cv::Mat::zeros(0, 2, CV_64F);
        return 0;
    }
    const int n = get_dots_num(layer);
    pts = cv::Mat::zeros(n, 2, CV_64F);
    const double h = std::sqrt(3.0) / 2.0;
    const double twoPi = 2.0 * std::acos(-1.0);
    int row = 1;
    std::vector<std::pair<double, cv::Point2d>> ring;
    for (int k = 1; k <= layer; ++k) {
        ring.clear();
        for (int q = -k; q <= k; ++q) {
            for (int r = -k; r <= k; ++r) {
                const int distance = std::max({std::abs(q), std::abs(r), std::abs(q + r)});
                if (distance != k) continue;
                // Angles from exact integers: a cell on the +x axis has r == 0 and q > 0.
                const double x = q + 0.5 * r, y = h * r;
                double phi = std::atan2(y, x);
                if (r == 0 && q > 0) phi = 0.0;
                if (phi < 0) phi += twoPi;
                ring.emplace_back(phi, cv::Point2d(gap * x, gap * y));
            }
        }
        std::sort(ring.begin(), ring.end(),
                  [](const auto& a, const auto& b) { return a.first < b.first; });
        for (const auto& cell : ring) {
            pts.at<double>(row, 0) = cell.second.x;
            pts.at<double>(row, 1) = cell.second.y;
            ++row;
        }
    }
    return n;
}

// Ring corners at 0, 60, ..., 300 degrees; k points per side by linear interpolation from each
// corner towards the next.
int Generate_Hexagon_pointsM3::points_coordinates_generate(cv::Mat& pts) {
    if (layer > kMaxLayers) {
        pts = cv::Mat::zeros(0, 2, CV_64F);
        return 0;
    }
    const int n = get_dots_num(layer);
    pts = cv::Mat::zeros(n, 2, CV_64F);
    double cornerX[7], cornerY[7];
    for (int i = 0; i <= 6; ++i) {
        cornerX[i] = std::cos(i * kPi / 3.0);
        cornerY[i] = std::sin(i * kPi / 3.0);
    }
    int row = 1;
    for (int k = 1; k <= layer; ++k) {
        const double radius = k * gap;
        for (int side = 0; side < 6; ++side) {
            for (int j = 0; j < k; ++j) {
                const double t = static_cast<double>(j) / k;
                pts.at<double>(row, 0) =
                    radius * (cornerX[side] + t * (cornerX[side + 1] - cornerX[side]));
                pts.at<double>(row, 1) =
                    radius * (cornerY[side] + t * (cornerY[side + 1] - cornerY[side]));
                ++row;
            }
        }
    }
    return n;
}
