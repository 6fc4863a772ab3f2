// The read policy: which views of a frame to prepare (polarity, downsampling ratio), which
// clusters of each to decide, and when to stop. Views and their clusters are computed once per
// frame; every try and every candidate reuses them.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "AlgPipeline.h"
#include "LatticeCheck.h"

class SystemPara;

// What the parameter record asks of the policy, built once per reader.
struct ReadPlan {
    bool camera = false;   // the "Camera" section is there
    bool guarded = false;  // verification is on
    // The "Detection" section: clusters checked for a lattice before any expensive stage, every
    // promising cluster decided, later views only while a lattice was left unread.
    bool detection = false;
    int polarity = 0;  // 0 bright dots, 1 dark dots, 2 decided per frame
    bool retryPolarity = false;
    double ratio = 0.0;
    std::vector<double> retryRatios;
    bool padCrop = false;     // crops padded for the upright turn
    bool refining = false;    // grids fitted to the dots where the upright grid fails
    float frameMargin = 0.f;  // spacings from the frame's edge a position must keep
    bool sizeRule = false;
    double spacingLo = 0.0, spacingHi = 0.0;
    LatticeLimits lattice;
    double angleWindow = 0.0;  // degrees about the lattice's rows the angle search looks first
    // After a weak template match, the grid is fitted from each of this many dots amid the
    // cluster's outline in turn.
    size_t centreFromDots = 0;
    // A frame whose blobs were too few to count, where they lie close together, is prepared
    // once more there at full resolution: the downsampling merged the dots of a small code.
    bool smallCodes = false;
    bool fastPath = false;  // each candidate first read from its dots alone
    // Limits of one frame: views prepared, clusters looked at per view, and candidates refused
    // in a row after the angle search before the frame is given up.
    int maxViews = 6;
    int maxCandidates = 64;
    int maxRefused = 64;
    // The "Verification" section, read once for every read of the plan.
    Grid_verification verification{nullptr};

    static ReadPlan from(SystemPara& record);
};

struct ReadRequest {
    int maxCodes = 1;    // 0: every code
    bool every = false;  // read every cluster (readAll) rather than the configured region only
    bool keepUpright = false;
    std::string imgName = "result.bmp";
    int* bits = nullptr;  // the caller's array, filled by the first code read
    int count = 0;
    clock_t start0 = 0;
};

struct Detection {
    std::vector<Decision> codes;  // every code read, most promising first
    Decision failure;             // why the most promising candidate was refused
    int decisions = 0;            // candidates that reached the angle search
    int candidates = 0;           // clusters looked at
    // The first code read, else the failure.
    const Decision& first() const { return codes.empty() ? failure : codes.front(); }
};

// engine must be initialised (AlgPipeline::Initialize). Exceptions of the stages pass through.
Detection detect(AlgPipeline& engine, const ReadPlan& plan, const cv::Mat& image,
                 const ReadRequest& request);
