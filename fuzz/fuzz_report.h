// Counts the runs in which a read decoded, so the replay driver can say what share of a corpus
// reaches the decoder. libFuzzer ignores it.
#pragma once

namespace fuzzreport {

inline int& decodes() {
    static int n = 0;
    return n;
}

// status: a read's status (0 decoded) or read_all's count (> 0 decoded).
inline void read(int status, bool isCount = false) {
    if (isCount ? status > 0 : status == 0) ++decodes();
}

}  // namespace fuzzreport
