#include "Detector.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include <opencv2/imgproc.hpp>

#include "ParamFile.h"
#include "SystemPara.h"

namespace {

// The size rule chooses ratios in this range: below it a code of any size is a few pixels wide.
const double kLowestRatio = 0.2;
// Read every cluster: beyond this many, the rest of a frame is texture.
const int kMaxRanks = 64;

// A view that is done with keeps its status and timings; its images go before the next view
// is prepared, so that a frame never holds two views' images at once.
void dropImages(FrameView& view) {
    view.pre.input.release();
    view.pre.processed.release();
    view.pre.binary.release();
}

struct Try {
    bool dark;
    double ratio;
    cv::Rect crop{};  // part of the frame; empty: all of it
};

// The views of one frame in the order they are tried, each prepared on first use. The first
// view is under the size rule: when its dots are spaced outside the range, it is prepared again
// at the ratio that fits, and every later view of the same ratio takes that ratio too.
class Views {
public:
    Views(AlgPipeline& engine, const ReadPlan& plan, const cv::Mat& image,
          const ReadRequest& request)
        : engine(engine), plan(plan), image(image), request(request) {
        bool dark = false;
        if (plan.camera && plan.polarity == 1) dark = true;
        if (plan.camera && plan.polarity == 2) {
            dark = stages::looksDark(image);
            mixed = plan.detection && stages::mixedPolarity(image, dark);
        }
        tries.push_back({dark, plan.ratio});
        if (plan.camera && plan.guarded) {
            if (plan.retryPolarity) tries.push_back({!dark, plan.ratio});
            // Each ratio costs a whole view: a few at most.
            for (size_t k = 0; k < plan.retryRatios.size() && k < 4; ++k)
                tries.push_back({dark, plan.retryRatios[k]});
        }
        views.resize(tries.size());
    }
    Views(const Views&) = delete;
    Views& operator=(const Views&) = delete;

    size_t size() const { return tries.size(); }
    // Part of the frame looks the other way: the guess of the first view may be wrong there.
    bool mixedFrame() const { return mixed; }
    bool dark(size_t k) const { return tries[k].dark; }
    // A view of part of the frame, added where the first view saw merged dots.
    bool part(size_t k) const { return !tries[k].crop.empty(); }
    int prepared() const { return count; }

    const FrameView& at(size_t k) {
        if (!views[k]) {
            // The candidates' reader never goes back to an earlier view; the original one
            // reads every view again for each cluster rank.
            for (size_t j = 0; j < k && plan.detection; ++j)
                if (views[j]) dropImages(*views[j]);
            views[k] = std::make_unique<FrameView>(make(k));
            ++count;
        }
        return *views[k];
    }

private:
    // The first view is under the size rule; with a "Detection" section, so is the first view
    // of the other polarity, whose dots need not be those the first view measured.
    FrameView make(size_t k) {
        FrameView view = prepare(tries[k]);
        bool first = true;
        for (size_t j = 0; j < k; ++j) first = first && tries[j].dark != tries[k].dark;
        first = k == 0 || (plan.detection && first);
        if (first && view.status == -143 && plan.smallCodes && !part(k)) {
            const cv::Rect crop = stages::mergedDots(view.pre);
            if (!crop.empty()) {
                tries.push_back({tries[k].dark, 1.0, crop});
                views.emplace_back();
            }
        }
        if (!first || !plan.sizeRule || view.status < 0) return view;
        double spacing = stages::blobSpacing(view.pre.centroids);
        const double lo = plan.spacingLo, hi = plan.spacingHi;
        if (plan.smallCodes && k == 0 && spacing >= lo && !view.pre.smallBlobs.empty()) {
            // Dots about as small as the specks the filter drops keep only the larger few, which
            // lie further apart: the spacing counts them all. Only in the frame's own polarity:
            // the other one of a photograph is full of specks.
            std::vector<cv::Point2f> all = view.pre.centroids;
            all.insert(all.end(), view.pre.smallBlobs.begin(), view.pre.smallBlobs.end());
            const double fine = stages::blobSpacing(all);
            if (fine > 0.0 && fine < lo) spacing = fine;
        }
        if (!(spacing > 0.0) || (spacing >= lo && spacing <= hi)) return view;
        const double to =
            std::clamp(tries[k].ratio * std::sqrt(lo * hi) / spacing, kLowestRatio, 1.0);
        if (std::fabs(to - tries[k].ratio) <= 0.05) return view;
        for (size_t j = k; j < tries.size(); ++j)
            if (tries[j].ratio == plan.ratio && (!plan.detection || tries[j].dark == tries[k].dark))
                tries[j].ratio = to;
        dropImages(view);
        return prepare(tries[k]);
    }

    FrameView prepare(const Try& t) {
        return engine.prepare(image, t.dark, t.ratio, request.imgName, request.start0,
                              plan.detection, t.crop);
    }

    AlgPipeline& engine;
    const ReadPlan& plan;
    const cv::Mat& image;
    const ReadRequest& request;
    std::vector<Try> tries;
    std::vector<std::unique_ptr<FrameView>> views;
    int count = 0;
    bool mixed = false;
};

void noteTry(Decision& d, const Views& views, size_t k) {
    d.result.evidence.darkDots = views.dark(k);
    d.result.evidence.tries = static_cast<int>(k + 1);
    d.result.evidence.ratio = d.ratio;
}

// A refusal at view k before any decision: the view's ratio and pre-processing time.
Decision refused(int status, Views& views, size_t k) {
    const FrameView& view = views.at(k);
    Decision d;
    d.result.status = status;
    d.result.timings.preprocess = view.preprocessMs;
    d.ratio = view.ratio;
    noteTry(d, views, k);
    return d;
}

// Within two spacings of the centre of a code already read.
bool nearACode(const std::vector<Decision>& codes, double x, double y) {
    for (const Decision& f : codes) {
        const qbcode::Result& g = f.result;
        if (std::hypot(g.centre.x - x, g.centre.y - y) < 2.0 * g.spacing) return true;
    }
    return false;
}

// A cluster whose dots centre on a code already read adds nothing.
bool covered(const std::vector<Decision>& codes, const std::vector<cv::Point2f>& dots,
             const FrameView& view) {
    if (codes.empty() || dots.empty()) return false;
    cv::Point2d mean(0, 0);
    for (const cv::Point2f& p : dots) mean += cv::Point2d(p.x, p.y);
    mean *= 1.0 / static_cast<double>(dots.size());
    const cv::Point2d at = view.frames.toInput(mean, view.downsampled);
    return nearACode(codes, at.x, at.y);
}

// Whether a dot (processed frame) lies on a code read: its hexagon of corner dots, a quarter
// spacing out for the scatter of centroids.
bool onCode(const cv::Point2f& p, const qbcode::Result& code, const FrameView& view) {
    std::vector<cv::Point2f> hexagon;
    for (const qbcode::Point& c : code.corners) hexagon.emplace_back(c.x, c.y);
    const cv::Point2f at(view.frames.toInput(cv::Point2d(p.x, p.y), view.downsampled));
    return cv::pointPolygonTest(hexagon, at, true) > -0.25 * code.spacing;
}

// The dots of a cluster that lie off a code read from it: a second code the clustering joined
// to the first, as one cluster, when they are printed close together.
std::vector<cv::Point2f> offTheCode(const std::vector<cv::Point2f>& dots,
                                    const qbcode::Result& code, const FrameView& view) {
    std::vector<cv::Point2f> out;
    for (const cv::Point2f& p : dots)
        if (!onCode(p, code, view)) out.push_back(p);
    return out;
}

// The clusters with `dots` (of cluster `label`) as a cluster of their own, and its rank.
stages::Clusters splitOff(const stages::Clusters& clusters, int label,
                          const std::vector<cv::Point2f>& dots, int& rank) {
    stages::Clusters out = clusters;
    const int fresh = std::max(out.count, 1);
    for (size_t i = 0; i < out.labels.size(); ++i) {
        if (label != -1 && out.labels[i] != label) continue;
        const cv::Point2f p(out.coords[2 * i], out.coords[2 * i + 1]);
        if (std::find(dots.begin(), dots.end(), p) != dots.end()) out.labels[i] = fresh;
    }
    out.count = fresh + 1;
    rank = 0;
    const auto size = [&out](int l) { return std::count(out.labels.begin(), out.labels.end(), l); };
    for (int l = 0; l < out.count; ++l)
        if (l != fresh && (size(l) > size(fresh) || (size(l) == size(fresh) && l < fresh))) ++rank;
    return out;
}

// The crop of part of a cluster without the dots of the codes already read from that cluster:
// they pull the angle and centre searches towards a mixture of both. Only dots on a read code's
// hexagon are wiped, never closer than 0.35 spacings to a dot of the part; verification still
// sees every dot of the frame.
void wipeRead(stages::Region& reg, const std::vector<cv::Point2f>& cluster,
              const std::vector<cv::Point2f>& part, double spacing,
              const std::vector<Decision>& codes, const FrameView& view) {
    if (!(spacing > 0.0) || reg.grey.empty() || codes.empty()) return;
    for (const cv::Point2f& p : cluster) {
        if (std::find(part.begin(), part.end(), p) != part.end()) continue;
        double radius = 0.55 * spacing;
        for (const cv::Point2f& q : part)
            radius = std::min(radius, cv::norm(p - q) - 0.35 * spacing);
        if (radius < 1.0) continue;
        if (std::none_of(codes.begin(), codes.end(),
                         [&](const Decision& d) { return onCode(p, d.result, view); }))
            continue;
        const cv::Point c(cvRound(p.x) - reg.rect.x, cvRound(p.y) - reg.rect.y);
        for (cv::Mat* m : {&reg.grey, &reg.binary})
            cv::circle(*m, c, static_cast<int>(radius), cv::Scalar(0), cv::FILLED);
    }
}

// The configured region of one view per try, as the original driver reads it: the first try
// that reads wins; when none does, the first try's failure stands.
Decision readRank(AlgPipeline& engine, const ReadPlan& plan, Views& views,
                  const ReadRequest& request, int rank) {
    Decision first;
    for (size_t k = 0; k < views.size(); ++k) {
        const FrameView& view = views.at(k);
        Decision d =
            view.status < 0
                ? refused(view.status, views, k)
                : engine.decide(view, stages::region(view.pre, view.clusters, rank), plan,
                                request.imgName, request.keepUpright, request.bits, request.count);
        noteTry(d, views, k);
        if (d.status() == 0) return d;
        if (k == 0) first = std::move(d);
    }
    first.result.evidence.tries = static_cast<int>(views.size());
    return first;
}

Detection detectLegacy(AlgPipeline& engine, const ReadPlan& plan, Views& views,
                       const ReadRequest& request) {
    Detection out;
    if (!request.every) {
        Decision d = readRank(engine, plan, views, request, 0);
        if (d.status() == 0)
            out.codes.push_back(std::move(d));
        else
            out.failure = std::move(d);
        return out;
    }
    for (int rank = 0, clusters = 1; rank < clusters; ++rank) {
        if (request.maxCodes > 0 && static_cast<int>(out.codes.size()) >= request.maxCodes) break;
        Decision d = readRank(engine, plan, views, request, rank);
        clusters = std::min(d.result.evidence.clusters, kMaxRanks);
        if (d.status() != 0) {
            if (rank == 0) out.failure = std::move(d);
            continue;
        }
        if (!nearACode(out.codes, d.result.centre.x, d.result.centre.y))
            out.codes.push_back(std::move(d));
    }
    return out;
}

Detection detectCandidates(AlgPipeline& engine, const ReadPlan& plan, Views& views,
                           const ReadRequest& request) {
    Detection out;
    bool failureSet = false, failureDecided = false;
    auto refuse = [&](Decision d, bool decided) {
        if (failureSet && (failureDecided || !decided)) return;
        out.failure = std::move(d);
        failureSet = true;
        failureDecided = decided;
    };
    // Later views only where the earlier ones saw a reason: the other polarity where a lattice
    // of gaps showed (a code of the other polarity looks like that) or where part of the frame
    // looks the other way and nothing was read yet, another ratio where a lattice was decided
    // and not read. A frame without a code of a single polarity stops after its first view.
    bool gaps = false, unread = false;
    int refusals = 0;
    // Part of a cluster's dots decided as a cluster of their own; false when it was not decided
    // (no region, or a code already read lies on it) or not read.
    auto decideApart = [&](const FrameView& view, size_t k, int label,
                           const std::vector<cv::Point2f>& part, const LatticeStats& lattice,
                           Decision& got) {
        int rank = 0;
        const stages::Clusters split = splitOff(view.clusters, label, part, rank);
        stages::Region reg = stages::region(view.pre, split, rank);
        if (reg.status < 0 || covered(out.codes, part, view)) return false;
        wipeRead(reg, stages::clusterDots(view.clusters, label), part, lattice.spacing, out.codes,
                 view);
        reg.upright = lattice.rows + 30.0;
        reg.window = plan.angleWindow;
        reg.spacing = lattice.spacing;
        ++out.decisions;
        got = engine.decide(view, std::move(reg), plan, request.imgName, request.keepUpright,
                            request.bits, request.count);
        noteTry(got, views, k);
        return got.status() == 0;
    };
    for (size_t k = 0; k < views.size() && views.prepared() < plan.maxViews; ++k) {
        const bool flipped = views.dark(k) != views.dark(0);
        const bool mixed = views.mixedFrame() && (out.codes.empty() || request.every);
        if (k > 0 && !views.part(k) && !(flipped ? gaps || mixed : unread)) continue;
        const FrameView& view = views.at(k);
        if (view.status < 0) {
            refuse(refused(view.status, views, k), false);
            continue;
        }
        const int ranks =
            std::min({std::max(view.clusters.count, 1), kMaxRanks, plan.maxCandidates});
        for (int rank = 0; rank < ranks; ++rank) {
            // The lattice check sees the cluster's dots before any crop is cut.
            const int label = stages::rankLabel(view.clusters, rank);
            if (label == -2) break;
            ++out.candidates;
            const std::vector<cv::Point2f> dots = stages::clusterDots(view.clusters, label);
            const LatticeStats lattice = latticeOf(dots, plan.lattice);
            if (!lattice.passes(plan.lattice)) {
                gaps = gaps || lattice.latticeLike(plan.lattice);
                Decision d = refused(QBCODE_NOT_A_LATTICE, views, k);
                d.result.evidence.clusters = view.clusters.count;
                d.result.evidence.regionDots = static_cast<int>(dots.size());
                refuse(std::move(d), false);
                continue;
            }
            stages::Region reg = stages::region(view.pre, view.clusters, rank);
            if (reg.status < 0) {
                refuse(refused(reg.status, views, k), false);
                continue;
            }
            if (covered(out.codes, dots, view)) continue;
            // The rows of the lattice stand upright 30 degrees on from their direction.
            reg.upright = lattice.rows + 30.0;
            reg.window = plan.angleWindow;
            reg.spacing = lattice.spacing;
            ++out.decisions;
            Decision d = engine.decide(view, std::move(reg), plan, request.imgName,
                                       request.keepUpright, request.bits, request.count);
            noteTry(d, views, k);
            if (d.status() != 0) {
                // Codes printed close together make one cluster whose crop holds parts of both:
                // one code's own dots are decided once more, where the rest could be a code too.
                const std::vector<cv::Point2f> core = codeAround(dots, lattice.spacing);
                const LatticeStats coreLattice = latticeOf(core, plan.lattice);
                Decision e;
                const bool apart =
                    dots.size() >= core.size() + static_cast<size_t>(plan.lattice.minDots) &&
                    coreLattice.passes(plan.lattice);
                if (apart && decideApart(view, k, label, core, coreLattice, e)) {
                    d = std::move(e);
                } else if (apart) {
                    // The core's code may be the one the other spoils: the rest on its own.
                    std::vector<cv::Point2f> rest;
                    for (const cv::Point2f& p : dots)
                        if (std::find(core.begin(), core.end(), p) == core.end()) rest.push_back(p);
                    const LatticeStats restLattice = latticeOf(rest, plan.lattice);
                    // Taken only clear of the core: a core dot on the code read means codes
                    // that overlap, where the read may hold a dot of the other.
                    if (restLattice.passes(plan.lattice) &&
                        decideApart(view, k, label, rest, restLattice, e) &&
                        std::none_of(core.begin(), core.end(), [&](const cv::Point2f& p) {
                            return onCode(p, e.result, view);
                        }))
                        d = std::move(e);
                }
            }
            if (d.status() != 0) {
                // Another ratio helps a lattice whose dots were too small or too large for
                // this one, and nothing else.
                unread = unread || !plan.sizeRule || lattice.spacing < plan.spacingLo ||
                         lattice.spacing > plan.spacingHi;
                refuse(std::move(d), true);
                if (++refusals >= plan.maxRefused) return out;
                continue;
            }
            refusals = 0;
            // Every code: the rest of the cluster may be a code printed beside this one.
            std::vector<cv::Point2f> rest;
            if (request.every) rest = offTheCode(dots, d.result, view);
            if (!nearACode(out.codes, d.result.centre.x, d.result.centre.y))
                out.codes.push_back(std::move(d));
            if (request.maxCodes > 0 && static_cast<int>(out.codes.size()) >= request.maxCodes)
                return out;
            const LatticeStats restLattice = latticeOf(rest, plan.lattice);
            Decision e;
            if (restLattice.passes(plan.lattice) &&
                decideApart(view, k, label, rest, restLattice, e) &&
                !nearACode(out.codes, e.result.centre.x, e.result.centre.y)) {
                out.codes.push_back(std::move(e));
                if (request.maxCodes > 0 && static_cast<int>(out.codes.size()) >= request.maxCodes)
                    return out;
            }
        }
    }
    return out;
}

}  // namespace

ReadPlan ReadPlan::from(SystemPara& record) {
    ReadPlan plan;
    plan.ratio = record.DnRatio;
    plan.camera = record.readPara("Camera") >= 0;
    plan.guarded = record.readPara("Verification") >= 0 && record.verify_enabled != 0;
    plan.detection = plan.camera && record.readPara("Detection") >= 0;
    plan.verification = Grid_verification(&record);
    plan.verification.Initiate();
    if (plan.camera) {
        plan.polarity = record.cam_polarity;
        plan.retryPolarity = record.cam_retryPolarity != 0;
        plan.padCrop = record.cam_padCrop != 0;
        plan.refining = plan.guarded && record.cam_refineGrid != 0;
        plan.frameMargin = record.cam_frameMargin;
        for (float r : record.cam_retryRatios) plan.retryRatios.push_back(r);
        const std::vector<float>& range = record.cam_spacingRange;
        plan.sizeRule = plan.guarded && range.size() == 2 && range[0] > 0.f && range[1] > range[0];
        if (plan.sizeRule) {
            plan.spacingLo = range[0];
            plan.spacingHi = range[1];
        }
    }
    if (plan.detection) {
        plan.lattice.minDots = record.det_minDots;
        plan.lattice.agree = record.det_agree;
        plan.lattice.symmetry = record.det_symmetry;
        plan.lattice.inversion = record.det_inversion;
        plan.maxViews = std::max(1, record.det_maxViews);
        plan.maxCandidates = std::max(1, record.det_maxCandidates);
        plan.maxRefused = std::max(1, record.det_maxRefused);
        plan.angleWindow = std::clamp(static_cast<double>(record.det_angleWindow), 0.0, 30.0);
        plan.centreFromDots = static_cast<size_t>(std::clamp(record.det_centreFromDots, 0, 19));
        plan.smallCodes = record.det_smallCodes != 0;
        plan.fastPath = record.det_fastPath != 0;
    }
    return plan;
}

Detection detect(AlgPipeline& engine, const ReadPlan& plan, const cv::Mat& image,
                 const ReadRequest& request) {
    // Each view reads, and may copy, the whole frame: one beyond the size limits is refused
    // before a pixel is touched (the caller's size may be larger than its buffer).
    if (qbcode::limits::imageTooLarge(image.rows, image.cols)) {
        Detection out;
        out.failure.result.status = QBCODE_IMAGE_TOO_LARGE;
        out.failure.ratio = plan.ratio;
        return out;
    }
    ++engine.frames;
    Views views(engine, plan, image, request);
    Detection out = plan.detection ? detectCandidates(engine, plan, views, request)
                                   : detectLegacy(engine, plan, views, request);
    if (plan.detection) out.failure.result.evidence.tries = views.prepared();
    auto count = [&out](Decision& d) {
        d.result.evidence.candidates = out.candidates;
        d.result.evidence.decisions = out.decisions;
    };
    count(out.failure);
    for (Decision& d : out.codes) count(d);
    return out;
}
