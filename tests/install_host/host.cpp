// Prints the parameter file an installed library finds with no path given, then checks that a
// blank frame is refused; the grade header needs the OpenCV headers that the target carries.
#include <cstdio>
#include <vector>

#include <qbcode_print_quality.hpp>
#include <qbcode_reader.hpp>

int main() {
    std::printf("%s\n", qbcode::defaultParamsPath().c_str());
    const std::vector<uint8_t> blank(640 * 480, 30);
    const qbcode::Result r = qbcode::read(qbcode::ImageView(blank.data(), 480, 640),
                                          qbcode::ReaderOptions::fromDefaultSearch());
    return r.valid() ? 1 : 0;
}
