// Helpers shared by the test files.
#pragma once

#include <cctype>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

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

// The default parameter file with one "key: value" line replaced (first match after section).
inline std::string paramsWith(const std::string& section, const std::string& key,
                              const std::string& value) {
    std::string text = defaultParams();
    size_t at = text.find(section + ":");
    at = text.find(" " + key + ":", at);
    at = text.rfind('\n', at) + 1;
    size_t end = text.find('\n', at);
    return text.replace(at, end - at, "   " + key + ": " + value);
}

// The default parameter file without the line of one key of a section.
inline std::string paramsWithout(const std::string& section, const std::string& key) {
    std::string text = defaultParams();
    size_t at = text.find(section + ":");
    at = text.find(" " + key + ":", at);
    at = text.rfind('\n', at) + 1;
    size_t end = text.find('\n', at);
    return text.erase(at, end - at + 1);
}

// Skips a test that opens windows when no display exists.
inline bool hasDisplay() {
    const char* d = std::getenv("DISPLAY");
    return d != nullptr && *d != '\0';
}

}  // namespace testsupport
