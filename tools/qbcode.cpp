// Command-line front end of the reader.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "commands.h"
#include "qbcode_hexagon_recognition.h"

namespace {

int usage() {
    std::cerr
        << "usage: qbcode version\n"
           "       qbcode dots LAYERS\n"
           "       qbcode read IMAGE... [--params FILE] [--json] [--debug]\n"
           "       qbcode render (--bits B | --payload N | --payload-hex H) [options] -o OUT\n"
           "       qbcode grade IMAGE... [--json]\n";
    return 2;
}

int cmdVersion() {
    char banner[64] = {0};
    get_version(banner, static_cast<int>(sizeof(banner) - 1));
    std::cout << banner << std::endl;
    return 0;
}

int cmdDots(int argc, char** argv) {
    if (argc < 3) return usage();
    char* end = nullptr;
    const long layers = std::strtol(argv[2], &end, 10);
    if (end == argv[2] || *end != '\0') return usage();
    std::cout << get_dots_num(static_cast<int>(layers)) << std::endl;
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage();
    if (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0) {
        usage();
        return 0;
    }
    const std::string cmd = argv[1];
    if (cmd == "version") return cmdVersion();
    if (cmd == "dots") return cmdDots(argc, argv);
    if (cmd == "read") return cmdRead(argc, argv);
    if (cmd == "render") return cmdRender(argc, argv);
    if (cmd == "grade") return cmdGrade(argc, argv);
    return usage();
}
