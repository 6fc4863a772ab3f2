#include "Hexagon_Dots_tracking.h"

#include "BlobAnalysis.h"
#include "Point_Generation.h"

Hexagon_Dots_tracking::Hexagon_Dots_tracking(SystemPara* para, double gap, int startX, int startY,
                                             int layer, double binaryMaxValue)
    : Dots_tracking(para, gap),
      startPointX(startX),
      startPointY(startY),
      layer(layer),
      binaryMaxValue(binaryMaxValue) {}
Hexagon_Dots_tracking::~Hexagon_Dots_tracking() = default;
int Hexagon_Dots_tracking::calculate_bits_array(const cv::Mat&, cv::Mat&, cv::Mat&) { return -500; }
int Hexagon_Dots_tracking::print_qualityAnalysis(const cv::Mat&, const cv::Mat&, const cv::Mat&,
                                                 std::vector<DotAttribute*>) {
    return -503;
}
