// What every test file includes: the standard, OpenCV and gtest headers they use, and the
// helpers they share.
#pragma once

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace testsupport {

// A test name from printf-style values: every character gtest refuses becomes '_'.
template <typename... Args>
std::string label(const char* format, Args... args) {
    char buf[128];
    std::snprintf(buf, sizeof buf, format, args...);
    std::string name = buf;
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

inline std::string tmpPath(const std::string& name) {
    return std::string(QBCODE_TEST_TMP) + "/" + name;
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

inline std::string writeFile(const std::string& name, const std::string& text) {
    const std::string path = tmpPath(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

inline std::string defaultParams() {
    return readFile(QBCODE_DEFAULT_PARAMS);
}

// The text with the line of one key of a section (its first after the section's name) replaced
// by "key: value", or removed when value is null.
inline std::string setKey(std::string text, const std::string& section, const std::string& key,
                          const char* value) {
    size_t at = text.find(" " + key + ":", text.find(section + ":"));
    at = text.rfind('\n', at) + 1;
    const size_t end = text.find('\n', at);
    return value ? text.replace(at, end - at, "   " + key + ": " + value)
                 : text.erase(at, end - at + 1);
}

inline std::string paramsWith(const std::string& section, const std::string& key,
                              const std::string& value) {
    return setKey(defaultParams(), section, key, value.c_str());
}

inline std::string paramsWithout(const std::string& section, const std::string& key) {
    return setKey(defaultParams(), section, key, nullptr);
}

// A qbcode command run in-process: its status and what it printed.
struct Command {
    int status;
    std::string out, err;
};

inline Command runCommand(int (*cmd)(int, char**), std::vector<std::string> args) {
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Command c;
    c.status = cmd(static_cast<int>(args.size()), argv.data());
    c.out = testing::internal::GetCapturedStdout();
    c.err = testing::internal::GetCapturedStderr();
    return c;
}

}  // namespace testsupport

// Test files only: the helpers read as part of the test language.
using namespace testsupport;
