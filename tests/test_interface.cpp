// The exported C entry points: checks, console lines and box arithmetic.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qbcode_hexagon_recognition.h"
#include "test_support.h"

using testsupport::paramsWith;
using testsupport::writeFile;

class EntryPoint : public ::testing::Test {
protected:
    std::vector<unsigned char> image = std::vector<unsigned char>(480 * 640, 0);
    std::vector<int> bits = std::vector<int>(91, 7);
    int box[5] = {-9, -9, -9, -9, -9};
    std::string params = QBCODE_DEFAULT_PARAMS;

    int call(int bitsLen, int boxLen, const char* path = nullptr) {
        return quelbor_hexagon_recognition(image.data(), 480, 640, 0, path ? path : params.c_str(),
                                           bits.data(), bitsLen, box, boxLen);
    }
};

TEST_F(EntryPoint, WrongBitsLengthPrintsTheCountAndLeavesTheBox) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(call(90, 4), -3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "dot number91\nbits array len should be 91\n");
    EXPECT_EQ(box[0], -9);
    EXPECT_EQ(bits[0], 7);
}

TEST_F(EntryPoint, BitsLengthIsCheckedBeforeBoxLength) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(call(61, 5), -3);
    testing::internal::GetCapturedStdout();
}

TEST_F(EntryPoint, WrongBoxLengthPrintsAndLeavesTheBox) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(call(91, 5), -4);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "bounding box's length have to be 4!\n");
    EXPECT_EQ(box[0], -9);
}

TEST_F(EntryPoint, LayerFromTheFileSetsTheExpectedLength) {
    const std::string p = writeFile("layer3.yml", paramsWith("AlgPipeline", "layer", "3"));
    testing::internal::CaptureStdout();
    EXPECT_EQ(call(91, 4, p.c_str()), -3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "dot number37\nbits array len should be 37\n");
}

TEST_F(EntryPoint, UnreadableFileExpectsOneDotAndFailsInTheDriver) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(call(91, 4, "/nonexistent/params.yml"), -3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "dot number1\nbits array len should be 1\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(call(1, 4, "/nonexistent/params.yml"), -600);
    testing::internal::GetCapturedStdout();
}

TEST_F(EntryPoint, NullPathThrowsTheStandardLogicError) {
    EXPECT_THROW(
        quelbor_hexagon_recognition(image.data(), 480, 640, 0, nullptr, bits.data(), 91, box, 4),
        std::logic_error);
}

TEST_F(EntryPoint, EmptyPathReadsTheFileInTheWorkingDirectory) {
    // A folder of its own, so that no other test sees the layer-2 file.
    char here[4096];
    ASSERT_NE(getcwd(here, sizeof(here)), nullptr);
    const std::string dir = testsupport::tmpPath("entry_cwd");
    mkdir(dir.c_str(), 0755);
    ASSERT_EQ(chdir(dir.c_str()), 0);
    std::ofstream("algorithm_parameters_v01.yml") << paramsWith("AlgPipeline", "layer", "2");
    testing::internal::CaptureStdout();
    const int status = call(91, 4, "");
    const std::string out = testing::internal::GetCapturedStdout();
    std::remove("algorithm_parameters_v01.yml");
    ASSERT_EQ(chdir(here), 0);
    EXPECT_EQ(status, -3);
    EXPECT_EQ(out, "dot number19\nbits array len should be 19\n");
}

// A failed run leaves the rectangle at zero; the box still gets the 22-pixel margin.
struct BoxCase {
    const char* ratio;
    int expected[4];
};

class FailedRunBox : public EntryPoint, public ::testing::WithParamInterface<BoxCase> {};

TEST_P(FailedRunBox, ConvertsTheZeroRectangle) {
    const BoxCase c = GetParam();
    const std::string p = writeFile(std::string("ratio") + c.ratio + ".yml",
                                    paramsWith("ImageProcess", "DnRatio", c.ratio));
    std::fill(image.begin(), image.end(), 0);  // nothing to find
    testing::internal::CaptureStdout();
    EXPECT_LT(call(91, 4, p.c_str()), 0);
    testing::internal::GetCapturedStdout();
    for (int i = 0; i < 4; ++i) EXPECT_EQ(box[i], c.expected[i]) << i;
}

std::string boxCaseName(const ::testing::TestParamInfo<BoxCase>& info) {
    std::string name = std::string("ratio_") + info.param.ratio;
    for (char& ch : name)
        if (ch == '.') ch = '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(
    Ratios, FailedRunBox,
    ::testing::Values(BoxCase{"0.5", {44, 44, -88, -88}}, BoxCase{"0.6", {36, 36, -73, -73}},
                      BoxCase{"1.0", {22, 22, -44, -44}},
                      BoxCase{"0.0", {2147483647, 2147483647, -2147483647 - 1, -2147483647 - 1}}),
    boxCaseName);

TEST_F(EntryPoint, BadImagesGetANegativeStatusNotACrash) {
    testing::internal::CaptureStdout();
    EXPECT_LT(
        quelbor_hexagon_recognition(nullptr, 480, 640, 0, params.c_str(), bits.data(), 91, box, 4),
        0);
    EXPECT_LT(quelbor_hexagon_recognition(image.data(), -5, 640, 0, params.c_str(), bits.data(), 91,
                                          box, 4),
              0);
    EXPECT_LT(
        quelbor_hexagon_recognition(image.data(), 0, 0, 0, params.c_str(), bits.data(), 91, box, 4),
        0);
    EXPECT_EQ(
        quelbor_hexagon_recognition(image.data(), 480, 640, 0, params.c_str(), nullptr, 91, box, 4),
        -3);
    EXPECT_EQ(quelbor_hexagon_recognition(image.data(), 480, 640, 0, params.c_str(), bits.data(),
                                          91, nullptr, 4),
              -4);
    testing::internal::GetCapturedStdout();
}

class DotsNum : public ::testing::TestWithParam<std::pair<int, int>> {};

TEST_P(DotsNum, CountsRings) {
    EXPECT_EQ(get_dots_num(GetParam().first), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(Layers, DotsNum,
                         ::testing::Values(std::make_pair(-1, 1), std::make_pair(0, 1),
                                           std::make_pair(1, 7), std::make_pair(2, 19),
                                           std::make_pair(3, 37), std::make_pair(4, 61),
                                           std::make_pair(5, 91), std::make_pair(26754, 2147409811),
                                           std::make_pair(26755, 2147483647),
                                           std::make_pair(1 << 20, 2147483647),
                                           std::make_pair(2147483647, 2147483647)));

TEST(Version, CopiesAtMostTheBannerAndNeverTerminates) {
    char buf[64];
    std::memset(buf, '#', sizeof buf);
    get_version(buf, 10);
    EXPECT_EQ(std::string(buf, 11), "Quelbor Re#");

    std::memset(buf, '#', sizeof buf);
    get_version(buf, 60);
    EXPECT_EQ(std::string(buf, 36), "Quelbor Recognition Algorithm 0.3.1#");

    std::memset(buf, '#', sizeof buf);
    get_version(buf, 0);
    get_version(buf, -4);
    EXPECT_EQ(buf[0], '#');
    get_version(nullptr, 10);
}
