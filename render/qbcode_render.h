// Draws hexagonal dot codes: clean print images and camera-like test images.
// Bit i sits at the i-th position of the reader's grid order: the centre, then ring by ring,
// each ring starting on the generator's first axis (image rows) and running as the reader's
// hexagon generator walks it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_reader.hpp"

namespace qbrender {

// Rings of a code with n positions, or -1 when n is not 1 + 3L(L+1).
int layersForPositions(size_t n);

// Offsets of the grid positions from the centre in pixels, as (row, column), for a code turned
// by rotationDeg (the reader's own rotation convention). Order is the bit order.
std::vector<cv::Point2d> gridOffsets(int layers, double spacing, double rotationDeg);

// The code format lives in the library; the renderer uses it as is.
using qbcode::freePositions;
using qbcode::markerOffPositions;
using qbcode::markerOnPositions;
using qbcode::payloadBits;
using qbcode::payloadBytes;

// The 91 bits of a five-ring code carrying the number's eight bytes, least significant first.
std::vector<int> payloadBits(uint64_t number, int layers = 5);
// A valid code whose free positions are set at random with the given density. A number
// payload leaves the last nine free positions (one side of the outer ring) blank, which can
// make the centre search land one step off; test codes should use this instead.
std::vector<int> randomBits(uint64_t seed, double density = 0.75, int layers = 5);

struct CodeStyle {
    double spacing = 22.0;       // distance between neighbouring dot centres, px
    double dotDiameter = 13.0;   // px
    double rotationDeg = 0.0;    // reader convention, any value
    cv::Point2d centre{-1, -1};  // (x = column, y = row); negative: image centre
    cv::Size size{640, 480};     // width x height
    double background = 30.0;    // grey level of the background
    double foreground = 220.0;   // grey level of a dot
};

// Anti-aliased code image, 8-bit single channel, bright dots on a dark background.
cv::Mat renderCode(const std::vector<int>& bits, const CodeStyle& style);

struct CameraOptions {
    double blurSigma = 0.0;          // Gaussian blur, px
    double noiseSigma = 0.0;         // additive Gaussian sensor noise, grey levels
    double lightingGradient = 0.0;   // 0..1: fraction of brightness lost across the image
    double vignette = 0.0;           // 0..1: fraction lost at the corners
    int jpegQuality = 0;             // 1..100 to pass the image through JPEG; 0 keeps it
    double tiltDeg = 0.0;            // perspective tilt of the code plane
    double tiltAxisDeg = 0.0;        // direction of the tilt axis in the image
    int clutterBlobs = 0;            // stray bright blobs outside the code
    double clutterClearance = -1.0;  // least distance of a blob from the code centre, px;
                                     // negative: just clear of the outer ring
    double textureAmplitude = 0.0;   // smooth background texture, grey levels
    double contrast = 1.0;           // grey levels scaled about the dot/background midpoint
    uint64_t seed = 1;
};

// A camera a little worse than a good one: soft focus, sensor noise, uneven light, JPEG, a
// slight tilt (axis from the seed) and some texture and stray blobs kept 240 px from the centre,
// beyond the clustering's reach.
CameraOptions typicalCamera(uint64_t seed = 1);

// A camera-like view of the code: the clean rendering with the options applied in the order
// tilt, clutter and texture, lighting, contrast, blur, noise, JPEG. Empty for an empty size.
cv::Mat renderCamera(const std::vector<int>& bits, const CodeStyle& style,
                     const CameraOptions& camera);

// Frames without a code, for the no-code sets of the accuracy suite and the benchmark: Gaussian
// noise about grey 100, smoothed by `blur` px (0: none) and stretched to 0..255.
cv::Mat noiseFrame(cv::Size size, double blur, uint64_t seed);

// Print output: black dots on white at the given resolution. spacingMm is the dot spacing on
// paper. PNG carries the DPI in its pHYs chunk.
bool writePrintPng(const std::string& path, const std::vector<int>& bits, double spacingMm,
                   double dotDiameterMm, int dpi);
bool writePrintSvg(const std::string& path, const std::vector<int>& bits, double spacingMm,
                   double dotDiameterMm);

}  // namespace qbrender
