// The ideal hexagon grid: centre first, then ring by ring outward. Row order is the bit order.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class SystemPara;

class Point_Generation {
public:
    virtual ~Point_Generation() = default;
    // Fills pts (n x 2, CV_64F) and returns n.
    virtual int points_coordinates_generate(cv::Mat& pts) = 0;
    virtual void convertTo_imgCoord(cv::Mat& pts);

    // generate, rotate by angle, translate by shiftXY; returns n.
    int Run(cv::Mat& pts);
    void rotate(cv::Mat& pts, double angleDeg);
    // Throws std::out_of_range when shiftXY has fewer than two elements.
    void translation(cv::Mat& pts);
    void round(cv::Mat& pts);
    void disturbance(cv::Mat& pts, double amount);

    double angle = 0.0;
    std::vector<double> shiftXY{0.0, 0.0};
};

class Generate_Hexagon_points : public Point_Generation {
public:
    Generate_Hexagon_points(cv::Point2d centre, SystemPara* para, double gap, int layer);
    int points_coordinates_generate(cv::Mat& pts) override;

    SystemPara* sysPara;
    double gap;
    int layer;
};

class Generate_Hexagon_pointsM2 : public Generate_Hexagon_points {
public:
    using Generate_Hexagon_points::Generate_Hexagon_points;
    int points_coordinates_generate(cv::Mat& pts) override;
};

class Generate_Hexagon_pointsM3 : public Generate_Hexagon_points {
public:
    using Generate_Hexagon_points::Generate_Hexagon_points;
    int points_coordinates_generate(cv::Mat& pts) override;
};

QBCODE_VISIBLE_END
