// What the reader accepts before any parser or stage sees it: the parameter file's kind, size and
// nesting, and the cost limits on parameter values and images.
#pragma once

#include <cstddef>
#include <string>

namespace qbcode {
namespace limits {

// Parameter file. Real files are a few kilobytes and nest three or four levels.
constexpr size_t kMaxParamBytes = 64 * 1024;
constexpr int kMaxNesting = 32;
// Brackets, colons and dashes in all: each level of nesting needs one, so this bounds the
// parser's recursion however quotes are placed.
constexpr int kMaxStructureMarks = 1024;

// Costs of a read.
constexpr size_t kMaxScales = 8;  // entries of "HessianScale" and of "LogScale"
constexpr double kMaxDnRatio = 2.0;
constexpr int kMaxImageSide = 8192;                   // rows or columns
constexpr long long kMaxImagePixels = 4096LL * 4096;  // before and after the downsampling
constexpr int kMaxLayer = 32;

inline bool imageTooLarge(int rows, int cols) {
    return rows > kMaxImageSide || cols > kMaxImageSide ||
           static_cast<long long>(rows) * cols > kMaxImagePixels;
}

}  // namespace limits

namespace paramfile {

// Reads a parameter file into text without ever blocking: 0, -1 when it is missing, unreadable
// or a directory (as before), or the refusal status of a FIFO, device or socket, or of a file
// above the size limit.
int readFile(const std::string& path, std::string& text);

// 0, or the refusal status of text above the size limit or nested too deeply for the parser;
// -1 (unreadable) for YAML text that is more than one block mapping, on which the parser stalls.
int checkText(const std::string& text);

// A stage's configuration status for a failed section read: the refusals of the file or of a
// value keep their own status, the older failures become the stage's code.
int configStatus(int readResult, int stageStatus);

}  // namespace paramfile
}  // namespace qbcode
