// Runs a fuzz target without libFuzzer: over the files named on the command line, then over a
// fixed number of pseudo-random inputs (deterministic, so a failure reproduces).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz_report.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    int iterations = 200;
    unsigned seed = 1;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a.rfind("--iterations=", 0) == 0) {
            iterations = std::atoi(a.c_str() + 13);
        } else if (a.rfind("--seed=", 0) == 0) {
            seed = static_cast<unsigned>(std::strtoul(a.c_str() + 7, nullptr, 10));
        } else {
            files.push_back(a);
        }
    }
    int decoding = 0;
    for (const auto& f : files) {
        std::ifstream in(f, std::ios::binary);
        std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                   std::istreambuf_iterator<char>());
        const int before = fuzzreport::decodes();
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        decoding += fuzzreport::decodes() > before;
    }
    if (!files.empty())
        std::printf("%zu files, no fault; %d decode (%.1f %%)\n", files.size(), decoding,
                    100.0 * decoding / files.size());
    std::mt19937 rng(seed);
    for (int i = 0; i < iterations; ++i) {
        // Mostly short inputs, now and then a long one.
        const size_t size = (i % 10 == 0) ? rng() % 4096 : rng() % 64;
        std::vector<uint8_t> bytes(size);
        for (auto& b : bytes) b = static_cast<uint8_t>(rng());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::printf("%d inputs, no fault\n", iterations);
    return 0;
}
