#include "result_format.h"

#include <algorithm>
#include <cstdint>
#include <iomanip>
#include <sstream>

namespace cli {

std::string bitString(const std::vector<int>& bits) {
    std::string s;
    for (int b : bits) s += b ? '1' : '0';
    return s;
}

std::string payloadHex(const std::vector<int>& bits) {
    std::vector<uint8_t> bytes = qbcode::payloadBytes(bits);
    const size_t free =
        bits.size() - qbcode::markerOnPositions().size() - qbcode::markerOffPositions().size();
    if (free % 8 != 0 && !bytes.empty() && bytes.back() == 0) bytes.pop_back();
    std::ostringstream o;
    for (uint8_t b : bytes)
        o << std::hex << std::setw(2) << std::setfill('0') << static_cast<int>(b);
    return o.str();
}

std::string jsonString(const std::string& s) {
    std::ostringstream o;
    o << '"';
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            o << '\\' << c;
        } else if (c < 0x20) {
            const char hex[] = "0123456789abcdef";
            o << "\\u00" << hex[c >> 4] << hex[c & 15];
        } else {
            o << c;
        }
    }
    o << '"';
    return o.str();
}

std::string pointJson(const qbcode::Point& p) {
    std::ostringstream o;
    o << "[" << p.x << ", " << p.y << "]";
    return o.str();
}

std::string csvCell(const std::string& s) {
    if (s.find_first_of(",\"\r\n") == std::string::npos) return s;
    std::string out = "\"";
    for (char c : s) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + "\"";
}

CostSummary summarise(std::vector<double> ms) {
    CostSummary s;
    if (ms.empty()) return s;
    std::sort(ms.begin(), ms.end());
    const auto at = [&](double q) { return ms[static_cast<size_t>(q * (ms.size() - 1) + 0.5)]; };
    s.median = at(0.5);
    s.p95 = at(0.95);
    s.worst = ms.back();
    return s;
}

}  // namespace cli
