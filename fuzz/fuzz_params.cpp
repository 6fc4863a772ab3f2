// Fuzz target: the input is the parameter file itself, mutated in structure and values (run
// with fuzz/params.dict and the seeds in fuzz/seeds/params), read through both C calls and a
// reader handle made from the text in memory, on a frame the shipped file reads.
// It lives in an anonymous memory file: nothing is left on disk.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "SystemPara.h"
#include "fuzz_report.h"
#include "qbcode_hexagon_recognition.h"
#include "qbcode_reader.hpp"
#include "qbcode_render.h"

namespace {

const cv::Mat& codeImage() {
    static const cv::Mat img = [] {
        qbrender::CodeStyle style;
        style.rotationDeg = 17.0;
        style.size = cv::Size(320, 240);
        style.spacing = 16.0;
        style.dotDiameter = 9.0;
        return qbrender::renderCamera(qbrender::randomBits(0x5eedULL), style,
                                      qbrender::typicalCamera(3));
    }();
    return img;
}

// Debug output would write files or open windows: such files are read with it switched off.
bool writesOrShows(const SystemPara& p) {
    return p.isShowImg || p.isWriteImg || p.imwriteOverlay || p.isWriteData || p.showImg ||
           p.writeImg || p.feat_writeImg || p.blob_isWriteImg;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const cv::Mat& img = codeImage();
    qbcode::ReaderOptions options = qbcode::ReaderOptions::fromYaml(text);
    if (writesOrShows(options.params())) {
        SystemPara& p = options.params();
        p.isShowImg = p.isWriteImg = p.imwriteOverlay = p.isWriteData = p.feat_writeImg =
            p.blob_isWriteImg = 0;
        p.showImg = p.writeImg = false;
        qbcode::read(qbcode::ImageView(img.data, img.rows, img.cols), options);
        return 0;
    }
    const int fd = memfd_create("fuzz_params", MFD_CLOEXEC);
    if (fd < 0) return 0;
    if (size == 0 || write(fd, data, size) == static_cast<ssize_t>(size)) {
        const std::string path = "/proc/self/fd/" + std::to_string(fd);
        const int wanted = options.bitCount();
        const int len = wanted > 0 && wanted <= 10000 ? wanted : 91;
        std::vector<int> bits(static_cast<size_t>(len));
        int box[4];
        quelbor_hexagon_recognition(img.data, img.rows, img.cols, 0, path.c_str(), bits.data(), len,
                                    box, 4);
        qbcode_result full;
        fuzzreport::read(qbcode_read(img.data, img.rows, img.cols, 0, path.c_str(), &full));
        qbcode_reader* reader = qbcode_reader_new_from_yaml(text.c_str());
        qbcode_result all[2];
        qbcode_reader_read_all(reader, img.data, img.rows, img.cols, 0, all, 2);
        qbcode_reader_read(reader, img.data, img.rows, img.cols, 0, &full);
        qbcode_reader_free(reader);
    }
    close(fd);
    return 0;
}
