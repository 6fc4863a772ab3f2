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
    // Read through the C call instead, which must return one of the codes exactly.
    bool anyCode = false;
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
    // Drawn over the finished frame: things lying on the code (the style as rendered).
    std::function<void(cv::Mat&, const qbrender::CodeStyle&, Rng&)> over;
};

// Grid positions in frame pixels (x, y) of an upright-rendered, untilted code.
inline std::vector<cv::Point2d> gridPoints(const qbrender::CodeStyle& style) {
    std::vector<cv::Point2d> out;
    for (const cv::Point2d& o : qbrender::gridOffsets(5, style.spacing, style.rotationDeg))
        out.emplace_back(style.centre.x + o.y, style.centre.y + o.x);
    return out;
}

// Lays a shape (mask, 255 inside) of one grey level over the frame, with a little texture of
// its own and hard or soft edges.
inline void layOver(cv::Mat& frame, cv::Mat mask, double level, double softPx, Rng& rng) {
    if (softPx > 0.6) cv::GaussianBlur(mask, mask, cv::Size(), softPx);
    cv::Mat texture(frame.size(), CV_32F);
    cv::randn(texture, 0.0, 6.0);
    cv::GaussianBlur(texture, texture, cv::Size(), 1.5);
    for (int y = 0; y < frame.rows; ++y)
        for (int x = 0; x < frame.cols; ++x) {
            const double a = mask.at<uchar>(y, x) / 255.0;
            if (a <= 0.0) continue;
            uchar& p = frame.at<uchar>(y, x);
            p = cv::saturate_cast<uchar>(p * (1 - a) + (level + texture.at<float>(y, x)) * a);
        }
    (void)rng;
}

// Kinds of object lying on a code.
enum class Cover { Grey, Dark, Bright, Large, Scratch, Specks };

inline void drawCover(cv::Mat& frame, const qbrender::CodeStyle& style, Cover kind, Rng& rng) {
    const std::vector<cv::Point2d> grid = gridPoints(style);
    const double s = style.spacing, bg = style.background, fg = style.foreground;
    cv::Mat mask = cv::Mat::zeros(frame.size(), CV_8U);
    auto soft = [&] { return rng() % 2 ? uniform(rng, 0.1, 0.3) * s : 0.0; };
    // Somewhere on rings 2 to 5.
    auto onRings = [&] { return grid[7 + rng() % (grid.size() - 7)]; };
    auto ellipse = [&](double lo, double hi) {
        const cv::Point2d c =
            onRings() + cv::Point2d(uniform(rng, -0.5, 0.5) * s, uniform(rng, -0.5, 0.5) * s);
        const cv::Size axes(static_cast<int>(uniform(rng, lo, hi) * s / 2),
                            static_cast<int>(uniform(rng, lo, hi) * s / 2));
        cv::ellipse(mask, cv::Point(c), axes, uniform(rng, 0, 180), 0, 360, 255, -1, cv::LINE_AA);
    };
    switch (kind) {
        case Cover::Grey:
        case Cover::Dark:
        case Cover::Bright: {
            const int count = 1 + static_cast<int>(rng() % 3);
            for (int k = 0; k < count; ++k) ellipse(0.5, 1.6);
            const double level = kind == Cover::Grey ? bg + (fg - bg) * uniform(rng, 0.3, 0.7)
                                 : kind == Cover::Dark
                                     ? std::max(0.0, bg - uniform(rng, 15, 40))
                                     : std::min(255.0, fg + uniform(rng, -20, 35));
            layOver(frame, mask, level, soft(), rng);
            break;
        }
        case Cover::Large:
            ellipse(1.6, 3.2);
            layOver(frame, mask, bg + (fg - bg) * uniform(rng, 0, 1), soft(), rng);
            break;
        case Cover::Scratch: {
            const cv::Point2d c = grid[rng() % 19];
            const double a = uniform(rng, 0, CV_PI), len = 8 * s;
            const cv::Point2d d(std::cos(a) * len, std::sin(a) * len);
            cv::line(mask, cv::Point(c - d), cv::Point(c + d), 255,
                     std::max(1, static_cast<int>(uniform(rng, 0.1, 0.3) * s)), cv::LINE_AA);
            layOver(frame, mask, bg + (fg - bg) * uniform(rng, 0.3, 1.0), soft() / 3, rng);
            break;
        }
        case Cover::Specks: {
            // Dots of ink between the positions: on the gaps of three neighbours or between two.
            const int count = 2 + static_cast<int>(rng() % 5);
            for (int k = 0; k < count; ++k) {
                const cv::Point2d a = onRings();
                const double t = uniform(rng, 0, 2 * CV_PI), r = uniform(rng, 0.45, 0.6) * s;
                const cv::Point2d at = a + cv::Point2d(std::cos(t) * r, std::sin(t) * r);
                cv::circle(mask, cv::Point(at),
                           std::max(1, static_cast<int>(uniform(rng, 0.1, 0.25) * s)), 255, -1,
                           cv::LINE_AA);
            }
            layOver(frame, mask, fg - uniform(rng, 0, 40), 0.0, rng);
            break;
        }
    }
}

// A code printed straight onto a photograph: the dots are ink on the photograph's texture.
inline Sample codeOnPhoto(Rng& rng, const std::vector<cv::Mat>& photos) {
    Sample out;
    cv::Mat photo = photos[rng() % photos.size()].clone();
    qbrender::CodeStyle style;
    style.spacing = uniform(rng, 16, 30);
    style.dotDiameter = style.spacing * uniform(rng, 0.5, 0.7);
    style.rotationDeg = uniform(rng, 0, 360);
    style.background = 0;
    style.foreground = 255;
    qbrender::CameraOptions none;
    out.bits = randomCode(rng, 45);
    const cv::Mat ink = qbrender::renderCamera(out.bits, style, none);
    const bool darkInk = rng() % 2;
    const double level = darkInk ? uniform(rng, 0, 40) : uniform(rng, 215, 255);
    out.image = photo;
    for (int y = 0; y < photo.rows; ++y)
        for (int x = 0; x < photo.cols; ++x) {
            const double a = ink.at<uchar>(y, x) / 255.0;
            uchar& p = out.image.at<uchar>(y, x);
            p = cv::saturate_cast<uchar>(p * (1 - a) + level * a);
        }
    qbrender::CameraOptions cam;
    cam.blurSigma = uniform(rng, 0, 1);
    cam.noiseSigma = uniform(rng, 0, 4);
    cv::GaussianBlur(out.image, out.image, cv::Size(), std::max(0.3, cam.blurSigma));
    cv::Mat noise(out.image.size(), CV_32F);
    cv::randn(noise, 0.0, cam.noiseSigma);
    cv::Mat f;
    out.image.convertTo(f, CV_32F);
    f += noise;
    f.convertTo(out.image, CV_8U);
    return out;
}

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
    if (s.over) s.over(out.image, style, rng);
    return out;
}

inline Generator sceneGenerator(const Scene& s) {
    return [s](Rng& rng) { return renderScene(s, rng); };
}

// No-code images.
inline cv::Mat noiseImage(Rng& rng, cv::Size size, double blur) {
    return qbrender::noiseFrame(size, blur, rng());
}

// One of several codes of a frame: its spacing given, its dot size and turn drawn.
inline qbrender::CodeStyle turnedStyle(Rng& rng, double spacing, cv::Size size) {
    qbrender::CodeStyle style;
    style.size = size;
    style.spacing = spacing;
    style.dotDiameter = style.spacing * uniform(rng, 0.5, 0.7);
    style.rotationDeg = uniform(rng, 0, 360);
    return style;
}

// A random code drawn into the frame with a little blur and noise of its own.
inline void addCode(Sample& out, const qbrender::CodeStyle& style, Rng& rng) {
    qbrender::CameraOptions cam;
    cam.blurSigma = uniform(rng, 0, 1);
    cam.noiseSigma = uniform(rng, 0, 3);
    cam.seed = rng();
    out.codes.push_back(randomCode(rng, 45));
    cv::max(out.image, qbrender::renderCamera(out.codes.back(), style, cam), out.image);
}

// Codes side by side, 640 px apart so that each is a cluster of its own.
inline Sample codesInARow(Rng& rng, int count) {
    Sample out;
    out.image = cv::Mat::zeros(640, 640 * count, CV_8U);
    for (int k = 0; k < count; ++k) {
        qbrender::CodeStyle style = turnedStyle(rng, uniform(rng, 16, 26), out.image.size());
        style.centre =
            cv::Point2d(320 + 640 * k + uniform(rng, -40, 40), 320 + uniform(rng, -40, 40));
        addCode(out, style, rng);
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

// Two codes side by side in one 480 x 640 frame, their centres `lo` to `hi` code radii apart
// (below 2 their outer rings touch).
inline Sample closeNeighbours(Rng& rng, bool anyCode, double lo = 2.1, double hi = 2.6) {
    Sample out;
    out.anyCode = anyCode;
    out.image = cv::Mat::zeros(480, 640, CV_8U);
    const double spacing = uniform(rng, 13, 15), radius = 5 * spacing;
    const double apart = uniform(rng, lo, hi) * radius, turn = uniform(rng, 0, CV_PI);
    const cv::Point2d half(std::cos(turn) * apart / 2, std::sin(turn) * apart / 2);
    for (int k = 0; k < 2; ++k) {
        qbrender::CodeStyle style =
            turnedStyle(rng, spacing * uniform(rng, 0.95, 1.05), out.image.size());
        style.centre = cv::Point2d(320, 240) + (k ? half : -half);
        addCode(out, style, rng);
    }
    return out;
}

// A soft shadow edge across the code: 35 to 60 % of the light on one side of a line through it.
inline void shadowEdge(cv::Mat& frame, const qbrender::CodeStyle& style, Rng& rng) {
    const double a = uniform(rng, 0, 2 * CV_PI), keep = uniform(rng, 0.35, 0.6);
    const double soft = uniform(rng, 0.5, 2.0) * style.spacing;
    const cv::Point2d n(std::cos(a), std::sin(a));
    const cv::Point2d through = style.centre + n * (uniform(rng, -2, 2) * style.spacing);
    for (int y = 0; y < frame.rows; ++y)
        for (int x = 0; x < frame.cols; ++x) {
            const double d = (cv::Point2d(x, y) - through).dot(n) / soft;
            const double light = keep + (1 - keep) / (1 + std::exp(-d));
            uchar& p = frame.at<uchar>(y, x);
            p = cv::saturate_cast<uchar>(p * light);
        }
}

// A printed label photographed as people do: dark dots on light paper lying in a scene, turned
// up to 20 degrees, uneven light, and with `glossy` an area light's highlight over part of the
// code and depth of field (sharp on one side, soft on the other); JPEG 60 to 90.
inline Sample labelInScene(Rng& rng, const std::vector<cv::Mat>& photos, bool glossy) {
    Sample out;
    out.image = photos[rng() % photos.size()].clone();
    qbrender::CodeStyle style;
    style.spacing = uniform(rng, 16, 24);
    style.dotDiameter = style.spacing * uniform(rng, 0.5, 0.7);
    style.rotationDeg = uniform(rng, 0, 360);
    style.background = uniform(rng, 185, 235);
    style.foreground = uniform(rng, 20, 70);
    style.size = out.image.size();
    style.centre = cv::Point2d(uniform(rng, 200, 440), uniform(rng, 160, 320));
    qbrender::CameraOptions cam;
    cam.tiltDeg = uniform(rng, 0, 20);
    cam.tiltAxisDeg = uniform(rng, 0, 180);
    cam.seed = rng();
    out.bits = randomCode(rng, 45);
    const cv::Mat label = qbrender::renderCamera(out.bits, style, cam);
    // The paper: every position printed with dots large enough to merge, seen the same way.
    qbrender::CodeStyle sheet = style;
    sheet.background = 0;
    sheet.foreground = 255;
    sheet.dotDiameter = 2.6 * style.spacing;
    qbrender::CameraOptions tiltOnly;
    tiltOnly.tiltDeg = cam.tiltDeg;
    tiltOnly.tiltAxisDeg = cam.tiltAxisDeg;
    const cv::Mat paper =
        qbrender::renderCamera(std::vector<int>(out.bits.size(), 1), sheet, tiltOnly) > 128;
    label.copyTo(out.image, paper);
    cv::Mat f;
    out.image.convertTo(f, CV_32F);
    const double across = uniform(rng, 0.2, 0.5), dir = uniform(rng, 0, 2 * CV_PI);
    for (int y = 0; y < f.rows; ++y)
        for (int x = 0; x < f.cols; ++x) {
            const double u = ((x - 320) * std::cos(dir) + (y - 240) * std::sin(dir)) / 400.0;
            f.at<float>(y, x) *= static_cast<float>(1.0 - across * (0.5 + 0.5 * u));
        }
    if (glossy) {
        cv::Mat sharp = f.clone(), soft;
        cv::GaussianBlur(f, soft, cv::Size(), uniform(rng, 1.5, 2.5));
        for (int y = 0; y < f.rows; ++y)
            for (int x = 0; x < f.cols; ++x) {
                const float w =
                    static_cast<float>(std::clamp((x - style.centre.x) / 300.0 + 0.5, 0.0, 1.0));
                f.at<float>(y, x) = (1 - w) * sharp.at<float>(y, x) + w * soft.at<float>(y, x);
            }
        // The highlight: a soft ellipse of light over part of the code, washing out contrast.
        cv::Mat light = cv::Mat::zeros(f.size(), CV_32F);
        const cv::Point2d at = style.centre + cv::Point2d(uniform(rng, -3, 3) * style.spacing,
                                                          uniform(rng, -3, 3) * style.spacing);
        cv::ellipse(light, cv::Point(at),
                    cv::Size(static_cast<int>(uniform(rng, 1.0, 2.5) * style.spacing),
                             static_cast<int>(uniform(rng, 0.5, 1.2) * style.spacing)),
                    uniform(rng, 0, 180), 0, 360, cv::Scalar(uniform(rng, 60, 120)), -1);
        cv::GaussianBlur(light, light, cv::Size(), style.spacing);
        f += light;
    }
    // Seeded from the condition's own generator: OpenCV's shared one would make the frame
    // depend on what was drawn before it.
    cv::Mat noise(f.size(), CV_32F);
    cv::RNG(rng()).fill(noise, cv::RNG::NORMAL, 0.0, uniform(rng, 1, 4));
    f += noise;
    f.convertTo(out.image, CV_8U);
    std::vector<uchar> jpeg;
    cv::imencode(".jpg", out.image, jpeg,
                 {cv::IMWRITE_JPEG_QUALITY, static_cast<int>(uniform(rng, 60, 90))});
    out.image = cv::imdecode(jpeg, cv::IMREAD_GRAYSCALE);
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
    // What a hand-held or line camera still shows: steep views, small codes, neighbours, real
    // scenes. Reported beside the rest; a wrong read fails the suite.
    variant("tilt 35-50deg", "scene", [](Scene& s) {
        s.spacingLo = 20;
        s.spacingHi = 30;
        s.cam.tiltDeg = 35;
        s.tiltHi = 50;
    });
    variant("spacing 8-14px", "scene", [](Scene& s) {
        s.spacingLo = 8;
        s.spacingHi = 14;
    });
    add("close neighbours, C call", "", 0, "scene",
        [](Rng& rng) { return closeNeighbours(rng, true); });
    add("close neighbours, every code", "", 0, "scene",
        [](Rng& rng) { return closeNeighbours(rng, false); });
    add("touching codes, C call", "", 0, "scene",
        [](Rng& rng) { return closeNeighbours(rng, true, 1.7, 2.1); });
    variant("shadow edge", "scene", [](Scene& s) { s.over = shadowEdge; });
    if (!photos.empty()) {
        add("label in a scene", "", 0, "scene",
            [photos](Rng& rng) { return labelInScene(rng, photos, false); });
        add("glossy label", "", 0, "scene",
            [photos](Rng& rng) { return labelInScene(rng, photos, true); });
    }
    // Things lying on the code: a read must come back exact or be refused.
    const std::pair<const char*, Cover> covers[] = {
        {"grey objects on the code", Cover::Grey},     {"dark objects on the code", Cover::Dark},
        {"bright objects on the code", Cover::Bright}, {"large object on the code", Cover::Large},
        {"scratch across the code", Cover::Scratch},   {"specks between positions", Cover::Specks}};
    for (const auto& [name, kind] : covers)
        variant(name, "cover", [kind = kind](Scene& s) {
            s.over = [kind](cv::Mat& frame, const qbrender::CodeStyle& style, Rng& rng) {
                drawCover(frame, style, kind, rng);
            };
        });
    if (!photos.empty())
        add("code printed on a photograph", "", 0, "cover",
            [photos](Rng& rng) { return codeOnPhoto(rng, photos); });
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
