// The qbcode read and render commands, run in-process, and the status name table.
#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include "commands.h"
#include "qbcode_reader.hpp"
#include "qbcode_render.h"
#include "test_geometry_support.h"
#include "test_support.h"

namespace {

Command run(int (*cmd)(int, char**), std::vector<std::string> args) {
    args.insert(args.begin(), {"qbcode", cmd == cmdRead ? "read" : "render"});
    return runCommand(cmd, args);
}

std::string bitsOf(const std::vector<int>& bits) {
    std::string s;
    for (int b : bits) s += b ? '1' : '0';
    return s;
}

}  // namespace

TEST(StatusNames, MatchEveryRowOfTheTable) {
    const std::string params = QBCODE_DEFAULT_PARAMS;
    std::ifstream doc(params.substr(0, params.rfind("/SystemParameter/")) +
                      "/docs/status-codes.md");
    ASSERT_TRUE(doc.good());
    // A code that two stages share is documented twice; the tool joins the names with '/'.
    std::map<int, std::string> documented;
    const std::regex row(R"(^\|\s*(-?\d+)\s*\|\s*([^|]*?)\s*\|)");
    std::smatch m;
    for (std::string line; std::getline(doc, line);) {
        if (!std::regex_search(line, m, row)) continue;  // header and separator rows
        std::string& names = documented[std::stoi(m[1])];
        names += (names.empty() ? "" : "/") + m[2].str();
    }
    ASSERT_GT(documented.size(), 10u);
    for (const auto& kv : documented)
        EXPECT_STREQ(qbcode_status_name(kv.first), kv.second.c_str()) << "code " << kv.first;
#define QBCODE_EXPECT_DOCUMENTED(id, value, name) \
    EXPECT_EQ(documented.count(value), 1u) << "not documented: " << value << " " << name;
    QBCODE_STATUS_TABLE(QBCODE_EXPECT_DOCUMENTED)
#undef QBCODE_EXPECT_DOCUMENTED
    EXPECT_STREQ(qbcode_status_name(-9999), "unknown");
}

// Usage errors of every command are the program's own test's (cli_test.sh); here the messages
// that explain a refused code.
class RenderArguments : public ::testing::TestWithParam<std::vector<std::string>> {};

TEST_P(RenderArguments, AreRefusedWithUsage) {
    std::vector<std::string> args = GetParam();
    const std::string message = args.back();  // the last entry is the expected complaint
    args.pop_back();
    const Command o = run(cmdRender, args);
    EXPECT_EQ(o.status, 2);
    EXPECT_NE(o.err.find(message), std::string::npos) << o.err;
    EXPECT_NE(o.err.find("usage: qbcode render"), std::string::npos);
    EXPECT_EQ(o.out, "");
}

using Args = std::vector<std::string>;
INSTANTIATE_TEST_SUITE_P(
    Bad, RenderArguments,
    ::testing::Values(Args{"exactly one of"}, Args{"--bits", "0101", "-o", "x.png", "1 + 3L(L+1)"},
                      Args{"--payload", "524288", "--rings", "3", "-o", "x.png", "19 free bits"},
                      Args{"--payload-hex", "00000000000000000002", "-o", "x.png", "73 free bits"}),
    [](const auto& i) { return label("%s", i.param.back().c_str()); });

TEST(RenderCommand, WritesTheCodeAndPrintsItsBits) {
    const std::string out = tmpPath("cli_clean.png");
    const Command o = run(cmdRender, {"--payload", "0x1234abcd", "--rotation", "30", "--size",
                                      "320x240", "--spacing", "14", "--dot", "8.4", "-o", out});
    ASSERT_EQ(o.status, 0) << o.err;
    const auto bits = qbrender::payloadBits(0x1234abcdULL);
    EXPECT_EQ(o.out, "bits: " + bitsOf(bits) + "\n");
    const cv::Mat img = cv::imread(out, cv::IMREAD_GRAYSCALE);
    ASSERT_EQ(img.size(), cv::Size(320, 240));
    EXPECT_EQ(cv::norm(img, qbrender::renderCode(bits, geomtest::style(30, 14, {320, 240})),
                       cv::NORM_INF),
              0.0);
}

// Hex payload and bits make the same code; camera and print files at their resolution.
TEST(RenderCommand, HexPayloadBitsPrintFilesAndWriteErrors) {
    const Command hex = run(cmdRender, {"--payload-hex", "0x0102ff", "--svg", tmpPath("cli.svg")});
    ASSERT_EQ(hex.status, 0) << hex.err;
    const std::string bits = hex.out.substr(6, 91);
    const Command same = run(cmdRender, {"--bits", bits, "--svg", tmpPath("cli2.svg")});
    EXPECT_EQ(same.out, hex.out);
    EXPECT_EQ(readFile(tmpPath("cli.svg")), readFile(tmpPath("cli2.svg")));
    EXPECT_EQ(bits, bitsOf(qbrender::payloadBits(std::vector<uint8_t>{1, 2, 0xff})));

    const std::string cam = tmpPath("cli_cam.jpg"), png = tmpPath("cli_print.png");
    Command o = run(cmdRender, {"--payload", "77", "--camera", "--seed", "9", "--tilt", "3", "-o",
                                cam, "--print-png", png, "--dpi", "300", "--spacing-mm", "0.8"});
    ASSERT_EQ(o.status, 0) << o.err;
    EXPECT_FALSE(cv::imread(cam, cv::IMREAD_GRAYSCALE).empty());
    EXPECT_EQ(cv::imread(png, cv::IMREAD_GRAYSCALE).cols, 123);  // 13 spacings, 0.8 mm, 300 dpi
    o = run(cmdRender, {"--payload", "77", "-o", "/nonexistent/dir/x.png"});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.err.find("cannot write /nonexistent/dir/x.png"), std::string::npos);
}

class ReadCommand : public ::testing::Test {
protected:
    // One image per process: ctest runs the tests of this fixture side by side.
    static std::string imagePath() {
        return tmpPath("cli_code_" + std::to_string(getpid()) + ".png");
    }
    static void SetUpTestSuite() {
        qbrender::CodeStyle style;
        style.rotationDeg = 12.0;
        cv::imwrite(imagePath(), qbrender::renderCode(code(), style));
    }
    static void TearDownTestSuite() { std::remove(imagePath().c_str()); }
    static std::vector<int> code() { return qbrender::randomBits(17); }
    std::string image = imagePath();
    std::string params = QBCODE_DEFAULT_PARAMS;
};

// The payload line and the overlay are held by the program's own test (cli_test.sh).
TEST_F(ReadCommand, PrintsStatusBitsAndBox) {
    const Command o = run(cmdRead, {image, "--params", params});
    std::smatch m;
    ASSERT_TRUE(std::regex_match(o.out, m,
                                 std::regex(image + ": 0 ok\n  bits: " + bitsOf(code()) +
                                            "\n  payload: .*\n  box: (\\d+) (\\d+) (\\d+) (\\d+)\n"
                                            "  centre: 3.*\n  margin: .*\n  time: .*\n")))
        << o.out << o.err;
    const int x = std::stoi(m[1]), y = std::stoi(m[2]), w = std::stoi(m[3]), h = std::stoi(m[4]);
    EXPECT_TRUE(x < 220 && x + w > 420 && y < 140 && y + h > 340) << m[0];
}

TEST_F(ReadCommand, JsonAndTimings) {
    const Command o = run(cmdRead, {"--json", "--debug", image, image, "--params", params});
    ASSERT_EQ(o.status, 0) << o.err;
    const std::string head = "[\n  {\"image\": \"" + image +
                             "\", \"status\": 0, \"name\": \"ok\", \"bits\": \"" + bitsOf(code()) +
                             "\", \"payload\": \"";
    EXPECT_EQ(o.out.rfind(head, 0), 0u) << o.out;
    for (const char* key :
         {"timings_ms\": {\"preprocess\": ", "orientation", "angle", "spacing", "centre", "corners",
          "margin", "decision_margin", "confidence\": [", "checks\": {\"verified\": true"})
        EXPECT_NE(o.out.find("\"" + std::string(key)), std::string::npos) << key;
    EXPECT_NE(o.out.find("}},\n  {\"image\""), std::string::npos);
    EXPECT_EQ(o.out.substr(o.out.size() - 5), "}}\n]\n");

    // Timed runs go through the driver; the box must still be in input pixels.
    const Command text = run(cmdRead, {"--debug", image, "--params", params});
    const Command plain = run(cmdRead, {image, "--params", params});
    ASSERT_NE(text.out.find("  timings ms: preprocess "), std::string::npos);
    EXPECT_EQ(text.out.substr(0, text.out.find("  time: ")),
              plain.out.substr(0, plain.out.find("  time: ")));
}

TEST_F(ReadCommand, FailuresSetTheExitStatus) {
    const std::string blank = tmpPath("cli_blank.png");
    cv::imwrite(blank, cv::Mat::zeros(480, 640, CV_8UC1));
    const std::string junk = writeFile("cli_not_an_image.png", "hello");
    Command o = run(cmdRead, {image, blank, junk, "--params", params});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.out.find(image + ": 0 ok\n"), std::string::npos);
    EXPECT_NE(o.out.find(blank + ": -"), std::string::npos);
    EXPECT_NE(o.out.find(junk + ": cannot read image\n"), std::string::npos);

    o = run(cmdRead, {"--json", tmpPath("cli_missing.png"), "--params", params});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.out.find("\"error\": \"cannot read image\"}\n]"), std::string::npos) << o.out;

    o = run(cmdRead, {image, "--params", tmpPath("cli_no_such.yml")});
    EXPECT_EQ(o.status, 2);
    EXPECT_NE(o.err.find("cannot read parameter file"), std::string::npos);
}

// --all lists every code of a frame; a frame without one fails.
TEST_F(ReadCommand, AllCodesOfAFrame) {
    const cv::Mat one = cv::imread(image, cv::IMREAD_GRAYSCALE);
    cv::Mat two;
    cv::hconcat(one, one, two);
    const std::string pair = tmpPath("cli_pair_" + std::to_string(getpid()) + ".png");
    cv::imwrite(pair, two);
    Command o = run(cmdRead, {pair, "--all", "--params", params});
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out.rfind(pair + ": 2 code(s) in ", 0), 0u) << o.out;
    EXPECT_NE(o.out.find(pair + " [1]: 0 ok\n  bits: " + bitsOf(code())), std::string::npos);
    o = run(cmdRead, {pair, "--all", "1", "--json", "--params", params});
    EXPECT_NE(o.out.find("\"codes\": [{\"index\": 0, \"status\": 0"), std::string::npos);
    EXPECT_EQ(o.out.find("\"index\": 1"), std::string::npos);
    std::remove(pair.c_str());
    EXPECT_EQ(run(cmdRead, {image, "--all", "0"}).status, 2);
}

// A broken file there fails the read with its status; without one the shipped file is used.
TEST_F(ReadCommand, PrefersTheParameterFileInTheWorkingDirectory) {
    char here[4096];
    ASSERT_NE(getcwd(here, sizeof(here)), nullptr);
    const std::string dir = tmpPath("cli_cwd");
    mkdir(dir.c_str(), 0755);
    ASSERT_EQ(chdir(dir.c_str()), 0);
    std::ofstream("algorithm_parameters_v01.yml") << paramsWithout("AlgPipeline", "savePath");
    const Command local = run(cmdRead, {image});
    std::remove("algorithm_parameters_v01.yml");
    const Command fallback = run(cmdRead, {image});
    ASSERT_EQ(chdir(here), 0);
    EXPECT_EQ(local.out.rfind(image + ": -600 config\n  time: ", 0), 0u) << local.out;
    EXPECT_EQ(fallback.status, 0) << fallback.out;
}
