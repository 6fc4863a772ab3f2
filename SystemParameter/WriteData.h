// Writes a matrix as text, one matrix row per line, for inspecting intermediate results.
#pragma once

#include <fstream>
#include <string>

#include <opencv2/core.hpp>

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class WriteData {
public:
    // Throws cv::Exception (-215) for an empty matrix and (-210) for an unsupported depth.
    void saveAsText(std::string filename, cv::InputArray src);

    template <class T>
    void writeStream(std::ofstream& out, const T* data, int rows, int cols, int step, int channels);
};

QBCODE_VISIBLE_END
