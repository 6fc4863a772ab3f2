// Refuses a decoded code when the evidence says its grid does not sit on the printed dots: the
// format has no checksum, so a grid one step off reads as plausible bits.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "Grid_confidence.h"

class SystemPara;

class Grid_verification {
public:
    explicit Grid_verification(SystemPara* para) : sysPara(para) {}

    // Reads the "Verification" section; without it nothing is refused.
    int Initiate();

    struct Input {
        std::vector<cv::Point2d> grid;  // positions (x, y) in the upright frame, bit order
        std::vector<int> bits;
        std::vector<int> fill;   // foreground pixels in each position's box
        int boxSide = 0;         // the box's side; its half is the sampling radius
        std::vector<int> sides;  // per position, where boxes follow the local spacing
        double fillThreshold = 0.0;
        double spacing = 0.0;  // upright pixels
        // Upright frame -> the frame the upright turn read from: inside [0, keptSize) a
        // position was read from the image, outside from padding.
        cv::Matx23d toKept = cv::Matx23d(1, 0, 0, 0, 1, 0);
        cv::Size keptSize;
        // The frame the dots were detected in, in the kept area's coordinates: a dot centred
        // closer than frameMargin spacings to its edge may be cut by the camera's frame.
        cv::Rect2d frame;
        double frameMargin = 0.0;
        std::vector<cv::Point2d> centroids;   // detected dots, upright frame
        std::vector<cv::Point2d> smallBlobs;  // blobs too small for a dot, upright frame
    };

    struct Checks {
        double blankFill = 0.0;  // largest foreground share of a 0-bit box
        int outside = 0;         // positions outside the kept area or too close to its edge
        int markersMatched = 0;  // of the 18 marker positions
        int dotsMatched = 0;     // 1-bits with a centroid (mutual nearest, within the radius)
        int dotsMissing = 0;
        int dotsUnexplained = 0;  // detected dots on positions the bits call blank
        // Dots of the outer ring with a dot beside them outside the code, off every position:
        // something printed next to the code (another code) whose dots may be read as ours.
        int crowded = 0;
        double residual =
            0.0;              // RMS distance of matched centroids from the fitted grid, in spacings
        double margin = 0.0;  // smallest |fill - threshold| / threshold over all positions
        bool fitted = false;
        cv::Matx23d fit;  // grid -> centroids, least squares over the matched 1-bits
    };

    // Computes every check; returns 0, or with the section's "enabled" set the first failed
    // check's status (-511 outside, -512 markers, -510 blank filled, -513 missing, -515 a dot on
    // a blank position, -514 residual).
    int Run(const Input& in, Checks& out) const;
    // With the section's "enabled" and "minConfidence": -516 when the weakest position is neither
    // dot nor background, -517 when what lies on the gaps around it is not background; else 0.
    int Judge(const confidence::Output& levels) const;

    SystemPara* sysPara;
    int enabled = 0;
    float blankFill = 0.05f;
    int inside = 1;
    float edgeMargin = 0.2f;
    int markers = 1;
    float matchRadius = 0.33f;
    int maxMissing = 0;
    int smallDots = 0;  // a 1-bit on a blob too small for a dot is not missing
    // Reach, in spacings, of the plane the confidence levels follow where light varies smoothly.
    float smoothLight = 0.f;
    float maxResidual = 0.15f;
    int maxCrowded = -1;  // -1: no limit
    int maxUnexplained = 0;
    float minConfidence = -2.0f;
};
