// The recognition stages as functions with typed results. Each wraps the stage classes and
// returns what it found together with the evidence it computed; the driver decides what to do
// with a failure.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "Grid_verification.h"

class FrameChain;
class ImageProcessPipeline;
class SystemPara;
class startPoint_cal;

namespace stages {

// Dark dots on a light ground, judged on a subsampled frame: the median lies nearer the bright
// end than the dark one.
bool looksDark(const cv::Mat& image);
// Whether part of the frame (one of 6 x 4 tiles, with some contrast and clearly to one side)
// looks the other way: a dark-dot label on a darker scene, or a bright-dot print beside a
// lighter one.
bool mixedPolarity(const cv::Mat& image, bool dark);
// Median distance from each detected dot to its nearest neighbour: the dot spacing of a frame
// that shows mostly a code. 0 for fewer than two dots.
double blobSpacing(const std::vector<cv::Point2f>& centroids);
// Border (x, y) that keeps every dot of the region's cluster inside its crop whatever the turn
// about the crop's centre: its dots' farthest reach from that centre plus one dot spacing.
cv::Point padForTurn(const struct Region& region);

struct Preprocessed {
    int status = 0;
    cv::Mat input;        // what the chain read: the caller's image, or its fixed pre-crop
    cv::Point2d preCrop;  // offset of that crop in the caller's image
    cv::Mat processed;    // downsampled, enhanced, 8-bit
    cv::Mat binary;
    std::vector<cv::Point2f> centroids;
    std::vector<cv::Point2f> smallBlobs;  // erased as too small for a dot
    std::vector<cv::Rect> fewBlobs;       // the blobs' boxes where too few to count
    // The whole frame in the downsampled frame (a view may be of part of it); empty: the
    // processed image's extent.
    cv::Rect2d whole;
};
// ratio: the downsampling ratio, 0 for the file's.
Preprocessed preprocess(ImageProcessPipeline& chain, const cv::Mat& image, double ratio = 0.0);

// Density-peak clusters of a frame's centroids, computed once and cut into regions per rank.
struct Clusters {
    int status = 0;
    bool threw = false;  // the clustering raised an exception (reported as -200)
    int count = 0;       // clusters found; 0 means every centroid is one region
    // (x, y) pairs, density, distance to a denser point, that point, and each centroid's label.
    std::vector<float> coords, rho, delta;
    std::vector<int> nearest, labels;
};
// fast: the flat-table form (ROI_Segment::cluster_densityPeaksM2).
Clusters cluster(const Preprocessed& pre, float dc, bool fast = false);

struct Region {
    int status = 0;
    // Where the angle search looks first: the angle that stands the cluster's lattice rows
    // upright (modulo 60) and the half-width of the window about it; window 0 searches all.
    double upright = 0.0, window = 0.0;
    double spacing = 0.0;  // the lattice's nearest-neighbour spacing; 0: not measured
    bool threw = false;    // the clustering raised an exception (reported as -200)
    cv::Rect rect;         // in the processed frame
    int clusters = 0;
    int dots = 0;          // centroids in the chosen cluster
    int label = -1;        // that cluster's label; -1 when every centroid is in it
    cv::Mat grey, binary;  // continuous crops of the processed and binary images
    // The clustering's working arrays: (x, y) pairs, density, distance to a denser point,
    // that point, and the cluster label of every centroid.
    std::vector<float> coords, rho, delta;
    std::vector<int> nearest, labels;
};
// rank 0 takes the largest cluster; rank k the (k+1)-th largest, for reading every code.
Region region(const Preprocessed& pre, const Clusters& clusters, int rank = 0);
Region region(const Preprocessed& pre, float dc, int rank = 0);
// The cluster a rank cuts, without cutting it: -1 for every centroid (no clusters were found),
// -2 for none (no such rank, or fewer than eight dots beyond rank 0).
int rankLabel(const Clusters& clusters, int rank);
// The centroids of a label (every centroid for -1).
std::vector<cv::Point2f> clusterDots(const Clusters& clusters, int label);

struct Angle {
    int status = 0;
    int degrees = 0;
    float score = 0.f;
    cv::Mat scores;  // 1 x 180
    cv::Mat peaks;   // 180 x 20
};
// legacy selects the legacy-matrix calculation on the grey crop (which it smooths in place).
Angle angle(Region& region, bool legacy, bool onlineReg, SystemPara* para);

struct Spacing {
    int status = 0;
    float gap = 0.f;  // processed-frame pixels
};
Spacing spacing(const Angle& angle);

// Where a small code may lie in a frame whose blobs were too few to count (the downsampling
// merged its dots): the box, in the input, of the largest group of at least eight blobs lying
// close together, widened by a margin; empty where there is none or it covers more than a
// quarter of the input.
cv::Rect mergedDots(const Preprocessed& pre);

struct Centre {
    int status = 0;
    cv::Point point;  // (0, 0) when none was found
    float gap = 0.f;  // refined by the template that matched best
    double correlation = 0.0;
    cv::Point weak;  // the best place of a search too weak to pass (-314)
};
Centre centre(startPoint_cal& finder, float gap, const cv::Mat& binaryUpright);
// Where a code's centre can lie, from its dots alone: the `count` dots nearest the middle of
// their outline (the outer ring bounds it on every side, whatever the view), nearest first.
// None for fewer than seven dots or an outline larger than one code at that spacing.
std::vector<cv::Point2f> centresOfDots(const std::vector<cv::Point2f>& dots, double spacing,
                                       size_t count);

struct Decoded {
    int status = 0;
    int orientation = -1;
    cv::Mat bits;                     // 1 x N, CV_64F
    cv::Mat boxes;                    // N x 4 (x1, y1, x2, y2), upright frame
    std::vector<cv::Point2d> points;  // grid positions (x, y) of the chosen orientation
    std::vector<int> fill;            // foreground pixels in each box
    double fillThreshold = 0.0;
    int boxSide = 0;
    std::vector<int> sides;  // per box, where boxes follow the local spacing
    double markerRatio = 0.0;
    // The ideal grid of the chosen orientation: equal to points unless the grid was refined.
    std::vector<cv::Point2d> ideal;
};
// Binarises greyUpright in place, as the tracker does.
Decoded decode(cv::Mat& greyUpright, const cv::Mat& binaryUpright, float gap, cv::Point centre,
               int layer, bool quality, SystemPara* para, const std::string& imgName);

// Detected dots carried from the downsampled frame into another frame of the chain.
std::vector<cv::Point2d> centroidsIn(const Preprocessed& pre, const FrameChain& frames,
                                     int downsampled, int frame);

// The grid fitted to the detected dots (affine, then a homography) and sampled again; for
// tilted prints and centres a grid step off. Status -500 when no fit has its markers. The
// centre is looked for within `reach` lattice steps of `centre`.
Decoded refine(const cv::Mat& greyUpright, const std::vector<cv::Point2d>& centroids, float gap,
               cv::Point centre, int layer, SystemPara* para, int reach = 5);

struct Verified {
    int status = 0;
    bool enabled = false;  // the checks could refuse (the parameter file turns them on)
    Grid_verification::Checks checks;
    confidence::Output confidence;
};
// Frames: the downsampled one (the centroids'), the region crop the upright turn read from, and
// the upright frame of the grid.
// camera: positions must keep frameMargin spacings from the camera frame's edge.
Verified verify(const Decoded& decoded, const Preprocessed& pre, const FrameChain& frames,
                int downsampled, int regionFrame, int uprightFrame, cv::Size regionSize, float gap,
                bool camera, float frameMargin, const Grid_verification& verification);

}  // namespace stages
