// The accuracy suite's conditions: how each kind of frame is drawn from a seeded generator. The
// suite reads them; the stream benchmark takes its nominal and no-code frames from the same
// generators.
#pragma once

#include <algorithm>
#include <filesystem>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "qbcode_render.h"

namespace accuracy {

struct Sample {
    cv::Mat image;
    std::vector<int> bits;  // empty: no code in the image
    // Frames with several codes: all of them, read through the every-code call.
    std::vector<std::vector<int>> codes;
};

using Rng = std::mt19937_64;
using Generator = std::function<Sample(Rng&)>;

struct Condition {
    std::string name;
    std::string axis;  // plot panel; empty: not plotted
    double value = 0;  // position on the axis
    std::string set;   // "nominal", "hard", "sweep", "nocode", "design"
    Generator make;
};

inline double uniform(Rng& rng, double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(rng);
}

// A random valid code with at least minDots printed dots (and at most maxDots).
inline std::vector<int> randomCode(Rng& rng, int minDots, int maxDots = 91) {
    for (;;) {
        std::vector<uint8_t> payload(10);
        for (auto& b : payload) b = static_cast<uint8_t>(rng());
        auto bits = qbrender::payloadBits(payload);
        const auto n = std::count(bits.begin(), bits.end(), 1);
        if (n >= minDots && n <= maxDots) return bits;
    }
}

// Code geometry and camera of one sample: fixed options, and the ranges the rest is drawn from.
struct Scene {
    qbrender::CodeStyle style;    // spacing, diameter, turn and centre are drawn
    qbrender::CameraOptions cam;  // blur, noise, tilt axis and seed are drawn
    double spacingLo = 16, spacingHi = 36;
    double diameterLo = 0.5, diameterHi = 0.7;  // of the spacing
    double blurLo = 0, blurHi = 1;
    double noiseLo = 0, noiseHi = 4;
    double tiltHi = -1;  // >= 0: tilt uniform from cam.tiltDeg to tiltHi
    int minDots = 45, maxDots = 91;
    double cut = 0;  // share of the code's radius pushed past a random frame edge
};

inline Sample renderScene(const Scene& s, Rng& rng) {
    qbrender::CodeStyle style = s.style;
    const cv::Size size = style.size;
    style.spacing = uniform(rng, s.spacingLo, s.spacingHi);
    style.dotDiameter = style.spacing * uniform(rng, s.diameterLo, s.diameterHi);
    style.rotationDeg = uniform(rng, 0, 360);
    // Keep the whole code inside the frame with room to spare.
    const double radius = 5 * style.spacing + style.dotDiameter;
    const double roomX = std::max(0.0, size.width / 2.0 - radius - 8);
    const double roomY = std::max(0.0, size.height / 2.0 - radius - 8);
    style.centre = cv::Point2d(size.width / 2.0 + uniform(rng, -1, 1) * std::min(roomX, 60.0),
                               size.height / 2.0 + uniform(rng, -1, 1) * std::min(roomY, 60.0));
    if (s.cut > 0) {
        // One side, drawn at random: left, right, top or bottom.
        const double inside = radius * (1.0 - s.cut);
        const int side = static_cast<int>(rng() % 4);
        double& axis = side < 2 ? style.centre.x : style.centre.y;
        const double length = side < 2 ? size.width : size.height;
        axis = side % 2 == 0 ? inside : length - inside;
    }
    qbrender::CameraOptions cam = s.cam;
    cam.blurSigma = uniform(rng, s.blurLo, s.blurHi);
    cam.noiseSigma = uniform(rng, s.noiseLo, s.noiseHi);
    if (s.tiltHi >= 0) cam.tiltDeg = uniform(rng, s.cam.tiltDeg, s.tiltHi);
    cam.tiltAxisDeg = uniform(rng, 0, 180);
    cam.seed = rng();
    Sample out;
    out.bits = randomCode(rng, s.minDots, s.maxDots);
    out.image = qbrender::renderCamera(out.bits, style, cam);
    return out;
}

inline Generator sceneGenerator(const Scene& s) {
    return [s](Rng& rng) { return renderScene(s, rng); };
}

// No-code images.
inline cv::Mat noiseImage(Rng& rng, cv::Size size, double blur) {
    return qbrender::noiseFrame(size, blur, rng());
}

// Codes side by side, 640 px apart so that each is a cluster of its own.
inline Sample codesInARow(Rng& rng, int count) {
    Sample out;
    out.image = cv::Mat::zeros(640, 640 * count, CV_8U);
    for (int k = 0; k < count; ++k) {
        qbrender::CodeStyle style;
        style.size = out.image.size();
        style.spacing = uniform(rng, 16, 26);
        style.dotDiameter = style.spacing * uniform(rng, 0.5, 0.7);
        style.rotationDeg = uniform(rng, 0, 360);
        style.centre =
            cv::Point2d(320 + 640 * k + uniform(rng, -40, 40), 320 + uniform(rng, -40, 40));
        qbrender::CameraOptions cam;
        cam.blurSigma = uniform(rng, 0, 1);
        cam.noiseSigma = uniform(rng, 0, 3);
        cam.seed = rng();
        out.codes.push_back(randomCode(rng, 45));
        cv::max(out.image, qbrender::renderCamera(out.codes.back(), style, cam), out.image);
    }
    return out;
}

// A hexagonal dot field that looks like a code but whose markers are random.
inline Sample fakeField(Rng& rng) {
    qbrender::CodeStyle style;
    style.spacing = uniform(rng, 18, 30);
    style.dotDiameter = style.spacing * 0.6;
    style.rotationDeg = uniform(rng, 0, 360);
    std::vector<int> bits(91);
    for (auto& b : bits) b = (rng() % 100) < 55;
    qbrender::CameraOptions cam;
    cam.blurSigma = 0.5;
    cam.noiseSigma = 2;
    cam.seed = rng();
    return Sample{qbrender::renderCamera(bits, style, cam), {}, {}};
}

// A printed label (dark dots on light paper) lying somewhere on a photograph: the scene decides
// the frame's overall polarity, the label the code's.
inline Sample labelOnPhoto(Rng& rng, const std::vector<cv::Mat>& photos) {
    Sample out;
    out.image = photos[rng() % photos.size()].clone();
    qbrender::CodeStyle style;
    style.spacing = uniform(rng, 14, 22);
    style.dotDiameter = style.spacing * uniform(rng, 0.5, 0.7);
    style.rotationDeg = uniform(rng, 0, 360);
    style.background = uniform(rng, 190, 235);
    style.foreground = uniform(rng, 20, 70);
    const int side = static_cast<int>(12 * style.spacing);
    style.size = cv::Size(side, side);
    qbrender::CameraOptions cam;
    cam.blurSigma = uniform(rng, 0, 1);
    cam.noiseSigma = uniform(rng, 0, 4);
    cam.seed = rng();
    out.bits = randomCode(rng, 45);
    const cv::Mat label = qbrender::renderCamera(out.bits, style, cam);
    const int x = static_cast<int>(uniform(rng, 0, out.image.cols - side));
    const int y = static_cast<int>(uniform(rng, 0, out.image.rows - side));
    label.copyTo(out.image(cv::Rect(x, y, side, side)));
    return out;
}

inline std::vector<cv::Mat> loadPhotos(const std::string& dir) {
    std::vector<cv::Mat> photos;
    if (dir.empty() || !std::filesystem::is_directory(dir)) return photos;
    std::vector<std::filesystem::path> files;
    for (const auto& e : std::filesystem::directory_iterator(dir)) files.push_back(e.path());
    std::sort(files.begin(), files.end());
    for (const auto& f : files) {
        cv::Mat img = cv::imread(f.string(), cv::IMREAD_GRAYSCALE);
        if (img.empty() || img.rows < 64 || img.cols < 64) continue;
        cv::Mat fitted;
        cv::resize(img, fitted, cv::Size(640, 480), 0, 0, cv::INTER_AREA);
        photos.push_back(fitted);
    }
    return photos;
}

inline std::vector<Condition> buildConditions(const std::vector<cv::Mat>& photos) {
    std::vector<Condition> c;
    auto add = [&c](const std::string& name, const std::string& axis, double value,
                    const std::string& set, Generator g) {
        c.push_back(Condition{name, axis, value, set, std::move(g)});
    };
    Scene nominal;
    add("nominal", "", 0, "nominal", sceneGenerator(nominal));

    // One condition per value of an axis, in `set`; the value equal to `hard` is in the hard set.
    using Edit = std::function<void(Scene&, double)>;
    auto sweep = [&](const std::string& label, const std::string& unit, const std::string& axis,
                     std::vector<double> values, const Edit& edit, double hard = -1,
                     const std::string& set = "sweep") {
        for (double v : values) {
            Scene s = nominal;
            edit(s, v);
            std::ostringstream name;
            name << label << ' ' << v << unit;
            add(name.str(), axis, v, v == hard ? "hard" : set, sceneGenerator(s));
        }
    };
    sweep("spacing", "px", "spacing (px)", {12, 14, 16, 20, 24, 28, 32, 36, 40, 44},
          [](Scene& s, double v) { s.spacingLo = s.spacingHi = v; });
    sweep("diameter", "%", "dot diameter (%)", {40, 50, 60, 70, 80},
          [](Scene& s, double v) { s.diameterLo = s.diameterHi = v / 100; });
    sweep("contrast", "", "contrast (grey levels)", {15, 25, 40, 80, 190},
          [](Scene& s, double v) { s.style.foreground = s.style.background + v; });
    sweep("brightness bg", "", "background level", {0, 60, 120, 160}, [](Scene& s, double v) {
        s.style.background = v;
        s.style.foreground = std::min(255.0, v + 90);
    });
    sweep(
        "blur", "", "blur sigma (px)", {0, 0.6, 1.0, 1.4, 1.8, 2.2, 2.6},
        [](Scene& s, double v) { s.blurLo = s.blurHi = v; }, 1.8);
    sweep(
        "noise", "", "noise sigma", {0, 4, 7, 10, 14, 20},
        [](Scene& s, double v) { s.noiseLo = s.noiseHi = v; }, 10);
    sweep(
        "jpeg", "", "JPEG quality", {90, 60, 40, 25},
        [](Scene& s, double v) { s.cam.jpegQuality = static_cast<int>(v); }, 60);
    sweep(
        "tilt", "deg", "tilt (deg)", {0, 5, 10, 15, 20, 25, 30, 35},
        [](Scene& s, double v) { s.cam.tiltDeg = v; }, 10);
    // One condition from the nominal scene with a few fields changed.
    auto variant = [&](const std::string& name, const std::string& set,
                       const std::function<void(Scene&)>& edit) {
        Scene s = nominal;
        edit(s);
        add(name, "", 0, set, sceneGenerator(s));
    };
    variant("uneven lighting", "hard", [](Scene& s) {
        s.cam.lightingGradient = 0.5;
        s.cam.vignette = 0.3;
    });
    // Stray blobs within the clustering's reach widen the region of interest; the code then
    // sits off-centre and the upright turn can cut an outer dot (see docs/envelope.md).
    variant("texture clutter", "hard", [](Scene& s) { s.cam.textureAmplitude = 30; });
    variant("stray blobs 250px away", "sweep", [](Scene& s) {
        s.cam.clutterBlobs = 15;
        s.cam.clutterClearance = 250;
    });
    variant("blobs near the code", "design", [](Scene& s) {
        s.cam.textureAmplitude = 25;
        s.cam.clutterBlobs = 15;
    });
    auto large = [](double lo, double hi) {
        return [lo, hi](Scene& s) {
            s.style.size = cv::Size(1280, 960);
            s.spacingLo = lo;
            s.spacingHi = hi;
        };
    };
    variant("960x1280 spacing 32-72", "sweep", large(32, 72));
    variant("960x1280 spacing 16-36", "sweep", large(16, 36));
    // What ordinary prints and cameras show.
    variant("dark dots on light", "camera", [](Scene& s) {
        s.style.background = 200;
        s.style.foreground = 40;
    });
    variant("tilt 15-35deg", "camera", [](Scene& s) {
        s.cam.tiltDeg = 15;
        s.tiltHi = 35;
    });
    variant("960x1280 spacing 12-60", "camera", large(12, 60));
    for (int n : {2, 3})
        add(std::to_string(n) + " codes per frame", "", 0, "camera",
            [n](Rng& rng) { return codesInARow(rng, n); });
    sweep(
        "cut by the frame", "%", "", {15, 30, 50}, [](Scene& s, double v) { s.cut = v / 100; }, -1,
        "cut");
    sweep(
        "printed dots", "", "printed dots", {30, 36, 40, 44},
        [](Scene& s, double v) {
            s.minDots = static_cast<int>(v);
            s.maxDots = s.minDots + 1;
        },
        -1, "design");

    if (!photos.empty())
        add("label on a photograph", "", 0, "camera",
            [photos](Rng& rng) { return labelOnPhoto(rng, photos); });
    if (!photos.empty())
        add("photographs", "", 0, "nocode", [photos](Rng& rng) {
            cv::Mat out = photos[rng() % photos.size()].clone();
            if (rng() % 2) cv::flip(out, out, 1);
            return Sample{out, {}, {}};
        });
    add("textures", "", 0, "nocode", [](Rng& rng) {
        return Sample{noiseImage(rng, cv::Size(640, 480), uniform(rng, 1.5, 6)), {}, {}};
    });
    add("noise", "", 0, "nocode", [](Rng& rng) {
        return Sample{noiseImage(rng, cv::Size(640, 480), 0), {}, {}};
    });
    add("fake hex fields", "", 0, "nocode", [](Rng& rng) { return fakeField(rng); });
    return c;
}

// The frames the suite reads for a condition: its generator seeded as the suite seeds it.
inline std::vector<Sample> framesOf(const Condition& c, int count, uint64_t seed = 20261122) {
    Rng rng(seed ^ std::hash<std::string>()(c.name));
    std::vector<Sample> out;
    for (int i = 0; i < count; ++i) out.push_back(c.make(rng));
    return out;
}

}  // namespace accuracy
