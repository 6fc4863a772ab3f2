// What the "Camera" and "Verification" sections cost a read that succeeds at once: the shipped
// file against the same file without them, on the same nominal camera-like frames.
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include "qbcode_reader.hpp"
#include "qbcode_render.h"

namespace {

const std::vector<cv::Mat>& nominalFrames() {
    static const std::vector<cv::Mat> frames = [] {
        std::vector<cv::Mat> out;
        for (uint64_t seed = 1; seed <= 8; ++seed) {
            qbrender::CodeStyle style;
            style.rotationDeg = 13.0 * seed;
            out.push_back(qbrender::renderCamera(qbrender::randomBits(seed), style,
                                                 qbrender::typicalCamera(seed)));
        }
        return out;
    }();
    return frames;
}

// The shipped file cut before the named section; the new sections sit at its end.
qbcode::ReaderOptions shippedUpTo(const std::string& section) {
    std::ifstream in(QBCODE_DEFAULT_PARAMS);
    std::stringstream text;
    text << in.rdbuf();
    std::string yaml = text.str();
    if (!section.empty()) yaml = yaml.substr(0, yaml.find("\n" + section + ":")) + "\n";
    return qbcode::ReaderOptions::fromYaml(yaml);
}

// Arg 0: the shipped file; 1: without "Camera"; 2: without "Verification" and "Camera".
void BM_NominalRead(benchmark::State& state) {
    const char* cuts[] = {"", "Camera", "Verification"};
    const qbcode::ReaderOptions options = shippedUpTo(cuts[state.range(0)]);
    const std::vector<cv::Mat>& frames = nominalFrames();
    size_t k = 0;
    for (auto _ : state) {
        const cv::Mat& f = frames[k++ % frames.size()];
        const qbcode::Result r = qbcode::read(qbcode::ImageView(f.data, f.rows, f.cols), options);
        if (r.status != 0) state.SkipWithError("a nominal frame was not read");
        benchmark::DoNotOptimize(r.bits.data());
    }
}
BENCHMARK(BM_NominalRead)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

}  // namespace
