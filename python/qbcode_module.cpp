// Python module qbcode: read, read_all, render and grade on numpy arrays.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "qbcode_print_quality.hpp"
#include "qbcode_reader.hpp"
#include "qbcode_render.h"

namespace py = pybind11;

namespace {

// A grey copy of the caller's array as a cv::Mat; colour is taken in OpenCV's BGR order.
cv::Mat greyFrom(const py::array& in) {
    if (!py::dtype::of<uint8_t>().is(in.dtype()))
        throw py::type_error("image must be a numpy array of uint8, not " +
                             py::str(in.dtype()).cast<std::string>());
    const auto image = py::array_t<uint8_t, py::array::c_style>::ensure(in);
    if (!image) throw py::type_error("image must be a numpy array of uint8");
    const int rows = image.ndim() >= 1 ? static_cast<int>(image.shape(0)) : 0;
    const int cols = image.ndim() >= 2 ? static_cast<int>(image.shape(1)) : 0;
    auto* data = const_cast<uint8_t*>(image.data());
    if (image.ndim() == 2) return cv::Mat(rows, cols, CV_8UC1, data).clone();
    if (image.ndim() == 3 && (image.shape(2) == 3 || image.shape(2) == 4)) {
        const int channels = static_cast<int>(image.shape(2));
        cv::Mat grey;
        cv::cvtColor(cv::Mat(rows, cols, CV_8UC(channels), data), grey,
                     channels == 3 ? cv::COLOR_BGR2GRAY : cv::COLOR_BGRA2GRAY);
        return grey;
    }
    throw py::value_error("image must be 2-D (rows, cols) or 3-D with 3 or 4 channels");
}

qbcode::ReaderOptions optionsFrom(const std::optional<std::string>& params) {
    return params ? qbcode::ReaderOptions::fromFile(*params)
                  : qbcode::ReaderOptions::fromDefaultSearch();
}

// Whole bytes of the free positions; the last, partial byte only when it holds a set bit (as
// qbcode read prints it, so that what render was given comes back).
py::bytes payloadOf(const qbcode::Result& r) {
    if (!r.valid()) return py::bytes();
    std::vector<uint8_t> bytes = qbcode::payloadBytes(r.bits);
    const size_t free =
        r.bits.size() - qbcode::markerOnPositions().size() - qbcode::markerOffPositions().size();
    if (free % 8 != 0 && !bytes.empty() && bytes.back() == 0) bytes.pop_back();
    return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

py::tuple point(const qbcode::Point& p) {
    return py::make_tuple(p.x, p.y);
}

py::dict checksOf(const qbcode::Result& r) {
    py::dict d;
    d["verified"] = r.checks.verified;
    d["blank_fill"] = r.checks.blankFill;
    d["outside"] = r.checks.outside;
    d["markers_matched"] = r.checks.markersMatched;
    d["dots_matched"] = r.checks.dotsMatched;
    d["dots_missing"] = r.checks.dotsMissing;
    d["dots_unexplained"] = r.checks.dotsUnexplained;
    d["residual"] = r.checks.residual;
    d["correlation"] = r.evidence.correlation;
    d["marker_ratio"] = r.evidence.markerRatio;
    return d;
}

// How the read was made: the views tried, the clusters looked at and decided, the ratio and
// polarity, and whether the grid was refitted.
py::dict howOf(const qbcode::Result& r) {
    py::dict d;
    d["tries"] = r.evidence.tries;
    d["candidates"] = r.evidence.candidates;
    d["decisions"] = r.evidence.decisions;
    d["ratio"] = r.evidence.ratio;
    d["dark_dots"] = r.evidence.darkDots;
    d["refined"] = r.evidence.refined;
    d["fast_path"] = r.evidence.fastPath;
    return d;
}

py::dict timingsOf(const qbcode::Result& r) {
    const qbcode::Timings& t = r.timings;
    py::dict d;
    d["preprocess"] = t.preprocess;
    d["region"] = t.region;
    d["angle"] = t.angle;
    d["spacing"] = t.spacing;
    d["centre"] = t.centre;
    d["decode"] = t.decode;
    d["verify"] = t.verify;
    d["total"] = t.total;
    return d;
}

qbcode::Result readOne(const py::array& image, const std::optional<std::string>& params) {
    const cv::Mat grey = greyFrom(image);
    const qbcode::ReaderOptions options = optionsFrom(params);
    py::gil_scoped_release unlocked;
    return qbcode::read(qbcode::ImageView(grey.data, grey.rows, grey.cols, grey.step), options);
}

std::vector<qbcode::Result> readMany(const py::array& image,
                                     const std::optional<std::string>& params, int maxCodes) {
    const cv::Mat grey = greyFrom(image);
    const qbcode::ReaderOptions options = optionsFrom(params);
    py::gil_scoped_release unlocked;
    return qbcode::readAll(qbcode::ImageView(grey.data, grey.rows, grey.cols, grey.step), options,
                           maxCodes);
}

std::vector<int> bitsFrom(const py::object& bits, const py::object& payload, int rings) {
    if (bits.is_none() == payload.is_none())
        throw py::value_error("give exactly one of bits and payload");
    if (!bits.is_none()) {
        std::vector<int> v = bits.cast<std::vector<int>>();
        if (qbrender::layersForPositions(v.size()) < 0)
            throw py::value_error("bits must hold 1 + 3L(L+1) values (91 for five rings)");
        return v;
    }
    const int free = qbcode::freePositions(rings);
    std::vector<uint8_t> bytes;
    if (py::isinstance<py::int_>(payload)) {
        py::int_ n = payload;
        if (py::int_(0).attr("__gt__")(n).cast<bool>())
            throw py::value_error("payload must not be negative");
        if (n.attr("bit_length")().cast<int>() > free)
            throw py::value_error("payload does not fit in " + std::to_string(free) + " free bits");
        const std::string raw = n.attr("to_bytes")((free + 7) / 8, "little").cast<std::string>();
        bytes.assign(raw.begin(), raw.end());
    } else {
        const std::string raw = payload.cast<std::string>();
        bytes.assign(raw.begin(), raw.end());
    }
    for (size_t i = 0; i < bytes.size(); ++i)
        for (int b = 0; b < 8; ++b)
            if ((bytes[i] >> b) & 1 && static_cast<int>(8 * i + b) >= free)
                throw py::value_error("payload does not fit in " + std::to_string(free) +
                                      " free bits");
    return qbcode::payloadBits(bytes, rings);
}

py::array toArray(const cv::Mat& img) {
    py::array_t<uint8_t> out({img.rows, img.cols});
    for (int y = 0; y < img.rows; ++y)
        std::copy(img.ptr<uint8_t>(y), img.ptr<uint8_t>(y) + img.cols, out.mutable_data(y, 0));
    return std::move(out);
}

py::dict gradeOf(const qbcode::GradeResult& g) {
    py::dict d;
    d["status"] = g.status;
    d["name"] = qbcode::gradeStatusName(g.status);
    d["rating"] = g.status == 0 ? qbcode::gradeRating(g.total, g.maxTotal) : "";
    d["total"] = g.total;
    d["max_total"] = g.maxTotal;
    py::dict scores, maxima;
    scores["area"] = g.area;
    scores["intensity"] = g.intensity;
    scores["roundness"] = g.roundness;
    scores["centroid"] = g.centroid;
    scores["rotated_box"] = g.rotatedBox;
    scores["separation"] = g.separation;
    maxima["area"] = g.maxArea;
    maxima["intensity"] = g.maxIntensity;
    maxima["roundness"] = g.maxRoundness;
    maxima["centroid"] = g.maxCentroid;
    maxima["rotated_box"] = g.maxRotatedBox;
    maxima["separation"] = g.maxSeparation;
    d["scores"] = scores;
    d["max_scores"] = maxima;
    d["bits"] = g.bits;
    d["orientation"] = g.orientation;
    d["gap"] = g.gap;
    d["dots_found"] = g.dotsFound;
    d["connected_pairs"] = g.connectedPairs;
    return d;
}

}  // namespace

PYBIND11_MODULE(qbcode, m) {
    m.doc() = "Reader of printed hexagonal dot codes in grey images";
    m.attr("__version__") = std::string(qbcode::versionBanner()).substr(30);

    py::class_<qbcode::Result>(m, "Result", "What one read found")
        .def_readonly("status", &qbcode::Result::status, "0, or a negative status code")
        .def_property_readonly("name", &qbcode::Result::statusName,
                               "the status as a word, e.g. \"ok\" or \"no-angle\"")
        .def_property_readonly("valid", &qbcode::Result::valid, "True when the code was read")
        .def_readonly("bits", &qbcode::Result::bits, "centre, then ring by ring")
        .def_property_readonly("payload", &payloadOf, "free positions as bytes, LSB first")
        .def_property_readonly(
            "box",
            [](const qbcode::Result& r) {
                return py::make_tuple(r.box[0], r.box[1], r.box[2], r.box[3]);
            },
            "(x, y, width, height) of the code's region in input pixels")
        .def_readonly("orientation", &qbcode::Result::orientation,
                      "0..5: the sixth turn of the grid the markers fit; -1 when unread")
        .def_readonly("angle", &qbcode::Result::angle,
                      "degrees the image was turned to bring the code upright")
        .def_readonly("spacing", &qbcode::Result::spacing, "dot spacing in input pixels")
        .def_property_readonly(
            "centre", [](const qbcode::Result& r) { return point(r.centre); },
            "(x, y) of the centre dot in input pixels")
        .def_property_readonly(
            "corners",
            [](const qbcode::Result& r) {
                py::list l;
                for (const auto& p : r.corners) l.append(point(p));
                return l;
            },
            "(x, y) of the six corner dots of the outer ring")
        .def_readonly("margin", &qbcode::Result::margin,
                      "how far the weakest bit is from its decision, relative to the threshold")
        .def_readonly("confidence", &qbcode::Result::confidence,
                      "per position, bit order: 1 at the grey level its bit says, 0 halfway to "
                      "the other level, below 0 beyond it or on an object that is neither")
        .def_readonly("decision_margin", &qbcode::Result::decisionMargin,
                      "the weakest position's confidence")
        .def_property_readonly("checks", &checksOf, "the verification's measurements, as a dict")
        .def_property_readonly("how", &howOf,
                               "views tried, candidates looked at and decided, ratio, polarity")
        .def_property_readonly("timings", &timingsOf, "milliseconds")
        .def("__bool__", &qbcode::Result::valid)
        .def("__repr__", [](const qbcode::Result& r) {
            return "<qbcode.Result " + std::to_string(r.status) + " " + r.statusName() + ">";
        });

    py::class_<qbcode::Reader>(m, "Reader",
                               "A reader kept across frames: the parameters are parsed once and\n"
                               "its buffers reused. One per stream; a reader shared by threads\n"
                               "reads one frame at a time.")
        .def(py::init([](const std::optional<std::string>& params,
                         const std::optional<std::string>& yaml) {
                 if (params && yaml) throw py::value_error("give params or yaml, not both");
                 return std::make_unique<qbcode::Reader>(
                     yaml ? qbcode::ReaderOptions::fromYaml(*yaml) : optionsFrom(params));
             }),
             py::arg("params") = py::none(), py::arg("yaml") = py::none(),
             "params: parameter file (None searches as read() does); yaml: the file's text.")
        .def_property_readonly("status", &qbcode::Reader::status,
                               "0, or the configuration status every read returns")
        .def(
            "read",
            [](qbcode::Reader& reader, const py::array& image) {
                const cv::Mat grey = greyFrom(image);
                py::gil_scoped_release unlocked;
                return reader.read(qbcode::ImageView(grey.data, grey.rows, grey.cols, grey.step));
            },
            py::arg("image"), "Reads the first code of a uint8 image (2-D grey, or BGR/BGRA).")
        .def(
            "read_all",
            [](qbcode::Reader& reader, const py::array& image, int maxCodes) {
                const cv::Mat grey = greyFrom(image);
                py::gil_scoped_release unlocked;
                return reader.readAll(qbcode::ImageView(grey.data, grey.rows, grey.cols, grey.step),
                                      maxCodes);
            },
            py::arg("image"), py::arg("max_codes") = 0,
            "Every code of the image, most promising first; [] when none is.");

    m.def("read", &readOne, py::arg("image"), py::arg("params") = py::none(),
          "Reads the code in a uint8 image (2-D grey, or 3-D BGR/BGRA). params: parameter file;\n"
          "None searches ./algorithm_parameters_v01.yml, then the installed file, then the\n"
          "built-in defaults.");
    m.def("read_all", &readMany, py::arg("image"), py::arg("params") = py::none(),
          py::arg("max_codes") = 0, "Every code found, largest first; [] when none is.");
    m.def(
        "render",
        [](py::object bits, py::object payload, int rings, double spacing, double dot,
           double rotation, std::pair<int, int> size, bool camera, uint64_t seed) {
            const std::vector<int> code = bitsFrom(bits, payload, rings);
            qbrender::CodeStyle style;
            style.spacing = spacing;
            style.dotDiameter = dot;
            style.rotationDeg = rotation;
            style.size = cv::Size(size.first, size.second);
            cv::Mat img;
            {
                py::gil_scoped_release unlocked;
                img = camera ? qbrender::renderCamera(code, style, qbrender::typicalCamera(seed))
                             : qbrender::renderCode(code, style);
            }
            return toArray(img);
        },
        py::arg("bits") = py::none(), py::arg("payload") = py::none(), py::arg("rings") = 5,
        py::arg("spacing") = 22.0, py::arg("dot") = 13.0, py::arg("rotation") = 0.0,
        py::arg("size") = std::make_pair(640, 480), py::arg("camera") = false, py::arg("seed") = 1,
        "A code image (uint8, rows x cols) from bits or a payload (bytes, or a non-negative\n"
        "int). size is (width, height); camera adds blur, noise, uneven light, tilt and JPEG.");
    m.def(
        "grade",
        [](const py::array& image, const std::optional<std::string>& params) {
            const cv::Mat grey = greyFrom(image);
            const std::string path = params ? *params : std::string();
            qbcode::GradeResult g;
            {
                py::gil_scoped_release unlocked;
                qbcode::grade(grey.data, grey.rows, grey.cols, path, g);
            }
            return gradeOf(g);
        },
        py::arg("image"), py::arg("params") = py::none(),
        "Print-quality grade of the code in the image, as a dict of scores.");
    m.def("status_name", &qbcode_status_name, py::arg("status"),
          "The word for a status code, e.g. status_name(-600) == \"config\".");
}
