// Region of interest: density-peak clustering of the dot centroids; the largest cluster is the
// code.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class ROI_Segment {
public:
    ROI_Segment(int rows, int cols, float dc, int n, int dim)
        : imgRows(rows), imgCols(cols), dc(dc), dataNum(n), dataDim(dim) {}

    float getDistance(const std::vector<float>& a, const std::vector<float>& b);
    std::vector<std::vector<float>> data_transform(float* data, int n, int dim);
    void data_transform(float* data, int n, std::vector<float>& out);
    float getlocaldensity1(const std::vector<std::vector<float>>& rows, float dc,
                           std::vector<float>& rho, std::vector<std::vector<float>>& dist);
    float getLocalDensity2(const std::vector<std::vector<float>>& rows, float dc,
                           std::vector<float>& rho, std::vector<std::vector<float>>& dist);
    void getDistanceToHigherDensity(const std::vector<std::vector<float>>& rows,
                                    const std::vector<std::vector<float>>& dist,
                                    const std::vector<float>& rho, std::vector<float>& delta,
                                    std::vector<int>& nneigh, float maxDist);
    void sort(std::vector<float>& values, std::vector<int>& order, int n);
    int assignment(float* rho, float* delta, int* nneigh, int* labels, int n, float sumRho,
                   float sumDelta);
    int cluster_dp(float* data, int n, int dim, float dc, float* rho, float* delta, int* nneigh);
    int cluster_densityPeaks(float* data, int n, int dim, float dc, float* rho, float* delta,
                             int* nneigh, int* labels);
    // The same clustering of (x, y) points, a row of distances at a time in vector lanes and
    // without the n x n table: several times faster on the hundreds of blobs of a textured
    // frame. Distances and weights are float and the exponential is its own, so densities agree
    // with the original to float rounding, and alike on every architecture.
    int cluster_densityPeaksM2(const float* data, int n, float dc, float* rho, float* delta,
                               int* nneigh, int* labels);
    // Distances from (x, y) to the points [from, to) of data into dist, and where weight is
    // given the density terms exp(-d^2 * invDenom) into it; returns the largest distance (0 for
    // none). lanes = false is the scalar form, which gives the same values.
    static float densityRow(float x, float y, const float* data, size_t from, size_t to,
                            float invDenom, float* dist, float* weight, bool lanes = true);
    int find_correct_cluster_label(int* labels, int n, int numClusters);
    cv::Rect cal_ROI(float* points, int* labels, int numClusters);

    int imgRows;
    int imgCols;
    float dc;
    int dataNum;
    int dataDim;
};

QBCODE_VISIBLE_END
