#include "AlgPipeline.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include <opencv2/core.hpp>

#include "DebugSink.h"
#include "GridMatch.h"
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

// One moment on both clocks: the debug lines print raw clock() ticks, the result wall time.
struct Stamp {
    clock_t ticks = clock();
    Clock::time_point wall = Clock::now();
    double ms() const {
        return std::chrono::duration<double, std::milli>(Clock::now() - wall).count();
    }
};

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
    // A section of our own that is there but of the wrong type would silently switch off what it
    // guards (verification among them): the file is refused instead.
    for (const char* section : {"Verification", "Camera", "Detection"})
        if (para->readPara(section) == QBCODE_PARAM_TYPE) return QBCODE_PARAM_TYPE;
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
                               const std::string& imgName, clock_t start0, bool fastClusters,
                               cv::Rect crop) {
    FrameView view;
    view.dark = dark;
    view.ratio = ratio;
    const Stamp t;
    crop &= cv::Rect(0, 0, image.cols, image.rows);
    const cv::Mat part = crop.empty() ? image : image(crop);
    view.crop = crop.tl();
    // Into a buffer of its own: the caller's image is read-only and may be shared by threads.
    cv::Mat input;
    if (dark && !part.empty()) {
        // The inverted frame too is kept, unless a view still holds it.
        if (invertedFrame.u != nullptr && invertedFrame.u->refcount > 1) invertedFrame.release();
        cv::bitwise_not(part, invertedFrame);
        input = invertedFrame;
    } else {
        input = part;
    }
    DebugSink sink(*para, imgName, writer);
    preprocess = std::make_unique<ImageProcessPipeline>(para.get());
    preprocess->imgName = imgName;
    preprocess->buffers = &prepBuffers;
    prepBuffers.keep = frames >= 2;
    view.pre = stages::preprocess(*preprocess, input, ratio);
    if (!prepBuffers.keep) {
        prepBuffers.release();
        invertedFrame.release();
    }
    view.status = view.pre.status;
    if (view.status < 0) {
        sink.preprocessFailed(view.status);
        view.preprocessMs = t.ms();
        return view;
    }
    sink.preprocessed(view.pre.input, view.pre.processed, view.pre.binary, start0);
    view.frames.crop(view.pre.preCrop + cv::Point2d(view.crop));
    if (!crop.empty())
        view.pre.whole = cv::Rect2d(-crop.x * ratio, -crop.y * ratio,
                                    std::trunc(image.cols * ratio), std::trunc(image.rows * ratio));
    view.downsampled = view.frames.resize(view.pre.input.size(), view.pre.processed.size());
    view.preprocessMs = t.ms();
    view.clusters = stages::cluster(view.pre, dc, fastClusters);
    return view;
}

// The working state of one candidate on its way from its region to the bits.
struct AlgPipeline::Work {
    Work(const FrameView& v, stages::Region&& r) : view(v), frames(v.frames), reg(std::move(r)) {}
    const FrameView& view;
    FrameChain frames;
    stages::Region reg;
    int regionFrame = 0, uprightFrame = 0;
    cv::Mat procRot, binRot;
    int angle = 0;
    float gap = 0.f;
    cv::Point centre;
    int weak = 0;           // -314 when the read goes on from a weak centre
    bool fitOnly = false;   // the bits only at the grid fitted to the dots near `centre`
    bool fitTried = false;  // the fast path found no orientation fitting the dots
    bool keepUpright = false;

    // A copy whose images are its own: the centre search turns them in place and the tracker
    // binarises procRot.
    static std::pair<Work, Decision> detached(const Work& w, const Decision& d) {
        std::pair<Work, Decision> out(w, d);
        out.first.procRot = w.procRot.clone();
        out.first.binRot = w.binRot.clone();
        out.second.upright.input = d.upright.input.clone();
        return out;
    }
};

// One candidate: region, angle and upright turn, spacing, centre, decoding, verification and
// refinement. Each step returns 0 or the status that refuses the candidate.
Decision AlgPipeline::decide(const FrameView& view, stages::Region reg, const ReadPlan& plan,
                             const std::string& imgName, bool keepUpright, int* bits, int count) {
    Decision out;
    out.ratio = view.ratio;
    out.result.timings.preprocess = view.preprocessMs;
    DebugSink sink(*para, imgName, writer);
    Work w(view, std::move(reg));
    w.keepUpright = keepUpright;
    int status = cutRegion(w, plan, keepUpright, sink, out);
    // A host that has every stage's images written gets them: no fast path then.
    if (status == 0 && plan.fastPath && plan.refining && w.reg.spacing > 0.0 && isWriteImg == 0) {
        const int fast = fastPath(w, plan, imgName, bits, count, sink, out);
        if (fast == 0) return out;
        // No orientation fits near the dots' middle: the read at the template's centre does not
        // fit the grid again (a lattice of random dots would pay for two fits).
        w.fitTried = fast == -500;
    }
    if (status == 0) status = turnUpright(w, sink, out);
    // The state after the turn, for the tries below; only candidates whose lattice was measured.
    const double lattice = w.reg.spacing;
    std::optional<std::pair<Work, Decision>> turned;
    if (status == 0 && lattice > 0.0) turned.emplace(Work::detached(w, out));
    if (status == 0) status = findCentre(w, plan, sink, out);
    if (status == 0) status = readBits(w, plan, imgName, bits, count, sink, out);
    auto take = [&](int again, Decision& d) {
        if (again != 0) return;
        out = std::move(d);
        status = 0;
    };
    // The rows' projections can lock onto a multiple of the spacing (a steep tilt, another
    // code's dots between the rows); the lattice of the dots says what it is. The upright frame
    // has the processed frame's scale.
    const bool offLattice = lattice > 0.0 && std::fabs(w.gap / lattice - 1.0) > 0.1;
    if (status < 0 && turned && offLattice) {
        auto [w2, d2] = Work::detached(turned->first, turned->second);
        w2.gap = static_cast<float>(lattice);
        int again = findCentre(w2, plan, sink, d2);
        if (again == 0) again = readBits(w2, plan, imgName, bits, count, sink, d2);
        take(again, d2);
    }
    // A steep view matches the upright template weakly: the grid is fitted to the dots from the
    // dots amid their outline instead, one after the other, and verification judges each read.
    if (status == -314 && turned && plan.refining && plan.centreFromDots > 0) {
        // Under a steep view the outline's middle can lie a step or two off the centre.
        const std::vector<cv::Point2f> dots = uprightDots(turned->first);
        for (const cv::Point2f& at : stages::centresOfDots(dots, lattice, plan.centreFromDots)) {
            if (status == 0) break;
            auto [w4, d4] = Work::detached(turned->first, turned->second);
            if (offLattice) w4.gap = static_cast<float>(lattice);
            w4.centre = cv::Point(cvRound(at.x), cvRound(at.y));
            w4.weak = -314;
            w4.fitTried = false;  // other centres than the fast path's
            take(readBits(w4, plan, imgName, bits, count, sink, d4), d4);
        }
    }
    out.result.status = status;
    return out;
}

int AlgPipeline::cutRegion(Work& w, const ReadPlan& plan, bool keepUpright, DebugSink& sink,
                           Decision& out) {
    const Stamp t;
    stages::Region& reg = w.reg;
    const cv::Point pad = plan.padCrop && reg.status == 0 ? stages::padForTurn(reg) : cv::Point();
    roiCoords = std::move(reg.coords);
    roiRho = std::move(reg.rho);
    roiDelta = std::move(reg.delta);
    roiNearest = std::move(reg.nearest);
    roiLabel = std::move(reg.labels);
    qbcode::Evidence& evidence = out.result.evidence;
    evidence.clusters = reg.clusters;
    evidence.regionDots = reg.dots;
    if (reg.threw) sink.regionFailed();
    if (reg.status < 0) return reg.status;
    // The host's box is the region's at the view's ratio, in the whole frame.
    const double ratio = w.view.ratio;
    out.region =
        reg.rect + cv::Point(cvRound(w.view.crop.x * ratio), cvRound(w.view.crop.y * ratio));
    out.regionFound = true;
    const stages::Preprocessed& pre = w.view.pre;
    UprightView& upright = out.upright;
    if (keepUpright) {
        // The input as the stages saw it (after any crop), at the processed size.
        cv::Mat reduced, source = pre.input;
        NoiseRemover reducer;
        reducer.setDnsample_size(cv::Point(pre.processed.cols, pre.processed.rows));
        reducer.ImgDnSample(source, reduced);
        if (reduced.size() == pre.processed.size()) upright.input = reduced(reg.rect).clone();
    }
    sink.regionCropped(reg.binary, t.ticks);
    out.result.timings.region = t.ms();
    w.regionFrame = w.frames.crop(cv::Point2d(reg.rect.x, reg.rect.y));
    if (pad != cv::Point()) {
        // The upright turn keeps the crop's size and cuts the dots of a code that sits
        // off-centre in it.
        for (cv::Mat* m : {&reg.grey, &reg.binary, &upright.input})
            if (!m->empty())
                cv::copyMakeBorder(*m, *m, pad.y, pad.y, pad.x, pad.x, cv::BORDER_CONSTANT,
                                   cv::Scalar(0));
        w.frames.crop(cv::Point2d(-pad.x, -pad.y));
    }
    return 0;
}

// The fast path starts from a dot amid the code's own dots: the centre lies a step or two away.
const int kFastReach = 2;

// The fast path: the crop turned by the cluster's own lattice rows, and the grid fitted to its
// dots from the dot nearest the middle of their outline; verification is the only judge. No
// angle search, no template: a refusal costs one fit, and the candidate goes the long way.
int AlgPipeline::fastPath(const Work& from, const ReadPlan& plan, const std::string& imgName,
                          int* bits, int count, DebugSink& sink, Decision& out) {
    // Only under a file the full chain can run: a broken centre section is reported as the
    // full chain reports it, whatever the frame.
    startPoint = std::make_unique<startPoint_cal>(para.get());
    const int configured = startPoint->configured(static_cast<float>(from.reg.spacing));
    if (configured < 0) return configured;
    if (!std::isfinite(from.reg.upright)) return -314;
    const Stamp t;
    Work w = from;  // the crops are only read
    Decision d = out;
    d.upright.input = out.upright.input.clone();
    // Any turn that stands the rows upright will do: the markers tell the orientation.
    const double rows = w.reg.upright - 60.0 * std::floor(w.reg.upright / 60.0);
    turn(w, static_cast<int>(std::lround(rows)) % 60, sink, d, clock());
    d.result.timings.angle = t.ms();
    w.gap = static_cast<float>(w.reg.spacing);
    const std::vector<cv::Point2f> middle = stages::centresOfDots(uprightDots(w), w.reg.spacing, 1);
    if (middle.empty()) return -314;
    w.centre = cv::Point(cvRound(middle[0].x), cvRound(middle[0].y));
    w.weak = -314;
    w.fitOnly = true;
    const int status = readBits(w, plan, imgName, bits, count, sink, d);
    if (status != 0) return status;
    out = std::move(d);
    out.result.evidence.fastPath = true;
    out.result.status = 0;
    return 0;
}

// The cluster's dots in the upright frame.
std::vector<cv::Point2f> AlgPipeline::uprightDots(const Work& w) const {
    std::vector<cv::Point2f> dots;
    for (size_t i = 0; i < roiLabel.size() && 2 * i + 1 < roiCoords.size(); ++i)
        if (w.reg.label == -1 || roiLabel[i] == w.reg.label)
            dots.emplace_back(w.frames.map(cv::Point2d(roiCoords[2 * i], roiCoords[2 * i + 1]),
                                           w.view.downsampled, w.uprightFrame));
    return dots;
}

void AlgPipeline::turn(Work& w, int degrees, DebugSink& sink, Decision& out, clock_t started) {
    w.angle = degrees;
    const clock_t turned = clock();
    rotation = std::make_unique<ImageRotation>();
    rotation->rotate(w.reg.grey, w.procRot, static_cast<float>(w.angle));
    rotation->rotate(w.reg.binary, w.binRot, static_cast<float>(w.angle));
    cv::Mat& input = out.upright.input;
    if (!input.empty()) rotation->rotate(input, input, static_cast<float>(w.angle));
    w.uprightFrame = w.frames.turn(w.procRot.size(), w.angle);
    sink.uprightTurned(w.procRot, w.binRot, w.angle, started, turned);
}

int AlgPipeline::turnUpright(Work& w, DebugSink& sink, Decision& out) {
    const Stamp t;
    stages::Angle found = stages::angle(w.reg, opencv10Rot != 0, isOnlineReg == 1, para.get());
    if (opencv10Rot) sink.legacyAngleTables(found.scores, found.peaks);
    if (found.status < 0) return found.status;
    out.result.evidence.angleScore = found.score;
    turn(w, found.degrees, sink, out, t.ticks);
    out.result.timings.angle = t.ms();

    // A non-positive spacing never reaches the template search.
    const Stamp s;
    const stages::Spacing spacing = stages::spacing(found);
    sink.spacingMeasured(w.angle, spacing.gap);
    out.result.timings.spacing = s.ms();
    w.gap = spacing.gap;
    return spacing.status;
}

// The centre by template correlation, with at most one re-calibration by a further 30 degrees.
int AlgPipeline::findCentre(Work& w, const ReadPlan& plan, DebugSink& sink, Decision& out) {
    const Stamp t;
    qbcode::Evidence& evidence = out.result.evidence;
    cv::Mat& input = out.upright.input;
    startPoint = std::make_unique<startPoint_cal>(para.get());
    stages::Centre centre;
    auto search = [&] {
        centre = stages::centre(*startPoint, w.gap, w.binRot);
        w.gap = centre.gap;
        evidence.correlation = centre.correlation;
    };
    for (int attempt = 0;; ++attempt) {
        search();
        if (centre.status == -321 && plan.padCrop && attempt == 0) {
            // A crop cut close around a sparse outer ring is smaller than the template: it is
            // padded to hold the template once, and searched again.
            const int side = static_cast<int>(2 * ((layer + 0.5) * (w.gap + 1.0) + 0.5) + 3);
            const int px = std::max(0, (side - w.binRot.cols + 1) / 2);
            const int py = std::max(0, (side - w.binRot.rows + 1) / 2);
            if (px + py > 0 && side < 4 * std::max(w.binRot.rows, w.binRot.cols)) {
                for (cv::Mat* m : {&w.procRot, &w.binRot, &input})
                    if (!m->empty())
                        cv::copyMakeBorder(*m, *m, py, py, px, px, cv::BORDER_CONSTANT,
                                           cv::Scalar(0));
                w.uprightFrame = w.frames.crop(cv::Point2d(-px, -py));
                ++attempt;
                search();
            }
        }
        // A weak centre is still a start for the grid fit, which verification then judges.
        if (centre.status == -314 && plan.refining && centre.weak != cv::Point(0, 0)) {
            w.weak = centre.status;
            centre.status = 0;
            centre.point = centre.weak;
        }
        if (centre.status < 0) return centre.status;
        if (centre.point != cv::Point(0, 0) || ctpointFlag != 1 || attempt > 0) break;
        rotation->rotate(w.procRot, w.procRot, 30.0f);
        rotation->rotate(w.binRot, w.binRot, 30.0f);
        if (!input.empty()) rotation->rotate(input, input, 30.0f);
        w.uprightFrame = w.frames.turn(w.procRot.size(), 30.0);
        w.angle += 30;
        evidence.recalibrated = true;
        sink.recalibrated(w.angle);
    }
    if (centre.point == cv::Point(0, 0)) return -322;
    w.centre = centre.point;
    sink.centreFound(w.gap, w.centre, w.procRot, t.ticks);
    out.result.timings.centre = t.ms();
    return 0;
}

namespace {

// Where the dots were fitted, the geometry follows them to a fraction of a pixel; else it is the
// grid's, whose centre is a whole pixel of the upright frame.
void placeResult(const stages::Decoded& decoded, const Grid_verification::Checks& checks,
                 const FrameChain& frames, int uprightFrame, int angle, float gap, int layer,
                 qbcode::Result& result) {
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
    if (result.evidence.refined) {
        std::vector<cv::Point2d> ended;
        for (const cv::Point2d& p : decoded.points) ended.push_back(fitted(p));
        if (!gridmatch::fitAffine(decoded.ideal, ended, whole)) whole = fit;
    }
    const double fitScale =
        std::sqrt(std::fabs(whole(0, 0) * whole(1, 1) - whole(0, 1) * whole(1, 0)));
    const double fitTurn = std::atan2(whole(1, 0) - whole(0, 1), whole(0, 0) + whole(1, 1));
    result.angle = angle + fitTurn * 180.0 / CV_PI;
    result.spacing = gap * fitScale * frames.scaleToInput(uprightFrame);
    const int n = static_cast<int>(decoded.points.size());
    if (n > 0) result.centre = onDots(decoded.points[0]);
    const int ringStart = get_dots_num(layer - 1);
    for (int j = 0; j < 6 && layer > 0; ++j) {
        const int i = ringStart + j * layer;
        if (i < n) result.corners[j] = onDots(decoded.points[i]);
    }
}

void noteChecks(const stages::Decoded& decoded, const stages::Verified& verified,
                qbcode::Result& result) {
    const Grid_verification::Checks& checks = verified.checks;
    result.confidence = verified.confidence.positions;
    result.decisionMargin = verified.confidence.margin;
    qbcode::Evidence& evidence = result.evidence;
    evidence.markerRatio = decoded.markerRatio;
    evidence.fill = decoded.fill;
    evidence.fillThreshold = decoded.fillThreshold;
    evidence.boxSide = decoded.boxSide;
    result.margin = checks.margin;
    result.checks.blankFill = checks.blankFill;
    result.checks.outside = checks.outside;
    result.checks.markersMatched = checks.markersMatched;
    result.checks.dotsMatched = checks.dotsMatched;
    result.checks.dotsMissing = checks.dotsMissing;
    result.checks.dotsUnexplained = checks.dotsUnexplained;
    result.checks.residual = checks.residual;
}

}  // namespace

// Tracking and decoding, then verification: the grid must sit on the printed dots. A grid that
// does not is fitted to the detected dots and read once more, through the same checks.
int AlgPipeline::readBits(Work& w, const ReadPlan& plan, const std::string& imgName, int* bits,
                          int count, DebugSink& sink, Decision& out) {
    qbcode::Result& result = out.result;
    const Stamp t;
    if (w.keepUpright) out.upright.grey = w.procRot.clone();  // the tracker binarises procRot
    stages::Decoded decoded;
    if (w.fitOnly) {
        decoded.status = w.weak;
    } else {
        decoded = stages::decode(w.procRot, w.binRot, w.gap, w.centre, layer, doQualityCheck != 0,
                                 para.get(), imgName);
        if (decoded.status < 0 && !plan.refining) return decoded.status;
    }
    result.timings.decode = t.ms();

    const Stamp v;
    const stages::Preprocessed& pre = w.view.pre;
    const int downsampled = w.view.downsampled;
    auto verify = [&](const stages::Decoded& d) {
        return stages::verify(d, pre, w.frames, downsampled, w.regionFrame, w.uprightFrame,
                              out.region.size(), w.gap, plan.camera, plan.frameMargin,
                              plan.verification);
    };
    stages::Verified verified;
    if (decoded.status == 0) verified = verify(decoded);
    // A failure reports what the read without refinement would have said.
    int failure = w.weak < 0 ? w.weak : decoded.status < 0 ? decoded.status : verified.status;
    if (w.weak < 0 && decoded.status == 0 && verified.status == 0) failure = 0;
    if (failure < 0 && plan.refining && !w.fitTried) {
        stages::Decoded fitted = stages::refine(
            w.procRot, stages::centroidsIn(pre, w.frames, downsampled, w.uprightFrame), w.gap,
            w.centre, layer, para.get(), w.fitOnly ? kFastReach : 5);
        if (w.fitOnly && fitted.status < 0) return fitted.status;
        if (fitted.status == 0) {
            const stages::Verified again = verify(fitted);
            if (again.status == 0 || decoded.status < 0) {
                decoded = std::move(fitted);
                verified = again;
                result.evidence.refined = true;
                if (again.status == 0) failure = 0;
            }
        }
    }
    result.timings.verify = v.ms();
    if (decoded.status < 0) return failure;
    noteChecks(decoded, verified, result);
    if (failure < 0) return failure;
    result.checks.verified = verified.enabled;
    if (bits != nullptr) {
        const int r = assign_patArr(decoded.bits, bits, count);
        if (r < 0) return r;
    }
    sink.decoded(decoded.bits, t.ticks);

    // The result in input pixels.
    result.bits.assign(static_cast<size_t>(decoded.bits.cols), 0);
    assign_patArr(decoded.bits, result.bits.data(), decoded.bits.cols);
    result.orientation = decoded.orientation;
    placeResult(decoded, verified.checks, w.frames, w.uprightFrame, w.angle, w.gap, layer, result);
    UprightView& upright = out.upright;
    upright.binary = w.binRot;
    upright.boxes = decoded.boxes;
    upright.bits = decoded.bits;
    upright.gap = w.gap;
    sink.overlay(w.procRot, w.binRot, decoded.boxes, decoded.bits);
    return 0;
}

void AlgPipeline::putonOverlay(cv::Mat& overlay, cv::Mat& overlayBin, const cv::Mat& boxes,
                               const cv::Mat& values, double /*scale*/) {
    DebugSink::drawOverlay(overlay, overlayBin, boxes, values);
}
