// Frames of a stream: a video file, a camera device or a camera index, as 8-bit grey.
#pragma once

#include <memory>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

namespace cli {

enum class FrameEnd {
    More,        // a frame was returned
    End,         // the stream ended where it said it would (or a camera was stopped)
    Truncated,   // a file ended before the frame count its header gives
    SizeChange,  // a frame of another size than the first (found by the reader of the frames)
    BadFrame,    // a frame that is empty or not 8-bit
};

class FrameSource {
public:
    virtual ~FrameSource() = default;
    // The next frame as grey into `grey`; More, or why there is none.
    virtual FrameEnd next(cv::Mat& grey) = 0;
    // Seconds into the stream of the frame last returned.
    virtual double seconds() const = 0;
    // Frames per second the source claims, or 0 when it does not say.
    virtual double fps() const = 0;
    // What went wrong, for the message: "the file ends after 25 of its 56 frames".
    virtual std::string problem() const = 0;
};

// "/dev/videoN" and a bare number name a camera; anything else a video file (or an image
// sequence such as frame_%03d.png). Null with `error` set when the source cannot be opened.
std::unique_ptr<FrameSource> openFrames(const std::string& name, std::string& error);

// Grey from what a capture returns: colour converted, 8-bit only. False for anything else.
bool toGrey(const cv::Mat& frame, cv::Mat& grey);

}  // namespace cli
