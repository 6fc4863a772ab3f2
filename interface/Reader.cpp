#include "Reader.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "AlgPipeline.h"
#include "CodeFormat.h"
#include "SystemPara.h"
#include "qbcode_default_params.h"

namespace qbcode {

namespace {

const char kDefaultPath[] = "./algorithm_parameters_v01.yml";

}  // namespace

ReaderOptions::ReaderOptions() : para_(std::make_unique<SystemPara>()) {
    para_->paramText = kShippedParamsYaml;
    para_->loadAll();
}

ReaderOptions::ReaderOptions(Blank) : para_(std::make_unique<SystemPara>()) {}

ReaderOptions::ReaderOptions(const ReaderOptions& other)
    : para_(std::make_unique<SystemPara>(*other.para_)) {}

ReaderOptions& ReaderOptions::operator=(const ReaderOptions& other) {
    if (this != &other) para_ = std::make_unique<SystemPara>(*other.para_);
    return *this;
}

ReaderOptions::ReaderOptions(ReaderOptions&&) noexcept = default;
ReaderOptions& ReaderOptions::operator=(ReaderOptions&&) noexcept = default;
ReaderOptions::~ReaderOptions() = default;

ReaderOptions ReaderOptions::fromFile(const std::string& path) {
    ReaderOptions options{Blank()};
    options.para_->paramPath = path.empty() ? std::string(kDefaultPath) : path;
    options.para_->loadAll();
    return options;
}

ReaderOptions ReaderOptions::fromYaml(const std::string& text) {
    ReaderOptions options{Blank()};
    options.para_->paramText = text;
    options.para_->loadAll();
    return options;
}

SystemPara& ReaderOptions::params() {
    return *para_;
}

const SystemPara& ReaderOptions::params() const {
    return *para_;
}

int ReaderOptions::layers() const {
    return para_->layer;
}

int ReaderOptions::bitCount() const {
    return positionsFor(para_->layer);
}

namespace detail {

cv::Mat wrap(const ImageView& image) {
    const size_t stride = image.stride == 0 ? static_cast<size_t>(image.cols) : image.stride;
    if (image.data == nullptr || image.rows <= 0 || image.cols <= 0 ||
        stride < static_cast<size_t>(image.cols))
        return cv::Mat();
    return cv::Mat(image.rows, image.cols, CV_8UC1, const_cast<uint8_t*>(image.data), stride);
}

void readWith(AlgPipeline& pipeline, const cv::Mat& image, const ReaderOptions& options,
              Result& out, bool keepUpright) {
    pipeline.Run(image, "result.bmp", keepUpright);
    out = pipeline.result;
    // The box is scaled by the ratio of the read that found the region.
    AlgPipeline::toInputBox(pipeline.region,
                            pipeline.para ? pipeline.dnRatio : options.params().DnRatio,
                            out.box.data());
}

}  // namespace detail

Result read(const ImageView& image, const ReaderOptions& options) {
    Result out;
    try {
        AlgPipeline pipeline(options.params());
        detail::readWith(pipeline, detail::wrap(image), options, out);
    } catch (...) {
        out = Result();
        out.status = QBCODE_INTERNAL_ERROR;
    }
    return out;
}

std::vector<Result> readAll(const ImageView& image, const ReaderOptions& options, int maxCodes) {
    std::vector<Result> found;
    if (maxCodes < 0) return found;
    try {
        const cv::Mat view = detail::wrap(image);
        // One read per cluster of dots, largest first; a cluster that repeats a code already
        // read (its centre within two spacings) adds nothing.
        for (int rank = 0, clusters = 1; rank < clusters; ++rank) {
            if (maxCodes > 0 && static_cast<int>(found.size()) >= maxCodes) break;
            AlgPipeline pipeline(options.params());
            pipeline.clusterRank = rank;
            Result r;
            detail::readWith(pipeline, view, options, r);
            clusters = std::min(r.evidence.clusters, 64);
            if (!r.valid()) continue;
            bool repeated = false;
            for (const Result& f : found)
                repeated = repeated || std::hypot(f.centre.x - r.centre.x,
                                                  f.centre.y - r.centre.y) < 2.0 * f.spacing;
            if (!repeated) found.push_back(std::move(r));
        }
    } catch (...) {
        found.clear();
    }
    return found;
}

}  // namespace qbcode
