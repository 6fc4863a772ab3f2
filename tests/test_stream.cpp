// qbcode scan on a rendered clip and qbcode read on a folder, as a user runs them.
#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <set>

#include <opencv2/videoio.hpp>

#include "commands.h"
#include "qbcode_render.h"
#include "result_format.h"
#include "scan.h"
#include "test_support.h"

namespace {

constexpr int kFrames = 56;
constexpr double kFps = 10.0;

const std::vector<int>& codeA() {
    static const std::vector<int> bits = qbrender::randomBits(17);
    return bits;
}
const std::vector<int>& codeB() {
    static const std::vector<int> bits = qbrender::randomBits(23);
    return bits;
}

struct Placed {
    const std::vector<int>* bits;
    double x, y, rotation;
};

// A slides across (0-19), is gone for two frames, slides out to the right (22-27); B slides in
// from the right from 28 on; A comes back beside it at 44, long enough gone to be news again.
std::vector<Placed> codesIn(int f) {
    std::vector<Placed> in;
    if (f < 20) in.push_back({&codeA(), 140.0 + 8 * f, 200, 10.0 + f});
    if (f >= 22 && f < 28) in.push_back({&codeA(), 520.0 + 30 * (f - 22), 200, 30});
    if (f >= 28) in.push_back({&codeB(), std::max(470.0, 700.0 - 50 * (f - 28)), 240, 200});
    if (f >= 44) in.push_back({&codeA(), 170, 300, 40});
    return in;
}

cv::Mat clipFrame(int f) {
    cv::Mat frame(480, 640, CV_8UC1, cv::Scalar(30));
    for (const Placed& p : codesIn(f)) {
        qbrender::CodeStyle style;
        style.spacing = 16;
        style.dotDiameter = 9.6;
        style.rotationDeg = p.rotation;
        style.centre = {p.x, p.y};
        frame = cv::max(frame, qbrender::renderCode(*p.bits, style));
    }
    cv::GaussianBlur(frame, frame, cv::Size(), 0.8);
    cv::Mat noise(frame.size(), CV_16SC1);
    cv::randn(noise, 0, 4);
    frame.convertTo(frame, CV_16SC1);
    cv::Mat(frame + noise).convertTo(frame, CV_8UC1);
    return frame;
}

class Stream : public ::testing::Test {
protected:
    static std::string clip() {
        return tmpPath("stream_clip_" + std::to_string(getpid()) + ".avi");
    }
    static void SetUpTestSuite() {
        cv::VideoWriter out(clip(), cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), kFps,
                            cv::Size(640, 480), false);
        ASSERT_TRUE(out.isOpened());
        for (int f = 0; f < kFrames; ++f) out.write(clipFrame(f));
    }
    static void TearDownTestSuite() { std::remove(clip().c_str()); }

    static Command scan(std::vector<std::string> args) {
        args.insert(args.begin(), {"qbcode", "scan", clip()});
        return runCommand(cmdScan, args);
    }
    // (frame, payload) of every JSON line of a code, and the time each gave.
    static std::vector<std::pair<int, std::string>> sightings(const std::string& out) {
        std::vector<std::pair<int, std::string>> seen;
        const std::regex line(R"(\{"frame": (\d+), "time": ([0-9.]+), "payload": "([0-9a-f]+)\")");
        for (std::sregex_iterator m(out.begin(), out.end(), line), end; m != end; ++m) {
            const int frame = std::stoi((*m)[1]);
            EXPECT_NEAR(std::stod((*m)[2]), frame / kFps, 1e-3);
            seen.emplace_back(frame, (*m)[3]);
        }
        return seen;
    }
    const std::string a = cli::payloadHex(codeA()), b = cli::payloadHex(codeB());
};

// Each code once as it comes into view; A twice, since it was gone long enough in between.
TEST_F(Stream, ReportsEachCodeOnceWhenItComesIntoView) {
    const Command o = scan({});
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    const std::regex line("frame (\\d+) at [0-9.]+ s: ([0-9a-f]+)  centre .*");
    std::vector<std::pair<int, std::string>> seen;
    std::istringstream lines(o.out);
    for (std::string l; std::getline(lines, l);) {
        std::smatch m;
        if (std::regex_match(l, m, line)) seen.emplace_back(std::stoi(m[1]), m[2]);
    }
    ASSERT_EQ(seen.size(), 3u) << o.out;
    EXPECT_EQ(seen[0], std::make_pair(0, a));
    EXPECT_EQ(seen[1].second, b);
    EXPECT_TRUE(seen[1].first >= 28 && seen[1].first <= 33) << seen[1].first;
    EXPECT_EQ(seen[2], std::make_pair(44, a));
    EXPECT_NE(o.out.find("frames: 56 read, "), std::string::npos) << o.out;
    EXPECT_NE(o.out.find(" with a code, 3 code(s) reported\nspeed: "), std::string::npos);
}

// Every frame's codes: none where none is in view, both where two are.
TEST_F(Stream, EveryFrameReportsWhatEachFrameHolds) {
    const Command o = scan({"--every-frame", "--json"});
    ASSERT_EQ(o.status, 0) << o.err;
    std::map<int, std::set<std::string>> byFrame;
    for (const auto& [frame, payload] : sightings(o.out)) byFrame[frame].insert(payload);
    int bothFrames = 0, aFrames = 0;
    for (const auto& [frame, codes] : byFrame) {
        std::set<std::string> inView;
        for (const Placed& p : codesIn(frame)) inView.insert(cli::payloadHex(*p.bits));
        for (const std::string& c : codes) EXPECT_EQ(inView.count(c), 1u) << frame << " " << c;
        bothFrames += codes.size() == 2;
        aFrames += frame < 20 && codes.count(a);
    }
    EXPECT_GE(aFrames, 18);
    EXPECT_GE(bothFrames, 10);
    EXPECT_EQ(byFrame.count(20) + byFrame.count(21), 0u);
    EXPECT_NE(o.out.find("{\"summary\": {\"frames\": 56, \"frames_with_code\": "),
              std::string::npos)
        << o.out;
}

// The overlay has a frame for every frame read, coloured where a code was read.
TEST_F(Stream, OverlayVideo) {
    const std::string overlay = tmpPath("stream_overlay_" + std::to_string(getpid()) + ".avi");
    ASSERT_EQ(scan({"--overlay", overlay, "--frames", "12"}).status, 0);
    cv::VideoCapture in(overlay);
    cv::Mat frame;
    int frames = 0;
    while (in.read(frame)) {
        if (frames++ != 5) continue;
        const cv::Vec3b atDot = frame.at<cv::Vec3b>(200, 180);  // inside A at frame 5
        EXPECT_FALSE(atDot[0] == atDot[1] && atDot[1] == atDot[2]) << atDot;
    }
    EXPECT_EQ(frames, 12);
    std::remove(overlay.c_str());
    const Command bad = scan({"--overlay", "/nonexistent/dir/out.avi"});
    EXPECT_EQ(bad.status, cli::kScanUsage);
    EXPECT_NE(bad.err.find("cannot write /nonexistent/dir/out.avi"), std::string::npos);
}

// A source whose frames change size part way: the loop stops there and says why.
class TwoSizes : public cli::FrameSource {
public:
    cli::FrameEnd next(cv::Mat& grey) override {
        if (n_ == 4) return cli::FrameEnd::End;
        grey = ++n_ < 3 ? clipFrame(0) : cv::Mat(240, 320, CV_8UC1, cv::Scalar(30));
        return cli::FrameEnd::More;
    }
    double seconds() const override { return n_ / kFps; }
    double fps() const override { return kFps; }
    std::string problem() const override { return ""; }

private:
    int n_ = 0;
};

TEST(StreamSource, AFrameOfAnotherSizeEndsTheStream) {
    TwoSizes source;
    qbcode::Reader reader;
    std::ostringstream out, err;
    const cli::ScanSummary s = cli::scan(source, reader, cli::ScanOptions(), out, err);
    EXPECT_EQ(s.frames, 2);
    EXPECT_EQ(cli::scanStatus(s), cli::kScanBroken);
    EXPECT_EQ(err.str(), "qbcode scan: frame 2 is 320x240, the stream's first was 640x480\n");
}

// A folder read by two workers: the rows of one, in name order; the summary counts them.
TEST(Batch, FolderInInputOrderWithSummary) {
    const std::string dir = tmpPath("batch_" + std::to_string(getpid()));
    mkdir(dir.c_str(), 0755);
    std::vector<std::string> names;
    for (int f : {0, 20, 30, 44, 5, 21}) {  // 20 and 21 hold no code, 30 a code half in view
        names.push_back(dir + "/frame" + std::to_string(100 + f) + ".png");
        cv::imwrite(names.back(), clipFrame(f));
    }
    names.push_back(writeFile("batch_" + std::to_string(getpid()) + "/frame999.png", "junk"));
    writeFile("batch_" + std::to_string(getpid()) + "/notes.txt", "not an image");
    std::sort(names.begin(), names.end());

    const Command two = runCommand(cmdRead, {"qbcode", "read", dir, "--csv", "--jobs", "2"});
    const Command one = runCommand(cmdRead, {"qbcode", "read", dir + "/frame*", "--csv"});
    EXPECT_EQ(two.status, 1);
    const auto rows = [](const std::string& out) {
        std::vector<std::string> r;  // without the time, the last cell
        std::istringstream in(out);
        for (std::string l; std::getline(in, l);) r.push_back(l.substr(0, l.rfind(',')));
        return r;
    };
    const std::vector<std::string> got = rows(two.out);
    EXPECT_EQ(got, rows(one.out));
    ASSERT_EQ(got.size(), names.size() + 1) << two.out;
    EXPECT_EQ(got[0].rfind("image,index,status,name,payload,", 0), 0u);
    for (size_t k = 0; k < names.size(); ++k)
        EXPECT_EQ(got[k + 1].rfind(names[k] + ",", 0), 0u) << got[k + 1];
    EXPECT_NE(got[1].find(",0,ok," + cli::payloadHex(codeA()) + ","), std::string::npos);
    EXPECT_NE(got.back().find(",,cannot-read-image,"), std::string::npos);
    EXPECT_NE(two.err.find("7 images: 3 read, 3 refused ("), std::string::npos) << two.err;
    EXPECT_NE(two.err.find("1 failed to open; "), std::string::npos) << two.err;
    EXPECT_NE(two.err.find(" on 2 job(s)"), std::string::npos);
}

}  // namespace
