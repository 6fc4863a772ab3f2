// Command-line front end of the reader.
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "commands.h"
#include "qbcode_hexagon_recognition.h"
#include "qbcode_reader.hpp"

namespace {

const char kUsage[] =
    "usage: qbcode COMMAND [ARGS]\n"
    "       qbcode read IMAGE|FOLDER... [--params FILE] [--json|--csv] [--jobs N] [--overlay "
    "PATH]\n"
    "       qbcode scan VIDEO|/dev/videoN|INDEX [--json] [--every-frame] [--overlay OUT.avi]\n"
    "       qbcode render (--bits B | --payload N | --payload-hex H) [options] -o OUT\n"
    "       qbcode grade IMAGE... [--params FILE] [--json] [--overlay PATH]\n"
    "       qbcode dots RINGS       positions of a code with RINGS rings\n"
    "       qbcode version          (also --version)\n"
    "       qbcode help [COMMAND]   (also -h, --help; COMMAND --help)\n"
    "IMAGE - reads an image from standard input.\n";

int usageError(const std::string& message) {
    std::cerr << "qbcode: " << message << "\n" << kUsage;
    return 2;
}

int cmdDots(int argc, char** argv) {
    if (argc == 3 && (std::strcmp(argv[2], "-h") == 0 || std::strcmp(argv[2], "--help") == 0)) {
        std::cout << "usage: qbcode dots RINGS\n";
        return 0;
    }
    if (argc != 3) return usageError("dots takes one number of rings");
    char* end = nullptr;
    const long layers = std::strtol(argv[2], &end, 10);
    if (end == argv[2] || *end != '\0') return usageError("dots takes one number of rings");
    std::cout << get_dots_num(static_cast<int>(layers)) << std::endl;
    return 0;
}

int dispatch(const std::string& cmd, int argc, char** argv) {
    if (cmd == "read") return cmdRead(argc, argv);
    if (cmd == "render") return cmdRender(argc, argv);
    if (cmd == "grade") return cmdGrade(argc, argv);
    if (cmd == "scan") return cmdScan(argc, argv);
    if (cmd == "dots") return cmdDots(argc, argv);
    return usageError("unknown command " + cmd);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usageError("no command given");
    const std::string cmd = argv[1];
    if (cmd == "-h" || cmd == "--help" || (cmd == "help" && argc == 2)) {
        std::cout << kUsage;
        return 0;
    }
    if (cmd == "help") {
        // "qbcode help read" is "qbcode read --help".
        char help[] = "--help";
        char* args[] = {argv[0], argv[2], help, nullptr};
        return dispatch(argv[2], 3, args);
    }
    if (cmd == "version" || cmd == "--version") {
        std::cout << qbcode::versionBanner() << std::endl;
        return 0;
    }
    return dispatch(cmd, argc, argv);
}
