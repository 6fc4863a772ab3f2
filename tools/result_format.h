// How the commands spell a read: bits, payload, JSON strings and numbers, CSV cells.
#pragma once

#include <string>
#include <vector>

#include "qbcode_reader.hpp"

namespace cli {

std::string bitString(const std::vector<int>& bits);

// The free positions as hex bytes, first byte first. The last byte of 73 free bits holds one
// bit; it is printed only when that bit is set, so that the 9 bytes given to render
// --payload-hex come back as they were written.
std::string payloadHex(const std::vector<int>& bits);

std::string jsonString(const std::string& s);
std::string pointJson(const qbcode::Point& p);

// A CSV cell: quoted when it holds a comma, a quote or a line break.
std::string csvCell(const std::string& s);

// Frame costs in milliseconds: the median, the 95th percentile and the worst.
struct CostSummary {
    double median = 0.0, p95 = 0.0, worst = 0.0;
};
CostSummary summarise(std::vector<double> ms);

}  // namespace cli
