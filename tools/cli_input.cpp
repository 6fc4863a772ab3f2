#include "cli_input.h"

#include <dirent.h>
#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <iostream>
#include <iterator>
#include <vector>

#include <opencv2/imgcodecs.hpp>

namespace cli {

namespace {

bool isFolder(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool imageName(const std::string& name) {
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos || name[0] == '.') return false;
    std::string ext = name.substr(dot + 1);
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const char* known :
         {"png", "jpg", "jpeg", "bmp", "tif", "tiff", "pgm", "ppm", "pbm", "pnm", "webp"})
        if (ext == known) return true;
    return false;
}

std::vector<std::string> folderImages(const std::string& folder) {
    std::vector<std::string> found;
    DIR* dir = ::opendir(folder.c_str());
    if (dir == nullptr) return {folder};  // reported as an image that cannot be read
    const std::string prefix = folder.back() == '/' ? folder : folder + "/";
    for (dirent* e; (e = ::readdir(dir)) != nullptr;)
        if (imageName(e->d_name) && !isFolder(prefix + e->d_name))
            found.push_back(prefix + e->d_name);
    ::closedir(dir);
    std::sort(found.begin(), found.end());
    return found;
}

}  // namespace

std::vector<std::string> expandInputs(const std::vector<std::string>& args) {
    std::vector<std::string> out;
    for (const std::string& a : args) {
        if (a != "-" && isFolder(a)) {
            const std::vector<std::string> in = folderImages(a);
            out.insert(out.end(), in.begin(), in.end());
            continue;
        }
        glob_t g{};
        if (a.find_first_of("*?[") != std::string::npos && !readableFile(a) &&
            ::glob(a.c_str(), 0, nullptr, &g) == 0) {
            for (size_t i = 0; i < g.gl_pathc; ++i)
                if (!isFolder(g.gl_pathv[i])) out.push_back(g.gl_pathv[i]);
        } else {
            out.push_back(a);
        }
        ::globfree(&g);
    }
    return out;
}

std::string indexedPath(const std::string& path, size_t index, size_t count) {
    if (count <= 1) return path;
    const size_t dot = path.rfind('.');
    const size_t slash = path.rfind('/');
    const size_t at =
        dot == std::string::npos || (slash != std::string::npos && dot < slash) ? path.size() : dot;
    return path.substr(0, at) + "_" + std::to_string(index) + path.substr(at);
}

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

bool readerOptions(const std::string& command, const std::string& params,
                   qbcode::ReaderOptions& options) {
    std::string path = params;
    if (path.empty()) {
        path = qbcode::defaultParamsPath();
        if (path.empty()) path = "the built-in defaults";
    } else if (!readableFile(path)) {
        std::cerr << "qbcode " << command << ": cannot read parameter file " << path << std::endl;
        return false;
    }
    options = readableFile(path) ? qbcode::ReaderOptions::fromFile(path) : qbcode::ReaderOptions();
    if (options.layers() > 1000) {
        std::cerr << "qbcode " << command << ": layer " << options.layers() << " in " << path
                  << " is out of range" << std::endl;
        return false;
    }
    return true;
}

}  // namespace cli
