#include "Point_Generation.h"

void Point_Generation::convertTo_imgCoord(cv::Mat&) {}
int Point_Generation::Run(cv::Mat& pts) { return points_coordinates_generate(pts); }
Generate_Hexagon_points::Generate_Hexagon_points(cv::Point2d centre, SystemPara* para,
                                                 double gap, int layer)
    : sysPara(para), gap(gap), layer(layer) {
    shiftXY = {centre.x, centre.y};
}
int Generate_Hexagon_points::points_coordinates_generate(cv::Mat&) { return 0; }
int Generate_Hexagon_pointsM2::points_coordinates_generate(cv::Mat&) { return 0; }
int Generate_Hexagon_pointsM3::points_coordinates_generate(cv::Mat&) { return 0; }
