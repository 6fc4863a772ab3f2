// Fits the hexagon grid to the detected dots when the upright grid does not sit on them (a tilted
// print, a centre a step off) and samples the bits again at the fitted positions.
#pragma once

#include <array>
#include <vector>

#include <opencv2/core.hpp>

class Dots_tracking;

class Grid_refinement {
public:
    struct Input {
        // The ideal grid at each of the six orientations, (x, y) in the upright frame, bit order.
        std::array<std::vector<cv::Point2d>, 6> grids;
        int layer = 0;
        double spacing = 0.0;                // upright pixels
        std::vector<cv::Point2d> centroids;  // detected dots, upright frame
        cv::Mat binary;                      // upright, 8-bit, foreground non-zero
    };

    struct Output {
        int orientation = -1;
        std::vector<cv::Point2d> points;  // fitted positions of the chosen orientation
        std::vector<int> bits, fill, sides;
        int covered = 0;  // positions matched to a dot by the final fit
        cv::Matx33d fit;  // ideal grid -> fitted positions
    };

    // Tolerances in spacings: the first match on the inner rings, then the tightening steps of
    // the homography on all rings.
    double innerRadius = 0.35;
    static constexpr int kMaxLayer = 8;
    std::vector<double> radii{0.4, 0.33, 0.25};
    // Lattice steps from the start within which the first round looks for the centre.
    int centreReach = 5;

    // Tries the voted translation and its six lattice neighbours; keeps the one whose markers
    // fit at exactly one orientation and which covers the most dots. False when none does.
    bool Run(const Input& in, Dots_tracking& sampler, Output& out) const;
};
