// One read as the golden and reference tables hold it: status, bits as hex digits of four bits
// each (first bit first), box.
#pragma once

#include <sstream>
#include <string>
#include <vector>

inline std::string readLine(int status, const std::vector<int>& bits, const int* box) {
    std::ostringstream out;
    out << status << '\t';
    for (size_t i = 0; i < bits.size(); i += 4) {
        int nibble = 0;
        for (size_t k = i; k < i + 4 && k < bits.size(); ++k) nibble = nibble * 2 + (bits[k] != 0);
        out << "0123456789abcdef"[nibble];
    }
    out << '\t' << box[0] << ' ' << box[1] << ' ' << box[2] << ' ' << box[3];
    return out.str();
}
