#include "AlgPipeline.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

#include <opencv2/core.hpp>

#include "DebugSink.h"
#include "Detector.h"
#include "ImageProcessPipeline.h"
#include "ImageRotation.h"
#include "NoiseRemover.h"
#include "ParamFile.h"
#include "Stages.h"
#include "WriteData.h"
#include "qbcode_hexagon_recognition.h"
#include "startPoint_cal.h"

namespace {

int truncToInt(float v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483648.0f) return std::numeric_limits<int>::max();
    if (v <= -2147483648.0f) return std::numeric_limits<int>::min();
    return static_cast<int>(v);
}

using Clock = std::chrono::steady_clock;

// The size rule chooses ratios in this range: below it a code of any size is a few pixels wide.
const double kLowestRatio = 0.2;

double msSince(Clock::time_point t) {
    return std::chrono::duration<double, std::milli>(Clock::now() - t).count();
}

qbcode::Point toPoint(const cv::Point2d& p) {
    return qbcode::Point{p.x, p.y};
}

}  // namespace

AlgPipeline::AlgPipeline(std::string path) : paramPath(std::move(path)) {}

AlgPipeline::AlgPipeline(const SystemPara& loaded)
    : paramPath(loaded.paramPath), record(std::make_unique<SystemPara>(loaded)) {}

AlgPipeline::~AlgPipeline() = default;

int AlgPipeline::Initialize() {
    if (record) {
        para = std::make_unique<SystemPara>(*record);
    } else {
        if (paramPath.empty())
            paramPath = "../../SystemParameter/Config/algorithm_parameters_v01.yml";
        // Read once; the stages then take their sections from the record.
        para = std::make_unique<SystemPara>(paramPath);
        para->loadAll();
    }
    const int r = para->readPara("AlgPipeline");
    if (r < 0) return qbcode::paramfile::configStatus(r, -600);
    // Each ring adds six positions to every grid the tracker samples.
    if (para->layer > qbcode::limits::kMaxLayer) return QBCODE_LAYER_TOO_LARGE;
    debug = para->debug;
    isShowImg = para->isShowImg;
    isWriteImg = para->isWriteImg;
    opencv10Imgproc = para->opencv10Imgproc;
    opencv10Rot = para->opencv10Rot;
    savePath = para->savePath;
    imwriteOverlay = para->imwriteOverlay;
    ctpointFlag = para->ctpointFlag;
    doQualityCheck = para->doQualityCheck;
    isWriteData = para->isWriteData;
    isOnlineReg = para->isOnlineReg;
    dc = para->dc;
    layer = para->layer;
    dotsNum = get_dots_num(layer);
    return 0;
}

void AlgPipeline::toInputBox(const cv::Rect& rect, double dnRatio, int* box) {
    const float scale = static_cast<float>(dnRatio);
    box[0] = truncToInt(static_cast<float>(rect.x + 22) / scale);
    box[1] = truncToInt(static_cast<float>(rect.y + 22) / scale);
    box[2] = truncToInt(static_cast<float>(rect.width - 44) / scale);
    box[3] = truncToInt(static_cast<float>(rect.height - 44) / scale);
}

void AlgPipeline::assign_coordinates(std::vector<cv::Point2f>& points, float* out, int count) {
    if (out == nullptr) return;
    const int n = std::min<int>(count / 2, static_cast<int>(points.size()));
    for (int i = 0; i < n; ++i) {
        out[2 * i] = points[i].x;
        out[2 * i + 1] = points[i].y;
    }
}

int AlgPipeline::assign_patArr(cv::Mat& patArr, int* bits, int count) {
    if (count <= 0) return 0;
    if (bits == nullptr || patArr.empty() || patArr.total() < static_cast<size_t>(count))
        return -502;
    cv::Mat values;
    patArr.reshape(1, 1).convertTo(values, CV_64F);
    for (int i = 0; i < count; ++i) bits[i] = static_cast<int>(values.at<double>(0, i));
    return 0;
}

int AlgPipeline::Pipeline(unsigned char* image, int rows, int cols, int* bits, int count,
                          std::string imgName, cv::Rect& roi) {
    const clock_t start0 = clock();
    // A missing buffer or a non-positive size is an empty image to the pre-processing.
    cv::Mat input;
    if (image != nullptr && rows > 0 && cols > 0)
        input = cv::Mat(rows, cols, CV_8UC1, image, static_cast<size_t>(cols));
    const int init = Initialize();
    if (init < 0) return init;
    const ReadPlan plan = ReadPlan::from(*para);
    const Detection found =
        detect(*this, plan, input, ReadRequest{1, false, false, imgName, bits, count, start0});
    const Decision& d = found.first();
    if (d.regionFound) roi = d.region;
    return d.status();
}

FrameView AlgPipeline::prepare(const cv::Mat& image, bool dark, double ratio,
                               const std::string& imgName, clock_t start0) {
    FrameView view;
    view.dark = dark;
    view.ratio = ratio;
    const Clock::time_point t = Clock::now();
    // Into a buffer of its own: the caller's image is read-only and may be shared by threads.
    cv::Mat input;
    if (dark && !image.empty())
        cv::bitwise_not(image, input);
    else
        input = image;
    para->DnRatio = ratio;
    DebugSink sink(*para, imgName, writer);
    preprocess = std::make_unique<ImageProcessPipeline>(para.get());
    preprocess->imgName = imgName;
    view.pre = stages::preprocess(*preprocess, input);
    view.status = view.pre.status;
    if (view.status < 0) {
        sink.preprocessFailed(view.status);
        view.preprocessMs = msSince(t);
        return view;
    }
    sink.preprocessed(view.pre.input, view.pre.processed, view.pre.binary, start0);
    view.frames.crop(view.pre.preCrop);
    view.downsampled = view.frames.resize(view.pre.input.size(), view.pre.processed.size());
    view.preprocessMs = msSince(t);
    view.clusters = stages::cluster(view.pre, dc);
    return view;
}

// One candidate: angle, upright turn, spacing, centre (with at most one re-calibration by 30
// degrees), decoding, verification and refinement.
Decision AlgPipeline::decide(const FrameView& view, stages::Region reg, const std::string& imgName,
                             bool keepUpright, int* bits, int count, clock_t start0) {
    (void)start0;
    Decision out;
    out.ratio = view.ratio;
    qbcode::Result& result = out.result;
    UprightView& upright = out.upright;
    qbcode::Timings& took = result.timings;
    qbcode::Evidence& evidence = result.evidence;
    took.preprocess = view.preprocessMs;
    auto fail = [&out](int status) -> Decision& {
        out.result.status = status;
        return out;
    };
    const stages::Preprocessed& pre = view.pre;
    FrameChain frames = view.frames;
    const int downsampledFrame = view.downsampled;
    DebugSink sink(*para, imgName, writer);

    // 2. Region of interest (cut by the caller from the view's clusters).
    Clock::time_point t = Clock::now();
    const clock_t start1 = clock();
    const bool padCrop = para->readPara("Camera") >= 0 && para->cam_padCrop;
    const cv::Point pad = padCrop && reg.status == 0 ? stages::padForTurn(reg) : cv::Point();
    roiCoords = std::move(reg.coords);
    roiRho = std::move(reg.rho);
    roiDelta = std::move(reg.delta);
    roiNearest = std::move(reg.nearest);
    roiLabel = std::move(reg.labels);
    evidence.clusters = reg.clusters;
    evidence.regionDots = reg.dots;
    if (reg.threw) sink.regionFailed();
    if (reg.status < 0) return fail(reg.status);
    const cv::Rect& region = reg.rect;
    out.region = region;
    out.regionFound = true;
    if (keepUpright) {
        // The input as the stages saw it (after any crop), at the processed size.
        cv::Mat reduced;
        NoiseRemover reducer;
        reducer.setDnsample_size(cv::Point(pre.processed.cols, pre.processed.rows));
        cv::Mat source = pre.input;
        reducer.ImgDnSample(source, reduced);
        if (reduced.size() == pre.processed.size()) upright.input = reduced(region).clone();
    }
    sink.regionCropped(reg.binary, start1);
    took.region = msSince(t);
    const int regionFrame = frames.crop(cv::Point2d(region.x, region.y));
    if (pad != cv::Point()) {
        // The upright turn keeps the crop's size and cuts the dots of a code that sits
        // off-centre in it.
        for (cv::Mat* m : {&reg.grey, &reg.binary, &upright.input})
            if (!m->empty())
                cv::copyMakeBorder(*m, *m, pad.y, pad.y, pad.x, pad.x, cv::BORDER_CONSTANT,
                                   cv::Scalar(0));
        frames.crop(cv::Point2d(-pad.x, -pad.y));
    }

    // 3. Rotation angle, then both crops upright.
    t = Clock::now();
    const clock_t start2 = clock();
    stages::Angle found = stages::angle(reg, opencv10Rot != 0, isOnlineReg == 1, para.get());
    if (opencv10Rot) sink.legacyAngleTables(found.scores, found.peaks);
    if (found.status < 0) return fail(found.status);
    int angle = found.degrees;
    evidence.angleScore = found.score;
    const clock_t start2b = clock();
    rotation = std::make_unique<ImageRotation>();
    cv::Mat procRot, binRot;
    rotation->rotate(reg.grey, procRot, static_cast<float>(angle));
    rotation->rotate(reg.binary, binRot, static_cast<float>(angle));
    if (!upright.input.empty())
        rotation->rotate(upright.input, upright.input, static_cast<float>(angle));
    int uprightFrame = frames.turn(procRot.size(), angle);
    sink.uprightTurned(procRot, binRot, angle, start2, start2b);
    took.angle = msSince(t);

    // 4. Dot spacing; a non-positive spacing never reaches the template search.
    t = Clock::now();
    const stages::Spacing spacing = stages::spacing(found);
    sink.spacingMeasured(angle, spacing.gap);
    took.spacing = msSince(t);
    if (spacing.status < 0) return fail(spacing.status);

    // 5. Centre of the code, with at most one re-calibration by 30 degrees.
    t = Clock::now();
    const clock_t start25 = clock();
    startPoint = std::make_unique<startPoint_cal>(para.get());
    float gap = spacing.gap;
    stages::Centre centre;
    // A weak centre is still a start for the grid fit, which verification then judges.
    const bool refining = para->readPara("Camera") >= 0 && para->cam_refineGrid != 0 &&
                          para->readPara("Verification") >= 0 && para->verify_enabled != 0;
    int weak = 0;  // -314 when the read goes on from a weak centre
    for (int attempt = 0;; ++attempt) {
        centre = stages::centre(*startPoint, gap, binRot);
        gap = centre.gap;
        evidence.correlation = centre.correlation;
        if (centre.status == -321 && padCrop && attempt == 0) {
            // A crop cut close around a sparse outer ring is smaller than the template: it is
            // padded to hold the template once, and searched again.
            const int side = static_cast<int>(2 * ((layer + 0.5) * (gap + 1.0) + 0.5) + 3);
            const int px = std::max(0, (side - binRot.cols + 1) / 2);
            const int py = std::max(0, (side - binRot.rows + 1) / 2);
            if (px + py > 0 && side < 4 * std::max(binRot.rows, binRot.cols)) {
                for (cv::Mat* m : {&procRot, &binRot, &upright.input})
                    if (!m->empty())
                        cv::copyMakeBorder(*m, *m, py, py, px, px, cv::BORDER_CONSTANT,
                                           cv::Scalar(0));
                uprightFrame = frames.crop(cv::Point2d(-px, -py));
                ++attempt;
                centre = stages::centre(*startPoint, gap, binRot);
                gap = centre.gap;
                evidence.correlation = centre.correlation;
            }
        }
        if (centre.status == -314 && refining && centre.weak != cv::Point(0, 0)) {
            weak = centre.status;
            centre.status = 0;
            centre.point = centre.weak;
        }
        if (centre.status < 0) return fail(centre.status);
        if (centre.point != cv::Point(0, 0) || ctpointFlag != 1 || attempt > 0) break;
        rotation->rotate(procRot, procRot, 30.0f);
        rotation->rotate(binRot, binRot, 30.0f);
        if (!upright.input.empty()) rotation->rotate(upright.input, upright.input, 30.0f);
        uprightFrame = frames.turn(procRot.size(), 30.0);
        angle += 30;
        evidence.recalibrated = true;
        sink.recalibrated(angle);
    }
    if (centre.point == cv::Point(0, 0)) return fail(-322);
    sink.centreFound(gap, centre.point, procRot, start25);
    took.centre = msSince(t);

    // 6. Tracking and decoding.
    t = Clock::now();
    const clock_t start3 = clock();
    if (keepUpright) upright.grey = procRot.clone();  // the tracker binarises procRot
    stages::Decoded decoded = stages::decode(procRot, binRot, gap, centre.point, layer,
                                             doQualityCheck != 0, para.get(), imgName);
    if (decoded.status < 0 && !refining) return fail(decoded.status);
    took.decode = msSince(t);

    // 7. Verification: the grid must sit on the printed dots. A grid that does not is fitted
    // to the detected dots and read once more, through the same checks.
    t = Clock::now();
    stages::Verified verified;
    if (decoded.status == 0)
        verified = stages::verify(decoded, pre, frames, downsampledFrame, regionFrame, uprightFrame,
                                  region.size(), gap, para.get());
    // A failure reports what the read without refinement would have said.
    int failure = weak < 0 ? weak : decoded.status < 0 ? decoded.status : verified.status;
    if (weak < 0 && decoded.status == 0 && verified.status == 0) failure = 0;
    if (failure < 0 && refining) {
        stages::Decoded fitted = stages::refine(
            procRot, stages::centroidsIn(pre, frames, downsampledFrame, uprightFrame), gap,
            centre.point, layer, para.get());
        if (fitted.status == 0) {
            const stages::Verified again =
                stages::verify(fitted, pre, frames, downsampledFrame, regionFrame, uprightFrame,
                               region.size(), gap, para.get());
            if (again.status == 0 || decoded.status < 0) {
                decoded = std::move(fitted);
                verified = again;
                evidence.refined = true;
                if (again.status == 0) failure = 0;
            }
        }
    }
    took.verify = msSince(t);
    if (decoded.status < 0) return fail(failure);
    evidence.markerRatio = decoded.markerRatio;
    evidence.fill = decoded.fill;
    evidence.fillThreshold = decoded.fillThreshold;
    evidence.boxSide = decoded.boxSide;
    const Grid_verification::Checks& checks = verified.checks;
    result.margin = checks.margin;
    result.checks.blankFill = checks.blankFill;
    result.checks.outside = checks.outside;
    result.checks.markersMatched = checks.markersMatched;
    result.checks.dotsMatched = checks.dotsMatched;
    result.checks.dotsMissing = checks.dotsMissing;
    result.checks.dotsUnexplained = checks.dotsUnexplained;
    result.checks.residual = checks.residual;
    if (failure < 0) return fail(failure);
    result.checks.verified = verified.enabled;
    if (bits != nullptr) {
        const int r = assign_patArr(decoded.bits, bits, count);
        if (r < 0) return fail(r);
    }
    sink.decoded(decoded.bits, start3);

    // The result in input pixels.
    result.bits.assign(static_cast<size_t>(decoded.bits.cols), 0);
    assign_patArr(decoded.bits, result.bits.data(), decoded.bits.cols);
    result.orientation = decoded.orientation;
    // Where the dots were fitted, the geometry follows them to a fraction of a pixel; else it
    // is the grid's, whose centre is a whole pixel of the upright frame.
    const cv::Matx23d fit = checks.fitted ? checks.fit : cv::Matx23d(1, 0, 0, 0, 1, 0);
    auto fitted = [&](const cv::Point2d& p) {
        return cv::Point2d(fit(0, 0) * p.x + fit(0, 1) * p.y + fit(0, 2),
                           fit(1, 0) * p.x + fit(1, 1) * p.y + fit(1, 2));
    };
    auto onDots = [&](const cv::Point2d& p) {
        return toPoint(frames.toInput(fitted(p), uprightFrame));
    };
    // Angle and spacing from the ideal grid to where the positions ended up (the same as the
    // fit unless the grid was refined).
    cv::Matx23d whole = fit;
    if (evidence.refined) {
        std::vector<cv::Point2d> ended;
        for (const cv::Point2d& p : decoded.points) ended.push_back(fitted(p));
        if (!Grid_verification::fitAffine(decoded.ideal, ended, whole)) whole = fit;
    }
    const double fitScale =
        std::sqrt(std::fabs(whole(0, 0) * whole(1, 1) - whole(0, 1) * whole(1, 0)));
    const double fitTurn = std::atan2(whole(1, 0) - whole(0, 1), whole(0, 0) + whole(1, 1));
    result.angle = angle + fitTurn * 180.0 / CV_PI;
    result.spacing = gap * fitScale * frames.scaleToInput(uprightFrame);
    const int n = static_cast<int>(decoded.points.size());
    if (n > 0) result.centre = onDots(decoded.points[0]);
    const int ringStart = 1 + 3 * layer * (layer - 1);
    for (int j = 0; j < 6 && layer > 0; ++j) {
        const int i = ringStart + j * layer;
        if (i < n) result.corners[j] = onDots(decoded.points[i]);
    }
    upright.binary = binRot;
    upright.boxes = decoded.boxes;
    upright.bits = decoded.bits;
    upright.gap = gap;

    // 8. Result overlays.
    sink.overlay(procRot, binRot, decoded.boxes, decoded.bits);
    result.status = 0;
    return out;
}

void AlgPipeline::putonOverlay(cv::Mat& overlay, cv::Mat& overlayBin, const cv::Mat& boxes,
                               const cv::Mat& values, double /*scale*/) {
    DebugSink::drawOverlay(overlay, overlayBin, boxes, values);
}
