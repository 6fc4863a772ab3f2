// C++ interface of the hexagonal dot code reader: options, a full result and the read calls.
// The C entry point, the qbcode tool and the print grade all go through it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qbcode_status.h"

#include "qbcode_export.h"

QBCODE_VISIBLE_BEGIN

class SystemPara;

namespace qbcode {

// An 8-bit grey image owned by the caller; rows are stride bytes apart (stride >= cols).
struct ImageView {
    const uint8_t* data = nullptr;
    int rows = 0;
    int cols = 0;
    size_t stride = 0;  // 0: cols

    ImageView() = default;
    ImageView(const uint8_t* d, int r, int c, size_t s = 0)
        : data(d), rows(r), cols(c), stride(s) {}
};

// Every key of the parameter file. Default-constructed options hold the shipped parameter file;
// options loaded from a file or from YAML text keep, per section, whether it was complete, and
// a missing or broken section fails the read as it would from the file.
class ReaderOptions {
public:
    ReaderOptions();
    ReaderOptions(const ReaderOptions& other);
    ReaderOptions& operator=(const ReaderOptions& other);
    ReaderOptions(ReaderOptions&&) noexcept;
    ReaderOptions& operator=(ReaderOptions&&) noexcept;
    ~ReaderOptions();

    // "" means "./algorithm_parameters_v01.yml". A file that cannot be read gives options whose
    // reads fail with a configuration status.
    static ReaderOptions fromFile(const std::string& path);
    static ReaderOptions fromYaml(const std::string& text);
    // For a host that names no file: the first file of defaultParamsSearch() that can be read,
    // else the shipped defaults compiled into the library.
    static ReaderOptions fromDefaultSearch();

    // The record of every key, to read or set in code (SystemPara.h).
    SystemPara& params();
    const SystemPara& params() const;

    // Rings of the code ("layer") and the number of bits a read returns.
    int layers() const;
    int bitCount() const;

private:
    struct Blank {};
    explicit ReaderOptions(Blank);
    std::unique_ptr<SystemPara> para_;
};

struct Point {
    double x = 0.0;  // column
    double y = 0.0;  // row
};

// What the stages measured on the way to the bits.
struct Evidence {
    int clusters = 0;            // clusters of dot centroids found in the frame
    int regionDots = 0;          // centroids in the code's cluster
    float angleScore = 0.f;      // projection score of the chosen angle
    double correlation = 0.0;    // best template correlation of the centre search (0..1)
    bool recalibrated = false;   // the centre was found after the extra 30-degree turn
    bool refined = false;        // the bits were read at the grid fitted to the detected dots
    bool fastPath = false;       // read from the cluster's dots alone, no angle or centre search
    bool darkDots = false;       // the read took the dots as dark on a light ground
    int tries = 1;               // views of the frame prepared (polarity, downsampling ratio)
    int candidates = 0;          // clusters looked at
    int decisions = 0;           // clusters that looked like a code and went on to the angle
    double ratio = 0.0;          // the downsampling ratio of the read returned
    double markerRatio = 0.0;    // printed / blank marker count of the chosen orientation
    int boxSide = 0;             // side of the sampling box, in upright pixels
    std::vector<int> fill;       // foreground pixels in each position's box, in bit order
    double fillThreshold = 0.0;  // a position is 1 when its fill exceeds this
};

// The verification's measurements; a host may set its own bar on them.
struct Checks {
    bool verified = false;    // the verification is on and every check passed
    double blankFill = 0.0;   // largest foreground share of a 0-bit box
    int outside = 0;          // positions whose box was read from outside the image or crop
    int markersMatched = 0;   // of the 18 orientation markers
    int dotsMatched = 0;      // 1-bits with a detected dot
    int dotsMissing = 0;      // 1-bits without one
    int dotsUnexplained = 0;  // detected dots on positions read as 0
    double residual = 0.0;    // RMS distance of the dots from the fitted grid, in spacings
};

// Stage timings of one read, in milliseconds of wall time.
struct Timings {
    double preprocess = 0.0;
    double region = 0.0;
    double angle = 0.0;
    double spacing = 0.0;
    double centre = 0.0;
    double decode = 0.0;
    double verify = 0.0;
    double total = 0.0;
};

struct Result {
    int status = QBCODE_INTERNAL_ERROR;  // 0 when the code was read
    std::vector<int> bits;               // bit order: centre, then ring by ring
    // The box of the C entry point: the region of interest 22 px in on every side, scaled back
    // by "DnRatio" (x, y, width, height in input pixels, or with "imgPreROI" in the pixels of the
    // pre-cropped frame, as the C call has always returned it; also filled when a read failed).
    std::array<int, 4> box{{0, 0, 0, 0}};
    int orientation = -1;            // 0..5: which of the six turns of the grid fits the markers
    double angle = 0.0;              // degrees the input was turned to bring the code upright
    double spacing = 0.0;            // dot spacing in input pixels
    Point centre;                    // centre dot, input pixels
    std::array<Point, 6> corners{};  // corner dots of the outer ring, input pixels
    // How far the weakest bit is from its decision: min |fill - threshold| / threshold.
    double margin = 0.0;
    // Per position, in bit order: how plainly its grey level is the one its bit says, against
    // the dot and background levels of the code's positions nearby (1 at that level, 0 halfway,
    // below 0 beyond the other level or neither), and the gaps around it background. Filled
    // whenever the bits were read, also when a check then refused them.
    std::vector<double> confidence;
    double decisionMargin = 0.0;  // the weakest position's confidence
    Checks checks;
    Evidence evidence;
    Timings timings;

    bool valid() const { return status == 0; }
    const char* statusName() const { return qbcode_status_name(status); }
};

// A reader kept across frames: the options parsed once, the stages set up once. One reader per
// thread reads in parallel; a reader shared between threads is safe, and its reads then take
// turns. Never throws from read or readAll.
class Reader {
public:
    explicit Reader(const ReaderOptions& options = ReaderOptions());
    ~Reader();
    Reader(Reader&&) noexcept;
    Reader& operator=(Reader&&) noexcept;
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    // The first code found: with a "Detection" section, the first of readAll; without, the
    // region the clustering names, as the C entry point has always read it.
    Result read(const ImageView& image);
    // Every code found, most promising first, at most maxCodes (0: no limit); overlapping reads
    // of one code count once. Failures give an empty list.
    std::vector<Result> readAll(const ImageView& image, int maxCodes = 0);

    // 0, or the configuration status every read returns (a missing section, a bad key).
    int status() const;
    const ReaderOptions& options() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// One-off reads through a reader made for the call. Never throw.
Result read(const ImageView& image, const ReaderOptions& options = ReaderOptions());
std::vector<Result> readAll(const ImageView& image, const ReaderOptions& options = ReaderOptions(),
                            int maxCodes = 0);

// "Quelbor Recognition Algorithm 0.3.10", whole (get_version copies at most 35 characters).
const char* versionBanner();

// Where a host that names no parameter file looks, in order: ./algorithm_parameters_v01.yml,
// share/qbcode_hexagon_recognition/ of the installation the library was loaded from, then that
// folder under the prefix the library was built for.
std::vector<std::string> defaultParamsSearch();
// The first of those that is a readable file, or "" when none is.
std::string defaultParamsPath();

// The code format: positions of the orientation markers and the payload mapping.
const std::vector<int>& markerOnPositions();
const std::vector<int>& markerOffPositions();
// Number of free (non-marker) positions of a code with the given rings.
int freePositions(int layers);
// The free positions as bytes, least significant bit first; exactly ceil(free / 8) bytes.
std::vector<uint8_t> payloadBytes(const std::vector<int>& bits);
// The bits of a code carrying payload: markers set, free positions filled from the bytes.
std::vector<int> payloadBits(const std::vector<uint8_t>& payload, int layers = 5);

}  // namespace qbcode

QBCODE_VISIBLE_END
