// What the commands share: images from files or standard input, the parameter file.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "qbcode_reader.hpp"

namespace cli {

// The image at path as 8-bit grey; "-" reads an encoded image from standard input. Empty when
// it cannot be read or decoded.
cv::Mat loadGrey(const std::string& path);

// The images the arguments name, in order: a folder gives the image files in it, sorted by name
// (not its subfolders); a pattern with * ? or [ that is not itself a file gives its matches,
// sorted; anything else (a file, "-", a pattern matching nothing) stays as it is.
std::vector<std::string> expandInputs(const std::vector<std::string>& args);

// Where the picture of input `index` of `count` goes: with several, the path with "_index"
// before its extension.
std::string indexedPath(const std::string& path, size_t index, size_t count);

// A regular file we may read; opening a FIFO to find out would block.
bool readableFile(const std::string& path);

// The reader options of --params FILE, or without one (params "") of the default search. False,
// with the complaint on standard error under the command's name, for a file that cannot be read
// or a layer count out of range.
bool readerOptions(const std::string& command, const std::string& params,
                   qbcode::ReaderOptions& options);

}  // namespace cli
