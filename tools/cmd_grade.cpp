// qbcode grade IMAGE... [--params FILE] [--json]: print-quality grade of each image's code.
#include <cmath>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>

#include "cli_input.h"
#include "commands.h"
#include "overlay.h"
#include "qbcode_print_quality.hpp"

namespace {

const char kGradeUsage[] =
    "usage: qbcode grade IMAGE... [--params FILE] [--json] [--overlay PATH]\n"
    "  IMAGE           an image file; - reads one from standard input\n"
    "  --overlay PATH  write the image with each dot's grade drawn in: found dots ringed from\n"
    "                  red to green by roundness and centring, merged dots magenta, missing\n"
    "                  dots crossed (with several images, PATH gets the image's index)\n"
    "  --params FILE   parameter file (default: ./algorithm_parameters_v01.yml if present,\n"
    "                  else the installed one)\n"
    "exit status: 0 when every image was graded, 1 when one was not, 2 for bad arguments\n";

int gradeUsage(const std::string& message) {
    std::cerr << "qbcode grade: " << message << "\n" << kGradeUsage;
    return 2;
}

std::string number(double v) {
    if (!std::isfinite(v)) return "null";
    char buf[32];
    std::snprintf(buf, sizeof(buf), "%.6g", v);
    return buf;
}

std::string quoted(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof(buf), "\\u%04x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

void printJson(const std::string& image, const qbcode::GradeResult& g) {
    std::ostringstream o;
    o << "{\"image\":" << quoted(image) << ",\"status\":" << g.status
      << ",\"statusName\":" << quoted(qbcode::gradeStatusName(g.status));
    if (g.status == 0) {
        o << ",\"rating\":" << quoted(qbcode::gradeRating(g.total, g.maxTotal))
          << ",\"total\":" << number(g.total) << ",\"maxTotal\":" << number(g.maxTotal);
        o << ",\"scores\":{\"area\":" << number(g.area) << ",\"intensity\":" << number(g.intensity)
          << ",\"roundness\":" << number(g.roundness) << ",\"centroid\":" << number(g.centroid)
          << ",\"rotatedBox\":" << number(g.rotatedBox)
          << ",\"separation\":" << number(g.separation) << "}";
        o << ",\"maxScores\":{\"area\":" << number(g.maxArea)
          << ",\"intensity\":" << number(g.maxIntensity)
          << ",\"roundness\":" << number(g.maxRoundness)
          << ",\"centroid\":" << number(g.maxCentroid)
          << ",\"rotatedBox\":" << number(g.maxRotatedBox)
          << ",\"separation\":" << number(g.maxSeparation) << "}";
    }
    o << ",\"orientation\":" << g.orientation << ",\"gap\":" << number(g.gap)
      << ",\"dotsFound\":" << g.dotsFound << ",\"connectedPairs\":" << g.connectedPairs
      << ",\"bits\":[";
    for (size_t i = 0; i < g.bits.size(); ++i) o << (i ? "," : "") << g.bits[i];
    o << "],\"dots\":[";
    for (size_t i = 0; i < g.dots.size(); ++i) {
        const qbcode::DotGrade& d = g.dots[i];
        o << (i ? "," : "") << "{\"position\":" << d.position << ",\"bit\":" << d.bit
          << ",\"x\":" << number(d.x) << ",\"y\":" << number(d.y)
          << ",\"found\":" << (d.found ? "true" : "false") << ",\"area\":" << number(d.area)
          << ",\"intensity\":" << number(d.intensity) << ",\"roundness\":" << number(d.roundness)
          << ",\"offset\":" << number(d.offset) << ",\"boxLength\":" << number(d.boxLength)
          << ",\"boxWidth\":" << number(d.boxWidth) << ",\"label\":" << d.label << "}";
    }
    o << "]}";
    std::cout << o.str() << std::endl;
}

void printText(const std::string& image, const qbcode::GradeResult& g) {
    if (g.status != 0) {
        std::cout << image << ": not graded: " << qbcode::gradeStatusName(g.status) << " ("
                  << g.status << ")";
        if (g.status == -804) std::cout << ", " << g.dotsFound << " dots measured";
        std::cout << std::endl;
        return;
    }
    char line[128];
    std::snprintf(line, sizeof(line), "%s: %.1f / %.0f (%s)", image.c_str(), g.total, g.maxTotal,
                  qbcode::gradeRating(g.total, g.maxTotal));
    std::cout << line << std::endl;
    const struct {
        const char* name;
        double score, max;
    } rows[] = {{"dot area", g.area, g.maxArea},
                {"dot intensity", g.intensity, g.maxIntensity},
                {"roundness", g.roundness, g.maxRoundness},
                {"centroid", g.centroid, g.maxCentroid},
                {"rotated box", g.rotatedBox, g.maxRotatedBox},
                {"separation", g.separation, g.maxSeparation}};
    for (const auto& r : rows) {
        std::snprintf(line, sizeof(line), "  %-14s %6.1f / %.0f", r.name, r.score, r.max);
        std::cout << line << std::endl;
    }
    std::snprintf(line, sizeof(line), "  dots measured %d, merged pairs %d, spacing %.1f px",
                  g.dotsFound, g.connectedPairs, g.gap);
    std::cout << line << std::endl;
}

}  // namespace

int cmdGrade(int argc, char** argv) {
    std::vector<std::string> images;
    std::string params, overlay;
    bool json = false;
    for (int i = 2; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--json") {
            json = true;
        } else if (a == "-h" || a == "--help") {
            std::cout << kGradeUsage;
            return 0;
        } else if (a == "--params" || a == "--overlay") {
            if (++i >= argc) return gradeUsage(a + " needs a path");
            (a == "--params" ? params : overlay) = argv[i];
        } else if (a.size() > 1 && a[0] == '-') {
            return gradeUsage("unknown option " + a);
        } else {
            images.push_back(a);
        }
    }
    if (images.empty()) return gradeUsage("no image given");
    // No --params: the library's own search, down to the defaults built in.
    if (!params.empty() && !cli::readableFile(params)) {
        std::cerr << "qbcode grade: cannot read the parameter file " << params << std::endl;
        return 2;
    }

    int failures = 0;
    for (size_t k = 0; k < images.size(); ++k) {
        const std::string& path = images[k];
        const cv::Mat img = cli::loadGrey(path);
        if (img.empty()) {
            ++failures;
            if (json)
                std::cout << "{\"image\":" << quoted(path)
                          << ",\"error\":\"cannot read the image\"}" << std::endl;
            else
                std::cout << path << ": cannot read the image" << std::endl;
            continue;
        }
        const cv::Mat pixels = img.isContinuous() ? img : img.clone();
        std::string name = path.substr(path.find_last_of('/') + 1);
        name = name.substr(0, name.find_last_of('.'));
        qbcode::GradeResult result;
        qbcode::grade(pixels.data, pixels.rows, pixels.cols, params, result, name);
        if (result.status != 0) ++failures;
        if (!overlay.empty()) {
            cv::Mat picture = cli::colourCopy(pixels);
            const qbcode::Result read =
                qbcode::read(qbcode::ImageView(pixels.data, pixels.rows, pixels.cols, pixels.step),
                             params.empty() ? qbcode::ReaderOptions::fromDefaultSearch()
                                            : qbcode::ReaderOptions::fromFile(params));
            cli::drawGrade(picture, result, read);
            const std::string to = cli::indexedPath(overlay, k, images.size());
            if (!cli::writePicture(to, picture))
                std::cerr << "qbcode grade: cannot write " << to << std::endl;
        }
        if (json)
            printJson(path, result);
        else
            printText(path, result);
    }
    return failures == 0 ? 0 : 1;
}
