#include "Reader.h"

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
    Result one = read(image, options);
    if (one.valid()) found.push_back(std::move(one));
    return found;
}

}  // namespace qbcode
