#include "WriteData.h"

#include <iostream>

namespace {

// 8-bit elements go out as the raw byte itself; hosts parse the dump that way.
template <class T>
void writeValue(std::ofstream& out, T v) {
    out << v;
}
template <>
void writeValue<float>(std::ofstream& out, float v) {
    out << static_cast<double>(v);
}

}  // namespace

template <class T>
void WriteData::writeStream(std::ofstream& out, const T* data, int rows, int cols, int step,
                            int channels) {
    for (int r = 0; r < rows; ++r) {
        const T* row = data + static_cast<size_t>(r) * step;
        for (int c = 0; c < cols; ++c) {
            const T* px = row + static_cast<size_t>(c) * channels;
            for (int k = 0; k < channels; ++k) {
                if (k > 0) out << ',';
                writeValue<T>(out, px[k]);
            }
            out << '\t';
        }
        out << std::endl;
    }
}

template void WriteData::writeStream<unsigned char>(std::ofstream&, const unsigned char*, int, int,
                                                    int, int);
template void WriteData::writeStream<signed char>(std::ofstream&, const signed char*, int, int, int,
                                                  int);
template void WriteData::writeStream<unsigned short>(std::ofstream&, const unsigned short*, int,
                                                     int, int, int);
template void WriteData::writeStream<short>(std::ofstream&, const short*, int, int, int, int);
template void WriteData::writeStream<int>(std::ofstream&, const int*, int, int, int, int);
template void WriteData::writeStream<float>(std::ofstream&, const float*, int, int, int, int);
template void WriteData::writeStream<double>(std::ofstream&, const double*, int, int, int, int);

void WriteData::saveAsText(std::string filename, cv::InputArray src) {
    std::ofstream out(filename, std::ios::out);
    if (!out.is_open()) {
        std::cout << "Fail to open file (" << filename << ")" << std::endl;
        return;
    }
    cv::Mat m = src.getMat();
    if (m.empty() || m.total() == 0) {
        cv::error(cv::Error::StsAssert, "src.empty() == false", "saveAsText", "WriteData", 46);
    }
    const int depth = m.depth();
    const int channels = m.channels();
    const int step = static_cast<int>(m.step[0] / m.elemSize1());
    switch (depth) {
        case CV_8U:
            writeStream(out, m.ptr<unsigned char>(), m.rows, m.cols, step, channels);
            break;
        case CV_8S:
            writeStream(out, m.ptr<signed char>(), m.rows, m.cols, step, channels);
            break;
        case CV_16U:
            writeStream(out, m.ptr<unsigned short>(), m.rows, m.cols, step, channels);
            break;
        case CV_16S:
            writeStream(out, m.ptr<short>(), m.rows, m.cols, step, channels);
            break;
        case CV_32S:
            writeStream(out, m.ptr<int>(), m.rows, m.cols, step, channels);
            break;
        case CV_32F:
            writeStream(out, m.ptr<float>(), m.rows, m.cols, step, channels);
            break;
        case CV_64F:
            writeStream(out, m.ptr<double>(), m.rows, m.cols, step, channels);
            break;
        default:
            cv::error(cv::Error::StsUnsupportedFormat, "Unsupported Format", "saveAsText",
                      "WriteData", 80);
    }
    out.close();
}
