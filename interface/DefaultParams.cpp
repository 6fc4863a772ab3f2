// Where a host that names no parameter file finds one: the working directory first (the C call's
// own rule), then the copy installed with the library, wherever the installation was moved.
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "qbcode_install_paths.h"
#include "qbcode_reader.hpp"

namespace qbcode {

namespace {

const char kFileName[] = "algorithm_parameters_v01.yml";

// A readable regular file: opening a FIFO or a directory to find out would block or fail late.
bool readableFile(const std::string& path) {
    struct stat st;
    return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
           ::access(path.c_str(), R_OK) == 0;
}

// The folder of the binary this code was loaded from: the shared library, or a program that
// linked the static core.
std::string moduleDir() {
    Dl_info info;
    if (::dladdr(reinterpret_cast<void*>(&defaultParamsPath), &info) == 0 ||
        info.dli_fname == nullptr)
        return std::string();
    const std::string path = info.dli_fname;
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

}  // namespace

std::vector<std::string> defaultParamsSearch() {
    std::vector<std::string> order{std::string("./") + kFileName};
    const std::string dir = moduleDir();
    if (!dir.empty())
        order.push_back(dir + "/" QBCODE_LIBDIR_TO_DATADIR "/qbcode_hexagon_recognition/" +
                        kFileName);
    order.push_back(std::string(QBCODE_INSTALL_DATADIR "/qbcode_hexagon_recognition/") + kFileName);
    return order;
}

std::string defaultParamsPath() {
    const std::vector<std::string> order = defaultParamsSearch();
    if (readableFile(order[0])) return order[0];
    for (size_t i = 1; i < order.size(); ++i) {
        if (!readableFile(order[i])) continue;
        // Without the library folder's "../" in what a host prints.
        char* real = ::realpath(order[i].c_str(), nullptr);
        const std::string found = real != nullptr ? std::string(real) : order[i];
        std::free(real);
        return found;
    }
    return std::string();
}

ReaderOptions ReaderOptions::fromDefaultSearch() {
    const std::string path = defaultParamsPath();
    return path.empty() ? ReaderOptions() : fromFile(path);
}

}  // namespace qbcode
