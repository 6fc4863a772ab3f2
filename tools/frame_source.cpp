#include "frame_source.h"

#include <sys/stat.h>

#include <chrono>
#include <cstdlib>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgproc.hpp>

namespace cli {
namespace {

bool isNumber(const std::string& s) {
    return !s.empty() && s.size() < 6 && s.find_first_not_of("0123456789") == std::string::npos;
}

class Capture : public FrameSource {
public:
    Capture(bool camera) : camera_(camera) {}
    cv::VideoCapture cap;

    FrameEnd next(cv::Mat& grey) override {
        bool got = false;
        try {
            got = cap.read(frame_);
        } catch (const cv::Exception&) {
        }
        if (!got || frame_.empty()) return finished();
        const auto now = std::chrono::steady_clock::now();
        if (index_ < 0) start_ = now;
        ++index_;
        seconds_ = !camera_ && fps() > 0 ? index_ / fps()
                                         : std::chrono::duration<double>(now - start_).count();
        if (!toGrey(frame_, grey)) {
            problem_ = "frame " + std::to_string(index_) + " is not an 8-bit image";
            return FrameEnd::BadFrame;
        }
        return FrameEnd::More;
    }
    double seconds() const override { return seconds_; }
    double fps() const override {
        const double f = cap.get(cv::CAP_PROP_FPS);
        return f > 0 && f < 10000 ? f : 0.0;
    }
    std::string problem() const override { return problem_; }

private:
    FrameEnd finished() {
        // A file's header gives its frame count; containers that only estimate it from the
        // duration may be a frame or two off.
        const double count = camera_ ? 0.0 : cap.get(cv::CAP_PROP_FRAME_COUNT);
        const double read = index_ + 1;
        if (count > 0 && read + std::max(2.0, count / 50) <= count) {
            problem_ = "the file ends after " + std::to_string(index_ + 1) + " of its " +
                       std::to_string(static_cast<long>(count)) + " frames";
            return FrameEnd::Truncated;
        }
        return FrameEnd::End;
    }

    bool camera_;
    cv::Mat frame_;
    int index_ = -1;
    double seconds_ = 0.0;
    std::chrono::steady_clock::time_point start_;
    std::string problem_;
};

}  // namespace

bool toGrey(const cv::Mat& frame, cv::Mat& grey) {
    if (frame.empty() || frame.depth() != CV_8U) return false;
    switch (frame.channels()) {
        case 1:
            grey = frame;
            return true;
        case 3:
            cv::cvtColor(frame, grey, cv::COLOR_BGR2GRAY);
            return true;
        case 4:
            cv::cvtColor(frame, grey, cv::COLOR_BGRA2GRAY);
            return true;
        default:
            return false;
    }
}

std::unique_ptr<FrameSource> openFrames(const std::string& name, std::string& error) {
    const bool device = name.rfind("/dev/", 0) == 0;
    const bool camera = device || isNumber(name);
    struct stat st;
    if (!isNumber(name) && ::stat(name.c_str(), &st) != 0 && name.find('%') == std::string::npos) {
        error = (device ? "no such device " : "no such file ") + name;
        return nullptr;
    }
    if (!isNumber(name) && ::stat(name.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        error = name + " is a folder: qbcode read reads the images in it";
        return nullptr;
    }
    auto source = std::make_unique<Capture>(camera);
    // The backends that fail to open a file say so in their own words; ours follows.
    const auto level = cv::utils::logging::getLogLevel();
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    try {
        // Only the backends that can serve: trying every one would also probe USB and
        // FireWire cameras for a file, and leave what they found allocated.
        if (isNumber(name))
            source->cap.open(std::atoi(name.c_str()), cv::CAP_V4L2);
        else if (device)
            source->cap.open(name, cv::CAP_V4L2);
        else if (!source->cap.open(name, cv::CAP_FFMPEG))
            source->cap.open(name, cv::CAP_IMAGES);
    } catch (const cv::Exception&) {
    }
    cv::utils::logging::setLogLevel(level);
    if (!source->cap.isOpened()) {
        error = camera ? "cannot open camera " + name : "cannot open " + name + " as a video";
        return nullptr;
    }
    return source;
}

}  // namespace cli
