// Is a cluster of blob centroids a hexagonal dot lattice? A cheap test run on every cluster before
// the angle search, so that texture, noise and photographs cost no more than their clustering.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

struct LatticeLimits {
    int minDots = 12;        // fewer centroids cannot hold the six markers and a payload
    double agree = 0.5;      // share of nearest-neighbour distances near their median
    double symmetry = 0.3;   // six-fold alignment of neighbour directions, 0..1
    double inversion = 0.2;  // share of neighbour steps that continue on the far side
};

struct LatticeStats {
    int dots = 0;
    double spacing = 0.0;   // median nearest-neighbour distance
    double agree = 0.0;     // share of dots whose nearest neighbour lies within 30 % of it
    double symmetry = 0.0;  // |mean of exp(6i·theta)| over neighbour directions
    int pairs = 0;          // neighbour pairs that voted on the directions
    // Share of neighbour steps p -> p + v for which p - v is a dot too. A code's lattice has a
    // dot across most of its steps; the lattice of the gaps between dots (what the other
    // polarity shows) is a honeycomb, whose steps never continue.
    double inversion = 0.0;
    // Direction of the lattice's rows in degrees, modulo 60: the argument of that mean over six.
    double rows = 0.0;

    // Six-fold and regular: a code, or the gaps of a code of the other polarity.
    bool latticeLike(const LatticeLimits& limits) const {
        return dots >= limits.minDots && agree >= limits.agree && symmetry >= limits.symmetry;
    }
    bool passes(const LatticeLimits& limits) const {
        return latticeLike(limits) && inversion >= limits.inversion;
    }
};

// Distance from each dot to its nearest other dot, in the dots' order (infinite for a lone dot).
std::vector<double> nearestDistances(const std::vector<cv::Point2f>& dots);

// The dots of one code among the dots of several printed close together: from the dot with the
// most neighbours, the centre moves to the mean of the dots within a code's reach (5.6 spacings)
// and those dots are kept. All of them when they are one code already.
std::vector<cv::Point2f> codeAround(const std::vector<cv::Point2f>& dots, double spacing);

// Neighbours are pairs closer than 1.3 median spacings. A hexagonal lattice seen at an angle
// keeps its pairs of opposite directions, so the six-fold alignment falls slowly with tilt;
// scattered blobs give about 1/sqrt(pairs). Where the whole set fails the limits, the dots
// around its densest dot are judged alone (a code the clustering joined to clutter).
LatticeStats latticeOf(const std::vector<cv::Point2f>& dots,
                       const LatticeLimits& limits = LatticeLimits());

QBCODE_VISIBLE_END
