// Golden reads: camera-like frames whose status, bits and box must come out the same on every
// architecture the library is built for.
#include "qbcode_hexagon_recognition.h"
#include "read_line.h"
#include "test_support.h"

namespace {

struct Golden {
    std::string file;
    std::string expected;  // status, bits and box, tab-separated as in the table
};

void PrintTo(const Golden& g, std::ostream* os) {
    *os << g.file;
}

std::vector<Golden> goldenTable() {
    std::vector<Golden> rows;
    std::ifstream in(QBCODE_GOLDEN_DIR "/expected.tsv");
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        // The last column names the options the frame was rendered with.
        const size_t file = line.find('\t'), options = line.rfind('\t');
        rows.push_back({line.substr(0, file), line.substr(file + 1, options - file - 1)});
    }
    return rows;
}

std::string readFrame(const std::string& file) {
    cv::Mat img = cv::imread(QBCODE_GOLDEN_DIR "/" + file, cv::IMREAD_GRAYSCALE);
    if (img.empty()) return "unreadable frame";
    std::vector<int> bits(91, 0);
    int box[4] = {0, 0, 0, 0};
    const int status = quelbor_hexagon_recognition(img.data, img.rows, img.cols, 0,
                                                   QBCODE_DEFAULT_PARAMS, bits.data(), 91, box, 4);
    return readLine(status, bits, box);
}

class GoldenRead : public ::testing::TestWithParam<Golden> {};

TEST_P(GoldenRead, SameStatusBitsAndBox) {
    EXPECT_EQ(readFrame(GetParam().file), GetParam().expected) << GetParam().file;
}

INSTANTIATE_TEST_SUITE_P(Frames, GoldenRead, ::testing::ValuesIn(goldenTable()),
                         [](const ::testing::TestParamInfo<Golden>& info) {
                             return info.param.file.substr(0, info.param.file.rfind('.'));
                         });

}  // namespace
