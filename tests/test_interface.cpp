// The exported C entry points: argument checks, console lines and box arithmetic.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <stdexcept>

#include "qbcode_hexagon_recognition.h"
#include "test_support.h"

namespace {

struct Call {
    std::vector<unsigned char> image = std::vector<unsigned char>(480 * 640, 0);
    std::vector<int> bits = std::vector<int>(91, 7);
    int box[5] = {-9, -9, -9, -9, -9};
    std::string out;

    int operator()(const std::string& path, int bitsLen = 91, int boxLen = 4) {
        testing::internal::CaptureStdout();
        const int s = quelbor_hexagon_recognition(image.data(), 480, 640, 0, path.c_str(),
                                                  bits.data(), bitsLen, box, boxLen);
        out = testing::internal::GetCapturedStdout();
        return s;
    }
};

const std::string kDefault = QBCODE_DEFAULT_PARAMS;

std::string counted(int n) {
    return "dot number" + std::to_string(n) + "\nbits array len should be " + std::to_string(n) +
           "\n";
}

// layer: "" the shipped file, "none" a missing file, else the ring count written into a copy.
std::string paramsFor(const std::string& layer) {
    if (layer.empty()) return kDefault;
    if (layer == "none") return "/nonexistent/params.yml";
    return writeFile("layer" + layer + ".yml", paramsWith("AlgPipeline", "layer", layer));
}

struct LengthCase {
    const char *name, *layer;
    int bitsLen, boxLen, status;
    std::string printed;
};

class LengthCheck : public ::testing::TestWithParam<LengthCase> {};

// A refused length leaves both arrays as they were.
TEST_P(LengthCheck, PrintsAndLeavesTheArrays) {
    const LengthCase& c = GetParam();
    Call call;
    EXPECT_EQ(call(paramsFor(c.layer), c.bitsLen, c.boxLen), c.status);
    EXPECT_EQ(call.out, c.printed);
    EXPECT_EQ(call.box[0], -9);
    EXPECT_EQ(call.bits[0], 7);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LengthCheck,
    ::testing::Values(LengthCase{"bits_90", "", 90, 4, -3, counted(91)},
                      LengthCase{"bits_before_box", "", 61, 5, -3, counted(91)},
                      LengthCase{"box_5", "", 91, 5, -4, "bounding box's length have to be 4!\n"},
                      LengthCase{"layer_3_in_the_file", "3", 91, 4, -3, counted(37)},
                      LengthCase{"unreadable_file_expects_one_dot", "none", 91, 4, -3, counted(1)}),
    [](const auto& i) { return std::string(i.param.name); });

}  // namespace

// A missing file with the one dot it asks for is the hostile table's.
TEST(EntryPoint, MissingArraysAndPath) {
    Call call;
    EXPECT_THROW(quelbor_hexagon_recognition(call.image.data(), 480, 640, 0, nullptr,
                                             call.bits.data(), 91, call.box, 4),
                 std::logic_error);
    testing::internal::CaptureStdout();
    EXPECT_EQ(quelbor_hexagon_recognition(call.image.data(), 480, 640, 0, kDefault.c_str(), nullptr,
                                          91, call.box, 4),
              -3);
    EXPECT_EQ(quelbor_hexagon_recognition(call.image.data(), 480, 640, 0, kDefault.c_str(),
                                          call.bits.data(), 91, nullptr, 4),
              -4);
    testing::internal::GetCapturedStdout();
}

TEST(EntryPoint, EmptyPathReadsTheFileInTheWorkingDirectory) {
    // A folder of its own, so that no other test sees the layer-2 file.
    char here[4096];
    ASSERT_NE(getcwd(here, sizeof(here)), nullptr);
    const std::string dir = tmpPath("entry_cwd");
    mkdir(dir.c_str(), 0755);
    ASSERT_EQ(chdir(dir.c_str()), 0);
    std::ofstream("algorithm_parameters_v01.yml") << paramsWith("AlgPipeline", "layer", "2");
    Call call;
    const int status = call("");
    std::remove("algorithm_parameters_v01.yml");
    ASSERT_EQ(chdir(here), 0);
    EXPECT_EQ(status, -3);
    EXPECT_EQ(call.out, counted(19));
}

// A failed run leaves the rectangle at zero; the box still gets the 22-pixel margin, scaled
// back by the downsampling ratio (0 saturates).
TEST(EntryPoint, FailedRunBoxIsTheMarginAroundTheZeroRectangle) {
    const char* ratios[] = {"0.5", "0.6", "1.0", "0.0"};
    const int boxes[][4] = {{44, 44, -88, -88},
                            {36, 36, -73, -73},
                            {22, 22, -44, -44},
                            {INT_MAX, INT_MAX, INT_MIN, INT_MIN}};
    for (int i = 0; i < 4; ++i) {
        Call call;
        EXPECT_LT(call(writeFile(std::string("ratio") + ratios[i] + ".yml",
                                 paramsWith("ImageProcess", "DnRatio", ratios[i]))),
                  0);
        EXPECT_TRUE(std::equal(boxes[i], boxes[i] + 4, call.box)) << ratios[i];
    }
}

TEST(DotsNum, CountsRingsAndSaturates) {
    const int layers[] = {-1, 0, 1, 2, 3, 4, 5, 26754, 26755, 1 << 20, INT_MAX};
    const int dots[] = {1, 1, 7, 19, 37, 61, 91, 2147409811, INT_MAX, INT_MAX, INT_MAX};
    for (int i = 0; i < 11; ++i) EXPECT_EQ(get_dots_num(layers[i]), dots[i]) << layers[i];
}

// At most the length asked for, never a terminating zero.
TEST(Version, CopiesAtMostTheBannerAndNeverTerminates) {
    const int lengths[] = {10, 60, 0, -4};
    const std::string copied[] = {"Quelbor Re#", "Quelbor Recognition Algorithm 0.3.1#", "#", "#"};
    for (int i = 0; i < 4; ++i) {
        char buf[64];
        std::memset(buf, '#', sizeof buf);
        get_version(buf, lengths[i]);
        EXPECT_EQ(std::string(buf, copied[i].size()), copied[i]) << lengths[i];
    }
    get_version(nullptr, 10);
}
