#include "CodeFormat.h"

#include <algorithm>

#include "qbcode_hexagon_recognition.h"

namespace qbcode {

const std::vector<int>& markerOnPositions() {
    static const std::vector<int> on{1, 2, 7, 9, 19, 22};
    return on;
}

const std::vector<int>& markerOffPositions() {
    static const std::vector<int> off{3, 4, 5, 6, 11, 13, 15, 17, 25, 28, 31, 34};
    return off;
}

bool isMarker(int i) {
    const auto& on = markerOnPositions();
    const auto& off = markerOffPositions();
    return std::find(on.begin(), on.end(), i) != on.end() ||
           std::find(off.begin(), off.end(), i) != off.end();
}

int markersMatched(const std::vector<int>& bits, int n) {
    int matched = 0;
    for (int i : markerOnPositions()) matched += i < n && bits[i] == 1;
    for (int i : markerOffPositions()) matched += i < n && bits[i] == 0;
    return matched;
}

int markerCount() {
    return static_cast<int>(markerOnPositions().size() + markerOffPositions().size());
}

int positionsFor(int layers) {
    // The count saturates as get_dots_num does: a hostile "layer" must not overflow.
    return get_dots_num(layers);
}

int freePositions(int layers) {
    int n = 0;
    for (int i = 0; i < positionsFor(layers); ++i) n += isMarker(i) ? 0 : 1;
    return n;
}

std::vector<int> payloadBits(const std::vector<uint8_t>& payload, int layers) {
    std::vector<int> bits(positionsFor(layers), 0);
    size_t next = 0;
    for (int i = 0; i < static_cast<int>(bits.size()); ++i) {
        if (isMarker(i)) continue;
        const size_t byte = next / 8, bit = next % 8;
        bits[i] = byte < payload.size() ? (payload[byte] >> bit) & 1 : 0;
        ++next;
    }
    for (int i : markerOnPositions())
        if (i < static_cast<int>(bits.size())) bits[i] = 1;
    return bits;
}

std::vector<uint8_t> payloadBytes(const std::vector<int>& bits) {
    std::vector<uint8_t> out;
    size_t next = 0;
    for (int i = 0; i < static_cast<int>(bits.size()); ++i) {
        if (isMarker(i)) continue;
        if (next % 8 == 0) out.push_back(0);
        if (bits[i]) out.back() = static_cast<uint8_t>(out.back() | (1u << (next % 8)));
        ++next;
    }
    return out;
}

}  // namespace qbcode
