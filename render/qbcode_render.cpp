#include "qbcode_render.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "qbcode_hexagon_recognition.h"

namespace qbrender {

namespace {

const double kPi = 3.14159265358979323846;

// Adds a disc of the given level with per-pixel coverage from 4x4 sub-samples.
void drawDisc(cv::Mat& img, double row, double col, double radius, double background,
              double level) {
    if (!std::isfinite(row) || !std::isfinite(col) || !(radius > 0.0) || !std::isfinite(radius))
        return;
    // Discs entirely off the image are skipped before any integer conversion.
    if (row + radius + 1 < 0 || col + radius + 1 < 0 || row - radius - 1 > img.rows ||
        col - radius - 1 > img.cols)
        return;
    const int r0 = std::max(0, static_cast<int>(std::floor(row - radius - 1)));
    const int r1 = std::min(img.rows - 1, static_cast<int>(std::ceil(row + radius + 1)));
    const int c0 = std::max(0, static_cast<int>(std::floor(col - radius - 1)));
    const int c1 = std::min(img.cols - 1, static_cast<int>(std::ceil(col + radius + 1)));
    const double rr = radius * radius;
    for (int r = r0; r <= r1; ++r) {
        float* px = img.ptr<float>(r);
        for (int c = c0; c <= c1; ++c) {
            int inside = 0;
            for (int sy = 0; sy < 4; ++sy) {
                const double dy = r - 0.375 + 0.25 * sy - row;
                for (int sx = 0; sx < 4; ++sx) {
                    const double dx = c - 0.375 + 0.25 * sx - col;
                    if (dx * dx + dy * dy <= rr) ++inside;
                }
            }
            if (inside > 0) {
                const double cover = inside / 16.0;
                const double v = background + cover * (level - background);
                // Overlapping dots keep the value furthest from the background (dark dots too).
                px[c] = static_cast<float>(level >= background ? std::max<double>(px[c], v)
                                                               : std::min<double>(px[c], v));
            }
        }
    }
}

cv::Point2d centreOf(const CodeStyle& style) {
    if (style.centre.x < 0 || style.centre.y < 0)
        return cv::Point2d(style.size.width / 2.0, style.size.height / 2.0);
    return style.centre;
}

bool validSize(cv::Size size) {
    return size.width > 0 && size.height > 0 &&
           static_cast<double>(size.width) * size.height <= 4e8;
}

cv::Mat renderFloat(const std::vector<int>& bits, const CodeStyle& style) {
    cv::Mat img(style.size, CV_32F, cv::Scalar(style.background));
    const int layers = layersForPositions(bits.size());
    if (layers < 0) return img;
    const auto offsets = gridOffsets(layers, style.spacing, style.rotationDeg);
    const cv::Point2d c = centreOf(style);
    for (size_t i = 0; i < bits.size(); ++i) {
        if (!bits[i]) continue;
        drawDisc(img, c.y + offsets[i].x, c.x + offsets[i].y, style.dotDiameter / 2.0,
                 style.background, style.foreground);
    }
    return img;
}

// Homography of a plane turned by tiltDeg about an in-plane axis through the centre, seen by a
// pinhole camera whose focal length is about the image diagonal.
cv::Mat tiltHomography(cv::Size size, cv::Point2d centre, double tiltDeg, double axisDeg) {
    const double f = std::hypot(size.width, size.height);
    const double t = tiltDeg * kPi / 180.0, a = axisDeg * kPi / 180.0;
    const double ux = std::cos(a), uy = std::sin(a);
    // Rodrigues rotation about the axis (ux, uy, 0).
    const double c = std::cos(t), s = std::sin(t), C = 1 - c;
    const double R[3][3] = {{c + ux * ux * C, ux * uy * C, uy * s},
                            {uy * ux * C, c + uy * uy * C, -ux * s},
                            {-uy * s, ux * s, c}};
    std::vector<cv::Point2f> src, dst;
    const double half = std::min(size.width, size.height) / 2.0;
    for (int k = 0; k < 4; ++k) {
        const double px = (k == 0 || k == 3) ? -half : half;
        const double py = (k < 2) ? -half : half;
        const double X = R[0][0] * px + R[0][1] * py, Y = R[1][0] * px + R[1][1] * py;
        const double Z = R[2][0] * px + R[2][1] * py;
        src.emplace_back(static_cast<float>(centre.x + px), static_cast<float>(centre.y + py));
        dst.emplace_back(static_cast<float>(centre.x + f * X / (f + Z)),
                         static_cast<float>(centre.y + f * Y / (f + Z)));
    }
    return cv::getPerspectiveTransform(src, dst);
}

uint32_t crc32(const unsigned char* data, size_t n, uint32_t crc = 0xffffffffu) {
    for (size_t i = 0; i < n; ++i) {
        crc ^= data[i];
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
    }
    return crc;
}

void putBigEndian(std::vector<unsigned char>& out, uint32_t v) {
    for (int k = 3; k >= 0; --k) out.push_back(static_cast<unsigned char>(v >> (8 * k)));
}

}  // namespace

int layersForPositions(size_t n) {
    for (int l = 0; l < 64; ++l)
        if (static_cast<size_t>(get_dots_num(l)) == n) return l;
    return -1;
}

std::vector<cv::Point2d> gridOffsets(int layers, double spacing, double rotationDeg) {
    // Ring k starts k steps out on the first axis and walks k steps in each of the directions
    // 120, 180, 240, 300, 0 degrees and k - 1 steps at 60 degrees.
    std::vector<cv::Point2d> pts{cv::Point2d(0, 0)};
    for (int k = 1; k <= layers; ++k) {
        double x = k, y = 0;
        pts.emplace_back(x, y);
        for (int leg = 0; leg < 6; ++leg) {
            const double dir = (120.0 + 60.0 * leg) * kPi / 180.0;
            const int steps = leg == 5 ? k - 1 : k;
            for (int s = 0; s < steps; ++s) {
                x += std::cos(dir);
                y += std::sin(dir);
                pts.emplace_back(x, y);
            }
        }
    }
    const double a = rotationDeg * kPi / 180.0;
    const double c = std::cos(a), s = std::sin(a);
    for (auto& p : pts) {
        const double x = p.x * spacing, y = p.y * spacing;
        p = cv::Point2d(x * c + y * s, -x * s + y * c);
    }
    return pts;
}

std::vector<int> payloadBits(uint64_t number, int layers) {
    std::vector<uint8_t> bytes(8);
    for (int k = 0; k < 8; ++k) bytes[k] = static_cast<uint8_t>(number >> (8 * k));
    return payloadBits(bytes, layers);
}

std::vector<int> randomBits(uint64_t seed, double density, int layers) {
    cv::RNG rng(seed == 0 ? 0x5eedULL : seed);
    std::vector<uint8_t> bytes(static_cast<size_t>(freePositions(layers) + 7) / 8);
    for (auto& byte : bytes) {
        int v = 0;
        for (int bit = 0; bit < 8; ++bit) v |= (rng.uniform(0.0, 1.0) < density ? 1 : 0) << bit;
        byte = static_cast<uint8_t>(v);
    }
    return payloadBits(bytes, layers);
}

cv::Mat renderCode(const std::vector<int>& bits, const CodeStyle& style) {
    if (!validSize(style.size)) return cv::Mat();
    cv::Mat out;
    renderFloat(bits, style).convertTo(out, CV_8U);
    return out;
}

CameraOptions typicalCamera(uint64_t seed) {
    CameraOptions cam;
    cam.blurSigma = 1.0;
    cam.noiseSigma = 4.0;
    cam.lightingGradient = 0.25;
    cam.vignette = 0.15;
    cam.jpegQuality = 85;
    cam.tiltDeg = 4.0;
    cam.tiltAxisDeg = static_cast<double>(seed % 180);
    cam.clutterBlobs = 6;
    cam.clutterClearance = 240.0;
    cam.textureAmplitude = 6.0;
    cam.seed = seed;
    return cam;
}

cv::Mat renderCamera(const std::vector<int>& bits, const CodeStyle& style,
                     const CameraOptions& camera) {
    if (!validSize(style.size)) return cv::Mat();
    cv::RNG rng(camera.seed);
    cv::Mat img = renderFloat(bits, style);
    const cv::Point2d c = centreOf(style);

    if (camera.tiltDeg != 0.0) {
        cv::Mat h = tiltHomography(style.size, c, camera.tiltDeg, camera.tiltAxisDeg);
        cv::warpPerspective(img, img, h, style.size, cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                            cv::Scalar(style.background));
    }

    const int layers = std::max(0, layersForPositions(bits.size()));
    const double codeRadius =
        camera.clutterClearance >= 0.0 ? camera.clutterClearance : (layers + 1.5) * style.spacing;
    for (int k = 0, tries = 0; k < camera.clutterBlobs && tries < 100 * camera.clutterBlobs;
         ++tries) {
        const double x = rng.uniform(0.0, static_cast<double>(style.size.width));
        const double y = rng.uniform(0.0, static_cast<double>(style.size.height));
        if (std::hypot(x - c.x, y - c.y) < codeRadius) continue;
        const double d = style.dotDiameter * rng.uniform(0.4, 1.6);
        drawDisc(img, y, x, d / 2.0, 0.0, style.foreground * rng.uniform(0.5, 1.0));
        ++k;
    }

    if (camera.textureAmplitude > 0.0) {
        cv::Mat tex(style.size, CV_32F);
        rng.fill(tex, cv::RNG::NORMAL, 0.0, 1.0);
        cv::GaussianBlur(tex, tex, cv::Size(0, 0), std::max(2.0, style.spacing * 0.4));
        cv::normalize(tex, tex, -camera.textureAmplitude, camera.textureAmplitude, cv::NORM_MINMAX);
        img += tex;
    }

    if (camera.lightingGradient > 0.0 || camera.vignette > 0.0) {
        const double dir = rng.uniform(0.0, 2 * kPi);
        const double gx = std::cos(dir), gy = std::sin(dir);
        const double w = style.size.width, h = style.size.height;
        const double rmax2 = (w * w + h * h) / 4.0;
        for (int r = 0; r < img.rows; ++r) {
            float* px = img.ptr<float>(r);
            for (int col = 0; col < img.cols; ++col) {
                const double u = ((col - w / 2) * gx + (r - h / 2) * gy) / std::hypot(w, h) + 0.5;
                const double d2 =
                    ((col - w / 2) * (col - w / 2) + (r - h / 2) * (r - h / 2)) / rmax2;
                const double gain =
                    (1.0 - camera.lightingGradient * u) * (1.0 - camera.vignette * d2);
                px[col] = static_cast<float>(px[col] * gain);
            }
        }
    }

    if (camera.contrast != 1.0 && camera.contrast >= 0.0) {
        const double mid = (style.background + style.foreground) / 2.0;
        img = (img - mid) * camera.contrast + mid;
    }

    if (camera.blurSigma > 0.0) cv::GaussianBlur(img, img, cv::Size(0, 0), camera.blurSigma);

    if (camera.noiseSigma > 0.0) {
        cv::Mat noise(style.size, CV_32F);
        rng.fill(noise, cv::RNG::NORMAL, 0.0, camera.noiseSigma);
        img += noise;
    }

    cv::Mat out;
    img.convertTo(out, CV_8U);
    if (camera.jpegQuality > 0) {
        std::vector<unsigned char> buf;
        cv::imencode(".jpg", out, buf,
                     {cv::IMWRITE_JPEG_QUALITY, std::min(100, camera.jpegQuality)});
        out = cv::imdecode(buf, cv::IMREAD_GRAYSCALE);
    }
    return out;
}

bool writePrintPng(const std::string& path, const std::vector<int>& bits, double spacingMm,
                   double dotDiameterMm, int dpi) {
    const int layers = layersForPositions(bits.size());
    if (layers < 0 || dpi <= 0 || spacingMm <= 0) return false;
    const double pxPerMm = dpi / 25.4;
    CodeStyle style;
    style.spacing = spacingMm * pxPerMm;
    style.dotDiameter = dotDiameterMm * pxPerMm;
    const double sidePx = (2 * layers + 3) * spacingMm * pxPerMm;
    if (!(sidePx >= 1.0 && sidePx <= 30000.0)) return false;
    const int side = static_cast<int>(std::ceil(sidePx));
    style.size = cv::Size(side, side);
    style.background = 0;
    style.foreground = 255;
    cv::Mat img = 255 - renderCode(bits, style);

    std::vector<unsigned char> png;
    if (!cv::imencode(".png", img, png) || png.size() < 33) return false;
    // pHYs chunk right after IHDR (8-byte signature + 25-byte IHDR).
    const uint32_t ppm = static_cast<uint32_t>(std::lround(pxPerMm * 1000.0));
    std::vector<unsigned char> chunk;
    putBigEndian(chunk, 9);
    const size_t typeAt = chunk.size();
    for (char ch : std::string("pHYs")) chunk.push_back(static_cast<unsigned char>(ch));
    putBigEndian(chunk, ppm);
    putBigEndian(chunk, ppm);
    chunk.push_back(1);  // unit: metre
    putBigEndian(chunk, crc32(chunk.data() + typeAt, chunk.size() - typeAt) ^ 0xffffffffu);
    png.insert(png.begin() + 33, chunk.begin(), chunk.end());
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
    return static_cast<bool>(out);
}

bool writePrintSvg(const std::string& path, const std::vector<int>& bits, double spacingMm,
                   double dotDiameterMm) {
    const int layers = layersForPositions(bits.size());
    if (layers < 0 || spacingMm <= 0) return false;
    const double side = (2 * layers + 3) * spacingMm;
    const auto offsets = gridOffsets(layers, spacingMm, 0.0);
    std::ostringstream svg;
    svg << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << side << "mm\" height=\"" << side
        << "mm\" viewBox=\"0 0 " << side << ' ' << side << "\">\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    for (size_t i = 0; i < bits.size(); ++i) {
        if (!bits[i]) continue;
        svg << "<circle cx=\"" << side / 2 + offsets[i].y << "\" cy=\"" << side / 2 + offsets[i].x
            << "\" r=\"" << dotDiameterMm / 2 << "\" fill=\"black\"/>\n";
    }
    svg << "</svg>\n";
    std::ofstream out(path);
    out << svg.str();
    return static_cast<bool>(out);
}

cv::Mat noiseFrame(cv::Size size, double blur, uint64_t seed) {
    cv::Mat img(size, CV_32F);
    cv::RNG rng(seed);
    rng.fill(img, cv::RNG::NORMAL, 100, 60);
    if (blur > 0) cv::GaussianBlur(img, img, cv::Size(0, 0), blur);
    cv::normalize(img, img, 0, 255, cv::NORM_MINMAX);
    cv::Mat out;
    img.convertTo(out, CV_8U);
    return out;
}

}  // namespace qbrender
