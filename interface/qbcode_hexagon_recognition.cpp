#include "qbcode_hexagon_recognition.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <functional>
#include <iostream>
#include <string>

#include "Reader.h"
#include "SystemPara.h"
#include "qbcode_status.h"

namespace {

const char kBanner[] = "Quelbor Recognition Algorithm 0.3.10";
const int kBannerLength = 35;

std::string pathFrom(const char* param_path) {
    // A null path must surface as the standard library's own logic_error.
    if (param_path == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
    return std::string(param_path);
}

#define QBCODE_STATUS_NAME_CASE(id, value, name) \
    case value:                                  \
        return name;

}  // namespace

extern "C" const char* qbcode_status_name(int status) {
    switch (status) {
        QBCODE_STATUS_TABLE(QBCODE_STATUS_NAME_CASE)
        default:
            return status > 0 ? "ok" : "unknown";
    }
}

extern "C" int get_dots_num(int layers) {
    if (layers < 0) return 1;
    // From 26755 rings on the count no longer fits an int; it saturates.
    if (layers > 26754) return 0x7fffffff;
    return static_cast<int>(1 + 3LL * layers * (layers + 1));
}

const char* qbcode::versionBanner() {
    return kBanner;
}

extern "C" void get_version(char* buffer, int length) {
    if (buffer == nullptr || length <= 0) return;
    std::memcpy(buffer, kBanner,
                static_cast<size_t>(length < kBannerLength ? length : kBannerLength));
}

extern "C" int quelbor_hexagon_recognition(unsigned char* image, int rows, int cols,
                                           int /*reserved*/, const char* param_path, int* bits,
                                           int bits_len, int* box, int box_len) {
    std::string path = pathFrom(param_path);
    if (path == "") path = "./algorithm_parameters_v01.yml";

    // Every section is read once; the driver and its stages use this record.
    const qbcode::ReaderOptions options = qbcode::ReaderOptions::fromFile(path);
    const int expected = get_dots_num(options.params().layer);

    if (expected != bits_len || bits == nullptr) {
        std::cout << "dot number" << expected << std::endl;
        std::cout << "bits array len should be " << expected << std::endl;
        return QBCODE_BITS_LENGTH;
    }
    if (box_len != 4 || box == nullptr) {
        std::cout << "bounding box's length have to be 4!" << std::endl;
        return QBCODE_BOX_LENGTH;
    }

    // The reader never throws; the box is scaled by the ratio of the read that found the
    // region: the file's, unless a try at another ratio found it.
    const qbcode::Result result =
        qbcode::Reader(options).read(qbcode::ImageView(image, rows, cols));
    if (result.status == 0)
        for (int i = 0; i < expected && i < static_cast<int>(result.bits.size()); ++i)
            bits[i] = result.bits[i];
    std::copy(result.box.begin(), result.box.end(), box);
    return result.status;
}

namespace {

void fillResult(const qbcode::Result& r, qbcode_result* out) {
    out->status = r.status;
    const int n = std::min<int>(static_cast<int>(r.bits.size()), QBCODE_MAX_BITS);
    if (r.status == 0)
        for (int i = 0; i < n; ++i) out->bits[i] = r.bits[i];
    std::copy(r.box.begin(), r.box.end(), out->box);
    out->orientation = r.orientation;
    out->angle = r.angle;
    out->spacing = r.spacing;
    out->centre = qbcode_point{r.centre.x, r.centre.y};
    for (int j = 0; j < 6; ++j) out->corners[j] = qbcode_point{r.corners[j].x, r.corners[j].y};
    out->margin = r.margin;
    const int m = std::min<int>(static_cast<int>(r.confidence.size()), QBCODE_MAX_BITS);
    for (int i = 0; i < m; ++i) out->confidence[i] = r.confidence[i];
    out->decision_margin = r.decisionMargin;
    out->checks.verified = r.checks.verified ? 1 : 0;
    out->checks.blank_fill = r.checks.blankFill;
    out->checks.outside = r.checks.outside;
    out->checks.markers_matched = r.checks.markersMatched;
    out->checks.dots_matched = r.checks.dotsMatched;
    out->checks.dots_missing = r.checks.dotsMissing;
    out->checks.dots_unexplained = r.checks.dotsUnexplained;
    out->checks.residual = r.checks.residual;
    out->checks.correlation = r.evidence.correlation;
    out->checks.marker_ratio = r.evidence.markerRatio;
    const qbcode::Timings& t = r.timings;
    out->timings = qbcode_timings{t.preprocess, t.region, t.angle,  t.spacing,
                                  t.centre,     t.decode, t.verify, t.total};
}

}  // namespace

extern "C" int qbcode_read(const unsigned char* image, int rows, int cols, int stride,
                           const char* param_path, qbcode_result* result) {
    if (result == nullptr) return QBCODE_NO_RESULT;
    std::memset(result, 0, sizeof(*result));
    result->orientation = -1;
    try {
        // Unlike the original call, no path means the installed search, not only ./.
        const qbcode::ReaderOptions options = param_path == nullptr || *param_path == '\0'
                                                  ? qbcode::ReaderOptions::fromDefaultSearch()
                                                  : qbcode::ReaderOptions::fromFile(param_path);
        result->bit_count = get_dots_num(options.params().layer);
        if (result->bit_count > QBCODE_MAX_BITS) {
            result->status = QBCODE_BITS_LENGTH;
            return result->status;
        }
        const qbcode::Result r = qbcode::read(
            qbcode::ImageView(image, rows, cols, stride < 0 ? 1 : static_cast<size_t>(stride)),
            options);
        fillResult(r, result);
        const std::string& key = options.params().badKey;
        std::strncpy(result->message, key.c_str(), sizeof(result->message) - 1);
    } catch (...) {
        result->status = QBCODE_INTERNAL_ERROR;
    }
    return result->status;
}

extern "C" int qbcode_read_all(const unsigned char* image, int rows, int cols, int stride,
                               const char* param_path, qbcode_result* results, int capacity) {
    if (capacity <= 0) return 0;
    if (results == nullptr) return QBCODE_NO_RESULT;
    try {
        const qbcode::ReaderOptions options = param_path == nullptr || *param_path == '\0'
                                                  ? qbcode::ReaderOptions::fromDefaultSearch()
                                                  : qbcode::ReaderOptions::fromFile(param_path);
        if (get_dots_num(options.params().layer) > QBCODE_MAX_BITS) return QBCODE_BITS_LENGTH;
        const std::vector<qbcode::Result> found = qbcode::readAll(
            qbcode::ImageView(image, rows, cols, stride < 0 ? 1 : static_cast<size_t>(stride)),
            options, capacity);
        for (size_t k = 0; k < found.size(); ++k) {
            std::memset(&results[k], 0, sizeof(qbcode_result));
            results[k].bit_count = get_dots_num(options.params().layer);
            fillResult(found[k], &results[k]);
        }
        return static_cast<int>(found.size());
    } catch (...) {
        return QBCODE_INTERNAL_ERROR;
    }
}

struct qbcode_reader {
    static constexpr unsigned kAlive = 0x71b3c0deu;
    unsigned magic = kAlive;
    qbcode::Reader reader;
    explicit qbcode_reader(const qbcode::ReaderOptions& options) : reader(options) {}
};

namespace {

qbcode_reader* newReader(const std::function<qbcode::ReaderOptions()>& load) {
    try {
        return new qbcode_reader(load());
    } catch (...) {
        return nullptr;
    }
}

// A handle this library made and has not freed; a freed one is caught while its memory still
// holds the cleared mark.
bool alive(const qbcode_reader* reader) {
    return reader != nullptr && reader->magic == qbcode_reader::kAlive;
}

qbcode::ImageView viewOf(const unsigned char* image, int rows, int cols, int stride) {
    // A negative stride is shorter than any row: the read refuses it as an empty image.
    return qbcode::ImageView(image, rows, cols, stride < 0 ? 1 : static_cast<size_t>(stride));
}

}  // namespace

extern "C" qbcode_reader* qbcode_reader_new(const char* param_path) {
    return newReader([param_path] {
        return param_path == nullptr || *param_path == '\0'
                   ? qbcode::ReaderOptions::fromDefaultSearch()
                   : qbcode::ReaderOptions::fromFile(param_path);
    });
}

extern "C" qbcode_reader* qbcode_reader_new_from_yaml(const char* yaml_text) {
    if (yaml_text == nullptr) return nullptr;
    return newReader([yaml_text] { return qbcode::ReaderOptions::fromYaml(yaml_text); });
}

extern "C" int qbcode_reader_status(const qbcode_reader* reader) {
    if (!alive(reader)) return QBCODE_BAD_HANDLE;
    const int layers = reader->reader.options().layers();
    if (get_dots_num(layers) > QBCODE_MAX_BITS) return QBCODE_BITS_LENGTH;
    return reader->reader.status();
}

extern "C" int qbcode_reader_read(qbcode_reader* reader, const unsigned char* image, int rows,
                                  int cols, int stride, qbcode_result* result) {
    if (result == nullptr) return QBCODE_NO_RESULT;
    std::memset(result, 0, sizeof(*result));
    result->orientation = -1;
    const int ready = qbcode_reader_status(reader);
    if (ready == QBCODE_BAD_HANDLE || ready == QBCODE_BITS_LENGTH) return result->status = ready;
    try {
        result->bit_count = reader->reader.options().bitCount();
        fillResult(reader->reader.read(viewOf(image, rows, cols, stride)), result);
        const std::string& key = reader->reader.options().params().badKey;
        std::strncpy(result->message, key.c_str(), sizeof(result->message) - 1);
    } catch (...) {
        result->status = QBCODE_INTERNAL_ERROR;
    }
    return result->status;
}

extern "C" int qbcode_reader_read_all(qbcode_reader* reader, const unsigned char* image, int rows,
                                      int cols, int stride, qbcode_result* results, int capacity) {
    // A reader that cannot read says why, whatever it was asked.
    const int ready = qbcode_reader_status(reader);
    if (ready < 0) return ready;
    if (capacity <= 0) return 0;
    if (results == nullptr) return QBCODE_NO_RESULT;
    try {
        const std::vector<qbcode::Result> found =
            reader->reader.readAll(viewOf(image, rows, cols, stride), capacity);
        for (size_t k = 0; k < found.size(); ++k) {
            std::memset(&results[k], 0, sizeof(qbcode_result));
            results[k].bit_count = reader->reader.options().bitCount();
            fillResult(found[k], &results[k]);
        }
        return static_cast<int>(found.size());
    } catch (...) {
        return QBCODE_INTERNAL_ERROR;
    }
}

extern "C" void qbcode_reader_free(qbcode_reader* reader) {
    if (!alive(reader)) return;
    reader->magic = 0;
    delete reader;
}
