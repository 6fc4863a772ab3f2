// Which codes are in view: a code is news when it was not read in the last few frames.
#pragma once

#include <map>
#include <string>

namespace cli {

class CodeCache {
public:
    // A code not read for more than `forget` frames is news again when it comes back; 0 makes
    // every read news.
    explicit CodeCache(int forget) : forget_(forget) {}
    // Notes that `code` was read in `frame` (frames counted up); true when it is news.
    bool seen(const std::string& code, long frame);

private:
    int forget_;
    std::map<std::string, long> last_;
};

}  // namespace cli
