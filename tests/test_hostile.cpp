// Hostile parameter files and images through both C calls: each returns its status in bounded
// time, never a crash or a stall. Run under the sanitizers by the ASan build.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "DebugImage.h"
#include "SystemPara.h"
#include "commands.h"
#include "qbcode_hexagon_recognition.h"
#include "qbcode_reader.hpp"
#include "qbcode_render.h"
#include "test_support.h"

namespace {

// Seconds a case may take on a busy machine: a stall never returns, a slow case does. A failed
// read of the largest frame is tried again with the other polarity and ratios of the "Camera"
// section, which the sanitizers slow down about tenfold and an emulator about twentyfold.
#if defined(QBCODE_TEST_EMULATED)
constexpr double kCaseSeconds = 150.0;
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double kCaseSeconds = 40.0;
#else
constexpr double kCaseSeconds = 5.0;
#endif

cv::Mat codeFrame(double rotation = 17.0, cv::Point2d centre = {-1, -1}, double spacing = 22.0,
                  cv::Size size = {640, 480}) {
    const qbrender::CodeStyle style{spacing, spacing * 0.6, rotation, centre, size};
    return qbrender::renderCamera(qbrender::randomBits(11), style, qbrender::typicalCamera(3));
}

struct Outcome {
    int status;
    double seconds;
};

// The C call with the bit count the file asks for (capped, so that a huge layer only fails the
// length check), as a host that read get_dots_num would call it.
Outcome callC(const unsigned char* pixels, int rows, int cols, const std::string& params) {
    const auto t0 = std::chrono::steady_clock::now();
    const int wanted = qbcode::ReaderOptions::fromFile(params).bitCount();
    const int len = wanted <= 10000 ? wanted : 91;
    std::vector<int> bits(static_cast<size_t>(len) + 1);
    int box[4];
    testing::internal::CaptureStdout();
    const int status = quelbor_hexagon_recognition(const_cast<unsigned char*>(pixels), rows, cols,
                                                   0, params.c_str(), bits.data(), len, box, 4);
    testing::internal::GetCapturedStdout();
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    return {status, s};
}

std::string repeat(const std::string& s, int n) {
    std::string out;
    for (int i = 0; i < n; ++i) out += s;
    return out;
}

const std::string kHeader = "%YAML:1.0\n---\n";

// ---- Parameter files -------------------------------------------------------------------------

struct FileCase {
    const char* name;
    std::function<std::string()> path;  // writes the file, or names a special one
    int status;                         // of the C call on a readable code
    std::string badKey;                 // named by the reader; "" for none
};

FileCase text(const char* name, const std::string& body, int status,
              const std::string& badKey = "") {
    return {name, [=] { return writeFile(std::string("hostile_") + name + ".yml", body); }, status,
            badKey};
}

FileCase set(const char* name, const char* section, const char* key, const std::string& value,
             int status, const std::string& badKey = "") {
    return text(name, paramsWith(section, key, value), status, badKey);
}

// A value of the wrong type, which the reader names.
FileCase typed(const char* name, const char* section, const char* key, const std::string& value,
               int status) {
    return set(name, section, key, value, status, std::string(section) + "." + key);
}

std::string fifo() {
    const std::string p = tmpPath("hostile_fifo.yml");
    unlink(p.c_str());
    mkfifo(p.c_str(), 0600);
    return p;
}

const std::string kDefault = defaultParams();

// A path that names no plain file; "@..." names one made here.
FileCase special(const char* name, const std::string& what, int status) {
    return {name,
            [what] {
                if (what == "@directory") return tmpPath("");
                if (what == "@fifo") return fifo();
                if (what == "@through_a_file")
                    return writeFile("hostile_plain.yml", kDefault) + "/x.yml";
                if (what == "@long") return tmpPath(std::string(5000, 'n'));
                if (what != "@dangling_link") return what;
                const std::string p = tmpPath("hostile_link.yml");
                unlink(p.c_str());
                EXPECT_EQ(symlink("/nonexistent/target.yml", p.c_str()), 0);
                return p;
            },
            status, ""};
}

std::string deepIndent(int levels) {
    std::string s = kHeader;
    for (int i = 0; i < levels; ++i) s += std::string(static_cast<size_t>(i), ' ') + "k:\n";
    return s + std::string(static_cast<size_t>(levels), ' ') + "v: 1\n";
}

// The file with every line after its header moved two columns right: still one mapping.
std::string indentedBody(const std::string& yaml) {
    const size_t body = yaml.find("---\n") + 4;
    std::string out = yaml.substr(0, body);
    for (size_t at = body; at < yaml.size();) {
        const size_t end = yaml.find('\n', at);
        out += "  " + yaml.substr(at, end - at) + "\n";
        at = end == std::string::npos ? yaml.size() : end + 1;
    }
    return out;
}

const std::vector<FileCase> kFiles = {
    // The file itself.
    special("missing", "/nonexistent/params.yml", -600),
    special("directory", "@directory", -600),
    special("fifo_without_writer", "@fifo", -700),
    special("char_device", "/dev/zero", -700),
    special("null_device", "/dev/null", -700),
    special("through_a_file", "@through_a_file", -600),
    special("dangling_link", "@dangling_link", -600),
    special("name_too_long", "@long", -600),
    text("empty", "", -600),
    text("header_only", kHeader, -600),
    text("just_above_size_limit", kDefault + "#" + std::string(64 * 1024, 'x') + "\n", -701),
    text("binary_garbage", std::string("\177ELF\2\1\1\0\0\377\376", 11) + repeat("\220\1", 200),
         -600),
    // Malformed YAML.
    text("unclosed_bracket", kHeader + "AlgPipeline: [1, 2\n  debug: {\n", -600),
    text("tab_indentation", kHeader + "AlgPipeline:\n\tdebug: 0\n", -600),
    text("bad_escape", kHeader + "AlgPipeline:\n   savePath: \"\\q\"\n", -600),
    text("no_header", "AlgPipeline:\n   debug: 0\n", -600),
    text("json_instead", "{\"AlgPipeline\": {\"debug\": 0}}", -600),
    text("xml_instead", "<?xml version=\"1.0\"?>\n<opencv_storage><a>1</a></opencv_storage>\n",
         -600),
    text("root_is_a_list", kHeader + "- 1\n- 2\n", -600),
    text("directive_on_document_line", "%YAML:1.0\n--- %YAML:1.0\n- 1\n- 2\n", -600),
    // Anything after the root mapping would make the parser wait forever for a "---".
    text("item_after_document_end", kHeader + "a: 1\n...\n-\n", -600),
    text("dot_line_after_map", "%YAML:1.\n e:0\n.---\n ", -600),
    text("text_after_document_marker", "%YAML:1.\n---\xff:0\nL-\n-", -600),
    text("line_left_of_first_key", "%YAML:1.\n  B-:0\nI\nP", -600),
    text("indented_mapping_ok", indentedBody(kDefault), 0),
    text("nul_byte", kDefault + std::string(1, '\0') + "\n-\n", -600),
    text("section_is_a_number", kHeader + "AlgPipeline: 5\n", -703, "AlgPipeline"),
    text("section_is_a_list", kHeader + "AlgPipeline: [1, 2]\n", -703, "AlgPipeline"),
    text("string_too_long",
         kHeader + "AlgPipeline:\n   savePath: \"" + std::string(5000, 's') + "\"\n", -600),
    // Nesting: refused before the parser can run out of stack.
    text("brackets_40000", kHeader + "a: " + std::string(40000, '['), -702),
    text("brackets_33", kHeader + "a: " + std::string(33, '[') + std::string(33, ']') + "\n", -702),
    text("braces_40", kHeader + "a: " + repeat("{b: ", 40) + "1" + std::string(40, '}') + "\n",
         -702),
    text("quotes_hide_closers",
         kHeader + "a: " + repeat("[\"]]]]]]]]\", ", 40) + "1" + std::string(40, ']') + "\n", -702),
    text("indentation_40", deepIndent(40), -702),
    text("dashes_40", kHeader + "a:\n" + repeat("- ", 40) + "1\n", -702),
    text("many_marks", kDefault + repeat("#:\n", 1100), -702),
    text("brackets_20_ok", kDefault + "x: " + std::string(20, '[') + std::string(20, ']') + "\n",
         0),
    // Wrong types name the key; the C call's count falls back to one dot for "AlgPipeline".
    typed("layer_string", "AlgPipeline", "layer", "\"five\"", -703),
    typed("layer_list", "AlgPipeline", "layer", "[5]", -703),
    typed("layer_map", "AlgPipeline", "layer", "{a: 1}", -703),
    typed("layer_huge_real", "AlgPipeline", "layer", "1e30", -703),
    typed("dc_string", "AlgPipeline", "dc", "\"abc\"", -703),
    typed("savePath_number", "AlgPipeline", "savePath", "5", -703),
    typed("debug_string", "AlgPipeline", "debug", "yes", -703),
    typed("hessian_string_element", "ImageProcess", "HessianScale", "[\"x\", 3.0]", -703),
    typed("hessian_string", "ImageProcess", "HessianScale", "x", -703),
    typed("log_map", "ImageProcess", "LogScale", "{a: 1}", -703),
    typed("dnratio_string", "ImageProcess", "DnRatio", "\"0.6\"", -703),
    typed("sensitivity_nan", "ImageProcess", "Sensitivity", ".nan", -703),
    typed("gapdelta_string", "PatternFeatures", "gapDelta", "wide", -320),
    typed("boxratio_list", "DotsTracking", "boxRatio", "[0.1]", -501),
    typed("score_string", "PrintScoreCalculate", "totalAreaScore", "lots", 0),
    // Cost limits.
    set("hessian_10000_scales", "ImageProcess", "HessianScale",
        "[" + repeat("2.0, ", 9999) + "3.0]", -710),
    set("hessian_15000_scales", "ImageProcess", "HessianScale",
        "[" + repeat("2.0, ", 14999) + "3.0]", -701),
    set("hessian_9_scales", "ImageProcess", "HessianScale", "[" + repeat("2.0, ", 8) + "3.0]",
        -710),
    set("log_9_scales", "ImageProcess", "LogScale", "[" + repeat("2.0, ", 8) + "3.0]", -710),
    set("hessian_8_scales", "ImageProcess", "HessianScale", "[" + repeat("2.0, ", 7) + "3.0]", 0),
    set("dnratio_40", "ImageProcess", "DnRatio", "40", -711),
    set("dnratio_2_1", "ImageProcess", "DnRatio", "2.1", -711),
    set("dnratio_1e7", "ImageProcess", "DnRatio", "1.0e+7", -112),
    set("layer_33", "AlgPipeline", "layer", "33", -713),
    set("layer_32", "AlgPipeline", "layer", "32", -321),
    set("layer_max_int", "AlgPipeline", "layer", "2147483647", -3),
    // Values of the right type at the edges.
    set("dnratio_nan", "ImageProcess", "DnRatio", ".nan", -112),
    set("dnratio_negative", "ImageProcess", "DnRatio", "-0.6", -112),
    set("hessian_empty", "ImageProcess", "HessianScale", "[]", -141),
    set("hessian_inf", "ImageProcess", "HessianScale", "[.inf]", -121),
    set("hessian_huge", "ImageProcess", "HessianScale", "[1e30]", -121),
    set("log_nan", "ImageProcess", "LogScale", "[.nan]", -130),
    set("log_huge", "ImageProcess", "LogScale", "[1e9]", -130),
    set("dc_nan", "AlgPipeline", "dc", ".nan", 0),
    set("dc_inf", "AlgPipeline", "dc", ".inf", 0),
    set("dc_zero", "AlgPipeline", "dc", "0", 0),
    set("dc_huge", "AlgPipeline", "dc", "1e30", 0),
    set("dc_negative", "AlgPipeline", "dc", "-72", 0),
    set("layer_negative", "AlgPipeline", "layer", "-5", -321),
    set("layer_zero", "AlgPipeline", "layer", "0", -500),
    set("gapdelta_nan", "PatternFeatures", "gapDelta", ".nan", -321),
    set("gapdelta_huge", "PatternFeatures", "gapDelta", "1e30", -321),
    set("padding_inf", "PatternFeatures", "img_padding", ".inf", 0),
    set("boxratio_nan", "DotsTracking", "boxRatio", ".nan", -500),
    set("boxratio_negative", "DotsTracking", "boxRatio", "-1", -500),
    set("boxratio_huge", "DotsTracking", "boxRatio", "1e30", -500),
    set("legacy_rotation", "AlgPipeline", "opencv10Rot", "1", 0),
    set("size_restrict", "ImageProcess", "imgSizeRestrict", "1", -102),
    set("sensitivity_huge", "ImageProcess", "Sensitivity", "2147483647", 0),
};

void PrintTo(const FileCase& c, std::ostream* os) {
    *os << c.name;
}

class HostileFile : public ::testing::TestWithParam<FileCase> {};

TEST_P(HostileFile, ReturnsItsStatusInTime) {
    const FileCase& c = GetParam();
    static const cv::Mat frame = codeFrame();
    const std::string path = c.path();
    const Outcome o = callC(frame.data, frame.rows, frame.cols, path);
    EXPECT_EQ(o.status, c.status) << qbcode_status_name(o.status);
    EXPECT_LT(o.seconds, kCaseSeconds);
    EXPECT_EQ(qbcode::ReaderOptions::fromFile(path).params().badKey, c.badKey);
    // The extended call: the same status wherever its bit array holds the code, and the key.
    qbcode_result full;
    const int s = qbcode_read(frame.data, frame.rows, frame.cols, 0, path.c_str(), &full);
    EXPECT_TRUE(full.bit_count > QBCODE_MAX_BITS || s == c.status) << qbcode_status_name(s);
    EXPECT_EQ(full.message, c.badKey);
}

INSTANTIATE_TEST_SUITE_P(Table, HostileFile, ::testing::ValuesIn(kFiles),
                         [](const ::testing::TestParamInfo<FileCase>& i) { return i.param.name; });

// ---- Images ------------------------------------------------------------------------------------

struct ImageCase {
    const char* name;
    int rows, cols;                 // the size the call is told
    std::function<cv::Mat()> make;  // the pixels; an empty Mat passes a null buffer
    int status;
};

cv::Mat filled(int rows, int cols, int v) {
    return cv::Mat(rows, cols, CV_8UC1, cv::Scalar(v));
}

cv::Mat noise(unsigned seed, double density) {
    cv::Mat m(480, 640, CV_8UC1);
    cv::RNG rng(seed);
    for (auto it = m.begin<uchar>(); it != m.end<uchar>(); ++it)
        *it = rng.uniform(0.0, 1.0) < density ? static_cast<uchar>(rng.uniform(0, 256)) : 0;
    return m;
}

cv::Mat checker(int cell) {
    cv::Mat m(480, 640, CV_8UC1);
    for (int y = 0; y < m.rows; ++y)
        for (int x = 0; x < m.cols; ++x) m.at<uchar>(y, x) = ((x / cell + y / cell) % 2) ? 220 : 30;
    return m;
}

cv::Mat dots(int count, int radius, bool lattice) {
    cv::Mat m = filled(480, 640, 30);
    cv::RNG rng(7);
    for (int i = 0; i < count; ++i) {
        const cv::Point p = lattice ? cv::Point(40 + (i % 20) * 28, 40 + (i / 20) * 28)
                                    : cv::Point(rng.uniform(5, 635), rng.uniform(5, 475));
        cv::circle(m, p, radius, cv::Scalar(220), cv::FILLED, cv::LINE_AA);
    }
    return m;
}

std::function<cv::Mat()> code(double rotation, cv::Point2d centre, double spacing = 22.0) {
    return [=] { return codeFrame(rotation, centre, spacing); };
}

cv::Mat twoCodes() {
    cv::Mat m;
    cv::hconcat(codeFrame(), codeFrame(40.0), m);
    return m;
}

// A small code in the largest frame accepted.
cv::Mat largestFrame() {
    cv::Mat m = filled(4096, 4096, 30);
    codeFrame(10.0).copyTo(m(cv::Rect(1700, 1800, 640, 480)));
    return m;
}

const std::vector<ImageCase> kImages = {
    {"empty", 0, 0, [] { return filled(1, 1, 0); }, -100},
    {"zero_rows", 0, 640, [] { return filled(1, 640, 0); }, -100},
    {"zero_cols", 480, 0, [] { return filled(480, 1, 0); }, -100},
    {"negative_rows", -480, 640, [] { return filled(480, 640, 0); }, -100},
    {"negative_both", -1, -1, [] { return filled(1, 1, 0); }, -100},
    {"null_buffer", 480, 640, [] { return cv::Mat(); }, -100},
    // Told far more than the buffer holds: refused before a pixel is read.
    {"claimed_int_max", 2147483647, 2147483647, [] { return filled(1, 1, 0); }, -712},
    {"claimed_tall", 100000, 1, [] { return filled(1, 1, 0); }, -712},
    {"claimed_wide", 1, 100000, [] { return filled(1, 1, 0); }, -712},
    {"claimed_side_8193", 8193, 100, [] { return filled(1, 1, 0); }, -712},
    {"claimed_pixels_over", 4097, 4096, [] { return filled(1, 1, 0); }, -712},
    {"one_pixel", 1, 1, [] { return filled(1, 1, 200); }, -112},
    {"one_row", 1, 640, [] { return filled(1, 640, 200); }, -112},
    {"one_column", 480, 1, [] { return filled(480, 1, 200); }, -112},
    {"tiny_84", 84, 84, [] { return filled(84, 84, 90); }, -141},
    {"black", 480, 640, [] { return filled(480, 640, 0); }, -141},
    {"white", 480, 640, [] { return filled(480, 640, 255); }, -141},
    {"grey", 480, 640, [] { return filled(480, 640, 128); }, -141},
    {"noise_dense", 480, 640, [] { return noise(1, 1.0); }, -143},
    {"noise_sparse", 480, 640, [] { return noise(2, 0.02); }, -141},
    {"checker_1", 480, 640, [] { return checker(1); }, -141},
    {"checker_4", 480, 640, [] { return checker(4); }, -141},
    {"checker_16", 480, 640, [] { return checker(16); }, -143},
    {"checker_64", 480, 640, [] { return checker(64); }, -202},
    {"tiny_dots_600", 480, 640, [] { return dots(600, 2, false); }, -141},
    {"square_lattice", 480, 640, [] { return dots(300, 5, true); }, -202},
    {"code", 480, 640, [] { return codeFrame(); }, 0},
    {"code_turned_37", 480, 640, [] { return codeFrame(37.0); }, 0},
    {"code_inverted", 480, 640, [] { return cv::Mat(255 - codeFrame()); }, 0},
    {"code_cut_left", 480, 640, code(0.0, {60, 240}), -511},
    {"code_cut_bottom", 480, 640, code(0.0, {320, 460}), -500},
    {"code_spacing_6", 480, 640, code(0.0, {-1, -1}, 6.0), -202},
    {"two_codes", 480, 1280, twoCodes, 0},
    {"largest_frame", 4096, 4096, largestFrame, -202},
};

void PrintTo(const ImageCase& c, std::ostream* os) {
    *os << c.name;
}

class HostileImage : public ::testing::TestWithParam<ImageCase> {};

TEST_P(HostileImage, ReturnsItsStatusInTime) {
    const ImageCase& c = GetParam();
    const cv::Mat m = c.make();
    const unsigned char* pixels = m.empty() ? nullptr : m.data;
    const Outcome o = callC(pixels, c.rows, c.cols, QBCODE_DEFAULT_PARAMS);
    EXPECT_EQ(o.status, c.status) << qbcode_status_name(o.status);
    EXPECT_LT(o.seconds, kCaseSeconds);
    qbcode_result full;
    EXPECT_EQ(qbcode_read(pixels, c.rows, c.cols, 0, QBCODE_DEFAULT_PARAMS, &full), c.status);
    // Every code: a refused frame refuses with the same status, a code comes back.
    qbcode_result all[4];
    const int n = qbcode_read_all(pixels, c.rows, c.cols, 0, QBCODE_DEFAULT_PARAMS, all, 4);
    EXPECT_TRUE(c.status == 0 ? n >= 1 && n <= 4 : n == c.status || (n >= 0 && n <= 4)) << n;
}

INSTANTIATE_TEST_SUITE_P(Table, HostileImage, ::testing::ValuesIn(kImages),
                         [](const ::testing::TestParamInfo<ImageCase>& i) { return i.param.name; });

}  // namespace

// A display variable naming no display: no window is opened (the toolkit would abort).
TEST(HostileHost, ShowKeysWithoutAReachableDisplay) {
    setenv("DISPLAY", ":97", 1);
    setenv("WAYLAND_DISPLAY", "nowhere-97", 1);
    EXPECT_FALSE(debugDisplayAvailable());
    const std::string yaml =
        setKey(paramsWith("AlgPipeline", "isShowImg", "1"), "ImageProcess", "showImg", "1");
    const cv::Mat frame = codeFrame();
    EXPECT_EQ(callC(frame.data, frame.rows, frame.cols, writeFile("hostile_show.yml", yaml)).status,
              0);
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
}

// qbcode read checks the parameter file without opening it: a FIFO cannot block it.
TEST(HostileHost, ReadCommandRefusesAFifo) {
    const std::string image = tmpPath("hostile_code.png");
    ASSERT_TRUE(cv::imwrite(image, codeFrame()));
    EXPECT_EQ(runCommand(cmdRead, {"qbcode", "read", image, "--params", fifo()}).status, 2);
}

// ---- Streams ---------------------------------------------------------------------------------

#include <opencv2/videoio.hpp>

namespace {

struct StreamCase {
    const char* name;
    std::function<std::string()> source;  // writes the file, or names a path
    int status;
    std::string message;
};

// A short clip of the camera frame, cut to `bytes` when given.
std::string clipFile(const std::string& name, size_t bytes) {
    const std::string path = tmpPath(name);
    {
        cv::VideoWriter out(path, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 10, {640, 480},
                            false);
        for (int f = 0; f < 20; ++f) out.write(codeFrame(17.0 + f));
    }
    if (bytes > 0) {
        const std::string whole = readFile(path);
        writeFile(name, whole.substr(0, std::min(bytes, whole.size() / 2)));
    }
    return path;
}

const StreamCase kStreams[] = {
    {"truncated_video", [] { return clipFile("hostile_cut.avi", 200000); }, 4,
     "the file ends after "},
    {"text_as_video", [] { return writeFile("hostile_text.mp4", "not a video\n"); }, 3,
     "as a video"},
    {"missing_device", [] { return std::string("/dev/video97"); }, 3, "no such device"},
    {"folder_as_video", [] { return tmpPath(""); }, 3, "is a folder"},
};

}  // namespace

class HostileStream : public ::testing::TestWithParam<StreamCase> {};

TEST_P(HostileStream, EndsWithItsMessageAndStatus) {
    const StreamCase& c = GetParam();
    const auto t0 = std::chrono::steady_clock::now();
    const Command o = runCommand(cmdScan, {"qbcode", "scan", c.source()});
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(),
              kCaseSeconds);
    EXPECT_EQ(o.status, c.status) << o.out << o.err;
    EXPECT_NE(o.err.find(c.message), std::string::npos) << o.err;
}

INSTANTIATE_TEST_SUITE_P(Table, HostileStream, ::testing::ValuesIn(kStreams),
                         [](const ::testing::TestParamInfo<StreamCase>& i) {
                             return i.param.name;
                         });

namespace {

// What a reader handle is handed: claimed sizes, strides and buffers, and its parameter text.
struct HandleCase {
    const char* name;
    std::string yaml;  // empty: the shipped file
    int rows, cols, stride;
    bool buffer;
    int status;
};

const HandleCase kHandles[] = {
    {"frame_beyond_the_limits", "", 100000, 100000, 0, true, -712},
    {"stride_shorter_than_a_row", "", 480, 640, 639, true, -100},
    {"zero_rows", "", 0, 640, 0, true, -100},
    {"no_buffer", "", 480, 640, 0, false, -100},
    {"broken_camera_section", kHeader + "Camera: [1, 2\n", 480, 640, 0, true, -600},
    {"detection_section_of_the_wrong_type",
     defaultParams().substr(0, defaultParams().find("Detection:")) + "Detection: 7\n", 480, 640, 0,
     true, -703},
};

}  // namespace

class HostileHandle : public ::testing::TestWithParam<HandleCase> {};

TEST_P(HostileHandle, RefusesWithAStatusAndReadsOnAfterwards) {
    const HandleCase& c = GetParam();
    qbcode_reader* reader = c.yaml.empty() ? qbcode_reader_new(QBCODE_DEFAULT_PARAMS)
                                           : qbcode_reader_new_from_yaml(c.yaml.c_str());
    ASSERT_NE(reader, nullptr);
    const cv::Mat frame(480, 641, CV_8UC1, cv::Scalar(30));
    const unsigned char* pixels = c.buffer ? frame.data : nullptr;
    qbcode_result one, all[2];
    EXPECT_EQ(qbcode_reader_read(reader, pixels, c.rows, c.cols, c.stride, &one), c.status);
    const int n = qbcode_reader_read_all(reader, pixels, c.rows, c.cols, c.stride, all, 2);
    EXPECT_TRUE(n == 0 || n == c.status) << n;
    const int ready = qbcode_reader_status(reader);
    EXPECT_EQ(qbcode_reader_read_all(reader, pixels, c.rows, c.cols, c.stride, nullptr, 2),
              ready < 0 ? ready : QBCODE_NO_RESULT);
    EXPECT_EQ(qbcode_reader_read(reader, pixels, c.rows, c.cols, c.stride, nullptr),
              QBCODE_NO_RESULT);
    // The same handle still reads a code afterwards when its parameters allow it.
    if (ready == 0) {
        const cv::Mat code = codeFrame();
        EXPECT_EQ(qbcode_reader_read(reader, code.data, code.rows, code.cols, 0, &one), 0);
    }
    qbcode_reader_free(reader);
}

INSTANTIATE_TEST_SUITE_P(Table, HostileHandle, ::testing::ValuesIn(kHandles),
                         [](const ::testing::TestParamInfo<HandleCase>& i) {
                             return std::string(i.param.name);
                         });
