#include "cli_input.h"

#include <sys/stat.h>
#include <unistd.h>

#include <iostream>
#include <iterator>
#include <vector>

#include <opencv2/imgcodecs.hpp>

namespace cli {

bool readableFile(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
           ::access(path.c_str(), R_OK) == 0;
}

cv::Mat loadGrey(const std::string& path) {
    try {
        if (path != "-") return cv::imread(path, cv::IMREAD_GRAYSCALE);
        // Standard input can be read once only: a second "-" finds it empty.
        const std::vector<uchar> bytes((std::istreambuf_iterator<char>(std::cin)),
                                       std::istreambuf_iterator<char>());
        if (bytes.empty()) return cv::Mat();
        return cv::imdecode(bytes, cv::IMREAD_GRAYSCALE);
    } catch (const cv::Exception&) {
        return cv::Mat();
    }
}

}  // namespace cli
