// The stream loop of qbcode scan: every frame through one reader, a line per code as it comes
// into view, a summary at the end.
#pragma once

#include <atomic>
#include <ostream>
#include <string>

#include "frame_source.h"
#include "qbcode_reader.hpp"

namespace cli {

struct ScanOptions {
    bool json = false;        // one JSON object per line
    bool everyFrame = false;  // report a code in every frame it is read in
    int forget = 15;          // frames a code may go unread and still be the same sighting
    int maxCodes = 16;        // codes read per frame
    long maxFrames = 0;       // stop after this many frames; 0: the whole stream
    std::string overlay;      // annotated video to write, "" for none
    bool show = false;        // show the annotated frames in a window
    const std::atomic<bool>* stop = nullptr;  // set from a signal handler to end a camera
};

struct ScanSummary {
    long frames = 0;          // frames read
    long framesWithCode = 0;  // frames in which at least one code was read
    long reported = 0;        // lines printed for codes
    double seconds = 0.0;     // wall time of the whole loop, decoding included
    FrameEnd end = FrameEnd::End;
    bool overlayFailed = false;  // the overlay video could not be written
};

// Exit statuses of qbcode scan.
enum ScanStatus {
    kScanFound = 0,     // the stream was read and held a code
    kScanNothing = 1,   // the stream was read and held none
    kScanUsage = 2,     // bad arguments, or an overlay that cannot be written
    kScanNoSource = 3,  // the source cannot be opened
    kScanBroken = 4,    // the stream broke off: truncated, a frame of another size, a bad frame
};

// Reads the source to its end (or until stop), printing to `out`; problems go to `err`.
ScanSummary scan(FrameSource& source, qbcode::Reader& reader, const ScanOptions& options,
                 std::ostream& out, std::ostream& err);

int scanStatus(const ScanSummary& s);

}  // namespace cli
