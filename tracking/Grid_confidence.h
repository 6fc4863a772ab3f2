// How sure a read is of each position. The bits come from a binary image; this looks at the grey
// levels again: each position against the dot and background levels the code's own positions show
// near it (so shadows and gradients cost nothing), and each gap between three neighbouring
// positions, which on a clean print is background. An object lying on the code shows as a
// position or a gap whose level is neither.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace confidence {

struct Input {
    cv::Mat grey;                     // 8-bit, dots brighter than the background
    std::vector<cv::Point2d> points;  // positions (x, y) in grey's pixels, bit order
    std::vector<int> bits;
    double spacing = 0.0;  // in grey's pixels
    // Where the positions (or the background) within this many spacings lie on one plane, or a
    // quadratic surface, of grey levels within 15 % of the code's contrast, its level is the one
    // expected, and the gaps there may also take their kind's share of the contrast: a shadow's
    // edge or a highlight moves them along a slope the median nearby cannot follow. 0: medians.
    double smoothLight = 0.0;
};

struct Output {
    // Per position: 1 at the level its bit expects, 0 halfway to the other level, below 0 beyond
    // it (or at a level that is neither). The lower of its own and that of the gaps around it.
    std::vector<double> positions;
    double margin = 0.0;  // the weakest position's
    int weakest = -1;
    bool weakestByGap = false;  // the weakest value comes from a gap next to that position
};

Output measure(const Input& in);

}  // namespace confidence
