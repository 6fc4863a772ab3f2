// The qbcode read and render commands, run in-process, and the status name table.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

// The commands are compiled into the test program so that they run under the same checks.
#include "../tools/cmd_read.cpp"
#include "../tools/cmd_render.cpp"
#include "qbcode_render.h"
#include "test_support.h"

using testsupport::readFile;
using testsupport::tmpPath;
using testsupport::writeFile;

namespace {

std::string sourceRoot() {
    const std::string params = QBCODE_DEFAULT_PARAMS;
    return params.substr(0, params.rfind("/SystemParameter/"));
}

struct Outcome {
    int status;
    std::string out, err;
};

Outcome run(int (*cmd)(int, char**), const std::string& name, std::vector<std::string> args) {
    args.insert(args.begin(), {"qbcode", name});
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Outcome o;
    o.status = cmd(static_cast<int>(args.size()), argv.data());
    o.out = testing::internal::GetCapturedStdout();
    o.err = testing::internal::GetCapturedStderr();
    return o;
}

Outcome renderCmd(std::vector<std::string> args) {
    return run(cmdRender, "render", std::move(args));
}
Outcome readCmd(std::vector<std::string> args) {
    return run(cmdRead, "read", std::move(args));
}

std::string bitsOf(const std::vector<int>& bits) {
    std::string s;
    for (int b : bits) s += b ? '1' : '0';
    return s;
}

}  // namespace

TEST(StatusNames, MatchEveryRowOfTheTable) {
    std::ifstream doc(sourceRoot() + "/docs/status-codes.md");
    ASSERT_TRUE(doc.good());
    // A code that two stages share is documented twice; the tool joins the names with '/'.
    std::map<int, std::string> documented;
    std::string line;
    int rows = 0;
    while (std::getline(doc, line)) {
        if (line.size() < 2 || line[0] != '|') continue;
        std::vector<std::string> cells;
        std::stringstream row(line.substr(1));
        std::string cell;
        while (std::getline(row, cell, '|')) {
            const size_t a = cell.find_first_not_of(' '), b = cell.find_last_not_of(' ');
            cells.push_back(a == std::string::npos ? "" : cell.substr(a, b - a + 1));
        }
        char* end = nullptr;
        if (cells.size() < 3 || cells[0].empty()) continue;
        const long code = std::strtol(cells[0].c_str(), &end, 10);
        if (*end != '\0') continue;  // header and separator rows
        std::string& names = documented[static_cast<int>(code)];
        names += (names.empty() ? "" : "/") + cells[1];
        ++rows;
    }
    ASSERT_GT(rows, 10);
    for (const auto& kv : documented)
        EXPECT_EQ(statusName(kv.first), kv.second) << "code " << kv.first;
    for (const StatusName& s : statusNames())
        EXPECT_EQ(documented.count(s.code), 1u) << "not documented: " << s.code << " " << s.name;
    EXPECT_EQ(statusName(-9999), "unknown");
}

// ---- render ----

struct BadRender {
    std::vector<std::string> args;
    std::string message;
};
class RenderArguments : public ::testing::TestWithParam<BadRender> {};

TEST_P(RenderArguments, AreRefusedWithUsage) {
    const Outcome o = renderCmd(GetParam().args);
    EXPECT_EQ(o.status, 2);
    EXPECT_NE(o.err.find(GetParam().message), std::string::npos) << o.err;
    EXPECT_NE(o.err.find("usage: qbcode render"), std::string::npos);
    EXPECT_EQ(o.out, "");
}

INSTANTIATE_TEST_SUITE_P(
    Bad, RenderArguments,
    ::testing::Values(
        BadRender{{}, "exactly one of"}, BadRender{{"--payload", "5"}, "nothing to write"},
        BadRender{{"--bits", "0101", "-o", "x.png"}, "1 + 3L(L+1)"},
        BadRender{{"--payload", "524288", "--rings", "3", "-o", "x.png"}, "19 free bits"},
        BadRender{{"--payload-hex", "abc", "-o", "x.png"}, "hex"},
        BadRender{{"--payload-hex", "00000000000000000002", "-o", "x.png"}, "73 free bits"},
        BadRender{{"--payload", "1", "--spacing", "wide", "-o", "x.png"}, "bad value"},
        BadRender{{"--payload", "1", "--frobnicate", "1", "-o", "x.png"}, "unknown option"},
        BadRender{{"--payload", "1", "-o"}, "-o needs a value"}));

TEST(RenderCommand, WritesTheCodeAndPrintsItsBits) {
    const std::string out = tmpPath("cli_clean.png");
    const Outcome o = renderCmd({"--payload", "0x1234abcd", "--rotation", "30", "--size", "320x240",
                                 "--spacing", "14", "--dot", "8", "-o", out});
    ASSERT_EQ(o.status, 0) << o.err;
    const auto bits = qbrender::payloadBits(0x1234abcdULL);
    EXPECT_EQ(o.out, "bits: " + bitsOf(bits) + "\n");
    qbrender::CodeStyle style;
    style.rotationDeg = 30;
    style.size = cv::Size(320, 240);
    style.spacing = 14;
    style.dotDiameter = 8;
    const cv::Mat img = cv::imread(out, cv::IMREAD_GRAYSCALE);
    ASSERT_EQ(img.size(), cv::Size(320, 240));
    EXPECT_EQ(cv::norm(img, qbrender::renderCode(bits, style), cv::NORM_INF), 0.0);
}

TEST(RenderCommand, HexPayloadBitsAndRingsAgree) {
    const Outcome hex = renderCmd({"--payload-hex", "0x0102ff", "--svg", tmpPath("cli.svg")});
    ASSERT_EQ(hex.status, 0) << hex.err;
    const std::string bits = hex.out.substr(6, 91);
    std::vector<int> v;
    for (char c : bits) v.push_back(c == '1');
    const auto bytes = qbrender::payloadBytes(v);
    EXPECT_EQ(bytes[0], 0x01);
    EXPECT_EQ(bytes[1], 0x02);
    EXPECT_EQ(bytes[2], 0xff);

    const Outcome same = renderCmd({"--bits", bits, "--svg", tmpPath("cli2.svg")});
    EXPECT_EQ(same.out, hex.out);
    EXPECT_EQ(readFile(tmpPath("cli.svg")), readFile(tmpPath("cli2.svg")));
    EXPECT_EQ(renderCmd({"--bits", bits, "--rings", "4", "--svg", tmpPath("cli3.svg")}).status, 2);
}

TEST(RenderCommand, CameraOptionsAndPrintFiles) {
    const std::string cam = tmpPath("cli_cam.jpg"), png = tmpPath("cli_print.png");
    Outcome o = renderCmd({"--payload", "77", "--camera", "--seed", "9", "--tilt", "3", "-o", cam,
                           "--print-png", png, "--dpi", "300", "--spacing-mm", "0.8"});
    ASSERT_EQ(o.status, 0) << o.err;
    EXPECT_FALSE(cv::imread(cam, cv::IMREAD_GRAYSCALE).empty());
    const cv::Mat print = cv::imread(png, cv::IMREAD_GRAYSCALE);
    EXPECT_EQ(print.cols, 123);  // 13 spacings of 0.8 mm at 300 dpi
    // Same seed, same picture.
    const std::string again = tmpPath("cli_cam2.jpg");
    renderCmd({"--payload", "77", "--camera", "--seed", "9", "--tilt", "3", "-o", again});
    EXPECT_EQ(readFile(cam), readFile(again));

    o = renderCmd({"--payload", "77", "-o", "/nonexistent/dir/x.png"});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.err.find("cannot write /nonexistent/dir/x.png"), std::string::npos);
}

// ---- read ----

class ReadCommand : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        qbrender::CodeStyle style;
        style.rotationDeg = 12.0;
        cv::imwrite(tmpPath("cli_code.png"), qbrender::renderCode(code(), style));
    }
    static std::vector<int> code() { return qbrender::randomBits(17); }
    std::string image = tmpPath("cli_code.png");
    std::string params = QBCODE_DEFAULT_PARAMS;
};

TEST_F(ReadCommand, PrintsStatusBitsAndBox) {
    const Outcome o = readCmd({image, "--params", params});
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    std::istringstream lines(o.out);
    std::string first, bits, payload, box, time;
    std::getline(lines, first);
    std::getline(lines, bits);
    std::getline(lines, payload);
    std::getline(lines, box);
    std::getline(lines, time);
    EXPECT_EQ(first, image + ": 0 ok");
    EXPECT_EQ(bits, "  bits: " + bitsOf(code()));
    std::string hex;
    for (uint8_t b : qbrender::payloadBytes(code())) {
        char two[3];
        std::snprintf(two, sizeof two, "%02x", b);
        hex += two;
    }
    EXPECT_EQ(payload, "  payload: " + hex);
    EXPECT_EQ(time.rfind("  time: ", 0), 0u) << time;
    int x, y, w, h;
    ASSERT_EQ(std::sscanf(box.c_str(), "  box: %d %d %d %d", &x, &y, &w, &h), 4) << box;
    EXPECT_LT(x, 320 - 100);
    EXPECT_GT(x + w, 320 + 100);
    EXPECT_LT(y, 240 - 100);
    EXPECT_GT(y + h, 240 + 100);
}

TEST_F(ReadCommand, JsonAndTimings) {
    const Outcome o = readCmd({"--json", "--debug", image, image, "--params", params});
    ASSERT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out.rfind("[\n  {\"image\": \"" + image +
                              "\", \"status\": 0, \"name\": \"ok\", "
                              "\"bits\": \"" +
                              bitsOf(code()) + "\", \"payload\": \"",
                          0),
              0u)
        << o.out;
    EXPECT_NE(o.out.find("\"timings_ms\": {\"preprocess\": "), std::string::npos);
    EXPECT_NE(o.out.find("}},\n  {\"image\""), std::string::npos);
    EXPECT_EQ(o.out.substr(o.out.size() - 5), "}}\n]\n");

    const Outcome text = readCmd({"--debug", image, "--params", params});
    EXPECT_NE(text.out.find("  timings ms: preprocess "), std::string::npos);
    // Timed runs go through the driver; the box must still be in input pixels.
    const Outcome plain = readCmd({image, "--params", params});
    auto withoutTime = [](const std::string& out) {
        std::istringstream in(out);
        std::string line, kept;
        while (std::getline(in, line))
            if (line.rfind("  time: ", 0) != 0) kept += line + "\n";
        return kept;
    };
    EXPECT_EQ(withoutTime(text.out.substr(0, text.out.find("  timings"))), withoutTime(plain.out));
}

TEST_F(ReadCommand, FailuresSetTheExitStatus) {
    const std::string blank = tmpPath("cli_blank.png");
    cv::imwrite(blank, cv::Mat::zeros(480, 640, CV_8UC1));
    writeFile("cli_not_an_image.png", "hello");
    Outcome o = readCmd({image, blank, tmpPath("cli_not_an_image.png"), "--params", params});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.out.find(image + ": 0 ok\n"), std::string::npos);
    EXPECT_NE(o.out.find(blank + ": -"), std::string::npos);
    EXPECT_NE(o.out.find(tmpPath("cli_not_an_image.png") + ": cannot read image\n"),
              std::string::npos);

    o = readCmd({"--json", tmpPath("cli_missing.png"), "--params", params});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.out.find("\"error\": \"cannot read image\"}\n]"), std::string::npos) << o.out;

    const std::string broken =
        writeFile("cli_broken.yml", testsupport::paramsWithout("AlgPipeline", "dc"));
    o = readCmd({image, "--params", broken});
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(o.out.rfind(image + ": -600 config\n  time: ", 0), 0u) << o.out;
}

TEST_F(ReadCommand, BadArgumentsAreUsageErrors) {
    for (const auto& args :
         std::vector<std::vector<std::string>>{{},
                                               {"--json"},
                                               {image, "--params"},
                                               {image, "--fast"},
                                               {image, "--params", tmpPath("cli_no_such.yml")}}) {
        const Outcome o = readCmd(args);
        EXPECT_EQ(o.status, 2);
        EXPECT_FALSE(o.err.empty());
    }
    EXPECT_EQ(readCmd({"--help"}).status, 0);
}

TEST_F(ReadCommand, PrefersTheParameterFileInTheWorkingDirectory) {
    char here[4096];
    ASSERT_NE(getcwd(here, sizeof(here)), nullptr);
    const std::string dir = tmpPath("cli_cwd");
    mkdir(dir.c_str(), 0755);
    ASSERT_EQ(chdir(dir.c_str()), 0);
    std::ofstream("algorithm_parameters_v01.yml")
        << testsupport::paramsWithout("AlgPipeline", "savePath");
    const Outcome local = readCmd({image});
    std::remove("algorithm_parameters_v01.yml");
    const Outcome fallback = readCmd({image});
    ASSERT_EQ(chdir(here), 0);
    EXPECT_EQ(local.out.rfind(image + ": -600 config\n  time: ", 0), 0u) << local.out;
    EXPECT_EQ(fallback.status, 0) << fallback.out;
}

TEST(QbcodeProgram, DispatchesAndExplainsItself) {
    const std::string tool = std::string(QBCODE_TEST_TMP) + "/../../tools/qbcode";
    if (access(tool.c_str(), X_OK) != 0) GTEST_SKIP() << "the qbcode program is not built";
    auto status = [&](const std::string& args) {
        const int s = std::system((tool + " " + args + " >/dev/null 2>&1").c_str());
        return WIFEXITED(s) ? WEXITSTATUS(s) : -1;
    };
    EXPECT_EQ(status(""), 2);
    EXPECT_EQ(status("frobnicate"), 2);
    EXPECT_EQ(status("--help"), 0);
    EXPECT_EQ(status("render --help"), 0);
    EXPECT_EQ(status("read"), 2);
    EXPECT_EQ(status("read " + tmpPath("cli_missing.png")), 1);
}
