// Facts of the code format shared by the decoder, the tools and the renderer: which positions
// are orientation markers and how the free positions carry the payload.
#pragma once

#include "qbcode_reader.hpp"

namespace qbcode {

// True for the six always-printed and twelve always-blank positions.
bool isMarker(int position);
// Marker positions below n whose bit is as printed: 1 on the printed ones, 0 on the blank ones.
int markersMatched(const std::vector<int>& bits, int n);
int markerCount();
// Positions of a code with the given rings (1 for none or fewer).
int positionsFor(int layers);

}  // namespace qbcode
