// Accuracy suite: renders codes with known payloads over a grid of camera conditions, reads them
// back through the C entry point and reports decode rates, wrong reads, status codes and times.
// Also runs a no-code set where any success is a false read.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "qbcode_hexagon_recognition.h"
#include "qbcode_render.h"
#include "../read_line.h"
#include "conditions.h"

namespace fs = std::filesystem;

namespace {

using namespace accuracy;

struct Outcome {
    int images = 0, exact = 0, wrong = 0;
    std::map<int, int> statuses;
    std::vector<double> ms;
};

// A read's decision margin, and whether its bits were right.
struct Margin {
    double margin;
    bool exact;
    std::string condition;
    int image;
};

Outcome run(const Condition& cond, int images, uint64_t seed, const std::string& params,
            const std::string& failDir, int keepFailures, std::vector<std::string>* reference,
            std::vector<Margin>* margins) {
    Outcome o;
    Rng rng(seed ^ std::hash<std::string>()(cond.name));
    int kept = 0;
    for (int i = 0; i < images; ++i) {
        Sample s = cond.make(rng);
        std::vector<int> bits(91, 0);
        int box[4] = {0, 0, 0, 0};
        const auto t0 = std::chrono::steady_clock::now();
        int status = 0;
        bool exact = false;
        if (s.codes.empty() && margins != nullptr) {
            // The full result, for its decision margin.
            qbcode_result r;
            status = qbcode_read(s.image.data, s.image.rows, s.image.cols, 0, params.c_str(), &r);
            std::copy(r.bits, r.bits + 91, bits.begin());
            std::copy(r.box, r.box + 4, box);
            exact = status == 0 && !s.bits.empty() && bits == s.bits;
            if (status == 0 && !s.bits.empty())
                margins->push_back({r.decision_margin, exact, cond.name, i});
        } else if (s.codes.empty() || s.anyCode) {
            status = quelbor_hexagon_recognition(s.image.data, s.image.rows, s.image.cols, 0,
                                                 params.c_str(), bits.data(), 91, box, 4);
            exact = status == 0 &&
                    (s.anyCode ? std::find(s.codes.begin(), s.codes.end(), bits) != s.codes.end()
                               : !s.bits.empty() && bits == s.bits);
        } else {
            // Exact when every code came back; a read that matches none of them is wrong.
            std::vector<qbcode_result> found(8);
            const int n = qbcode_read_all(s.image.data, s.image.rows, s.image.cols, 0,
                                          params.c_str(), found.data(), 8);
            size_t matched = 0;
            bool stray = false;
            for (int k = 0; k < n; ++k) {
                const std::vector<int> got(found[k].bits, found[k].bits + found[k].bit_count);
                const bool known = std::find(s.codes.begin(), s.codes.end(), got) != s.codes.end();
                matched += known;
                stray = stray || !known;
            }
            exact = !stray && matched == s.codes.size();
            status = n < 0 ? n : (exact || stray) ? 0 : QBCODE_NO_RESULT;
        }
        const auto t1 = std::chrono::steady_clock::now();
        o.ms.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
        ++o.images;
        ++o.statuses[status];
        // One line per image of the reference table: condition, index, then the read.
        if (reference)
            reference->push_back(cond.name + '\t' + std::to_string(i) + '\t' +
                                 readLine(status, bits, box));
        const bool success = status == 0;
        if (exact) ++o.exact;
        if (success && !exact) ++o.wrong;
        const bool failed = s.bits.empty() && s.codes.empty() ? success : !exact;
        if (failed && kept < keepFailures && !failDir.empty()) {
            std::string name = cond.name;
            for (char& ch : name)
                if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
            const std::string stem =
                failDir + "/" + name + "_" + std::to_string(i) + "_status" + std::to_string(status);
            cv::imwrite(stem + ".png", s.image);
            // What the image really holds, to compare with what was read.
            if (!s.bits.empty()) {
                std::ofstream truth(stem + ".bits");
                for (int b : s.bits) truth << b;
                truth << '\n';
            }
            ++kept;
        }
    }
    return o;
}

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

std::string histogram(const std::map<int, int>& h) {
    std::string s;
    for (const auto& [status, n] : h)
        s += (s.empty() ? "" : " ") + std::to_string(status) + ":" + std::to_string(n);
    return s;
}

// Decode rate against each swept axis, one panel per axis.
void writePlot(const std::string& path, const std::vector<Condition>& conds,
               const std::vector<Outcome>& outcomes) {
    std::vector<std::string> axes;
    for (const auto& c : conds)
        if (!c.axis.empty() && std::find(axes.begin(), axes.end(), c.axis) == axes.end())
            axes.push_back(c.axis);
    if (axes.empty()) return;
    const int pw = 360, ph = 240, colsN = 3;
    const int rowsN = static_cast<int>((axes.size() + colsN - 1) / colsN);
    cv::Mat plot(rowsN * ph, colsN * pw, CV_8UC3, cv::Scalar(255, 255, 255));
    auto text = [&plot](const std::string& t, cv::Point at, double scale) {
        cv::putText(plot, t, at, cv::FONT_HERSHEY_PLAIN, scale, cv::Scalar(0, 0, 0));
    };
    for (size_t a = 0; a < axes.size(); ++a) {
        const int ox = static_cast<int>(a % colsN) * pw, oy = static_cast<int>(a / colsN) * ph;
        std::vector<std::pair<double, double>> pts;
        for (size_t i = 0; i < conds.size(); ++i)
            if (conds[i].axis == axes[a] && outcomes[i].images > 0)
                pts.emplace_back(conds[i].value, 100.0 * outcomes[i].exact / outcomes[i].images);
        double lo = pts.front().first, hi = pts.front().first;
        for (auto& p : pts) lo = std::min(lo, p.first), hi = std::max(hi, p.first);
        if (hi == lo) hi = lo + 1;
        const cv::Rect area(ox + 50, oy + 30, pw - 70, ph - 75);
        cv::rectangle(plot, area, cv::Scalar(0, 0, 0), 1);
        for (int pct = 0; pct <= 100; pct += 25) {
            const int y = area.y + area.height - pct * area.height / 100;
            cv::line(plot, {area.x, y}, {area.x + area.width, y}, cv::Scalar(220, 220, 220), 1);
            text(std::to_string(pct), {ox + 15, y + 4}, 0.9);
        }
        cv::Point prev(-1, -1);
        for (auto& p : pts) {
            const cv::Point q(
                area.x + static_cast<int>((p.first - lo) / (hi - lo) * area.width),
                area.y + area.height - static_cast<int>(p.second / 100.0 * area.height));
            if (prev.x >= 0) cv::line(plot, prev, q, cv::Scalar(200, 80, 0), 2, cv::LINE_AA);
            cv::circle(plot, q, 3, cv::Scalar(0, 0, 200), -1, cv::LINE_AA);
            text(cv::format("%g", p.first), {q.x - 8, area.y + area.height + 14}, 0.8);
            prev = q;
        }
        text(axes[a], {ox + 50, oy + ph - 18}, 1.0);
        text("decode %", {ox + 50, oy + 20}, 1.0);
    }
    cv::imwrite(path, plot);
}

// Exact and wrong reads as a refusal threshold on the decision margin would leave them, over every
// read of the run, with the threshold `mark` drawn in.
void writeMarginPlot(const std::string& path, const std::vector<Margin>& margins, int codeFrames,
                     double mark) {
    const int w = 720, h = 380;
    const cv::Rect area(60, 50, w - 90, h - 100);
    cv::Mat plot(h, w, CV_8UC3, cv::Scalar(255, 255, 255));
    auto text = [&plot](const std::string& t, cv::Point at, const cv::Scalar& c) {
        cv::putText(plot, t, at, cv::FONT_HERSHEY_PLAIN, 1.0, c);
    };
    auto x = [&](double t) { return area.x + static_cast<int>((t + 1) / 2 * area.width); };
    int maxWrong = 1;
    for (const Margin& m : margins) maxWrong += !m.exact;
    cv::rectangle(plot, area, cv::Scalar(0, 0, 0), 1);
    cv::Point prevExact(-1, -1), prevWrong(-1, -1);
    for (int k = 0; k <= 100; ++k) {
        const double t = -1 + k * 0.02;
        int exact = 0, wrong = 0;
        for (const Margin& m : margins)
            if (m.margin >= t) (m.exact ? exact : wrong)++;
        const cv::Point pe(
            x(t),
            area.y + area.height - static_cast<int>(area.height * exact / std::max(1, codeFrames)));
        const cv::Point pw(x(t), area.y + area.height - area.height * wrong / maxWrong);
        if (k > 0) {
            cv::line(plot, prevExact, pe, cv::Scalar(200, 80, 0), 2, cv::LINE_AA);
            cv::line(plot, prevWrong, pw, cv::Scalar(0, 0, 200), 2, cv::LINE_AA);
        }
        prevExact = pe;
        prevWrong = pw;
    }
    for (double t = -1; t <= 1.001; t += 0.5)
        text(cv::format("%g", t), {x(t) - 8, h - 36}, {0, 0, 0});
    cv::line(plot, {x(mark), area.y}, {x(mark), area.y + area.height}, cv::Scalar(0, 150, 0), 1);
    text(cv::format("shipped %.2f", mark), {x(mark) + 4, area.y + 14}, {0, 150, 0});
    text("exact reads (share of code frames, 0-100 %)", {area.x, 20}, {200, 80, 0});
    text(cv::format("wrong reads (count, 0-%d)", maxWrong), {area.x, 38}, {0, 0, 200});
    text("refusal threshold on the decision margin", {area.x, h - 12}, {0, 0, 0});
    cv::imwrite(path, plot);
}

int usage() {
    std::cerr << "usage: qbcode_accuracy [--quick] [--images N] [--seed N] [--params FILE]\n"
                 "                       [--photos DIR] [--out DIR] [--only NAME] [--check]\n"
                 "                       [--keep N] [--record FILE | --compare FILE] [--margins]\n"
                 "--record writes every read (status, bits, box) to FILE; --compare reads the\n"
                 "conditions FILE names and fails on any difference. --margins reads through\n"
                 "qbcode_read and plots exact and wrong reads against a threshold on their\n"
                 "decision margin (run it with the threshold off in --params).\n";
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::map<std::string, std::string> opt = {
        {"--images", "200"}, {"--seed", "20261122"},    {"--params", QBCODE_DEFAULT_PARAMS},
        {"--photos", ""},    {"--out", "accuracy-out"}, {"--only", ""},
        {"--keep", "3"},     {"--record", ""},          {"--compare", ""}};
    bool quick = false, check = false, withMargins = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--quick" || a == "--check")
            (a == "--quick" ? quick : check) = true;
        else if (a == "--margins")
            withMargins = true;
        else if (opt.count(a) && i + 1 < argc)
            opt[a] = argv[++i];
        else
            return usage();
    }
    const int images = std::atoi(opt["--images"].c_str()), keep = std::atoi(opt["--keep"].c_str());
    const uint64_t seed = std::strtoull(opt["--seed"].c_str(), nullptr, 10);
    const std::string &outDir = opt["--out"], &only = opt["--only"];
    const std::string &recordFile = opt["--record"], &compareFile = opt["--compare"];
    if (images <= 0) return usage();

    auto conds = buildConditions(loadPhotos(opt["--photos"]));
    auto keepIf = [&conds](const std::function<bool(const Condition&)>& wanted) {
        conds.erase(std::remove_if(conds.begin(), conds.end(),
                                   [&](const Condition& c) { return !wanted(c); }),
                    conds.end());
    };
    // The fixed-seed form run by the test suite: the bars' own conditions, fewer images.
    if (quick)
        keepIf([](const Condition& c) {
            return c.set == "nominal" || c.set == "hard" || c.set == "nocode";
        });
    if (!only.empty())
        keepIf([&](const Condition& c) { return c.name.find(only) != std::string::npos; });
    // The reference table fixes every read of a set of renders, so that faster or restructured
    // code can be held to the same status, bits and box.
    std::vector<std::string> expected;
    if (!compareFile.empty()) {
        std::ifstream in(compareFile);
        if (!in) {
            std::cerr << "cannot read " << compareFile << std::endl;
            return 2;
        }
        for (std::string line; std::getline(in, line);)
            if (!line.empty() && line[0] != '#') expected.push_back(line);
        keepIf([&](const Condition& c) {
            return std::any_of(expected.begin(), expected.end(), [&](const std::string& line) {
                return line.compare(0, c.name.size() + 1, c.name + "\t") == 0;
            });
        });
    }
    const bool referenceRun = !recordFile.empty() || !compareFile.empty();
    fs::create_directories(outDir + "/failed");

    std::vector<Outcome> outcomes;
    std::ofstream csv(outDir + "/accuracy.csv");
    csv << "condition,set,images,exact_rate,refused_rate,wrong_rate,median_ms,statuses\n";
    const char* row = "%-30s%-9s%7s%10s%9s%9s%10s  %s\n";
    std::printf(row, "condition", "set", "images", "decode%", "refused%", "wrong%", "med ms",
                "statuses");
    bool ok = true;
    std::vector<std::string> reference;
    std::vector<Margin> margins;
    int codeFrames = 0;
    for (const auto& c : conds) {
        const int n = c.set == "nominal" && !quick && !referenceRun ? images * 5 : images;
        Outcome o = run(c, n, seed, opt["--params"], outDir + "/failed", keep,
                        referenceRun ? &reference : nullptr, withMargins ? &margins : nullptr);
        if (c.set != "nocode") codeFrames += o.images;
        const double exact = 100.0 * o.exact / o.images;
        const double wrong = 100.0 * o.wrong / o.images;
        const double falseReads =
            c.set == "nocode" && o.statuses.count(0) ? 100.0 * o.statuses.at(0) / o.images : 0.0;
        // A no-code set reports the share of images read as no code, and its false reads.
        const double shownRate = c.set == "nocode" ? 100.0 - falseReads : exact;
        const double shownWrong = c.set == "nocode" ? falseReads : wrong;
        // Refused: a code frame that came back with a status and no bits.
        const double refused = c.set == "nocode" ? 0.0 : 100.0 - exact - wrong;
        std::printf(row, c.name.c_str(), c.set.c_str(), std::to_string(o.images).c_str(),
                    cv::format("%.1f", shownRate).c_str(),
                    c.set == "nocode" ? "-" : cv::format("%.1f", refused).c_str(),
                    cv::format("%.1f", shownWrong).c_str(),
                    cv::format("%.1f", median(o.ms)).c_str(), histogram(o.statuses).c_str());
        csv << '"' << c.name << "\"," << c.set << ',' << o.images << ','
            << (c.set == "nocode" ? 0.0 : exact / 100.0) << ',' << refused / 100.0 << ','
            << shownWrong / 100.0 << ',' << median(o.ms) << ",\"" << histogram(o.statuses)
            << "\"\n";
        // The quick form has too few images for the full bars: it demands no wrong read and
        // the decode rate the full bars imply for a dozen images (at most one miss).
        const double nominalBar = quick ? 90.0 : 99.5, hardBar = quick ? 90.0 : 95.0;
        if (c.set == "nominal" && (exact < nominalBar || o.wrong > 0)) ok = false;
        if (c.set == "hard" && (exact < hardBar || wrong >= (quick ? 1e-9 : 1.0))) ok = false;
        if (c.set == "nocode" && c.name != "fake hex fields" && falseReads > 0) ok = false;
        if ((c.set == "cut" || c.set == "camera" || c.set == "cover" || c.set == "scene") &&
            o.wrong > 0)
            ok = false;
        outcomes.push_back(std::move(o));
    }
    writePlot(outDir + "/accuracy.png", conds, outcomes);
    if (withMargins) {
        double lowestExact = 1e9, highestWrong = -1e9;
        for (const Margin& m : margins) {
            if (m.exact)
                lowestExact = std::min(lowestExact, m.margin);
            else
                highestWrong = std::max(highestWrong, m.margin);
        }
        cv::FileStorage shipped(QBCODE_DEFAULT_PARAMS, cv::FileStorage::READ);
        const double mark = static_cast<double>(shipped["Verification"]["minConfidence"]);
        writeMarginPlot(outDir + "/margins.png", margins, codeFrames, mark);
        // Per condition: the weakest exact read, and the exact reads each threshold would refuse.
        const double steps[] = {-0.8, -0.6, -0.4, -0.2, 0.0};
        std::printf("%-30s%9s  exact reads below -0.8 -0.6 -0.4 -0.2 0\n", "condition", "lowest");
        for (const auto& c : conds) {
            double lowest = 1.0;
            int below[5] = {0, 0, 0, 0, 0};
            for (const Margin& m : margins) {
                if (m.condition != c.name) continue;
                if (!m.exact) {
                    if (m.margin >= mark)
                        std::printf("wrong read above the shipped threshold: %s #%d, margin %.3f\n",
                                    c.name.c_str(), m.image, m.margin);
                    continue;
                }
                lowest = std::min(lowest, m.margin);
                for (int k = 0; k < 5; ++k) below[k] += m.margin < steps[k];
            }
            if (lowest < 0.0)
                std::printf("%-30s%9.3f  %d %d %d %d %d\n", c.name.c_str(), lowest, below[0],
                            below[1], below[2], below[3], below[4]);
        }
        std::printf(
            "decision margin: lowest of an exact read %.3f, highest of a wrong read %.3f; "
            "plot: %s/margins.png\n",
            lowestExact, highestWrong, outDir.c_str());
    }
    std::cout << "table: " << outDir << "/accuracy.csv, plot: " << outDir
              << "/accuracy.png, failures: " << outDir << "/failed/\n";
    std::cout << (ok ? "all bars met" : "some bars missed") << std::endl;
    if (!recordFile.empty()) {
        std::ofstream out(recordFile);
        out << "# condition\timage\tstatus\tbits (hex, first bit first)\tbox; seed " << seed << ", "
            << images << " images per condition\n";
        for (const auto& line : reference) out << line << '\n';
        std::cout << "recorded " << reference.size() << " reads in " << recordFile << std::endl;
    }
    if (!compareFile.empty()) {
        int differ = 0;
        for (const auto& line : expected)
            if (std::find(reference.begin(), reference.end(), line) == reference.end() &&
                ++differ <= 20)
                std::cout << "differs: " << line << std::endl;
        std::cout << reference.size() << " reads compared, " << differ << " differ" << std::endl;
        if (differ > 0 || reference.size() != expected.size()) return 1;
    }
    return check && !ok ? 1 : 0;
}
