#include "Reader.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <mutex>
#include <utility>

#include "AlgPipeline.h"
#include "Detector.h"
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

Decision readFirst(const ReaderOptions& options, const cv::Mat& image, const std::string& imgName,
                   bool keepUpright) {
    AlgPipeline engine(options.params());
    const int init = engine.Initialize();
    if (init < 0) {
        Decision d;
        d.result.status = init;
        d.ratio = engine.para ? engine.para->DnRatio : options.params().DnRatio;
        return d;
    }
    ReadRequest request;
    request.keepUpright = keepUpright;
    request.imgName = imgName;
    request.start0 = clock();
    return detect(engine, ReadPlan::from(*engine.para), image, request).first();
}

Result hostResult(const Decision& d) {
    Result out = d.result;
    AlgPipeline::toInputBox(d.region, d.ratio, out.box.data());
    return out;
}

}  // namespace detail

struct Reader::Impl {
    explicit Impl(const ReaderOptions& o) : options(o), engine(options.params()) {
        init = engine.Initialize();
        if (init == 0) plan = ReadPlan::from(*engine.para);
    }
    // What a read returns when it cannot run: the configuration's status, or an internal error.
    Result failed(int status) const {
        Result out;
        out.status = status;
        const double ratio = engine.para ? engine.para->DnRatio : options.params().DnRatio;
        AlgPipeline::toInputBox(cv::Rect(), ratio, out.box.data());
        return out;
    }
    Detection run(const ImageView& image, int maxCodes, bool every) {
        ReadRequest request;
        request.maxCodes = maxCodes;
        request.every = every;
        request.start0 = clock();
        return detect(engine, plan, detail::wrap(image), request);
    }

    ReaderOptions options;
    AlgPipeline engine;
    ReadPlan plan;
    int init = 0;
    std::mutex busy;  // the engine's buffers serve one read at a time
};

Reader::Reader(const ReaderOptions& options) : impl_(std::make_unique<Impl>(options)) {}
Reader::~Reader() = default;
Reader::Reader(Reader&&) noexcept = default;
Reader& Reader::operator=(Reader&&) noexcept = default;

int Reader::status() const {
    return impl_->init;
}

const ReaderOptions& Reader::options() const {
    return impl_->options;
}

Result Reader::read(const ImageView& image) {
    const auto t0 = std::chrono::steady_clock::now();
    Result out;
    try {
        const std::lock_guard<std::mutex> lock(impl_->busy);
        if (impl_->init < 0) return impl_->failed(impl_->init);
        out = detail::hostResult(impl_->run(image, 1, false).first());
    } catch (...) {
        out = impl_->failed(QBCODE_INTERNAL_ERROR);
    }
    out.timings.total =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    return out;
}

std::vector<Result> Reader::readAll(const ImageView& image, int maxCodes) {
    std::vector<Result> found;
    if (maxCodes < 0) return found;
    try {
        const std::lock_guard<std::mutex> lock(impl_->busy);
        if (impl_->init < 0) return found;
        const Detection d = impl_->run(image, maxCodes, true);
        for (const Decision& code : d.codes) found.push_back(detail::hostResult(code));
    } catch (...) {
        found.clear();
    }
    return found;
}

Result read(const ImageView& image, const ReaderOptions& options) {
    try {
        return Reader(options).read(image);
    } catch (...) {
        Result out;
        out.status = QBCODE_INTERNAL_ERROR;
        return out;
    }
}

std::vector<Result> readAll(const ImageView& image, const ReaderOptions& options, int maxCodes) {
    try {
        return Reader(options).readAll(image, maxCodes);
    } catch (...) {
        return {};
    }
}

}  // namespace qbcode
